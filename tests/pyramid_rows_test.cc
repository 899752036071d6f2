// The instruction-set pyramid rows give the portable rows' bytes: random and
// extreme samples over the whole 16-bit range, every small width (so every
// vector tail), and rows starting at unaligned addresses. Buffers are sized
// exactly, so a row that reads or writes past its end shows under the
// sanitizers.
#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "fusion/pyramid_rows.h"
#include "platform/cpu.h"

namespace tavo {
namespace {

using platform::Isa;

struct Variant {
  const char* name;
  const PyramidRows* rows;
};

std::vector<Variant> instruction_set_rows() {
  std::vector<Variant> variants;
#if defined(__aarch64__)
  if (platform::cpu_has(Isa::kNeon)) variants.push_back({"neon", &kPyramidRowsNeon});
#endif
#if defined(__x86_64__)
  if (platform::cpu_has(Isa::kAvx2)) variants.push_back({"avx2", &kPyramidRowsAvx2});
#endif
  return variants;
}

// Sample patterns: random over 16 bits and over the 12-bit luma range, flat
// extremes, alternating extremes (the largest sums and differences), and the
// signed extremes 0x8000 / 0x7fff.
enum class Fill { kRandom16, kRandom12, kZero, kMax12, kMax16, kAlternate12, kAlternate16, kSigned };
constexpr Fill kFills[] = {Fill::kRandom16, Fill::kRandom12,    Fill::kZero,
                           Fill::kMax12,    Fill::kMax16,       Fill::kAlternate12,
                           Fill::kAlternate16, Fill::kSigned};

// `offset` unused samples, then n samples of the pattern, nothing after them.
template <class Sample = uint16_t>
std::vector<Sample> make_row(int offset, int n, Fill fill, uint32_t seed) {
  std::mt19937 rng(seed);
  std::vector<Sample> v(offset + n, static_cast<Sample>(0x1234));
  for (int i = 0; i < n; ++i) {
    uint16_t s = 0;
    switch (fill) {
      case Fill::kRandom16: s = static_cast<uint16_t>(rng()); break;
      case Fill::kRandom12: s = static_cast<uint16_t>(rng() % 4081); break;
      case Fill::kZero: s = 0; break;
      case Fill::kMax12: s = 4080; break;
      case Fill::kMax16: s = 0xffff; break;
      case Fill::kAlternate12: s = (i + seed) % 2 ? 4080 : 0; break;
      case Fill::kAlternate16: s = (i + seed) % 2 ? 0xffff : 0; break;
      case Fill::kSigned: s = (i / 2 + seed) % 2 ? 0x8000 : 0x7fff; break;
    }
    v[offset + i] = static_cast<Sample>(s);
  }
  return v;
}

// Widths of the vertical rows: every width up to 40 and some around vector
// multiples; the horizontal rows use 3 ... 81 source or fine samples.
std::vector<int> vertical_widths() {
  std::vector<int> w;
  for (int i = 1; i <= 40; ++i) w.push_back(i);
  for (int i : {63, 64, 65, 127, 257}) w.push_back(i);
  return w;
}
std::vector<int> horizontal_widths() {
  std::vector<int> w;
  for (int i = 3; i <= 81; ++i) w.push_back(i);
  for (int i : {128, 129, 255, 514}) w.push_back(i);
  return w;
}

// Runs `body(variant, fill, width, offset, seed)` over every combination.
template <class Body>
void for_all(const std::vector<int>& widths, Body body) {
  const auto variants = instruction_set_rows();
  if (variants.empty()) GTEST_SKIP() << "portable rows only";
  uint32_t seed = 1;
  for (const Variant& v : variants)
    for (Fill fill : kFills)
      for (int width : widths)
        for (int offset : {0, 1, 3, 6}) {
          SCOPED_TRACE(std::string(v.name) + " fill " + std::to_string(static_cast<int>(fill)) +
                       " width " + std::to_string(width) + " offset " + std::to_string(offset));
          body(*v.rows, fill, width, offset, seed++);
          if (::testing::Test::HasFailure()) return;
        }
}

TEST(PyramidRows, ReduceRowsMatchPortable) {
  const PyramidRows& c = kPyramidRowsPortable;
  for_all(horizontal_widths(), [&](const PyramidRows& r, Fill fill, int w, int off, uint32_t seed) {
    const int dw = (w + 1) / 2;
    const auto src = make_row(off, w, fill, seed);
    auto expect = make_row(off, dw, Fill::kZero, 0), got = expect;
    c.reduce_h(src.data() + off, w, expect.data() + off, dw);
    r.reduce_h(src.data() + off, w, got.data() + off, dw);
    EXPECT_EQ(got, expect);
  });
  for_all(vertical_widths(), [&](const PyramidRows& r, Fill fill, int w, int off, uint32_t seed) {
    std::vector<uint16_t> in[5];
    const uint16_t* rows[5];
    for (int i = 0; i < 5; ++i) {
      in[i] = make_row(off + i, w, i % 2 ? Fill::kRandom16 : fill, seed + i);
      rows[i] = in[i].data() + off + i;
    }
    auto expect = make_row(off, w, Fill::kZero, 0), got = expect;
    c.reduce_v(rows, expect.data() + off, w);
    r.reduce_v(rows, got.data() + off, w);
    EXPECT_EQ(got, expect);
  });
}

TEST(PyramidRows, ExpandRowsMatchPortable) {
  const PyramidRows& c = kPyramidRowsPortable;
  for_all(horizontal_widths(), [&](const PyramidRows& r, Fill fill, int w, int off, uint32_t seed) {
    const int cw = (w + 1) / 2;
    const auto coarse = make_row(off, cw, fill, seed);
    const auto signed_coarse = make_row<int16_t>(off, cw, fill, seed);
    auto expect = make_row(off, w, Fill::kZero, 0), got = expect;
    c.expand_h_unsigned(coarse.data() + off, cw, expect.data() + off, w);
    r.expand_h_unsigned(coarse.data() + off, cw, got.data() + off, w);
    EXPECT_EQ(got, expect);
    c.expand_h_signed(signed_coarse.data() + off, cw, expect.data() + off, w);
    r.expand_h_signed(signed_coarse.data() + off, cw, got.data() + off, w);
    EXPECT_EQ(got, expect);
  });
}

TEST(PyramidRows, LaplacianAndCollapseRowsMatchPortable) {
  const PyramidRows& c = kPyramidRowsPortable;
  for_all(vertical_widths(), [&](const PyramidRows& r, Fill fill, int w, int off, uint32_t seed) {
    const auto above = make_row(off, w, fill, seed);
    const auto centre = make_row(off + 1, w, Fill::kRandom16, seed + 1);
    const auto below = make_row(off + 2, w, fill == Fill::kRandom12 ? Fill::kRandom16 : fill,
                                seed + 2);
    const uint16_t* a = above.data() + off;
    const uint16_t* m = centre.data() + off + 1;
    const uint16_t* b = below.data() + off + 2;

    const auto gauss = make_row(off, w, Fill::kRandom16, seed + 3);
    auto expect = make_row<int16_t>(off, w, Fill::kZero, 0), got = expect;
    c.laplacian_even(gauss.data() + off, a, m, b, expect.data() + off, w);
    r.laplacian_even(gauss.data() + off, a, m, b, got.data() + off, w);
    EXPECT_EQ(got, expect);
    c.laplacian_odd(gauss.data() + off, m, b, expect.data() + off, w);
    r.laplacian_odd(gauss.data() + off, m, b, got.data() + off, w);
    EXPECT_EQ(got, expect);

    // Fused samples over the whole signed range, with and without 8-bit luma.
    const auto fused = make_row<int16_t>(off, w, Fill::kRandom16, seed + 4);
    for (bool luma : {true, false}) {
      auto level_c = fused, level_r = fused;
      auto luma_c = make_row<uint8_t>(off, w, Fill::kZero, 0), luma_r = luma_c;
      uint8_t* yc = luma ? luma_c.data() + off : nullptr;
      uint8_t* yr = luma ? luma_r.data() + off : nullptr;
      c.collapse_even(level_c.data() + off, a, m, b, yc, w);
      r.collapse_even(level_r.data() + off, a, m, b, yr, w);
      EXPECT_EQ(level_r, level_c);
      EXPECT_EQ(luma_r, luma_c);
      c.collapse_odd(level_c.data() + off, m, b, yc, w);
      r.collapse_odd(level_r.data() + off, m, b, yr, w);
      EXPECT_EQ(level_r, level_c);
      EXPECT_EQ(luma_r, luma_c);
    }
  });
}

TEST(PyramidRows, ForcedPortableRowsAreUsed) {
  const bool portable_before = &pyramid_rows() == &kPyramidRowsPortable;
  platform::force_portable_for_testing(true);
  EXPECT_EQ(&pyramid_rows(), &kPyramidRowsPortable);
  platform::force_portable_for_testing(false);
  EXPECT_EQ(&pyramid_rows() == &kPyramidRowsPortable, platform::best_isa() == Isa::kPortable);
  platform::force_portable_for_testing(portable_before);
}

}  // namespace
}  // namespace tavo
