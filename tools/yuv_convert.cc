#include "tools/yuv_convert.h"

#include <algorithm>
#include <cstddef>

namespace tavo::tool {

namespace {

// Y = 0.299 R + 0.587 G + 0.114 B; U = 0.564 (B - Y) + 128; V = 0.713 (R - Y) +
// 128, in 1/256. The offsets 32896 = 128*256 + 128 centre the chroma and round;
// every sum stays non-negative, so the shifts need no sign care.
inline int luma(int r, int g, int b) { return (77 * r + 150 * g + 29 * b + 128) >> 8; }
inline int chroma_u(int r, int g, int b) { return (-43 * r - 85 * g + 128 * b + 32896) >> 8; }
inline int chroma_v(int r, int g, int b) { return (128 * r - 107 * g - 21 * b + 32896) >> 8; }
inline uint8_t clamp255(int v) { return static_cast<uint8_t>(std::clamp(v, 0, 255)); }

}  // namespace

void rgb_to_yuv420(const uint8_t* rgb, int32_t width, int32_t height, ChromaLayout layout,
                   uint8_t* yuv) {
  const size_t w = static_cast<size_t>(width), h = static_cast<size_t>(height);
  uint8_t* y_plane = yuv;
  uint8_t* chroma = yuv + w * h;
  const size_t cw = w / 2;
  for (size_t r = 0; r < h; ++r) {
    const uint8_t* px = rgb + r * w * 3;
    for (size_t c = 0; c < w; ++c) y_plane[r * w + c] = clamp255(luma(px[3 * c], px[3 * c + 1], px[3 * c + 2]));
  }
  for (size_t r = 0; r < h / 2; ++r) {
    for (size_t c = 0; c < cw; ++c) {
      int u = 0, v = 0;
      for (size_t dy = 0; dy < 2; ++dy) {
        for (size_t dx = 0; dx < 2; ++dx) {
          const uint8_t* p = rgb + ((2 * r + dy) * w + 2 * c + dx) * 3;
          u += chroma_u(p[0], p[1], p[2]);
          v += chroma_v(p[0], p[1], p[2]);
        }
      }
      const uint8_t uu = clamp255((u + 2) >> 2), vv = clamp255((v + 2) >> 2);
      if (layout == ChromaLayout::kPlanar) {
        chroma[r * cw + c] = uu;
        chroma[cw * (h / 2) + r * cw + c] = vv;
      } else {
        chroma[r * w + 2 * c] = vv;
        chroma[r * w + 2 * c + 1] = uu;
      }
    }
  }
}

void yuv420_to_rgb(const uint8_t* yuv, int32_t width, int32_t height, ChromaLayout layout,
                   uint8_t* rgb) {
  const size_t w = static_cast<size_t>(width), h = static_cast<size_t>(height);
  const uint8_t* chroma = yuv + w * h;
  const size_t cw = w / 2;
  for (size_t r = 0; r < h; ++r) {
    for (size_t c = 0; c < w; ++c) {
      const size_t cr = r / 2, cc = c / 2;
      int u, v;
      if (layout == ChromaLayout::kPlanar) {
        u = chroma[cr * cw + cc];
        v = chroma[cw * (h / 2) + cr * cw + cc];
      } else {
        v = chroma[cr * w + 2 * cc];
        u = chroma[cr * w + 2 * cc + 1];
      }
      u -= 128;
      v -= 128;
      // R = Y + 1.402 V, G = Y - 0.344 U - 0.714 V, B = Y + 1.772 U (1/256
      // steps, rounded; >> on a negative sum rounds toward minus infinity).
      const int y = yuv[r * w + c];
      uint8_t* p = rgb + (r * w + c) * 3;
      p[0] = clamp255(y + ((359 * v + 128) >> 8));
      p[1] = clamp255(y - ((88 * u + 183 * v + 128) >> 8));
      p[2] = clamp255(y + ((454 * u + 128) >> 8));
    }
  }
}

}  // namespace tavo::tool
