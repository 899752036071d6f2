// Geometry of a fusion pyramid: the number of levels follows from the smaller
// side, and every level halves the one below it, rounding up.
#pragma once

#include <cstdint>

namespace tavo {

// Index of the highest set bit of min(width, height); 0 when that is below 1.
constexpr uint8_t pyramid_level_count(int32_t width, int32_t height) {
  int32_t m = width < height ? width : height;
  if (m < 1) return 0;
  int count = -1;
  while (m != 0) {
    m >>= 1;
    ++count;
  }
  return static_cast<uint8_t>(count);
}

// Size of the next level: half, rounded up.
constexpr int32_t half_up(int32_t size) { return (size + (size & 1)) / 2; }

// Entry 0 of both tables is the size itself; entries 1 ... levels-1 halve.
constexpr void fill_pyramid_sizes(int32_t* widths, int32_t* heights, int32_t width,
                                  int32_t height, int32_t levels) {
  widths[0] = width;
  heights[0] = height;
  for (int32_t l = 1; l < levels; ++l) {
    widths[l] = half_up(widths[l - 1]);
    heights[l] = half_up(heights[l - 1]);
  }
}

}  // namespace tavo
