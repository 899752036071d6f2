#include <smmintrin.h>

#include "align/warp_rows.h"

namespace tavo {

void WidenX16Row_SSE41(const uint8_t* src, uint16_t* dst, int32_t n) {
  int32_t j = 0;
  for (; j + 16 <= n; j += 16) {
    const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src + j));
    const __m128i lo = _mm_slli_epi16(_mm_cvtepu8_epi16(v), 4);
    const __m128i hi = _mm_slli_epi16(_mm_cvtepu8_epi16(_mm_srli_si128(v, 8)), 4);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + j), lo);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + j + 8), hi);
  }
  WidenX16Row_C(src + j, dst + j, n - j);
}

void SplitPairsRow_SSE41(const uint8_t* src, uint8_t* odd, uint8_t* even, int32_t n) {
  const __m128i low_bytes = _mm_set1_epi16(0x00ff);
  int32_t j = 0;
  for (; j + 16 <= n; j += 16) {
    const __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src + 2 * j));
    const __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src + 2 * j + 16));
    const __m128i ev = _mm_packus_epi16(_mm_and_si128(a, low_bytes), _mm_and_si128(b, low_bytes));
    const __m128i od = _mm_packus_epi16(_mm_srli_epi16(a, 8), _mm_srli_epi16(b, 8));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(even + j), ev);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(odd + j), od);
  }
  SplitPairsRow_C(src + 2 * j, odd + j, even + j, n - j);
}

}  // namespace tavo
