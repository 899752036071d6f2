#include "fusion/streamed_fusion.h"

#include <array>
#include <cstddef>
#include <type_traits>

#include "align/align_rows.h"
#include "align/crop_to_frame.h"
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

class LevelPass;

// Rows of a coarse level expanded horizontally to fine width when first asked
// for, in four slots: the rows j - 1, j, j + 1 of one fine row never share one.
// The coarse rows are read from the stored level or, for a collapsed level
// that is not stored, made by the pass of that level when asked for.
template <class Sample>
struct ExpandedRows {
  const Sample* level;  // null when `pass` makes the rows
  LevelPass* pass;
  int32_t coarse_width, fine_width;
  ExpandHRow<Sample>* expand;
  uint16_t* slots;  // 4 x fine_width
  int32_t* tags;    // coarse row held by each slot, -1 for none

  const uint16_t* row(int32_t j) const;
};

// Scratch of one level of a band, each part taken on its own so that a
// failure says which stage could not run.
struct BandScratch {
  void* band_pass = nullptr;  // per frame: tags, 4 expanded Gaussian rows, a band-pass row
  void* blend = nullptr;      // row pointers, window tags, fused row, widened crop rows
  void* collapse = nullptr;   // tags, 4 expanded collapsed rows, the collapsed row made on demand
  BandScratch() = default;
  BandScratch(const BandScratch&) = delete;
  BandScratch& operator=(const BandScratch&) = delete;
  ~BandScratch() {
    platform::mem_free(band_pass);
    platform::mem_free(blend);
    platform::mem_free(collapse);
  }
};

// The rows of one level of the collapse in one band: the frames' band-pass
// rows, their blend and its collapse onto the collapsed level above. That
// level is read from the block, or made a row at a time by the pass `above`
// of the same band. The cached expanded and widened rows are tagged with
// their row numbers, so they stay valid from one chunk to the next.
class LevelPass {
 public:
  // 0, or the failure of the scratch part that could not be taken. With
  // on_demand the collapsed rows go to a row of the pass's own, else to the
  // block (level 0: to the output luma).
  int32_t init(const StreamedLevel& lv, int32_t level, bool on_demand, LevelPass* above);
  // Collapsed row y: into the block (a stored level), the pass's own row (a
  // level made on demand) or the output luma (level 0).
  void make_row(int32_t y);
  // Collapsed row j of a level made on demand, for the level below.
  const int16_t* row(int32_t j) {
    if (own_tag_ != j) {
      make_row(j);
      own_tag_ = j;
    }
    return own_row_;
  }

 private:
  ptrdiff_t window_row(int32_t y);

  const StreamedLevel* lv_ = nullptr;
  int32_t l_ = 0, n_ = 0, wf_ = 0, hf_ = 0, wc_ = 0;
  bool level0_ = false;
  BandScratch scratch_;
  FusionRows fns_{};
  WidenX16RowFn widen_ = nullptr;
  ExposureFactors factors_{};
  bool positive_weights_ = false;
  int32_t* gauss_tags_ = nullptr;
  uint16_t* expanded_ = nullptr;
  int16_t* band_pass_ = nullptr;
  const int16_t** lap_ptrs_ = nullptr;
  const uint16_t** gauss_ptrs_ = nullptr;
  int32_t* window_tags_ = nullptr;
  int16_t* fused_row_ = nullptr;
  uint16_t* window_ = nullptr;  // frame f's slot s: row 3f + s
  uint8_t* luma_row_ = nullptr;  // level 0's output row on its way to the frame
  ExpandedRows<int16_t> collapsed_rows_{};
  int16_t* own_row_ = nullptr;
  int32_t own_tag_ = -1;
};

template <class Sample>
const uint16_t* ExpandedRows<Sample>::row(int32_t j) const {
  const int32_t s = j & 3;
  uint16_t* slot = slots + static_cast<ptrdiff_t>(s) * fine_width;
  if (tags[s] != j) {
    const Sample* coarse = nullptr;
    if constexpr (std::is_same_v<Sample, int16_t>) {
      coarse = level != nullptr ? level + static_cast<ptrdiff_t>(j) * coarse_width : pass->row(j);
    } else {
      coarse = level + static_cast<ptrdiff_t>(j) * coarse_width;
    }
    expand(coarse, coarse_width, slot, fine_width);
    tags[s] = j;
  }
  return slot;
}

