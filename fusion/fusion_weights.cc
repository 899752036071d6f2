#include "fusion/fusion_weights.h"

#include <cmath>
#include <cstring>

#include "include/tavo_lumo_hdr.h"
#include "platform/arm_float.h"

namespace tavo {
namespace {

// Squared distance from mid-grey, in single precision on a full scale of 255.
float squared_distance(int i) {
  const float x = static_cast<float>(i) / 255.0f;
  return x * x;
}

// Gaussian weight scaled to 1024: the exponent in single precision, the
// exponential and the scaling in double.
double gaussian_1024(float exponent) { return std::exp(static_cast<double>(exponent)) * 1024.0; }

// The luma weight truncates; the chroma weight rounds to nearest first.
uint16_t truncated_weight(double w) { return static_cast<uint16_t>(arm::to_s32(w)); }
uint16_t inverted_rounded_weight(double w) {
  return static_cast<uint16_t>(1025 - arm::to_s32(std::floor(0.5 + w)));
}

}  // namespace

void build_fusion_weight_tables(uint16_t* exposure, uint16_t* chroma) {
  memset(exposure, 0, sizeof(uint16_t) * kWeightTableSize);
  memset(chroma, 0, sizeof(uint16_t) * kWeightTableSize);
  for (int i = -128; i < 128; ++i) {
    exposure[i + 128] = truncated_weight(gaussian_1024(squared_distance(i) / -0.12f));
  }
  for (int i = -128; i < 128; ++i) {
    chroma[i + 128] = inverted_rounded_weight(gaussian_1024(squared_distance(i) / -0.08f));
  }
}

namespace {

// Entries start, start+1, ... while the next index stays below end (signed),
// at least one: t = (k - center) / (end - start), weight from -t^2 / sigma.
template <class Store>
int32_t fill_weights(uint16_t* table, float sigma, int32_t center, uint32_t start, int32_t end,
                     Store store) {
  if (static_cast<uint32_t>(end) < start) return 0;
  const float range = static_cast<float>(end - static_cast<int32_t>(start));
  for (uint32_t k = start;; ++k) {
    const float t = static_cast<float>(static_cast<int32_t>(k) - center) / range;
    const float q = -(t * t) / sigma;
    table[k] = store(gaussian_1024(q));
    if (!(static_cast<int32_t>(k + 1) < end)) break;
  }
  return 0;
}

}  // namespace
}  // namespace tavo

extern "C" TAVO_HDR_EXPORT int32_t weight_Initialize(uint16_t* table, float sigma, int32_t center,
                                                     uint32_t start, int32_t end) {
  return tavo::fill_weights(table, sigma, center, start, end, tavo::truncated_weight);
}

extern "C" TAVO_HDR_EXPORT int32_t weight_Initialize_c(uint16_t* table, float sigma,
                                                       int32_t center, uint32_t start,
                                                       int32_t end) {
  return tavo::fill_weights(table, sigma, center, start, end, tavo::inverted_rounded_weight);
}
