// Luma thresholds (histogram percentiles) and the crop window of shifted frames.
#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <random>
#include <vector>

#include "align/crop_window.h"
#include "align/registration.h"
#include "include/tavo_lumo_hdr.h"
#include "pool/band_jobs.h"
#include "support/cpu_masks.h"
#include "support/test_support.h"

namespace {

uint8_t threshold_of(const std::vector<uint8_t>& luma, int32_t w, int32_t h, int32_t index) {
  uint8_t t = 77;
  EXPECT_EQ(loadImg(luma.data(), w, h, &t, index), 0u);
  return t;
}

class LumaThresholdJobs : public tavo::test::PoolTest {};

// Luma whose percentile a histogram of every 32nd row finds, or misses: rows
// 0, 32, 64, ... hold other values than the rest.
std::vector<uint8_t> luma_of(int kind, int32_t w, int32_t h, std::mt19937& rng) {
  const std::vector<std::vector<uint8_t>> alphabets = {
      {}, {0}, {255}, {15, 16}, {0, 255}, {31, 32, 33, 34}, {240, 241, 250, 255}};
  std::vector<uint8_t> luma(static_cast<size_t>(w) * h);
  for (size_t i = 0; i < luma.size(); ++i) {
    const auto row = static_cast<int32_t>(i / w);
    if (kind == static_cast<int>(alphabets.size())) {
      luma[i] = row % 32 == 0 ? 0 : static_cast<uint8_t>(200 + rng() % 3);
    } else {
      const auto& a = alphabets[kind];
      luma[i] = a.empty() ? static_cast<uint8_t>(rng()) : a[rng() % a.size()];
    }
  }
  return luma;
}
constexpr int kLumaKinds = 8;

TEST_F(LumaThresholdJobs, EveryFramesThresholdIsTheHistogramWalksWithEveryRowVariant) {
  // Frame 0 meets 3/8 of its pixels, the others half; the running sum reaches
  // the target at a level (>=, not >). One frame alone and three in banded
  // batches, through the pool; heights that leave bands empty or uneven.
  tavo::set_inline_work_limit_for_testing(0);
  std::mt19937 rng(6);
  const int32_t sizes[][2] = {{0, 0}, {2, 1}, {4, 4}, {5, 1}, {7, 3}, {33, 9}, {640, 97}, {4001, 3}};
  tavo::test::ForEachCpuMask([&](const tavo::test::CpuMask&) {
    for (int kind = 0; kind < kLumaKinds; ++kind) {
      for (const auto& [w, h] : sizes) {
        std::vector<uint8_t> frames[3];
        const uint8_t* planes[3];
        uint8_t walked[3];
        for (int f = 0; f < 3; ++f) {
          frames[f] = luma_of((kind + f) % kLumaKinds, w, h, rng);
          planes[f] = frames[f].data();
          uint32_t histogram[256] = {};
          for (uint8_t b : frames[f]) ++histogram[b];
          const uint32_t target = f == 0 ? static_cast<uint32_t>(w * h * 3 / 8) : static_cast<uint32_t>(w * h / 2);
          uint32_t running = 0;
          int level = 0;
          while ((running += histogram[level]) < target) ++level;
          walked[f] = static_cast<uint8_t>(level);
          EXPECT_EQ(threshold_of(frames[f], w, h, f), walked[f]) << w << "x" << h << " kind " << kind;
        }
        uint8_t banded[3] = {1, 1, 1};
        tavo::frame_thresholds(planes, w, h, banded);
        for (int f = 0; f < 3; ++f) EXPECT_EQ(banded[f], walked[f]) << w << "x" << h << " kind " << kind << " frame " << f;
      }
    }
  });
  tavo::set_inline_work_limit_for_testing(tavo::kInlineWork);
}

struct Crop {
  int32_t w, h;
  std::array<int32_t, 6> origins;
};

Crop image_crop(int32_t width, int32_t height, int32_t x0, int32_t y0, int32_t x2, int32_t y2) {
  Crop c{-1, -1, {}};
  c.origins.fill(-99);
  imageCrop(width, height, &c.w, &c.h, x0, y0, x2, y2, c.origins.data());
  return c;
}

TEST(CropWindow, IntersectionAspectAndOrigins) {
  const struct {
    int32_t width, height, x0, y0, x2, y2;
    Crop expect;
  } cases[] = {
      // Both shifts 0: the whole frame, made even.
      {101, 75, 0, 0, 0, 0, {100, 74, {0, 0, 0, 0, 0, 0}}},
      // Left 4, right 98: width 94, height trimmed to the aspect: 94 * 60 / 100 = 56.4 -> 56.
      {100, 60, 4, 0, -2, 0, {94, 56, {0, 0, 4, 0, 6, 0}}},
      // 3994 x 2996, trimmed to 2995, even 2994.
      {4000, 3000, 6, -4, 0, 0, {3994, 2994, {0, 4, 6, 0, 6, 0}}},
      // A tall loss keeps the height loss and shortens the width: left 8, right
      // 394; top 10, bottom 288 -> 278 * 400 / 300 = 370.67 -> 370; the origins
      // keep the untrimmed left/top.
      {400, 300, -6, 10, 8, -12, {370, 278, {14, 0, 8, 10, 0, 22}}},
  };
  for (const auto& c : cases) {
    const Crop got = image_crop(c.width, c.height, c.x0, c.y0, c.x2, c.y2);
    EXPECT_EQ(got.w, c.expect.w) << c.width << "x" << c.height;
    EXPECT_EQ(got.h, c.expect.h) << c.width << "x" << c.height;
    EXPECT_EQ(got.origins, c.expect.origins) << c.width << "x" << c.height;
  }
}

TEST(CropWindow, DegenerateSizesDoNotTrap) {
  // Zero width: the aspect division by zero yields 0.
  Crop c = image_crop(0, 100, 0, 2, 0, 0);
  EXPECT_EQ(c.w, 0);
  EXPECT_EQ(c.h, 0);
  // Zero height: the height is recomputed as 98 * 0 / 100.
  c = image_crop(100, 0, 2, 0, 0, 0);
  EXPECT_EQ(c.w, 98);
  EXPECT_EQ(c.h, 0);
  // Shifts larger than the frame: nothing in common, negative sides made even
  // downward, no trap.
  c = image_crop(8, 8, 30, 0, -30, 0);
  EXPECT_EQ(c.origins[2], 30);
  EXPECT_LE(c.w, 0);
  EXPECT_EQ(c.w % 2, 0);
  // The shifts are 16-bit quantities: 65536 + 6 behaves as 6.
  const Crop wrapped = image_crop(4000, 3000, 65536 + 6, -4, 0, 0);
  const Crop plain = image_crop(4000, 3000, 6, -4, 0, 0);
  EXPECT_EQ(wrapped.w, plain.w);
  EXPECT_EQ(wrapped.origins, plain.origins);
}

TEST(CropWindow, WindowLiesInsideEveryShiftedFrame) {
  std::mt19937 rng(11);
  for (int i = 0; i < 200; ++i) {
    const int32_t w = 8 + static_cast<int32_t>(rng() % 500), h = 8 + static_cast<int32_t>(rng() % 500);
    auto s = [&] { return static_cast<int16_t>(static_cast<int32_t>(rng() % 41) - 20); };
    const int16_t sx[3] = {s(), 0, s()}, sy[3] = {s(), 0, s()};
    const tavo::CropRect rect = tavo::crop_window_from_shifts(w, h, sx[0], sy[0], sx[2], sy[2]);
    for (int f = 0; f < 3; ++f) {
      // One corner in reference coordinates, seen from each frame.
      EXPECT_EQ(rect.origins[2 * f], rect.origins[2] - sx[f]);
      EXPECT_EQ(rect.origins[2 * f + 1], rect.origins[3] - sy[f]);
      EXPECT_GE(rect.origins[2 * f], 0);
      EXPECT_GE(rect.origins[2 * f + 1], 0);
      EXPECT_LE(rect.origins[2 * f] + rect.width, w);
      EXPECT_LE(rect.origins[2 * f + 1] + rect.height, h);
    }
  }
}

}  // namespace
