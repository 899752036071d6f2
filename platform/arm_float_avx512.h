// The ARMv8 reciprocal estimate and step and the float-to-integer conversions
// of platform/arm_float.h, sixteen lanes at a time with AVX-512 (F, BW and
// VBMI). Include only from files built with the AVX-512 flags.
//
// Valid, as the AVX2 forms (platform/arm_float_avx2.h), for the lanes the
// grouped rules form: floats converted from 32-bit integers, zero or a normal
// number with |x| in [1, 2^32]. The estimate's fraction comes from a 256-byte
// table of the 9-bit table-free estimates, looked up by byte permutes.
// Unsigned lanes convert to float with _mm512_cvtepu32_ps, rounded to nearest
// as the processor's conversion does.
#pragma once

#include <immintrin.h>

#include <cstdint>

#include "platform/arm_float.h"

namespace tavo::arm::avx512 {

// Inline helpers local to each object (see the instruction-set flags in
// CMakeLists.txt).
namespace {

// Entry i: the top 8 fraction bits of the estimate of a float whose top 8
// fraction bits are i.
struct EstimateTable {
  alignas(64) uint8_t bytes[256];
  constexpr EstimateTable() : bytes() {
    for (uint32_t i = 0; i < 256; ++i) bytes[i] = static_cast<uint8_t>(recip_estimate_u9(256 + i));
  }
};
inline constexpr EstimateTable kEstimateTable{};

// Byte k of each lane's result is table[index byte k] for a 256-byte table
// held as four 64-byte vectors: two two-source permutes over its halves, the
// index's top bit choosing between them.
inline __m512i look_up_bytes(const __m512i (&table)[4], __m512i index) {
  const __m512i low = _mm512_permutex2var_epi8(table[0], index, table[1]);
  const __m512i high = _mm512_permutex2var_epi8(table[2], index, table[3]);
  return _mm512_mask_blend_epi8(_mm512_movepi8_mask(index), low, high);
}

// The estimate's exponent and fraction bits, for a nonzero lane: 253 minus
// the exponent, and the table entry of the top 8 fraction bits.
inline __m512i estimate_bits(__m512i bits) {
  __m512i table[4];
  for (int q = 0; q < 4; ++q) table[q] = _mm512_load_si512(kEstimateTable.bytes + 64 * q);
  const __m512i entry = look_up_bytes(table, _mm512_srli_epi32(bits, 15));
  const __m512i fraction = _mm512_srli_epi32(_mm512_slli_epi32(entry, 24), 9);
  const __m512i exponent = _mm512_and_si512(bits, _mm512_set1_epi32(0x7f800000));
  return _mm512_or_si512(_mm512_sub_epi32(_mm512_set1_epi32(253 << 23), exponent), fraction);
}

// FRECPE of each lane; zero gives infinity of its sign.
inline __m512 recip_estimate(__m512 x) {
  const __m512i bits = _mm512_castps_si512(x);
  const __m512i sign = _mm512_and_si512(bits, _mm512_set1_epi32(INT32_MIN));
  const __mmask16 zero = _mm512_testn_epi32_mask(bits, _mm512_set1_epi32(0x7fffffff));
  const __m512i r = _mm512_mask_mov_epi32(estimate_bits(bits), zero, _mm512_set1_epi32(0x7f800000));
  return _mm512_castsi512_ps(_mm512_or_si512(r, sign));
}

// FRECPE of lanes known to be positive normal numbers.
inline __m512 recip_estimate_of_positive(__m512 x) { return _mm512_castsi512_ps(estimate_bits(_mm512_castps_si512(x))); }

// r0 * FRECPS(x, r0) for lanes known to be positive normal numbers.
inline __m512 refined_reciprocal_of_positive(__m512 x) {
  const __m512 r0 = recip_estimate_of_positive(x);
  return _mm512_mul_ps(r0, _mm512_fnmadd_ps(x, r0, _mm512_set1_ps(2.0f)));
}

// refined_reciprocal_of_positive of two vectors by one look-up: the index
// bytes of x0 in byte 0 of each lane, those of x1 in byte 1.
inline void refined_reciprocals_of_positive(__m512 x0, __m512 x1, __m512 (&r1)[2]) {
  __m512i table[4];
  for (int q = 0; q < 4; ++q) table[q] = _mm512_load_si512(kEstimateTable.bytes + 64 * q);
  const __m512i bits[2] = {_mm512_castps_si512(x0), _mm512_castps_si512(x1)};
  const __m512i index = _mm512_mask_blend_epi8(0x2222222222222222ull, _mm512_srli_epi32(bits[0], 15),
                                               _mm512_srli_epi32(bits[1], 7));
  const __m512i entries = look_up_bytes(table, index);
  const __m512i fractions[2] = {_mm512_slli_epi32(_mm512_and_si512(entries, _mm512_set1_epi32(0xff)), 15),
                                _mm512_slli_epi32(_mm512_and_si512(entries, _mm512_set1_epi32(0xff00)), 7)};
  const __m512 x[2] = {x0, x1};
  for (int k = 0; k < 2; ++k) {
    const __m512i exponent = _mm512_and_si512(bits[k], _mm512_set1_epi32(0x7f800000));
    const __m512 r0 =
        _mm512_castsi512_ps(_mm512_or_si512(_mm512_sub_epi32(_mm512_set1_epi32(253 << 23), exponent), fractions[k]));
    r1[k] = _mm512_mul_ps(r0, _mm512_fnmadd_ps(x[k], r0, _mm512_set1_ps(2.0f)));
  }
}

// r0 * FRECPS(x, r0), with FRECPS = 2 - x*r0 fused (2 for a zero lane, whose
// estimate is infinite).
inline __m512 refined_reciprocal(__m512 x) {
  const __m512 r0 = recip_estimate(x);
  const __m512 two = _mm512_set1_ps(2.0f);
  const __m512 step =
      _mm512_mask_mov_ps(_mm512_fnmadd_ps(x, r0, two), _mm512_cmp_ps_mask(x, _mm512_setzero_ps(), _CMP_EQ_OQ), two);
  return _mm512_mul_ps(r0, step);
}

// FCVTZS: truncation, saturating, NaN giving 0.
inline __m512i to_s32(__m512 v) {
  __m512i r = _mm512_cvttps_epi32(v);  // 0x80000000 for NaN and out of range
  r = _mm512_mask_mov_epi32(r, _mm512_cmp_ps_mask(v, _mm512_set1_ps(2147483648.0f), _CMP_GE_OQ),
                            _mm512_set1_epi32(INT32_MAX));
  return _mm512_maskz_mov_epi32(_mm512_cmp_ps_mask(v, v, _CMP_ORD_Q), r);
}

// FCVTZU: truncation, saturating, negative and NaN giving 0 (the processor's
// conversion gives 0xffffffff for NaN and out of range, right for 2^32 and
// above).
inline __m512i to_u32(__m512 v) {
  return _mm512_maskz_mov_epi32(_mm512_cmp_ps_mask(v, _mm512_setzero_ps(), _CMP_GT_OQ), _mm512_cvttps_epu32(v));
}

}  // namespace
}  // namespace tavo::arm::avx512
