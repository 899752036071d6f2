#include "tools/exposure_order.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace tavo::tool {

bool order_bracket(const std::vector<std::string>& names, const std::vector<double>& exposure,
                   const std::vector<double>& luma, BracketOrder* order, std::string* error) {
  const bool by_exif = std::all_of(exposure.begin(), exposure.end(), [](double e) { return e > 0; });
  const std::vector<double>& value = by_exif ? exposure : luma;
  std::vector<int> sorted(names.size());
  for (size_t k = 0; k < sorted.size(); ++k) sorted[k] = static_cast<int>(k);
  std::stable_sort(sorted.begin(), sorted.end(), [&](int a, int b) { return value[a] < value[b]; });
  int* f = order->frame;
  f[0] = sorted.front();
  f[1] = sorted[sorted.size() / 2];
  f[2] = sorted.back();
  const auto format = [](double v) {
    char text[32];
    snprintf(text, sizeof text, "%.4g", v);
    return std::string(text);
  };
  const char* basis = by_exif ? "EXIF exposure" : "mean luma";
  for (int k = 0; k < 2; ++k) {
    const double low = value[f[k]], high = value[f[k + 1]];
    if (by_exif ? high < low * std::pow(2.0, 1.0 / 6) : high - low < 2) {
      *error = "cannot tell " + names[f[k]] + " and " + names[f[k + 1]] + " apart by " + basis + " (" +
               format(low) + " and " + format(high) + "; " + (by_exif ? "a sixth of a stop" : "2 levels") +
               " apart at least)";
      return false;
    }
  }
  order->line = "dark " + names[f[0]] + ", normal " + names[f[1]] + ", bright " + names[f[2]] + " (by " + basis +
                " " + format(value[f[0]]) + ", " + format(value[f[1]]) + ", " + format(value[f[2]]) + ")";
  return true;
}

double mean_luma(const uint8_t* y, size_t count) {
  uint64_t sum = 0;
  for (size_t i = 0; i < count; ++i) sum += y[i];
  return count == 0 ? 0 : static_cast<double>(sum) / static_cast<double>(count);
}

}  // namespace tavo::tool
