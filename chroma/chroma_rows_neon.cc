// Chroma rows with NEON. The grouped rule takes 32 samples a step (sixteen
// V,U pairs de-interleaved by LD2): the frames' weights are looked up sixteen
// at a time by TBL/TBX in the table's low- and high-byte planes, multiplied
// and summed into 32-bit lanes by widening operations, and divided through the
// reciprocal estimate and one step; the quotients narrow with saturation. The
// lanes wrap, convert and saturate as the rule does, so one path serves every
// table. The exact rule of the tail is scalar code of this file.
#include <arm_neon.h>

#include "chroma/chroma_rows.h"
#include "platform/arm_float_neon.h"

namespace tavo {
namespace {

// The 16-bit weights of kN vectors of sixteen samples, eight a vector out:
// each 64-byte quarter of a byte plane is one TBL (the first) or TBX (the
// others, whose indices are moved into 0 ... 63 by an exclusive or of the
// quarter's top bits; an index of another quarter falls outside and leaves
// its lane).
template <int kN>
[[gnu::always_inline]] inline void look_up(const ChromaWeights& t, const uint8x16_t* c, int16x8_t* w) {
  uint8x16_t low[kN], high[kN];
  const uint8x16x4_t low0 = vld1q_u8_x4(t.low), high0 = vld1q_u8_x4(t.high);
#pragma GCC unroll 16
  for (int i = 0; i < kN; ++i) {
    low[i] = vqtbl4q_u8(low0, c[i]);
    high[i] = vqtbl4q_u8(high0, c[i]);
  }
#pragma GCC unroll 16
  for (int q = 1; q < 4; ++q) {
    const uint8x16x4_t low_q = vld1q_u8_x4(t.low + 64 * q), high_q = vld1q_u8_x4(t.high + 64 * q);
    const uint8x16_t top = vdupq_n_u8(static_cast<uint8_t>(q << 6));
#pragma GCC unroll 16
    for (int i = 0; i < kN; ++i) {
      const uint8x16_t k = veorq_u8(c[i], top);
      low[i] = vqtbx4q_u8(low[i], low_q, k);
      high[i] = vqtbx4q_u8(high[i], high_q, k);
    }
  }
#pragma GCC unroll 16
  for (int i = 0; i < kN; ++i) {
    w[2 * i] = vreinterpretq_s16_u8(vzip1q_u8(low[i], high[i]));
    w[2 * i + 1] = vreinterpretq_s16_u8(vzip2q_u8(low[i], high[i]));
  }
}

// W and S of 16 * kVec samples, four a lane vector; the lanes wrap.
template <int kVec>
struct Sums {
  int32x4_t w[4 * kVec], s[4 * kVec];

  // One frame's weights (eight a vector) and samples (sixteen a vector); the
  // first frame sets the sums.
  template <bool kFirst>
  [[gnu::always_inline]] void add(const int16x8_t* weight, const uint8x16_t* c) {
#pragma GCC unroll 16
    for (int k = 0; k < kVec; ++k) {
      const int16x8_t samples[2] = {vreinterpretq_s16_u16(vmovl_u8(vget_low_u8(c[k]))),
                                    vreinterpretq_s16_u16(vmovl_high_u8(c[k]))};
#pragma GCC unroll 16
      for (int h = 0; h < 2; ++h) {
        const int16x8_t wf = weight[2 * k + h];
        const int j = 4 * k + 2 * h;
        if constexpr (kFirst) {
          w[j] = vmovl_s16(vget_low_s16(wf));
          w[j + 1] = vmovl_high_s16(wf);
          s[j] = vmull_s16(vget_low_s16(wf), vget_low_s16(samples[h]));
          s[j + 1] = vmull_high_s16(wf, samples[h]);
        } else {
          w[j] = vaddw_s16(w[j], vget_low_s16(wf));
          w[j + 1] = vaddw_high_s16(w[j + 1], wf);
          s[j] = vmlal_s16(s[j], vget_low_s16(wf), vget_low_s16(samples[h]));
          s[j + 1] = vmlal_high_s16(s[j + 1], wf, samples[h]);
        }
      }
    }
  }

  // 0.5 + r1(W) * S as unsigned lanes (FCVTZU saturates, NaN gives 0).
  static uint32x4_t quotient(int32x4_t w_sum, int32x4_t s_sum) {
    const float32x4_t r1 = arm::neon::refined_reciprocal(vcvtq_f32_u32(vreinterpretq_u32_s32(w_sum)));
    const float32x4_t q = vaddq_f32(vdupq_n_f32(0.5f), vmulq_f32(r1, vcvtq_f32_u32(vreinterpretq_u32_s32(s_sum))));
    return vcvtq_u32_f32(q);
  }

