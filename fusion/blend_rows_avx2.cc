// Grouped blending rule, eight samples per step with AVX2: the contrast
// stencil in 16-bit lanes, the exposure factors gathered from the band's
// table, the weight sums in wrapping 32-bit lanes, and the division through
// the emulated ARM reciprocal estimate and step.
#include <immintrin.h>

#include "fusion/blend_rows.h"
#include "fusion/weighted_mean.h"
#include "platform/arm_float_avx2.h"

namespace tavo {

namespace {

inline __m128i load8(const void* p) { return _mm_loadu_si128(static_cast<const __m128i*>(p)); }

}  // namespace

void BlendGroups_AVX2(const BlendRowArgs& row, int32_t x0, int32_t count) {
  const __m128i one = _mm_set1_epi16(1);
  const __m128i top_index = _mm_set1_epi16(255);
  for (int32_t x = x0; x < x0 + count; x += 8) {
    __m256i w_sum = _mm256_setzero_si256();
    __m256i s_sum = _mm256_setzero_si256();
    for (int32_t f = 0; f < row.frames; ++f) {
      const uint16_t* g = row.gauss[f] + row.gauss_offset + x;
      const __m128i centre = load8(g);
      // (g + 8) >> 4 without overflow: g >> 4 plus bit 3 of g.
      __m128i index = _mm_add_epi16(_mm_srli_epi16(centre, 4), _mm_and_si128(_mm_srli_epi16(centre, 3), one));
      index = _mm_min_epu16(index, top_index);
      const __m256i exposure = _mm256_i32gather_epi32(row.factors, _mm256_cvtepu16_epi32(index), 4);

      const __m128i around = _mm_add_epi16(_mm_add_epi16(load8(g - row.up), load8(g + row.down)),
                                           _mm_add_epi16(load8(g - 1), load8(g + 1)));
      const __m128i d = _mm_sub_epi16(around, _mm_slli_epi16(centre, 2));
      const __m128i contrast = _mm_max_epu16(_mm_srli_epi16(_mm_abs_epi16(d), 6), one);

      const __m256i w = _mm256_mullo_epi32(exposure, _mm256_cvtepu16_epi32(contrast));
      const __m256i lap = _mm256_cvtepi16_epi32(load8(row.lap[f] + row.lap_offset + x));
      w_sum = _mm256_add_epi32(w_sum, w);
      s_sum = _mm256_add_epi32(s_sum, _mm256_mullo_epi32(w, lap));
    }

    const __m256 w = _mm256_cvtepi32_ps(w_sum);
    const __m256 s = _mm256_cvtepi32_ps(s_sum);
    __m256 q = _mm256_mul_ps(s, arm::avx2::refined_reciprocal(w));
    const __m256 non_negative = _mm256_cmp_ps(q, _mm256_setzero_ps(), _CMP_GE_OQ);
    q = _mm256_add_ps(q, _mm256_blendv_ps(_mm256_set1_ps(-0.5f), _mm256_set1_ps(0.5f), non_negative));
    // Low 16 bits of the conversion, sign-extended, then the upper clamp only.
    __m256i v = arm::avx2::to_s32(q);
    v = _mm256_srai_epi32(_mm256_slli_epi32(v, 16), 16);
    v = _mm256_min_epi32(v, _mm256_set1_epi32(kBlendClamp));
    const __m256i packed = _mm256_permute4x64_epi64(_mm256_packs_epi32(v, v), 0x08);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(row.out + x), _mm256_castsi256_si128(packed));
  }
}

}  // namespace tavo
