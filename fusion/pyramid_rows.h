// Row functions of the luma pyramids: the 5-tap binomial filter 1-4-6-4-1 that
// reduces a level to the next (filter, then keep every second sample), and its
// two-phase expansion back to the finer size, used to build the band-pass
// (Laplacian) levels and to collapse a fused pyramid.
//
// Both filters are separable and round after each pass: a horizontal pass
// writes 16-bit samples into a scratch row, a vertical pass combines scratch
// rows. Image borders reflect without repeating the edge sample (index -1 reads
// 1, index n reads n-2). The vertical passes take their rows as pointers, so a
// kernel expresses the top and bottom borders by handing in reflected rows; the
// horizontal passes handle the left and right borders themselves.
//
// The per-sample formulas below are the definition; the portable rows apply
// them in plain loops and every instruction-set variant gives the same bytes
// for every 16-bit input, not only for the 12-bit samples the pyramids hold.
#pragma once

#include <cstdint>
#include <type_traits>

#include "platform/fixed_point_mean.h"

namespace tavo {

// Inline helpers local to each object (see the instruction-set flags in
// CMakeLists.txt).
namespace {

// One output of the reduce filter: (a + 4b + 6c + 4d + e + 8) >> 4, in 32 bits.
constexpr uint16_t reduce_tap(uint32_t a, uint32_t b, uint32_t c, uint32_t d, uint32_t e) {
  return static_cast<uint16_t>((a + 4 * b + 6 * c + 4 * d + e + 8) >> 4);
}

// Column j of the horizontal reduce of a row of src_width samples into
// dst_width samples. Column 0 reflects to (6, 8, 2); the last column reflects
// to (1, 4, 7, 4) for an even source width and to (2, 8, 6) for an odd one.
// The row is an array of 16-bit samples, or of 8-bit luma standing for the
// samples luma x 16 (a Gaussian level 0).
template <class Sample>
constexpr uint16_t reduce_column(const Sample* row, int32_t src_width, int32_t dst_width, int32_t j) {
  auto x = [row](int32_t i) -> uint32_t { return sizeof(Sample) == 1 ? 16u * row[i] : row[i]; };
  if (j == 0) return reduce_tap(x(2), x(1), x(0), x(1), x(2));
  const int32_t c = 2 * j;
  if (j == dst_width - 1) {
    if ((src_width & 1) == 0) return reduce_tap(x(c - 2), x(c - 1), x(c), x(c + 1), x(c));
    return reduce_tap(x(c - 2), x(c - 1), x(c), x(c - 1), x(c - 2));
  }
  return reduce_tap(x(c - 2), x(c - 1), x(c), x(c + 1), x(c + 2));
}

// Columns j ... dst_width - 1 of the horizontal reduce: the interior formula,
// then the last column's reflection. The portable rows run it from column 1,
// the vector rows from where their steps end. On luma x 16 the filter needs
// no rounding: (16 s + 8) >> 4 = s for the tap sum s of the 8-bit samples.
template <class Sample>
inline void reduce_h_tail(const Sample* src, int32_t src_width, uint16_t* dst, int32_t dst_width, int32_t j) {
  for (; j < dst_width - 1; ++j) {
    const Sample* x = src + 2 * j;
    if constexpr (sizeof(Sample) == 1) {
      dst[j] = static_cast<uint16_t>(x[-2] + 4 * x[-1] + 6 * x[0] + 4 * x[1] + x[2]);
    } else {
      dst[j] = reduce_tap(x[-2], x[-1], x[0], x[1], x[2]);
    }
  }
  if (dst_width > 1) dst[dst_width - 1] = reduce_column(src, src_width, dst_width, dst_width - 1);
}

// The two phases of the expansion, in 32 bits with arithmetic shifts (the
// inputs are signed or unsigned 16-bit samples, depending on the level read).
constexpr int32_t expand_even(int32_t left, int32_t centre, int32_t right) {
  return (left + 6 * centre + right + 4) >> 3;
}
constexpr int32_t expand_odd(int32_t centre, int32_t right) { return (centre + right + 1) >> 1; }

// Fine position x of the horizontal expansion of a coarse row of coarse_width
// samples into fine_width samples, k = x / 2. Position 0 reflects c[-1] to
// c[1]; for the last two fine positions the right neighbour is c[2n - 3 - k],
// which is c[k + 1] inside the row and reflects about the last coarse sample
// past it. Stored as 16 bits.
template <class Sample>
constexpr uint16_t expand_column(const Sample* c, int32_t coarse_width, int32_t fine_width,
                                 int32_t x) {
  if (x == 0) return static_cast<uint16_t>((6 * c[0] + 2 * c[1] + 4) >> 3);
  const int32_t k = x >> 1;
  const int32_t right = x >= fine_width - 2 ? 2 * coarse_width - 3 - k : k + 1;
  if (x & 1) return static_cast<uint16_t>(expand_odd(c[k], c[right]));
  return static_cast<uint16_t>(expand_even(c[k - 1], c[k], c[right]));
}

// A band-pass sample: the Gaussian sample minus the expansion, as 16-bit two's
// complement.
constexpr int16_t laplacian_sample(uint16_t gauss, int32_t expanded) {
  return static_cast<int16_t>(
      static_cast<uint16_t>(static_cast<uint32_t>(gauss) - static_cast<uint32_t>(expanded)));
}

// A collapsed sample: the fused band-pass sample plus the expansion of the
// coarser level, clamped to 0 ... 4080.
constexpr int16_t collapse_sample(int16_t fused, int32_t expanded) {
  int32_t r = fused + expanded;
  if (r >= kLumaFixedMax) r = kLumaFixedMax;
  if (r <= 0) r = 0;
  return static_cast<int16_t>(r);
}

// 8-bit luma of a collapsed sample in 0 ... 4080.
constexpr uint8_t luma_of_sample(int32_t r) { return static_cast<uint8_t>((r + 8) >> 4); }

// Instruction-set collapse rows: block(with_luma, x) handles the vector of
// kStep samples at x for x = 0, kStep, ... below the returned count, with the
// luma variant (a std::bool_constant) chosen once per row; the remaining
// width % kStep samples are left to the portable row.
template <int32_t kStep, class Block>
inline int32_t collapse_vectors(int32_t width, bool luma, Block&& block) {
  const int32_t body = width - width % kStep;
  if (luma) {
    for (int32_t x = 0; x < body; x += kStep) block(std::true_type{}, x);
  } else {
    for (int32_t x = 0; x < body; x += kStep) block(std::false_type{}, x);
  }
  return body;
}

}  // namespace

// One family of row functions. Widths are in samples; rows may start at any
// address.
struct PyramidRows {
  // Horizontal reduce of a source row into dst_width = ceil(src_width / 2)
  // samples (src_width >= 3).
  void (*reduce_h)(const uint16_t* src, int32_t src_width, uint16_t* dst, int32_t dst_width);
  // The same of a row of 8-bit luma standing for luma x 16, without widening it.
  void (*reduce_h_luma)(const uint8_t* src, int32_t src_width, uint16_t* dst, int32_t dst_width);
  // Vertical reduce of five scratch rows: dst = reduce_tap(r[0] ... r[4]).
  void (*reduce_v)(const uint16_t* const* rows, uint16_t* dst, int32_t width);
  // The same for rows of at most kLumaFixedMax, as every level of a
  // crop's pyramid holds: its sums, at most 16 x 4080 + 8, fit 16-bit lanes.
  void (*reduce_v_pyramid)(const uint16_t* const* rows, uint16_t* dst, int32_t width);
  // Horizontal expansion of a coarse row into fine_width samples
  // (coarse_width >= 2, fine_width = 2 coarse_width or 2 coarse_width - 1);
  // the coarse row is read as unsigned (Gaussian level) or signed (fused level).
  void (*expand_h_unsigned)(const uint16_t* coarse, int32_t coarse_width, uint16_t* fine,
                            int32_t fine_width);
  void (*expand_h_signed)(const int16_t* coarse, int32_t coarse_width, uint16_t* fine,
                          int32_t fine_width);
  // Vertical expansion of scratch rows (read as unsigned) subtracted from a
  // Gaussian row: even fine rows take three coarse rows, odd rows two.
  void (*laplacian_even)(const uint16_t* gauss, const uint16_t* above, const uint16_t* centre,
                         const uint16_t* below, int16_t* out, int32_t width);
  void (*laplacian_odd)(const uint16_t* gauss, const uint16_t* centre, const uint16_t* below,
                        int16_t* out, int32_t width);
  // Vertical expansion of scratch rows (read as unsigned) added to a fused row
  // in place and clamped; when luma is not null the row's 8-bit luma is written
  // there too.
  void (*collapse_even)(int16_t* level, const uint16_t* above, const uint16_t* centre,
                        const uint16_t* below, uint8_t* luma, int32_t width);
  void (*collapse_odd)(int16_t* level, const uint16_t* centre, const uint16_t* below, uint8_t* luma,
                       int32_t width);
};

extern const PyramidRows PyramidRows_C;
#if defined(__aarch64__)
extern const PyramidRows PyramidRows_NEON;
#endif
#if defined(__x86_64__)
extern const PyramidRows PyramidRows_AVX2;
#endif

// The widest family whose instruction set is on (platform/cpu.h).
const PyramidRows& SelectPyramidRows();

}  // namespace tavo
