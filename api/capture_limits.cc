#include "api/capture_limits.h"

#include "fusion/pyramid_geometry.h"

namespace tavo {

bool capture_size_supported(int32_t width, int32_t height) {
  if ((width & 7) != 0 || (height & 1) != 0 || width < 8 || height < 2) return false;
  const uint64_t pixels = static_cast<uint64_t>(width) * static_cast<uint64_t>(height);
  // Frame byte counts, (W*H*3)/2 in signed 32-bit, and the alignment work
  // block, six planes per level (under 8*W*H bytes in all).
  if (pixels * 3 > INT32_MAX || pixels * 8 > INT32_MAX) return false;
  // The pyramid block of a crop never exceeds that of the whole frame.
  const uint8_t levels = pyramid_level_count(width, height);
  int32_t widths[32], heights[32];
  fill_pyramid_sizes(widths, heights, width, height, levels);
  const PyramidBlockGeometry g = pyramid_block_geometry(3, widths, heights, levels);
  return pyramid_block_bytes_32(g) <= UINT32_MAX;
}

}  // namespace tavo
