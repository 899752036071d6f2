// Crops of the registered frames: luma widened to 16-bit samples, chroma pairs
// split into planes.
#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

#include "include/tavo_lumo_hdr.h"
#include "support/test_support.h"

namespace {

using tavo::test::random_bytes;

TEST(FrameWarp, LumaCropIsTheSourceTimesSixteen) {
  const int32_t stride = 23, src_rows = 9;
  std::vector<uint8_t> src = random_bytes(stride * src_rows, 1);
  src[3 * stride + 5] = 255;
  src[3 * stride + 6] = 1;
  src[3 * stride + 7] = 0;
  // Widths below, at and above the vector step, crops starting anywhere.
  for (int32_t width : {1, 7, 8, 15, 16, 17, 18}) {
    for (auto [xs, ys] : {std::pair{0, 0}, std::pair{5, 3}, std::pair{23 - 18, 1}}) {
      const int32_t rows = src_rows - ys;
      std::vector<uint16_t> dst(width * rows + 1, 0xBEEF);
      EXPECT_EQ(imageAffine(src.data(), dst.data(), stride, width, rows, xs, ys), 0u);
      for (int32_t r = 0; r < rows; ++r) {
        for (int32_t j = 0; j < width; ++j) {
          ASSERT_EQ(dst[r * width + j], src[(ys + r) * stride + xs + j] * 16)
              << "width " << width << " origin " << xs << "," << ys << " at " << r << "," << j;
        }
      }
      EXPECT_EQ(dst.back(), 0xBEEF);
    }
  }
}

TEST(FrameWarp, ChromaPairsSplitIntoOddAndEvenPlanes) {
  // The origin's x counts bytes: an odd x swaps the roles of the two planes.
  const uint32_t stride = 80;
  const std::vector<uint8_t> src = random_bytes(stride * 6, 2);
  for (uint32_t width : {1u, 9u, 16u, 17u, 33u}) {
    for (uint32_t xs : {0u, 1u, 6u}) {
      const int32_t rows = 4;
      std::vector<uint8_t> o(width * rows, 0xEE), e(width * rows, 0xEE);
      EXPECT_EQ(imageAffine_uv(src.data(), o.data(), e.data(), stride, width, rows, xs, 2), 0u);
      for (int32_t r = 0; r < rows; ++r) {
        const uint8_t* s = src.data() + (2 + r) * stride + xs;
        for (uint32_t j = 0; j < width; ++j) {
          ASSERT_EQ(e[r * width + j], s[2 * j]) << width << " " << xs;
          ASSERT_EQ(o[r * width + j], s[2 * j + 1]) << width << " " << xs;
        }
      }
    }
  }
}

// A start before the frame (xs + ys * stride < 0) is reported by every band
// and the copy still runs from the given position.
TEST(FrameWarp, CropsBeforeTheFrameAreReported) {
  tavo::test::LogCapture log;
  const std::vector<uint8_t> src = random_bytes(64, 4);
  std::vector<uint16_t> dst(4);
  imageAffine(src.data() + 16, dst.data(), 8, 4, 1, 3, -1);
  EXPECT_EQ(dst[0], src[16 - 8 + 3] * 16);
  EXPECT_EQ(log.count("imageAffine: p0 location error,xs:3,ys:-1\n"), 1) << log.joined();
  imageAffine(src.data() + 16, dst.data(), 8, 4, 0, -1, 0);
  EXPECT_EQ(log.count("p0 location error,xs:-1,ys:0\n"), 1);
  uint8_t o[4], e[4];
  imageAffine_uv(src.data() + 16, o, e, 8, 2, 1, static_cast<uint32_t>(-2), 0);
  EXPECT_EQ(e[0], src[14]);
  EXPECT_EQ(log.count("imageAffine_uv: p0 location error,xs:-2,ys:0\n"), 1) << log.joined();
  imageAffine_process(src.data() + 16, dst.data(), 8, 1, 4, 0, static_cast<uint32_t>(-1));
  EXPECT_EQ(log.count("p0 location error,xs:0,ys:-1\n"), 4) << log.joined();
}

}  // namespace
