#include "align/warp_rows.h"

#include "platform/cpu.h"

namespace tavo {

void widen_x16_row_c(const uint8_t* src, uint16_t* dst, int32_t n) {
  for (int32_t j = 0; j < n; ++j) dst[j] = static_cast<uint16_t>(src[j] << 4);
}

void split_pairs_row_c(const uint8_t* src, uint8_t* odd, uint8_t* even, int32_t n) {
  for (int32_t j = 0; j < n; ++j) {
    even[j] = src[2 * j];
    odd[j] = src[2 * j + 1];
  }
}

WidenRow pick_widen_row() {
  using platform::Isa;
#if defined(__aarch64__)
  if (platform::cpu_has(Isa::kNeon)) return widen_x16_row_neon;
#endif
#if defined(__x86_64__)
  if (platform::cpu_has(Isa::kSse41)) return widen_x16_row_sse41;
#endif
  return widen_x16_row_c;
}

SplitPairsRow pick_split_pairs_row() {
  using platform::Isa;
#if defined(__aarch64__)
  if (platform::cpu_has(Isa::kNeon)) return split_pairs_row_neon;
#endif
#if defined(__x86_64__)
  if (platform::cpu_has(Isa::kSse41)) return split_pairs_row_sse41;
#endif
  return split_pairs_row_c;
}

}  // namespace tavo
