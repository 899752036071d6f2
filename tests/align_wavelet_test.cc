// One registration level: 2x2 means, threshold bitmap and validity mask.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <vector>

#include "fusion/pyramid_geometry.h"
#include "include/tavo_lumo_hdr.h"
#include "support/test_support.h"

namespace {

struct Level {
  std::vector<uint8_t> approx, bitmap, mask;
  bool operator==(const Level&) const = default;
};

using tavo::half_up;

Level decompose(const std::vector<uint8_t>& src, int32_t w, int32_t h, int32_t t) {
  const size_t n = static_cast<size_t>(half_up(w)) * half_up(h);
  Level out{std::vector<uint8_t>(n, 0xEE), std::vector<uint8_t>(n, 0xEE), std::vector<uint8_t>(n, 0xEE)};
  wltDecompose(src.data(), out.approx.data(), out.bitmap.data(), out.mask.data(), w, h, t);
  return out;
}

// The level as a whole-image statement: the mean of the block's samples that
// exist (4, 2 at the odd last column or the unpaired last row, 1 at the corner),
// truncated; the exclusion band is +-4 clamped to 0...255 for outputs of the
// 16-column main part and +-20 unclamped for the tail.
Level reference(const std::vector<uint8_t>& src, int32_t w, int32_t h, int32_t t) {
  const int32_t ow = half_up(w), oh = half_up(h);
  Level out{std::vector<uint8_t>(ow * oh), std::vector<uint8_t>(ow * oh), std::vector<uint8_t>(ow * oh)};
  for (int32_t R = 0; R < oh; ++R) {
    for (int32_t C = 0; C < ow; ++C) {
      int32_t sum = 0, n = 0;
      for (int32_t r = 2 * R; r < std::min(2 * R + 2, h); ++r) {
        for (int32_t c = 2 * C; c < std::min(2 * C + 2, w); ++c, ++n) sum += src[r * w + c];
      }
      const int32_t a = sum / n;
      const bool main_part = 2 * C < (w & ~15);
      const int32_t lo = main_part ? std::max(t - 4, 0) : t - 20;
      const int32_t hi = main_part ? std::min(t + 4, 255) : t + 20;
      out.approx[R * ow + C] = static_cast<uint8_t>(a);
      out.bitmap[R * ow + C] = a > t;
      out.mask[R * ow + C] = a >= lo && a <= hi ? 0 : 255;
    }
  }
  return out;
}

TEST(Wavelet, MatchesBlockMeansOnRandomImages) {
  const int32_t sizes[][2] = {{1, 1},  {1, 7},  {2, 2},   {15, 3},  {16, 2},  {16, 5}, {17, 4},
                              {31, 9}, {32, 1}, {33, 33}, {47, 10}, {64, 13}, {100, 7}};
  uint32_t seed = 1;
  for (const auto& [w, h] : sizes) {
    for (int32_t t : {0, 3, 4, 100, 127, 251, 252, 255}) {
      const std::vector<uint8_t> src = tavo::test::random_bytes(static_cast<size_t>(w) * h, seed++);
      EXPECT_EQ(decompose(src, w, h, t), reference(src, w, h, t)) << w << "x" << h << " t " << t;
    }
  }
  // Smooth images put many means close to the threshold, also where the
  // exclusion band is clamped at 0 and 255 (main part) or not (tail).
  const int32_t w = 77, h = 21;
  std::vector<uint8_t> ramp(w * h);
  for (int32_t base : {0, 90, 210}) {
    for (int32_t i = 0; i < w * h; ++i) ramp[i] = static_cast<uint8_t>(std::min(255, base + (i % w) / 3 + (i / w)));
    for (int32_t t = std::max(0, base - 5); t < std::min(256, base + 50); ++t) {
      EXPECT_EQ(decompose(ramp, w, h, t), reference(ramp, w, h, t)) << base << " t " << t;
    }
  }
}

}  // namespace
