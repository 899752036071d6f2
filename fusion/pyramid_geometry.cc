#include "fusion/pyramid_geometry.h"

#include "include/tavo_lumo_hdr.h"

extern "C" TAVO_HDR_EXPORT int32_t pyramid_level(uint8_t* out_levels, int32_t width, int32_t height) {
  *out_levels = tavo::pyramid_level_count(width, height);
  return 0;
}

extern "C" TAVO_HDR_EXPORT int32_t pyramid_size(int32_t* widths, int32_t* heights, int32_t width,
                                                int32_t height, int32_t levels) {
  tavo::fill_pyramid_sizes(widths, heights, width, height, levels);
  return 0;
}
