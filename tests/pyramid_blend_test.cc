// Pyramid blending: which rule each sample gets (border, runs of eight,
// remainder), wrapped weighted sums, a direct per-pixel model, the band split,
// the instruction-set rows against the portable ones, and the dispatcher's
// failure paths.
#include <gtest/gtest.h>

#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include "fusion/blend_rows.h"
#include "fusion/weighted_mean.h"
#include "include/tavo_lumo_hdr.h"
#include "platform/log.h"
#include "platform/memory.h"
#include "support/row_variants.h"
#include "support/test_support.h"

namespace tavo {
namespace {

// One level of `frames` frames, stored with `pad` spare samples in front so
// that the planes start at unaligned addresses.
struct Level {
  int32_t width, height, frames, pad;
  std::vector<std::vector<uint16_t>> gauss;
  std::vector<std::vector<int16_t>> lap;
  std::vector<uint16_t> lut = std::vector<uint16_t>(256, 0);

  Level(int32_t w, int32_t h, int32_t n, int32_t pad_samples = 1)
      : width(w), height(h), frames(n), pad(pad_samples),
        gauss(n, std::vector<uint16_t>(w * h + pad_samples)),
        lap(n, std::vector<int16_t>(w * h + pad_samples)) {}
  uint16_t& g(int f, int x, int y) { return gauss[f][pad + y * width + x]; }
  int16_t& l(int f, int x, int y) { return lap[f][pad + y * width + x]; }
  std::vector<uint16_t*> gauss_planes() {
    std::vector<uint16_t*> p;
    for (auto& v : gauss) p.push_back(v.data() + pad);
    return p;
  }
  std::vector<int16_t*> lap_planes() {
    std::vector<int16_t*> p;
    for (auto& v : lap) p.push_back(v.data() + pad);
    return p;
  }
};

// The whole level as one band.
std::vector<int16_t> blend_one_band(Level& level) {
  std::vector<int16_t> out(level.width * level.height + 1, 0x5a5a);
  auto lap = level.lap_planes();
  auto gauss = level.gauss_planes();
  fusion_pyramid(out.data() + 1, level.lut.data(), lap.data(), gauss.data(), level.width,
                 level.height, level.frames, 0, 1);
  return {out.begin() + 1, out.end()};
}

// The level as level 1 of the frames' pyramids, through the dispatcher.
std::vector<int16_t> blend_by_dispatcher(Level& level) {
  std::vector<int16_t> out(level.width * level.height, 0x5a5a);
  auto lap = level.lap_planes();
  auto gauss = level.gauss_planes();
  std::vector<std::vector<int16_t*>> lap_levels;
  std::vector<std::vector<uint16_t*>> gauss_levels;
  std::vector<int16_t**> lap_pyramids;
  std::vector<uint16_t**> gauss_pyramids;
  for (int f = 0; f < level.frames; ++f) {
    lap_levels.push_back({nullptr, lap[f]});
    gauss_levels.push_back({nullptr, gauss[f]});
  }
  for (int f = 0; f < level.frames; ++f) {
    lap_pyramids.push_back(lap_levels[f].data());
    gauss_pyramids.push_back(gauss_levels[f].data());
  }
  int16_t* out_levels[2] = {nullptr, out.data()};
  const int32_t widths[2] = {0, level.width}, heights[2] = {0, level.height};
  EXPECT_EQ(fusion_pyramid_process(out_levels, level.lut.data(), lap_pyramids.data(),
                                   gauss_pyramids.data(), widths, heights, 1, level.frames),
            0);
  return out;
}

// A sample straight from the description of the weights, with the sums in
// 64 bits reduced to 32 at the end. Valid Gaussian samples only (0 ... 4080).
int16_t model_sample(Level& level, int x, int y) {
  const int w = level.width, h = level.height;
  const bool border = x == 0 || x == w - 1 || y == 0 || y == h - 1;
  int64_t w_sum = 0, s_sum = 0;
  for (int f = 0; f < level.frames; ++f) {
    const int g = level.g(f, x, y);
    int64_t e = static_cast<int16_t>(level.lut[(g + 8) >> 4]);
    if (e == 0) e = 1;
    if (!border) {
      const int d = level.g(f, x, y - 1) + level.g(f, x, y + 1) + level.g(f, x - 1, y) +
                    level.g(f, x + 1, y) - 4 * g;
      const int c = std::abs(d) >> 6;
      e *= c == 0 ? 1 : c;
    }
    w_sum += e;
    s_sum += e * level.l(f, x, y);
  }
  const bool grouped = !border && x <= (w - 2) / 8 * 8;
  return grouped ? blend_mean_grouped(static_cast<uint32_t>(w_sum), static_cast<uint32_t>(s_sum))
                 : blend_mean_exact(static_cast<uint32_t>(w_sum), static_cast<uint32_t>(s_sum));
}

void fill_random_valid(Level& level, std::mt19937& rng) {
  std::uniform_int_distribution<int> g(0, 4080), l(-4080, 4080), t(0, 1024);
  for (auto& plane : level.gauss) for (auto& v : plane) v = static_cast<uint16_t>(g(rng));
  for (auto& plane : level.lap) for (auto& v : plane) v = static_cast<int16_t>(l(rng));
  for (auto& v : level.lut) v = static_cast<uint16_t>(t(rng));
}

TEST(FusionPyramid, RuleByPosition) {
  // Flat Gaussian samples (contrast 1) and a table of zeros (weight 1): the
  // output is the rounded mean of the Laplacian samples, by the rule of its
  // position. Width 13: column 0, runs at 1..8, remainder 9..11, column 12.
  struct Case {
    int16_t l0, l1;
    int16_t border, grouped;
  };
  const Case cases[] = {
      {1, 2, 2, 1}, {-1, -2, -2, -1}, {5000, 5000, 4080, 4080}, {-5000, -5000, -4080, -5000}};
  for (const Case& c : cases) {
    Level level(13, 3, 2);
    for (int y = 0; y < 3; ++y) {
      for (int x = 0; x < 13; ++x) {
        level.g(0, x, y) = level.g(1, x, y) = 2000;
        level.l(0, x, y) = c.l0;
        level.l(1, x, y) = c.l1;
      }
    }
    const std::vector<int16_t> out = blend_one_band(level);
    for (int y = 0; y < 3; ++y) {
      for (int x = 0; x < 13; ++x) {
        const bool grouped = y == 1 && x >= 1 && x <= 8;
        EXPECT_EQ(out[y * 13 + x], grouped ? c.grouped : c.border) << c.l0 << " at " << x << "," << y;
      }
    }
  }
}

TEST(FusionPyramid, WeightedSumWrapsAtExtremeContrast) {
  // A 0/4080 checkerboard gives contrast 255 inside; with weight 1024 and three
  // Laplacian samples of 4080, S = 3196108800 wraps to a negative sum.
  Level level(13, 4, 3);
  level.lut.assign(256, 1024);
  for (int f = 0; f < 3; ++f) {
    for (int y = 0; y < 4; ++y) {
      for (int x = 0; x < 13; ++x) {
        level.g(f, x, y) = (x + y) % 2 ? 4080 : 0;
        level.l(f, x, y) = 4080;
      }
    }
  }
  const std::vector<int16_t> out = blend_one_band(level);
  for (int y = 0; y < 4; ++y) {
    for (int x = 0; x < 13; ++x) {
      const bool border = x == 0 || x == 12 || y == 0 || y == 3;
      EXPECT_EQ(out[y * 13 + x], border ? 4080 : -1403) << x << "," << y;
    }
  }
}

TEST(FusionPyramid, MatchesPerPixelModel) {
  std::mt19937 rng(1);
  for (int frames : {1, 3, 4}) {
    for (int w : {1, 2, 3, 9, 10, 11, 17, 18, 26, 40}) {
      for (int h : {1, 2, 3, 6}) {
        Level level(w, h, frames);
        fill_random_valid(level, rng);
        const std::vector<int16_t> out = blend_one_band(level);
        for (int y = 0; y < h; ++y) {
          for (int x = 0; x < w; ++x) {
            ASSERT_EQ(out[y * w + x], model_sample(level, x, y))
                << frames << " frames, " << w << "x" << h << " at " << x << "," << y;
          }
        }
      }
    }
  }
}

TEST(FusionPyramid, RowVariantsAgreeOnAnyInput) {
  // Whole 16-bit ranges, tables with negative and zero entries, and extreme
  // Laplacian samples so that sums wrap and conversions saturate.
  std::mt19937 rng(2);
  const uint16_t edge_g[] = {0, 7, 8, 4080, 4087, 4088, 32768, 65535};
  const int16_t edge_l[] = {-32768, -32767, -4081, -1, 0, 1, 4081, 32767};
  const uint16_t edge_t[] = {0, 1, 1024, 32767, 32768, 65535};
  auto pick = [&](auto& edges, int bits) {
    return rng() % 2 ? edges[rng() % std::size(edges)] : static_cast<std::remove_cvref_t<decltype(edges[0])>>(rng() & bits);
  };
  for (int w = 1; w <= 70; w += w < 40 ? 1 : 9) {
    for (int frames : {1, 3, 5}) {
      Level level(w, 4, frames, 1 + w % 3);
      for (auto& plane : level.gauss) for (auto& v : plane) v = pick(edge_g, 0xffff);
      // Lone 32768 samples among zeros: their neighbours' stencil is -32768 in 16 bits.
      if (w % 4 == 0) for (auto& plane : level.gauss) for (auto& v : plane) v = rng() % 5 ? 0 : 32768;
      for (auto& plane : level.lap) for (auto& v : plane) v = pick(edge_l, 0xffff);
      for (auto& v : level.lut) v = pick(edge_t, 0xffff);
      const auto both = test::portable_and_detected([&] { return blend_one_band(level); });
      ASSERT_EQ(both.portable, both.detected) << w << " wide, " << frames << " frames";
    }
  }
}

class FusionPyramidBands : public test::PoolTest {};

TEST_F(FusionPyramidBands, FourBandsEqualOne) {
  std::mt19937 rng(3);
  for (auto [w, h] : {std::pair{13, 8}, {37, 9}, {10, 11}, {2, 8}, {1, 9}, {40, 7}, {64, 33}, {18, 2}}) {
    Level level(w, h, 3);
    fill_random_valid(level, rng);
    EXPECT_EQ(blend_by_dispatcher(level), blend_one_band(level)) << w << "x" << h;
  }
}

TEST_F(FusionPyramidBands, FailedPointerArraysLeaveBandsUnwrittenWithoutLeaking) {
  std::mt19937 rng(4);
  Level level(20, 16, 3);
  fill_random_valid(level, rng);
  const std::vector<int16_t> whole = blend_one_band(level);
  // The fixture checks at the end that every allocation was given back.
  for (long budget = 0; budget <= 12; ++budget) {
    test::LogCapture log;
    platform::fail_allocations_after(budget);
    const std::vector<int16_t> out = blend_by_dispatcher(level);
    platform::fail_allocations_after(-1);
    int unwritten = 0;
    for (int band = 0; band < 4; ++band) {  // four bands of 4 rows
      const auto first = out.begin() + band * 4 * 20, last = first + 4 * 20;
      const bool blended = std::equal(first, last, whole.begin() + band * 4 * 20);
      const bool untouched = std::all_of(first, last, [](int16_t v) { return v == 0x5a5a; });
      EXPECT_TRUE(blended || untouched) << "budget " << budget << " band " << band;
      unwritten += !blended;
    }
    EXPECT_EQ(log.count("row pointer arrays not allocated"), unwritten) << budget;
  }
}

TEST_F(FusionPyramidBands, NullArgumentIsLoggedWithEveryPointer) {
  test::LogCapture log;
  int16_t* out_levels[1] = {nullptr};
  const int32_t sizes[1] = {8};
  EXPECT_EQ(fusion_pyramid_process(out_levels, nullptr, nullptr, nullptr, sizes, sizes, 0, 3), 0);
  char expected[160];
  snprintf(expected, sizeof expected,
           "L 679, fusion_pyramid_process: in_buffer is NULL,0x%x,0x0,0x0,0x0,0x%x,0x%x\n",
           platform::log_hex(out_levels), platform::log_hex(sizes), platform::log_hex(sizes));
  ASSERT_EQ(log.lines().size(), 1u);
  EXPECT_EQ(log.lines()[0], expected);
}

}  // namespace
}  // namespace tavo
