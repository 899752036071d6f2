// Gaussian pyramid: level l + 1 is level l filtered with 1-4-6-4-1 in both
// directions and subsampled by two, rounded after each pass (fusion/reduce_band.h),
// in at most four bands.
#include <cstddef>

#include "fusion/fusion_rows.h"
#include "fusion/pyramid_stages.h"
#include "fusion/reduce_band.h"
#include "include/tavo_lumo_hdr.h"
#include "platform/log.h"
#include "pool/band_jobs.h"

namespace {

// A band of a level of one or more pyramids of the same geometry, taking the
// destination rows in chunks.
struct GaussianBand {
  uint16_t** const* tables;  // the pyramids' level tables
  int32_t pyramids;
  uint32_t level;
  int32_t widths[2];   // source and destination width
  int32_t heights[2];  // source and destination height
  bool crop_pyramids;  // the levels are a crop pyramid's: samples of at most 4080
  tavo::RowChunks* chunks;
};

// The kernel with the given horizontal and vertical rows; first and last tell
// whether the rows hold the level's top and bottom row.
int32_t reduce_gaussian_band(uint16_t** pointers, const int32_t* band_widths, const int32_t* band_rows,
                             bool first, bool last, tavo::ReduceHRow<uint16_t>* horizontal,
                             tavo::VerticalReduceRow vertical) {
  const uint16_t* src = pointers[0];
  const int32_t src_width = band_widths[0], dst_width = band_widths[1];
  const int32_t status = tavo::reduce_band(
      [&](int32_t s, uint16_t* out) {
        horizontal(src + static_cast<ptrdiff_t>(s) * src_width, src_width, out, dst_width);
      },
      vertical, band_rows[0], pointers[1], dst_width, band_rows[1], first, last);
  if (status != 0) HDR_LOG_AS(970, "pyramid_gaussian_down_sample_uint8", "temp_p malloc fail\n");
  return status;
}

}  // namespace

// Reduces one band. pointers: {source row, destination row} at the band's
// first rows; band_widths: {source, destination}; band_rows likewise.
extern "C" TAVO_HDR_EXPORT int32_t pyramid_gaussian_down_sample_uint8(uint16_t** pointers,
                                                                      const int32_t* band_widths,
                                                                      const int32_t* band_rows,
                                                                      int32_t band, int32_t bands) {
  const tavo::FusionRows rows = tavo::GetFusionRows();
  return reduce_gaussian_band(pointers, band_widths, band_rows, band == 0, band == bands - 1, rows.reduce_h,
                              rows.reduce_v);
}

// Every chunk the band takes, in every pyramid of the record, until a chunk
// fails.
extern "C" TAVO_HDR_EXPORT int32_t pyramid_gaussian_down_sample_uint8_parameter(void* record) {
  const auto& a = tavo::band_payload<GaussianBand>(record);
  const tavo::FusionRows rows = tavo::GetFusionRows();
  tavo::ReduceHRow<uint16_t>* const horizontal = a.crop_pyramids ? rows.reduce_h_pyramid : rows.reduce_h;
  const tavo::VerticalReduceRow vertical = a.crop_pyramids ? rows.reduce_v_pyramid : rows.reduce_v;
  int32_t status = 0, first = 0, count = 0;
  while (status == 0 && a.chunks->take(&first, &count)) {
    const tavo::ReduceRows r = tavo::reduce_rows_of(first, count, a.heights[0], a.heights[1]);
    const int32_t chunk_rows[2] = {r.src_rows, r.dst_rows};
    for (int32_t p = 0; p < a.pyramids && status == 0; ++p) {
      uint16_t* pointers[2] = {
          a.tables[p][a.level] + static_cast<ptrdiff_t>(r.src_first) * a.widths[0],
          a.tables[p][a.level + 1] + static_cast<ptrdiff_t>(r.dst_first) * a.widths[1]};
      status = reduce_gaussian_band(pointers, a.widths, chunk_rows, r.first, r.last, horizontal, vertical);
    }
  }
  tavo::band_done(record, status);
  return 0;
}

// Builds level + 1 of every pyramid from level in four bands (one for a
// level of fewer than 8 rows) that take the destination rows in chunks; a
// chunk's source rows start at twice its first destination row.
int32_t tavo::gaussian_reduce_level(uint16_t** const* level_tables, int32_t pyramids, uint32_t level,
                                    const int32_t* widths, const int32_t* heights, bool crop_pyramids) {
  const tavo::BandSplit split = tavo::split_rows(heights[level], tavo::SplitRule::kPyramidEven);
  tavo::RowChunks chunks(heights[level + 1]);
  return tavo::run_bands<GaussianBand>(
      split.bands, pyramid_gaussian_down_sample_uint8_parameter, [&](int32_t, GaussianBand& a) {
        a = GaussianBand{level_tables, pyramids, level, {widths[level], widths[level + 1]},
                         {heights[level], heights[level + 1]}, crop_pyramids, &chunks};
      }, static_cast<int64_t>(widths[level]) * heights[level] * pyramids);
}

extern "C" TAVO_HDR_EXPORT int32_t pyramid_gaussian_down_sample_uint8_process(
    uint16_t** level_table, uint32_t level, const int32_t* widths, const int32_t* heights) {
  if (level_table == nullptr || widths == nullptr || heights == nullptr) {
    HDR_LOG_AS(544, "pyramid_gaussian_down_sample_uint8_process",
               "in_buffer is NULL,0x%x,0x%x,0x%x,0x%x\n", tavo::platform::log_hex(level_table),
               tavo::platform::log_hex(widths), tavo::platform::log_hex(heights), 0u);
  }
  tavo::gaussian_reduce_level(&level_table, 1, level, widths, heights, false);
  return 0;
}
