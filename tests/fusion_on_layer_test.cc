// FusionOnLayer: the exposure table over the level's range, the in-place remap
// of the Laplacian samples, the weighted mean with and without contrast, and
// refused inputs that leave everything untouched.
#include <gtest/gtest.h>

#include <vector>

#include "include/tavo_lumo_hdr.h"
#include "support/test_support.h"

namespace tavo {
namespace {

// `frames` levels of w x h held as level 0 of one-level pyramids.
struct Layer {
  int32_t w, h, n;
  std::vector<std::vector<uint8_t>> gauss;
  std::vector<std::vector<int16_t>> lap;
  std::vector<uint16_t> table = std::vector<uint16_t>(256, 0xbeef);
  std::vector<int16_t> out;
  Layer(int32_t width, int32_t height, int frames, uint8_t g, int16_t l)
      : w(width), h(height), n(frames), gauss(frames, std::vector<uint8_t>(width * height, g)),
        lap(frames, std::vector<int16_t>(width * height, l)), out(width * height, 0x7777) {}
  void fuse(float sigma, int frames = -1) {
    std::vector<uint8_t*> g_level;
    std::vector<int16_t*> l_level;
    for (int f = 0; f < n; ++f) g_level.push_back(gauss[f].data()), l_level.push_back(lap[f].data());
    std::vector<uint8_t**> g_pyr;
    std::vector<int16_t**> l_pyr;
    for (int f = 0; f < n; ++f) g_pyr.push_back(&g_level[f]), l_pyr.push_back(&l_level[f]);
    FusionOnLayer(l_pyr.data(), g_pyr.data(), out.data(), table.data(), w, h, 0, frames < 0 ? n : frames, sigma);
  }
};

TEST(FusionOnLayer, TableCoversTheLevelRangeCentredOnHalfTheRange) {
  Layer span(16, 16, 1, 0, 100);
  for (int i = 0; i < 256; ++i) span.gauss[0][i] = static_cast<uint8_t>(i);
  span.fuse(0.25f);
  EXPECT_EQ(span.table[127], 1024);  // R = 255: the centre is 127
  for (int i = 0; i < 256; ++i) EXPECT_NE(span.table[i], 0xbeef) << i;

  // Range 10 ... 20: the centre is 5, not 15; t = (i - 5) / 10.
  Layer narrow(11, 1, 1, 0, 0);
  for (int i = 0; i < 11; ++i) narrow.gauss[0][i] = static_cast<uint8_t>(10 + i);
  narrow.fuse(0.25f);
  EXPECT_EQ(narrow.table[10], 376);  // exp(-1) * 1024
  EXPECT_EQ(narrow.table[15], 18);   // exp(-4) * 1024
  EXPECT_EQ(narrow.table[20], 0);
  EXPECT_EQ(narrow.table[9], 0xbeef);
  EXPECT_EQ(narrow.table[21], 0xbeef);
}

TEST(FusionOnLayer, RemapsTheLaplacianInPlaceAgainOnEveryCall) {
  Layer layer(3, 2, 1, 50, 1);
  layer.fuse(0.1f);
  EXPECT_EQ(layer.lap[0], std::vector<int16_t>(6, 4));
  layer.fuse(0.1f);
  EXPECT_EQ(layer.lap[0], std::vector<int16_t>(6, 10));
  EXPECT_EQ(layer.out, std::vector<int16_t>(6, 10));
}

TEST(FusionOnLayer, MeanWeightsContrastInsideTheLevelOnly) {
  // Flat level: range 0 makes table[10] = 0, taken as weight 1; the mean of 64
  // and 65 rounds half away from zero.
  Layer flat(4, 4, 2, 10, 64);
  flat.lap[1].assign(16, 65);
  flat.fuse(0.5f);
  EXPECT_EQ(flat.table[10], 0);
  EXPECT_EQ(flat.out, std::vector<int16_t>(16, 65));

  // 3 x 3, frame 0 has a bright centre: range 10 ... 30, table[10] = 1024,
  // table[30] = 138. Centre: frame 0 weighs 138 x (80 >> 2), frame 1 1024 x 1,
  // (276000 + 204800 + 1892) / 3784 = 127. Border samples weigh 1024 each: 150.
  Layer bump(3, 3, 2, 10, 100);
  bump.gauss[0][4] = 30;
  bump.lap[1].assign(9, 200);
  bump.fuse(0.5f);
  EXPECT_EQ(bump.table[30], 138);
  for (int p = 0; p < 9; ++p) EXPECT_EQ(bump.out[p], p == 4 ? 127 : 150) << p;
}

TEST(FusionOnLayer, RefusedInputsChangeNothing) {
  for (int16_t bad : {int16_t{256}, int16_t{-1}}) {
    Layer layer(5, 3, 3, 40, 30);
    layer.lap[2][14] = bad;
    test::LogCapture log;
    layer.fuse(0.2f);
    EXPECT_EQ(log.count("outside 0..255"), 1);
    EXPECT_EQ(layer.table, std::vector<uint16_t>(256, 0xbeef));
    EXPECT_EQ(layer.out, std::vector<int16_t>(15, 0x7777));
    EXPECT_EQ(layer.lap[0], std::vector<int16_t>(15, 30));
  }
  Layer none(2, 2, 1, 40, 30);
  test::LogCapture log;
  none.fuse(0.2f, 0);
  EXPECT_EQ(log.count("no frames"), 1);
  EXPECT_EQ(none.table, std::vector<uint16_t>(256, 0xbeef));
}

}  // namespace
}  // namespace tavo
