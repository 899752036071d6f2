#include "fusion/pyramid_geometry.h"

#include "include/tavo_lumo_hdr.h"

namespace tavo {

PyramidBlockGeometry pyramid_block_geometry(uint32_t frames, const int32_t* widths,
                                            const int32_t* heights, uint32_t levels) {
  PyramidBlockGeometry g{frames, levels, 0, 0};
  for (uint32_t l = 0; l < levels; ++l) {
    const uint64_t level_samples = static_cast<uint64_t>(widths[l]) * static_cast<uint64_t>(heights[l]);
    g.samples += level_samples;
    if (l + 1 < levels) g.below_top += level_samples;
  }
  return g;
}

}  // namespace tavo

extern "C" TAVO_HDR_EXPORT int32_t pyramid_level(uint8_t* out_levels, int32_t width, int32_t height) {
  *out_levels = tavo::pyramid_level_count(width, height);
  return 0;
}

extern "C" TAVO_HDR_EXPORT int32_t pyramid_size(int32_t* widths, int32_t* heights, int32_t width,
                                                int32_t height, int32_t levels) {
  tavo::fill_pyramid_sizes(widths, heights, width, height, levels);
  return 0;
}
