// Pyramid rows with AVX-512 (F, BW, VL), byte for byte the portable rows for
// every 16-bit input, by the arithmetic of the AVX2 rows
// (fusion/pyramid_rows_avx2.cc) on 512-bit vectors: 32 samples a step of
// 16-bit work. A row's last step is masked to the row's end (masked loads read
// nothing past it), so no sample is left to scalar code; the borders take the
// portable formulas (fusion/pyramid_rows_any.h). The horizontal expansions
// and the even collapse keep their AVX2 rows, which run them as fast.
#include <immintrin.h>

#include "fusion/pyramid_rows_any.h"

namespace tavo {
namespace {

inline __m512i set16(int v) { return _mm512_set1_epi16(static_cast<int16_t>(v)); }

// The first n of 16, 32 or 64 lanes (n may lie outside 0 ... lanes).
inline __mmask16 lanes16(int32_t n) { return n >= 16 ? 0xffff : n <= 0 ? 0 : static_cast<__mmask16>((1u << n) - 1); }
inline __mmask32 lanes32(int32_t n) { return n >= 32 ? 0xffffffffu : n <= 0 ? 0 : (1u << n) - 1; }
inline __mmask64 lanes64(int32_t n) { return n >= 64 ? ~0ull : n <= 0 ? 0 : (1ull << n) - 1; }

// The first n of 32 16-bit samples at p, zeros after them.
inline __m512i load_words(const void* p, int32_t n) { return _mm512_maskz_loadu_epi16(lanes32(n), p); }
inline void store_words(void* p, int32_t n, __m512i v) { _mm512_mask_storeu_epi16(p, lanes32(n), v); }

// body(i, n) for the steps i = first, first + kStep, ... of n = kStep
// positions, the last one cut at end. Always true: nothing is left over.
template <int32_t kStep, class Body>
inline bool masked_vectors(int32_t first, int32_t end, Body&& body) {
  int32_t i = first;
  for (; i + kStep <= end; i += kStep) body(i, kStep);
  if (i < end) body(i, end - i);
  return true;
}

// The even phase of the expansion (see the AVX2 rows).
inline __m512i expand_even32(__m512i l, __m512i c, __m512i r) {
  const __m512i ones = set16(0xffff);
  const __m512i low = _mm512_avg_epu16(_mm512_avg_epu16(_mm512_xor_si512(l, ones), _mm512_xor_si512(r, ones)),
                                       _mm512_xor_si512(c, ones));
  return _mm512_avg_epu16(_mm512_xor_si512(low, ones), c);
}

// Sixteen outputs j ... j + n - 1 a step in 32-bit lanes (see the AVX2 rows),
// reading samples 2j - 2 ... 2j + 2n.
template <bool kAnySample>
void reduce_h(const uint16_t* src, int32_t src_width, uint16_t* dst, int32_t dst_width) {
  const __m512i offset = _mm512_set1_epi32(kAnySample ? 0x80008000 : 0);
  reduce_h_any(src, src_width, dst, dst_width, [&](int32_t first, int32_t end) {
    return masked_vectors<16>(first, end, [&](int32_t j, int32_t n) {
      const uint16_t* p = src + 2 * j;
      // The pairs at p + d of the n outputs.
      auto pairs = [&](int32_t d, int32_t weights) {
        return _mm512_madd_epi16(_mm512_xor_si512(load_words(p + d, 2 * n), offset), _mm512_set1_epi32(weights));
      };
      const __m512i sum = _mm512_add_epi32(_mm512_add_epi32(pairs(-2, 0x00040001), pairs(0, 0x00040006)),
                                           _mm512_add_epi32(pairs(1, 0x00010000),
                                                            _mm512_set1_epi32(kAnySample ? 16 * 32768 + 8 : 8)));
      // (The zero-masked shift, all lanes kept, spares GCC 12 a false warning.)
      _mm512_mask_cvtepi32_storeu_epi16(dst + j, lanes16(n), _mm512_maskz_srli_epi32(0xffff, sum, 4));
    });
  });
}

// level[x] = clamp(level[x] + v, 0, 4080) for 32 samples (see the AVX2 rows).
inline __m512i collapse32(__m512i level, __m512i v) {
  const __m512i offset = set16(0x8000);
  const __m512i s = _mm512_adds_epu16(_mm512_xor_si512(level, offset), v);
  return _mm512_xor_si512(_mm512_min_epu16(_mm512_max_epu16(s, offset), set16(0x8000 + kLumaFixedMax)), offset);
}

// A collapse row: expanded(x, n) gives the expansion of the first n of 32
// samples at x; with luma also the 8-bit luma (r + 8) >> 4.
template <class Expanded>
inline void collapse_row32(int16_t* level, uint8_t* luma, int32_t width, Expanded&& expanded) {
  const auto run = [&](auto with_luma) {
    masked_vectors<32>(0, width, [&](int32_t x, int32_t n) {
      const __m512i r = collapse32(load_words(level + x, n), expanded(x, n));
      store_words(level + x, n, r);
      if constexpr (decltype(with_luma)::value) {
        _mm512_mask_cvtepi16_storeu_epi8(luma + x, lanes32(n), _mm512_srli_epi16(_mm512_add_epi16(r, set16(8)), 4));
      }
    });
  };
  if (luma != nullptr) {
    run(std::true_type{});
  } else {
    run(std::false_type{});
  }
}

}  // namespace

[[gnu::flatten]] void ReduceH_AVX512(const uint16_t* src, int32_t src_width, uint16_t* dst, int32_t dst_width) {
  reduce_h<true>(src, src_width, dst, dst_width);
}

[[gnu::flatten]] void ReduceHPyramid_AVX512(const uint16_t* src, int32_t src_width, uint16_t* dst, int32_t dst_width) {
  reduce_h<false>(src, src_width, dst, dst_width);
}

// Luma rows: 32 outputs a step from byte pairs (see the AVX2 rows), reading
// samples 2j - 2 ... 2j + 2n.
[[gnu::flatten]] void ReduceHLuma_AVX512(const uint8_t* src, int32_t src_width, uint16_t* dst, int32_t dst_width) {
  reduce_h_any(src, src_width, dst, dst_width, [&](int32_t first, int32_t end) {
    return masked_vectors<32>(first, end, [&](int32_t j, int32_t n) {
      const uint8_t* p = src + 2 * j;
      auto pairs = [&](int32_t d, int weights) {
        return _mm512_maddubs_epi16(_mm512_maskz_loadu_epi8(lanes64(2 * n), p + d), set16(weights));
      };
      store_words(dst + j, n, _mm512_add_epi16(_mm512_add_epi16(pairs(-2, 0x0401), pairs(0, 0x0406)), pairs(1, 0x0100)));
    });
  });
}

// Pyramid rows of at most 4080: the sums in 16-bit lanes.
[[gnu::flatten]] void ReduceVPyramid_AVX512(const uint16_t* const* rows, uint16_t* dst, int32_t width) {
  masked_vectors<32>(0, width, [&](int32_t x, int32_t n) {
    const __m512i outer = _mm512_add_epi16(load_words(rows[0] + x, n), load_words(rows[4] + x, n));
    const __m512i inner = _mm512_slli_epi16(_mm512_add_epi16(load_words(rows[1] + x, n), load_words(rows[3] + x, n)), 2);
    const __m512i centre = _mm512_mullo_epi16(load_words(rows[2] + x, n), set16(6));
    const __m512i sum = _mm512_add_epi16(_mm512_add_epi16(outer, inner), centre);
    store_words(dst + x, n, _mm512_srli_epi16(_mm512_add_epi16(sum, set16(8)), 4));
  });
}

[[gnu::flatten]] void LaplacianEven_AVX512(const uint16_t* gauss, const uint16_t* above, const uint16_t* centre,
                          const uint16_t* below, int16_t* out, int32_t width) {
  masked_vectors<32>(0, width, [&](int32_t x, int32_t n) {
    const __m512i e = expand_even32(load_words(above + x, n), load_words(centre + x, n), load_words(below + x, n));
    store_words(out + x, n, _mm512_sub_epi16(load_words(gauss + x, n), e));
  });
}

[[gnu::flatten]] void LaplacianOdd_AVX512(const uint16_t* gauss, const uint16_t* centre, const uint16_t* below,
                         int16_t* out, int32_t width) {
  masked_vectors<32>(0, width, [&](int32_t x, int32_t n) {
    const __m512i e = _mm512_avg_epu16(load_words(centre + x, n), load_words(below + x, n));
    store_words(out + x, n, _mm512_sub_epi16(load_words(gauss + x, n), e));
  });
}

[[gnu::flatten]] void CollapseOdd_AVX512(int16_t* level, const uint16_t* centre, const uint16_t* below, uint8_t* luma,
                        int32_t width) {
  collapse_row32(level, luma, width, [&](int32_t x, int32_t n) {
    return _mm512_avg_epu16(load_words(centre + x, n), load_words(below + x, n));
  });
}

}  // namespace tavo
