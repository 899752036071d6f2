// Registration of moving frames against the reference: their level
// decomposition and the coarse-to-fine shift search, as GetExpShift runs them
// for one frame and the pipeline's registration for two frames at once.
#pragma once

#include <cstdint>

namespace tavo {

// One decomposition of a level: its source and threshold, and the next
// level's approximation, bitmap and mask.
struct WaveletTarget {
  const uint8_t* src;
  uint8_t* approx;
  uint8_t* bitmap;
  uint8_t* mask;
  int32_t threshold;
};

// One level of `count` decompositions of width x height sources in one batch
// of bands, each what wltDecompose_process gives for it.
void decompose_level(const WaveletTarget* targets, int32_t count, int32_t width, int32_t height);

// Decompositions a batch takes at most.
inline constexpr int32_t kMaxDecompositions = 3;

// Two levels of `count` decompositions of width x height sources in one batch:
// upper[t] into the level below (bitmap and mask; its approximation only
// passes through two rows of scratch), then lower[t] from that approximation.
// Each plane written is what two decompose_level calls give for it. scratch:
// kWaveletScratchRows rows of half_up(width) bytes.
inline constexpr int32_t kWaveletScratchRows = 2 * 4;  // two rows a band
void decompose_two_levels(const WaveletTarget* upper, const WaveletTarget* lower, int32_t count,
                          int32_t width, int32_t height, uint8_t* scratch);

// Candidate shifts of one level of the search: x over 2sx - 1 ... 2sx + 1
// (outer), y over 2sy - 1 ... 2sy + 1 (inner).
inline constexpr int kCandidates = 9;
// Moving frames searched together, at most.
inline constexpr int kSearchedFrames = 2;

// Scores of `sets` sets of kCandidates shifts: set s compares planes[s]
// (moving mask, moving bitmap, reference bitmap, reference mask, all width x
// height) under the shifts (x[9s + k], y[9s + k]) into counts[9s + k], each
// what imageAffine_xor_and_process gives for it, from one batch of bands.
void score_candidates(const uint8_t* const (*planes)[4], int32_t sets, int32_t width, int32_t height,
                      const int8_t* x, const int8_t* y, uint32_t* counts);

// A moving frame's bitmap and mask planes, per level.
struct MovingLevels {
  uint8_t* const* bitmap;
  uint8_t* const* mask;
};

// The level-1 shifts of `count` moving frames whose levels are built, each what
// GetExpShift's search gives for it; the frames are searched level by level
// together, their candidates scored in one batch.
void search_shifts(const MovingLevels* moving, int32_t count, uint8_t* const* ref_bitmap,
                   uint8_t* const* ref_mask, uint32_t levels, const int32_t* widths,
                   const int32_t* heights, int16_t (*shifts)[2]);

}  // namespace tavo
