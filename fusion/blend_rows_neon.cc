// Blending rows with NEON, sixteen samples a step (eight where a row is too
// short), in the shape of fusion/blend_rows_any.h.
//
// Exposure factors without scalar loads: the table index (g + 8) >> 4 capped
// at 255 is one saturating rounding narrow to bytes; the factors' low and
// high bytes are looked up by TBL/TBX in their 256-byte planes, each held as
// four 64-byte register tables; a zip makes the 16-bit factors. A plane is
// loaded once a step for all frames and only one plane is live at a time.
//
// Weights: the contrast stencil in 16-bit lanes, e * c by widening multiplies
// into 32-bit lanes, the sums wrapping. The grouped rule divides through the
// reciprocal estimate and step. With positive weights the last vector of a
// row also gives its exact samples (the quotient in double precision, exact
// for 32-bit integers) and border rows are blended by vectors; otherwise the
// portable code, inlined, gives the exact samples.
// GCC's scheduling before register allocation interleaves the frames' look-ups
// with their stencils and spills; the source order keeps the step in registers.
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC optimize("no-schedule-insns")
#endif
#include <arm_neon.h>

#include "fusion/blend_rows_any.h"
#include "platform/arm_float_neon.h"

namespace tavo {
namespace {

// 8 * kHalves lanes of 16-bit samples.
template <int kHalves>
struct Lanes {
  uint16x8_t v[kHalves];
};

template <int kHalves>
inline Lanes<kHalves> load(const uint16_t* p) {
  if constexpr (kHalves == 2) {
    const uint16x8x2_t t = vld1q_u16_x2(p);
    return {{t.val[0], t.val[1]}};
  } else {
    return {{vld1q_u16(p)}};
  }
}

template <int kHalves>
inline Lanes<kHalves> load(const int16_t* p) {
  return load<kHalves>(reinterpret_cast<const uint16_t*>(p));
}

// Weight sums W and S, four lanes a vector.
template <int kHalves>
struct Sums {
  int32x4_t w[2 * kHalves], s[2 * kHalves];
};

// Index bytes (g + 8) >> 4, saturated to 255.
template <int kHalves>
inline uint8x16_t table_index(const Lanes<kHalves>& g) {
  const uint8x8_t lo = vqrshrn_n_u16(g.v[0], 4);
  if constexpr (kHalves == 2) {
    return vqrshrn_high_n_u16(lo, g.v[1], 4);
  } else {
    return vcombine_u8(lo, lo);
  }
}

// The 16-bit exposure factors of kFrames frames' index bytes. Each 256-byte
// plane is four 64-byte tables: TBL over the first quarter, TBX over the
// others with the index moved into their range (the other indices fall
// outside and leave the byte as it is). A quarter of both planes at a time is
// live, for every frame.
template <int kFrames>
[[gnu::always_inline]] inline void exposure_factors(const ExposureFactors& factors, const uint8x16_t (&index)[kFrames],
                                                    int16x8_t (&e)[kFrames][2]) {
  uint8x16_t low[kFrames], high[kFrames];
#pragma GCC unroll 4
  for (int q = 0; q < 4; ++q) {
    const uint8x16x4_t low_q = vld1q_u8_x4(factors.low + 64 * q), high_q = vld1q_u8_x4(factors.high + 64 * q);
#pragma GCC unroll 4
    for (int k = 0; k < kFrames; ++k) {
      if (q == 0) {
        low[k] = vqtbl4q_u8(low_q, index[k]);
        high[k] = vqtbl4q_u8(high_q, index[k]);
      } else {
        const uint8x16_t i = veorq_u8(index[k], vdupq_n_u8(static_cast<uint8_t>(64 * q)));
        low[k] = vqtbx4q_u8(low[k], low_q, i);
        high[k] = vqtbx4q_u8(high[k], high_q, i);
      }
    }
  }
#pragma GCC unroll 4
  for (int k = 0; k < kFrames; ++k) {
    e[k][0] = vreinterpretq_s16_u8(vzip1q_u8(low[k], high[k]));
    e[k][1] = vreinterpretq_s16_u8(vzip2q_u8(low[k], high[k]));
  }
}

// max(|up + down + left + right - 4 centre| >> 6, 1) in 16-bit lanes.
inline int16x8_t contrast(uint16x8_t up, uint16x8_t down, uint16x8_t left, uint16x8_t right, uint16x8_t centre) {
  const uint16x8_t around = vaddq_u16(vaddq_u16(up, down), vaddq_u16(left, right));
  const int16x8_t d = vreinterpretq_s16_u16(vmlsq_u16(around, centre, vdupq_n_u16(4)));
  const uint16x8_t magnitude = vreinterpretq_u16_s16(vabsq_s16(d));
  return vreinterpretq_s16_u16(vmaxq_u16(vshrq_n_u16(magnitude, 6), vdupq_n_u16(1)));
}

// Adds one frame: g its Gaussian samples, l its Laplacian samples, e its
// exposure factors.
template <bool kContrast, int kHalves>
[[gnu::always_inline]] inline void add_frame(Sums<kHalves>& s, const int16x8_t (&e)[2], const uint16_t* g,
                                             const int16_t* l, ptrdiff_t up, ptrdiff_t down) {
  Lanes<kHalves> c{};
  if constexpr (kContrast) {
    const Lanes<kHalves> centre = load<kHalves>(g), above = load<kHalves>(g - up), below = load<kHalves>(g + down),
                         left = load<kHalves>(g - 1), right = load<kHalves>(g + 1);
#pragma GCC unroll 4
    for (int h = 0; h < kHalves; ++h) {
      c.v[h] = vreinterpretq_u16_s16(contrast(above.v[h], below.v[h], left.v[h], right.v[h], centre.v[h]));
    }
  }
  const Lanes<kHalves> lap = load<kHalves>(l);
#pragma GCC unroll 4
  for (int h = 0; h < kHalves; ++h) {
    const int16x8_t eh = e[h], lh = vreinterpretq_s16_u16(lap.v[h]);
    if constexpr (kContrast) {
      const int16x8_t ch = vreinterpretq_s16_u16(c.v[h]);
      const int32x4_t w_lo = vmull_s16(vget_low_s16(eh), vget_low_s16(ch));
      const int32x4_t w_hi = vmull_high_s16(eh, ch);
      s.w[2 * h] = vaddq_s32(s.w[2 * h], w_lo);
      s.w[2 * h + 1] = vaddq_s32(s.w[2 * h + 1], w_hi);
      s.s[2 * h] = vmlaq_s32(s.s[2 * h], w_lo, vmovl_s16(vget_low_s16(lh)));
      s.s[2 * h + 1] = vmlaq_s32(s.s[2 * h + 1], w_hi, vmovl_high_s16(lh));
    } else {
      s.w[2 * h] = vaddw_s16(s.w[2 * h], vget_low_s16(eh));
      s.w[2 * h + 1] = vaddw_high_s16(s.w[2 * h + 1], eh);
      s.s[2 * h] = vmlal_s16(s.s[2 * h], vget_low_s16(eh), vget_low_s16(lh));
      s.s[2 * h + 1] = vmlal_high_s16(s.s[2 * h + 1], eh, lh);
    }
  }
}

// Grouped rule of four lanes: S * r1(W), +-0.5 by the sign of the quotient
// (with positive W the sign of S), converted as FCVTZS does.
template <bool kPositive>
inline int32x4_t grouped_quotient(int32x4_t w, int32x4_t s) {
  const float32x4_t q = vmulq_f32(vcvtq_f32_s32(s), arm::neon::refined_reciprocal(vcvtq_f32_s32(w)));
  const uint32x4_t sign = vreinterpretq_u32_s32(kPositive ? s : vreinterpretq_s32_f32(q));
  const float32x4_t half = vreinterpretq_f32_u32(vsriq_n_u32(sign, vdupq_n_u32(0x7e000000), 1));  // +-0.5
  return vcvtq_s32_f32(vaddq_f32(q, half));
}

// n / w truncated, two lanes, exact in double precision.
inline int64x2_t divide2(int32x2_t n, int32x2_t w) {
  return vcvtq_s64_f64(vdivq_f64(vcvtq_f64_s64(vmovl_s32(n)), vcvtq_f64_s64(vmovl_s32(w))));
}

// Exact rule of four lanes with W in [1, 2^31): n = |S| + W/2 wrapping, read
// as signed; q = n / W clamped to 4080 from above; S's sign.
inline int32x4_t exact_quotient(int32x4_t w, int32x4_t s) {
  const int32x4_t n = vreinterpretq_s32_u32(
      vsraq_n_u32(vreinterpretq_u32_s32(vabsq_s32(s)), vreinterpretq_u32_s32(w), 1));
  const int32x4_t q = vcombine_s32(vmovn_s64(divide2(vget_low_s32(n), vget_low_s32(w))),
                                   vmovn_s64(divide2(vget_high_s32(n), vget_high_s32(w))));
  const int32x4_t negative = vshrq_n_s32(s, 31);
  return vsubq_s32(veorq_s32(vminq_s32(q, vdupq_n_s32(kLumaFixedMax)), negative), negative);
}

// The low 16 bits of eight 32-bit lanes.
inline int16x8_t low16(int32x4_t a, int32x4_t b) {
  return vuzp1q_s16(vreinterpretq_s16_s32(a), vreinterpretq_s16_s32(b));
}

inline constexpr int16_t kLane[16] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15};

// One vector of the shape. kFrames is the frame count when it is known at
// compile time (the frames' factors then looked up together), 0 when it is
// read from the row.
template <int kFrames, bool kPositive>
struct Step {
  RowSamples<kFrames> row;

