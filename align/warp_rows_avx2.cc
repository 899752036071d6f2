// Widening of the crop rows with AVX2, 32 samples a step; a row of at least 32
// ends with one more step over its last 32, a shorter one takes the SSE4.1
// row.
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

}  // namespace tavo
