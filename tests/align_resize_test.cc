// Nearest-neighbour resize of the fused crop into the caller's layout.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <vector>

#include "align/registration.h"
#include "include/tavo_lumo_hdr.h"
#include "support/test_support.h"

namespace {

std::vector<uint8_t> random_frame(int32_t w, int32_t h, uint32_t seed) {
  return tavo::test::random_bytes(static_cast<size_t>(w) * h * 3 / 2, seed);
}

// Pixel-by-pixel statement of the sampling, written independently of the
// library's per-call column tables.
std::vector<uint8_t> reference_resize(const std::vector<uint8_t>& src, int32_t sw, int32_t sh,
                                      int32_t dw, int32_t dh, bool interleave, size_t size) {
  std::vector<uint8_t> dst(size, 0xEE);
  const float sx = static_cast<float>(sw) / static_cast<float>(dw);
  const float sy = static_cast<float>(sh) / static_cast<float>(dh);
  for (int32_t i = 0; i < dh; ++i) {
    for (int32_t j = 0; j < dw; ++j) {
      const int32_t r = std::min(sh - 1, static_cast<int32_t>(sy * static_cast<float>(i)));
      const int32_t c = std::min(sw - 1, static_cast<int32_t>(sx * static_cast<float>(j)));
      dst[static_cast<size_t>(i) * dw + j] = src[static_cast<size_t>(r) * sw + c];
    }
  }
  if (dw < 2 || dh < 2) return dst;
  for (int32_t i = 0; i < dh / 2; ++i) {
    for (int32_t j = 0; j < dw / 2; ++j) {
      int32_t r = static_cast<int32_t>(sy * static_cast<float>(i));
      int32_t c = static_cast<int32_t>(sx * static_cast<float>(j));
      if (r >= sh / 2) r = sh / 2 - 1;
      if (c >= sw / 2) c = sw / 2 - 1;
      const uint8_t u = src[sw * sh + (r * sw) / 2 + c];
      const uint8_t v = src[(sw * sh * 5) / 4 + (r * sw) / 2 + c];
      if (interleave) {
        dst[dw * dh + 2 * (i * (dw / 2) + j)] = v;
        dst[dw * dh + 2 * (i * (dw / 2) + j) + 1] = u;
      } else {
        dst[dw * dh + (i * dw) / 2 + j] = u;
        dst[(dw * dh * 5) / 4 + (i * dw) / 2 + j] = v;
      }
    }
  }
  return dst;
}

// The exported resize, or the pipeline's in chunks of rows on the pool.
std::vector<uint8_t> resize(const std::vector<uint8_t>& src, int32_t sw, int32_t sh, int32_t dw,
                            int32_t dh, const char* layout, size_t size, bool in_bands = false) {
  std::vector<uint8_t> dst(size, 0xEE);
  if (in_bands) {
    tavo::resize_in_bands(src.data(), dst.data(), sw, sh, dw, dh, tavo::parse_layout(layout));
  } else {
    image_resize(src.data(), dst.data(), sw, sh, dw, dh, layout);
  }
  return dst;
}

class ImageResize : public tavo::test::PoolTest {};

TEST_F(ImageResize, MatchesPixelByPixelSamplingOnAnySize) {
  struct Case {
    int32_t sw, sh, dw, dh;
  } cases[] = {{3994, 2, 4000, 4},  {16, 16, 4100, 6}, {8200, 4, 4099, 3}, {7, 5, 13, 9},
               {20, 12, 6, 4},      {5, 3, 2, 2},      {64, 48, 3, 7},     {2, 2, 9, 11},
               {100, 80, 1, 5},     {30, 20, 7, 1},    {1998, 8, 2000, 10}, {10, 6, 10, 6},
               {93, 4, 21, 4},  // same size: a copy; 93/21 rounds down in single precision
               {598, 250, 600, 251}};  // large enough for the pool
  for (const Case& c : cases) {
    const std::vector<uint8_t> src = random_frame(c.sw, c.sh, static_cast<uint32_t>(c.dw));
    const size_t size = static_cast<size_t>(c.dw) * c.dh * 3 / 2 + 8;
    for (const char* layout : {"YUV420_PLANAR", "YVU420_SEMIPLANAR", "NV21?"}) {  // any other name is planar
      const bool interleave = strcmp(layout, "YVU420_SEMIPLANAR") == 0;
      const std::vector<uint8_t> expect = reference_resize(src, c.sw, c.sh, c.dw, c.dh, interleave, size);
      for (bool in_bands : {false, true}) {
        EXPECT_EQ(resize(src, c.sw, c.sh, c.dw, c.dh, layout, size, in_bands), expect)
            << c.sw << "x" << c.sh << " -> " << c.dw << "x" << c.dh << " " << layout << (in_bands ? " in bands" : "");
      }
    }
  }
}

TEST_F(ImageResize, EmptyDestinationWritesNothing) {
  const std::vector<uint8_t> src = random_frame(8, 8, 3);
  for (auto [dw, dh] : {std::pair{8, 0}, std::pair{0, 8}, std::pair{8, -2}}) {
    std::vector<uint8_t> dst(64, 0xEE);
    image_resize(src.data(), dst.data(), 8, 8, dw, dh, "YUV420_PLANAR");
    tavo::resize_in_bands(src.data(), dst.data(), 8, 8, dw, dh, tavo::ChromaLayout::kPlanar);
    EXPECT_EQ(dst, std::vector<uint8_t>(64, 0xEE)) << dw << "x" << dh;
  }
}

}  // namespace
