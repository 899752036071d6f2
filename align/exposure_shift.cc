// Translation of a differently exposed frame against the reference, found
// coarse to fine over the registration levels. Each frame is thresholded at its
// own luma percentile, so bright-versus-dark bitmaps agree across exposures
// wherever the scene agrees; a candidate shift is scored by the pixels whose
// bitmaps disagree or that a mask marks untrusted, plus the moving pixels that
// fall outside the reference.
#include <algorithm>
#include <cstdint>

#include "align/exposure_shift.h"
#include "align/align_rows.h"
#include "include/tavo_lumo_hdr.h"
#include "platform/log.h"
#include "pool/band_jobs.h"

namespace {

struct MismatchJob {
  const uint8_t* moving_mask;
  const uint8_t* moving_bitmap;
  const uint8_t* ref_bitmap;
  const uint8_t* ref_mask;
  int32_t width;
  int32_t x;
  int32_t y;
  int32_t m_begin;  // moving rows of the band, relative to its first row
  int32_t m_end;
  uint32_t partial;  // the band's score, read after the batch
};

struct RowRange {
  int32_t begin, end;
};

// Moving rows a band pairs with reference rows m + y. Each pair is scored by
// the band that holds the reference row: with y > 0 a band reaches y rows back
// into the band above (the first band has none), with y < 0 |y| rows forward
// into the band below (the last band has none).
RowRange band_moving_rows(int32_t rows, int32_t y, int32_t band_index) {
  const int64_t r = rows, dy = y;
  int64_t begin = 0, end = r;
  if (y > 0) {
    begin = band_index == 0 ? 0 : -dy;
    end = r - dy;
  } else if (y < 0) {
    begin = -dy;
    end = band_index == 3 ? r : r - dy;
  }
  auto clamp32 = [](int64_t v) {
    return static_cast<int32_t>(std::clamp<int64_t>(v, INT32_MIN, INT32_MAX));
  };
  return {clamp32(begin), clamp32(end)};
}

// The moving rows band b of `split` scores for the shift (x, y), relative to
// the band's first row. The described reach of a band stays inside the plane
// whenever a band has at least |y| rows; for shorter bands it is cut at the
// plane's edges, so that no row outside the plane is ever read.
RowRange clamped_moving_rows(const tavo::BandSplit& split, int32_t b, int32_t height, int32_t y) {
  const int64_t first = split.first(b);
  const RowRange m = band_moving_rows(split.rows(b), y, b);
  const int64_t begin = std::max<int64_t>({m.begin, -first, -first - y});
  const int64_t end = std::min<int64_t>({m.end, height - first, height - first - y});
  return {static_cast<int32_t>(begin), static_cast<int32_t>(std::max(begin, end))};
}

// Sets of nine candidate shifts of one level scored in one batch. The bands
// take the reference rows in chunks, and a chunk in groups of up to
// kGroupRows rows: for every group a band scores each candidate's pairs of
// the group's rows with the moving rows they pair with, so the rows of all the
// comparisons are read while they are in cache. Every pair is scored once, by
// the chunk that holds its reference row.
constexpr int kMaxCandidates = tavo::kCandidates * tavo::kSearchedFrames;
constexpr int32_t kGroupRows = 8;

struct CandidatesJob {
  const uint8_t* planes[tavo::kSearchedFrames][4];
  int32_t sets, width, height;
  int8_t x[kMaxCandidates], y[kMaxCandidates];
  tavo::RowChunks* chunks;
  uint32_t partial[kMaxCandidates];
};

int32_t candidates_body(void* record) {
  auto& a = tavo::band_payload<CandidatesJob>(record);
  const tavo::MismatchRowsFn score = tavo::GetAlignRows().mismatch;
  const int32_t candidates = a.sets * tavo::kCandidates;
  tavo::ShiftedColumns columns[kMaxCandidates];
  uint32_t partial[kMaxCandidates] = {};
  for (int32_t k = 0; k < candidates; ++k) columns[k] = tavo::shifted_columns(a.width, a.x[k]);
  int32_t first = 0, count = 0;
  while (a.chunks->take(&first, &count)) {
    for (int32_t group = first; group < first + count; group += kGroupRows) {
      const int32_t group_end = std::min(group + kGroupRows, first + count);
      for (int32_t k = 0; k < candidates; ++k) {
        // The group's reference rows r whose moving row r - y lies in the plane.
        const int32_t r_begin = std::max<int32_t>(group, a.y[k]);
        const int32_t r_end = std::min<int32_t>(group_end, a.height + a.y[k]);
        if (r_end <= r_begin || columns[k].n == 0) continue;
        const uint8_t* const* p = a.planes[k / tavo::kCandidates];
        const int64_t moving = static_cast<int64_t>(r_begin - a.y[k]) * a.width + columns[k].begin;
        const int64_t ref = static_cast<int64_t>(r_begin) * a.width + columns[k].begin + a.x[k];
        partial[k] += score(p[0] + moving, p[1] + moving, p[2] + ref, p[3] + ref, columns[k].n, r_end - r_begin, a.width);
      }
    }
  }
  for (int32_t k = 0; k < candidates; ++k) a.partial[k] = partial[k];
  tavo::band_done(record);
  return 0;
}

}  // namespace

