// Counts of the bytes above eight consecutive levels with AVX-512, as the
// AVX2 row counts them, 64 bytes a vector; the last bytes by a masked load and
// masked shuffles.
#include <immintrin.h>

#include "align/threshold_rows.h"

namespace tavo {
namespace {

constexpr int kTables = kThresholdLevels / 2;

struct Counters {
  __m512i table[kTables];
  __m512i c;
  __m512i sums[kThresholdLevels];  // eight 64-bit lanes each

  explicit Counters(int32_t first) {
    const CountAboveWindow w = count_above_window(first);
    for (int a = 0; a < kTables; ++a) {  // in every 128-bit lane, which the shuffle reads
      table[a] = _mm512_maskz_broadcast_i32x4(~__mmask16{0}, _mm_loadu_si128(reinterpret_cast<const __m128i*>(w.tables->nibbles[a])));
    }
    c = _mm512_set1_epi8(static_cast<char>(w.c));
    for (__m512i& s : sums) s = _mm512_setzero_si512();
  }
  // Every e of 16 or more gets its top bit set, which the shuffle turns into 0.
  __m512i index(__m512i x) const {
    return _mm512_adds_epu8(_mm512_subs_epu8(c, x), _mm512_set1_epi8(0x70));
  }
  void add(__m512i e, __m512i* nibbles, __mmask64 keep = ~__mmask64{0}) const {
#pragma GCC unroll 4
    for (int a = 0; a < kTables; ++a) {
      nibbles[a] = _mm512_add_epi8(nibbles[a], _mm512_maskz_shuffle_epi8(keep, table[a], e));
    }
  }
  void spread(const __m512i* nibbles) {
    const __m512i low = _mm512_set1_epi8(0x0f), zero = _mm512_setzero_si512();
#pragma GCC unroll 4
    for (int a = 0; a < kTables; ++a) {
      const __m512i lo = _mm512_and_si512(nibbles[a], low);
      const __m512i hi = _mm512_and_si512(_mm512_srli_epi16(nibbles[a], 4), low);
      sums[2 * a] = _mm512_add_epi64(sums[2 * a], _mm512_sad_epu8(lo, zero));
      sums[2 * a + 1] = _mm512_add_epi64(sums[2 * a + 1], _mm512_sad_epu8(hi, zero));
    }
  }
  void sum_into(uint64_t* above) const {
    for (int k = 0; k < kThresholdLevels; ++k) {
      uint64_t lanes[8];
      _mm512_storeu_si512(lanes, sums[k]);
      for (uint64_t lane : lanes) above[k] += lane;
    }
  }
};

}  // namespace

void CountAboveRow_AVX512(const uint8_t* src, size_t n, int32_t first, uint64_t* above) {
  Counters counters(first);
  const size_t vectors = n / 64;
  for (size_t v = 0; v < vectors;) {
    const size_t end = vectors - v < kNibbleVectors ? vectors : v + kNibbleVectors;
    __m512i nibbles[kTables] = {};
#pragma GCC unroll 3
    for (; v < end; ++v) counters.add(counters.index(_mm512_loadu_si512(src + 64 * v)), nibbles);
    counters.spread(nibbles);
  }
  if (const size_t r = n % 64; r != 0) {
    const __mmask64 keep = (__mmask64{1} << r) - 1;
    __m512i nibbles[kTables] = {};
    counters.add(counters.index(_mm512_maskz_loadu_epi8(keep, src + 64 * vectors)), nibbles, keep);
    counters.spread(nibbles);
  }
  counters.sum_into(above);
}

}  // namespace tavo
