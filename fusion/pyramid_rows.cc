// Portable pyramid rows: the reference every instruction-set variant matches.
// Border samples go through the per-sample formulas of the header; the inner
// loops are plain so that the compiler can vectorise them.
#include "fusion/pyramid_rows.h"

namespace tavo {

void ReduceH_C(const uint16_t* src, int32_t src_width, uint16_t* dst, int32_t dst_width) {
  dst[0] = reduce_column(src, src_width, dst_width, 0);
  reduce_h_tail(src, src_width, dst, dst_width, 1);
}

void ReduceHLuma_C(const uint8_t* src, int32_t src_width, uint16_t* dst, int32_t dst_width) {
  dst[0] = reduce_column(src, src_width, dst_width, 0);
  reduce_h_tail(src, src_width, dst, dst_width, 1);
}

void ReduceV_C(const uint16_t* const* rows, uint16_t* dst, int32_t width) {
  const uint16_t* r0 = rows[0];
  const uint16_t* r1 = rows[1];
  const uint16_t* r2 = rows[2];
  const uint16_t* r3 = rows[3];
  const uint16_t* r4 = rows[4];
  for (int32_t x = 0; x < width; ++x) dst[x] = reduce_tap(r0[x], r1[x], r2[x], r3[x], r4[x]);
}

void ExpandHUnsigned_C(const uint16_t* coarse, int32_t coarse_width, uint16_t* fine, int32_t fine_width) {
  expand_h_head(coarse, coarse_width, fine, fine_width);
  expand_h_tail(coarse, coarse_width, fine, fine_width, 1);
}

void ExpandHSigned_C(const int16_t* coarse, int32_t coarse_width, uint16_t* fine, int32_t fine_width) {
  expand_h_head(coarse, coarse_width, fine, fine_width);
  expand_h_tail(coarse, coarse_width, fine, fine_width, 1);
}

void LaplacianEven_C(const uint16_t* gauss, const uint16_t* above, const uint16_t* centre,
                     const uint16_t* below, int16_t* out, int32_t width) {
  for (int32_t x = 0; x < width; ++x) {
    out[x] = laplacian_sample(gauss[x], expand_even(above[x], centre[x], below[x]));
  }
}

void LaplacianOdd_C(const uint16_t* gauss, const uint16_t* centre, const uint16_t* below,
                    int16_t* out, int32_t width) {
  for (int32_t x = 0; x < width; ++x) {
    out[x] = laplacian_sample(gauss[x], expand_odd(centre[x], below[x]));
  }
}

namespace {

template <bool kLuma>
void collapse_even_row(int16_t* level, const uint16_t* above, const uint16_t* centre,
                       const uint16_t* below, uint8_t* luma, int32_t width) {
  for (int32_t x = 0; x < width; ++x) {
    const int16_t r = collapse_sample(level[x], expand_even(above[x], centre[x], below[x]));
    level[x] = r;
    if constexpr (kLuma) luma[x] = luma_of_sample(r);
  }
}

template <bool kLuma>
void collapse_odd_row(int16_t* level, const uint16_t* centre, const uint16_t* below, uint8_t* luma,
                      int32_t width) {
  for (int32_t x = 0; x < width; ++x) {
    const int16_t r = collapse_sample(level[x], expand_odd(centre[x], below[x]));
    level[x] = r;
    if constexpr (kLuma) luma[x] = luma_of_sample(r);
  }
}

}  // namespace

void CollapseEven_C(int16_t* level, const uint16_t* above, const uint16_t* centre,
                    const uint16_t* below, uint8_t* luma, int32_t width) {
  if (luma != nullptr) {
    collapse_even_row<true>(level, above, centre, below, luma, width);
  } else {
    collapse_even_row<false>(level, above, centre, below, luma, width);
  }
}

void CollapseOdd_C(int16_t* level, const uint16_t* centre, const uint16_t* below, uint8_t* luma,
                   int32_t width) {
  if (luma != nullptr) {
    collapse_odd_row<true>(level, centre, below, luma, width);
  } else {
    collapse_odd_row<false>(level, centre, below, luma, width);
  }
}

}  // namespace tavo
