// Fixed-point arithmetic shared by the luma fusion and the chroma fusion: the
// luma sample range, and the weighted means of blending and chroma fusion, one
// output sample from the weight sum W and the weighted sum S. Both sums are
// 32-bit and wrap: they are carried as uint32_t and read as signed where the
// arithmetic is signed.
//
// Two rules exist for each operation and both are part of the result:
//  - the exact rule divides in integers and rounds half away from zero;
//  - the grouped rule, used for runs of eight samples, divides through the ARM
//    single-precision reciprocal estimate refined by one Newton step. That
//    reciprocal is slightly low, so exact halves round toward zero there.
// The instruction-set rows reproduce the grouped rule lane by lane; these
// scalar forms are the reference they are tested against.
#pragma once

#include <cstdint>

#include "platform/arm_float.h"

namespace tavo {

// Inline helpers local to each object (see the instruction-set flags in
// CMakeLists.txt).
namespace {

// True when each of the 256 weights of a table is at least 1 and the sum of
// `frames` of the largest, each multiplied by up to `multiplier`, stays below
// 2^31: every weight sum a vector row forms then lies in [1, 2^31), so the
// row may skip the zero, sign and overflow cases of the grouped rules.
inline bool weights_stay_positive(const int32_t* weights, int32_t frames, int32_t multiplier) {
  int32_t largest = 1;
  for (int i = 0; i < 256; ++i) {
    if (weights[i] < 1) return false;
    if (weights[i] > largest) largest = weights[i];
  }
  return frames >= 1 && static_cast<int64_t>(frames) * largest * multiplier <= INT32_MAX;
}

// Inside the fusion luma is 8-bit luma x 16: Gaussian and collapsed samples
// lie in 0 ... kLumaFixedMax, and blending clamps its magnitude to it from
// above.
inline constexpr int32_t kLumaFixedMax = 255 * 16;

// Signed division truncating toward zero with the ARM SDIV results where C
// has none: n / 0 = 0 and INT32_MIN / -1 = INT32_MIN.
constexpr int32_t divide_toward_zero(int32_t n, int32_t d) {
  if (d == 0) return 0;
  if (d == -1) return static_cast<int32_t>(0u - static_cast<uint32_t>(n));
  return n / d;
}

// Exact rule of the signed means: s = sign of S, q = (s*S + W/2) / W in
// wrapping 32-bit arithmetic, q clamped to `clamp` from above, result s*q in
// 16 bits. Rounds half away from zero.
constexpr int16_t signed_mean_exact(uint32_t w_sum, uint32_t s_sum, int32_t clamp) {
  const int32_t w = static_cast<int32_t>(w_sum);
  const bool negative = static_cast<int32_t>(s_sum) < 0;
  const uint32_t magnitude = negative ? 0u - s_sum : s_sum;
  const uint32_t numerator = magnitude + static_cast<uint32_t>(w / 2);
  int32_t q = divide_toward_zero(static_cast<int32_t>(numerator), w);
  if (q > clamp) q = clamp;
  const uint32_t signed_q = negative ? 0u - static_cast<uint32_t>(q) : static_cast<uint32_t>(q);
  return static_cast<int16_t>(static_cast<uint16_t>(signed_q));
}

// Blending, exact rule: magnitude clamped to 4080.
constexpr int16_t blend_mean_exact(uint32_t w_sum, uint32_t s_sum) {
  return signed_mean_exact(w_sum, s_sum, kLumaFixedMax);
}

// Blending, grouped rule: Q = S * r1(W) in single precision, +-0.5 by Q's
// sign, saturating conversion, low 16 bits, clamped at 4080 from above only.
inline int16_t blend_mean_grouped(uint32_t w_sum, uint32_t s_sum) {
  const float w = static_cast<float>(static_cast<int32_t>(w_sum));
  const float s = static_cast<float>(static_cast<int32_t>(s_sum));
  float q = s * arm::refined_reciprocal(w);
  q = q + (q >= 0.0f ? 0.5f : -0.5f);
  const auto v = static_cast<int16_t>(static_cast<uint16_t>(static_cast<uint32_t>(arm::to_s32(q))));
  return v > kLumaFixedMax ? static_cast<int16_t>(kLumaFixedMax) : v;
}

// Chroma, exact rule: (S + W/2) / W in wrapping signed arithmetic, clamped to
// 0 ... 255.
constexpr uint8_t chroma_mean_exact(uint32_t w_sum, uint32_t s_sum) {
  const int32_t w = static_cast<int32_t>(w_sum);
  const int32_t q = divide_toward_zero(static_cast<int32_t>(s_sum + static_cast<uint32_t>(w / 2)), w);
  return static_cast<uint8_t>(q <= 0 ? 0 : (q >= 255 ? 255 : q));
}

// Chroma, grouped rule: the sums as unsigned lanes, Q = 0.5 + r1(W) * S (the
// product and the sum each rounded), unsigned saturating conversion, low 16
// bits, saturated to 255.
inline uint8_t chroma_mean_grouped(uint32_t w_sum, uint32_t s_sum) {
  const float q = 0.5f + arm::refined_reciprocal(static_cast<float>(w_sum)) * static_cast<float>(s_sum);
  const auto v = static_cast<uint16_t>(arm::to_u32(q));
  return static_cast<uint8_t>(v > 255 ? 255 : v);
}

}  // namespace
}  // namespace tavo
