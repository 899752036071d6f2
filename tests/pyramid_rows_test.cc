// The instruction-set pyramid rows give the portable rows' bytes: random and
// extreme samples over the whole 16-bit range, every small width (so every
// vector tail) and rows at unaligned addresses. Buffers are sized exactly, so
// a row that reads or writes past its end shows under the sanitizers.
#include "fusion/pyramid_rows.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <random>
#include <string>
#include <vector>

#include "support/cpu_masks.h"

namespace tavo {
namespace {

// Patterns 0 and 1 draw random 16-bit and 12-bit samples; the others alternate
// between two values: flat extremes, alternating extremes (the largest sums
// and differences) and the signed extremes.
constexpr uint16_t kAlternating[][2] = {{0, 0},    {4080, 4080}, {0xffff, 0xffff},
                                        {0, 4080}, {0xffff, 0},  {0x7fff, 0x8000}};
constexpr int kPatterns = 2 + std::size(kAlternating);

// `offset` unused samples, then n samples of the pattern, nothing after them.
template <class Sample = uint16_t>
std::vector<Sample> make_row(int offset, int n, int pattern, uint32_t seed) {
  std::mt19937 rng(seed);
  std::vector<Sample> v(offset + n, static_cast<Sample>(0x1234));
  for (int i = 0; i < n; ++i) {
    const uint32_t r = rng();
    v[offset + i] = static_cast<Sample>(pattern == 0   ? r
                                        : pattern == 1 ? r % 4081
                                                       : kAlternating[pattern - 2][(i + seed) % 2]);
  }
  return v;
}

// Runs body(rows, pattern, width, offset, seed) for every instruction set the
// processor runs, every pattern, every width up to 40 and some longer ones
// (3 ... 81 and longer for the horizontal rows), and four offsets.
template <class Body>
void for_all(bool horizontal, Body body) {
  const auto variants = test::OptimisedVariants([] { return &SelectPyramidRows(); });
  if (variants.empty()) GTEST_SKIP() << "portable rows only";
  std::vector<int> widths;
  for (int w = horizontal ? 3 : 1; w <= (horizontal ? 81 : 40); ++w) widths.push_back(w);
  for (int w : {127, 128, 129, 257, 514}) widths.push_back(w);
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

const PyramidRows& c = PyramidRows_C;

TEST(PyramidRows, HorizontalRowsMatchPortable) {
  for_all(true, [](const PyramidRows& r, int pattern, int w, int off, uint32_t seed) {
    const int half = (w + 1) / 2;
    const auto src = make_row(off, w, pattern, seed);
    auto expect = make_row(off, half, 2, 0), got = expect;
    c.reduce_h(src.data() + off, w, expect.data() + off, half);
    r.reduce_h(src.data() + off, w, got.data() + off, half);
    EXPECT_EQ(got, expect);
    // 8-bit luma reduced as it stands equals the row widened to luma x 16.
    std::vector<uint8_t> luma(src.size());
    std::vector<uint16_t> widened(src.size());
    for (size_t i = 0; i < src.size(); ++i) luma[i] = static_cast<uint8_t>(src[i]), widened[i] = 16 * luma[i];
    c.reduce_h(widened.data() + off, w, expect.data() + off, half);
    for (const PyramidRows* rows : {&c, &r}) {
      rows->reduce_h_luma(luma.data() + off, w, got.data() + off, half);
      EXPECT_EQ(got, expect);
    }

    const auto coarse = make_row(off, half, pattern, seed);
    const auto signed_coarse = make_row<int16_t>(off, half, pattern, seed);
    expect = got = make_row(off, w, 2, 0);
    c.expand_h_unsigned(coarse.data() + off, half, expect.data() + off, w);
    r.expand_h_unsigned(coarse.data() + off, half, got.data() + off, w);
    EXPECT_EQ(got, expect);
    c.expand_h_signed(signed_coarse.data() + off, half, expect.data() + off, w);
    r.expand_h_signed(signed_coarse.data() + off, half, got.data() + off, w);
    EXPECT_EQ(got, expect);
  });
}

TEST(PyramidRows, VerticalRowsMatchPortable) {
  for_all(false, [](const PyramidRows& r, int pattern, int w, int off, uint32_t seed) {
    // Five rows at different offsets, the odd ones random over 16 bits.
    std::vector<uint16_t> in[5];
    const uint16_t* rows[5];
    for (int i = 0; i < 5; ++i) {
      in[i] = make_row(off + i, w, i % 2 ? 0 : pattern, seed + i);
      rows[i] = in[i].data() + off + i;
    }
    auto expect = make_row(off, w, 2, 0), got = expect;
    c.reduce_v(rows, expect.data() + off, w);
    r.reduce_v(rows, got.data() + off, w);
    EXPECT_EQ(got, expect);
    // The same rows held to a pyramid's samples, 0 ... 4080.
    std::vector<uint16_t> held[5];
    const uint16_t* held_rows[5];
    for (int i = 0; i < 5; ++i) {
      held[i] = in[i];
      for (auto& v : held[i]) v = std::min<uint16_t>(v, kLumaFixedMax);
      held_rows[i] = held[i].data() + off + i;
    }
    c.reduce_v(held_rows, expect.data() + off, w);
    for (const PyramidRows* rows_of : {&c, &r}) {
      rows_of->reduce_v_pyramid(held_rows, got.data() + off, w);
      EXPECT_EQ(got, expect);
    }

    auto lap_expect = make_row<int16_t>(off, w, 2, 0), lap_got = lap_expect;
    c.laplacian_even(rows[1], rows[0], rows[2], rows[4], lap_expect.data() + off, w);
    r.laplacian_even(rows[1], rows[0], rows[2], rows[4], lap_got.data() + off, w);
    EXPECT_EQ(lap_got, lap_expect);
    c.laplacian_odd(rows[3], rows[2], rows[4], lap_expect.data() + off, w);
    r.laplacian_odd(rows[3], rows[2], rows[4], lap_got.data() + off, w);
    EXPECT_EQ(lap_got, lap_expect);

    // Fused samples over the whole signed range, with and without 8-bit luma.
    for (bool with_luma : {true, false}) {
      auto level_c = make_row<int16_t>(off, w, 0, seed + 5), level_r = level_c;
      auto luma_c = make_row<uint8_t>(off, w, 2, 0), luma_r = luma_c;
      uint8_t* yc = with_luma ? luma_c.data() + off : nullptr;
      uint8_t* yr = with_luma ? luma_r.data() + off : nullptr;
      c.collapse_even(level_c.data() + off, rows[0], rows[2], rows[4], yc, w);
      r.collapse_even(level_r.data() + off, rows[0], rows[2], rows[4], yr, w);
      EXPECT_EQ(level_r, level_c);
      EXPECT_EQ(luma_r, luma_c);
      c.collapse_odd(level_c.data() + off, rows[2], rows[3], yc, w);
      r.collapse_odd(level_r.data() + off, rows[2], rows[3], yr, w);
      EXPECT_EQ(level_r, level_c);
      EXPECT_EQ(luma_r, luma_c);
    }
  });
}

}  // namespace
}  // namespace tavo
