// Pyramid rows with NEON, byte for byte the portable rows for every 16-bit
// input, in the shapes of fusion/pyramid_rows_any.h: no sample is left to the
// portable rows.
//
// Reduce: a four-way structure load at 2j - 2 and one at 2j + 1 hold every
// tap of outputs j ... j + 2n - 1 (n lanes a register), the even outputs'
// taps in lanes of the first load and the odd ones' in the second's, so no
// sample is loaded twice in a step and an interleaving store writes the
// outputs in order. Sums of 8-bit luma and of pyramid samples (at most 4080)
// fit 16-bit lanes and round with a rounding shift; any other 16-bit samples
// are summed with widening multiply-accumulates into 32-bit lanes.
//
// Expand: the two phases are formed in 16-bit lanes by halving adds, exact for
// all inputs:
//   (c + r + 1) >> 1             = rhadd(c, r)
//   (l + 6c + r + 4) >> 3        = rhadd(hadd(hadd(l, r), c), c)
// each halving drops a bit that the final shift would drop anyway; the signed
// halving adds give the arithmetic shifts the signed coarse level needs. An
// interleaving store writes the even and odd fine samples.
//
// Collapse: r = clamp(L + v, 0, 4080) with L signed and v unsigned is the
// unsigned saturating accumulate of L into v, then a minimum.
//
// The vertical rows run 32 samples a step, four registers a row moved by one
// multi-register load or store, and 8 a step on rows of 8 to 31 samples.
#include <arm_neon.h>

#include <array>
#include <cstddef>
#include <utility>

#include "fusion/pyramid_rows_any.h"

