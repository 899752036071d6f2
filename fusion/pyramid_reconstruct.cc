// Pyramid reconstruction: collapses a fused pyramid one level at a time, from
// the top down. Level l becomes its fused band-pass samples plus the expansion
// of the already collapsed level l + 1, clamped to 0 ... 4080, written back in
// place; at level 0 the same pass writes the 8-bit luma, (r + 8) >> 4.
//
// The expansion matches the one the band-pass levels were built with, with one
// twist the fused data needs: the coarse level is read as signed 16-bit (the
// top level of a fused pyramid may hold negative values), while the
// horizontally expanded scratch is read back as unsigned 16-bit, so a negative
// coarse sample turns into a large positive one and clamps at 4080.
#include <cstddef>

#include "fusion/expanded_band.h"
#include "fusion/fusion_rows.h"
#include "include/tavo_lumo_hdr.h"
#include "platform/log.h"
#include "pool/band_jobs.h"

namespace {

struct ReconstructBand {
  uint8_t* out_y;      // first output luma row of the band
  int16_t* planes[2];  // first fine and first coarse row of the band
  int32_t widths[2];   // fine and coarse width
  int32_t rows[2];     // fine and coarse rows of the band
  int32_t level;
};

}  // namespace

// Collapses one band of level `level`. planes: {fine row, coarse row} at the
// band's first rows; widths: {fine, coarse}; rows likewise. At level 0 the
// output luma (stride: the fine width) is written too, unless out_y is null.
extern "C" TAVO_HDR_EXPORT int32_t pyramid_reconstruct_y(uint8_t* out_y, int16_t** planes,
                                                         const int32_t* widths, const int32_t* rows,
                                                         int32_t level, int32_t band_index,
                                                         int32_t band_count) {
  const int32_t fine_width = widths[0];
  const tavo::FusionRows fns = tavo::GetFusionRows();
  const tavo::ExpandedBand expanded(planes[1], widths[1], rows[1], fine_width, band_index == 0,
                                    band_index == band_count - 1, fns.expand_h_signed);
  if (!expanded.ok()) {
    HDR_LOG_AS(1652, "pyramid_reconstruct_y", "o_temp_ptr malloc fail\n");
    return -1;
  }
  int16_t* fine = planes[0];
  auto at = [&](int32_t y) { return static_cast<ptrdiff_t>(y) * fine_width; };
  auto luma = [&](int32_t y) { return level == 0 && out_y != nullptr ? out_y + at(y) : nullptr; };
  expanded.for_each_fine_row(
      rows[0],
      [&](int32_t y, const uint16_t* above, const uint16_t* centre, const uint16_t* below) {
        fns.collapse_even(fine + at(y), above, centre, below, luma(y), fine_width);
      },
      [&](int32_t y, const uint16_t* centre, const uint16_t* below) {
        fns.collapse_odd(fine + at(y), centre, below, luma(y), fine_width);
      });
  return 0;
}

extern "C" TAVO_HDR_EXPORT int32_t pyramid_reconstruct_y_parameter(void* record) {
  const auto& a = tavo::band_payload<ReconstructBand>(record);
  const auto* band = static_cast<band_record*>(record);
  int16_t* planes[2] = {a.planes[0], a.planes[1]};
  tavo::band_done(record, pyramid_reconstruct_y(a.out_y, planes, a.widths, a.rows, a.level,
                                                band->band, band->bands));
  return 0;
}

// Collapses level `level` of a fused pyramid onto the already collapsed level
// above it. Bands of (h / 4) rounded down to even rows start on even fine
// rows, at twice their first coarse row.
extern "C" TAVO_HDR_EXPORT uint32_t pyramid_reconstruct_y_process(uint8_t* out_y, int16_t** levels,
                                                                  const int32_t* widths,
                                                                  const int32_t* heights,
                                                                  int32_t level) {
  if (out_y == nullptr || levels == nullptr || widths == nullptr || heights == nullptr) {
    HDR_LOG_AS(760, "pyramid_reconstruct_y_process", "in_buffer is NULL,0x%x,0x%x,0x%x,0x%x,0x%x\n",
               tavo::platform::log_hex(out_y), tavo::platform::log_hex(levels),
               tavo::platform::log_hex(widths), tavo::platform::log_hex(heights), 0u);
  }
  const int32_t fine_width = widths[level];
  const int32_t coarse_width = widths[level + 1];
  const int32_t coarse_height = heights[level + 1];
  const tavo::BandSplit split = tavo::split_rows(heights[level], tavo::SplitRule::kPyramidEven);
  tavo::run_bands<ReconstructBand>(
      split.bands, pyramid_reconstruct_y_parameter, [&](int32_t b, ReconstructBand& a) {
        const ptrdiff_t fine_first = split.first(b);
        a.out_y = out_y != nullptr ? out_y + fine_first * widths[0] : nullptr;
        a.planes[0] = levels[level] + fine_first * fine_width;
        a.planes[1] = levels[level + 1] + static_cast<ptrdiff_t>(split.half_first(b)) * coarse_width;
        a.widths[0] = fine_width;
        a.widths[1] = coarse_width;
        a.rows[0] = split.rows(b);
        a.rows[1] = split.half_rows(b, coarse_height);
        a.level = level;
      }, static_cast<int64_t>(fine_width) * heights[level]);
  return 0;
}
