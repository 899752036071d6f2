// Fusion pyramids: level counts and sizes; the Gaussian reduction, band-pass
// (Laplacian) levels and reconstruction through their dispatchers, against a
// whole-image model that reflects indices at the borders instead of cutting
// bands; and the instruction-set rows against the portable rows on random and
// extreme samples over the whole 16-bit range, every small width (so every
// vector tail) and rows at unaligned addresses. Row buffers are sized exactly,
// so a row that reads or writes past its end shows under the sanitizers.
#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <random>
#include <string>
#include <tuple>
#include <vector>

#include "fusion/pyramid_geometry.h"
#include "fusion/pyramid_rows.h"
#include "include/tavo_lumo_hdr.h"
#include "support/cpu_masks.h"
#include "support/test_support.h"

namespace tavo {
namespace {

using test::random_samples;
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
std::vector<int32_t> model_expand(const std::vector<Sample>& coarse, int wc, int hc, int wf, int hf) {
  U16 t(wf * hc);
  for (int y = 0; y < hc; ++y)
    for (int x = 0; x < wf; ++x)
      t[y * wf + x] = static_cast<uint16_t>(expand_at([&](int k) { return int32_t{coarse[y * wc + k]}; }, wc, x));
  std::vector<int32_t> e(wf * hf);
  for (int y = 0; y < hf; ++y)
    for (int x = 0; x < wf; ++x) e[y * wf + x] = expand_at([&](int k) { return int32_t{t[k * wf + x]}; }, hc, y);
  return e;
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

    U16 fine = random_samples<uint16_t>(n, w * 1000 + h, 0, 4080), banded(nc, 0xBEEF);
    EXPECT_EQ(pyramid_gaussian_down_sample_uint8_process(t.table(fine.data(), banded.data()).data(), l,
                                                         t.w.data(), t.h.data()), 0);
    EXPECT_EQ(banded, model_reduce(fine, w, h));

    // Band-pass samples of full 16-bit Gaussian samples wrap in 16 bits.
    fine = random_samples<uint16_t>(n, h, 0, 65535);
    U16 coarse = random_samples<uint16_t>(nc, w, 0, h % 2 ? 4080 : 65535);
    std::vector<int32_t> e = model_expand(coarse, t.w[l + 1], t.h[l + 1], w, h);
    S16 lap(n), lap_banded(n, 0x5A5A);
    for (int i = 0; i < n; ++i) lap[i] = static_cast<int16_t>(fine[i] - e[i]);
    EXPECT_EQ(pyramid_laplacian_down_sample_process(t.table(lap_banded.data()).data(),
                                                    t.table(fine.data(), coarse.data()).data(), l, t.w.data(),
                                                    t.h.data(), l + 2), 0);
    EXPECT_EQ(lap_banded, lap);

    // Collapse of fused samples around the clamps onto a coarse level over
    // the whole signed range: negative samples expand to large unsigned ones.
    const S16 fused = random_samples<int16_t>(n, h, -6000, 6000);
    S16 top = random_samples<int16_t>(nc, w, h % 2 ? -32768 : -200, h % 2 ? 32767 : 4200), collapsed(n);
    e = model_expand(top, t.w[l + 1], t.h[l + 1], w, h);
    Luma luma(t.n(0), 0xEE), luma_banded = luma;
    for (int i = 0; i < n; ++i) {
      collapsed[i] = static_cast<int16_t>(std::clamp(fused[i] + e[i], 0, 4080));
      if (l == 0) luma[i] = static_cast<uint8_t>((collapsed[i] + 8) >> 4);
    }
    S16 fused_banded = fused;
    EXPECT_EQ(pyramid_reconstruct_y_process(luma_banded.data(), t.table(fused_banded.data(), top.data()).data(),
                                            t.w.data(), t.h.data(), l), 0u);
    EXPECT_EQ(fused_banded, collapsed);
    EXPECT_EQ(luma_banded, luma);
  }
}

// Level counts, and every level's size where given; below two levels only
// entry 0 of the size tables is written.
TEST(PyramidGeometry, LevelCountsAndSizes) {
  using Sizes = std::vector<std::pair<int32_t, int32_t>>;
  const struct {
    int32_t w, h;
    uint8_t levels;
    Sizes sizes;
  } cases[] = {
      {1, 100, 0, {}}, {0, 5, 0, {}}, {-4, 100, 0, {}}, {2, 2, 1, {}}, {3, 9, 1, {}}, {4, 4, 2, {}},
      {7, 50, 2, {}}, {8, 8, 3, {}}, {65536, 65535, 15, {}},
      {4000, 3000, 11, {{4000, 3000}, {2000, 1500}, {1000, 750}, {500, 375}, {250, 188}, {125, 94},
                        {63, 47}, {32, 24}, {16, 12}, {8, 6}, {4, 3}}},
      {1920, 1080, 10, {{1920, 1080}, {960, 540}, {480, 270}, {240, 135}, {120, 68}, {60, 34},
                        {30, 17}, {15, 9}, {8, 5}, {4, 3}}},
      {4096, 8, 3, {{4096, 8}, {2048, 4}, {1024, 2}}},
  };
  for (const auto& c : cases) {
    uint8_t levels = 99;
    EXPECT_EQ(pyramid_level(&levels, c.w, c.h), 0);
    EXPECT_EQ(levels, c.levels) << c.w << "x" << c.h;
    if (c.sizes.empty()) continue;
    std::vector<int32_t> ws(levels), hs(levels);
    EXPECT_EQ(pyramid_size(ws.data(), hs.data(), c.w, c.h, levels), 0);
    Sizes sizes;
    for (int i = 0; i < levels; ++i) sizes.emplace_back(ws[i], hs[i]);
    EXPECT_EQ(sizes, c.sizes);
  }
  for (int32_t levels : {-1, 0, 1}) {
    int32_t ws[2] = {-7, -7}, hs[2] = {-7, -7};
    pyramid_size(ws, hs, 375, 99, levels);
    EXPECT_EQ(std::tuple(ws[0], hs[0], ws[1], hs[1]), std::tuple(375, 99, -7, -7)) << levels;
  }
}

// ---- Instruction-set rows against the portable rows ----------------------

// Patterns 0 and 1 draw random 16-bit and 12-bit samples; the others alternate
// between two values: flat extremes, alternating extremes (the largest sums
// and differences) and the signed extremes.
constexpr uint16_t kAlternating[][2] = {{0, 0}, {4080, 4080}, {0xffff, 0xffff}, {0, 4080}, {0xffff, 0}, {0x7fff, 0x8000}};
constexpr int kPatterns = 2 + std::size(kAlternating);

// `offset` unused samples, then n samples of the pattern, nothing after them.
template <class Sample = uint16_t>
std::vector<Sample> make_row(int offset, int n, int pattern, uint32_t seed) {
  std::mt19937 rng(seed);
  std::vector<Sample> v(offset + n, static_cast<Sample>(0x1234));
  for (int i = 0; i < n; ++i) {
    const uint32_t r = rng();
    v[offset + i] = static_cast<Sample>(pattern == 0 ? r : pattern == 1 ? r % 4081 : kAlternating[pattern - 2][(i + seed) % 2]);
  }
  return v;
}

const PyramidRows& c = PyramidRows_C;

// Runs body(rows, pattern, width, offset, seed) for every instruction set the
// processor runs, every pattern, every width up to 40 and some longer ones
// (3 ... 81 and longer for the horizontal rows), and four offsets; body
// compares run(rows) with run(portable rows) through same().
template <class Body>
void for_all(bool horizontal, Body body) {
  const auto variants = test::OptimisedVariants([] { return &SelectPyramidRows(); });
  if (variants.empty()) GTEST_SKIP() << "portable rows only";
  std::vector<int> widths;
  for (int w = horizontal ? 3 : 1; w <= (horizontal ? 81 : 40); ++w) widths.push_back(w);
  widths.insert(widths.end(), {127, 128, 129, 257, 514});
  uint32_t seed = 1;
  for (const auto& [name, rows] : variants)
    for (int pattern = 0; pattern < kPatterns; ++pattern)
      for (int width : widths)
        for (int offset : {0, 1, 3, 6}) {
          SCOPED_TRACE(std::string(name) + " pattern " + std::to_string(pattern) + " width " +
                       std::to_string(width) + " offset " + std::to_string(offset));
          body(*rows, pattern, width, offset, seed++);
          if (::testing::Test::HasFailure()) return;
        }
}

template <class Run>
void same(const PyramidRows& r, Run run) { EXPECT_EQ(run(r), run(c)); }

TEST(PyramidRows, HorizontalRowsMatchPortable) {
  for_all(true, [](const PyramidRows& r, int pattern, int w, int off, uint32_t seed) {
    const int half = (w + 1) / 2;
    const auto src = make_row(off, w, pattern, seed), coarse = make_row(off, half, pattern, seed);
    const auto signed_coarse = make_row<int16_t>(off, half, pattern, seed);
    const auto fine_out = make_row(off, w, 2, 0), coarse_out = make_row(off, half, 2, 0);
    same(r, [&](const PyramidRows& k) { auto o = coarse_out; k.reduce_h(src.data() + off, w, o.data() + off, half); return o; });
    same(r, [&](const PyramidRows& k) { auto o = fine_out; k.expand_h_unsigned(coarse.data() + off, half, o.data() + off, w); return o; });
    same(r, [&](const PyramidRows& k) { auto o = fine_out; k.expand_h_signed(signed_coarse.data() + off, half, o.data() + off, w); return o; });
    // 8-bit luma reduced as it stands equals the row widened to luma x 16.
    Luma luma(src.size());
    U16 widened(src.size()), expect = coarse_out, got = coarse_out;
    for (size_t i = 0; i < src.size(); ++i) luma[i] = static_cast<uint8_t>(src[i]), widened[i] = 16 * luma[i];
    c.reduce_h(widened.data() + off, w, expect.data() + off, half);
    for (const PyramidRows* k : {&c, &r}) {
      k->reduce_h_luma(luma.data() + off, w, got.data() + off, half);
      EXPECT_EQ(got, expect);
    }
  });
}

TEST(PyramidRows, VerticalRowsMatchPortable) {
  for_all(false, [](const PyramidRows& r, int pattern, int w, int off, uint32_t seed) {
    // Five rows at different offsets, the odd ones random over 16 bits, and
    // the same rows held to a pyramid's samples, 0 ... 4080.
    U16 in[5], held[5];
    const uint16_t *rows[5], *held_rows[5];
    for (int i = 0; i < 5; ++i) {
      in[i] = held[i] = make_row(off + i, w, i % 2 ? 0 : pattern, seed + i);
      for (auto& v : held[i]) v = std::min<uint16_t>(v, kLumaFixedMax);
      rows[i] = in[i].data() + off + i, held_rows[i] = held[i].data() + off + i;
    }
    const auto out = make_row(off, w, 2, 0);
    const auto lap_out = make_row<int16_t>(off, w, 2, 0);
    same(r, [&](const PyramidRows& k) { auto o = out; k.reduce_v(rows, o.data() + off, w); return o; });
    U16 expect = out, got = out;
    c.reduce_v(held_rows, expect.data() + off, w);
    for (const PyramidRows* k : {&c, &r}) {
      k->reduce_v_pyramid(held_rows, got.data() + off, w);
      EXPECT_EQ(got, expect);
    }
    same(r, [&](const PyramidRows& k) { auto o = lap_out; k.laplacian_even(rows[1], rows[0], rows[2], rows[4], o.data() + off, w); return o; });
    same(r, [&](const PyramidRows& k) { auto o = lap_out; k.laplacian_odd(rows[3], rows[2], rows[4], o.data() + off, w); return o; });
    // Fused samples over the whole signed range, with and without 8-bit luma:
    // an even row, then an odd row over it.
    for (bool with_luma : {true, false}) {
      same(r, [&](const PyramidRows& k) {
        auto level = make_row<int16_t>(off, w, 0, seed + 5);
        auto luma = make_row<uint8_t>(off, w, 2, 0);
        uint8_t* y = with_luma ? luma.data() + off : nullptr;
        k.collapse_even(level.data() + off, rows[0], rows[2], rows[4], y, w);
        const auto even = std::pair(level, luma);
        k.collapse_odd(level.data() + off, rows[2], rows[3], y, w);
        return std::tuple(even, level, luma);
      });
    }
  });
}

}  // namespace
}  // namespace tavo