  // The results, sixteen bytes a vector: the quotients' low 16 bits,
  // saturated to 255.
  [[gnu::always_inline]] void finish(uint8x16_t* out) const {
#pragma GCC unroll 16
    for (int k = 0; k < kVec; ++k) {
      uint16x8_t low16[2];
#pragma GCC unroll 16
      for (int h = 0; h < 2; ++h) {
        const int j = 4 * k + 2 * h;
        low16[h] = vuzp1q_u16(vreinterpretq_u16_u32(quotient(w[j], s[j])),
                              vreinterpretq_u16_u32(quotient(w[j + 1], s[j + 1])));
      }
      out[k] = vqmovn_high_u16(vqmovn_u16(low16[0]), low16[1]);
    }
  }
};

// The grouped rule for 16 * kVec samples: load(p, c) gives the kVec vectors of
// sixteen samples of a frame's bytes p, and the results come out in `out`.
template <int kFrames, int kVec, class Load>
[[gnu::always_inline]] inline void grouped_step(const ChromaFrames<kFrames>& frames, const ChromaWeights& t,
                                                ptrdiff_t at, Load load, uint8x16_t* out) {
  Sums<kVec> sums{};
  if constexpr (kFrames > 0) {
    uint8x16_t c[kFrames * kVec];
    int16x8_t weight[2 * kFrames * kVec];
#pragma GCC unroll 16
    for (int f = 0; f < kFrames; ++f) load(frames[f] + at, c + kVec * f);
    look_up<kFrames * kVec>(t, c, weight);
    sums.template add<true>(weight, c);
#pragma GCC unroll 16
    for (int f = 1; f < kFrames; ++f) sums.template add<false>(weight + 2 * kVec * f, c + kVec * f);
  } else {
    for (int f = 0; f < frames.count(); ++f) {
      uint8x16_t c[kVec];
      int16x8_t weight[2 * kVec];
      load(frames[f] + at, c);
      look_up<kVec>(t, c, weight);
      if (f == 0) {
        sums.template add<true>(weight, c);
      } else {
        sums.template add<false>(weight, c);
      }
    }
  }
  sums.finish(out);
}

template <int kFrames>
void plane_row(const ChromaRowArgs& row, uint8_t* out, int32_t width) {
  const ChromaFrames<kFrames> frames(row);
  const ChromaWeights& t = *row.weights;
  const int32_t grouped = width / 8 * 8;
  uint8x16_t r[2];
  int32_t x = 0;
  for (; x + 32 <= grouped; x += 32) {
    grouped_step<kFrames, 2>(
        frames, t, x,
        [](const uint8_t* p, uint8x16_t* c) {
          c[0] = vld1q_u8(p);
          c[1] = vld1q_u8(p + 16);
        },
        r);
    vst1q_u8(out + x, r[0]);
    vst1q_u8(out + x + 16, r[1]);
  }
  if (x + 16 <= grouped) {
    grouped_step<kFrames, 1>(
        frames, t, x, [](const uint8_t* p, uint8x16_t* c) { c[0] = vld1q_u8(p); }, r);
    vst1q_u8(out + x, r[0]);
    x += 16;
  }
  if (x < grouped) {  // eight samples in the low half
    grouped_step<kFrames, 1>(
        frames, t, x, [](const uint8_t* p, uint8x16_t* c) { c[0] = vcombine_u8(vld1_u8(p), vdup_n_u8(0)); }, r);
    vst1_u8(out + x, vget_low_u8(r[0]));
  }
  chroma_exact_tail<kFrames>(row, out, grouped, width);
}

template <int kFrames>
void pair_row(const ChromaRowArgs& row, uint8_t* out_u, uint8_t* out_v, int32_t pairs) {
  const ChromaFrames<kFrames> frames(row);
  const ChromaWeights& t = *row.weights;
  const int32_t grouped = pairs / 8 * 8;
  uint8x16_t r[2];
  int32_t p = 0;
  for (; p + 16 <= grouped; p += 16) {
    grouped_step<kFrames, 2>(
        frames, t, 2 * static_cast<ptrdiff_t>(p),
        [](const uint8_t* at, uint8x16_t* c) {
          const uint8x16x2_t vu = vld2q_u8(at);
          c[0] = vu.val[0];
          c[1] = vu.val[1];
        },
        r);
    vst1q_u8(out_v + p, r[0]);
    vst1q_u8(out_u + p, r[1]);
  }
  if (p < grouped) {  // eight pairs: V in the low half, U in the high half
    grouped_step<kFrames, 1>(
        frames, t, 2 * static_cast<ptrdiff_t>(p),
        [](const uint8_t* at, uint8x16_t* c) {
          const uint8x8x2_t vu = vld2_u8(at);
          c[0] = vcombine_u8(vu.val[0], vu.val[1]);
        },
        r);
    vst1_u8(out_v + p, vget_low_u8(r[0]));
    vst1_u8(out_u + p, vget_high_u8(r[0]));
  }
  chroma_pair_exact_tail<kFrames>(row, out_u, out_v, grouped, pairs);
}

}  // namespace

void ChromaRow_NEON(const ChromaRowArgs& row, uint8_t* out, int32_t width) {
  if (row.frames == 3) {
    plane_row<3>(row, out, width);
  } else {
    plane_row<0>(row, out, width);
  }
}

void ChromaPairRow_NEON(const ChromaRowArgs& row, uint8_t* out_u, uint8_t* out_v, int32_t pairs) {
  if (row.frames == 3) {
    pair_row<3>(row, out_u, out_v, pairs);
  } else {
    pair_row<0>(row, out_u, out_v, pairs);
  }
}

void InitChromaRows_NEON(ChromaRows* rows) {
  rows->plane = ChromaRow_NEON;
  rows->pairs = ChromaPairRow_NEON;
}

}  // namespace tavo
