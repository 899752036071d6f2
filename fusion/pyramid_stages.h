// The pyramid stages as the fusion driver runs them. Each builds one level in
// bands on the worker pool, byte for byte as its exported dispatcher does (the
// dispatchers are thin wrappers that log null arguments and always return 0),
// but returns -1 when a band could not run because its scratch was not
// allocated: the band has logged why, and the caller must not use the level.
#pragma once

#include <cstdint>

namespace tavo {

class CropToFrame;

// What pyrFuse computes. With `frame`, the fused crop's rows go to the frame,
// resized as they are made, instead of to `out` (the crop luma and chroma of
// `out` are then not written; frame 0's Gaussian level 1 still lives there).
int32_t fuse_crop(const uint8_t* const* frames, uint32_t frame_count, uint32_t stride, uint32_t frame_height,
                  int32_t width, int32_t height, const int32_t* offsets, uint8_t* out, const char* layout,
                  const CropToFrame* frame);

// Gaussian level + 1 from level, in every one of `pyramids` pyramids of the
// same geometry (one batch of bands for all of them). crop_pyramids: the
// levels are a crop's, samples of at most 4080, whose vertical sums take
// 16-bit lanes.
int32_t gaussian_reduce_level(uint16_t** const* level_tables, int32_t pyramids, uint32_t level,
                              const int32_t* widths, const int32_t* heights, bool crop_pyramids);
// Fused level `level` from every frame's band-pass and Gaussian level.
int32_t blend_level(int16_t** out_levels, const uint16_t* lut, int16_t*** lap_pyramids,
                    uint16_t*** gauss_pyramids, const int32_t* widths, const int32_t* heights,
                    int32_t level, uint32_t frames);

}  // namespace tavo
