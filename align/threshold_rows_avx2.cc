// Counts of the bytes above sixteen levels with AVX2: each byte is compared
// with the levels in signed form (both offset by 128) and the masks are
// subtracted into byte counters, which are summed into the totals every 255
// vectors. Eight levels are counted at a time over a block that stays in the
// first-level cache, then the other eight over the same block.
#include <immintrin.h>

#include "align/threshold_rows.h"

namespace tavo {
namespace {

constexpr size_t kBlockVectors = 255;  // a byte counter holds up to 255

// Adds the counts of one block's vectors for levels first ... first + 7.
inline void count_block(const uint8_t* src, size_t vectors, const uint8_t* levels, int first,
                        uint64_t* above) {
  const __m256i bias = _mm256_set1_epi8(static_cast<char>(0x80));
  __m256i level[8], count[8];
  for (int k = 0; k < 8; ++k) {
    level[k] = _mm256_set1_epi8(static_cast<char>(levels[first + k] ^ 0x80));
    count[k] = _mm256_setzero_si256();
  }
  for (size_t v = 0; v < vectors; ++v) {
    const __m256i x =
        _mm256_xor_si256(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(src + 32 * v)), bias);
#pragma GCC unroll 8
    for (int k = 0; k < 8; ++k) count[k] = _mm256_sub_epi8(count[k], _mm256_cmpgt_epi8(x, level[k]));
  }
  for (int k = 0; k < 8; ++k) {
    const __m256i sums = _mm256_sad_epu8(count[k], _mm256_setzero_si256());
    const __m128i pair = _mm_add_epi64(_mm256_castsi256_si128(sums), _mm256_extracti128_si256(sums, 1));
    above[first + k] += static_cast<uint64_t>(_mm_cvtsi128_si64(pair)) +
                        static_cast<uint64_t>(_mm_extract_epi64(pair, 1));
  }
}

}  // namespace

void CountAboveRow_AVX2(const uint8_t* src, size_t n, const uint8_t* levels, uint64_t* above) {
  const size_t vectors = n / 32;
  for (size_t v = 0; v < vectors; v += kBlockVectors) {
    const size_t block = vectors - v < kBlockVectors ? vectors - v : kBlockVectors;
    count_block(src + 32 * v, block, levels, 0, above);
    count_block(src + 32 * v, block, levels, 8, above);
  }
  if (n % 32 != 0) CountAboveRow_C(src + 32 * vectors, n % 32, levels, above);
}

}  // namespace tavo
