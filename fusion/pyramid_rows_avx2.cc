// Pyramid rows with AVX2, byte for byte the portable rows for every 16-bit
// input, in the shapes of fusion/pyramid_rows_any.h: no sample is left to the
// portable rows.
//
// Reduce: loads at 2j - 2, 2j and 2j + 1 hold in each pair of samples the taps
// (2j - 2, 2j - 1), (2j, 2j + 1) and (-, 2j + 2) of output j, which pairwise
// multiply-adds weigh (1, 4), (6, 4) and (0, 1): bytes of 8-bit luma into
// 16-bit sums, 16-bit samples into 32-bit sums. The 16-bit multiply-add is
// signed, so samples that may reach 32768 are offset by -32768 first and the
// sum by 16 x 32768 after.
//
// Expand: the two phases are formed in 16-bit lanes without any widening by
// averages, exact for all inputs:
//   (c + r + 1) >> 1             = avg(c, r)
//   (l + 6c + r + 4) >> 3        = avg(havg(havg(l, r), c), c)
// where avg rounds up and havg, which rounds down, is ~avg(~a, ~b); each
// halving drops a bit that the final shift would drop anyway. Signed samples go
// through the same unsigned averages after flipping their sign bit (an offset
// of 32768 that every average keeps).
//
// Collapse: r = L + v with L signed and v unsigned is clamped to 0 ... 4080 in
// 16-bit lanes by offsetting L by 32768: L + 32768 + v saturates at 65535,
// which lies above 4080 + 32768, so clamping the offset sum to
// [32768, 36848] and removing the offset gives the exact clamp.
#include <immintrin.h>

#include "fusion/pyramid_rows_any.h"