int32_t LevelPass::init(const StreamedLevel& lv, int32_t level, bool on_demand, LevelPass* above) {
  lv_ = &lv;
  l_ = level;
  n_ = lv.frames;
  wf_ = lv.widths[l_];
  hf_ = lv.heights[l_];
  wc_ = lv.widths[l_ + 1];
  level0_ = l_ == 0;
  const auto row_bytes = static_cast<size_t>(wf_) * sizeof(uint16_t);
  const auto frames = static_cast<size_t>(n_);

  scratch_.band_pass = platform::mem_alloc(frames * (4 * sizeof(int32_t) + 5 * row_bytes));
  if (scratch_.band_pass == nullptr) return kBandPassFailed;
  const size_t window_rows = level0_ ? 1 + 3 * frames : 0;  // fused row and three crop rows a frame
  const size_t luma_row_bytes = level0_ && lv.frame != nullptr ? static_cast<size_t>(wf_) : 0;
  scratch_.blend = platform::mem_alloc(2 * frames * sizeof(void*) + 4 * sizeof(int32_t) + window_rows * row_bytes +
                                       luma_row_bytes);
  if (scratch_.blend == nullptr) return kBlendFailed;
  scratch_.collapse = platform::mem_alloc(4 * sizeof(int32_t) + (on_demand ? 5 : 4) * row_bytes);
  if (scratch_.collapse == nullptr) return kCollapseFailed;

  fns_ = GetFusionRows();
  widen_ = GetAlignRows().widen_x16;
  build_exposure_factors(lv.lut, &factors_);
  positive_weights_ = exposure_weights_positive(factors_, n_);

  // Band-pass part: the frames' expanded Gaussian rows and band-pass rows.
  gauss_tags_ = static_cast<int32_t*>(scratch_.band_pass);
  expanded_ = reinterpret_cast<uint16_t*>(gauss_tags_ + 4 * frames);
  band_pass_ = reinterpret_cast<int16_t*>(expanded_ + 4 * frames * wf_);
  for (size_t t = 0; t < 4 * frames; ++t) gauss_tags_[t] = -1;
  // Blend part.
  lap_ptrs_ = static_cast<const int16_t**>(scratch_.blend);
  gauss_ptrs_ = reinterpret_cast<const uint16_t**>(lap_ptrs_ + n_);
  window_tags_ = reinterpret_cast<int32_t*>(gauss_ptrs_ + n_);
  fused_row_ = level0_ ? reinterpret_cast<int16_t*>(window_tags_ + 4) : nullptr;
  window_ = level0_ ? reinterpret_cast<uint16_t*>(fused_row_ + wf_) : nullptr;
  luma_row_ = luma_row_bytes != 0 ? reinterpret_cast<uint8_t*>(window_ + 3 * frames * wf_) : nullptr;
  for (int t = 0; t < 4; ++t) window_tags_[t] = -1;
  // Collapse part.
  auto* collapse_tags = static_cast<int32_t*>(scratch_.collapse);
  for (int t = 0; t < 4; ++t) collapse_tags[t] = -1;
  auto* collapse_slots = reinterpret_cast<uint16_t*>(collapse_tags + 4);
  collapsed_rows_ = ExpandedRows<int16_t>{above == nullptr ? lv.collapsed[l_ + 1] : nullptr, above, wc_, wf_,
                                          fns_.expand_h_signed, collapse_slots, collapse_tags};
  own_row_ = on_demand ? reinterpret_cast<int16_t*>(collapse_slots + 4 * static_cast<size_t>(wf_)) : nullptr;

  // Where each frame's Gaussian rows of this level are read: the crop window
  // at level 0, the stored level above it.
  for (int32_t f = 0; f < n_; ++f) {
    gauss_ptrs_[f] = level0_ ? window_ + static_cast<ptrdiff_t>(3 * f) * wf_ : lv.gauss[f][l_];
  }
  return 0;
}

