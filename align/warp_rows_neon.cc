#include <arm_neon.h>

#include "align/warp_rows.h"

namespace tavo {

void WidenX16Row_NEON(const uint8_t* src, uint16_t* dst, int32_t n) {
  int32_t j = 0;
  for (; j + 16 <= n; j += 16) {
    const uint8x16_t v = vld1q_u8(src + j);
    vst1q_u16(dst + j, vshll_n_u8(vget_low_u8(v), 4));
    vst1q_u16(dst + j + 8, vshll_n_u8(vget_high_u8(v), 4));
  }
  for (; j + 8 <= n; j += 8) vst1q_u16(dst + j, vshll_n_u8(vld1_u8(src + j), 4));
  WidenX16Row_C(src + j, dst + j, n - j);
}

void SplitPairsRow_NEON(const uint8_t* src, uint8_t* odd, uint8_t* even, int32_t n) {
  int32_t j = 0;
  for (; j + 16 <= n; j += 16) {
    const uint8x16x2_t v = vld2q_u8(src + 2 * j);
    vst1q_u8(even + j, v.val[0]);
    vst1q_u8(odd + j, v.val[1]);
  }
  for (; j + 8 <= n; j += 8) {
    const uint8x8x2_t v = vld2_u8(src + 2 * j);
    vst1_u8(even + j, v.val[0]);
    vst1_u8(odd + j, v.val[1]);
  }
  SplitPairsRow_C(src + 2 * j, odd + j, even + j, n - j);
}

}  // namespace tavo
