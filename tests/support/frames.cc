#include "support/frames.h"

#include <algorithm>

namespace tavo::test {

std::vector<std::vector<uint8_t>> bracket(int32_t width, int32_t height, const std::string& layout,
                                          uint32_t seed) {
  const bool semiplanar = layout == "YVU420_SEMIPLANAR";
  uint32_t state = seed * 2654435761u + 1;
  auto noise = [&]() {
    state = state * 1664525u + 1013904223u;
    return static_cast<int>((state >> 24) & 7) - 3;
  };
  // Scene radiance on a 0 ... 1023 scale: a diagonal ramp, a bright square
  // window and a checker texture.
  auto radiance = [&](int x, int y) {
    int v = (x * 600) / std::max(width, 1) + (y * 300) / std::max(height, 1);
    if (x > width / 2 && y < height / 2) v += 500;
    if (((x / 3) + (y / 3)) % 2 == 0) v += 40;
    return std::min(v, 1023);
  };
  static constexpr int kGain[3] = {1, 2, 4};  // exposure multipliers
  std::vector<std::vector<uint8_t>> frames(3);
  for (int f = 0; f < 3; ++f) {
    std::vector<uint8_t>& frame = frames[f];
    frame.resize(static_cast<size_t>(width) * height * 3 / 2);
    for (int y = 0; y < height; ++y) {
      for (int x = 0; x < width; ++x) {
        const int v = (radiance(x, y) * kGain[f]) / 4 + noise();
        frame[static_cast<size_t>(y) * width + x] = static_cast<uint8_t>(std::clamp(v, 0, 255));
      }
    }
    uint8_t* chroma = frame.data() + static_cast<size_t>(width) * height;
    const int cw = width / 2, ch = height / 2;
    for (int y = 0; y < ch; ++y) {
      for (int x = 0; x < cw; ++x) {
        const int u = std::clamp(128 + (x * 90) / std::max(cw, 1) - 45 + noise() * f, 0, 255);
        const int v = std::clamp(128 - (y * 70) / std::max(ch, 1) + 35 + noise(), 0, 255);
        if (semiplanar) {
          chroma[y * width + 2 * x] = static_cast<uint8_t>(v);
          chroma[y * width + 2 * x + 1] = static_cast<uint8_t>(u);
        } else {
          chroma[y * cw + x] = static_cast<uint8_t>(u);
          chroma[cw * ch + y * cw + x] = static_cast<uint8_t>(v);
        }
      }
    }
  }
  return frames;
}

uint64_t fnv1a(const std::vector<uint8_t>& bytes) {
  uint64_t h = 1469598103934665603ull;
  for (uint8_t b : bytes) h = (h ^ b) * 1099511628211ull;
  return h;
}

}  // namespace tavo::test
