// Gaussian pyramid: level l + 1 is level l filtered with 1-4-6-4-1 in both
// directions and subsampled by two, rounded after each pass.
//
// The destination level is cut into at most four bands. A band filters its own
// source rows horizontally into a scratch of destination width, plus halo rows
// it needs from its neighbours (two above, one below), and then filters the
// scratch vertically. The first band reflects at the top of the image, the
// last band at the bottom, so every band writes exactly the rows a single pass
// over the whole level would.
#include <cstddef>

#include "fusion/pyramid_rows.h"
#include "fusion/pyramid_stages.h"
#include "include/tavo_lumo_hdr.h"
#include "platform/log.h"
#include "platform/memory.h"
#include "pool/band_jobs.h"

namespace {

struct GaussianBand {
  uint16_t* pointers[2];  // first source row, first destination row of the band
  int32_t widths[2];      // source and destination width
  int32_t rows[2];        // source and destination rows of the band
  uint32_t level;
};

}  // namespace

// Reduces one band. pointers: {source row, destination row} at the band's
// first rows; band_widths: {source, destination}; band_rows likewise.
extern "C" TAVO_HDR_EXPORT int32_t pyramid_gaussian_down_sample_uint8(uint16_t** pointers,
                                                                      const int32_t* band_widths,
                                                                      const int32_t* band_rows,
                                                                      int32_t band, int32_t bands) {
  const int32_t src_width = band_widths[0];
  const int32_t dst_width = band_widths[1];
  const int32_t src_rows = band_rows[0];
  const int32_t dst_rows = band_rows[1];
  const bool first = band == 0;
  const bool last = band == bands - 1;
  const int32_t above = first ? 0 : 2;  // halo rows filtered above the band
  const int32_t below = last ? 0 : 1;
  const int32_t scratch_rows = src_rows + above + below;

  auto* scratch = static_cast<uint16_t*>(tavo::platform::mem_alloc(
      sizeof(uint16_t) * static_cast<size_t>(dst_width) * static_cast<size_t>(scratch_rows)));
  if (scratch == nullptr) {
    HDR_LOG_AS(970, "pyramid_gaussian_down_sample_uint8", "temp_p malloc fail\n");
    return -1;
  }
  const tavo::PyramidRows& rows = tavo::pyramid_rows();

  const uint16_t* src = pointers[0] - static_cast<ptrdiff_t>(above) * src_width;
  for (int32_t s = 0; s < scratch_rows; ++s) {
    rows.reduce_h(src + static_cast<ptrdiff_t>(s) * src_width, src_width,
                  scratch + static_cast<ptrdiff_t>(s) * dst_width, dst_width);
  }

  // Scratch row of the band's source row r (r may reach into the halo).
  auto t = [&](int32_t r) -> const uint16_t* {
    return scratch + static_cast<ptrdiff_t>(r + above) * dst_width;
  };
  uint16_t* dst = pointers[1];
  for (int32_t i = 0; i < dst_rows; ++i) {
    const int32_t c = 2 * i;
    const uint16_t* taps[5] = {t(c - 2), t(c - 1), t(c), t(c + 1), t(c + 2)};
    if (first && i == 0) {
      // Top of the image: rows -2, -1 reflect to 2, 1.
      taps[0] = t(c + 2);
      taps[1] = t(c + 1);
    } else if (last && i == dst_rows - 1) {
      if ((src_rows & 1) == 0) {
        taps[4] = t(c);  // row n reflects to n - 2
      } else {
        taps[3] = t(c - 1);  // rows n, n + 1 reflect to n - 2, n - 3
        taps[4] = t(c - 2);
      }
    }
    rows.reduce_v(taps, dst + static_cast<ptrdiff_t>(i) * dst_width, dst_width);
  }

  tavo::platform::mem_free(scratch);
  return 0;
}

extern "C" TAVO_HDR_EXPORT int32_t pyramid_gaussian_down_sample_uint8_parameter(void* record) {
  const auto& a = tavo::band_payload<GaussianBand>(record);
  const auto* band = static_cast<band_record*>(record);
  uint16_t* pointers[2] = {a.pointers[0], a.pointers[1]};
  tavo::band_done(record, pyramid_gaussian_down_sample_uint8(pointers, a.widths, a.rows, band->band,
                                                             band->bands));
  return 0;
}

// Builds level + 1 of a Gaussian pyramid from level. Source bands of (h / 4)
// rounded down to even rows start on even rows, so each band's destination
// rows start at half its first source row.
int32_t tavo::gaussian_reduce_level(uint16_t** level_table, uint32_t level, const int32_t* widths,
                                    const int32_t* heights) {
  const int32_t src_width = widths[level];
  const int32_t dst_width = widths[level + 1];
  const int32_t dst_height = heights[level + 1];
  const tavo::BandSplit split = tavo::split_rows(heights[level], tavo::SplitRule::kPyramidEven);
  return tavo::run_bands<GaussianBand>(
      split.bands, pyramid_gaussian_down_sample_uint8_parameter, [&](int32_t b, GaussianBand& a) {
        a.pointers[0] = level_table[level] + static_cast<ptrdiff_t>(split.first(b)) * src_width;
        a.pointers[1] = level_table[level + 1] + static_cast<ptrdiff_t>(split.half_first(b)) * dst_width;
        a.widths[0] = src_width;
        a.widths[1] = dst_width;
        a.rows[0] = split.rows(b);
        a.rows[1] = split.half_rows(b, dst_height);
        a.level = level;
      });
}

extern "C" TAVO_HDR_EXPORT int32_t pyramid_gaussian_down_sample_uint8_process(
    uint16_t** level_table, uint32_t level, const int32_t* widths, const int32_t* heights) {
  if (level_table == nullptr || widths == nullptr || heights == nullptr) {
    HDR_LOG_AS(544, "pyramid_gaussian_down_sample_uint8_process",
               "in_buffer is NULL,0x%x,0x%x,0x%x,0x%x\n", tavo::platform::log_hex(level_table),
               tavo::platform::log_hex(widths), tavo::platform::log_hex(heights), 0u);
  }
  tavo::gaussian_reduce_level(level_table, level, widths, heights);
  return 0;
}
