// The window that three frames share once frames 0 and 2 are shifted against
// the reference frame 1, and where that window starts in each frame.
#pragma once

#include <cstdint>

namespace tavo {

struct CropRect {
  int32_t width;
  int32_t height;
  int32_t origins[6];  // frame 0 x, y; frame 1 x, y; frame 2 x, y
};

// Shifts are full-resolution pixels: the moving frame's pixel (r, j) shows the
// reference's pixel (r + y, j + x). The window is the intersection of the three
// frames in reference coordinates, then one side is trimmed (right or bottom)
// so that width:height keeps the frame's aspect ratio, and both sides are made
// even. The products and the division are those of signed 32-bit integers; a
// division by zero gives 0.
CropRect crop_window_from_shifts(int32_t width, int32_t height, int16_t x0, int16_t y0,
                                 int16_t x2, int16_t y2);

}  // namespace tavo
