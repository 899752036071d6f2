// Pyramid blending: a per-pixel model (border, runs of eight, remainder,
// wrapped sums) and the row variants against each other.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <vector>

#include "include/tavo_lumo_hdr.h"
#include "platform/fixed_point_mean.h"
#include "support/cpu_masks.h"

namespace tavo {
namespace {

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
  uint16_t& g(int f, int x, int y) { return gauss[f][pad + y * w + x]; }
  int16_t& l(int f, int x, int y) { return lap[f][pad + y * w + x]; }

  // The kernel over the whole level as one band.
  std::vector<int16_t> blend() {
    std::vector<int16_t> out(w * h, 0x5a5a);
    std::vector<int16_t*> lp;
    std::vector<uint16_t*> gp;
    for (int f = 0; f < n; ++f) lp.push_back(&l(f, 0, 0)), gp.push_back(&g(f, 0, 0));
    fusion_pyramid(out.data(), lut.data(), lp.data(), gp.data(), w, h, n, 0, 1);
    return out;
  }
};

// A sample straight from the description of the weights, sums in 64 bits
// reduced to 32 at the end. Valid Gaussian samples only (0 ... 4080).
int16_t model_sample(Level& lv, int x, int y) {
  const bool border = x == 0 || x == lv.w - 1 || y == 0 || y == lv.h - 1;
  int64_t w_sum = 0, s_sum = 0;
  for (int f = 0; f < lv.n; ++f) {
    const int g = lv.g(f, x, y);
    int64_t e = static_cast<int16_t>(lv.lut[(g + 8) >> 4]);
    e = e == 0 ? 1 : e;
    if (!border) {
      const int d = lv.g(f, x, y - 1) + lv.g(f, x, y + 1) + lv.g(f, x - 1, y) + lv.g(f, x + 1, y) - 4 * g;
      e *= std::max(std::abs(d) >> 6, 1);
    }
    w_sum += e;
    s_sum += e * lv.l(f, x, y);
  }
  const auto w32 = static_cast<uint32_t>(w_sum), s32 = static_cast<uint32_t>(s_sum);
  const bool grouped = !border && x <= (lv.w - 2) / 8 * 8;
  return grouped ? blend_mean_grouped(w32, s32) : blend_mean_exact(w32, s32);
}

TEST(FusionPyramid, MatchesPerPixelModel) {
  std::mt19937 rng(1);
  for (int n : {1, 3, 4}) {
    for (int w : {1, 2, 3, 9, 10, 11, 17, 18, 26, 40}) {
      for (int h : {1, 2, 3, 6}) {
        Level lv(w, h, n);
        for (auto& p : lv.gauss) for (auto& v : p) v = static_cast<uint16_t>(rng() % 4081);
        for (auto& p : lv.lap) for (auto& v : p) v = static_cast<int16_t>(static_cast<int>(rng() % 8161) - 4080);
        for (auto& v : lv.lut) v = static_cast<uint16_t>(rng() % 1025);
        const std::vector<int16_t> out = lv.blend();
        for (int i = 0; i < w * h; ++i) {
          ASSERT_EQ(out[i], model_sample(lv, i % w, i / w)) << n << " frames, " << w << "x" << h << " at " << i;
        }
      }
    }
  }
}

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
