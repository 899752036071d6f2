// Portable pyramid rows: the reference every instruction-set variant matches.
// Border samples go through the per-sample formulas of the header, the
// vertical rows through its plain loops.
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

void ReduceV_C(const uint16_t* const* rows, uint16_t* dst, int32_t width) { reduce_v_row(rows, dst, width); }

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
  laplacian_even_row(gauss, above, centre, below, out, width);
}

void LaplacianOdd_C(const uint16_t* gauss, const uint16_t* centre, const uint16_t* below,
                    int16_t* out, int32_t width) {
  laplacian_odd_row(gauss, centre, below, out, width);
}

void CollapseEven_C(int16_t* level, const uint16_t* above, const uint16_t* centre,
                    const uint16_t* below, uint8_t* luma, int32_t width) {
  collapse_even_row(level, above, centre, below, luma, width);
}

void CollapseOdd_C(int16_t* level, const uint16_t* centre, const uint16_t* below, uint8_t* luma,
                   int32_t width) {
  collapse_odd_row(level, centre, below, luma, width);
}

}  // namespace tavo
