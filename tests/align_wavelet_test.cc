// One registration level: 2x2 means, threshold bitmap and validity mask.
#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <vector>

#include "include/tavo_lumo_hdr.h"
#include "pool/band_jobs.h"
#include "support/test_support.h"

namespace {

struct Level {
  std::vector<uint8_t> approx, bitmap, mask;
  bool operator==(const Level&) const = default;
};

int32_t half_up(int32_t v) { return (v & 1) + v / 2; }

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

std::vector<uint8_t> random_plane(int32_t w, int32_t h, uint32_t seed) {
  std::mt19937 rng(seed);
  std::vector<uint8_t> p(static_cast<size_t>(w) * h);
  for (auto& v : p) v = static_cast<uint8_t>(rng());
  return p;
}

TEST(Wavelet, HandComputedBlocks) {
  // (10 + 20 + 30 + 41) >> 2 = 25.
  Level l = decompose({10, 20, 30, 41}, 2, 2, 128);
  EXPECT_EQ(l.approx[0], 25);
  EXPECT_EQ(l.bitmap[0], 0);
  EXPECT_EQ(l.mask[0], 255);
  // A mean equal to the threshold is not above it and is untrusted.
  l = decompose({10, 20, 30, 41}, 2, 2, 25);
  EXPECT_EQ(l.bitmap[0], 0);
  EXPECT_EQ(l.mask[0], 0);
  l = decompose({10, 20, 30, 41}, 2, 2, 24);
  EXPECT_EQ(l.bitmap[0], 1);

  // Height 3: the third row has no partner, its outputs average horizontal
  // pairs of that row alone, in the main part and the tail alike.
  std::vector<uint8_t> src(18 * 3, 0);
  for (int32_t c = 0; c < 18; ++c) src[2 * 18 + c] = static_cast<uint8_t>(c * 13);
  l = decompose(src, 18, 3, 100);
  for (int32_t C = 0; C < 9; ++C) {
    EXPECT_EQ(l.approx[9 + C], (2 * C * 13 + (2 * C + 1) * 13) >> 1) << C;
  }
  // Width 19, height 3: the corner output is the corner sample itself.
  src.assign(19 * 3, 0);
  src[19 * 3 - 1] = 201;
  l = decompose(src, 19, 3, 100);
  EXPECT_EQ(l.approx[10 * 2 - 1], 201);
}

TEST(Wavelet, MainPartAndTailClassifyDifferently) {
  // Width 17, two rows, every block mean 110 against threshold 100: the eight
  // main-part outputs are outside +-4 (trusted), the tail output (column 16,
  // the vertical mean of 105 and 115) is inside +-20 (untrusted).
  std::vector<uint8_t> src(17 * 2, 110);
  src[16] = 105;
  src[17 + 16] = 115;
  Level l = decompose(src, 17, 2, 100);
  for (int32_t C = 0; C < 8; ++C) {
    EXPECT_EQ(l.approx[C], 110);
    EXPECT_EQ(l.mask[C], 255) << C;
  }
  EXPECT_EQ(l.approx[8], 110);
  EXPECT_EQ(l.bitmap[8], 1);
  EXPECT_EQ(l.mask[8], 0);

  // Thresholds near the ends: main band [0, 6] for t = 2 and [249, 255] for
  // t = 253; tail band [-18, 22] and [233, 273].
  struct Probe {
    int32_t t;
    uint8_t value;
    uint8_t main_mask, tail_mask;
  } probes[] = {{2, 0, 0, 0},     {2, 6, 0, 0},     {2, 7, 255, 0},   {2, 23, 255, 255},
                {253, 255, 0, 0}, {253, 249, 0, 0}, {253, 248, 255, 0}, {253, 232, 255, 255}};
  for (const Probe& p : probes) {
    l = decompose(std::vector<uint8_t>(18 * 2, p.value), 18, 2, p.t);
    EXPECT_EQ(l.mask[0], p.main_mask) << "t " << p.t << " value " << int(p.value);
    EXPECT_EQ(l.mask[8], p.tail_mask) << "t " << p.t << " value " << int(p.value);
  }
}

TEST(Wavelet, MatchesBlockMeansOnRandomImages) {
  const int32_t sizes[][2] = {{1, 1},  {1, 7},  {2, 2},   {15, 3},  {16, 2},  {16, 5}, {17, 4},
                              {31, 9}, {32, 1}, {33, 33}, {47, 10}, {64, 13}, {100, 7}};
  uint32_t seed = 1;
  for (const auto& [w, h] : sizes) {
    for (int32_t t : {0, 3, 4, 100, 127, 251, 252, 255}) {
      const std::vector<uint8_t> src = random_plane(w, h, seed++);
      EXPECT_EQ(decompose(src, w, h, t), reference(src, w, h, t)) << w << "x" << h << " t " << t;
    }
  }
  // Smooth images put many means close to the threshold.
  const int32_t w = 77, h = 21;
  std::vector<uint8_t> ramp(w * h);
  for (int32_t i = 0; i < w * h; ++i) ramp[i] = static_cast<uint8_t>(90 + (i % w) / 3 + (i / w));
  for (int32_t t = 85; t < 140; ++t) EXPECT_EQ(decompose(ramp, w, h, t), reference(ramp, w, h, t));
}

class WaveletBands : public tavo::test::PoolTest {};

TEST_F(WaveletBands, FourBandsGiveTheWholeImageResult) {
  // Bands of (h/4 & ~1) rows; the last band takes the rest, odd counts included.
  const int32_t sizes[][2] = {{16, 1}, {16, 2}, {20, 3}, {9, 4},   {33, 5},  {17, 7},
                              {40, 8}, {35, 9}, {48, 10}, {19, 17}, {64, 30}, {121, 67}};
  uint32_t seed = 100;
  for (const auto& [w, h] : sizes) {
    const std::vector<uint8_t> src = random_plane(w, h, seed++);
    const int32_t t = static_cast<int32_t>(seed % 256);
    const Level whole = decompose(src, w, h, t);
    const size_t n = whole.approx.size();
    Level banded{std::vector<uint8_t>(n, 0xEE), std::vector<uint8_t>(n, 0xEE), std::vector<uint8_t>(n, 0xEE)};
    EXPECT_EQ(wltDecompose_process(src.data(), w, h, banded.approx.data(), t,
                                   banded.bitmap.data(), banded.mask.data()),
              0u);
    EXPECT_EQ(banded, whole) << w << "x" << h;
  }
}

TEST_F(WaveletBands, NullSourceIsReportedAndTheBatchStillRuns) {
  tavo::test::LogCapture log;
  uint8_t approx[4], bitmap[4], mask[4];
  EXPECT_EQ(wltDecompose_process(nullptr, 8, 0, approx, 10, bitmap, mask), 0u);
  ASSERT_EQ(log.count("in_buffer"), 1) << log.joined();
  for (const std::string& line : log.lines()) {
    if (line.find("in_buffer") == std::string::npos) continue;
    EXPECT_EQ(line.rfind("L ", 0), 0u);
    EXPECT_TRUE(line.ends_with(", wltDecompose_process: in_buffer is NULL\n")) << line;
  }
  EXPECT_EQ(count, 4);
}

}  // namespace
