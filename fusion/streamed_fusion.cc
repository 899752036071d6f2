#include "fusion/streamed_fusion.h"

#include <array>
#include <cstddef>

#include "align/align_rows.h"
#include "fusion/expanded_band.h"
#include "fusion/fusion_rows.h"
#include "fusion/reduce_band.h"
#include "platform/log.h"
#include "platform/memory.h"
#include "pool/band_jobs.h"

namespace tavo {
namespace {

// ---- Gaussian level 1 from the crops --------------------------------------

struct CropBand {
  const uint8_t* const* frames;
  int32_t count;
  uint32_t stride;
  const int32_t* origins;           // per frame: crop column, crop row
  uint16_t* const* const* gauss;    // per frame: level table
  int32_t src_width, dst_width;
  int32_t src_height, dst_height;
  RowChunks* chunks;                // of level-1 rows
};

// Level 0 is the crop's 8-bit luma standing for luma x 16; its rows are
// reduced horizontally as they stand, so level 0 is never stored or widened.
int32_t crop_band_body(void* record) {
  const auto& a = band_payload<CropBand>(record);
  const FusionRows rows = GetFusionRows();
  int32_t status = 0, first = 0, count = 0;
  while (status == 0 && a.chunks->take(&first, &count)) {
    const ReduceRows r = reduce_rows_of(first, count, a.src_height, a.dst_height);
    for (int32_t f = 0; f < a.count && status == 0; ++f) {
      const auto horizontal = [&](int32_t s, uint16_t* out) {
        const uint8_t* src = crop_row(a.frames[f], a.stride, a.origins[2 * f], a.origins[2 * f + 1], r.src_first + s);
        rows.reduce_h_luma(src, a.src_width, out, a.dst_width);
      };
      uint16_t* dst = a.gauss[f][1] + static_cast<ptrdiff_t>(r.dst_first) * a.dst_width;
      status = reduce_band(horizontal, rows.reduce_v_pyramid, r.src_rows, dst, a.dst_width, r.dst_rows, r.first,
                           r.last);
    }
  }
  if (status != 0) HDR_LOG_AS(970, "pyramid_gaussian_down_sample_uint8", "temp_p malloc fail\n");
  band_done(record, status == 0 ? 0 : kStageFailed);
  return 0;
}

// ---- One level of the collapse --------------------------------------------

// Rows of a coarse level expanded horizontally to fine width when first asked
// for, in four slots: the rows j - 1, j, j + 1 of one fine row never share one.
template <class Sample>
struct ExpandedRows {
  const Sample* level;
  int32_t coarse_width, fine_width;
  ExpandHRow<Sample>* expand;
  uint16_t* slots;  // 4 x fine_width
  int32_t* tags;    // coarse row held by each slot, -1 for none