namespace tavo {
namespace {

inline __m256i load16(const void* p) { return _mm256_loadu_si256(static_cast<const __m256i*>(p)); }
inline void store16(void* p, __m256i v) { _mm256_storeu_si256(static_cast<__m256i*>(p), v); }
inline __m256i set16(int v) { return _mm256_set1_epi16(static_cast<int16_t>(v)); }

// The phases of the expansion for sixteen positions, on samples offset by
// kBias (0, or 0x8000 for signed samples).
struct Phases {
  __m256i even, odd;
};
template <int kBias>
inline Phases expand16(__m256i l, __m256i c, __m256i r) {
  const __m256i flip = set16(0xffff ^ kBias);  // ~(x ^ kBias)
  const __m256i low = _mm256_avg_epu16(_mm256_avg_epu16(_mm256_xor_si256(l, flip), _mm256_xor_si256(r, flip)),
                                       _mm256_xor_si256(c, flip));
  const __m256i h = _mm256_xor_si256(low, set16(0xffff));  // havg(havg(l, r), c), offset
  if constexpr (kBias == 0) return {_mm256_avg_epu16(h, c), _mm256_avg_epu16(c, r)};
  const __m256i bias = set16(kBias), cb = _mm256_xor_si256(c, bias);
  return {_mm256_xor_si256(_mm256_avg_epu16(h, cb), bias),
          _mm256_xor_si256(_mm256_avg_epu16(cb, _mm256_xor_si256(r, bias)), bias)};
}
inline __m256i expand_even16(__m256i l, __m256i c, __m256i r) { return expand16<0>(l, c, r).even; }

// Outputs j ... j + 7 of the horizontal reduce of 16-bit samples from
// p = src + 2j, in 32-bit lanes; reads samples 2j - 2 ... 2j + 16.
template <bool kAnySample>
inline __m256i reduce_h8(const uint16_t* p) {
  const __m256i offset = _mm256_set1_epi32(kAnySample ? 0x80008000 : 0);
  auto pairs = [&](const uint16_t* q, int32_t weights) {
    return _mm256_madd_epi16(_mm256_xor_si256(load16(q), offset), _mm256_set1_epi32(weights));
  };
  const __m256i sum = _mm256_add_epi32(_mm256_add_epi32(pairs(p - 2, 0x00040001), pairs(p, 0x00040006)),
                                       _mm256_add_epi32(pairs(p + 1, 0x00010000),
                                                        _mm256_set1_epi32(kAnySample ? 16 * 32768 + 8 : 8)));
  return _mm256_srli_epi32(sum, 4);
}

// Sixteen outputs a step, reading samples 2j - 2 ... 2j + 32.
template <bool kAnySample>
void reduce_h(const uint16_t* src, int32_t src_width, uint16_t* dst, int32_t dst_width) {
  reduce_h_any(src, src_width, dst, dst_width, [&](int32_t first, int32_t end) {
    return overlapping_vectors<16>(first, end, [&](int32_t j) {
      const __m256i packed = _mm256_packus_epi32(reduce_h8<kAnySample>(src + 2 * j), reduce_h8<kAnySample>(src + 2 * j + 16));
      store16(dst + j, _mm256_permute4x64_epi64(packed, 0xd8));
    });
  });
}

// (a + 4b + 6c + 4d + e + 8) >> 4 in 32-bit lanes.
inline __m256i reduce32(__m256i a, __m256i b, __m256i c, __m256i d, __m256i e) {
  const __m256i outer = _mm256_add_epi32(a, e);
  const __m256i inner = _mm256_slli_epi32(_mm256_add_epi32(b, d), 2);
  const __m256i centre = _mm256_add_epi32(_mm256_slli_epi32(c, 2), _mm256_slli_epi32(c, 1));
  const __m256i sum = _mm256_add_epi32(_mm256_add_epi32(outer, inner), centre);
  return _mm256_srli_epi32(_mm256_add_epi32(sum, _mm256_set1_epi32(8)), 4);
}

// Pairs of coarse positions k ... k + 15: each coarse vector is loaded with its
// 64-bit quarters in the order 0, 2, 1, 3, so that interleaving the phases
// within the 128-bit halves gives the fine samples in order.
template <int kBias, class Sample>
void expand_h(const Sample* coarse, int32_t coarse_width, uint16_t* fine, int32_t fine_width) {
  expand_h_any(coarse, coarse_width, fine, fine_width, [&](int32_t first, int32_t end) {
    return overlapping_vectors<16>(first, end, [&](int32_t k) {
      auto at = [&](int32_t i) { return _mm256_permute4x64_epi64(load16(coarse + i), 0xd8); };
      const Phases p = expand16<kBias>(at(k - 1), at(k), at(k + 1));
      store16(fine + 2 * k, _mm256_unpacklo_epi16(p.even, p.odd));
      store16(fine + 2 * k + 16, _mm256_unpackhi_epi16(p.even, p.odd));
    });
  });
}

// level[x] = clamp(level[x] + v, 0, 4080) for sixteen samples.
inline __m256i collapse16(const int16_t* level, __m256i v) {
  const __m256i offset = set16(0x8000);
  const __m256i s = _mm256_adds_epu16(_mm256_xor_si256(load16(level), offset), v);
  return _mm256_xor_si256(_mm256_min_epu16(_mm256_max_epu16(s, offset), set16(0x8000 + kLumaFixedMax)), offset);
}

// A collapse row: expanded(x) gives the expansion of sixteen samples at x;
// with luma also the 8-bit luma (r + 8) >> 4.
template <class Expanded>
inline bool collapse_vectors(int16_t* level, uint8_t* luma, int32_t width, Expanded&& expanded) {
  const auto run = [&](auto with_luma) {
    return elementwise_vectors<16>(
        width, [&](int32_t x) { return collapse16(level + x, expanded(x)); },
        [&](int32_t x, __m256i r) {
          store16(level + x, r);
          if constexpr (decltype(with_luma)::value) {
            const __m256i y = _mm256_srli_epi16(_mm256_add_epi16(r, set16(8)), 4);
            const __m256i bytes = _mm256_permute4x64_epi64(_mm256_packus_epi16(y, y), 0x08);
            _mm_storeu_si128(reinterpret_cast<__m128i*>(luma + x), _mm256_castsi256_si128(bytes));
          }
        });
  };
  return luma != nullptr ? run(std::true_type{}) : run(std::false_type{});
}

}  // namespace

[[gnu::flatten]] void ReduceH_AVX2(const uint16_t* src, int32_t src_width, uint16_t* dst, int32_t dst_width) {
  reduce_h<true>(src, src_width, dst, dst_width);
}

[[gnu::flatten]] void ReduceHPyramid_AVX2(const uint16_t* src, int32_t src_width, uint16_t* dst, int32_t dst_width) {
  reduce_h<false>(src, src_width, dst, dst_width);
}

// Luma rows: sixteen outputs a step, the tap sums of 8-bit samples in 16-bit
// lanes; reads samples 2j - 2 ... 2j + 32.
[[gnu::flatten]] void ReduceHLuma_AVX2(const uint8_t* src, int32_t src_width, uint16_t* dst, int32_t dst_width) {
  reduce_h_any(src, src_width, dst, dst_width, [&](int32_t first, int32_t end) {
    return overlapping_vectors<16>(first, end, [&](int32_t j) {
      const uint8_t* p = src + 2 * j;
      const __m256i sum = _mm256_add_epi16(
          _mm256_add_epi16(_mm256_maddubs_epi16(load16(p - 2), set16(0x0401)), _mm256_maddubs_epi16(load16(p), set16(0x0406))),
          _mm256_maddubs_epi16(load16(p + 1), set16(0x0100)));
      store16(dst + j, sum);
    });
  });
}

[[gnu::flatten]] void ReduceV_AVX2(const uint16_t* const* rows, uint16_t* dst, int32_t width) {
  const __m256i zero = _mm256_setzero_si256();
  const bool done = elementwise_vectors<16>(
      width,
      [&](int32_t x) {
        // Widening against zero within each 128-bit half; packing back
        // restores the order.
        __m256i lo[5], hi[5];
        for (int i = 0; i < 5; ++i) {
          const __m256i v = load16(rows[i] + x);
          lo[i] = _mm256_unpacklo_epi16(v, zero);
          hi[i] = _mm256_unpackhi_epi16(v, zero);
        }
        return _mm256_packus_epi32(reduce32(lo[0], lo[1], lo[2], lo[3], lo[4]),
                                   reduce32(hi[0], hi[1], hi[2], hi[3], hi[4]));
      },
      [&](int32_t x, __m256i v) { store16(dst + x, v); });
  if (!done) reduce_v_row(rows, dst, width);
}

// Pyramid rows of at most 4080: the sums in 16-bit lanes.
[[gnu::flatten]] void ReduceVPyramid_AVX2(const uint16_t* const* rows, uint16_t* dst, int32_t width) {
  const bool done = elementwise_vectors<16>(
      width,
      [&](int32_t x) {
        const __m256i outer = _mm256_add_epi16(load16(rows[0] + x), load16(rows[4] + x));
        const __m256i inner = _mm256_slli_epi16(_mm256_add_epi16(load16(rows[1] + x), load16(rows[3] + x)), 2);
        const __m256i centre = _mm256_mullo_epi16(load16(rows[2] + x), set16(6));
        const __m256i sum = _mm256_add_epi16(_mm256_add_epi16(outer, inner), centre);
        return _mm256_srli_epi16(_mm256_add_epi16(sum, set16(8)), 4);
      },
      [&](int32_t x, __m256i v) { store16(dst + x, v); });
  if (!done) reduce_v_row(rows, dst, width);
}

[[gnu::flatten]] void ExpandHUnsigned_AVX2(const uint16_t* coarse, int32_t coarse_width, uint16_t* fine, int32_t fine_width) {
  expand_h<0>(coarse, coarse_width, fine, fine_width);
}

[[gnu::flatten]] void ExpandHSigned_AVX2(const int16_t* coarse, int32_t coarse_width, uint16_t* fine, int32_t fine_width) {
  expand_h<0x8000>(coarse, coarse_width, fine, fine_width);
}

[[gnu::flatten]] void LaplacianEven_AVX2(const uint16_t* gauss, const uint16_t* above, const uint16_t* centre,
                        const uint16_t* below, int16_t* out, int32_t width) {
  const bool done = elementwise_vectors<16>(
      width,
      [&](int32_t x) {
        return _mm256_sub_epi16(load16(gauss + x), expand_even16(load16(above + x), load16(centre + x), load16(below + x)));
      },
      [&](int32_t x, __m256i v) { store16(out + x, v); });
  if (!done) laplacian_even_row(gauss, above, centre, below, out, width);
}

[[gnu::flatten]] void LaplacianOdd_AVX2(const uint16_t* gauss, const uint16_t* centre, const uint16_t* below,
                       int16_t* out, int32_t width) {
  const bool done = elementwise_vectors<16>(
      width, [&](int32_t x) { return _mm256_sub_epi16(load16(gauss + x), _mm256_avg_epu16(load16(centre + x), load16(below + x))); },
      [&](int32_t x, __m256i v) { store16(out + x, v); });
  if (!done) laplacian_odd_row(gauss, centre, below, out, width);
}

[[gnu::flatten]] void CollapseEven_AVX2(int16_t* level, const uint16_t* above, const uint16_t* centre,
                       const uint16_t* below, uint8_t* luma, int32_t width) {
  const bool done = collapse_vectors(level, luma, width, [&](int32_t x) {
    return expand_even16(load16(above + x), load16(centre + x), load16(below + x));
  });
  if (!done) collapse_even_row(level, above, centre, below, luma, width);
}

[[gnu::flatten]] void CollapseOdd_AVX2(int16_t* level, const uint16_t* centre, const uint16_t* below, uint8_t* luma,
                      int32_t width) {
  const bool done = collapse_vectors(level, luma, width, [&](int32_t x) {
    return _mm256_avg_epu16(load16(centre + x), load16(below + x));
  });
  if (!done) collapse_odd_row(level, centre, below, luma, width);
}

}  // namespace tavo
