// Widening of the crop rows with AVX2, 32 samples a step; a row of at least 32
// ends with one more step over its last 32, a shorter one takes the SSE4.1
// row. Merging of chroma pairs, 32 pairs a step (the halves put in order
// before the in-lane unpacks) and 16 by one unpack; a row of at least 16 pairs
// ends with a step over its last 16, a shorter one pair by pair.
#include <immintrin.h>

#include "align/warp_rows.h"

namespace tavo {

namespace {

inline void widen16(const uint8_t* src, uint16_t* dst) {
  const __m256i v = _mm256_cvtepu8_epi16(_mm_loadu_si128(reinterpret_cast<const __m128i*>(src)));
  _mm256_storeu_si256(reinterpret_cast<__m256i*>(dst), _mm256_slli_epi16(v, 4));
}

inline void widen32(const uint8_t* src, uint16_t* dst) {
  widen16(src, dst);
  widen16(src + 16, dst + 16);
}

inline __m128i load16(const uint8_t* p) { return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p)); }

inline void merge16(const uint8_t* odd, const uint8_t* even, uint8_t* dst) {
  const __m256i e = _mm256_cvtepu8_epi16(load16(even)), o = _mm256_cvtepu8_epi16(load16(odd));
  _mm256_storeu_si256(reinterpret_cast<__m256i*>(dst), _mm256_or_si256(e, _mm256_slli_epi16(o, 8)));
}

}  // namespace

void WidenX16Row_AVX2(const uint8_t* src, uint16_t* dst, int32_t n) {
  if (n < 32) {
    WidenX16Row_SSE41(src, dst, n);
    return;
  }
  int32_t j = 0;
  for (; j + 32 <= n; j += 32) widen32(src + j, dst + j);
  if (j < n) widen32(src + n - 32, dst + n - 32);
}

void MergePairsRow_AVX2(const uint8_t* odd, const uint8_t* even, uint8_t* dst, int32_t n) {
  int32_t j = 0;
  for (; j + 32 <= n; j += 32) {
    // Quarters in the order 0 2 1 3: the in-lane unpacks give pairs 0-15 and 16-31.
    const __m256i e = _mm256_permute4x64_epi64(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(even + j)), 0xd8);
    const __m256i o = _mm256_permute4x64_epi64(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(odd + j)), 0xd8);
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(dst + 2 * j), _mm256_unpacklo_epi8(e, o));
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(dst + 2 * j + 32), _mm256_unpackhi_epi8(e, o));
  }
  for (; j + 16 <= n; j += 16) merge16(odd + j, even + j, dst + 2 * j);
  if (j == n) return;
  if (n >= 16) {
    merge16(odd + n - 16, even + n - 16, dst + 2 * (n - 16));
  } else {
    merge_pairs_from(odd, even, dst, j, n);
  }
}

}  // namespace tavo
