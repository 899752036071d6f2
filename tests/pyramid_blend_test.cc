// Pyramid blending: the row variants against each other on any input. (The
// per-pixel model is compared with the dispatcher in dispatch_test.cc.)
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <vector>

#include "include/tavo_lumo_hdr.h"
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
