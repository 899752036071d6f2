// The ARMv8 reciprocal estimate and step of platform/arm_float.h, eight lanes
// at a time with AVX2 and FMA, for the grouped division rules on x86-64.
// Include only from files built with -mavx2 -mfma.
//
// Valid for the lanes these rules form: floats converted from 32-bit integers,
// that is zero or a normal number with |x| in [1, 2^32]. For such an x the
// estimate is sign | (253 - exponent) << 23 | T[top 8 fraction bits] << 15,
// with T the 9-bit table-free estimate; zero gives infinity.
#pragma once

#include <immintrin.h>

#include <cstdint>

#include "platform/arm_float.h"

namespace tavo::arm::avx2 {

// Inline helpers local to each object (see the instruction-set flags in
// CMakeLists.txt).
namespace {

// Fraction bits of the estimate of each lane from its top 8 fraction bits:
// the table-free 9-bit estimate of a = 256 + those bits, (2^19 / (2a + 1) + 1)
// >> 1, whose low 8 bits are the result's top fraction bits. The quotient of
// 2^19 by the odd 2a + 1 lies at least 1/1023 from an integer, far more than
// a float's error at 2^10, so the truncated float quotient is the integer one.
inline __m256i estimate_fraction(__m256i bits) {
  const __m256i odd = _mm256_or_si256(_mm256_and_si256(_mm256_srli_epi32(bits, 14), _mm256_set1_epi32(0x1fe)),
                                      _mm256_set1_epi32(0x201));
  const __m256i b = _mm256_cvttps_epi32(_mm256_div_ps(_mm256_set1_ps(524288.0f), _mm256_cvtepi32_ps(odd)));
  const __m256i nine_bits = _mm256_srli_epi32(_mm256_add_epi32(b, _mm256_set1_epi32(1)), 1);
  return _mm256_slli_epi32(_mm256_and_si256(nine_bits, _mm256_set1_epi32(0xff)), 15);
}

// FRECPE of each lane.
inline __m256 recip_estimate(__m256 x) {
  const __m256i bits = _mm256_castps_si256(x);
  const __m256i sign = _mm256_and_si256(bits, _mm256_set1_epi32(INT32_MIN));
  const __m256i exponent = _mm256_and_si256(bits, _mm256_set1_epi32(0x7f800000));
  __m256i r = _mm256_sub_epi32(_mm256_set1_epi32(253 << 23), exponent);
  r = _mm256_or_si256(_mm256_or_si256(r, sign), estimate_fraction(bits));
  const __m256i zero = _mm256_cmpeq_epi32(exponent, _mm256_setzero_si256());
  const __m256i infinity = _mm256_or_si256(sign, _mm256_set1_epi32(0x7f800000));
  return _mm256_castsi256_ps(_mm256_blendv_epi8(r, infinity, zero));
}

// FRECPE of lanes known to be positive normal numbers: the exponent and the
// estimated fraction alone.
inline __m256 recip_estimate_of_positive(__m256 x) {
  const __m256i bits = _mm256_castps_si256(x);
  const __m256i exponent = _mm256_and_si256(bits, _mm256_set1_epi32(0x7f800000));
  return _mm256_castsi256_ps(
      _mm256_or_si256(_mm256_sub_epi32(_mm256_set1_epi32(253 << 23), exponent), estimate_fraction(bits)));
}

// r0 * FRECPS(x, r0) for lanes known to be positive normal numbers.
inline __m256 refined_reciprocal_of_positive(__m256 x) {
  const __m256 r0 = recip_estimate_of_positive(x);
  return _mm256_mul_ps(r0, _mm256_fnmadd_ps(x, r0, _mm256_set1_ps(2.0f)));
}

// r0 * FRECPS(x, r0), with FRECPS = 2 - x*r0 fused (2 for a zero lane, whose
// estimate is infinite).
inline __m256 refined_reciprocal(__m256 x) {
  const __m256 r0 = recip_estimate(x);
  const __m256 two = _mm256_set1_ps(2.0f);
  __m256 step = _mm256_fnmadd_ps(x, r0, two);
  step = _mm256_blendv_ps(step, two, _mm256_cmp_ps(x, _mm256_setzero_ps(), _CMP_EQ_OQ));
  return _mm256_mul_ps(r0, step);
}

// Unsigned 32-bit lanes to float, rounded to nearest: the high half times 2^16
// is exact, so the one addition rounds once.
inline __m256 u32_to_float(__m256i v) {
  const __m256 hi = _mm256_cvtepi32_ps(_mm256_srli_epi32(v, 16));
  const __m256 lo = _mm256_cvtepi32_ps(_mm256_and_si256(v, _mm256_set1_epi32(0xffff)));
  return _mm256_add_ps(_mm256_mul_ps(hi, _mm256_set1_ps(65536.0f)), lo);
}

// FCVTZS: truncation, saturating, NaN giving 0.
inline __m256i to_s32(__m256 v) {
  __m256i r = _mm256_cvttps_epi32(v);  // 0x80000000 for NaN and out of range
  const __m256 too_big = _mm256_cmp_ps(v, _mm256_set1_ps(2147483648.0f), _CMP_GE_OQ);
  r = _mm256_blendv_epi8(r, _mm256_set1_epi32(INT32_MAX), _mm256_castps_si256(too_big));
  const __m256 ordered = _mm256_cmp_ps(v, v, _CMP_ORD_Q);
  return _mm256_and_si256(r, _mm256_castps_si256(ordered));
}

// FCVTZU: truncation, saturating, negative and NaN giving 0.
inline __m256i to_u32(__m256 v) {
  const __m256 two31 = _mm256_set1_ps(2147483648.0f);
  const __m256 high = _mm256_cmp_ps(v, two31, _CMP_GE_OQ);
  const __m256 folded = _mm256_sub_ps(v, _mm256_and_ps(high, two31));  // exact
  __m256i r = _mm256_cvttps_epi32(folded);
  r = _mm256_xor_si256(r, _mm256_and_si256(_mm256_castps_si256(high), _mm256_set1_epi32(INT32_MIN)));
  const __m256 too_big = _mm256_cmp_ps(v, _mm256_set1_ps(4294967296.0f), _CMP_GE_OQ);
  r = _mm256_or_si256(r, _mm256_castps_si256(too_big));
  const __m256 positive = _mm256_cmp_ps(v, _mm256_setzero_ps(), _CMP_GT_OQ);
  return _mm256_and_si256(r, _mm256_castps_si256(positive));
}

}  // namespace
}  // namespace tavo::arm::avx2
