#include <arm_neon.h>

#include "align/wavelet_rows.h"

namespace tavo {
namespace {

// Means of the 2x2 blocks of 16 input columns: 8 outputs.
inline uint8x8_t block_means(const uint8_t* top, const uint8_t* bottom) {
  const uint16x8_t sums = vpadalq_u8(vpaddlq_u8(vld1q_u8(top)), vld1q_u8(bottom));
  return vshrn_n_u16(sums, 2);  // at most 1020 >> 2 = 255
}

}  // namespace

void WaveletMainRow_NEON(const uint8_t* top, const uint8_t* bottom, uint8_t* approx,
                         uint8_t* bitmap, uint8_t* mask, int32_t blocks, int32_t threshold) {
  const uint8x16_t t = vdupq_n_u8(static_cast<uint8_t>(threshold));
  const uint8x16_t lo = vdupq_n_u8(static_cast<uint8_t>(threshold < 4 ? 0 : threshold - 4));
  const uint8x16_t hi = vdupq_n_u8(static_cast<uint8_t>(threshold > 251 ? 255 : threshold + 4));
  const uint8x16_t one = vdupq_n_u8(1);
  int32_t b = 0;
  for (; b + 2 <= blocks; b += 2) {
    const int32_t in = b * 16, out = b * 8;
    const uint8x16_t a = vcombine_u8(block_means(top + in, bottom + in),
                                     block_means(top + in + 16, bottom + in + 16));
    const uint8x16_t inside = vandq_u8(vcgeq_u8(a, lo), vcleq_u8(a, hi));
    vst1q_u8(approx + out, a);
    vst1q_u8(bitmap + out, vandq_u8(vcgtq_u8(a, t), one));
    vst1q_u8(mask + out, vmvnq_u8(inside));
  }
  if (b < blocks) {
    const int32_t in = b * 16, out = b * 8;
    const uint8x8_t a = block_means(top + in, bottom + in);
    const uint8x8_t inside = vand_u8(vcge_u8(a, vget_low_u8(lo)), vcle_u8(a, vget_low_u8(hi)));
    vst1_u8(approx + out, a);
    vst1_u8(bitmap + out, vand_u8(vcgt_u8(a, vget_low_u8(t)), vget_low_u8(one)));
    vst1_u8(mask + out, vmvn_u8(inside));
  }
}

}  // namespace tavo
