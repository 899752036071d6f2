// Counts of the bytes above eight consecutive levels with NEON: each byte
// becomes the index e of align/threshold_rows.h by one saturating subtract,
// and four table look-ups add its counts of two levels each into nibble
// counters, spread into 16-bit counters by pairwise widening adds every 15
// vectors. The last bytes are counted by one more vector over the row's last
// 16 (or a copy of a shorter row), the bytes already counted sent past the
// tables.
#include <arm_neon.h>

#include "align/threshold_rows.h"

namespace tavo {
namespace {

constexpr int kTables = kThresholdLevels / 2;
// Spreads a 16-bit counter takes (30 each at most) before it is summed.
constexpr size_t kSpreadsPerSum = 2048;

// 0x80 in bytes 0 ... 15, 0 after: 16 bytes loaded from r on mark all but the
// last r.
alignas(16) constexpr uint8_t kSkipFirst[32] = {0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80,
                                                0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80};

struct Counters {
  uint8x16_t table[kTables];
  uint8x16_t c;
  uint16x8_t wide[kThresholdLevels] = {};

  explicit Counters(int32_t first) {
    const CountAboveWindow w = count_above_window(first);
    for (int a = 0; a < kTables; ++a) table[a] = vld1q_u8(w.tables->nibbles[a]);
    c = vdupq_n_u8(w.c);
  }
  // Counts the bytes of e (the indices) into the nibble counters.
  void add(uint8x16_t e, uint8x16_t* nibbles) const {
#pragma GCC unroll 4
    for (int a = 0; a < kTables; ++a) nibbles[a] = vaddq_u8(nibbles[a], vqtbl1q_u8(table[a], e));
  }
  void spread(const uint8x16_t* nibbles) {
#pragma GCC unroll 4
    for (int a = 0; a < kTables; ++a) {
      wide[2 * a] = vpadalq_u8(wide[2 * a], vandq_u8(nibbles[a], vdupq_n_u8(0x0f)));
      wide[2 * a + 1] = vpadalq_u8(wide[2 * a + 1], vshrq_n_u8(nibbles[a], 4));
    }
  }
  void sum_into(uint64_t* above) {
    for (int k = 0; k < kThresholdLevels; ++k) {
      above[k] += vaddlvq_u16(wide[k]);
      wide[k] = vdupq_n_u16(0);
    }
  }
};

}  // namespace

void CountAboveRow_NEON(const uint8_t* src, size_t n, int32_t first, uint64_t* above) {
  Counters counters(first);
  const size_t vectors = n / 16;
  size_t v = 0;
  while (v < vectors) {
    for (size_t s = 0; s < kSpreadsPerSum && v < vectors; ++s) {
      const size_t end = vectors - v < kNibbleVectors ? vectors : v + kNibbleVectors;
      uint8x16_t nibbles[kTables] = {};
#pragma GCC unroll 3
      for (; v < end; ++v) counters.add(vqsubq_u8(counters.c, vld1q_u8(src + 16 * v)), nibbles);
      counters.spread(nibbles);
    }
    counters.sum_into(above);
  }
  const size_t r = n % 16;
  if (r == 0) return;
  uint8_t copy[16] = {};
  uint8x16_t nibbles[kTables] = {};
  counters.add(vorrq_u8(vqsubq_u8(counters.c, vld1q_u8(last_bytes(src, n, copy, 16))), vld1q_u8(kSkipFirst + r)),
               nibbles);
  counters.spread(nibbles);
  counters.sum_into(above);
}

}  // namespace tavo