// Level 0 is the crop, widened a row at a time into three slots per frame;
// every frame keeps row y in slot y % 3, so the distances between the rows of
// the contrast stencil are the same for all frames.
ptrdiff_t LevelPass::window_row(int32_t y) {
  const int32_t s = y % 3;
  if (window_tags_[s] != y) {
    for (int32_t f = 0; f < n_; ++f) {
      widen_(crop_row(lv_->crops[f], lv_->stride, lv_->origins[2 * f], lv_->origins[2 * f + 1], y),
             window_ + static_cast<ptrdiff_t>(3 * f + s) * wf_, wf_);
    }
    window_tags_[s] = y;
  }
  return static_cast<ptrdiff_t>(s) * wf_;  // offset of the row in every frame's window
}

void LevelPass::make_row(int32_t y) {
  const FusionRows& fns = fns_;
  // Whole-level row numbers: the reflections at both ends of the level.
  const CoarseRows c = coarse_rows_of(y, hf_, lv_->heights[l_ + 1], true, true);
  const bool border = y == 0 || y == hf_ - 1;
  int16_t* out = level0_ ? fused_row_
                         : own_row_ != nullptr ? own_row_ : lv_->collapsed[l_] + static_cast<ptrdiff_t>(y) * wf_;
  BlendRowArgs row{out, lap_ptrs_, gauss_ptrs_, &factors_, 0, 0, wf_, wf_, n_, wf_, positive_weights_};
  if (level0_) {
    row.gauss_offset = window_row(y);
    if (!border) {
      row.up = row.gauss_offset - window_row(y - 1);
      row.down = window_row(y + 1) - row.gauss_offset;
    }
  } else {
    row.gauss_offset = static_cast<ptrdiff_t>(y) * wf_;
  }

  // Band-pass rows: the Gaussian row minus the expansion of the level above.
  for (int32_t f = 0; f < n_; ++f) {
    const uint16_t* g = gauss_ptrs_[f] + row.gauss_offset;
    int16_t* bp = band_pass_ + static_cast<ptrdiff_t>(f) * wf_;
    const ExpandedRows<uint16_t> e{lv_->gauss[f][l_ + 1], nullptr, wc_, wf_, fns.expand_h_unsigned,
                                   expanded_ + static_cast<ptrdiff_t>(4 * f) * wf_, gauss_tags_ + 4 * f};
    if (c.even) {
      fns.laplacian_even(g, e.row(c.above), e.row(c.centre), e.row(c.below), bp, wf_);
    } else {
      fns.laplacian_odd(g, e.row(c.centre), e.row(c.below), bp, wf_);
    }
    lap_ptrs_[f] = bp;
  }

  if (border) {
    fns.blend_border(row);
  } else {
    fns.blend_interior(row);
  }

  // Collapse in place onto the expansion of the collapsed level above.
  uint8_t* luma = luma_row_ != nullptr ? luma_row_ : level0_ ? lv_->luma + static_cast<ptrdiff_t>(y) * wf_ : nullptr;
  const ExpandedRows<int16_t>& cr = collapsed_rows_;
  if (c.even) {
    fns.collapse_even(row.out, cr.row(c.above), cr.row(c.centre), cr.row(c.below), luma, wf_);
  } else {
    fns.collapse_odd(row.out, cr.row(c.centre), cr.row(c.below), luma, wf_);
  }
  if (luma_row_ != nullptr) lv_->frame->luma_row(y, luma_row_);
}

struct LevelBand {
  const StreamedLevel* level;
  RowChunks* chunks;
};

// A band of the batch: the pass of its level and of every level above it made
// on demand, their scratch taken once, then the rows of every chunk it takes.
int32_t fuse_band(const StreamedLevel& lv, RowChunks& chunks) {
  std::array<LevelPass, kMaxLevelsOnDemand + 1> passes;
  for (int32_t k = lv.on_demand; k >= 0; --k) {
    LevelPass* above = k < lv.on_demand ? &passes[k + 1] : nullptr;
    if (const int32_t status = passes[k].init(lv, lv.level + k, k > 0, above); status != 0) return status;
  }
  int32_t first = 0, rows = 0;
  while (chunks.take(&first, &rows)) {
    for (int32_t y = first; y < first + rows; ++y) passes[0].make_row(y);
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
