#include <smmintrin.h>

#include "align/wavelet_rows.h"

namespace tavo {
namespace {

// Means of the 2x2 blocks of 16 input columns, as 8 16-bit lanes.
inline __m128i block_means(const uint8_t* top, const uint8_t* bottom) {
  const __m128i ones = _mm_set1_epi8(1);
  const __m128i t = _mm_maddubs_epi16(_mm_loadu_si128(reinterpret_cast<const __m128i*>(top)), ones);
  const __m128i b =
      _mm_maddubs_epi16(_mm_loadu_si128(reinterpret_cast<const __m128i*>(bottom)), ones);
  return _mm_srli_epi16(_mm_add_epi16(t, b), 2);  // at most 255
}

struct Classes {
  __m128i t_biased, lo, hi, one, all;
  explicit Classes(int32_t threshold)
      : t_biased(_mm_set1_epi8(static_cast<char>(threshold ^ 0x80))),
        lo(_mm_set1_epi8(static_cast<char>(threshold < 4 ? 0 : threshold - 4))),
        hi(_mm_set1_epi8(static_cast<char>(threshold > 251 ? 255 : threshold + 4))),
        one(_mm_set1_epi8(1)),
        all(_mm_set1_epi8(-1)) {}
  // a > t, unsigned, as 0 or 1.
  __m128i bitmap(__m128i a) const {
    const __m128i biased = _mm_xor_si128(a, _mm_set1_epi8(static_cast<char>(0x80)));
    return _mm_and_si128(_mm_cmpgt_epi8(biased, t_biased), one);
  }
  // 0 inside [lo, hi], else 255.
  __m128i mask(__m128i a) const {
    const __m128i above_lo = _mm_cmpeq_epi8(_mm_max_epu8(a, lo), a);
    const __m128i below_hi = _mm_cmpeq_epi8(_mm_min_epu8(a, hi), a);
    return _mm_xor_si128(_mm_and_si128(above_lo, below_hi), all);
  }
};

}  // namespace

void WaveletMainRow_SSE41(const uint8_t* top, const uint8_t* bottom, uint8_t* approx,
                          uint8_t* bitmap, uint8_t* mask, int32_t blocks, int32_t threshold) {
  const Classes classes(threshold);
  int32_t b = 0;
  for (; b + 2 <= blocks; b += 2) {
    const int32_t in = b * 16, out = b * 8;
    const __m128i a = _mm_packus_epi16(block_means(top + in, bottom + in),
                                       block_means(top + in + 16, bottom + in + 16));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(approx + out), a);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(bitmap + out), classes.bitmap(a));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(mask + out), classes.mask(a));
  }
  if (b < blocks) {
    const int32_t in = b * 16, out = b * 8;
    const __m128i m = block_means(top + in, bottom + in);
    const __m128i a = _mm_packus_epi16(m, m);
    _mm_storel_epi64(reinterpret_cast<__m128i*>(approx + out), a);
    _mm_storel_epi64(reinterpret_cast<__m128i*>(bitmap + out), classes.bitmap(a));
    _mm_storel_epi64(reinterpret_cast<__m128i*>(mask + out), classes.mask(a));
  }
}

}  // namespace tavo
