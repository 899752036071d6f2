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

#include "fusion/pyramid_rows.h"
#include "include/tavo_lumo_hdr.h"
#include "platform/log.h"
#include "platform/memory.h"
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
  const int32_t coarse_width = widths[1];
  const int32_t fine_rows = rows[0];
  const int32_t coarse_rows = rows[1];
  const bool first = band_index == 0;
  const bool last = band_index == band_count - 1;
  const int32_t above = first ? 0 : 1;  // halo rows expanded above the band
  const int32_t below = last ? 0 : 1;
  const int32_t scratch_rows = coarse_rows + above + below;

  auto* scratch = static_cast<uint16_t*>(tavo::platform::mem_alloc(
      sizeof(uint16_t) * static_cast<size_t>(fine_width) * static_cast<size_t>(scratch_rows)));
  if (scratch == nullptr) {
    HDR_LOG_AS(1652, "pyramid_reconstruct_y", "o_temp_ptr malloc fail\n");
    return -1;
  }
  const tavo::PyramidRows& fns = tavo::pyramid_rows();

  const int16_t* coarse = planes[1] - static_cast<ptrdiff_t>(above) * coarse_width;
  for (int32_t s = 0; s < scratch_rows; ++s) {
    fns.expand_h_signed(coarse + static_cast<ptrdiff_t>(s) * coarse_width, coarse_width,
                        scratch + static_cast<ptrdiff_t>(s) * fine_width, fine_width);
  }

  // Scratch row of the band's coarse row j (-1 and coarse_rows are halo rows).
  auto h = [&](int32_t j) -> const uint16_t* {
    return scratch + static_cast<ptrdiff_t>(j + above) * fine_width;
  };
  int16_t* fine = planes[0];
  // Fine row y with the coarse row below it taken as `next`.
  auto row = [&](int32_t y, const uint16_t* next) {
    const int32_t j = y >> 1;
    const ptrdiff_t at = static_cast<ptrdiff_t>(y) * fine_width;
    uint8_t* luma = level == 0 && out_y != nullptr ? out_y + at : nullptr;
    if (y & 1) {
      fns.collapse_odd(fine + at, h(j), next, luma, fine_width);
    } else {
      fns.collapse_even(fine + at, h(j - 1), h(j), next, luma, fine_width);
    }
  };

  int32_t y = 0;
  if (first) {
    // Top of the image: coarse row -1 reflects to row 1.
    fns.collapse_even(fine, h(1), h(0), h(1), level == 0 ? out_y : nullptr, fine_width);
    y = 1;
  }
  const int32_t plain_end = last ? fine_rows - 2 : fine_rows;
  for (; y < plain_end; ++y) row(y, h((y >> 1) + 1));
  if (last) {
    // Bottom of the image: the coarse row past the last reflects about it.
    for (y = fine_rows - 2; y < fine_rows; ++y) row(y, h(2 * coarse_rows - 3 - (y >> 1)));
  }

  tavo::platform::mem_free(scratch);
  return 0;
}

extern "C" TAVO_HDR_EXPORT int32_t pyramid_reconstruct_y_parameter(void* record) {
  const auto& a = tavo::band_payload<ReconstructBand>(record);
  const auto* band = static_cast<band_record*>(record);
  int16_t* planes[2] = {a.planes[0], a.planes[1]};
  pyramid_reconstruct_y(a.out_y, planes, a.widths, a.rows, a.level, band->band, band->bands);
  tavo::band_done();
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
        const int32_t coarse_first = split.first(b) / 2;
        const int32_t coarse_rows =
            b == split.bands - 1 ? coarse_height - coarse_first : split.step / 2;
        a.out_y = out_y != nullptr ? out_y + fine_first * widths[0] : nullptr;
        a.planes[0] = levels[level] + fine_first * fine_width;
        a.planes[1] = levels[level + 1] + static_cast<ptrdiff_t>(coarse_first) * coarse_width;
        a.widths[0] = fine_width;
        a.widths[1] = coarse_width;
        a.rows[0] = split.rows(b);
        a.rows[1] = coarse_rows;
        a.level = level;
      });
  return 0;
}
