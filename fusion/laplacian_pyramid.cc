// Laplacian pyramid: band-pass level l is Gaussian level l minus the expansion
// of Gaussian level l + 1 back to the size of level l, as 16-bit two's
// complement.
//
// The expansion is the two-phase form of the 1-4-6-4-1 filter: an even fine
// sample weighs its coarse neighbours (1, 6, 1) / 8, an odd one averages the
// two coarse samples it sits between. A band expands its coarse rows, plus one
// halo row above and below where it has a neighbour band, horizontally into a
// scratch of fine width, then vertically, subtracting from the Gaussian rows.
// The first band reflects at the top of the image and the last at the bottom.
#include <cstddef>

#include "fusion/expanded_band.h"
#include "fusion/fusion_rows.h"
#include "include/tavo_lumo_hdr.h"
#include "platform/log.h"
#include "pool/band_jobs.h"

namespace {

struct LaplacianBand {
  int16_t* out;           // first band-pass row of the band
  uint16_t* pointers[2];  // first fine and first coarse Gaussian row
  int32_t widths[2];      // fine and coarse width
  int32_t rows[2];        // fine and coarse rows of the band
  uint32_t level;
};

}  // namespace

// Builds the band-pass rows of one band. pointers: {fine Gaussian row, coarse
// Gaussian row} at the band's first rows; band_widths: {fine, coarse};
// band_rows likewise.
extern "C" TAVO_HDR_EXPORT int32_t pyramid_laplacian_down_sample(int16_t* out, uint16_t** pointers,
                                                                 const int32_t* band_widths,
                                                                 const int32_t* band_rows,
                                                                 int32_t band, int32_t bands) {
  const int32_t fine_width = band_widths[0];
  const tavo::FusionRows rows = tavo::GetFusionRows();
  const tavo::ExpandedBand expanded(pointers[1], band_widths[1], band_rows[1], fine_width, band == 0,
                                    band == bands - 1, rows.expand_h_unsigned);
  if (!expanded.ok()) {
    HDR_LOG_AS(1184, "pyramid_laplacian_down_sample", "o_temp_ptr malloc fail\n");
    return -1;
  }
  const uint16_t* gauss = pointers[0];
  auto at = [&](int32_t y) { return static_cast<ptrdiff_t>(y) * fine_width; };
  expanded.for_each_fine_row(
      band_rows[0],
      [&](int32_t y, const uint16_t* above, const uint16_t* centre, const uint16_t* below) {
        rows.laplacian_even(gauss + at(y), above, centre, below, out + at(y), fine_width);
      },
      [&](int32_t y, const uint16_t* centre, const uint16_t* below) {
        rows.laplacian_odd(gauss + at(y), centre, below, out + at(y), fine_width);
      });
  return 0;
}

extern "C" TAVO_HDR_EXPORT int32_t pyramid_laplacian_down_sample_parameter(void* record) {
  const auto& a = tavo::band_payload<LaplacianBand>(record);
  const auto* band = static_cast<band_record*>(record);
  uint16_t* pointers[2] = {a.pointers[0], a.pointers[1]};
  tavo::band_done(record, pyramid_laplacian_down_sample(a.out, pointers, a.widths, a.rows, band->band,
                                                        band->bands));
  return 0;
}

// Builds band-pass level `level` from Gaussian levels level and level + 1.
// Fine bands of (h / 4) rounded down to even rows start on even rows, at twice
// their first coarse row. `levels` is not needed.
extern "C" TAVO_HDR_EXPORT int32_t pyramid_laplacian_down_sample_process(
    int16_t** lap_table, uint16_t** gauss_table, uint32_t level, const int32_t* widths,
    const int32_t* heights, int32_t /*levels*/) {
  if (lap_table == nullptr || gauss_table == nullptr || widths == nullptr || heights == nullptr) {
    HDR_LOG_AS(607, "pyramid_laplacian_down_sample_process",
               "in_buffer is NULL,0x%x,0x%x,0x%x,0x%x,0x%x\n", tavo::platform::log_hex(lap_table),
               tavo::platform::log_hex(gauss_table), tavo::platform::log_hex(widths),
               tavo::platform::log_hex(heights), 0u);
  }
  const int32_t fine_width = widths[level];
  const int32_t coarse_width = widths[level + 1];
  const int32_t coarse_height = heights[level + 1];
  const tavo::BandSplit split = tavo::split_rows(heights[level], tavo::SplitRule::kPyramidEven);
  tavo::run_bands<LaplacianBand>(
      split.bands, pyramid_laplacian_down_sample_parameter, [&](int32_t b, LaplacianBand& a) {
        const ptrdiff_t fine_first = split.first(b);
        a.out = lap_table[level] + fine_first * fine_width;
        a.pointers[0] = gauss_table[level] + fine_first * fine_width;
        a.pointers[1] =
            gauss_table[level + 1] + static_cast<ptrdiff_t>(split.half_first(b)) * coarse_width;
        a.widths[0] = fine_width;
        a.widths[1] = coarse_width;
        a.rows[0] = split.rows(b);
        a.rows[1] = split.half_rows(b, coarse_height);
        a.level = level;
      }, static_cast<int64_t>(fine_width) * heights[level]);
  return 0;
}
