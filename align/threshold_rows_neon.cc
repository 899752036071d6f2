// Counts of the bytes above sixteen levels with NEON: unsigned byte compares
// subtracted into byte counters for all sixteen levels at once, summed into
// the totals every 255 vectors.
#include <arm_neon.h>

#include "align/threshold_rows.h"

namespace tavo {

void CountAboveRow_NEON(const uint8_t* src, size_t n, const uint8_t* levels, uint64_t* above) {
  constexpr size_t kBlockVectors = 255;  // a byte counter holds up to 255
  uint8x16_t level[kThresholdLevels];
  for (int k = 0; k < kThresholdLevels; ++k) level[k] = vdupq_n_u8(levels[k]);
  const size_t vectors = n / 16;
  for (size_t v = 0; v < vectors; v += kBlockVectors) {
    const size_t block = vectors - v < kBlockVectors ? vectors - v : kBlockVectors;
    uint8x16_t count[kThresholdLevels];
    for (int k = 0; k < kThresholdLevels; ++k) count[k] = vdupq_n_u8(0);
    for (size_t b = 0; b < block; ++b) {
      const uint8x16_t x = vld1q_u8(src + 16 * (v + b));
      for (int k = 0; k < kThresholdLevels; ++k) count[k] = vsubq_u8(count[k], vcgtq_u8(x, level[k]));
    }
    for (int k = 0; k < kThresholdLevels; ++k) above[k] += vaddlvq_u8(count[k]);
  }
  if (n % 16 != 0) CountAboveRow_C(src + 16 * vectors, n % 16, levels, above);
}

}  // namespace tavo
