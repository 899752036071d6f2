#include "tools/exposure_order.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace tavo::tool {

bool order_bracket(const std::string names[3], const double exposure[3], const double luma[3], BracketOrder* order,
                   std::string* error) {
  const bool by_exif = exposure[0] > 0 && exposure[1] > 0 && exposure[2] > 0;
  const double* value = by_exif ? exposure : luma;
  int* f = order->frame;
  std::stable_sort(f, f + 3, [&](int a, int b) { return value[a] < value[b]; });
  const auto format = [](double v) {
    char text[32];
    snprintf(text, sizeof text, "%.4g", v);
    return std::string(text);
  };
  const char* basis = by_exif ? "EXIF exposure" : "mean luma";
  for (int k = 0; k < 2; ++k) {
    const double low = value[f[k]], high = value[f[k + 1]];
    if (by_exif ? high < low * std::cbrt(2.0) : high - low < 2) {
      *error = "cannot tell " + names[f[k]] + " and " + names[f[k + 1]] + " apart by " + basis + " (" +
               format(low) + " and " + format(high) + "; " + (by_exif ? "a third of a stop" : "2 levels") +
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