  const uint16_t* row(int32_t j) const {
    const int32_t s = j & 3;
    uint16_t* slot = slots + static_cast<ptrdiff_t>(s) * fine_width;
    if (tags[s] != j) {
      expand(level + static_cast<ptrdiff_t>(j) * coarse_width, coarse_width, slot, fine_width);
      tags[s] = j;
    }
    return slot;
  }
};

struct LevelBand {
  const StreamedLevel* level;
  RowChunks* chunks;
};

// Scratch of one band, each part taken on its own so that a failure says
// which stage could not run.
struct BandScratch {
  void* band_pass = nullptr;  // per frame: tags, 4 expanded Gaussian rows, a band-pass row
  void* blend = nullptr;      // row pointers, window tags, fused row, widened crop rows
  void* collapse = nullptr;   // tags, 4 expanded collapsed rows
  ~BandScratch() {
    platform::mem_free(band_pass);
    platform::mem_free(blend);
    platform::mem_free(collapse);
  }
};

// A band of the batch: its scratch taken once, then the rows of every chunk it
// takes. The cached expanded and widened rows are tagged with their row
// numbers, so they stay valid from one chunk to the next.
int32_t fuse_band(const StreamedLevel& lv, RowChunks& chunks) {
  const int32_t l = lv.level, n = lv.frames;
  const int32_t wf = lv.widths[l], hf = lv.heights[l];
  const int32_t wc = lv.widths[l + 1], hc = lv.heights[l + 1];
  const auto row_bytes = static_cast<size_t>(wf) * sizeof(uint16_t);
  const auto frames = static_cast<size_t>(n);
  const bool level0 = l == 0;

  BandScratch scratch;
  scratch.band_pass = platform::mem_alloc(frames * (4 * sizeof(int32_t) + 5 * row_bytes));
  if (scratch.band_pass == nullptr) return kBandPassFailed;
  const size_t window_rows = level0 ? 1 + 3 * frames : 0;  // fused row and three crop rows a frame
  scratch.blend = platform::mem_alloc(2 * frames * sizeof(void*) + 4 * sizeof(int32_t) + window_rows * row_bytes);
  if (scratch.blend == nullptr) return kBlendFailed;
  scratch.collapse = platform::mem_alloc(4 * sizeof(int32_t) + 4 * row_bytes);
  if (scratch.collapse == nullptr) return kCollapseFailed;

  const FusionRows fns = GetFusionRows();
  // Band-pass part: the frames' expanded Gaussian rows and band-pass rows.
  auto* gauss_tags = static_cast<int32_t*>(scratch.band_pass);
  auto* expanded = reinterpret_cast<uint16_t*>(gauss_tags + 4 * frames);
  auto* band_pass = reinterpret_cast<int16_t*>(expanded + 4 * frames * wf);
  auto gauss_rows = [&](int32_t f) {
    return ExpandedRows<uint16_t>{lv.gauss[f][l + 1], wc, wf, fns.expand_h_unsigned,
                                  expanded + static_cast<ptrdiff_t>(4 * f) * wf, gauss_tags + 4 * f};
  };
  for (size_t t = 0; t < 4 * frames; ++t) gauss_tags[t] = -1;
  // Blend part.
  auto* lap_ptrs = static_cast<const int16_t**>(scratch.blend);
  auto* gauss_ptrs = reinterpret_cast<const uint16_t**>(lap_ptrs + n);
  auto* window_tags = reinterpret_cast<int32_t*>(gauss_ptrs + n);
  auto* fused_row = level0 ? reinterpret_cast<int16_t*>(window_tags + 4) : nullptr;
  auto* window = level0 ? reinterpret_cast<uint16_t*>(fused_row + wf) : nullptr;  // frame f's slot s: row 3f + s
  for (int t = 0; t < 4; ++t) window_tags[t] = -1;
  // Collapse part.
  auto* collapse_tags = static_cast<int32_t*>(scratch.collapse);
  for (int t = 0; t < 4; ++t) collapse_tags[t] = -1;
  const ExpandedRows<int16_t> collapsed_rows{lv.collapsed[l + 1], wc, wf, fns.expand_h_signed,
                                             reinterpret_cast<uint16_t*>(collapse_tags + 4), collapse_tags};

  // Level 0 is the crop, widened a row at a time into three slots per frame;
  // every frame keeps row y in slot y % 3, so the distances between the rows
  // of the contrast stencil are the same for all frames.
  const WidenX16RowFn widen = GetAlignRows().widen_x16;
  auto window_row = [&](int32_t y) {
    const int32_t s = y % 3;
    if (window_tags[s] != y) {
      for (int32_t f = 0; f < n; ++f) {
        widen(crop_row(lv.crops[f], lv.stride, lv.origins[2 * f], lv.origins[2 * f + 1], y),
              window + static_cast<ptrdiff_t>(3 * f + s) * wf, wf);
      }
      window_tags[s] = y;
    }
    return static_cast<ptrdiff_t>(s) * wf;  // offset of the row in every frame's window
  };

  // Where each frame's Gaussian rows of this level are read: the crop window
  // at level 0, the stored level above it.
  for (int32_t f = 0; f < n; ++f) {
    gauss_ptrs[f] = level0 ? window + static_cast<ptrdiff_t>(3 * f) * wf : lv.gauss[f][l];
  }

  std::array<int32_t, kExposureFactors> factors;
  build_exposure_factors(lv.lut, factors.data());
  const bool positive_weights = exposure_weights_positive(factors.data(), n);
  const BlendGroupsFn groups = fns.blend_groups;

  int32_t first = 0, rows = 0;
  while (chunks.take(&first, &rows)) {
    for (int32_t y = first; y < first + rows; ++y) {
      // Whole-level row numbers: the reflections at both ends of the level.
      const CoarseRows c = coarse_rows_of(y, hf, hc, true, true);
      const bool border = y == 0 || y == hf - 1;
      BlendRowArgs row{level0 ? fused_row : lv.collapsed[l] + static_cast<ptrdiff_t>(y) * wf,
                       lap_ptrs, gauss_ptrs, factors.data(), 0, 0, wf, wf, n, wf, positive_weights};
      if (level0) {
        row.gauss_offset = window_row(y);
        if (!border) {
          row.up = row.gauss_offset - window_row(y - 1);
          row.down = window_row(y + 1) - row.gauss_offset;
        }
      } else {
        row.gauss_offset = static_cast<ptrdiff_t>(y) * wf;
      }

      // Band-pass rows: the Gaussian row minus the expansion of the level above.
      for (int32_t f = 0; f < n; ++f) {
        const uint16_t* g = gauss_ptrs[f] + row.gauss_offset;
        int16_t* out = band_pass + static_cast<ptrdiff_t>(f) * wf;
        const ExpandedRows<uint16_t> e = gauss_rows(f);
        if (c.even) {
          fns.laplacian_even(g, e.row(c.above), e.row(c.centre), e.row(c.below), out, wf);
        } else {
          fns.laplacian_odd(g, e.row(c.centre), e.row(c.below), out, wf);
        }
        lap_ptrs[f] = out;
      }

      if (border) {
        BlendBorderRow(row);
      } else {
        BlendInteriorRow(row, groups);
      }

      // Collapse in place onto the expansion of the collapsed level above.
      uint8_t* luma = level0 ? lv.luma + static_cast<ptrdiff_t>(y) * wf : nullptr;
      if (c.even) {
        fns.collapse_even(row.out, collapsed_rows.row(c.above), collapsed_rows.row(c.centre),
                          collapsed_rows.row(c.below), luma, wf);
      } else {
        fns.collapse_odd(row.out, collapsed_rows.row(c.centre), collapsed_rows.row(c.below), luma, wf);
      }
    }
  }
  return 0;
}

int32_t level_band_body(void* record) {
  const auto& a = band_payload<LevelBand>(record);
  band_done(record, fuse_band(*a.level, *a.chunks));
  return 0;
}

}  // namespace

int32_t gaussian_level1_from_crops(const uint8_t* const* frames, int32_t count, uint32_t stride,
                                   const int32_t* origins, uint16_t* const* const* gauss,
                                   const int32_t* widths, const int32_t* heights) {
  const BandSplit split = split_rows(heights[0], SplitRule::kPyramidEven);
  RowChunks chunks(heights[1]);
  return run_bands<CropBand>(split.bands, crop_band_body, [&](int32_t, CropBand& a) {
    a = CropBand{frames, count, stride, origins, gauss, widths[0], widths[1], heights[0], heights[1], &chunks};
  }, static_cast<int64_t>(widths[0]) * heights[0] * count);
}

int32_t fuse_and_collapse_level(const StreamedLevel& level) {
  const BandSplit split = split_rows(level.heights[level.level], SplitRule::kPyramidEven);
  RowChunks chunks(level.heights[level.level]);
  return run_bands<LevelBand>(split.bands, level_band_body, [&](int32_t, LevelBand& a) {
    a = LevelBand{&level, &chunks};
  }, static_cast<int64_t>(level.widths[level.level]) * level.heights[level.level] * level.frames);
}

}  // namespace tavo
