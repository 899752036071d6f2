#include <smmintrin.h>

#include "align/mismatch_rows.h"

namespace tavo {

namespace {

uint32_t row(const uint8_t* moving_mask, const uint8_t* moving_bitmap, const uint8_t* ref_bitmap,
             const uint8_t* ref_mask, int32_t n) {
  auto load = [](const uint8_t* p) { return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p)); };
  const __m128i one = _mm_set1_epi8(1);
  const __m128i nibble = _mm_set1_epi8(0x0f);
  const __m128i bits = _mm_setr_epi8(0, 1, 1, 2, 1, 2, 2, 3, 1, 2, 2, 3, 2, 3, 3, 4);
  const __m128i zero = _mm_setzero_si128();
  __m128i sums = zero;  // two 64-bit lanes
  int32_t j = 0;
  for (; j + 16 <= n; j += 16) {
    const __m128i d = _mm_xor_si128(load(moving_bitmap + j), load(ref_bitmap + j));
    const __m128i e = _mm_blendv_epi8(d, one, _mm_cmpeq_epi8(load(moving_mask + j), d));
    const __m128i f = _mm_blendv_epi8(e, one, _mm_cmpeq_epi8(load(ref_mask + j), e));
    const __m128i low = _mm_shuffle_epi8(bits, _mm_and_si128(f, nibble));
    const __m128i high = _mm_shuffle_epi8(bits, _mm_and_si128(_mm_srli_epi16(f, 4), nibble));
    sums = _mm_add_epi64(sums, _mm_sad_epu8(_mm_add_epi8(low, high), zero));
  }
  const uint64_t vector_sum = static_cast<uint64_t>(_mm_cvtsi128_si64(sums)) +
                              static_cast<uint64_t>(_mm_extract_epi64(sums, 1));
  return static_cast<uint32_t>(vector_sum) +
         MismatchRows_C(moving_mask + j, moving_bitmap + j, ref_bitmap + j, ref_mask + j, n - j, 1, 0);
}

}  // namespace

uint32_t MismatchRows_SSE41(const uint8_t* moving_mask, const uint8_t* moving_bitmap, const uint8_t* ref_bitmap,
                            const uint8_t* ref_mask, int32_t n, int32_t rows, ptrdiff_t stride) {
  return score_rows(row, moving_mask, moving_bitmap, ref_bitmap, ref_mask, n, rows, stride);
}

}  // namespace tavo
