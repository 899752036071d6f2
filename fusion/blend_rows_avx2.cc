// Blending rows with AVX2, sixteen samples a step (eight, in the low halves,
// where a row is too short), in the shape of fusion/blend_rows_any.h: the
// table index and the contrast stencil in 16-bit lanes, then two sets of
// eight 32-bit lanes taken by unpacking the low and high samples of each
// 128-bit half (the packs at the end restore the order), the exposure factors
// gathered from the band's table, the weight sums in wrapping 32-bit lanes.
// The grouped rule divides through the emulated ARM reciprocal estimate and
// step; with positive weights the exact rule divides in double precision
// (exact for 32-bit integers), otherwise the portable code gives its samples.
#include <immintrin.h>

#include "fusion/blend_rows_any.h"
#include "platform/arm_float_avx2.h"

namespace tavo {

namespace {

// Sixteen samples, or eight in the low half and zeros above.
template <int32_t kLanes>
inline __m256i load16(const void* p) {
  if constexpr (kLanes == 16) {
    return _mm256_loadu_si256(static_cast<const __m256i*>(p));
  } else {
    return _mm256_zextsi128_si256(_mm_loadu_si128(static_cast<const __m128i*>(p)));
  }
}

// Weight sums of the samples at x, lanes in unpack order: set 0 holds samples
// 0-3 and 8-11, set 1 samples 4-7 and 12-15. kFrames is the frame count when
// it is known at compile time, 0 when it is read from the row.
template <bool kContrast, int32_t kLanes, int kFrames>
[[gnu::always_inline]] inline void weight_sums(const RowSamples<kFrames>& row, int32_t x, __m256i (&w_sum)[2],
                                                __m256i (&s_sum)[2]) {
  const __m256i zero = _mm256_setzero_si256();
  const __m256i one = _mm256_set1_epi16(1);
  __m256i w0 = zero, w1 = zero, s0 = zero, s1 = zero;
#pragma GCC unroll 4
  for (int32_t f = 0; f < row.frames; ++f) {
    const uint16_t* p = row.gauss(f) + x;
    const __m256i centre = load16<kLanes>(p);
    // (g + 8) >> 4 is the rounding average of g >> 3 and 0; kept inside the table.
    const __m256i index =
        _mm256_min_epu16(_mm256_avg_epu16(_mm256_srli_epi16(centre, 3), zero), _mm256_set1_epi16(255));
    __m256i contrast = one;
    if constexpr (kContrast) {
      const __m256i around =
          _mm256_add_epi16(_mm256_add_epi16(load16<kLanes>(p - row.up), load16<kLanes>(p + row.down)),
                           _mm256_add_epi16(load16<kLanes>(p - 1), load16<kLanes>(p + 1)));
      const __m256i d = _mm256_sub_epi16(around, _mm256_slli_epi16(centre, 2));
      contrast = _mm256_max_epu16(_mm256_srli_epi16(_mm256_abs_epi16(d), 6), one);
    }
    const __m256i lap = load16<kLanes>(row.lap(f) + x);
    const __m256i lap_sign = _mm256_srai_epi16(lap, 15);
    // e * c: e is a 16-bit factor sign-extended, c at most 512, so the
    // pairwise 16-bit product sum is the whole product.
    const __m256i e0 = _mm256_i32gather_epi32(row.factors->wide, _mm256_unpacklo_epi16(index, zero), 4);
    const __m256i e1 = _mm256_i32gather_epi32(row.factors->wide, _mm256_unpackhi_epi16(index, zero), 4);
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

// Grouped rule: Q = S * r1(W) rounded half away from zero by Q's sign and
// converted to 32 bits as FCVTZS does. With kPositive every W lies in
// [1, 2^31): the estimate needs no zero or sign case, |Q| stays below 2^31 so
// the plain conversion saturates nowhere, and Q is never NaN or -0, so adding
// 0.5 with Q's sign equals the comparison with zero.
template <bool kPositive>
inline __m256i grouped_quotient(__m256i w_sum, __m256i s_sum) {
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

// Exact rule with W in [1, 2^31): n = |S| + W/2 wrapping, read as signed;
// q = n / W truncated (exact in double precision), clamped to 4080 from
// above, with S's sign (a zero S has q = 0).
inline __m256i exact_quotient(__m256i w_sum, __m256i s_sum) {
  const __m256i n = _mm256_add_epi32(_mm256_abs_epi32(s_sum), _mm256_srli_epi32(w_sum, 1));
  const auto divide = [](__m128i a, __m128i b) {
    return _mm256_cvttpd_epi32(_mm256_div_pd(_mm256_cvtepi32_pd(a), _mm256_cvtepi32_pd(b)));
  };
  const __m256i q = _mm256_set_m128i(divide(_mm256_extracti128_si256(n, 1), _mm256_extracti128_si256(w_sum, 1)),
                                     divide(_mm256_castsi256_si128(n), _mm256_castsi256_si128(w_sum)));
  return _mm256_sign_epi32(_mm256_min_epi32(q, _mm256_set1_epi32(kLumaFixedMax)), s_sum);
}

// The low 16 bits of the quotients of both sets, in sample order.
inline __m256i low16(__m256i q0, __m256i q1) {
  const __m256i low = _mm256_set1_epi32(0xffff);
  return _mm256_packus_epi32(_mm256_and_si256(q0, low), _mm256_and_si256(q1, low));
}

// One vector of the shape.
template <int kFrames, bool kPositive>
struct Step {
  RowSamples<kFrames> row;

  template <bool kContrast, int32_t kLanes>
  [[gnu::always_inline]] void operator()(std::bool_constant<kContrast>, std::integral_constant<int32_t, kLanes>,
                                         int32_t x, int32_t split) const {
    __m256i w[2], s[2];
    weight_sums<kContrast, kLanes, kFrames>(row, x, w, s);
    // Lanes before split by the grouped rule, the others by the exact rule.
    const bool grouped = x < split, exact = kPositive && split < x + kLanes;
    __m256i v = _mm256_setzero_si256();
    if (grouped) {
      v = _mm256_min_epi16(low16(grouped_quotient<kPositive>(w[0], s[0]), grouped_quotient<kPositive>(w[1], s[1])),
                           _mm256_set1_epi16(kLumaFixedMax));
    }
    if (exact) {
      const __m256i e = low16(exact_quotient(w[0], s[0]), exact_quotient(w[1], s[1]));
      const __m256i lane = _mm256_setr_epi16(0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15);
      v = grouped ? _mm256_blendv_epi8(v, e, _mm256_cmpgt_epi16(lane, _mm256_set1_epi16(static_cast<int16_t>(split - x - 1))))
                  : e;
    }
    if constexpr (kLanes == 16) {
      _mm256_storeu_si256(reinterpret_cast<__m256i*>(row.out + x), v);
    } else {
      _mm_storeu_si128(reinterpret_cast<__m128i*>(row.out + x), _mm256_castsi256_si128(v));
    }
  }
};

}  // namespace

void BlendInteriorRow_AVX2(const BlendRowArgs& row) { blend_interior_any<16, Step>(row); }

void BlendBorderRow_AVX2(const BlendRowArgs& row) { blend_border_any<16, Step>(row); }

}  // namespace tavo
