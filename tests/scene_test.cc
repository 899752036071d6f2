// The synthetic scene and camera that the tests, the benchmark and the demo use.
#include "tools/scene/scene.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

namespace {

using tavo::scene::BracketSetup;
using tavo::scene::Layout;
using tavo::scene::Scene;
using tavo::scene::Shot;

uint64_t bracket_hash(const Scene& scene, const BracketSetup& setup) {
  uint64_t hash = 14695981039346656037ull;
  for (const auto& frame : tavo::scene::render_bracket(scene, setup)) {
    hash = tavo::scene::fnv1a64(frame.data(), frame.size(), hash);
  }
  return hash;
}

TEST(Scene, SameBytesOnEveryArchitecture) {
  // Recorded once; the end-to-end checksums of the library rest on it, so it
  // must hold on x86-64 and aarch64 alike.
  const Scene scene{96, 64, 9};
  BracketSetup setup;
  setup.dx0 = 6;
  setup.dy0 = -4;
  setup.dx2 = -8;
  setup.dy2 = 2;
  EXPECT_EQ(bracket_hash(scene, setup), 0xd18d99c3bb76fc82ull);
  setup.layout = Layout::kSemiPlanar;
  setup.noise_seed = 4;
  EXPECT_EQ(bracket_hash(scene, setup), 0x6b8915ad29aaea39ull);
}

TEST(Scene, TranslatedFrameShowsTheSameScenePoints) {
  const Scene scene{120, 90, 3};
  Shot still;
  still.noise_q8 = 0;
  Shot moved = still;
  moved.dx = 6;
  moved.dy = -4;
  const std::vector<uint8_t> a = tavo::scene::render(scene, still);
  const std::vector<uint8_t> b = tavo::scene::render(scene, moved);
  const int32_t w = scene.width, h = scene.height;
  // Moved pixel (r, j) is still pixel (r - 4, j + 6).
  for (int32_t r = 4; r < h; ++r) {
    for (int32_t j = 0; j + 6 < w; ++j) {
      ASSERT_EQ(b[r * w + j], a[(r - 4) * w + j + 6]) << r << "," << j;
    }
  }
}

TEST(Scene, ExposuresSpanTheDynamicRangeAndLayoutsCarryTheSameSamples) {
  const Scene scene{160, 120, 1};
  const auto frames = tavo::scene::render_bracket(scene, BracketSetup{});
  const int32_t n = scene.width * scene.height;
  double mean[3] = {};
  int32_t clipped[3] = {}, black[3] = {};
  for (int f = 0; f < 3; ++f) {
    for (int32_t i = 0; i < n; ++i) {
      mean[f] += frames[f][i];
      clipped[f] += frames[f][i] == 255;
      black[f] += frames[f][i] < 16;
    }
  }
  EXPECT_LT(mean[0], mean[1]);
  EXPECT_LT(mean[1], mean[2]);
  // The window burns out when the room is well exposed, not in the dark frame;
  // the dark frame is not simply black.
  EXPECT_GT(clipped[2], n / 10);
  EXPECT_GT(clipped[1], clipped[0]);
  EXPECT_LT(black[0], n / 20);
  // Semi-planar: the planar U and V samples as V,U pairs.
  Shot shot;
  shot.noise_q8 = 0;
  shot.layout = Layout::kPlanar;
  const auto planar = tavo::scene::render(scene, shot);
  shot.layout = Layout::kSemiPlanar;
  const auto semi = tavo::scene::render(scene, shot);
  const int32_t quarter = n / 4;
  EXPECT_TRUE(std::equal(planar.begin(), planar.begin() + n, semi.begin()));
  for (int32_t k = 0; k < quarter; ++k) {
    ASSERT_EQ(semi[n + 2 * k], planar[n + quarter + k]);
    ASSERT_EQ(semi[n + 2 * k + 1], planar[n + k]);
  }
}

}  // namespace
