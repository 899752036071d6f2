// Grouped blending rule, eight samples per step with NEON: the contrast
// stencil in 16-bit lanes, eight scalar table look-ups through a stack array,
// widening multiply-accumulates into 32-bit lanes, and the division through
// the processor's reciprocal estimate refined by one step.
#include <arm_neon.h>

#include "fusion/blend_rows.h"
#include "platform/arm_float_neon.h"
#include "platform/fixed_point_mean.h"

namespace tavo {

namespace {

// Four lanes of the grouped rule: S * r1(W), +-0.5 by sign, converted with
// saturation and narrowed to the low 16 bits.
inline int16x4_t grouped_quotient(uint32x4_t w_sum, uint32x4_t s_sum) {
  const float32x4_t r1 = arm::neon::refined_reciprocal(vcvtq_f32_s32(vreinterpretq_s32_u32(w_sum)));
  float32x4_t q = vmulq_f32(vcvtq_f32_s32(vreinterpretq_s32_u32(s_sum)), r1);
  const uint32x4_t non_negative = vcgeq_f32(q, vdupq_n_f32(0.0f));
  q = vaddq_f32(q, vbslq_f32(non_negative, vdupq_n_f32(0.5f), vdupq_n_f32(-0.5f)));
  return vmovn_s32(vcvtq_s32_f32(q));
}

}  // namespace

void BlendGroups_NEON(const BlendRowArgs& row, int32_t x0, int32_t count) {
  const uint16x8_t one = vdupq_n_u16(1);
  for (int32_t x = x0; x < x0 + count; x += 8) {
    // The sums wrap: accumulate in unsigned lanes.
    uint32x4_t w_lo = vdupq_n_u32(0), w_hi = w_lo, s_lo = w_lo, s_hi = w_lo;
    for (int32_t f = 0; f < row.frames; ++f) {
      const uint16_t* g = row.gauss[f] + row.gauss_offset + x;
      const uint16x8_t centre = vld1q_u16(g);
      uint16_t index[8];
      vst1q_u16(index, vminq_u16(vrshrq_n_u16(centre, 4), vdupq_n_u16(255)));
      int16_t factor[8];
      for (int k = 0; k < 8; ++k) factor[k] = static_cast<int16_t>(row.factors[index[k]]);
      const int16x8_t exposure = vld1q_s16(factor);

      const uint16x8_t around = vaddq_u16(vaddq_u16(vld1q_u16(g - row.up), vld1q_u16(g + row.down)),
                                          vaddq_u16(vld1q_u16(g - 1), vld1q_u16(g + 1)));
      const int16x8_t d = vreinterpretq_s16_u16(vsubq_u16(around, vshlq_n_u16(centre, 2)));
      const uint16x8_t magnitude = vreinterpretq_u16_s16(vabsq_s16(d));
      const int16x8_t contrast = vreinterpretq_s16_u16(vmaxq_u16(vshrq_n_u16(magnitude, 6), one));

      const uint32x4_t wl = vreinterpretq_u32_s32(vmull_s16(vget_low_s16(exposure), vget_low_s16(contrast)));
      const uint32x4_t wh = vreinterpretq_u32_s32(vmull_high_s16(exposure, contrast));
      const int16x8_t lap = vld1q_s16(row.lap[f] + row.lap_offset + x);
      w_lo = vaddq_u32(w_lo, wl);
      w_hi = vaddq_u32(w_hi, wh);
      s_lo = vmlaq_u32(s_lo, wl, vreinterpretq_u32_s32(vmovl_s16(vget_low_s16(lap))));
      s_hi = vmlaq_u32(s_hi, wh, vreinterpretq_u32_s32(vmovl_high_s16(lap)));
    }
    const int16x8_t v = vcombine_s16(grouped_quotient(w_lo, s_lo), grouped_quotient(w_hi, s_hi));
    vst1q_s16(row.out + x, vminq_s16(v, vdupq_n_s16(kLumaFixedMax)));
  }
}

}  // namespace tavo
