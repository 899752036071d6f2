// Interface of the chroma module. The fusion driver fuses a capture's chroma
// from kChromaFrames frames through the exported dispatchers
// fusionUV_plane_process and fusionUV_semiplane_process (public header);
// fuse_chroma_plane is the frame-level kernel the planar and the generic
// chroma fusion share.
#pragma once

#include <cstddef>
#include <cstdint>

#include "include/tavo_lumo_hdr.h"

namespace tavo {

class CropToFrame;

// The capture's chroma is fused from exactly three frames.
inline constexpr int kChromaFrames = 3;

// Fuses `rows` rows of `width` samples from `frames` planes (row stride
// src_stride) into out (row stride width), weighted by the chroma table.
void fuse_chroma_plane(const uint8_t* const* src, int32_t frames, ptrdiff_t src_stride,
                       uint8_t* out, const uint16_t* lut, int32_t width, int32_t rows);

// The bands of fusionUV_plane_process and fusionUV_semiplane_process, their
// arguments checked. With `frame`, each fused row goes to the frame's rows
// instead of out_u and out_v, which are not written.
void fuse_planar_chroma(const uint8_t* const* frames, uint8_t* out_u, uint8_t* out_v, const uint16_t* lut,
                        int32_t src_stride, int32_t src_rows, int32_t width, int32_t rows, const int32_t* crop,
                        const CropToFrame* frame);
void fuse_pair_chroma(const uint8_t* const* frames, uint8_t* out_u, uint8_t* out_v, const uint16_t* lut,
                      int32_t src_stride, int32_t src_height, int32_t out_width, int32_t rows, const int32_t* crop,
                      const CropToFrame* frame);

}  // namespace tavo
