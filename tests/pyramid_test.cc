// Fusion pyramids: level counts and sizes, and the instruction-set rows of the
// pyramid stages and of blending against the portable rows on random and
// extreme samples over the whole 16-bit range, every small width (so every
// vector tail) and rows at unaligned addresses. Row buffers are sized exactly,
// so a row that reads or writes past its end shows under the sanitizers. (The
// stages through their dispatchers are compared with whole-image models in
// dispatch_test.cc.)
#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <random>
#include <string>
#include <tuple>
#include <vector>

#include "fusion/fusion_rows.h"
#include "fusion/pyramid_geometry.h"
#include "include/tavo_lumo_hdr.h"
#include "support/cpu_masks.h"
#include "support/row_inputs.h"
#include "support/test_support.h"

namespace tavo {
namespace {

using U16 = std::vector<uint16_t>;
using Luma = std::vector<uint8_t>;

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

using test::make_row;

const FusionRows c = [] {
  FusionRows rows{};
  InitFusionRows_C(&rows);
  return rows;
}();

// Runs body(rows, pattern, width, offset, seed) for every instruction set the
// processor runs, every pattern, every width up to 40 and some longer ones
// (3 ... 81 and longer for the horizontal rows), and four offsets; body
// compares run(rows) with run(portable rows) through same().
template <class Body>
void for_all(bool horizontal, Body body) {
  const auto variants = test::OptimisedVariants(GetFusionRows, [](const FusionRows& rows) { return rows; });
  if (variants.empty()) GTEST_SKIP() << "portable rows only";
  std::vector<int> widths;
  for (int w = horizontal ? 3 : 1; w <= (horizontal ? 81 : 40); ++w) widths.push_back(w);
  widths.insert(widths.end(), {127, 128, 129, 257, 514});
  uint32_t seed = 1;
  for (const auto& [set, rows] : variants)
    for (int pattern = 0; pattern < test::kRowPatterns; ++pattern)
      for (int width : widths)
        for (int offset : {0, 1, 3, 6}) {
          SCOPED_TRACE(std::string(set) + " pattern " + std::to_string(pattern) + " width " +
                       std::to_string(width) + " offset " + std::to_string(offset));
          body(rows, pattern, width, offset, seed++);
          if (::testing::Test::HasFailure()) return;
        }
}

template <class Run>
void same(const FusionRows& r, Run run) { EXPECT_EQ(run(r), run(c)); }

TEST(PyramidRows, HorizontalRowsMatchPortable) {
  for_all(true, [](const FusionRows& r, int pattern, int w, int off, uint32_t seed) {
    const int half = (w + 1) / 2;
    const auto src = make_row(off, w, pattern, seed), coarse = make_row(off, half, pattern, seed);
    const auto signed_coarse = make_row<int16_t>(off, half, pattern, seed);
    const auto fine_out = make_row(off, w, 2, 0), coarse_out = make_row(off, half, 2, 0);
    same(r, [&](auto& k) { auto o = coarse_out; k.reduce_h(src.data() + off, w, o.data() + off, half); return o; });
    // The row for pyramid samples, 0 ... 4080, against the row for any.
    auto held = src;
    for (auto& v : held) v = std::min<uint16_t>(v, kLumaFixedMax);
    U16 expect_held = coarse_out, got_held = coarse_out;
    c.reduce_h(held.data() + off, w, expect_held.data() + off, half);
    for (const FusionRows* k : {&c, &r}) {
      k->reduce_h_pyramid(held.data() + off, w, got_held.data() + off, half);
      EXPECT_EQ(got_held, expect_held);
    }
    same(r, [&](auto& k) { auto o = fine_out; k.expand_h_unsigned(coarse.data() + off, half, o.data() + off, w); return o; });
    same(r, [&](auto& k) { auto o = fine_out; k.expand_h_signed(signed_coarse.data() + off, half, o.data() + off, w); return o; });
    // 8-bit luma reduced as it stands equals the row widened to luma x 16.
    Luma luma(src.size());
    U16 widened(src.size()), expect = coarse_out, got = coarse_out;
    for (size_t i = 0; i < src.size(); ++i) luma[i] = static_cast<uint8_t>(src[i]), widened[i] = 16 * luma[i];
    c.reduce_h(widened.data() + off, w, expect.data() + off, half);
    for (const FusionRows* k : {&c, &r}) {
      k->reduce_h_luma(luma.data() + off, w, got.data() + off, half);
      EXPECT_EQ(got, expect);
    }
  });
}

TEST(PyramidRows, VerticalRowsMatchPortable) {
  for_all(false, [](const FusionRows& r, int pattern, int w, int off, uint32_t seed) {
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
    same(r, [&](auto& k) { auto o = out; k.reduce_v(rows, o.data() + off, w); return o; });
    U16 expect = out, got = out;
    c.reduce_v(held_rows, expect.data() + off, w);
    for (const FusionRows* k : {&c, &r}) {
      k->reduce_v_pyramid(held_rows, got.data() + off, w);
      EXPECT_EQ(got, expect);
    }
    same(r, [&](auto& k) { auto o = lap_out; k.laplacian_even(rows[1], rows[0], rows[2], rows[4], o.data() + off, w); return o; });
    same(r, [&](auto& k) { auto o = lap_out; k.laplacian_odd(rows[3], rows[2], rows[4], o.data() + off, w); return o; });
    // Fused samples over the whole signed range, with and without 8-bit luma:
    // an even row, then an odd row over it.
    for (bool with_luma : {true, false}) {
      same(r, [&](auto& k) {
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

// One level of n frames; the planes start `pad` samples into their buffers so
// that rows are unaligned.
struct Level {
  int w, h, n, pad;
  std::vector<std::vector<uint16_t>> gauss;
  std::vector<std::vector<int16_t>> lap;
  std::vector<uint16_t> lut = std::vector<uint16_t>(256, 0);
  Level(int width, int height, int frames, int pad_samples = 1)
      : w(width), h(height), n(frames), pad(pad_samples),
        gauss(frames, std::vector<uint16_t>(width * height + pad_samples)),
        lap(frames, std::vector<int16_t>(width * height + pad_samples)) {}

  // The kernel over the whole level as one band.
  std::vector<int16_t> blend() {
    std::vector<int16_t> out(w * h, 0x5a5a);
    std::vector<int16_t*> lp;
    std::vector<uint16_t*> gp;
    for (int f = 0; f < n; ++f) lp.push_back(lap[f].data() + pad), gp.push_back(gauss[f].data() + pad);
    fusion_pyramid(out.data(), lut.data(), lp.data(), gp.data(), w, h, n, 0, 1);
    return out;
  }
};

TEST(FusionPyramid, RowVariantsAgreeOnAnyInput) {
  // Whole 16-bit ranges, tables with negative and zero entries, extreme
  // Laplacian samples: sums wrap, weights cancel, conversions saturate.
  std::mt19937 rng(2);
  const uint16_t edge_g[] = {0, 7, 8, 4080, 4087, 4088, 32768, 65535};
  const uint16_t edge_l[] = {0x8000, 0x8001, 0xf00f, 0xffff, 0, 1, 4081, 0x7fff};
  const uint16_t edge_t[] = {0, 1, 1024, 32767, 32768, 65535};
  auto pick = [&](const uint16_t* edges, size_t n) { return rng() % 2 ? edges[rng() % n] : static_cast<uint16_t>(rng()); };
  for (int w = 1; w <= 70; w += w < 40 ? 1 : 9) {
    for (int n : {1, 3, 5}) {
      Level lv(w, 4, n, 1 + w % 3);
      for (auto& p : lv.gauss) for (auto& v : p) v = pick(edge_g, 8);
      // Lone 32768 samples among zeros: their neighbours' stencil is -32768 in 16 bits.
      if (w % 4 == 0) for (auto& p : lv.gauss) for (auto& v : p) v = rng() % 5 ? 0 : 32768;
      for (auto& p : lv.lap) for (auto& v : p) v = static_cast<int16_t>(pick(edge_l, 8));
      for (auto& v : lv.lut) v = pick(edge_t, 6);
      // Every third width a table of factors 1 ... 32767 only, which takes the
      // vector rows' path for weight sums known to be positive.
      if (w % 3 == 0) for (auto& v : lv.lut) v = static_cast<uint16_t>(rng() % 2 ? 1 + rng() % 32767 : 32767);
      const std::vector<int16_t> portable = [&] { const test::ScopedCpuMask none(0); return lv.blend(); }();
      test::ForEachCpuMask([&](const test::CpuMask& m) {
        ASSERT_EQ(lv.blend(), portable) << m.name << ", " << w << " wide, " << n << " frames";
      });
    }
  }
}

}  // namespace
}  // namespace tavo
