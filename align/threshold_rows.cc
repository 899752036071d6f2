#include "align/threshold_rows.h"

namespace tavo {

void CountAboveRow_C(const uint8_t* src, size_t n, int32_t first, uint64_t* above) {
  for (int32_t k = 0; k < kThresholdLevels; ++k) {
    uint64_t count = 0;
    for (size_t i = 0; i < n; ++i) count += src[i] > first + k ? 1 : 0;
    above[k] += count;
  }
}

}  // namespace tavo
