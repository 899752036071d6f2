// The main part of a wavelet row with AVX2, 64 input columns (32 outputs) a
// step; a last run of fewer takes the SSE4.1 row, which gives the same bytes.
#include <immintrin.h>

#include "align/wavelet_rows.h"

namespace tavo {
namespace {

// Means of the 2x2 blocks of 32 input columns, as 16 16-bit lanes: columns
// 0 ... 15 in the low half, 16 ... 31 in the high half.
inline __m256i block_means(const uint8_t* top, const uint8_t* bottom) {
  const __m256i ones = _mm256_set1_epi8(1);
  const __m256i t = _mm256_maddubs_epi16(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(top)), ones);
  const __m256i b = _mm256_maddubs_epi16(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(bottom)), ones);
  return _mm256_srli_epi16(_mm256_add_epi16(t, b), 2);  // at most 255
}

}  // namespace

void WaveletMainRow_AVX2(const uint8_t* top, const uint8_t* bottom, uint8_t* approx,
                         uint8_t* bitmap, uint8_t* mask, int32_t blocks, int32_t threshold) {
  const __m256i t_biased = _mm256_set1_epi8(static_cast<char>(threshold ^ 0x80));
  const __m256i lo = _mm256_set1_epi8(static_cast<char>(threshold < 4 ? 0 : threshold - 4));
  const __m256i hi = _mm256_set1_epi8(static_cast<char>(threshold > 251 ? 255 : threshold + 4));
  const __m256i bias = _mm256_set1_epi8(static_cast<char>(0x80));
  const __m256i one = _mm256_set1_epi8(1);
  int32_t b = 0;
  for (; b + 4 <= blocks; b += 4) {
    const int32_t in = b * 16, out = b * 8;
    // Packing works within 128-bit halves; the permute puts the 32 means in order.
    const __m256i a = _mm256_permute4x64_epi64(
        _mm256_packus_epi16(block_means(top + in, bottom + in), block_means(top + in + 32, bottom + in + 32)), 0xd8);
    // a > t, unsigned, as 0 or 1; 0 inside [lo, hi], else 255.
    const __m256i above = _mm256_and_si256(_mm256_cmpgt_epi8(_mm256_xor_si256(a, bias), t_biased), one);
    const __m256i inside = _mm256_and_si256(_mm256_cmpeq_epi8(_mm256_max_epu8(a, lo), a),
                                            _mm256_cmpeq_epi8(_mm256_min_epu8(a, hi), a));
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(approx + out), a);
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(bitmap + out), above);
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(mask + out), _mm256_xor_si256(inside, _mm256_set1_epi8(-1)));
  }
  if (b < blocks) {
    WaveletMainRow_SSE41(top + b * 16, bottom + b * 16, approx + b * 8, bitmap + b * 8, mask + b * 8,
                         blocks - b, threshold);
  }
}

}  // namespace tavo
