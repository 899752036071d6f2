// Registration: luma thresholds (histogram percentiles), the bitmap comparison
// of a candidate shift, the coarse-to-fine shift search, the registration of a
// capture and the crop window of the shifted frames.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <random>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "align/crop_window.h"
#include "align/exposure_shift.h"
#include "align/registration.h"
#include "include/tavo_lumo_hdr.h"
#include "pool/band_jobs.h"
#include "support/test_support.h"
#include "tools/scene/scene.h"

namespace {

using tavo::test::PoolTest;

// ---- Luma thresholds -----------------------------------------------------

class LumaThresholdJobs : public PoolTest {};

TEST_F(LumaThresholdJobs, EveryFramesThresholdIsTheHistogramWalks) {
  // Frame 0 meets 3/8 of its pixels, the others half; the running sum reaches
  // the target at a level (>=, not >). One frame alone, three as one job per
  // frame, and three in banded batches, all through the pool; heights that
  // leave bands empty or uneven. (The counting rows of every instruction set
  // are held to the portable rows in align_rows_test.cc.) The
  // last alphabet has rows 0, 32, 64, ... hold 0, which a histogram of every
  // 32nd row would take for the whole frame.
  tavo::set_inline_work_limit_for_testing(0);
  std::mt19937 rng(6);
  const std::vector<std::vector<uint8_t>> alphabets = {
      {}, {0}, {255}, {15, 16}, {0, 255}, {31, 32, 33, 34}, {240, 241, 250, 255}, {200, 201, 202}};
  const int32_t sizes[][2] = {{0, 0}, {2, 1}, {4, 4}, {5, 1}, {7, 3}, {33, 9}, {640, 97}, {4001, 3}};
  for (size_t kind = 0; kind < alphabets.size(); ++kind) {
    for (const auto& [w, h] : sizes) {
      std::vector<uint8_t> frames[3];
      const uint8_t* planes[3];
      uint8_t walked[3], alone[3], banded[3] = {1, 1, 1}, jobs[3] = {1, 1, 1};
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
      EXPECT_EQ(loadImg_process(planes, w, h, jobs), 0u);
      for (const uint8_t* found : {alone, banded, jobs}) {
        EXPECT_EQ(std::vector(found, found + 3), std::vector(walked, walked + 3)) << w << "x" << h << " kind " << kind;
      }
    }
  }
  tavo::set_inline_work_limit_for_testing(tavo::kInlineWork);
}

// ---- Scoring one shift ---------------------------------------------------

// Moving mask and bitmap, reference bitmap and mask of one level: bitmaps of
// 0/1 and masks of 0/255 as the level decomposition writes them, with about a
// quarter of the pixels untrusted. Reversed, the roles of the frames swap.
using Maps = std::array<std::vector<uint8_t>, 4>;

Maps random_maps(size_t n, uint32_t seed) {
  std::mt19937 rng(seed);
  Maps m;
  for (int p = 0; p < 4; ++p) {
    m[p].resize(n);
    for (uint8_t& v : m[p]) v = p == 1 || p == 2 ? rng() & 1 : (rng() % 4 == 0 ? 0 : 255);
  }
  return m;
}

// Moving pixel (r, j) against reference pixel (r + y, j + x), every pair inside
// the plane once: a point where the bitmaps differ or a mask is 0.
uint32_t brute_force(const Maps& m, int32_t w, int32_t h, int32_t x, int32_t y) {
  uint32_t n = 0;
  for (int32_t r = 0; r < h; ++r) {
    for (int32_t j = 0; j < w; ++j) {
      const int32_t rr = r + y, jj = j + x;
      if (rr < 0 || rr >= h || jj < 0 || jj >= w) continue;
      const size_t a = static_cast<size_t>(r) * w + j, b = static_cast<size_t>(rr) * w + jj;
      n += m[1][a] != m[2][b] || m[0][a] == 0 || m[3][b] == 0;
    }
  }
  return n;
}

class MismatchCount : public PoolTest {};

TEST_F(MismatchCount, EveryOverlappingPairCountsOnce) {
  // Plane sizes with bands of 0 ... 12 rows and shifts up to beyond the plane:
  // the dispatcher's bands reach into their neighbours by the vertical shift
  // and never outside the plane, even where a band is shorter than the shift.
  const int32_t sizes[][2] = {{1, 4}, {7, 8}, {17, 12}, {64, 50}, {9, 3}, {5, 7}, {6, 1}};
  uint32_t seed = 1;
  for (const auto& [w, h] : sizes) {
    const Maps m = random_maps(static_cast<size_t>(w) * h, seed++), swapped{m[3], m[2], m[1], m[0]};
    for (int32_t x : {-9, -3, -2, -1, 0, 1, 2, 3, 12}) {
      for (int32_t y : {-9, -3, -2, -1, 0, 1, 2, 3, 8}) {
        uint32_t n = 12345;
        EXPECT_EQ(imageAffine_xor_and_process(m[0].data(), m[1].data(), m[2].data(), m[3].data(), w, h, x, y, &n), 0u);
        EXPECT_EQ(n, brute_force(m, w, h, x, y)) << w << "x" << h << " " << x << "," << y;
      }
    }
    // The shift search scores the nine candidates around a centre in one
    // batch, for two frames at once: here the same planes with the roles of
    // moving and reference swapped.
    const uint8_t* planes[2][4];
    for (int p = 0; p < 4; ++p) planes[0][p] = m[p].data(), planes[1][p] = swapped[p].data();
    for (int32_t centre : {-4, 0, 1, 5}) {
      int8_t xs[2 * tavo::kCandidates], ys[2 * tavo::kCandidates];
      uint32_t counts[2 * tavo::kCandidates];
      for (int k = 0; k < 2 * tavo::kCandidates; ++k) {
        const int32_t c = k < tavo::kCandidates ? centre : -centre;
        xs[k] = static_cast<int8_t>(c + k % tavo::kCandidates / 3 - 1);
        ys[k] = static_cast<int8_t>(-c + k % 3 - 1);
      }
      tavo::score_candidates(planes, 2, w, h, xs, ys, counts);
      for (int k = 0; k < 2 * tavo::kCandidates; ++k) {
        EXPECT_EQ(counts[k], brute_force(k < tavo::kCandidates ? m : swapped, w, h, xs[k], ys[k]))
            << w << "x" << h << " " << int{xs[k]} << "," << int{ys[k]};
      }
    }
  }
}

// ---- The shift search ----------------------------------------------------

// The level planes of a registration, one vector each.
struct LevelPlanes {
  int32_t levels;
  std::vector<int32_t> w, h;
  std::vector<std::vector<uint8_t>> store;
  std::vector<uint8_t*> ref_approx, moving_approx, ref_bitmap, ref_mask, moving_bitmap, moving_mask;

