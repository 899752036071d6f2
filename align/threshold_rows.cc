#include "align/threshold_rows.h"

#include "platform/cpu.h"

namespace tavo {

void count_above_row_c(const uint8_t* src, size_t n, const uint8_t* levels, uint64_t* above) {
  for (int k = 0; k < kThresholdLevels; ++k) {
    uint64_t count = 0;
    for (size_t i = 0; i < n; ++i) count += src[i] > levels[k] ? 1 : 0;
    above[k] += count;
  }
}

CountAboveRow pick_count_above_row() {
  using platform::Isa;
#if defined(__aarch64__)
  if (platform::cpu_has(Isa::kNeon)) return count_above_row_neon;
#endif
#if defined(__x86_64__)
  if (platform::cpu_has(Isa::kAvx2)) return count_above_row_avx2;
#endif
  return count_above_row_c;
}

}  // namespace tavo
