// Counts of the bytes above eight consecutive levels with AVX2: each byte
// becomes the index e of align/threshold_rows.h (a saturating subtract, and a
// saturating add of 0x70 that sets the top bit of every e of 16 or more, which
// the byte shuffle turns into 0), and four shuffles add its counts of two
// levels each into nibble counters, summed by sums of absolute differences
// every 15 vectors. The last bytes are counted by one more vector over the
// row's last 32 (or a copy of a shorter row), the bytes already counted marked
// by the top bit.
#include <immintrin.h>

#include "align/threshold_rows.h"

namespace tavo {
namespace {

constexpr int kTables = kThresholdLevels / 2;

// 0x80 in bytes 0 ... 31, 0 after: 32 bytes loaded from r on mark all but the
// last r.
alignas(64) constexpr uint8_t kSkipFirst[64] = {
    0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80,
    0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80};

inline __m256i load(const uint8_t* p) { return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p)); }

struct Counters {
  __m256i table[kTables];
  __m256i c;
  __m256i sums[kThresholdLevels];  // four 64-bit lanes each

  explicit Counters(int32_t first) {
    const CountAboveWindow w = count_above_window(first);
    for (int a = 0; a < kTables; ++a) {
      table[a] = _mm256_broadcastsi128_si256(_mm_loadu_si128(reinterpret_cast<const __m128i*>(w.tables->nibbles[a])));
    }
    c = _mm256_set1_epi8(static_cast<char>(w.c));
    for (__m256i& s : sums) s = _mm256_setzero_si256();
  }
  __m256i index(__m256i x) const {
    return _mm256_adds_epu8(_mm256_subs_epu8(c, x), _mm256_set1_epi8(0x70));
  }
  void add(__m256i e, __m256i* nibbles) const {
#pragma GCC unroll 4
    for (int a = 0; a < kTables; ++a) nibbles[a] = _mm256_add_epi8(nibbles[a], _mm256_shuffle_epi8(table[a], e));
  }
  void spread(const __m256i* nibbles) {
    const __m256i low = _mm256_set1_epi8(0x0f), zero = _mm256_setzero_si256();
#pragma GCC unroll 4
    for (int a = 0; a < kTables; ++a) {
      const __m256i lo = _mm256_and_si256(nibbles[a], low);
      const __m256i hi = _mm256_and_si256(_mm256_srli_epi16(nibbles[a], 4), low);
      sums[2 * a] = _mm256_add_epi64(sums[2 * a], _mm256_sad_epu8(lo, zero));
      sums[2 * a + 1] = _mm256_add_epi64(sums[2 * a + 1], _mm256_sad_epu8(hi, zero));
    }
  }
  void sum_into(uint64_t* above) const {
    for (int k = 0; k < kThresholdLevels; ++k) {
      const __m128i pair = _mm_add_epi64(_mm256_castsi256_si128(sums[k]), _mm256_extracti128_si256(sums[k], 1));
      above[k] += static_cast<uint64_t>(_mm_cvtsi128_si64(pair)) + static_cast<uint64_t>(_mm_extract_epi64(pair, 1));
    }
  }
};

}  // namespace

void CountAboveRow_AVX2(const uint8_t* src, size_t n, int32_t first, uint64_t* above) {
  Counters counters(first);
  const size_t vectors = n / 32;
  for (size_t v = 0; v < vectors;) {
    const size_t end = vectors - v < kNibbleVectors ? vectors : v + kNibbleVectors;
    __m256i nibbles[kTables] = {};
#pragma GCC unroll 3
    for (; v < end; ++v) counters.add(counters.index(load(src + 32 * v)), nibbles);
    counters.spread(nibbles);
  }
  if (const size_t r = n % 32; r != 0) {
    uint8_t copy[32] = {};
    __m256i nibbles[kTables] = {};
    counters.add(_mm256_or_si256(counters.index(load(last_bytes(src, n, copy, 32))), load(kSkipFirst + r)), nibbles);
    counters.spread(nibbles);
  }
  counters.sum_into(above);
}

}  // namespace tavo
