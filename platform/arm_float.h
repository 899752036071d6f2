// ARMv8 single-precision arithmetic that the grouped (eight-wide) division rules
// of blending and chroma fusion are defined by, reproduced bit for bit in plain
// C++ so that a host gives the phone's bytes:
//  - the reciprocal estimate (FRECPE / VRECPE): a 9-bit, table-free estimate
//    from the top 8 fraction bits of the input;
//  - the reciprocal step (FRECPS / VRECPS): 2 - a*b with a single rounding;
//  - the float-to-integer conversions (FCVTZS / FCVTZU): truncation toward
//    zero, saturating at the type's limits, NaN giving 0.
// The build disables multiply-add contraction, so each operation written here
// rounds exactly once, as the instructions do.
#pragma once

#include <bit>
#include <cmath>
#include <cstdint>

namespace tavo::arm {

// Inline helpers local to each object (see the instruction-set flags in
// CMakeLists.txt).
namespace {

// 9-bit reciprocal of a in [256, 511], which stands for a/512 in [0.5, 1).
constexpr uint32_t recip_estimate_u9(uint32_t a) {
  a = a * 2 + 1;
  const uint32_t b = (1u << 19) / a;
  return (b + 1) >> 1;
}

// FPRecipEstimate for binary32 (round to nearest, no flush of normal inputs).
inline float recip_estimate(float x) {
  const uint32_t bits = std::bit_cast<uint32_t>(x);
  const uint32_t sign = bits & 0x80000000u;
  int32_t exp = static_cast<int32_t>((bits >> 23) & 0xff);
  uint32_t frac = bits & 0x7fffffu;
  if (exp == 0xff) {
    if (frac != 0) return std::bit_cast<float>(0x7fc00000u);  // default NaN
    return std::bit_cast<float>(sign);                         // 1/inf = 0
  }
  if (exp == 0 && frac == 0) return std::bit_cast<float>(sign | 0x7f800000u);  // 1/0 = inf
  // Inputs too small for a finite reciprocal overflow to infinity.
  if (std::fabs(x) < 0x1p-128f) return std::bit_cast<float>(sign | 0x7f800000u);
  if (exp == 0) {  // denormal input: normalise by one or two places
    if ((frac & 0x400000u) == 0) {
      exp = -1;
      frac = (frac << 2) & 0x7fffffu;
    } else {
      frac = (frac << 1) & 0x7fffffu;
    }
  }
  const uint32_t scaled = 256u | (frac >> 15);
  int32_t result_exp = 253 - exp;
  uint32_t result_frac = (recip_estimate_u9(scaled) & 0xffu) << 15;
  if (result_exp == 0) {
    result_frac = 0x400000u | (result_frac >> 1);
  } else if (result_exp == -1) {
    result_frac = 0x200000u | (result_frac >> 2);
    result_exp = 0;
  }
  return std::bit_cast<float>(sign | (static_cast<uint32_t>(result_exp) << 23) | result_frac);
}

// FPRecipStepFused: 2 - a*b, fused; 2 exactly when one factor is infinite and
// the other zero. The product of two floats is exact in double; when it lies in
// [0.5, 4), as it does for an estimate times its operand, 2 - a*b is exact in
// double too, so one rounding to float gives the fused result without the
// (slow, software) fused multiply-add.
inline float recip_step(float a, float b) {
  if ((std::isinf(a) && b == 0.0f) || (a == 0.0f && std::isinf(b))) return 2.0f;
  const double product = static_cast<double>(a) * static_cast<double>(b);
  if (std::fabs(product) >= 0.5 && std::fabs(product) < 4.0) return static_cast<float>(2.0 - product);
  return std::fma(-a, b, 2.0f);
}

// One Newton step on the estimate: what vmul(vrecpe(w), vrecps(w, vrecpe(w)))
// yields, the reciprocal both grouped division rules use.
inline float refined_reciprocal(float w) {
  const float r0 = recip_estimate(w);
  return r0 * recip_step(w, r0);
}

// FCVTZS to 32 bits.
inline int32_t to_s32(float v) {
  if (std::isnan(v)) return 0;
  if (v >= 2147483648.0f) return INT32_MAX;
  if (v <= -2147483648.0f) return INT32_MIN;
  return static_cast<int32_t>(v);
}

// FCVTZU to 32 bits.
inline uint32_t to_u32(float v) {
  if (std::isnan(v) || v <= 0.0f) return 0;
  if (v >= 4294967296.0f) return UINT32_MAX;
  return static_cast<uint32_t>(v);
}

// The same conversions from double, for table builders whose quotient can be
// infinite or not a number.
inline int32_t to_s32(double v) {
  if (std::isnan(v)) return 0;
  if (v >= 2147483648.0) return INT32_MAX;
  if (v <= -2147483649.0) return INT32_MIN;
  return static_cast<int32_t>(v);
}

}  // namespace
}  // namespace tavo::arm
