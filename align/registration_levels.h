// The registration pyramid's shape: how many levels a frame gets, each level
// half_up of the one above in both sides (platform/half_size.h). Header-only,
// so that a program composing the exported operations (tavo-hdr's staged
// capture) sizes its level planes exactly as the capture does without linking
// anything beyond the public library.
#pragma once

#include <cstdint>

#include "platform/half_size.h"

namespace tavo {

// Number of registration levels (level 0 is the frame itself): 1 below a
// smaller side of 33; otherwise one more than the halvings of the smaller side
// taken while the value halved is above 65.
inline uint8_t registration_level_count(int32_t width, int32_t height) {
  int32_t m = width < height ? width : height;
  if (m < 33) return 1;
  int32_t n = 0, old = 0;
  do {
    ++n;
    old = m;
    m >>= 1;
  } while (old > 65);
  return static_cast<uint8_t>(n + 1);
}

}  // namespace tavo