void tavo::score_candidates(const uint8_t* const (*planes)[4], int32_t sets, int32_t width, int32_t height,
                            const int8_t* x, const int8_t* y, uint32_t* counts) {
  const tavo::LibraryLock hold;  // the band records are read after the batch
  tavo::RowChunks chunks(height);
  const int32_t candidates = sets * kCandidates;
  tavo::run_bands<CandidatesJob>(
      tavo::kBandCount, candidates_body, [&](int32_t, CandidatesJob& a) {
        for (int32_t s = 0; s < sets; ++s) {
          for (int i = 0; i < 4; ++i) a.planes[s][i] = planes[s][i];
        }
        a.sets = sets;
        a.width = width;
        a.height = height;
        for (int32_t k = 0; k < candidates; ++k) {
          a.x[k] = x[k];
          a.y[k] = y[k];
          a.partial[k] = 0;
        }
        a.chunks = &chunks;
      },
      static_cast<int64_t>(width) * height * sets);
  for (int32_t k = 0; k < candidates; ++k) {
    counts[k] = 0;
    for (int32_t b = 0; b < tavo::kBandCount; ++b) counts[k] += tavo::band_payload<CandidatesJob>(&arg[b]).partial[k];
  }
}

extern "C" TAVO_HDR_EXPORT uint32_t imageAffine_xor_and(const uint8_t* moving_mask,
                                                        const uint8_t* moving_bitmap,
                                                        const uint8_t* ref_bitmap,
                                                        const uint8_t* ref_mask, int32_t width,
                                                        int32_t rows, int32_t x, int32_t y,
                                                        uint32_t* count, int32_t band_index) {
  const RowRange m = band_moving_rows(rows, y, band_index);
  *count += tavo::count_mismatches(moving_mask, moving_bitmap, ref_bitmap, ref_mask, width,
                                   m.begin, m.end, x, y, tavo::GetAlignRows().mismatch);
  return 0;
}

extern "C" TAVO_HDR_EXPORT int32_t imageAffine_xor_and_parameter(void* record) {
  auto& a = tavo::band_payload<MismatchJob>(record);
  a.partial = tavo::count_mismatches(a.moving_mask, a.moving_bitmap, a.ref_bitmap, a.ref_mask,
                                     a.width, a.m_begin, a.m_end, a.x, a.y,
                                     tavo::GetAlignRows().mismatch);
  tavo::band_done(record);
  return 0;
}

// Four bands of height/4 rows (the last takes the rest); the band scores are
// added once all four have finished.
extern "C" TAVO_HDR_EXPORT uint32_t imageAffine_xor_and_process(
    const uint8_t* moving_mask, const uint8_t* moving_bitmap, const uint8_t* ref_bitmap,
    const uint8_t* ref_mask, int32_t width, int32_t height, int32_t x, int32_t y,
    uint32_t* count_out) {
  *count_out = 0;
  if (moving_mask == nullptr || moving_bitmap == nullptr || ref_bitmap == nullptr ||
      ref_mask == nullptr) {
    using tavo::platform::log_hex;
    HDR_LOG("in_buffer is NULL,0x%x,0x%x,0x%x,0x%x\n", log_hex(moving_mask),
            log_hex(moving_bitmap), log_hex(ref_bitmap), log_hex(ref_mask));
  }
  // The per-band counts are read back from the band records after the batch:
  // hold the library lock across both.
  const tavo::LibraryLock hold;
  const tavo::BandSplit split = tavo::split_rows(height, tavo::SplitRule::kFour);
  tavo::run_bands<MismatchJob>(
      split.bands, imageAffine_xor_and_parameter, [&](int32_t b, MismatchJob& a) {
        const RowRange m = clamped_moving_rows(split, b, height, y);
        const int64_t offset = static_cast<int64_t>(split.first(b)) * width;
        a = MismatchJob{moving_mask + offset, moving_bitmap + offset, ref_bitmap + offset,
                        ref_mask + offset,    width,                  x,
                        y,                    m.begin,                m.end,
                        0};
      },
      static_cast<int64_t>(width) * height);
  uint32_t total = 0;
  for (int32_t b = 0; b < split.bands; ++b) total += tavo::band_payload<MismatchJob>(&arg[b]).partial;
  *count_out = total;
  return 0;
}

