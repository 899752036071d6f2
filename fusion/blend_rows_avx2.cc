// Grouped blending rule with AVX2, two groups of eight samples a step: the
// table index and the contrast stencil of sixteen samples in 16-bit lanes, the
// exposure factors gathered from the band's table, the weight sums in wrapping
// 32-bit lanes per group, and the division through the emulated ARM reciprocal
// estimate and step.
#include <immintrin.h>

#include "fusion/blend_rows.h"
#include "fusion/weighted_mean.h"
#include "platform/arm_float_avx2.h"

namespace tavo {

namespace {

inline __m256i load16(const void* p) { return _mm256_loadu_si256(static_cast<const __m256i*>(p)); }

// Weight sums of the two groups of eight samples at x: W in w_sum[g], S in
// s_sum[g]. The table index and the contrast stencil of all sixteen samples
// are formed in 16-bit lanes, the sums per group in 32-bit lanes.
inline void weight_sums(const BlendRowArgs& row, int32_t x, __m256i* w_sum, __m256i* s_sum) {
  const __m256i one = _mm256_set1_epi16(1);
  w_sum[0] = w_sum[1] = s_sum[0] = s_sum[1] = _mm256_setzero_si256();
  for (int32_t f = 0; f < row.frames; ++f) {
    const uint16_t* p = row.gauss[f] + row.gauss_offset + x;
    const __m256i centre = load16(p);
    // (g + 8) >> 4 without overflow: g >> 4 plus bit 3 of g.
    const __m256i index = _mm256_min_epu16(
        _mm256_add_epi16(_mm256_srli_epi16(centre, 4), _mm256_and_si256(_mm256_srli_epi16(centre, 3), one)),
        _mm256_set1_epi16(255));
    const __m256i around = _mm256_add_epi16(_mm256_add_epi16(load16(p - row.up), load16(p + row.down)),
                                            _mm256_add_epi16(load16(p - 1), load16(p + 1)));
    const __m256i d = _mm256_sub_epi16(around, _mm256_slli_epi16(centre, 2));
    const __m256i contrast = _mm256_max_epu16(_mm256_srli_epi16(_mm256_abs_epi16(d), 6), one);
    const __m256i lap = load16(row.lap[f] + row.lap_offset + x);
    for (int g = 0; g < 2; ++g) {
      const auto half = [g](__m256i v) {
        return g == 0 ? _mm256_castsi256_si128(v) : _mm256_extracti128_si256(v, 1);
      };
      const __m256i exposure = _mm256_i32gather_epi32(row.factors, _mm256_cvtepu16_epi32(half(index)), 4);
      // e * c: e is a 16-bit factor sign-extended, c at most 512, so the
      // pairwise 16-bit product sum is the whole product.
      const __m256i w = _mm256_madd_epi16(exposure, _mm256_cvtepu16_epi32(half(contrast)));
      w_sum[g] = _mm256_add_epi32(w_sum[g], w);
      s_sum[g] = _mm256_add_epi32(s_sum[g], _mm256_mullo_epi32(w, _mm256_cvtepi16_epi32(half(lap))));
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

// Sixteen samples a step; a last group of eight takes the portable row, which
// gives the same bytes.
void BlendGroups_AVX2(const BlendRowArgs& row, int32_t x0, int32_t count) {
  const int32_t end = x0 + count;
  int32_t x = x0;
  for (; x + 16 <= end; x += 16) {
    __m256i w[2], s[2];
    weight_sums(row, x, w, s);
    store_quotient(w[0], s[0], row.out + x);
    store_quotient(w[1], s[1], row.out + x + 8);
  }
  if (x < end) BlendGroups_C(row, x, end - x);
}

}  // namespace tavo