  LevelPlanes(int32_t width, int32_t height, int32_t n) : levels(n), w(n), h(n) {
    w[0] = width;
    h[0] = height;
    for (int32_t k = 1; k < n; ++k) w[k] = (w[k - 1] + 1) / 2, h[k] = (h[k - 1] + 1) / 2;
    for (auto* table : {&ref_approx, &moving_approx, &ref_bitmap, &ref_mask, &moving_bitmap, &moving_mask}) {
      for (int32_t k = 0; k < n; ++k) {
        store.emplace_back(static_cast<size_t>(w[k]) * h[k], 0);
        table->push_back(store.back().data());
      }
    }
  }
  void build_reference(const uint8_t* luma, uint8_t t) {
    for (int32_t k = 0; k + 1 < levels; ++k) {
      wltDecompose_process(k == 0 ? luma : ref_approx[k], w[k], h[k], ref_approx[k + 1], t,
                           ref_bitmap[k + 1], ref_mask[k + 1]);
    }
  }
  std::pair<int32_t, int32_t> shift(const uint8_t* luma, uint8_t t) {
    int16_t s[2] = {77, 77};
    EXPECT_EQ(GetExpShift(luma, static_cast<uint32_t>(levels), t, moving_approx.data(),
                          ref_bitmap.data(), ref_mask.data(), moving_bitmap.data(),
                          moving_mask.data(), w.data(), h.data(), s),
              0u);
    return {s[0], s[1]};
  }
};

class ShiftSearch : public PoolTest {};

TEST_F(ShiftSearch, ALevelWithoutImprovementKeepsTheShiftUndoubled) {
  // Level 2 finds a shift of one column; at level 1 every reference pixel is
  // untrusted, no candidate scores below w*h, and the level-2 shift comes back
  // as it is instead of doubled.
  const int32_t w = 96, h = 64;
  std::mt19937 rng(4);
  std::vector<uint8_t> luma(w * h);
  for (auto& v : luma) v = static_cast<uint8_t>(rng());
  const uint8_t t = 128;
  LevelPlanes planes(w, h, 3);
  // The moving planes as the search will build them, then a reference that is
  // the moving level 2 moved one column right: moving (m, j) = reference (m, j + 1).
  wltDecompose_process(luma.data(), w, h, planes.moving_approx[1], t, planes.moving_bitmap[1],
                       planes.moving_mask[1]);
  wltDecompose_process(planes.moving_approx[1], planes.w[1], planes.h[1], planes.moving_approx[2],
                       t, planes.moving_bitmap[2], planes.moving_mask[2]);
  const int32_t w2 = planes.w[2];
  for (int32_t r = 0; r < planes.h[2]; ++r) {
    for (int32_t j = 0; j + 1 < w2; ++j) {
      planes.ref_bitmap[2][r * w2 + j + 1] = planes.moving_bitmap[2][r * w2 + j];
      planes.ref_mask[2][r * w2 + j + 1] = 255;
    }
  }
  // Level 1 reference masks stay 0.
  EXPECT_EQ(planes.shift(luma.data(), t), std::pair(1, 0));
  // With one level there is nothing to search, and nothing is written.
  LevelPlanes one(w, h, 1);
  const std::vector<uint8_t> untouched = one.store[1];
  EXPECT_EQ(one.shift(luma.data(), t), std::pair(0, 0));
  EXPECT_EQ(one.store[1], untouched);
}

// ---- Registration of a capture -------------------------------------------

class Registration : public PoolTest {};

tavo::CropWindow register_bracket(const std::array<std::vector<uint8_t>, 3>& frames, int32_t w,
                                  int32_t h) {
  const uint8_t* luma[3] = {frames[0].data(), frames[1].data(), frames[2].data()};
  tavo::CropWindow window{};
  EXPECT_EQ(tavo::register_frames(luma, w, h, &window), 0);
  return window;
}

TEST_F(Registration, LevelCount) {
  const int32_t cases[][3] = {{8, 2, 1},    {4000, 32, 1}, {33, 100, 2},  {65, 65, 2},    {66, 500, 3},
                              {131, 131, 3}, {132, 200, 4}, {4000, 3000, 8}, {1920, 1080, 7}};
  for (const auto& [w, h, levels] : cases) EXPECT_EQ(tavo::registration_level_count(w, h), levels) << w << "x" << h;
}

// Shifts found and the crop window they give; no shift gives the whole frame.
void expect_window(const tavo::CropWindow& window, int32_t w, int32_t h, int16_t x0, int16_t y0,
                   int16_t x2, int16_t y2) {
  EXPECT_EQ(std::vector<int>({window.shift0[0], window.shift0[1], window.shift2[0], window.shift2[1]}),
            std::vector<int>({x0, y0, x2, y2}));
  const tavo::CropRect rect = tavo::crop_window_from_shifts(w, h, x0, y0, x2, y2);
  EXPECT_EQ(std::tuple(window.width, window.height, std::vector(window.origins, window.origins + 6)),
            std::tuple(rect.width, rect.height, std::vector(rect.origins, rect.origins + 6)));
}

TEST_F(Registration, FindsTheTranslationOfBothMovingFrames) {
  // Dark and bright frames, each with its own noise, moved by known even
  // amounts against the normal exposure.
  const int32_t w = 320, h = 240;
  const tavo::scene::Scene scene{w, h, 7};
  const int16_t cases[][4] = {{6, -4, -8, 2}, {-6, 4, 10, -12}, {0, 0, 2, 0}, {-12, 10, 12, -10}, {0, 0, 0, 0}};
  for (const auto& [x0, y0, x2, y2] : cases) {
    tavo::scene::BracketSetup setup;
    setup.dx0 = x0, setup.dy0 = y0, setup.dx2 = x2, setup.dy2 = y2;
    const auto frames = tavo::scene::render_bracket(scene, setup);
    const tavo::CropWindow window = register_bracket(frames, w, h);
    expect_window(window, w, h, x0, y0, x2, y2);
    // The pipeline decomposes and searches both moving frames together; the
    // exported operations, one frame after the other, give the same shifts.
    const uint8_t* luma[3] = {frames[0].data(), frames[1].data(), frames[2].data()};
    uint8_t t[3];
    loadImg_process(luma, w, h, t);
    LevelPlanes planes(w, h, tavo::registration_level_count(w, h));
    planes.build_reference(luma[1], t[1]);
    EXPECT_EQ(planes.shift(luma[0], t[0]), std::make_pair(window.shift0[0] / 2, window.shift0[1] / 2));
    EXPECT_EQ(planes.shift(luma[2], t[2]), std::make_pair(window.shift2[0] / 2, window.shift2[1] / 2));
  }
  // A frame too small for a second level is not searched.
  std::vector<uint8_t> tiny(8 * 2 * 3 / 2, 50);
  expect_window(register_bracket({tiny, tiny, tiny}, 8, 2), 8, 2, 0, 0, 0, 0);
}

// ---- Crop window ---------------------------------------------------------

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
