// The fusion's luma, streamed. The level-by-level pipeline of the exported
// kernels (crop, Gaussian and band-pass pyramids of every frame, blend of
// every level, collapse) writes every level of every pyramid to memory and
// reads it back. Here only the Gaussian levels 1 and up of each frame and the
// coarser collapsed levels are stored: Gaussian level 0 is the crop widened
// from the input frame when a row is needed, and the collapse of level l
// computes, a row at a time, the frames' band-pass samples (Gaussian level l
// minus the expansion of level l + 1), their weights, the blended sample and
// the collapsed one (plus the expansion of the collapsed level l + 1). The
// collapsed levels just above level 0 are made the same way, a row at a time
// when a finer row needs it, and never stored. Every sample is the one the
// level-by-level pipeline gives, whatever the band split.
#pragma once

#include <cstdint>

namespace tavo {

class CropToFrame;

// Results of the stages, each failure naming what its band could not take.
inline constexpr int32_t kStageFailed = -1;        // Gaussian scratch
inline constexpr int32_t kBandPassFailed = -2;     // expanded Gaussian rows, band-pass rows
inline constexpr int32_t kBlendFailed = -3;        // widened crop rows, fused row, row pointers
inline constexpr int32_t kCollapseFailed = -4;     // expanded collapsed rows

// Gaussian level 1 of the crops of `count` frames whose luma planes have row
// stride `stride`, frame f's crop at column origins[2f], row origins[2f + 1],
// into gauss[f][1]: each crop's level 0 (luma x 16) reduced straight from the
// 8-bit frame, in one batch of bands for all frames.
int32_t gaussian_level1_from_crops(const uint8_t* const* frames, int32_t count, uint32_t stride,
                                   const int32_t* origins, uint16_t* const* const* gauss,
                                   const int32_t* widths, const int32_t* heights);

// Everything the collapse of one level reads and writes.
struct StreamedLevel {
  int32_t frames;
  const uint8_t* const* crops;    // per frame: its luma plane, for level 0
  uint32_t stride;                // of the luma planes
  const int32_t* origins;         // per frame: crop column, crop row
  uint16_t* const* const* gauss;  // per frame: Gaussian level table (levels 1 and up)
  int16_t* const* collapsed;      // collapsed level table (levels 1 and up)
  const uint16_t* lut;            // exposure weight table
  const int32_t* widths;
  const int32_t* heights;
  int32_t level;                  // 0 ... L-2
  uint8_t* luma;                  // output luma, written at level 0
  const CropToFrame* frame;       // when set, level 0's rows go to the frame instead of `luma`
  // Levels above `level` whose collapsed rows are not stored but made in the
  // same pass when a finer row needs them; the level above those is read from
  // the table.
  int32_t on_demand;
};

// Collapsed levels 1 ... n made on demand in the pass of level 0 instead of
// stored, for a pyramid of `levels` levels: never the top level (the blend of
// the frames' top levels, made first), and at most kMaxLevelsOnDemand (each
// level made on demand repeats a few rows where a band's chunks are not
// adjacent).
inline constexpr int32_t kMaxLevelsOnDemand = 3;
constexpr int32_t collapsed_levels_on_demand(int32_t levels) {
  return levels - 2 < 0 ? 0 : levels - 2 < kMaxLevelsOnDemand ? levels - 2 : kMaxLevelsOnDemand;
}

// Blends level `level` of every frame and collapses it onto collapsed level
// level + 1, into collapsed level `level` (at level 0 into the 8-bit luma),
// making the collapsed rows of the `on_demand` levels above it on the way.
// 0, or one of the failures above.
int32_t fuse_and_collapse_level(const StreamedLevel& level);

}  // namespace tavo
