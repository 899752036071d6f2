// Blending rows with AVX-512 (BW and VBMI), thirty-two samples a step
// (sixteen or eight, by masked loads and stores, where a row is too short),
// in the shape of fusion/blend_rows_any.h.
//
// Exposure factors by byte permutes: each index byte doubled into both bytes
// of its 16-bit lane, the low and the high bytes of the factors looked up in
// their 256-byte planes (two two-source permutes a plane, the index's top bit
// choosing), the even bytes taken from the low plane and the odd ones from
// the high plane. Weights: the contrast stencil in 16-bit lanes, e * c as the
// low and high halves of 16-bit products unpacked into two sets of sixteen
// 32-bit lanes (samples 0-3, 8-11, 16-19, 24-27 and 4-7, 12-15, 20-23, 28-31;
// the packs at the end restore the order), the sums wrapping. The grouped rule
// divides through the emulated ARM reciprocal estimate and step; with positive
// weights the exact rule divides in double precision (exact for 32-bit
// integers), otherwise the portable code gives its samples.

// GCC 12 reads the AVX-512 headers' undefined-vector idiom as a maybe
// uninitialised value once their functions are inlined.
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#pragma GCC diagnostic ignored "-Wuninitialized"
#include <immintrin.h>

#include "fusion/blend_rows_any.h"
#include "platform/arm_float_avx512.h"

namespace tavo {

namespace {

using arm::avx512::look_up_bytes;

template <int32_t kLanes>
constexpr __mmask32 kLaneMask = static_cast<__mmask32>((uint64_t{1} << kLanes) - 1);

// kLanes samples from p, zeros above.
template <int32_t kLanes>
inline __m512i load32(const void* p) {
  if constexpr (kLanes == 32) {
    return _mm512_loadu_si512(p);
  } else {
    return _mm512_maskz_loadu_epi16(kLaneMask<kLanes>, p);
  }
}

// The low and high byte planes of the exposure factors, loaded once a row.
struct FactorPlanes {
  __m512i low[4], high[4];
  explicit FactorPlanes(const ExposureFactors* factors) {
    for (int q = 0; q < 4; ++q) {
      low[q] = _mm512_load_si512(factors->low + 64 * q);
      high[q] = _mm512_load_si512(factors->high + 64 * q);
    }
  }
};

// The 16-bit exposure factors of 32 Gaussian samples, in sample order.
inline __m512i exposure_factors(const FactorPlanes& planes, __m512i centre) {
  // (g + 8) >> 4 is the rounding average of g >> 3 and 0; kept inside the
  // table, then in both bytes of its lane.
  const __m512i index = _mm512_min_epu16(_mm512_avg_epu16(_mm512_srli_epi16(centre, 3), _mm512_setzero_si512()),
                                         _mm512_set1_epi16(255));
  const __m512i doubled = _mm512_mullo_epi16(index, _mm512_set1_epi16(0x0101));
  return _mm512_mask_blend_epi8(0xaaaaaaaaaaaaaaaaull, look_up_bytes(planes.low, doubled),
                                look_up_bytes(planes.high, doubled));
}

// Weight sums of the samples at x in the two sets. kFrames is the frame count
// when it is known at compile time, 0 when it is read from the row.
template <bool kContrast, int32_t kLanes, int kFrames>
[[gnu::always_inline]] inline void weight_sums(const RowSamples<kFrames>& row, const FactorPlanes& planes, int32_t x,
                                               __m512i (&w_sum)[2], __m512i (&s_sum)[2]) {
  const __m512i one = _mm512_set1_epi16(1);
  __m512i w0 = _mm512_setzero_si512(), w1 = w0, s0 = w0, s1 = w0;
#pragma GCC unroll 4
  for (int32_t f = 0; f < row.frames; ++f) {
    const uint16_t* p = row.gauss(f) + x;
    const __m512i centre = load32<kLanes>(p);
    const __m512i e = exposure_factors(planes, centre);
    __m512i contrast = one;
    if constexpr (kContrast) {
      const __m512i around =
          _mm512_add_epi16(_mm512_add_epi16(load32<kLanes>(p - row.up), load32<kLanes>(p + row.down)),
                           _mm512_add_epi16(load32<kLanes>(p - 1), load32<kLanes>(p + 1)));
      const __m512i d = _mm512_sub_epi16(around, _mm512_slli_epi16(centre, 2));
      contrast = _mm512_max_epu16(_mm512_srli_epi16(_mm512_abs_epi16(d), 6), one);
    }
    // e * c needs 32 bits: the low and high halves of the signed 16-bit
    // products, unpacked.
    const __m512i product_low = _mm512_mullo_epi16(e, contrast), product_high = _mm512_mulhi_epi16(e, contrast);
    const __m512i we0 = _mm512_unpacklo_epi16(product_low, product_high);
    const __m512i we1 = _mm512_unpackhi_epi16(product_low, product_high);
    const __m512i lap = load32<kLanes>(row.lap(f) + x);
    const __m512i lap_sign = _mm512_srai_epi16(lap, 15);
    w0 = _mm512_add_epi32(w0, we0);
    w1 = _mm512_add_epi32(w1, we1);
    s0 = _mm512_add_epi32(s0, _mm512_mullo_epi32(we0, _mm512_unpacklo_epi16(lap, lap_sign)));
    s1 = _mm512_add_epi32(s1, _mm512_mullo_epi32(we1, _mm512_unpackhi_epi16(lap, lap_sign)));
  }
  w_sum[0] = w0;
  w_sum[1] = w1;
  s_sum[0] = s0;
  s_sum[1] = s1;
}

// Grouped rule: Q = S * r1(W) rounded half away from zero by Q's sign and
// converted to 32 bits as FCVTZS does.
inline __m512i grouped_quotient(__m512i w_sum, __m512i s_sum) {
  const __m512 q = _mm512_mul_ps(_mm512_cvtepi32_ps(s_sum), arm::avx512::refined_reciprocal(_mm512_cvtepi32_ps(w_sum)));
  const __mmask16 non_negative = _mm512_cmp_ps_mask(q, _mm512_setzero_ps(), _CMP_GE_OQ);
  const __m512 half = _mm512_mask_mov_ps(_mm512_set1_ps(-0.5f), non_negative, _mm512_set1_ps(0.5f));
  return arm::avx512::to_s32(_mm512_add_ps(q, half));
}

// The grouped rule of both sets when every W lies in [1, 2^31): the estimate
// needs no zero or sign case, Q has S's sign and |Q| stays below 2^31, so the
// plain conversion saturates nowhere. Both sets' reciprocals in one look-up.
inline void grouped_quotients_of_positive(const __m512i (&w_sum)[2], const __m512i (&s_sum)[2], __m512i (&q)[2]) {
  __m512 r[2];
  arm::avx512::refined_reciprocals_of_positive(_mm512_cvtepi32_ps(w_sum[0]), _mm512_cvtepi32_ps(w_sum[1]), r);
  for (int k = 0; k < 2; ++k) {
    const __m512 quotient = _mm512_mul_ps(_mm512_cvtepi32_ps(s_sum[k]), r[k]);
    const __m512i half = _mm512_or_si512(_mm512_and_si512(s_sum[k], _mm512_set1_epi32(INT32_MIN)),
                                         _mm512_set1_epi32(0x3f000000));  // +-0.5
    q[k] = _mm512_cvttps_epi32(_mm512_add_ps(quotient, _mm512_castsi512_ps(half)));
  }
}

// Exact rule with W in [1, 2^31): n = |S| + W/2 wrapping, read as signed;
// q = n / W truncated (exact in double precision), clamped to 4080 from
// above, with S's sign.
inline __m512i exact_quotient(__m512i w_sum, __m512i s_sum) {
  const __m512i n = _mm512_add_epi32(_mm512_abs_epi32(s_sum), _mm512_srli_epi32(w_sum, 1));
  const auto divide = [](__m256i a, __m256i b) {
    return _mm512_cvttpd_epi32(_mm512_div_pd(_mm512_cvtepi32_pd(a), _mm512_cvtepi32_pd(b)));
  };
  __m512i q = _mm512_inserti64x4(
      _mm512_castsi256_si512(divide(_mm512_castsi512_si256(n), _mm512_castsi512_si256(w_sum))),
      divide(_mm512_extracti64x4_epi64(n, 1), _mm512_extracti64x4_epi64(w_sum, 1)), 1);
  q = _mm512_min_epi32(q, _mm512_set1_epi32(kLumaFixedMax));
  const __m512i zero = _mm512_setzero_si512();
  return _mm512_mask_sub_epi32(q, _mm512_cmplt_epi32_mask(s_sum, zero), zero, q);
}

// The low 16 bits of the quotients of both sets, in sample order.
inline __m512i low16(__m512i q0, __m512i q1) {
  const __m512i low = _mm512_set1_epi32(0xffff);
  return _mm512_packus_epi32(_mm512_and_si512(q0, low), _mm512_and_si512(q1, low));
}

// One vector of the shape.
template <int kFrames, bool kPositive>
struct Step {
  RowSamples<kFrames> row;
  FactorPlanes planes{row.factors};

