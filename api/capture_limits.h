// Frame sizes a capture accepts: a width that is a multiple of 8 and at least
// 8, an even height of at least 2, and a size whose buffers and pyramid block
// stay inside the 32-bit byte counts the pipeline computes with.
#pragma once

#include <cstdint>

namespace tavo {

bool capture_size_supported(int32_t width, int32_t height);

}  // namespace tavo