namespace {

int32_t magnitude(int8_t v) { return v < 0 ? -static_cast<int32_t>(v) : v; }

}  // namespace

// Coarse to fine: the nine shifts around twice the shift found one level up.
// Candidates are signed 8-bit values; a level where no candidate beats the
// no-overlap score leaves the shift as it was, undoubled.
void tavo::search_shifts(const MovingLevels* moving, int32_t count, uint8_t* const* ref_bitmap,
                         uint8_t* const* ref_mask, uint32_t levels, const int32_t* widths,
                         const int32_t* heights, int16_t (*shifts)[2]) {
  for (int32_t f = 0; f < count; ++f) shifts[f][0] = shifts[f][1] = 0;
  if (levels < 2) return;
  for (uint32_t level = levels - 1; level >= 1; --level) {
    const int32_t w = widths[level], h = heights[level];
    int8_t cx[kMaxCandidates] = {}, cy[kMaxCandidates] = {};
    const uint8_t* planes[kSearchedFrames][4];
    for (int32_t f = 0; f < count; ++f) {
      const auto sx = static_cast<int8_t>(shifts[f][0]);
      const auto sy = static_cast<int8_t>(shifts[f][1]);
      for (int k = 0; k < kCandidates; ++k) {  // x outer, y inner
        cx[kCandidates * f + k] = static_cast<int8_t>(2 * sx + k / 3 - 1);
        cy[kCandidates * f + k] = static_cast<int8_t>(2 * sy + k % 3 - 1);
      }
      const uint8_t* set[4] = {moving[f].mask[level], moving[f].bitmap[level], ref_bitmap[level], ref_mask[level]};
      for (int i = 0; i < 4; ++i) planes[f][i] = set[i];
    }
    uint32_t counts[kMaxCandidates];
    score_candidates(planes, count, w, h, cx, cy, counts);
    for (int32_t f = 0; f < count; ++f) {
      uint32_t best = static_cast<uint32_t>(w) * static_cast<uint32_t>(h);
      for (int k = kCandidates * f; k < kCandidates * (f + 1); ++k) {
        const auto ax = static_cast<uint32_t>(magnitude(cx[k]));
        const auto ay = static_cast<uint32_t>(magnitude(cy[k]));
        // Score plus the moving pixels that land outside the reference, in
        // wrapping 32-bit arithmetic.
        const uint32_t cost = counts[k] + static_cast<uint32_t>(w) * ay + (static_cast<uint32_t>(h) - ay) * ax;
        if (cost < best) {
          best = cost;
          shifts[f][0] = cx[k];
          shifts[f][1] = cy[k];
        }
      }
    }
  }
}

extern "C" TAVO_HDR_EXPORT uint32_t GetExpShift(const uint8_t* frame_luma, uint32_t levels,
                                                uint8_t threshold, uint8_t** moving_approx,
                                                uint8_t** ref_bitmap, uint8_t** ref_mask,
                                                uint8_t** moving_bitmap, uint8_t** moving_mask,
                                                const int32_t* widths, const int32_t* heights,
                                                int16_t* shift_out) {
  shift_out[0] = 0;
  shift_out[1] = 0;
  if (levels < 2) return 0;

  // The moving frame's levels, thresholded at its own value at every level.
  for (uint32_t i = 0; i + 1 < levels; ++i) {
    wltDecompose_process(i == 0 ? frame_luma : moving_approx[i], widths[i], heights[i],
                         moving_approx[i + 1], threshold, moving_bitmap[i + 1],
                         moving_mask[i + 1]);
  }
  const tavo::MovingLevels moving{moving_bitmap, moving_mask};
  int16_t shift[1][2];
  tavo::search_shifts(&moving, 1, ref_bitmap, ref_mask, levels, widths, heights, shift);
  shift_out[0] = shift[0][0];
  shift_out[1] = shift[0][1];
  return 0;
}
