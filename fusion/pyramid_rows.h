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
// for every 16-bit input, not only for the 12-bit samples the pyramids hold
// (a variant takes the formulas below inlined for its borders and for rows
// shorter than a vector: fusion/pyramid_rows_any.h).
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
// and so do the vector rows on rows too short for a vector. On luma x 16 the filter needs
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

// Fine positions 0 and 1 of the horizontal expansion.
template <class Sample>
inline void expand_h_head(const Sample* coarse, int32_t coarse_width, uint16_t* fine, int32_t fine_width) {
  for (int32_t x = 0; x < fine_width && x < 2; ++x) fine[x] = expand_column(coarse, coarse_width, fine_width, x);
}

// Fine positions 2k ... fine_width - 1 of the horizontal expansion (k >= 1):
// the pairs (2k, 2k + 1) that lie before the last two positions by the
// interior formulas, then the rest with the right-border rule. The portable
// rows run it from k = 1, the vector rows for the border pairs after their
// steps (or from k = 1 on rows too short for a vector).
template <class Sample>
inline void expand_h_tail(const Sample* coarse, int32_t coarse_width, uint16_t* fine, int32_t fine_width,
                          int32_t k) {
  const int32_t pairs_end = (fine_width - 2) / 2;  // pairs k with 2k + 1 < fine_width - 2
  for (; k < pairs_end; ++k) {
    const int32_t l = coarse[k - 1], c = coarse[k], r = coarse[k + 1];
    fine[2 * k] = static_cast<uint16_t>(expand_even(l, c, r));
    fine[2 * k + 1] = static_cast<uint16_t>(expand_odd(c, r));
  }
  for (int32_t x = 2 * k; x < fine_width; ++x) fine[x] = expand_column(coarse, coarse_width, fine_width, x);
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

// The vertical rows sample by sample: the portable rows, and the vector rows'
// code for rows shorter than a vector.
inline void reduce_v_row(const uint16_t* const* rows, uint16_t* dst, int32_t width) {
  for (int32_t x = 0; x < width; ++x) dst[x] = reduce_tap(rows[0][x], rows[1][x], rows[2][x], rows[3][x], rows[4][x]);
}

inline void laplacian_even_row(const uint16_t* gauss, const uint16_t* above, const uint16_t* centre,
                               const uint16_t* below, int16_t* out, int32_t width) {
  for (int32_t x = 0; x < width; ++x) out[x] = laplacian_sample(gauss[x], expand_even(above[x], centre[x], below[x]));
}

inline void laplacian_odd_row(const uint16_t* gauss, const uint16_t* centre, const uint16_t* below, int16_t* out,
                              int32_t width) {
  for (int32_t x = 0; x < width; ++x) out[x] = laplacian_sample(gauss[x], expand_odd(centre[x], below[x]));
}

// Collapse rows: expanded(x) is the expansion at x; the luma variant is
// chosen once per row.
template <class Expanded>
inline void collapse_row(int16_t* level, uint8_t* luma, int32_t width, Expanded expanded) {
  auto run = [&](auto with_luma) {
    for (int32_t x = 0; x < width; ++x) {
      const int16_t r = collapse_sample(level[x], expanded(x));
      level[x] = r;
      if constexpr (decltype(with_luma)::value) luma[x] = luma_of_sample(r);
    }
  };
  if (luma != nullptr) {
    run(std::true_type{});
  } else {
    run(std::false_type{});
  }
}

inline void collapse_even_row(int16_t* level, const uint16_t* above, const uint16_t* centre, const uint16_t* below,
                              uint8_t* luma, int32_t width) {
  collapse_row(level, luma, width, [&](int32_t x) { return expand_even(above[x], centre[x], below[x]); });
}

inline void collapse_odd_row(int16_t* level, const uint16_t* centre, const uint16_t* below, uint8_t* luma,
                             int32_t width) {
  collapse_row(level, luma, width, [&](int32_t x) { return expand_odd(centre[x], below[x]); });
}

}  // namespace

