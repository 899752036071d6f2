// Grouped chroma rule, eight samples per step with NEON: eight scalar table
// look-ups through a stack array, widening multiplies into 32-bit lanes, one
// reciprocal estimate and step per four lanes, saturating narrowing to bytes.
#include <arm_neon.h>

#include "chroma/chroma_rows.h"
#include "platform/arm_float_neon.h"

namespace tavo {
namespace {

struct Sums {
  uint32x4_t w_lo = vdupq_n_u32(0), w_hi = vdupq_n_u32(0);
  uint32x4_t s_lo = vdupq_n_u32(0), s_hi = vdupq_n_u32(0);
  // Adds eight samples; the lane sums wrap.
  void add(const int32_t* weights, uint8x8_t bytes) {
    uint8_t c[8];
    vst1_u8(c, bytes);
    int16_t looked_up[8];
    for (int k = 0; k < 8; ++k) looked_up[k] = static_cast<int16_t>(weights[c[k]]);
    const int16x8_t w = vld1q_s16(looked_up);
    const int16x8_t samples = vreinterpretq_s16_u16(vmovl_u8(bytes));
    w_lo = vaddq_u32(w_lo, vreinterpretq_u32_s32(vmovl_s16(vget_low_s16(w))));
    w_hi = vaddq_u32(w_hi, vreinterpretq_u32_s32(vmovl_high_s16(w)));
    s_lo = vaddq_u32(s_lo, vreinterpretq_u32_s32(vmull_s16(vget_low_s16(w), vget_low_s16(samples))));
    s_hi = vaddq_u32(s_hi, vreinterpretq_u32_s32(vmull_high_s16(w, samples)));
  }
};

// 0.5 + r1(W) * S, unsigned conversion, low 16 bits.
inline uint16x4_t grouped_quotient(uint32x4_t w_sum, uint32x4_t s_sum) {
  const float32x4_t r1 = arm::neon::refined_reciprocal(vcvtq_f32_u32(w_sum));
  const float32x4_t q = vaddq_f32(vdupq_n_f32(0.5f), vmulq_f32(r1, vcvtq_f32_u32(s_sum)));
  return vmovn_u32(vcvtq_u32_f32(q));
}

inline void store_grouped(const Sums& sums, uint8_t* out) {
  const uint16x8_t v = vcombine_u16(grouped_quotient(sums.w_lo, sums.s_lo), grouped_quotient(sums.w_hi, sums.s_hi));
  vst1_u8(out, vqmovn_u16(v));  // saturates to 255
}

}  // namespace

void ChromaGroups_NEON(const ChromaRowArgs& row, uint8_t* out, int32_t count) {
  for (int32_t x = 0; x < count; x += 8) {
    Sums sums;
    for (int32_t f = 0; f < row.frames; ++f) sums.add(row.weights, vld1_u8(row.src[f] + row.offset + x));
    store_grouped(sums, out + x);
  }
}

void ChromaPairGroups_NEON(const ChromaRowArgs& row, uint8_t* out_u, uint8_t* out_v, int32_t pairs) {
  for (int32_t p = 0; p < pairs; p += 8) {
    Sums u, v;
    for (int32_t f = 0; f < row.frames; ++f) {
      const uint8x8x2_t vu = vld2_u8(row.src[f] + row.offset + 2 * static_cast<ptrdiff_t>(p));
      v.add(row.weights, vu.val[0]);
      u.add(row.weights, vu.val[1]);
    }
    store_grouped(u, out_u + p);
    store_grouped(v, out_v + p);
  }
}

void InitChromaRows_NEON(ChromaRows* rows) {
  rows->plane = ChromaGroups_NEON;
  rows->pairs = ChromaPairGroups_NEON;
}

}  // namespace tavo