namespace tavo {
namespace {

// N registers of a row: a step of 8 N samples.
template <size_t N>
struct Regs {};
template <size_t N>
using U16s = std::array<uint16x8_t, N>;

template <size_t N>
inline U16s<N> load(const uint16_t* p) {
  if constexpr (N == 4) {
    const uint16x8x4_t v = vld1q_u16_x4(p);
    return {v.val[0], v.val[1], v.val[2], v.val[3]};
  } else {
    static_assert(N == 1);
    return {vld1q_u16(p)};
  }
}

// f over the registers of equal-sized steps, unrolled.
template <size_t I, class F, class... Steps>
inline auto at(F& f, const Steps&... steps) {
  return f(steps[I]...);
}
template <class F, class V, size_t N, class... Rest, size_t... I>
inline auto each(std::index_sequence<I...>, F f, const std::array<V, N>& first, const Rest&... rest) {
  return std::array{at<I>(f, first, rest...)...};
}
template <class F, class V, size_t N, class... Rest>
inline auto each(F f, const std::array<V, N>& first, const Rest&... rest) {
  return each(std::make_index_sequence<N>{}, f, first, rest...);
}

// A signed row: the same registers read as signed.
template <size_t N>
inline std::array<int16x8_t, N> load(const int16_t* p) {
  return each([](uint16x8_t v) { return vreinterpretq_s16_u16(v); }, load<N>(reinterpret_cast<const uint16_t*>(p)));
}

template <size_t N>
inline void store(uint16_t* p, const U16s<N>& v) {
  if constexpr (N == 4) {
    vst1q_u16_x4(p, (uint16x8x4_t{{v[0], v[1], v[2], v[3]}}));
  } else {
    static_assert(N == 1);
    vst1q_u16(p, v[0]);
  }
}

// An elementwise row: store(x, compute(Regs<N>, x)), 32 samples a step, 8 on
// rows of 8 to 31 samples; false on shorter rows.
template <class Compute, class Store>
inline bool vector_rows(int32_t width, Compute&& compute, Store&& store_step) {
  return elementwise_vectors<32>(width, [&](int32_t x) { return compute(Regs<4>{}, x); }, store_step) ||
         elementwise_vectors<8>(width, [&](int32_t x) { return compute(Regs<1>{}, x); }, store_step);
}

// (a + 4b + 6c + 4d + e + 8) >> 4 for eight samples: in 32-bit lanes for any
// 16-bit samples, in 16-bit lanes for samples of at most 4080 (the sum, at
// most 65,280, fits; the rounding shift does not overflow).
inline uint16x8_t reduce8(uint16x8_t a, uint16x8_t b, uint16x8_t c, uint16x8_t d, uint16x8_t e) {
  uint32x4_t lo = vaddl_u16(vget_low_u16(a), vget_low_u16(e));
  uint32x4_t hi = vaddl_high_u16(a, e);
  lo = vmlaq_n_u32(lo, vaddl_u16(vget_low_u16(b), vget_low_u16(d)), 4);
  hi = vmlaq_n_u32(hi, vaddl_high_u16(b, d), 4);
  lo = vmlal_n_u16(lo, vget_low_u16(c), 6);
  hi = vmlal_high_n_u16(hi, c, 6);
  return vrshrn_high_n_u32(vrshrn_n_u32(lo, 4), hi, 4);
}
inline uint16x8_t reduce8_pyramid(uint16x8_t a, uint16x8_t b, uint16x8_t c, uint16x8_t d, uint16x8_t e) {
  uint16x8_t sum = vaddq_u16(a, e);
  sum = vmlaq_n_u16(sum, vaddq_u16(b, d), 4);
  sum = vmlaq_n_u16(sum, c, 6);
  return vrshrq_n_u16(sum, 4);
}

// Outputs j ... j + 15 of the horizontal reduce of 16-bit samples: the even
// ones' taps are p0 ... p3, q1 (samples 2j - 2 + 4i ... 2j + 2 + 4i), the odd
// ones' p2, p3, q1, q2, q3. Reads samples 2j - 2 ... 2j + 32.
template <uint16x8_t (*kReduce)(uint16x8_t, uint16x8_t, uint16x8_t, uint16x8_t, uint16x8_t)>
void reduce_h(const uint16_t* src, int32_t src_width, uint16_t* dst, int32_t dst_width) {
  reduce_h_any(src, src_width, dst, dst_width, [&](int32_t first, int32_t end) {
    return overlapping_vectors<16>(first, end, [&](int32_t j) {
      const uint16x8x4_t p = vld4q_u16(src + 2 * j - 2);
      const uint16x8x4_t q = vld4q_u16(src + 2 * j + 1);
      vst2q_u16(dst + j, (uint16x8x2_t{{kReduce(p.val[0], p.val[1], p.val[2], p.val[3], q.val[1]),
                                        kReduce(p.val[2], p.val[3], q.val[1], q.val[2], q.val[3])}}));
    });
  });
}

// The 1-4-6-4-1 sum of sixteen 8-bit taps in two registers of 16-bit lanes.
inline uint16x8x2_t luma_sums(uint8x16_t a, uint8x16_t b, uint8x16_t c, uint8x16_t d, uint8x16_t e) {
  uint16x8_t lo = vaddl_u8(vget_low_u8(a), vget_low_u8(e));
  uint16x8_t hi = vaddl_high_u8(a, e);
  lo = vmlaq_n_u16(lo, vaddl_u8(vget_low_u8(b), vget_low_u8(d)), 4);
  hi = vmlaq_n_u16(hi, vaddl_high_u8(b, d), 4);
  lo = vmlal_u8(lo, vget_low_u8(c), vdup_n_u8(6));
  hi = vmlal_high_u8(hi, c, vdupq_n_u8(6));
  return {{lo, hi}};
}

// Even phase of the expansion, (l + 6c + r + 4) >> 3, unsigned and signed.
inline uint16x8_t expand_even8(uint16x8_t l, uint16x8_t c, uint16x8_t r) {
  return vrhaddq_u16(vhaddq_u16(vhaddq_u16(l, r), c), c);
}
inline int16x8_t expand_even8(int16x8_t l, int16x8_t c, int16x8_t r) {
  return vrhaddq_s16(vhaddq_s16(vhaddq_s16(l, r), c), c);
}
inline uint16x8_t expand_odd8(uint16x8_t c, uint16x8_t r) { return vrhaddq_u16(c, r); }
inline int16x8_t expand_odd8(int16x8_t c, int16x8_t r) { return vrhaddq_s16(c, r); }
inline uint16x8_t as_u16(uint16x8_t v) { return v; }
inline uint16x8_t as_u16(int16x8_t v) { return vreinterpretq_u16_s16(v); }

// Pairs of coarse positions k ... k + 8N - 1: coarse samples k - 1 ... k + 8N.
// vst2q_u16 as a function: clang defines the intrinsic as a macro, which a
// pack expansion cannot reach into.
inline void store_pairs(uint16_t* dst, uint16x8x2_t v) { vst2q_u16(dst, v); }

template <size_t N, class Sample>
inline void expand_pairs(const Sample* coarse, uint16_t* fine, int32_t k) {
  const auto l = load<N>(coarse + k - 1), c = load<N>(coarse + k), r = load<N>(coarse + k + 1);
  [&]<size_t... I>(std::index_sequence<I...>) {
    (store_pairs(fine + 2 * k + 16 * I,
                 uint16x8x2_t{{as_u16(expand_even8(l[I], c[I], r[I])), as_u16(expand_odd8(c[I], r[I]))}}),
     ...);
  }(std::make_index_sequence<N>{});
}

template <class Sample>
void expand_h(const Sample* coarse, int32_t coarse_width, uint16_t* fine, int32_t fine_width) {
  expand_h_any(coarse, coarse_width, fine, fine_width, [&](int32_t first, int32_t end) {
    return overlapping_vectors<32>(first, end, [&](int32_t k) { expand_pairs<4>(coarse, fine, k); }) ||
           overlapping_vectors<8>(first, end, [&](int32_t k) { expand_pairs<1>(coarse, fine, k); });
  });
}

// A collapse row: expanded(Regs<N>, x) gives the expansion of 8 N samples at
// x; level[x] = clamp(level[x] + expansion, 0, 4080), and with luma the 8-bit
// luma (r + 8) >> 4 (at most 255, so the saturating narrow is exact).
template <class Expanded>
inline bool collapse_vectors(int16_t* level, uint8_t* luma, int32_t width, Expanded&& expanded) {
  auto* lvl = reinterpret_cast<uint16_t*>(level);
  const auto run = [&](auto with_luma) {
    return vector_rows(
        width,
        [&]<size_t N>(Regs<N> regs, int32_t x) {
          return each([](int16x8_t l, uint16x8_t v) { return vminq_u16(vsqaddq_u16(v, l), vdupq_n_u16(kLumaFixedMax)); },
                      load<N>(level + x), expanded(regs, x));
        },
        [&]<size_t N>(int32_t x, const U16s<N>& r) {
          store(lvl + x, r);
          if constexpr (decltype(with_luma)::value) {
            if constexpr (N == 4) {
              vst1q_u8_x2(luma + x, (uint8x16x2_t{{vqrshrn_high_n_u16(vqrshrn_n_u16(r[0], 4), r[1], 4),
                                                   vqrshrn_high_n_u16(vqrshrn_n_u16(r[2], 4), r[3], 4)}}));
            } else {
              vst1_u8(luma + x, vqrshrn_n_u16(r[0], 4));
            }
          }
        });
  };
  return luma != nullptr ? run(std::true_type{}) : run(std::false_type{});
}

}  // namespace

[[gnu::flatten]] void ReduceH_NEON(const uint16_t* src, int32_t src_width, uint16_t* dst, int32_t dst_width) {
  reduce_h<reduce8>(src, src_width, dst, dst_width);
}

[[gnu::flatten]] void ReduceHPyramid_NEON(const uint16_t* src, int32_t src_width, uint16_t* dst, int32_t dst_width) {
  reduce_h<reduce8_pyramid>(src, src_width, dst, dst_width);
}

// Luma rows: the same taps as ReduceH's from byte loads, 32 outputs a step,
// reading samples 2j - 2 ... 2j + 64.
[[gnu::flatten]] void ReduceHLuma_NEON(const uint8_t* src, int32_t src_width, uint16_t* dst, int32_t dst_width) {
  reduce_h_any(src, src_width, dst, dst_width, [&](int32_t first, int32_t end) {
    return overlapping_vectors<32>(first, end, [&](int32_t j) {
      const uint8x16x4_t p = vld4q_u8(src + 2 * j - 2);
      const uint8x16x4_t q = vld4q_u8(src + 2 * j + 1);
      const uint16x8x2_t even = luma_sums(p.val[0], p.val[1], p.val[2], p.val[3], q.val[1]);
      const uint16x8x2_t odd = luma_sums(p.val[2], p.val[3], q.val[1], q.val[2], q.val[3]);
      vst2q_u16(dst + j, (uint16x8x2_t{{even.val[0], odd.val[0]}}));
      vst2q_u16(dst + j + 16, (uint16x8x2_t{{even.val[1], odd.val[1]}}));
    });
  });
}

// The vertical filter of five rows by kReduce, the portable row where no
// vector fits.
template <uint16x8_t (*kReduce)(uint16x8_t, uint16x8_t, uint16x8_t, uint16x8_t, uint16x8_t)>
[[gnu::flatten]] void reduce_v(const uint16_t* const* rows, uint16_t* dst, int32_t width) {
  const bool done = vector_rows(
      width,
      [&]<size_t N>(Regs<N>, int32_t x) {
        return each([](auto... v) { return kReduce(v...); }, load<N>(rows[0] + x), load<N>(rows[1] + x), load<N>(rows[2] + x),
                    load<N>(rows[3] + x), load<N>(rows[4] + x));
      },
      [&](int32_t x, const auto& v) { store(dst + x, v); });
  if (!done) reduce_v_row(rows, dst, width);
}

[[gnu::flatten]] void ReduceV_NEON(const uint16_t* const* rows, uint16_t* dst, int32_t width) {
  reduce_v<reduce8>(rows, dst, width);
}

[[gnu::flatten]] void ReduceVPyramid_NEON(const uint16_t* const* rows, uint16_t* dst, int32_t width) {
  reduce_v<reduce8_pyramid>(rows, dst, width);
}

[[gnu::flatten]] void ExpandHUnsigned_NEON(const uint16_t* coarse, int32_t coarse_width, uint16_t* fine, int32_t fine_width) {
  expand_h(coarse, coarse_width, fine, fine_width);
}

[[gnu::flatten]] void ExpandHSigned_NEON(const int16_t* coarse, int32_t coarse_width, uint16_t* fine, int32_t fine_width) {
  expand_h(coarse, coarse_width, fine, fine_width);
}

[[gnu::flatten]] void LaplacianEven_NEON(const uint16_t* gauss, const uint16_t* above, const uint16_t* centre,
                        const uint16_t* below, int16_t* out, int32_t width) {
  const bool done = vector_rows(
      width,
      [&]<size_t N>(Regs<N>, int32_t x) {
        return each([](uint16x8_t g, uint16x8_t a, uint16x8_t c, uint16x8_t b) { return vsubq_u16(g, expand_even8(a, c, b)); },
                    load<N>(gauss + x), load<N>(above + x), load<N>(centre + x), load<N>(below + x));
      },
      [&](int32_t x, const auto& v) { store(reinterpret_cast<uint16_t*>(out) + x, v); });
  if (!done) laplacian_even_row(gauss, above, centre, below, out, width);
}

[[gnu::flatten]] void LaplacianOdd_NEON(const uint16_t* gauss, const uint16_t* centre, const uint16_t* below,
                       int16_t* out, int32_t width) {
  const bool done = vector_rows(
      width,
      [&]<size_t N>(Regs<N>, int32_t x) {
        return each([](uint16x8_t g, uint16x8_t c, uint16x8_t b) { return vsubq_u16(g, expand_odd8(c, b)); },
                    load<N>(gauss + x), load<N>(centre + x), load<N>(below + x));
      },
      [&](int32_t x, const auto& v) { store(reinterpret_cast<uint16_t*>(out) + x, v); });
  if (!done) laplacian_odd_row(gauss, centre, below, out, width);
}

[[gnu::flatten]] void CollapseEven_NEON(int16_t* level, const uint16_t* above, const uint16_t* centre,
                       const uint16_t* below, uint8_t* luma, int32_t width) {
  const bool done = collapse_vectors(level, luma, width, [&]<size_t N>(Regs<N>, int32_t x) {
    return each([](uint16x8_t a, uint16x8_t c, uint16x8_t b) { return expand_even8(a, c, b); }, load<N>(above + x),
                load<N>(centre + x), load<N>(below + x));
  });
  if (!done) collapse_even_row(level, above, centre, below, luma, width);
}

[[gnu::flatten]] void CollapseOdd_NEON(int16_t* level, const uint16_t* centre, const uint16_t* below, uint8_t* luma,
                      int32_t width) {
  const bool done = collapse_vectors(level, luma, width, [&]<size_t N>(Regs<N>, int32_t x) {
    return each([](uint16x8_t c, uint16x8_t b) { return expand_odd8(c, b); }, load<N>(centre + x), load<N>(below + x));
  });
  if (!done) collapse_odd_row(level, centre, below, luma, width);
}

}  // namespace tavo
