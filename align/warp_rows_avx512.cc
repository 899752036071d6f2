// Widening of the crop rows with AVX-512, 32 samples a step (a widening load);
// the last fewer by a masked load and store.
#include <immintrin.h>

#include "align/warp_rows.h"

namespace tavo {

void WidenX16Row_AVX512(const uint8_t* src, uint16_t* dst, int32_t n) {
  int32_t j = 0;
  for (; j + 32 <= n; j += 32) {
    const __m512i v = _mm512_cvtepu8_epi16(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(src + j)));
    _mm512_storeu_si512(dst + j, _mm512_slli_epi16(v, 4));
  }
  if (j < n) {
    const __mmask32 keep = (__mmask32{1} << (n - j)) - 1;
    const __m512i v = _mm512_cvtepu8_epi16(_mm256_maskz_loadu_epi8(keep, src + j));
    _mm512_mask_storeu_epi16(dst + j, keep, _mm512_slli_epi16(v, 4));
  }
}

}  // namespace tavo