// The rows, one function type each. Widths are in samples; rows may start at
// any address.
//
// Horizontal reduce of a source row into dst_width = ceil(src_width / 2)
// samples (src_width >= 3): of 16-bit samples, or of 8-bit luma standing for
// luma x 16, without widening it.
template <class Sample>
using ReduceHRow = void(const Sample* src, int32_t src_width, uint16_t* dst, int32_t dst_width);
// Vertical reduce of five scratch rows: dst = reduce_tap(r[0] ... r[4]).
using ReduceVRow = void(const uint16_t* const* rows, uint16_t* dst, int32_t width);
// Horizontal expansion of a coarse row into fine_width samples (coarse_width
// >= 2, fine_width = 2 coarse_width or 2 coarse_width - 1); the coarse row is
// read as unsigned (Gaussian level) or signed (fused level).
template <class Sample>
using ExpandHRow = void(const Sample* coarse, int32_t coarse_width, uint16_t* fine, int32_t fine_width);
// Vertical expansion of scratch rows (read as unsigned) subtracted from a
// Gaussian row: even fine rows take three coarse rows, odd rows two.
using LaplacianEvenRow = void(const uint16_t* gauss, const uint16_t* above, const uint16_t* centre,
                              const uint16_t* below, int16_t* out, int32_t width);
using LaplacianOddRow = void(const uint16_t* gauss, const uint16_t* centre, const uint16_t* below,
                             int16_t* out, int32_t width);
// Vertical expansion of scratch rows (read as unsigned) added to a fused row
// in place and clamped; when luma is not null the row's 8-bit luma is written
// there too.
using CollapseEvenRow = void(int16_t* level, const uint16_t* above, const uint16_t* centre,
                             const uint16_t* below, uint8_t* luma, int32_t width);
using CollapseOddRow = void(int16_t* level, const uint16_t* centre, const uint16_t* below, uint8_t* luma,
                            int32_t width);

// The portable rows. ReduceH_C and ReduceV_C also serve rows of at most
// kLumaFixedMax, for which the vector sets have rows of their own
// (ReduceHPyramid_*, ReduceVPyramid_*).
ReduceHRow<uint16_t> ReduceH_C;
ReduceHRow<uint8_t> ReduceHLuma_C;
ReduceVRow ReduceV_C;
ExpandHRow<uint16_t> ExpandHUnsigned_C;
ExpandHRow<int16_t> ExpandHSigned_C;
LaplacianEvenRow LaplacianEven_C;
LaplacianOddRow LaplacianOdd_C;
CollapseEvenRow CollapseEven_C;
CollapseOddRow CollapseOdd_C;
#if defined(__aarch64__)
ReduceHRow<uint16_t> ReduceH_NEON, ReduceHPyramid_NEON;
ReduceHRow<uint8_t> ReduceHLuma_NEON;
ReduceVRow ReduceV_NEON, ReduceVPyramid_NEON;
ExpandHRow<uint16_t> ExpandHUnsigned_NEON;
ExpandHRow<int16_t> ExpandHSigned_NEON;
LaplacianEvenRow LaplacianEven_NEON;
LaplacianOddRow LaplacianOdd_NEON;
CollapseEvenRow CollapseEven_NEON;
CollapseOddRow CollapseOdd_NEON;
#endif
#if defined(__x86_64__)
ReduceHRow<uint16_t> ReduceH_AVX2, ReduceHPyramid_AVX2;
ReduceHRow<uint8_t> ReduceHLuma_AVX2;
ReduceVRow ReduceV_AVX2, ReduceVPyramid_AVX2;
ExpandHRow<uint16_t> ExpandHUnsigned_AVX2;
ExpandHRow<int16_t> ExpandHSigned_AVX2;
LaplacianEvenRow LaplacianEven_AVX2;
LaplacianOddRow LaplacianOdd_AVX2;
CollapseEvenRow CollapseEven_AVX2;
CollapseOddRow CollapseOdd_AVX2;
ReduceHRow<uint16_t> ReduceH_AVX512, ReduceHPyramid_AVX512;
ReduceHRow<uint8_t> ReduceHLuma_AVX512;
ReduceVRow ReduceVPyramid_AVX512;
LaplacianEvenRow LaplacianEven_AVX512;
LaplacianOddRow LaplacianOdd_AVX512;
CollapseOddRow CollapseOdd_AVX512;
#endif

}  // namespace tavo
