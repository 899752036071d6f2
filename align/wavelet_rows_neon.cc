// The main part of a wavelet row with NEON, 64 input columns (32 outputs) a
// step through four-register loads and two-register stores; a last run of 32
// or 16 columns takes one narrower step each. The means by pairwise widening
// adds and narrowing shifts; the mask by one compare, as a - lo (wrapping)
// lies above hi - lo exactly when a lies outside [lo, hi].
#include <arm_neon.h>

#include "align/wavelet_rows.h"

namespace tavo {
namespace {

// Means of the 2x2 blocks of 16 input columns: 8 outputs, 16-bit.
inline uint16x8_t block_sums(uint8x16_t top, uint8x16_t bottom) { return vpadalq_u8(vpaddlq_u8(top), bottom); }

// Means of the 2x2 blocks of 32 input columns: 16 outputs.
inline uint8x16_t block_means(uint8x16_t top0, uint8x16_t top1, uint8x16_t bottom0, uint8x16_t bottom1) {
  // at most 1020 >> 2 = 255
  return vshrn_high_n_u16(vshrn_n_u16(block_sums(top0, bottom0), 2), block_sums(top1, bottom1), 2);
}

struct Classes {
  uint8x16_t t, lo, span;
  explicit Classes(int32_t threshold)
      : t(vdupq_n_u8(static_cast<uint8_t>(threshold))),
        lo(vdupq_n_u8(static_cast<uint8_t>(threshold < 4 ? 0 : threshold - 4))),
        span(vsubq_u8(vdupq_n_u8(static_cast<uint8_t>(threshold > 251 ? 255 : threshold + 4)), lo)) {}
  // a > t as 0 or 1.
  uint8x16_t bitmap(uint8x16_t a) const { return vshrq_n_u8(vcgtq_u8(a, t), 7); }
  // 0 inside [lo, hi], else 255.
  uint8x16_t mask(uint8x16_t a) const { return vcgtq_u8(vsubq_u8(a, lo), span); }
};

}  // namespace

void WaveletMainRow_NEON(const uint8_t* top, const uint8_t* bottom, uint8_t* approx,
                         uint8_t* bitmap, uint8_t* mask, int32_t blocks, int32_t threshold) {
  const Classes classes(threshold);
  int32_t b = 0;
  for (; b + 4 <= blocks; b += 4) {
    const int32_t in = b * 16, out = b * 8;
    const uint8x16x4_t t = vld1q_u8_x4(top + in), d = vld1q_u8_x4(bottom + in);
    const uint8x16x2_t a = {{block_means(t.val[0], t.val[1], d.val[0], d.val[1]),
                             block_means(t.val[2], t.val[3], d.val[2], d.val[3])}};
    vst1q_u8_x2(approx + out, a);
    vst1q_u8_x2(bitmap + out, (uint8x16x2_t{{classes.bitmap(a.val[0]), classes.bitmap(a.val[1])}}));
    vst1q_u8_x2(mask + out, (uint8x16x2_t{{classes.mask(a.val[0]), classes.mask(a.val[1])}}));
  }
  if (b + 2 <= blocks) {
    const int32_t in = b * 16, out = b * 8;
    const uint8x16x2_t t = vld1q_u8_x2(top + in), d = vld1q_u8_x2(bottom + in);
    const uint8x16_t a = block_means(t.val[0], t.val[1], d.val[0], d.val[1]);
    vst1q_u8(approx + out, a);
    vst1q_u8(bitmap + out, classes.bitmap(a));
    vst1q_u8(mask + out, classes.mask(a));
    b += 2;
  }
  if (b < blocks) {
    const int32_t in = b * 16, out = b * 8;
    const uint8x8_t a = vshrn_n_u16(block_sums(vld1q_u8(top + in), vld1q_u8(bottom + in)), 2);
    const uint8x16_t a2 = vcombine_u8(a, a);
    vst1_u8(approx + out, a);
    vst1_u8(bitmap + out, vget_low_u8(classes.bitmap(a2)));
    vst1_u8(mask + out, vget_low_u8(classes.mask(a2)));
  }
}

}  // namespace tavo
