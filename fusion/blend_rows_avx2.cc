// Grouped blending rule with AVX2, two groups of eight samples a step where
// there are two: the table index and the contrast stencil of sixteen samples in
// 16-bit lanes, the exposure factors gathered from the band's table, the
// weight sums in wrapping 32-bit lanes per group, and the division through the
// emulated ARM reciprocal estimate and step.
#include <immintrin.h>

#include "fusion/blend_rows.h"
#include "fusion/weighted_mean.h"
#include "platform/arm_float_avx2.h"

namespace tavo {

namespace {

template <class V>
inline V load(const void* p);
template <>
inline __m128i load<__m128i>(const void* p) { return _mm_loadu_si128(static_cast<const __m128i*>(p)); }
template <>
inline __m256i load<__m256i>(const void* p) { return _mm256_loadu_si256(static_cast<const __m256i*>(p)); }

// The 16-bit lane operations the stencil needs, on 8 or 16 lanes.
inline __m128i add16(__m128i a, __m128i b) { return _mm_add_epi16(a, b); }
inline __m256i add16(__m256i a, __m256i b) { return _mm256_add_epi16(a, b); }
inline __m128i sub16(__m128i a, __m128i b) { return _mm_sub_epi16(a, b); }
inline __m256i sub16(__m256i a, __m256i b) { return _mm256_sub_epi16(a, b); }
inline __m128i and16(__m128i a, __m128i b) { return _mm_and_si128(a, b); }
inline __m256i and16(__m256i a, __m256i b) { return _mm256_and_si256(a, b); }
template <int n> inline __m128i shr16(__m128i a) { return _mm_srli_epi16(a, n); }
template <int n> inline __m256i shr16(__m256i a) { return _mm256_srli_epi16(a, n); }
inline __m128i shl2(__m128i a) { return _mm_slli_epi16(a, 2); }
inline __m256i shl2(__m256i a) { return _mm256_slli_epi16(a, 2); }
inline __m128i min16(__m128i a, __m128i b) { return _mm_min_epu16(a, b); }
inline __m256i min16(__m256i a, __m256i b) { return _mm256_min_epu16(a, b); }
inline __m128i max16(__m128i a, __m128i b) { return _mm_max_epu16(a, b); }
inline __m256i max16(__m256i a, __m256i b) { return _mm256_max_epu16(a, b); }
inline __m128i abs16(__m128i a) { return _mm_abs_epi16(a); }
inline __m256i abs16(__m256i a) { return _mm256_abs_epi16(a); }
inline __m128i set16(int16_t v, __m128i) { return _mm_set1_epi16(v); }
inline __m256i set16(int16_t v, __m256i) { return _mm256_set1_epi16(v); }

// The eight 16-bit lanes of half h of v.
inline __m128i half(__m128i v, int) { return v; }
inline __m128i half(__m256i v, int h) {
  return h == 0 ? _mm256_castsi256_si128(v) : _mm256_extracti128_si256(v, 1);
}

// Weight sums of the kGroups groups of eight samples at x, from V = __m128i
// (one group) or __m256i (two groups): W in w_sum[g], S in s_sum[g].
template <class V, int kGroups>
inline void weight_sums(const BlendRowArgs& row, int32_t x, __m256i* w_sum, __m256i* s_sum) {
  const V one = set16(1, V{});
  for (int g = 0; g < kGroups; ++g) w_sum[g] = s_sum[g] = _mm256_setzero_si256();
  for (int32_t f = 0; f < row.frames; ++f) {
    const uint16_t* p = row.gauss[f] + row.gauss_offset + x;
    const V centre = load<V>(p);
    // (g + 8) >> 4 without overflow: g >> 4 plus bit 3 of g.
    const V index = min16(add16(shr16<4>(centre), and16(shr16<3>(centre), one)), set16(255, V{}));
    const V around = add16(add16(load<V>(p - row.up), load<V>(p + row.down)), add16(load<V>(p - 1), load<V>(p + 1)));
    const V contrast = max16(shr16<6>(abs16(sub16(around, shl2(centre)))), one);
    const V lap = load<V>(row.lap[f] + row.lap_offset + x);
    for (int g = 0; g < kGroups; ++g) {
      const __m256i exposure = _mm256_i32gather_epi32(row.factors, _mm256_cvtepu16_epi32(half(index, g)), 4);
      // e * c: e is a 16-bit factor sign-extended, c at most 255, so the
      // pairwise 16-bit product sum is the whole product.
      const __m256i w = _mm256_madd_epi16(exposure, _mm256_cvtepu16_epi32(half(contrast, g)));
      w_sum[g] = _mm256_add_epi32(w_sum[g], w);
      s_sum[g] = _mm256_add_epi32(s_sum[g], _mm256_mullo_epi32(w, _mm256_cvtepi16_epi32(half(lap, g))));
    }
  }
}

// Eight blended samples from their sums: Q = S * r1(W), +-0.5 by its sign, the
// low 16 bits of the conversion, sign-extended, then the upper clamp only.
inline void store_quotient(__m256i w_sum, __m256i s_sum, int16_t* out) {
  const __m256 w = _mm256_cvtepi32_ps(w_sum);
  const __m256 s = _mm256_cvtepi32_ps(s_sum);
  __m256 q = _mm256_mul_ps(s, arm::avx2::refined_reciprocal(w));
  const __m256 non_negative = _mm256_cmp_ps(q, _mm256_setzero_ps(), _CMP_GE_OQ);
  q = _mm256_add_ps(q, _mm256_blendv_ps(_mm256_set1_ps(-0.5f), _mm256_set1_ps(0.5f), non_negative));
  __m256i v = arm::avx2::to_s32(q);
  v = _mm256_srai_epi32(_mm256_slli_epi32(v, 16), 16);
  v = _mm256_min_epi32(v, _mm256_set1_epi32(kBlendClamp));
  const __m256i packed = _mm256_permute4x64_epi64(_mm256_packs_epi32(v, v), 0x08);
  _mm_storeu_si128(reinterpret_cast<__m128i*>(out), _mm256_castsi256_si128(packed));
}

}  // namespace

void BlendGroups_AVX2(const BlendRowArgs& row, int32_t x0, int32_t count) {
  const int32_t end = x0 + count;
  int32_t x = x0;
  for (; x + 16 <= end; x += 16) {
    __m256i w[2], s[2];
    weight_sums<__m256i, 2>(row, x, w, s);
    store_quotient(w[0], s[0], row.out + x);
    store_quotient(w[1], s[1], row.out + x + 8);
  }
  if (x < end) {
    __m256i w, s;
    weight_sums<__m128i, 1>(row, x, &w, &s);
    store_quotient(w, s, row.out + x);
  }
}

}  // namespace tavo
