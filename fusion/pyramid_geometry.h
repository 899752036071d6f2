// Geometry of a fusion pyramid: the number of levels follows from the smaller
// side, and every level halves the one below it, rounding up.
#pragma once

#include <cstdint>

#include "platform/half_size.h"

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

// The one memory block that holds every pyramid of a fusion: per frame a
// Gaussian and a Laplacian pyramid of 16-bit levels, the fused pyramid, and
// 8-bit scratch levels, with the level-pointer tables in front.
struct PyramidBlockGeometry {
  uint64_t frames;      // n
  uint64_t levels;      // L
  uint64_t samples;     // S: sum of w_l * h_l over levels 0 ... L-1
  uint64_t below_top;   // S': the same sum over levels 0 ... L-2
};

PyramidBlockGeometry pyramid_block_geometry(uint32_t frames, const int32_t* widths,
                                            const int32_t* heights, uint32_t levels);

// Pointers the block holds: n Gaussian and n Laplacian table pointers, L-1
// scratch-level pointers, the fused table (L) and per frame two tables of L.
constexpr uint64_t pyramid_block_pointers(const PyramidBlockGeometry& g) {
  return 2 * g.frames + 2 * g.levels - 1 + 2 * g.frames * g.levels;
}

// Bytes of the block with pointers of `pointer_bytes` each: the pointer tables,
// two 16-bit pyramids per frame, the fused pyramid and the 8-bit scratch
// levels. With 4-byte pointers this is 4(2n + 2L - 1) + n(8L + 4S) + 2S + S'.
constexpr uint64_t pyramid_block_bytes(const PyramidBlockGeometry& g, uint64_t pointer_bytes) {
  return pointer_bytes * pyramid_block_pointers(g) + 4 * g.frames * g.samples + 2 * g.samples +
         g.below_top;
}

// The size the block is accounted at on the 32-bit phone build, which is the
// size limit of a fusion: it must fit unsigned 32-bit arithmetic.
constexpr uint64_t pyramid_block_bytes_32(const PyramidBlockGeometry& g) {
  return pyramid_block_bytes(g, 4);
}

}  // namespace tavo