  template <bool kContrast, int32_t kLanes>
  [[gnu::always_inline]] void operator()(std::bool_constant<kContrast>, std::integral_constant<int32_t, kLanes>,
                                         int32_t x, int32_t split) const {
    __m512i w[2], s[2];
    weight_sums<kContrast, kLanes, kFrames>(row, planes, x, w, s);
    // Lanes before split by the grouped rule, the others by the exact rule.
    const bool grouped = x < split, exact = kPositive && split < x + kLanes;
    __m512i v = _mm512_setzero_si512();
    if (grouped) {
      __m512i q[2];
      if constexpr (kPositive) {
        grouped_quotients_of_positive(w, s, q);
      } else {
        q[0] = grouped_quotient(w[0], s[0]);
        q[1] = grouped_quotient(w[1], s[1]);
      }
      v = _mm512_min_epi16(low16(q[0], q[1]), _mm512_set1_epi16(kLumaFixedMax));
    }
    if (exact) {
      const __m512i e = low16(exact_quotient(w[0], s[0]), exact_quotient(w[1], s[1]));
      v = grouped ? _mm512_mask_blend_epi16(static_cast<__mmask32>(~0u << (split - x)), v, e) : e;
    }
    if constexpr (kLanes == 32) {
      _mm512_storeu_si512(row.out + x, v);
    } else {
      _mm512_mask_storeu_epi16(row.out + x, kLaneMask<kLanes>, v);
    }
  }
};

}  // namespace

void BlendInteriorRow_AVX512(const BlendRowArgs& row) { blend_interior_any<32, Step>(row); }

void BlendBorderRow_AVX512(const BlendRowArgs& row) { blend_border_any<32, Step>(row); }

}  // namespace tavo
