// The chroma module: chroma fusion (the rule of every column in every row
// variant against a per-sample model, and the source addressing of both
// dispatchers), the one-level blend FusionOnLayer, saturation gains, and the
// exported block copy.
#include <gtest/gtest.h>

#include <numeric>
#include <random>
#include <string>
#include <vector>

#include "fusion/fusion_weights.h"
#include "include/tavo_lumo_hdr.h"
#include "platform/fixed_point_mean.h"
#include "support/cpu_masks.h"
#include "support/test_support.h"

namespace tavo {
namespace {

using Bytes = std::vector<uint8_t>;

// Any entries, or (positive) weights of 1 ... 32767 only, which the vector
// rows take sixteen samples a step.
std::vector<uint16_t> random_table(std::mt19937& rng, bool positive) {
  std::vector<uint16_t> lut(256);
  const uint16_t edges[] = {1, 32767, 981, 0, 32768, 65535};
  for (auto& v : lut) v = rng() % 3 ? static_cast<uint16_t>(rng() % 1100) : edges[rng() % (positive ? 3 : 6)];
  if (positive) for (auto& v : lut) v = v == 0 ? 1 : v;
  return lut;
}

// Sample x of a row of n from the frames' bytes c, by the rule of its column.
uint8_t model_sample(const std::vector<uint16_t>& lut, const Bytes& c, int x, int n) {
  int64_t w = 0, s = 0;
  for (uint8_t v : c) w += static_cast<int16_t>(lut[v]), s += static_cast<int16_t>(lut[v]) * v;
  const auto w32 = static_cast<uint32_t>(w), s32 = static_cast<uint32_t>(s);
  return x < n / 8 * 8 ? chroma_mean_grouped(w32, s32) : chroma_mean_exact(w32, s32);
}

TEST(ChromaFusion, EveryColumnFollowsItsRuleInEveryRowVariant) {
  std::mt19937 rng(5);
  test::ForEachCpuMask([&](const test::CpuMask&) {
    // Every width to 48, then widths past the vector rows' widest steps (64
    // samples, 32 pairs) with each remainder; 3 frames at widths 6k+2, with
    // both kinds of table.
    std::vector<int> widths(48);
    std::iota(widths.begin(), widths.end(), 1);
    widths.insert(widths.end(), {56, 62, 64, 79, 116, 122, 127, 128});
    for (int width : widths) {
      const int frames = 1 + width % 6, rows = 2, n = width * rows, skew = width % 5;
      const std::vector<uint16_t> lut = random_table(rng, width % 4 < 2);
      std::vector<Bytes> planes(frames, Bytes(skew + n)), pairs(3, Bytes(skew + 2 * n));
      std::vector<const uint8_t*> src, pair_src;
      for (auto& p : planes) src.push_back(p.data() + skew);
      for (auto& p : pairs) pair_src.push_back(p.data() + skew);
      for (auto* set : {&planes, &pairs}) for (auto& p : *set) for (auto& b : p) b = static_cast<uint8_t>(rng());

      Bytes generic(n), planar(n), u(n), v(n);
      fusionUV(src.data(), generic.data(), lut.data(), width, rows, frames);
      // Fused in place, over frame 0's plane: no output byte is read back.
      Bytes in_place = planes[0];
      std::vector<const uint8_t*> in_place_src = src;
      in_place_src[0] = in_place.data() + skew;
      fusionUV(in_place_src.data(), in_place.data() + skew, lut.data(), width, rows, frames);
      ASSERT_EQ(Bytes(in_place.begin() + skew, in_place.end()), generic) << frames << " frames, width " << width;
      if (frames == 3) {
        fusionUV_plane(src.data(), planar.data(), lut.data(), width, width, rows);
      } else {
        planar = generic;
      }
      fusionUV_semiplane(pair_src.data(), u.data(), v.data(), lut.data(), 2 * width, width, rows);
      for (int i = 0; i < n; ++i) {
        Bytes c, cu, cv;
        for (int f = 0; f < frames; ++f) c.push_back(src[f][i]);
        for (int f = 0; f < 3; ++f) cv.push_back(pair_src[f][2 * i]), cu.push_back(pair_src[f][2 * i + 1]);
        ASSERT_EQ(generic[i], model_sample(lut, c, i % width, width)) << frames << " frames, width " << width << " at " << i;
        ASSERT_EQ(planar[i], generic[i]) << width << " at " << i;
        ASSERT_EQ(u[i], model_sample(lut, cu, i % width, width)) << "pairs " << width << " at " << i;
        ASSERT_EQ(v[i], model_sample(lut, cv, i % width, width)) << "pairs " << width << " at " << i;
      }
    }
  });
}

class ChromaDispatch : public test::PoolTest {};

// Planar sources are read at half each crop origin; semi-planar ones take the
// luma column as byte offset, so an odd x swaps that frame's U and V.
TEST_F(ChromaDispatch, SourcesAreReadThroughEachCropOrigin) {
  std::vector<uint16_t> exposure(256), lut(256);
  build_fusion_weight_tables(exposure.data(), lut.data());
  const int32_t crops[2][6] = {{3, 5, 0, 0, 10, 11}, {4, 2, 0, 1, 7, 6}};
  for (bool semi : {false, true}) {
    for (int rows : {1, 3, 4, 9, 17}) {  // below 4 rows one band does everything
      const int ws = 72, hs = 2 * rows + 12, width = 19, luma = ws * hs;
      const int32_t* crop = crops[semi];
      Bytes frames[3], out_u(width * rows), out_v(width * rows);
      const uint8_t* pointers[3];
      for (int f = 0; f < 3; ++f) frames[f] = test::random_bytes(luma * 3 / 2, ws + hs + f), pointers[f] = frames[f].data();
      if (semi) {
        fusionUV_semiplane_process(pointers, out_u.data(), out_v.data(), lut.data(), ws, hs, 2 * width, rows, crop);
      } else {
        fusionUV_plane_process(pointers, out_u.data(), out_v.data(), lut.data(), ws / 2, hs / 2, width, rows, crop);
      }
      for (int i = 0; i < width * rows; ++i) {
        Bytes cu, cv;
        for (int f = 0; f < 3; ++f) {
          const int r = i / width + crop[2 * f + 1] / 2, x = i % width;
          const int at = semi ? luma + r * ws + crop[2 * f] + 2 * x : luma + r * (ws / 2) + crop[2 * f] / 2 + x;
          cu.push_back(frames[f][semi ? at + 1 : at]);
          cv.push_back(frames[f][semi ? at : at + luma / 4]);
        }
        ASSERT_EQ(out_u[i], model_sample(lut, cu, i % width, width)) << semi << " " << rows << " rows, at " << i;
        ASSERT_EQ(out_v[i], model_sample(lut, cv, i % width, width)) << semi << " " << rows << " rows, at " << i;
      }
    }
  }
}

// `frames` levels of w x h held as level 0 of one-level pyramids, each
// Gaussian level filled with g and each Laplacian level with l.
struct Layer {
  int32_t w, h, n;
  std::vector<std::vector<uint8_t>> gauss;
  std::vector<std::vector<int16_t>> lap;
  std::vector<uint16_t> table = std::vector<uint16_t>(256, 0xbeef);
  std::vector<int16_t> out;
  Layer(int32_t width, int32_t height, int frames, uint8_t g, int16_t l)
      : w(width), h(height), n(frames), gauss(frames, std::vector<uint8_t>(width * height, g)),
        lap(frames, std::vector<int16_t>(width * height, l)), out(width * height, 0x7777) {}
  void fuse(float sigma, int frames = -1) {
    std::vector<uint8_t*> g_level;
    std::vector<int16_t*> l_level;
    for (int f = 0; f < n; ++f) g_level.push_back(gauss[f].data()), l_level.push_back(lap[f].data());
    std::vector<uint8_t**> g_pyr;
    std::vector<int16_t**> l_pyr;
    for (int f = 0; f < n; ++f) g_pyr.push_back(&g_level[f]), l_pyr.push_back(&l_level[f]);
    FusionOnLayer(l_pyr.data(), g_pyr.data(), out.data(), table.data(), w, h, 0, frames < 0 ? n : frames, sigma);
  }
};

TEST(FusionOnLayer, TableCoversTheLevelRangeCentredOnHalfTheRange) {
  Layer span(16, 16, 1, 0, 100);
  std::iota(span.gauss[0].begin(), span.gauss[0].end(), 0);
  span.fuse(0.25f);
  EXPECT_EQ(span.table[127], 1024);  // R = 255: the centre is 127
  for (int i = 0; i < 256; ++i) EXPECT_NE(span.table[i], 0xbeef) << i;

  // Range 10 ... 20: the centre is 5, not 15; t = (i - 5) / 10.
  Layer narrow(11, 1, 1, 0, 0);
  std::iota(narrow.gauss[0].begin(), narrow.gauss[0].end(), 10);
  narrow.fuse(0.25f);
  EXPECT_EQ(narrow.table[10], 376);  // exp(-1) * 1024
  EXPECT_EQ(narrow.table[15], 18);   // exp(-4) * 1024
  EXPECT_EQ(narrow.table[20], 0);
  EXPECT_EQ(narrow.table[9], 0xbeef);
  EXPECT_EQ(narrow.table[21], 0xbeef);
}

TEST(FusionOnLayer, RemapsTheLaplacianInPlaceAndWeighsContrastInsideTheLevelOnly) {
  // The remap applies again on every call.
  Layer layer(3, 2, 1, 50, 1);
  layer.fuse(0.1f);
  EXPECT_EQ(layer.lap[0], std::vector<int16_t>(6, 4));
  layer.fuse(0.1f);
  EXPECT_EQ(layer.lap[0], std::vector<int16_t>(6, 10));
  EXPECT_EQ(layer.out, std::vector<int16_t>(6, 10));

  // Flat level: range 0 makes table[10] = 0, taken as weight 1; the mean of 64
  // and 65 rounds half away from zero.
  Layer flat(4, 4, 2, 10, 64);
  flat.lap[1].assign(16, 65);
  flat.fuse(0.5f);
  EXPECT_EQ(flat.table[10], 0);
  EXPECT_EQ(flat.out, std::vector<int16_t>(16, 65));

  // 3 x 3, frame 0 has a bright centre: range 10 ... 30, table[10] = 1024,
  // table[30] = 138. Centre: frame 0 weighs 138 x (80 >> 2), frame 1 1024 x 1,
  // (276000 + 204800 + 1892) / 3784 = 127. Border samples weigh 1024 each: 150.
  Layer bump(3, 3, 2, 10, 100);
  bump.gauss[0][4] = 30;
  bump.lap[1].assign(9, 200);
  bump.fuse(0.5f);
  EXPECT_EQ(bump.table[30], 138);
  for (int p = 0; p < 9; ++p) EXPECT_EQ(bump.out[p], p == 4 ? 127 : 150) << p;
}

// A Laplacian sample outside the remap's table, or no frames: nothing written.
TEST(FusionOnLayer, RefusedInputsChangeNothing) {
  const struct {
    int16_t bad;
    int frames;
    const char* line;
  } cases[] = {{256, 3, "outside 0..255"}, {-1, 3, "outside 0..255"}, {30, 0, "no frames"}};
  for (const auto& c : cases) {
    Layer layer(5, 3, 3, 40, 30);
    layer.lap[2][14] = c.bad;
    test::LogCapture log;
    layer.fuse(0.2f, c.frames);
    EXPECT_EQ(log.count(c.line), 1) << c.bad;
    EXPECT_EQ(layer.table, std::vector<uint16_t>(256, 0xbeef));
    EXPECT_EQ(layer.out, std::vector<int16_t>(15, 0x7777));
    EXPECT_EQ(layer.lap[0], std::vector<int16_t>(15, 30));
  }
}

uint8_t saturated(uint8_t c, float gain) {
  saturation(&c, 1, 1, gain);
  return c;
}

TEST(Saturation, GainsAndClamps) {
  for (int c = 0; c < 256; ++c) {
    EXPECT_EQ(saturated(static_cast<uint8_t>(c), 1.0f), c);
    EXPECT_EQ(saturated(static_cast<uint8_t>(c), 0.0f), 128);
  }
  for (float gain : {-3.0f, 0.5f, 7.0f}) EXPECT_EQ(saturated(128, gain), 128);
  EXPECT_EQ(saturated(200, 2.0f), 255);  // 144 clamped to 127
  EXPECT_EQ(saturated(60, 2.0f), 0);     // -136 clamped to -128
  EXPECT_EQ(saturated(130, 2.0f), 132);
  EXPECT_EQ(saturated(100, -1.0f), 156);
  EXPECT_EQ(saturated(0, -1.0f), 255);  // through the upper clamp
  EXPECT_EQ(saturated(255, -1.0f), 1);
  EXPECT_EQ(saturated(131, 0.5f), 129);  // 1.5 truncates
}

// The first sixteen bytes and the tail are copied, the bytes between are not.
TEST(MemcpyNeon, CopiesTheFirstSixteenAndTheTailOnly) {
  std::vector<uint8_t> src(40), dst(48, 0xee);
  std::iota(src.begin(), src.end(), 1);
  memcpy_neon(dst.data(), src.data(), 40);
  for (int k = 0; k < 48; ++k) EXPECT_EQ(dst[k], k < 16 || (k >= 32 && k < 40) ? src[k] : 0xee) << k;
  // Overlapping blocks: the sixteen bytes are copied 16 times over, each copy
  // reading what the previous one wrote.
  std::vector<uint8_t> shift(17);
  std::iota(shift.begin(), shift.end(), 1);
  memcpy_neon(shift.data() + 1, shift.data(), 16);
  EXPECT_EQ(shift, std::vector<uint8_t>(17, 1));
  for (int n : {0, 7, 15, 16, -5}) {
    std::vector<uint8_t> d(20, 0xee);
    memcpy_neon(d.data(), src.data(), n);
    for (int k = 0; k < 20; ++k) EXPECT_EQ(d[k], k < n ? src[k] : 0xee) << n << " " << k;
  }
}

}  // namespace
}  // namespace tavo
