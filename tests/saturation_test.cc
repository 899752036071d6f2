// Saturation gains with their clamps, and the exported block copy, which
// copies the first sixteen bytes and the tail only.
#include <gtest/gtest.h>

#include <numeric>
#include <vector>

#include "include/tavo_lumo_hdr.h"

namespace tavo {
namespace {

uint8_t saturated(uint8_t c, float gain) {
  saturation(&c, 1, 1, gain);
  return c;
}

TEST(Saturation, GainsAndClamps) {
  for (int c = 0; c < 256; ++c) {
    EXPECT_EQ(saturated(static_cast<uint8_t>(c), 1.0f), c);
    EXPECT_EQ(saturated(static_cast<uint8_t>(c), 0.0f), 128);
  }
  for (float gain : {-3.0f, 0.5f, 7.0f}) EXPECT_EQ(saturated(128, gain), 128);
  EXPECT_EQ(saturated(200, 2.0f), 255);  // 144 clamped to 127
  EXPECT_EQ(saturated(60, 2.0f), 0);     // -136 clamped to -128
  EXPECT_EQ(saturated(130, 2.0f), 132);
  EXPECT_EQ(saturated(100, -1.0f), 156);
  EXPECT_EQ(saturated(0, -1.0f), 255);  // through the upper clamp
  EXPECT_EQ(saturated(255, -1.0f), 1);
  EXPECT_EQ(saturated(131, 0.5f), 129);  // 1.5 truncates
}

TEST(MemcpyNeon, CopiesTheFirstSixteenAndTheTailOnly) {
  std::vector<uint8_t> src(40), dst(48, 0xee);
  std::iota(src.begin(), src.end(), 1);
  memcpy_neon(dst.data(), src.data(), 40);
  for (int k = 0; k < 48; ++k) EXPECT_EQ(dst[k], k < 16 || (k >= 32 && k < 40) ? src[k] : 0xee) << k;
  // Overlapping blocks: the sixteen bytes are copied 16 times over, each copy
  // reading what the previous one wrote.
  std::vector<uint8_t> shift(17);
  std::iota(shift.begin(), shift.end(), 1);
  memcpy_neon(shift.data() + 1, shift.data(), 16);
  EXPECT_EQ(shift, std::vector<uint8_t>(17, 1));
  for (int n : {0, 7, 15, 16, -5}) {
    std::vector<uint8_t> d(20, 0xee);
    memcpy_neon(d.data(), src.data(), n);
    for (int k = 0; k < 20; ++k) EXPECT_EQ(d[k], k < n ? src[k] : 0xee) << n << " " << k;
  }
}

}  // namespace
}  // namespace tavo
