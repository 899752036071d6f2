// Chroma fusion: the rule of every column in every row variant against a
// per-sample model, and the source addressing of both dispatchers.
#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "fusion/fusion_weights.h"
#include "include/tavo_lumo_hdr.h"
#include "platform/fixed_point_mean.h"
#include "platform/log.h"
#include "support/cpu_masks.h"
#include "support/test_support.h"

namespace tavo {
namespace {

using Bytes = std::vector<uint8_t>;

std::vector<uint16_t> fusion_chroma_table() {
  std::vector<uint16_t> exposure(256), chroma(256);
  build_fusion_weight_tables(exposure.data(), chroma.data());
  return chroma;
}

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
    for (int width = 1; width <= 48; ++width) {
      const int frames = 1 + width % 6, rows = 2, n = width * rows, skew = width % 5;
      const std::vector<uint16_t> lut = random_table(rng, width % 2 == 0);
      std::vector<Bytes> planes(frames, Bytes(skew + n)), pairs(3, Bytes(skew + 2 * n));
      std::vector<const uint8_t*> src, pair_src;
      for (auto& p : planes) src.push_back(p.data() + skew);
      for (auto& p : pairs) pair_src.push_back(p.data() + skew);
      for (auto* set : {&planes, &pairs}) for (auto& p : *set) for (auto& b : p) b = static_cast<uint8_t>(rng());

      Bytes generic(n), planar(n), u(n), v(n);
      fusionUV(src.data(), generic.data(), lut.data(), width, rows, frames);
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

class ChromaDispatch : public test::PoolTest {
 protected:
  // Three random frames of ws x hs.
  void make_frames(int ws, int hs) {
    for (int f = 0; f < 3; ++f) {
      frames_[f] = test::random_bytes(ws * hs * 3 / 2, ws + hs + f);
      pointers_[f] = frames_[f].data();
    }
  }
  Bytes frames_[3];
  const uint8_t* pointers_[3];
  const std::vector<uint16_t> lut_ = fusion_chroma_table();
};

// Planar sources are read at half each crop origin; semi-planar ones take the
// luma column as byte offset, so an odd x swaps that frame's U and V.
TEST_F(ChromaDispatch, SourcesAreReadThroughEachCropOrigin) {
  const int32_t crops[2][6] = {{3, 5, 0, 0, 10, 11}, {4, 2, 0, 1, 7, 6}};
  for (bool semi : {false, true}) {
    for (int rows : {1, 3, 4, 9, 17}) {  // below 4 rows one band does everything
      const int ws = 72, hs = 2 * rows + 12, width = 19, luma = ws * hs;
      const int32_t* crop = crops[semi];
      make_frames(ws, hs);
      Bytes out_u(width * rows), out_v(width * rows);
      if (semi) {
        fusionUV_semiplane_process(pointers_, out_u.data(), out_v.data(), lut_.data(), ws, hs, 2 * width, rows, crop);
      } else {
        fusionUV_plane_process(pointers_, out_u.data(), out_v.data(), lut_.data(), ws / 2, hs / 2, width, rows, crop);
      }
      for (int i = 0; i < width * rows; ++i) {
        Bytes cu, cv;
        for (int f = 0; f < 3; ++f) {
          const int r = i / width + crop[2 * f + 1] / 2, x = i % width;
          const int at = semi ? luma + r * ws + crop[2 * f] + 2 * x : luma + r * (ws / 2) + crop[2 * f] / 2 + x;
          cu.push_back(frames_[f][semi ? at + 1 : at]);
          cv.push_back(frames_[f][semi ? at : at + luma / 4]);
        }
        ASSERT_EQ(out_u[i], model_sample(lut_, cu, i % width, width)) << semi << " " << rows << " rows, at " << i;
        ASSERT_EQ(out_v[i], model_sample(lut_, cv, i % width, width)) << semi << " " << rows << " rows, at " << i;
      }
    }
  }
}

}  // namespace
}  // namespace tavo
