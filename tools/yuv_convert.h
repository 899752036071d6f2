// Full-range BT.601 conversions between interleaved 8-bit RGB and YUV 4:2:0,
// as camera JPEGs use them: Y, U and V span 0..255, chroma is centred on 128.
// Integer arithmetic in 1/256 steps, so a conversion gives the same bytes on
// every machine.
#pragma once

#include <cstdint>

#include "platform/yuv420_frame.h"

namespace tavo::tool {

// rgb: width*height*3 bytes; yuv: width*height*3/2 bytes. Width and height
// even. Each chroma sample is the rounded average of the chroma of its 2x2
// pixels.
void rgb_to_yuv420(const uint8_t* rgb, int32_t width, int32_t height, ChromaLayout layout,
                   uint8_t* yuv);
// Each chroma sample serves its 2x2 pixels.
void yuv420_to_rgb(const uint8_t* yuv, int32_t width, int32_t height, ChromaLayout layout,
                   uint8_t* rgb);

}  // namespace tavo::tool
