// Pyramid rows with NEON, byte for byte the portable rows for every 16-bit
// input; each row's vector steps run in the shapes of fusion/pyramid_rows_any.h,
// the portable code doing the rest.
//
// Reduce: de-interleaving loads split a source row into even and odd samples;
// the 1-4-6-4-1 sums need 20 bits and are formed with widening
// multiply-accumulates into 32-bit lanes, then narrowed by a rounding shift of
// 4.
//
// Expand: the two phases are formed in 16-bit lanes by halving adds, exact for
// all inputs:
//   (c + r + 1) >> 1             = rhadd(c, r)
//   (l + 6c + r + 4) >> 3        = rhadd(hadd(hadd(l, r), c), c)
// each halving drops a bit that the final shift would drop anyway; the signed
// halving adds give the arithmetic shifts the signed coarse level needs. An
// interleaving store writes the even and odd fine samples.
//
// Collapse: r = L + v with L signed and v unsigned is clamped to 0 ... 4080 in
// 16-bit lanes by offsetting L by 32768: L + 32768 + v saturates at 65535,
// which lies above 4080 + 32768, so clamping the offset sum to
// [32768, 36848] and removing the offset gives the exact clamp.
#include <arm_neon.h>

#include "fusion/pyramid_rows_any.h"

namespace tavo {
namespace {

// (a + 4b + 6c + 4d + e + 8) >> 4 for eight samples.
inline uint16x8_t reduce8(uint16x8_t a, uint16x8_t b, uint16x8_t c, uint16x8_t d, uint16x8_t e) {
  uint32x4_t lo = vaddl_u16(vget_low_u16(a), vget_low_u16(e));
  uint32x4_t hi = vaddl_high_u16(a, e);
  lo = vmlal_n_u16(lo, vget_low_u16(b), 4);
  hi = vmlal_high_n_u16(hi, b, 4);
  lo = vmlal_n_u16(lo, vget_low_u16(d), 4);
  hi = vmlal_high_n_u16(hi, d, 4);
  lo = vmlal_n_u16(lo, vget_low_u16(c), 6);
  hi = vmlal_high_n_u16(hi, c, 6);
  return vrshrn_high_n_u32(vrshrn_n_u32(lo, 4), hi, 4);
}

// Even phase of the expansion, (l + 6c + r + 4) >> 3, unsigned and signed.
inline uint16x8_t expand_even8(uint16x8_t l, uint16x8_t c, uint16x8_t r) {
  return vrhaddq_u16(vhaddq_u16(vhaddq_u16(l, r), c), c);
}
inline int16x8_t expand_even8(int16x8_t l, int16x8_t c, int16x8_t r) {
  return vrhaddq_s16(vhaddq_s16(vhaddq_s16(l, r), c), c);
}
inline uint16x8_t load8(const uint16_t* p) { return vld1q_u16(p); }
inline int16x8_t load8(const int16_t* p) { return vld1q_s16(p); }
inline uint16x8_t as_u16(uint16x8_t v) { return v; }
inline uint16x8_t as_u16(int16x8_t v) { return vreinterpretq_u16_s16(v); }
inline uint16x8_t odd8(uint16x8_t c, uint16x8_t r) { return vrhaddq_u16(c, r); }
inline int16x8_t odd8(int16x8_t c, int16x8_t r) { return vrhaddq_s16(c, r); }

template <class Sample>
void expand_h(const Sample* coarse, int32_t coarse_width, uint16_t* fine, int32_t fine_width) {
  expand_h_any<8>(coarse, coarse_width, fine, fine_width, [&](int32_t k) {
    const auto l = load8(coarse + k - 1);
    const auto c = load8(coarse + k);
    const auto r = load8(coarse + k + 1);
    uint16x8x2_t out;
    out.val[0] = as_u16(expand_even8(l, c, r));
    out.val[1] = as_u16(odd8(c, r));
    vst2q_u16(fine + 2 * k, out);
  });
}

// level[x] = clamp(level[x] + v, 0, 4080) for eight samples; with kLuma also
// the 8-bit luma (r + 8) >> 4.
template <bool kLuma>
inline void collapse8(int16_t* level, uint16x8_t v, uint8_t* luma) {
  const uint16x8_t offset = vdupq_n_u16(0x8000);
  const uint16x8_t top = vdupq_n_u16(0x8000 + kLumaFixedMax);
  uint16x8_t s = vqaddq_u16(veorq_u16(vreinterpretq_u16_s16(vld1q_s16(level)), offset), v);
  s = vminq_u16(vmaxq_u16(s, offset), top);
  const uint16x8_t r = veorq_u16(s, offset);
  vst1q_s16(level, vreinterpretq_s16_u16(r));
  if constexpr (kLuma) vst1_u8(luma, vqrshrn_n_u16(r, 4));
}

}  // namespace

void ReduceH_NEON(const uint16_t* src, int32_t src_width, uint16_t* dst, int32_t dst_width) {
  reduce_h_any<8>(src, src_width, dst, dst_width, [&](int32_t j) {
    const uint16x8x2_t v0 = vld2q_u16(src + 2 * j - 2);
    const uint16x8x2_t v1 = vld2q_u16(src + 2 * j);
    const uint16x8x2_t v2 = vld2q_u16(src + 2 * j + 2);
    vst1q_u16(dst + j, reduce8(v0.val[0], v0.val[1], v1.val[0], v1.val[1], v2.val[0]));
  });
}

// Luma rows: de-interleaving byte loads, the tap sums of 8-bit samples in
// 16-bit lanes.
void ReduceHLuma_NEON(const uint8_t* src, int32_t src_width, uint16_t* dst, int32_t dst_width) {
  reduce_h_any<8>(src, src_width, dst, dst_width, [&](int32_t j) {
    const uint8x8x2_t v0 = vld2_u8(src + 2 * j - 2);
    const uint8x8x2_t v1 = vld2_u8(src + 2 * j);
    const uint8x8x2_t v2 = vld2_u8(src + 2 * j + 2);
    uint16x8_t sum = vaddl_u8(v0.val[0], v2.val[0]);
    sum = vaddq_u16(sum, vshlq_n_u16(vaddl_u8(v0.val[1], v1.val[1]), 2));
    sum = vmlal_u8(sum, v1.val[0], vdup_n_u8(6));
    vst1q_u16(dst + j, sum);
  });
}

void ReduceV_NEON(const uint16_t* const* rows, uint16_t* dst, int32_t width) {
  const uint16_t* r0 = rows[0];
  const uint16_t* r1 = rows[1];
  const uint16_t* r2 = rows[2];
  const uint16_t* r3 = rows[3];
  const uint16_t* r4 = rows[4];
  reduce_v_any<8>(rows, dst, width, [&](int32_t x) {
    vst1q_u16(dst + x, reduce8(vld1q_u16(r0 + x), vld1q_u16(r1 + x), vld1q_u16(r2 + x),
                               vld1q_u16(r3 + x), vld1q_u16(r4 + x)));
  });
}

// Pyramid rows of at most 4080: the sums in 16-bit lanes.
void ReduceVPyramid_NEON(const uint16_t* const* rows, uint16_t* dst, int32_t width) {
  const uint16_t* r0 = rows[0];
  const uint16_t* r1 = rows[1];
  const uint16_t* r2 = rows[2];
  const uint16_t* r3 = rows[3];
  const uint16_t* r4 = rows[4];
  reduce_v_any<8>(rows, dst, width, [&](int32_t x) {
    uint16x8_t sum = vaddq_u16(vld1q_u16(r0 + x), vld1q_u16(r4 + x));
    sum = vmlaq_n_u16(sum, vaddq_u16(vld1q_u16(r1 + x), vld1q_u16(r3 + x)), 4);
    sum = vmlaq_n_u16(sum, vld1q_u16(r2 + x), 6);
    vst1q_u16(dst + x, vrshrq_n_u16(sum, 4));
  });
}

void ExpandHUnsigned_NEON(const uint16_t* coarse, int32_t coarse_width, uint16_t* fine, int32_t fine_width) {
  expand_h(coarse, coarse_width, fine, fine_width);
}

void ExpandHSigned_NEON(const int16_t* coarse, int32_t coarse_width, uint16_t* fine, int32_t fine_width) {
  expand_h(coarse, coarse_width, fine, fine_width);
}

void LaplacianEven_NEON(const uint16_t* gauss, const uint16_t* above, const uint16_t* centre,
                        const uint16_t* below, int16_t* out, int32_t width) {
  const int32_t x = whole_vectors<8>(width, [&](int32_t x) {
    const uint16x8_t e = expand_even8(load8(above + x), load8(centre + x), load8(below + x));
    vst1q_s16(out + x, vreinterpretq_s16_u16(vsubq_u16(load8(gauss + x), e)));
  });
  LaplacianEven_C(gauss + x, above + x, centre + x, below + x, out + x, width - x);
}

void LaplacianOdd_NEON(const uint16_t* gauss, const uint16_t* centre, const uint16_t* below,
                       int16_t* out, int32_t width) {
  const int32_t x = whole_vectors<8>(width, [&](int32_t x) {
    const uint16x8_t e = vrhaddq_u16(load8(centre + x), load8(below + x));
    vst1q_s16(out + x, vreinterpretq_s16_u16(vsubq_u16(load8(gauss + x), e)));
  });
  LaplacianOdd_C(gauss + x, centre + x, below + x, out + x, width - x);
}

void CollapseEven_NEON(int16_t* level, const uint16_t* above, const uint16_t* centre,
                       const uint16_t* below, uint8_t* luma, int32_t width) {
  const int32_t body = collapse_vectors<8>(width, luma != nullptr, [&](auto with_luma, int32_t x) {
    const uint16x8_t v = expand_even8(load8(above + x), load8(centre + x), load8(below + x));
    collapse8<decltype(with_luma)::value>(level + x, v, with_luma ? luma + x : nullptr);
  });
  CollapseEven_C(level + body, above + body, centre + body, below + body, luma != nullptr ? luma + body : nullptr,
                 width - body);
}

void CollapseOdd_NEON(int16_t* level, const uint16_t* centre, const uint16_t* below, uint8_t* luma,
                      int32_t width) {
  const int32_t body = collapse_vectors<8>(width, luma != nullptr, [&](auto with_luma, int32_t x) {
    collapse8<decltype(with_luma)::value>(level + x, vrhaddq_u16(load8(centre + x), load8(below + x)),
                                           with_luma ? luma + x : nullptr);
  });
  CollapseOdd_C(level + body, centre + body, below + body, luma != nullptr ? luma + body : nullptr, width - body);
}

}  // namespace tavo
