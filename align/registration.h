// Registration of a capture: the shifts of frames 0 and 2 against the reference
// frame 1 and the crop window the three frames share once shifted.
#pragma once

#include <cstdint>

#include "align/registration_levels.h"
#include "platform/yuv420_frame.h"

namespace tavo {

struct CropWindow {
  int32_t width, height;  // even
  int32_t origins[6];     // frame 0 x, y; frame 1 x, y; frame 2 x, y
  int16_t shift0[2];      // full-resolution shift (x, y) of frame 0
  int16_t shift2[2];      // full-resolution shift (x, y) of frame 2
};

// Registration thresholds of the three frames' luma planes (width x height,
// stride width), each what loadImg gives for its frame, from histograms built
// in four bands of rows across all frames at once.
inline constexpr int32_t kThresholdFrames = 3;
void frame_thresholds(const uint8_t* const* frames, int32_t width, int32_t height,
                      uint8_t* thresholds);

// Thresholds of the three frames, the reference's levels, the shift search for
// frame 0 then frame 2 (in level-1 pixels, doubled here), and the crop window.
// frames[i] points at frame i's luma plane (width x height, stride width).
// Returns 0, or -1 after logging an allocation failure (as "GetAlignImg").
int32_t register_frames(const uint8_t* const* frames, int32_t width, int32_t height,
                        CropWindow* window);

// What image_resize writes, computed by the worker pool in chunks of rows.
void resize_in_bands(const uint8_t* src, uint8_t* dst, int32_t src_width, int32_t src_height,
                     int32_t dst_width, int32_t dst_height, ChromaLayout layout);

}  // namespace tavo
