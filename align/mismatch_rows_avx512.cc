// The bitmap comparison of align/mismatch_rows.h with AVX-512, 64 pixels a
// step: the selects as masked blends, the bit count of a byte as a look-up of
// its low seven bits in a 128-byte table (a two-register byte permute) plus
// its top bit. The pixels after the last whole step are read by masked loads
// and the others masked out.
#include <immintrin.h>

#include "align/mismatch_rows.h"

namespace tavo {

namespace {

// The bit counts of 0 ... 127.
constexpr auto kBitCounts = [] {
  struct {
    alignas(64) uint8_t v[128];
  } t{};
  for (int i = 0; i < 128; ++i) t.v[i] = static_cast<uint8_t>(__builtin_popcount(static_cast<unsigned>(i)));
  return t;
}();

// The 64 per-pixel results f of the pixels from j that `keep` marks (0 for
// the others).
inline __m512i mismatch64(const uint8_t* moving_mask, const uint8_t* moving_bitmap, const uint8_t* ref_bitmap,
                          const uint8_t* ref_mask, int32_t j, __mmask64 keep) {
  const __m512i one = _mm512_set1_epi8(1);
  auto load = [&](const uint8_t* p) { return _mm512_maskz_loadu_epi8(keep, p + j); };
  const __m512i d = _mm512_xor_si512(load(moving_bitmap), load(ref_bitmap));
  const __m512i e = _mm512_mask_blend_epi8(_mm512_cmpeq_epi8_mask(load(moving_mask), d), d, one);
  return _mm512_maskz_mov_epi8(keep, _mm512_mask_blend_epi8(_mm512_cmpeq_epi8_mask(load(ref_mask), e), e, one));
}

// Set bits of the 64 bytes, as eight 64-bit partial sums.
inline __m512i bit_sums(__m512i f) {
  const __m512i low = _mm512_load_si512(kBitCounts.v), high = _mm512_load_si512(kBitCounts.v + 64);
  const __m512i seven = _mm512_permutex2var_epi8(low, f, high);
  const __m512i all = _mm512_mask_add_epi8(seven, _mm512_movepi8_mask(f), seven, _mm512_set1_epi8(1));
  return _mm512_sad_epu8(all, _mm512_setzero_si512());
}

uint32_t row(const uint8_t* moving_mask, const uint8_t* moving_bitmap, const uint8_t* ref_bitmap,
             const uint8_t* ref_mask, int32_t n) {
  __m512i sums = _mm512_setzero_si512();
  int32_t j = 0;
  for (; j + 64 <= n; j += 64) {
    sums = _mm512_add_epi64(sums, bit_sums(mismatch64(moving_mask, moving_bitmap, ref_bitmap, ref_mask, j, ~__mmask64{0})));
  }
  if (j < n) {
    const __mmask64 keep = (__mmask64{1} << (n - j)) - 1;
    sums = _mm512_add_epi64(sums, bit_sums(mismatch64(moving_mask, moving_bitmap, ref_bitmap, ref_mask, j, keep)));
  }
  uint64_t lanes[8];
  _mm512_storeu_si512(lanes, sums);
  uint64_t total = 0;
  for (uint64_t lane : lanes) total += lane;
  return static_cast<uint32_t>(total);
}

}  // namespace

uint32_t MismatchRows_AVX512(const uint8_t* moving_mask, const uint8_t* moving_bitmap, const uint8_t* ref_bitmap,
                             const uint8_t* ref_mask, int32_t n, int32_t rows, ptrdiff_t stride) {
  return score_rows(row, moving_mask, moving_bitmap, ref_bitmap, ref_mask, n, rows, stride);
}

}  // namespace tavo
