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

#include "fusion/pyramid_rows.h"
#include "include/tavo_lumo_hdr.h"
#include "platform/log.h"
#include "platform/memory.h"
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
  const int32_t coarse_width = band_widths[1];
  const int32_t fine_rows = band_rows[0];
  const int32_t coarse_rows = band_rows[1];
  const bool first = band == 0;
  const bool last = band == bands - 1;
  const int32_t above = first ? 0 : 1;  // halo rows expanded above the band
  const int32_t below = last ? 0 : 1;
  const int32_t scratch_rows = coarse_rows + above + below;

  auto* scratch = static_cast<uint16_t*>(tavo::platform::mem_alloc(
      sizeof(uint16_t) * static_cast<size_t>(fine_width) * static_cast<size_t>(scratch_rows)));
  if (scratch == nullptr) {
    HDR_LOG_AS(1184, "pyramid_laplacian_down_sample", "o_temp_ptr malloc fail\n");
    return -1;
  }
  const tavo::PyramidRows& rows = tavo::pyramid_rows();

  const uint16_t* coarse = pointers[1] - static_cast<ptrdiff_t>(above) * coarse_width;
  for (int32_t s = 0; s < scratch_rows; ++s) {
    rows.expand_h_unsigned(coarse + static_cast<ptrdiff_t>(s) * coarse_width, coarse_width,
                           scratch + static_cast<ptrdiff_t>(s) * fine_width, fine_width);
  }

  // Scratch row of the band's coarse row j (-1 and coarse_rows are halo rows).
  auto h = [&](int32_t j) -> const uint16_t* {
    return scratch + static_cast<ptrdiff_t>(j + above) * fine_width;
  };
  const uint16_t* gauss = pointers[0];
  // Fine row y with the coarse row below it taken as `next`.
  auto row = [&](int32_t y, const uint16_t* next) {
    const int32_t j = y >> 1;
    const ptrdiff_t at = static_cast<ptrdiff_t>(y) * fine_width;
    if (y & 1) {
      rows.laplacian_odd(gauss + at, h(j), next, out + at, fine_width);
    } else {
      rows.laplacian_even(gauss + at, h(j - 1), h(j), next, out + at, fine_width);
    }
  };

  int32_t y = 0;
  if (first) {
    // Top of the image: coarse row -1 reflects to row 1.
    rows.laplacian_even(gauss, h(1), h(0), h(1), out, fine_width);
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

extern "C" TAVO_HDR_EXPORT int32_t pyramid_laplacian_down_sample_parameter(void* record) {
  const auto& a = tavo::band_payload<LaplacianBand>(record);
  const auto* band = static_cast<band_record*>(record);
  uint16_t* pointers[2] = {a.pointers[0], a.pointers[1]};
  pyramid_laplacian_down_sample(a.out, pointers, a.widths, a.rows, band->band, band->bands);
  tavo::band_done();
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
        const int32_t coarse_first = split.first(b) / 2;
        const int32_t coarse_rows =
            b == split.bands - 1 ? coarse_height - coarse_first : split.step / 2;
        a.out = lap_table[level] + fine_first * fine_width;
        a.pointers[0] = gauss_table[level] + fine_first * fine_width;
        a.pointers[1] =
            gauss_table[level + 1] + static_cast<ptrdiff_t>(coarse_first) * coarse_width;
        a.widths[0] = fine_width;
        a.widths[1] = coarse_width;
        a.rows[0] = split.rows(b);
        a.rows[1] = coarse_rows;
        a.level = level;
      });
  return 0;
}
