// Grouped blending rule with AVX2, sixteen samples a step: the table index and
// the contrast stencil in 16-bit lanes, then two sets of eight 32-bit lanes
// taken by unpacking the low and high samples of each 128-bit half (the packs
// at the end restore the order), the exposure factors gathered from the
// band's table, the weight sums in wrapping 32-bit lanes, and the division
// through the emulated ARM reciprocal estimate and step.
#include <immintrin.h>

#include "fusion/blend_rows.h"
#include "platform/arm_float_avx2.h"
#include "platform/fixed_point_mean.h"

namespace tavo {

namespace {

inline __m256i load16(const void* p) { return _mm256_loadu_si256(static_cast<const __m256i*>(p)); }

// Weight sums of the sixteen samples at x, lanes in unpack order: set 0 holds
// samples 0-3 and 8-11, set 1 samples 4-7 and 12-15. kFrames is the frame
// count when it is known at compile time, 0 when it is read from the row.
template <int kFrames>
[[gnu::always_inline]] inline void weight_sums(const BlendRowArgs& row, int32_t x, __m256i (&w_sum)[2],
                                                __m256i (&s_sum)[2]) {
  const int32_t frames = kFrames > 0 ? kFrames : row.frames;
  const __m256i zero = _mm256_setzero_si256();
  const __m256i one = _mm256_set1_epi16(1);
  __m256i w0 = zero, w1 = zero, s0 = zero, s1 = zero;
#pragma GCC unroll 4
  for (int32_t f = 0; f < frames; ++f) {
    const uint16_t* p = row.gauss[f] + row.gauss_offset + x;
    const __m256i centre = load16(p);
    // (g + 8) >> 4 is the rounding average of g >> 3 and 0; kept inside the table.
    const __m256i index =
        _mm256_min_epu16(_mm256_avg_epu16(_mm256_srli_epi16(centre, 3), zero), _mm256_set1_epi16(255));
    const __m256i around = _mm256_add_epi16(_mm256_add_epi16(load16(p - row.up), load16(p + row.down)),
                                            _mm256_add_epi16(load16(p - 1), load16(p + 1)));
    const __m256i d = _mm256_sub_epi16(around, _mm256_slli_epi16(centre, 2));
    const __m256i contrast = _mm256_max_epu16(_mm256_srli_epi16(_mm256_abs_epi16(d), 6), one);
    const __m256i lap = load16(row.lap[f] + row.lap_offset + x);
    const __m256i lap_sign = _mm256_srai_epi16(lap, 15);
    // e * c: e is a 16-bit factor sign-extended, c at most 512, so the
    // pairwise 16-bit product sum is the whole product.
    const __m256i e0 = _mm256_i32gather_epi32(row.factors, _mm256_unpacklo_epi16(index, zero), 4);
    const __m256i e1 = _mm256_i32gather_epi32(row.factors, _mm256_unpackhi_epi16(index, zero), 4);
    const __m256i we0 = _mm256_madd_epi16(e0, _mm256_unpacklo_epi16(contrast, zero));
    const __m256i we1 = _mm256_madd_epi16(e1, _mm256_unpackhi_epi16(contrast, zero));
    w0 = _mm256_add_epi32(w0, we0);
    w1 = _mm256_add_epi32(w1, we1);
    s0 = _mm256_add_epi32(s0, _mm256_mullo_epi32(we0, _mm256_unpacklo_epi16(lap, lap_sign)));
    s1 = _mm256_add_epi32(s1, _mm256_mullo_epi32(we1, _mm256_unpackhi_epi16(lap, lap_sign)));
  }
  w_sum[0] = w0;
  w_sum[1] = w1;
  s_sum[0] = s0;
  s_sum[1] = s1;
}

// Q = S * r1(W) rounded half away from zero by Q's sign and converted to
// 32 bits as FCVTZS does. With kPositive every W lies in [1, 2^31): the
// estimate needs no zero or sign case, |Q| stays below 2^31 so the plain
// conversion saturates nowhere, and Q is never NaN or -0, so adding 0.5 with
// Q's sign equals the comparison with zero.
template <bool kPositive>
inline __m256i quotient(__m256i w_sum, __m256i s_sum) {
  const __m256 w = _mm256_cvtepi32_ps(w_sum);
  const __m256 s = _mm256_cvtepi32_ps(s_sum);
  if constexpr (kPositive) {
    const __m256 q = _mm256_mul_ps(s, arm::avx2::refined_reciprocal_of_positive(w));
    const __m256 half = _mm256_or_ps(_mm256_and_ps(q, _mm256_set1_ps(-0.0f)), _mm256_set1_ps(0.5f));
    return _mm256_cvttps_epi32(_mm256_add_ps(q, half));
  } else {
    __m256 q = _mm256_mul_ps(s, arm::avx2::refined_reciprocal(w));
    const __m256 non_negative = _mm256_cmp_ps(q, _mm256_setzero_ps(), _CMP_GE_OQ);
    q = _mm256_add_ps(q, _mm256_blendv_ps(_mm256_set1_ps(-0.5f), _mm256_set1_ps(0.5f), non_negative));
    return arm::avx2::to_s32(q);
  }
}

template <bool kPositive, int kFrames>
void blend_groups(const BlendRowArgs& row, int32_t x0, int32_t count) {
  const __m256i low16 = _mm256_set1_epi32(0xffff);
  const int32_t end = x0 + count;
  int32_t x = x0;
  for (; x + 16 <= end; x += 16) {
    __m256i w[2], s[2];
    weight_sums<kFrames>(row, x, w, s);
    // The low 16 bits of each quotient, back in sample order, then the upper
    // clamp only.
    const __m256i q0 = _mm256_and_si256(quotient<kPositive>(w[0], s[0]), low16);
    const __m256i q1 = _mm256_and_si256(quotient<kPositive>(w[1], s[1]), low16);
    const __m256i v = _mm256_min_epi16(_mm256_packus_epi32(q0, q1), _mm256_set1_epi16(kLumaFixedMax));
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(row.out + x), v);
  }
  if (x < end) BlendGroups_C(row, x, end - x);
}

}  // namespace

// Sixteen samples a step; a last group of eight takes the portable row, which
// gives the same bytes.
void BlendGroups_AVX2(const BlendRowArgs& row, int32_t x0, int32_t count) {
  if (row.positive_weights && row.frames == 3) {
    blend_groups<true, 3>(row, x0, count);
  } else if (row.positive_weights) {
    blend_groups<true, 0>(row, x0, count);
  } else {
    blend_groups<false, 0>(row, x0, count);
  }
}

}  // namespace tavo
