// A capture run stage by stage through the library's exported operations, for
// the demo, which shows what HDR_Function does not return: the shifts the
// registration found, the crop window, and the time of each stage.
#pragma once

#include <cstdint>

namespace tavo::tool {

struct StagedCapture {
  int16_t shift0[2] = {}, shift2[2] = {};  // (x, y) of frames 0 and 2, full-resolution pixels
  int32_t crop_width = 0, crop_height = 0;
  int32_t origins[6] = {};  // the window's corner in frames 0, 1, 2: x, y each
  double registration_ms = 0, fusion_ms = 0, resize_ms = 0;
};

// Fuses frames[0..2] (W*H*3/2 bytes each, frame 1 the reference) into `out`
// as HDR_Function does, byte for byte, on a started pool; the size must be one
// the library takes. False when the fusion failed (the library logged why).
bool run_staged_capture(const uint8_t* const* frames, int32_t width, int32_t height, const char* layout,
                        uint8_t* out, StagedCapture* result);

}  // namespace tavo::tool
