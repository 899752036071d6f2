#include <arm_neon.h>

#include "align/mismatch_rows.h"

namespace tavo {

uint32_t MismatchRow_NEON(const uint8_t* moving_mask, const uint8_t* moving_bitmap,
                          const uint8_t* ref_bitmap, const uint8_t* ref_mask, int32_t n) {
  const uint8x16_t one = vdupq_n_u8(1);
  uint32x4_t sums = vdupq_n_u32(0);
  int32_t j = 0;
  for (; j + 16 <= n; j += 16) {
    const uint8x16_t d = veorq_u8(vld1q_u8(moving_bitmap + j), vld1q_u8(ref_bitmap + j));
    const uint8x16_t e = vbslq_u8(vceqq_u8(vld1q_u8(moving_mask + j), d), one, d);
    const uint8x16_t f = vbslq_u8(vceqq_u8(vld1q_u8(ref_mask + j), e), one, e);
    sums = vpadalq_u16(sums, vpaddlq_u8(vcntq_u8(f)));
  }
  return vaddvq_u32(sums) +
         MismatchRow_C(moving_mask + j, moving_bitmap + j, ref_bitmap + j, ref_mask + j, n - j);
}

}  // namespace tavo
