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

class LumaThresholdJobs : public tavo::test::PoolTest {};

TEST_F(LumaThresholdJobs, EveryFramesThresholdIsTheHistogramWalksWithEveryRowVariant) {
  // Frame 0 meets 3/8 of its pixels, the others half; the running sum reaches
  // the target at a level (>=, not >). One frame alone and three in banded
  // batches, through the pool; heights that leave bands empty or uneven. The
  // last alphabet has rows 0, 32, 64, ... hold 0, which a histogram of every
  // 32nd row would take for the whole frame.
  tavo::set_inline_work_limit_for_testing(0);
  std::mt19937 rng(6);
  const std::vector<std::vector<uint8_t>> alphabets = {
      {}, {0}, {255}, {15, 16}, {0, 255}, {31, 32, 33, 34}, {240, 241, 250, 255}, {200, 201, 202}};
  const int32_t sizes[][2] = {{0, 0}, {2, 1}, {4, 4}, {5, 1}, {7, 3}, {33, 9}, {640, 97}, {4001, 3}};
  tavo::test::ForEachCpuMask([&](const tavo::test::CpuMask&) {
    for (size_t kind = 0; kind < alphabets.size(); ++kind) {
      for (const auto& [w, h] : sizes) {
        std::vector<uint8_t> frames[3];
        const uint8_t* planes[3];
        uint8_t walked[3], alone[3], banded[3] = {1, 1, 1};
        for (int f = 0; f < 3; ++f) {
          const size_t k = (kind + f) % alphabets.size();
          const auto& a = alphabets[k];
          frames[f].resize(static_cast<size_t>(w) * h);
          for (size_t i = 0; i < frames[f].size(); ++i) {
            frames[f][i] = a.empty() ? static_cast<uint8_t>(rng()) : a[rng() % a.size()];
            if (k + 1 == alphabets.size() && i / w % 32 == 0) frames[f][i] = 0;
          }
          planes[f] = frames[f].data();
          uint32_t histogram[256] = {};
          for (uint8_t b : frames[f]) ++histogram[b];
          const uint32_t target = f == 0 ? static_cast<uint32_t>(w * h * 3 / 8) : static_cast<uint32_t>(w * h / 2);
          uint32_t running = 0;
          int level = 0;
          while ((running += histogram[level]) < target) ++level;
          walked[f] = static_cast<uint8_t>(level);
          EXPECT_EQ(loadImg(planes[f], w, h, &alone[f], f), 0u);
        }
        tavo::frame_thresholds(planes, w, h, banded);
        EXPECT_EQ(std::vector(alone, alone + 3), std::vector(walked, walked + 3)) << w << "x" << h << " kind " << kind;
        EXPECT_EQ(std::vector(banded, banded + 3), std::vector(walked, walked + 3)) << w << "x" << h << " kind " << kind;
      }
    }
  });
  tavo::set_inline_work_limit_for_testing(tavo::kInlineWork);
}

TEST(CropWindow, IntersectionAspectAndOrigins) {
  const struct {
    int32_t width, height, x0, y0, x2, y2;
    int32_t w, h;
    std::array<int32_t, 6> origins;
  } cases[] = {
      // Both shifts 0: the whole frame, made even.
      {101, 75, 0, 0, 0, 0, 100, 74, {0, 0, 0, 0, 0, 0}},
      // Left 4, right 98: width 94, height trimmed to the aspect: 94 * 60 / 100 = 56.4 -> 56.
      {100, 60, 4, 0, -2, 0, 94, 56, {0, 0, 4, 0, 6, 0}},
      // 3994 x 2996, trimmed to 2995, even 2994; the shifts are 16-bit
      // quantities, 65536 + 6 behaves as 6.
      {4000, 3000, 6, -4, 0, 0, 3994, 2994, {0, 4, 6, 0, 6, 0}},
      {4000, 3000, 65536 + 6, -4, 0, 0, 3994, 2994, {0, 4, 6, 0, 6, 0}},
      // A tall loss keeps the height loss and shortens the width: left 8, right
      // 394; top 10, bottom 288 -> 278 * 400 / 300 = 370.67 -> 370; the origins
      // keep the untrimmed left/top.
      {400, 300, -6, 10, 8, -12, 370, 278, {14, 0, 8, 10, 0, 22}},
      // Zero width: the aspect division by zero yields 0; zero height: 98 * 0 / 100.
      {0, 100, 0, 2, 0, 0, 0, 0, {0, 0, 0, 2, 0, 2}},
      {100, 0, 2, 0, 0, 0, 98, 0, {0, 0, 2, 0, 2, 0}},
      // Shifts larger than the frame: nothing in common, negative sides made
      // even downward, no trap.
      {8, 8, 30, 0, -30, 0, -52, -52, {0, 0, 30, 0, 60, 0}},
  };
  for (const auto& c : cases) {
    int32_t w = -1, h = -1;
    std::array<int32_t, 6> origins;
    origins.fill(-99);
    imageCrop(c.width, c.height, &w, &h, c.x0, c.y0, c.x2, c.y2, origins.data());
    EXPECT_EQ(std::pair(w, h), std::pair(c.w, c.h)) << c.width << "x" << c.height << " " << c.x0;
    EXPECT_EQ(origins, c.origins) << c.width << "x" << c.height << " " << c.x0;
  }
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
      EXPECT_GE(std::min(rect.origins[2 * f], rect.origins[2 * f + 1]), 0);
      EXPECT_LE(rect.origins[2 * f] + rect.width, w);
      EXPECT_LE(rect.origins[2 * f + 1] + rect.height, h);
    }
  }
}

}  // namespace
