// The side of the next level down of the library's pyramids, the registration's
// wavelet levels and the fusion's Gaussian levels alike: half the side above,
// rounded up, so that an odd last row or column still has a level below.
#pragma once

#include <cstdint>

namespace tavo {

constexpr int32_t half_up(int32_t size) { return (size + (size & 1)) / 2; }

}  // namespace tavo
