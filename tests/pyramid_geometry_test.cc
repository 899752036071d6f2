// Level counts and level sizes of the fusion pyramids.
#include <gtest/gtest.h>

#include <vector>

#include "include/tavo_lumo_hdr.h"

namespace {

TEST(PyramidGeometry, LevelCount) {
  const struct {
    int32_t w, h;
    uint8_t levels;
  } cases[] = {{1, 100, 0}, {0, 5, 0}, {-4, 100, 0}, {2, 2, 1}, {3, 9, 1}, {4, 4, 2},
               {7, 50, 2}, {8, 8, 3}, {4000, 3000, 11}, {1920, 1080, 10}, {4096, 8, 3},
               {65536, 65535, 15}};
  for (const auto& c : cases) {
    uint8_t levels = 99;
    EXPECT_EQ(pyramid_level(&levels, c.w, c.h), 0);
    EXPECT_EQ(levels, c.levels) << c.w << "x" << c.h;
  }
}

std::vector<std::pair<int32_t, int32_t>> level_sizes(int32_t w, int32_t h) {
  uint8_t levels = 0;
  pyramid_level(&levels, w, h);
  std::vector<int32_t> ws(levels), hs(levels);
  EXPECT_EQ(pyramid_size(ws.data(), hs.data(), w, h, levels), 0);
  std::vector<std::pair<int32_t, int32_t>> sizes;
  for (int i = 0; i < levels; ++i) sizes.emplace_back(ws[i], hs[i]);
  return sizes;
}

TEST(PyramidGeometry, LevelTables) {
  using Sizes = std::vector<std::pair<int32_t, int32_t>>;
  EXPECT_EQ(level_sizes(4000, 3000),
            (Sizes{{4000, 3000}, {2000, 1500}, {1000, 750}, {500, 375}, {250, 188}, {125, 94},
                   {63, 47}, {32, 24}, {16, 12}, {8, 6}, {4, 3}}));
  EXPECT_EQ(level_sizes(1920, 1080),
            (Sizes{{1920, 1080}, {960, 540}, {480, 270}, {240, 135}, {120, 68}, {60, 34},
                   {30, 17}, {15, 9}, {8, 5}, {4, 3}}));
  EXPECT_EQ(level_sizes(4096, 8), (Sizes{{4096, 8}, {2048, 4}, {1024, 2}}));
}

TEST(PyramidGeometry, SizeWritesOnlyEntryZeroBelowTwoLevels) {
  for (int32_t levels : {-1, 0, 1}) {
    int32_t ws[3] = {-7, -7, -7}, hs[3] = {-7, -7, -7};
    pyramid_size(ws, hs, 375, 99, levels);
    EXPECT_EQ(ws[0], 375);
    EXPECT_EQ(hs[0], 99);
    EXPECT_EQ(ws[1], -7);
    EXPECT_EQ(hs[1], -7);
  }
}

}  // namespace