  template <bool kContrast, int32_t kLanes>
  [[gnu::always_inline]] void operator()(std::bool_constant<kContrast>, std::integral_constant<int32_t, kLanes>,
                                         int32_t x, int32_t split) const {
    constexpr int kHalves = kLanes / 8;
    constexpr int kChunk = kFrames > 0 ? kFrames : 1;
    Sums<kHalves> sums;
#pragma GCC unroll 4
    for (int i = 0; i < 2 * kHalves; ++i) sums.w[i] = sums.s[i] = vdupq_n_s32(0);
    for (int32_t f = 0; f < row.frames; f += kChunk) {
      const uint16_t* g[kChunk];
      uint8x16_t index[kChunk];
#pragma GCC unroll 4
      for (int k = 0; k < kChunk; ++k) {
        g[k] = row.gauss(f + k) + x;
        index[k] = table_index(load<kHalves>(g[k]));
      }
      int16x8_t e[kChunk][2];
      exposure_factors<kChunk>(*row.factors, index, e);
#pragma GCC unroll 4
      for (int k = 0; k < kChunk; ++k) {
        add_frame<kContrast, kHalves>(sums, e[k], g[k], row.lap(f + k) + x, row.up, row.down);
      }
    }

    // Lanes before split by the grouped rule, the others by the exact rule.
    const bool grouped = x < split, exact = kPositive && split < x + kLanes;
    int16x8_t v[kHalves] = {};
#pragma GCC unroll 4
    for (int h = 0; h < kHalves; ++h) {
      const int32x4_t *w = sums.w + 2 * h, *s = sums.s + 2 * h;
      if (grouped) {
        v[h] = vminq_s16(low16(grouped_quotient<kPositive>(w[0], s[0]), grouped_quotient<kPositive>(w[1], s[1])),
                         vdupq_n_s16(kLumaFixedMax));
      }
      if (exact) {
        const int16x8_t e = low16(exact_quotient(w[0], s[0]), exact_quotient(w[1], s[1]));
        v[h] = grouped ? vbslq_s16(vcgeq_s16(vld1q_s16(kLane + 8 * h), vdupq_n_s16(static_cast<int16_t>(split - x))), e, v[h])
                       : e;
      }
    }
    int16_t* out = row.out + x;
#pragma GCC unroll 2
    for (int h = 0; h < kHalves; ++h) vst1q_s16(out + 8 * h, v[h]);
  }
};

}  // namespace

void BlendInteriorRow_NEON(const BlendRowArgs& row) { blend_interior_any<16, Step>(row); }

void BlendBorderRow_NEON(const BlendRowArgs& row) { blend_border_any<16, Step>(row); }

}  // namespace tavo
