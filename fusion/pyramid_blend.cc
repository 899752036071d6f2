// Pyramid blending: one level of the fused pyramid from the frames' Laplacian
// levels, weighted per pixel by the frames' Gaussian levels (well-exposedness
// times local contrast). Runs in horizontal bands; a band reads the Gaussian
// rows just above and below it in place, so the split never changes a byte.
#include "fusion/fusion_rows.h"
#include "fusion/pyramid_stages.h"
#include "include/tavo_lumo_hdr.h"
#include "platform/log.h"
#include "platform/memory.h"
#include "pool/band_jobs.h"

namespace tavo {
namespace {

struct BlendBand {
  int16_t* out;
  const uint16_t* lut;
  int16_t** lap_rows;      // per frame, at the band's first row; null if not allocated
  uint16_t** gauss_rows;
  int32_t width;
  int32_t rows;
  int32_t frames;
};

}  // namespace
}  // namespace tavo

// Blends `rows` rows of a level. The band's first row is the level's top row
// when band_index is 0, its last row the level's bottom row when band_index is
// band_count - 1; those rows and columns 0 and width-1 are weighted by exposure
// alone and divided by the exact rule. Inside, weights include contrast;
// columns 1 ... 8*floor((width-2)/8) divide by the grouped rule in runs of
// eight, the remaining columns by the exact rule (platform/fixed_point_mean.h).
extern "C" TAVO_HDR_EXPORT uint32_t fusion_pyramid(int16_t* out, const uint16_t* lut,
                                                   int16_t** lap_rows, uint16_t** gauss_rows,
                                                   int32_t width, int32_t rows, int32_t frames,
                                                   int32_t band_index, int32_t band_count) {
  if (frames < 1) {
    HDR_LOG("no frames to blend (%d)\n", frames);
    return 0;
  }
  if (width < 1 || rows < 1) return 0;
  tavo::ExposureFactors factors;
  tavo::build_exposure_factors(lut, &factors);
  const tavo::FusionRows fns = tavo::GetFusionRows();
  tavo::BlendRowArgs row{out, lap_rows, gauss_rows, &factors, 0, 0, width, width, frames, width,
                         tavo::exposure_weights_positive(factors, frames)};
  const bool first_band = band_index == 0;
  const bool last_band = band_index == band_count - 1;
  for (int32_t y = 0; y < rows; ++y) {
    row.out = out + static_cast<ptrdiff_t>(y) * width;
    row.lap_offset = row.gauss_offset = static_cast<ptrdiff_t>(y) * width;
    if ((first_band && y == 0) || (last_band && y == rows - 1)) {
      fns.blend_border(row);
    } else {
      fns.blend_interior(row);
    }
  }
  return 0;
}

extern "C" TAVO_HDR_EXPORT int32_t fusion_pyramid_parameter(void* record) {
  const auto& a = tavo::band_payload<tavo::BlendBand>(record);
  const auto* band = static_cast<band_record*>(record);
  if (a.lap_rows == nullptr || a.gauss_rows == nullptr) {
    tavo::band_done(record, -1);  // its row pointers could not be allocated
    return 0;
  }
  fusion_pyramid(a.out, a.lut, a.lap_rows, a.gauss_rows, a.width, a.rows, a.frames, band->band,
                 band->bands);
  tavo::band_done(record);
  return 0;
}

// Blends level `level` of every frame into out_levels[level]: four bands of
// H/4 rows (the last takes the rest), or one band when H/4 < 2. Each band gets
// its own arrays of per-frame row pointers, freed after the wait; a band whose
// arrays could not be allocated is left unblended and fails the batch.
int32_t tavo::blend_level(int16_t** out_levels, const uint16_t* lut, int16_t*** lap_pyramids,
                          uint16_t*** gauss_pyramids, const int32_t* widths, const int32_t* heights,
                          int32_t level, uint32_t frames) {
  const int32_t width = widths[level];
  const tavo::BandSplit split = tavo::split_rows(heights[level], tavo::SplitRule::kPyramid);
  int16_t** lap_arrays[tavo::kBandCount] = {};
  uint16_t** gauss_arrays[tavo::kBandCount] = {};
  for (int32_t b = 0; b < split.bands; ++b) {
    lap_arrays[b] = static_cast<int16_t**>(tavo::platform::mem_alloc(sizeof(int16_t*) * frames));
    gauss_arrays[b] = static_cast<uint16_t**>(tavo::platform::mem_alloc(sizeof(uint16_t*) * frames));
    if (lap_arrays[b] != nullptr && gauss_arrays[b] != nullptr) continue;
    HDR_LOG("band %d: row pointer arrays not allocated, band left unblended\n", b);
    tavo::platform::mem_free(lap_arrays[b]);
    tavo::platform::mem_free(gauss_arrays[b]);
    lap_arrays[b] = nullptr;
    gauss_arrays[b] = nullptr;
  }
  const int32_t status = tavo::run_bands<tavo::BlendBand>(
      split.bands, fusion_pyramid_parameter, [&](int32_t b, tavo::BlendBand& a) {
        const ptrdiff_t first = static_cast<ptrdiff_t>(split.first(b)) * width;
        if (lap_arrays[b] != nullptr) {
          for (uint32_t f = 0; f < frames; ++f) {
            lap_arrays[b][f] = lap_pyramids[f][level] + first;
            gauss_arrays[b][f] = gauss_pyramids[f][level] + first;
          }
        }
        a = tavo::BlendBand{out_levels[level] + first, lut, lap_arrays[b], gauss_arrays[b], width,
                            split.rows(b), static_cast<int32_t>(frames)};
      }, static_cast<int64_t>(width) * heights[level] * frames);
  for (int b = 0; b < tavo::kBandCount; ++b) {
    tavo::platform::mem_free(lap_arrays[b]);
    tavo::platform::mem_free(gauss_arrays[b]);
  }
  return status;
}

extern "C" TAVO_HDR_EXPORT int32_t fusion_pyramid_process(int16_t** out_levels, const uint16_t* lut,
                                                          int16_t*** lap_pyramids,
                                                          uint16_t*** gauss_pyramids,
                                                          const int32_t* widths,
                                                          const int32_t* heights, int32_t level,
                                                          uint32_t frames) {
  using tavo::platform::log_hex;
  if (out_levels == nullptr || lut == nullptr || lap_pyramids == nullptr ||
      gauss_pyramids == nullptr || widths == nullptr || heights == nullptr) {
    HDR_LOG_AS(679, "fusion_pyramid_process", "in_buffer is NULL,0x%x,0x%x,0x%x,0x%x,0x%x,0x%x\n",
               log_hex(out_levels), log_hex(lut), log_hex(lap_pyramids), log_hex(gauss_pyramids),
               log_hex(widths), log_hex(heights));
    return 0;  // nothing a band could read
  }
  if (frames < 1 || frames > INT32_MAX) {
    HDR_LOG("%u frames, nothing blended\n", frames);
    return 0;
  }
  tavo::blend_level(out_levels, lut, lap_pyramids, gauss_pyramids, widths, heights, level, frames);
  return 0;
}
