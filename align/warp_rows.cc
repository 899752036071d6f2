#include "align/warp_rows.h"

#include "platform/cpu.h"

namespace tavo {

void WidenX16Row_C(const uint8_t* src, uint16_t* dst, int32_t n) {
  for (int32_t j = 0; j < n; ++j) dst[j] = static_cast<uint16_t>(src[j] << 4);
}

void SplitPairsRow_C(const uint8_t* src, uint8_t* odd, uint8_t* even, int32_t n) {
  for (int32_t j = 0; j < n; ++j) {
    even[j] = src[2 * j];
    odd[j] = src[2 * j + 1];
  }
}

WidenX16RowFn SelectWidenX16Row() {
  WidenX16RowFn row = WidenX16Row_C;
#if defined(__x86_64__)
  if (platform::TestCpuFlag(platform::kCpuHasSSE41)) row = WidenX16Row_SSE41;
#endif
#if defined(__aarch64__)
  if (platform::TestCpuFlag(platform::kCpuHasNEON)) row = WidenX16Row_NEON;
#endif
  return row;
}

SplitPairsRowFn SelectSplitPairsRow() {
  SplitPairsRowFn row = SplitPairsRow_C;
#if defined(__x86_64__)
  if (platform::TestCpuFlag(platform::kCpuHasSSE41)) row = SplitPairsRow_SSE41;
#endif
#if defined(__aarch64__)
  if (platform::TestCpuFlag(platform::kCpuHasNEON)) row = SplitPairsRow_NEON;
#endif
  return row;
}

}  // namespace tavo
