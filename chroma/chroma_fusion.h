// Frame-level chroma fusion shared by the planar kernel and the generic one.
#pragma once

#include <cstddef>
#include <cstdint>

namespace tavo {

// The capture's chroma is fused from exactly three frames.
inline constexpr int kChromaFrames = 3;

// Fuses `rows` rows of `width` samples from `frames` planes (row stride
// src_stride) into out (row stride width), weighted by the chroma table.
void fuse_chroma_plane(const uint8_t* const* src, int32_t frames, ptrdiff_t src_stride,
                       uint8_t* out, const uint16_t* lut, int32_t width, int32_t rows);

}  // namespace tavo
