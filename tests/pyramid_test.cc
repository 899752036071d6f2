// Fusion pyramids: level counts and sizes, and the Gaussian reduction,
// band-pass (Laplacian) levels and reconstruction through their dispatchers,
// against a whole-image model that reflects indices at the borders instead of
// cutting bands.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include "fusion/pyramid_geometry.h"
#include "include/tavo_lumo_hdr.h"
#include "support/test_support.h"

namespace tavo {
namespace {

using U16 = std::vector<uint16_t>;
using S16 = std::vector<int16_t>;
using Luma = std::vector<uint8_t>;

int reflect(int i, int n) { return i < 0 ? -i : (i >= n ? 2 * n - 2 - i : i); }

// 1-4-6-4-1 and subsample, horizontally then vertically, rounding each pass.
U16 model_reduce(const U16& src, int w, int h) {
  const int wd = half_up(w), hd = half_up(h), k[5] = {1, 4, 6, 4, 1};
  U16 t(wd * h), out(wd * hd);
  for (int y = 0; y < h; ++y)
    for (int j = 0; j < wd; ++j) {
      uint32_t s = 8;
      for (int i = 0; i < 5; ++i) s += k[i] * src[y * w + reflect(2 * j + i - 2, w)];
      t[y * wd + j] = static_cast<uint16_t>(s >> 4);
    }
  for (int i = 0; i < hd; ++i)
    for (int x = 0; x < wd; ++x) {
      uint32_t s = 8;
      for (int r = 0; r < 5; ++r) s += k[r] * t[reflect(2 * i + r - 2, h) * wd + x];
      out[i * wd + x] = static_cast<uint16_t>(s >> 4);
    }
  return out;
}

// Two-phase expansion of sample x from n coarse samples read through c(k).
template <class Get>
int32_t expand_at(Get c, int n, int x) {
  const int k = x / 2, r = reflect(k + 1, n);
  return x % 2 ? (c(k) + c(r) + 1) >> 1 : (c(reflect(k - 1, n)) + 6 * c(k) + c(r) + 4) >> 3;
}

// Expansion of a wc x hc level to wf x hf. The coarse samples are read as
// their own type (signed or unsigned), the horizontally expanded ones as
// unsigned 16-bit.
template <class Sample>
std::vector<int32_t> model_expand(const std::vector<Sample>& coarse, int wc, int hc, int wf,
                                  int hf) {
  U16 t(wf * hc);
  for (int y = 0; y < hc; ++y)
    for (int x = 0; x < wf; ++x)
      t[y * wf + x] = static_cast<uint16_t>(
          expand_at([&](int k) { return int32_t{coarse[y * wc + k]}; }, wc, x));
  std::vector<int32_t> e(wf * hf);
  for (int y = 0; y < hf; ++y)
    for (int x = 0; x < wf; ++x)
      e[y * wf + x] = expand_at([&](int k) { return int32_t{t[k * wf + x]}; }, hc, y);
  return e;
}

template <class Sample>
std::vector<Sample> random_plane(int n, int lo, int hi, uint32_t seed) {
  std::mt19937 rng(seed);
  std::uniform_int_distribution<int> d(lo, hi);
  std::vector<Sample> v(n);
  for (auto& s : v) s = static_cast<Sample>(d(rng));
  return v;
}

// Size tables in which level `level` is w x h and level + 1 its half; at
// level 1 entry 0 holds a size no kernel may use.
struct Tables {
  int level;
  std::vector<int32_t> w, h;
  Tables(int fw, int fh, int l) : level(l), w(l + 2, 2 * fw + 3), h(l + 2, 2 * fh + 1) {
    w[l] = fw, h[l] = fh, w[l + 1] = half_up(fw), h[l + 1] = half_up(fh);
  }
  int n(int l) const { return w[l] * h[l]; }
  // The pair {level, level + 1} of a table as a kernel takes it.
  template <class T>
  std::vector<T*> table(T* fine, T* coarse = nullptr) const {
    std::vector<T*> t(level + 2, nullptr);
    t[level] = fine, t[level + 1] = coarse;
    return t;
  }
};

class Pyramid : public test::PoolTest {};

// Every height 4 ... 40 (one band below 8, uneven bands above) with widths of
// both parities, a third of them at level 1 of the tables, and tall levels
// split 92 + 92 + 92 + 99.
TEST_F(Pyramid, EveryStageMatchesTheModel) {
  const int widths_by_height[10] = {4, 5, 6, 7, 9, 16, 17, 33, 40, 71};
  std::vector<Tables> cases;
  for (int h = 4; h <= 40; ++h) cases.emplace_back(widths_by_height[h % 10], h, h % 3 == 0);
  cases.emplace_back(37, 375, 0);
  cases.emplace_back(64, 375, 1);
  for (const Tables& t : cases) {
    const int l = t.level, w = t.w[l], h = t.h[l], n = t.n(l), nc = t.n(l + 1);
    SCOPED_TRACE(std::to_string(w) + "x" + std::to_string(h) + " level " + std::to_string(l));

    U16 fine = random_plane<uint16_t>(n, 0, 4080, w * 1000 + h);
    const U16 reduced = model_reduce(fine, w, h);
    U16 banded(nc, 0xBEEF);
    EXPECT_EQ(pyramid_gaussian_down_sample_uint8_process(t.table(fine.data(), banded.data()).data(),
                                                         l, t.w.data(), t.h.data()),
              0);
    EXPECT_EQ(banded, reduced);

    // Band-pass samples of full 16-bit Gaussian samples wrap in 16 bits.
    fine = random_plane<uint16_t>(n, 0, 65535, h);
    U16 coarse = random_plane<uint16_t>(nc, 0, h % 2 ? 4080 : 65535, w);
    std::vector<int32_t> e = model_expand(coarse, t.w[l + 1], t.h[l + 1], w, h);
    S16 lap(n);
    for (int i = 0; i < n; ++i) lap[i] = static_cast<int16_t>(fine[i] - e[i]);
    S16 lap_banded(n, 0x5A5A);
    EXPECT_EQ(pyramid_laplacian_down_sample_process(t.table(lap_banded.data()).data(),
                                                    t.table(fine.data(), coarse.data()).data(), l,
                                                    t.w.data(), t.h.data(), l + 2),
              0);
    EXPECT_EQ(lap_banded, lap);

    // Collapse of fused samples around the clamps onto a coarse level over
    // the whole signed range: negative samples expand to large unsigned ones.
    const S16 fused = random_plane<int16_t>(n, -6000, 6000, h);
    S16 top = random_plane<int16_t>(nc, h % 2 ? -32768 : -200, h % 2 ? 32767 : 4200, w);
    e = model_expand(top, t.w[l + 1], t.h[l + 1], w, h);
    S16 collapsed(n);
    Luma luma(t.n(0), 0xEE);
    for (int i = 0; i < n; ++i) {
      collapsed[i] = static_cast<int16_t>(std::clamp(fused[i] + e[i], 0, 4080));
      if (l == 0) luma[i] = static_cast<uint8_t>((collapsed[i] + 8) >> 4);
    }
    S16 fused_banded = fused;
    Luma luma_banded(t.n(0), 0xEE);
    EXPECT_EQ(pyramid_reconstruct_y_process(luma_banded.data(),
                                            t.table(fused_banded.data(), top.data()).data(),
                                            t.w.data(), t.h.data(), l),
              0u);
    EXPECT_EQ(fused_banded, collapsed);
    EXPECT_EQ(luma_banded, luma);
  }
}

// ---- Level counts and level sizes -----------------------------------------

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
}  // namespace tavo
