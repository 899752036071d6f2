// The bitmap comparison of align/mismatch_rows.h, 32 pixels a step with AVX2:
// the selects as byte blends, the bit count through a nibble table and sums of
// absolute differences. A row of at least 32 pixels ends with one more step
// over its last 32, the pixels already counted masked out.
#include <immintrin.h>

#include "align/mismatch_rows.h"

namespace tavo {

namespace {

// Bytes 32 ... 63 set: 32 bytes loaded from `tail` on keep the last `tail`.
alignas(64) constexpr uint8_t kLastBytes[64] = {
    0,    0,    0,    0,    0,    0,    0,    0,    0,    0,    0,    0,    0,    0,    0,    0,
    0,    0,    0,    0,    0,    0,    0,    0,    0,    0,    0,    0,    0,    0,    0,    0,
    0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff,
    0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff};

inline __m256i load(const uint8_t* p) { return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p)); }

// The 32 per-pixel results f of the pixels from j.
inline __m256i mismatch32(const uint8_t* moving_mask, const uint8_t* moving_bitmap, const uint8_t* ref_bitmap,
                          const uint8_t* ref_mask, int32_t j) {
  const __m256i one = _mm256_set1_epi8(1);
  const __m256i d = _mm256_xor_si256(load(moving_bitmap + j), load(ref_bitmap + j));
  const __m256i e = _mm256_blendv_epi8(d, one, _mm256_cmpeq_epi8(load(moving_mask + j), d));
  return _mm256_blendv_epi8(e, one, _mm256_cmpeq_epi8(load(ref_mask + j), e));
}

// Set bits of the 32 bytes, as four 64-bit partial sums.
inline __m256i bit_sums(__m256i f) {
  const __m256i nibble = _mm256_set1_epi8(0x0f);
  const __m256i bits = _mm256_setr_epi8(0, 1, 1, 2, 1, 2, 2, 3, 1, 2, 2, 3, 2, 3, 3, 4,
                                        0, 1, 1, 2, 1, 2, 2, 3, 1, 2, 2, 3, 2, 3, 3, 4);
  const __m256i low = _mm256_shuffle_epi8(bits, _mm256_and_si256(f, nibble));
  const __m256i high = _mm256_shuffle_epi8(bits, _mm256_and_si256(_mm256_srli_epi16(f, 4), nibble));
  return _mm256_sad_epu8(_mm256_add_epi8(low, high), _mm256_setzero_si256());
}

// A row of at least 32 pixels.
uint32_t row(const uint8_t* moving_mask, const uint8_t* moving_bitmap, const uint8_t* ref_bitmap,
             const uint8_t* ref_mask, int32_t n) {
  __m256i sums = _mm256_setzero_si256();  // four 64-bit lanes
  int32_t j = 0;
  for (; j + 32 <= n; j += 32) {
    sums = _mm256_add_epi64(sums, bit_sums(mismatch32(moving_mask, moving_bitmap, ref_bitmap, ref_mask, j)));
  }
  if (j < n) {
    const __m256i f = mismatch32(moving_mask, moving_bitmap, ref_bitmap, ref_mask, n - 32);
    sums = _mm256_add_epi64(sums, bit_sums(_mm256_and_si256(f, load(kLastBytes + (n - j)))));
  }
  const __m128i halves = _mm_add_epi64(_mm256_castsi256_si128(sums), _mm256_extracti128_si256(sums, 1));
  return static_cast<uint32_t>(static_cast<uint64_t>(_mm_cvtsi128_si64(halves)) +
                               static_cast<uint64_t>(_mm_extract_epi64(halves, 1)));
}

}  // namespace

uint32_t MismatchRows_AVX2(const uint8_t* moving_mask, const uint8_t* moving_bitmap, const uint8_t* ref_bitmap,
                           const uint8_t* ref_mask, int32_t n, int32_t rows, ptrdiff_t stride) {
  if (n < 32) return MismatchRows_SSE41(moving_mask, moving_bitmap, ref_bitmap, ref_mask, n, rows, stride);
  return score_rows(row, moving_mask, moving_bitmap, ref_bitmap, ref_mask, n, rows, stride);
}

}  // namespace tavo
