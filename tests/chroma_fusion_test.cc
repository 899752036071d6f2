// Chroma fusion: worked samples, the rule of each column against a per-sample
// model for every row variant, the source addressing of both dispatchers, the
// generic form for any frame count, and the logged null arguments.
#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "fusion/fusion_weights.h"
#include "fusion/weighted_mean.h"
#include "include/tavo_lumo_hdr.h"
#include "platform/log.h"
#include "support/row_variants.h"
#include "support/test_support.h"

namespace tavo {
namespace {

std::vector<uint16_t> fusion_chroma_table() {
  std::vector<uint16_t> exposure(256), chroma(256);
  build_fusion_weight_tables(exposure.data(), chroma.data());
  return chroma;
}

// Sample x of a row of `width` from the frames' bytes c[f], by the rule of its column.
uint8_t model_sample(const std::vector<uint16_t>& lut, const std::vector<uint8_t>& c, int x, int width) {
  int64_t w = 0, s = 0;
  for (uint8_t v : c) {
    const int16_t weight = static_cast<int16_t>(lut[v]);
    w += weight;
    s += weight * v;
  }
  const auto w32 = static_cast<uint32_t>(w), s32 = static_cast<uint32_t>(s);
  return x < width / 8 * 8 ? chroma_mean_grouped(w32, s32) : chroma_mean_exact(w32, s32);
}

std::vector<uint16_t> random_table(std::mt19937& rng) {
  std::vector<uint16_t> lut(256);
  const uint16_t edges[] = {0, 1, 981, 32767, 32768, 65535};
  for (auto& v : lut) v = rng() % 3 ? static_cast<uint16_t>(rng() % 1100) : edges[rng() % 6];
  return lut;
}

TEST(ChromaFusion, WorkedSamplesInRunsAndTail) {
  // Width 9: samples 0..7 by the grouped rule, sample 8 by the exact rule.
  const std::vector<uint16_t> table = fusion_chroma_table();
  std::vector<uint16_t> ones(256, 1);
  ones[4] = 2;
  struct Case {
    const std::vector<uint16_t>* lut;
    uint8_t c0, c1, c2;
    uint8_t grouped, exact;
  };
  const Case cases[] = {
      {&table, 128, 128, 0, 0, 0},    // the saturated frame wins
      {&table, 77, 77, 77, 77, 77},   // equal samples come back
      {&ones, 4, 1, 1, 2, 3},         // W = 4, S = 10: an exact half
  };
  for (const Case& c : cases) {
    std::vector<uint8_t> a(9, c.c0), b(9, c.c1), d(9, c.c2), out(9);
    const uint8_t* src[3] = {a.data(), b.data(), d.data()};
    fusionUV_plane(src, out.data(), c.lut->data(), 9, 9, 1);
    for (int x = 0; x < 9; ++x) EXPECT_EQ(out[x], x < 8 ? c.grouped : c.exact) << int{c.c0} << " at " << x;

    // The same samples as the first bytes (V) of pairs whose second bytes (U) are 200.
    std::vector<uint8_t> pa(18), pb(18), pd(18), u(9), v(9);
    for (int p = 0; p < 9; ++p) {
      pa[2 * p] = c.c0, pb[2 * p] = c.c1, pd[2 * p] = c.c2;
      pa[2 * p + 1] = pb[2 * p + 1] = pd[2 * p + 1] = 200;
    }
    const uint8_t* pairs[3] = {pa.data(), pb.data(), pd.data()};
    fusionUV_semiplane(pairs, u.data(), v.data(), c.lut->data(), 18, 9, 1);
    for (int p = 0; p < 9; ++p) {
      EXPECT_EQ(v[p], p < 8 ? c.grouped : c.exact) << p;
      EXPECT_EQ(u[p], 200) << p;
    }
  }
}

TEST(ChromaFusion, EveryColumnFollowsItsRuleInEveryRowVariant) {
  std::mt19937 rng(5);
  for (bool portable : {true, false}) {
    test::RowVariants variant(portable);
    for (int width = 1; width <= 40; ++width) {
      const int frames = 1 + width % 6, rows = 2, stride = width + 3, skew = width % 5;
      const std::vector<uint16_t> lut = random_table(rng);
      std::vector<std::vector<uint8_t>> planes(frames, std::vector<uint8_t>(skew + stride * rows));
      std::vector<std::vector<uint8_t>> pair_rows(3, std::vector<uint8_t>(skew + 2 * stride * rows));
      for (auto& p : planes) for (auto& v : p) v = static_cast<uint8_t>(rng());
      for (auto& p : pair_rows) for (auto& v : p) v = static_cast<uint8_t>(rng());
      std::vector<const uint8_t*> src, pair_src;
      for (auto& p : planes) src.push_back(p.data() + skew);
      for (auto& p : pair_rows) pair_src.push_back(p.data() + skew);

      std::vector<uint8_t> out(width * rows), u(width * rows), v(width * rows);
      if (frames == 3) fusionUV_plane(src.data(), out.data(), lut.data(), stride, width, rows);
      // fusionUV reads planes of stride width: the same rows, packed.
      std::vector<uint8_t> generic(width * rows);
      std::vector<std::vector<uint8_t>> packed(frames);
      std::vector<const uint8_t*> packed_src;
      for (int f = 0; f < frames; ++f) {
        for (int y = 0; y < rows; ++y) packed[f].insert(packed[f].end(), src[f] + y * stride, src[f] + y * stride + width);
        packed_src.push_back(packed[f].data());
      }
      fusionUV(packed_src.data(), generic.data(), lut.data(), width, rows, frames);
      fusionUV_semiplane(pair_src.data(), u.data(), v.data(), lut.data(), 2 * stride, width, rows);

      for (int y = 0; y < rows; ++y) {
        for (int x = 0; x < width; ++x) {
          std::vector<uint8_t> c, cu, cv;
          for (int f = 0; f < frames; ++f) c.push_back(src[f][y * stride + x]);
          for (int f = 0; f < 3; ++f) {
            cv.push_back(pair_src[f][y * 2 * stride + 2 * x]);
            cu.push_back(pair_src[f][y * 2 * stride + 2 * x + 1]);
          }
          const int i = y * width + x;
          ASSERT_EQ(generic[i], model_sample(lut, c, x, width)) << frames << " frames, width " << width << " x " << x;
          if (frames == 3) {
            ASSERT_EQ(out[i], generic[i]) << width << " x " << x;
          }
          ASSERT_EQ(u[i], model_sample(lut, cu, x, width)) << "pairs " << width << " x " << x;
          ASSERT_EQ(v[i], model_sample(lut, cv, x, width)) << "pairs " << width << " x " << x;
        }
      }
    }
  }
}

class ChromaDispatch : public test::PoolTest {};

// Three source frames of Ws x Hs with random bytes; the crop origins in luma pixels.
struct Sources {
  int ws, hs;
  std::vector<std::vector<uint8_t>> frames;
  std::vector<const uint8_t*> pointers;
  Sources(int w, int h, std::mt19937& rng) : ws(w), hs(h), frames(3, std::vector<uint8_t>(w * h * 3 / 2)) {
    for (auto& f : frames) {
      for (auto& v : f) v = static_cast<uint8_t>(rng());
      pointers.push_back(f.data());
    }
  }
};

TEST_F(ChromaDispatch, PlanarSourcesReadThroughEachCropOrigin) {
  std::mt19937 rng(6);
  const std::vector<uint16_t> lut = fusion_chroma_table();
  for (int out_rows : {1, 3, 4, 9, 17}) {
    const int ws = 64, hs = 2 * out_rows + 12, width = 19;  // W/2 = 19 chroma samples
    Sources s(ws, hs, rng);
    const int32_t crop[6] = {3, 5, 0, 0, 10, 11};
    std::vector<uint8_t> out_u(width * out_rows), out_v(width * out_rows);
    fusionUV_plane_process(s.pointers.data(), out_u.data(), out_v.data(), lut.data(), ws / 2, hs / 2,
                           width, out_rows, crop);
    for (int r = 0; r < out_rows; ++r) {
      for (int x = 0; x < width; ++x) {
        std::vector<uint8_t> cu, cv;
        for (int f = 0; f < 3; ++f) {
          const int at = (r + crop[2 * f + 1] / 2) * (ws / 2) + crop[2 * f] / 2 + x;
          cu.push_back(s.frames[f][ws * hs + at]);
          cv.push_back(s.frames[f][ws * hs * 5 / 4 + at]);
        }
        ASSERT_EQ(out_u[r * width + x], model_sample(lut, cu, x, width)) << out_rows << " rows, " << r << "," << x;
        ASSERT_EQ(out_v[r * width + x], model_sample(lut, cv, x, width)) << out_rows << " rows, " << r << "," << x;
      }
    }
  }
}

TEST_F(ChromaDispatch, SemiPlanarSourcesUseTheLumaColumnAsByteOffset) {
  std::mt19937 rng(7);
  const std::vector<uint16_t> lut = fusion_chroma_table();
  for (int out_rows : {1, 3, 4, 10}) {
    const int ws = 72, hs = 2 * out_rows + 8, out_width = 38, pairs = 19;
    Sources s(ws, hs, rng);
    const int32_t crop[6] = {4, 2, 0, 1, 7, 6};  // odd x: that frame's bytes swap roles
    std::vector<uint8_t> out_u(pairs * out_rows), out_v(pairs * out_rows);
    fusionUV_semiplane_process(s.pointers.data(), out_u.data(), out_v.data(), lut.data(), ws, hs,
                               out_width, out_rows, crop);
    for (int r = 0; r < out_rows; ++r) {
      for (int p = 0; p < pairs; ++p) {
        std::vector<uint8_t> cu, cv;
        for (int f = 0; f < 3; ++f) {
          const int at = ws * hs + (r + crop[2 * f + 1] / 2) * ws + crop[2 * f] + 2 * p;
          cv.push_back(s.frames[f][at]);
          cu.push_back(s.frames[f][at + 1]);
        }
        ASSERT_EQ(out_u[r * pairs + p], model_sample(lut, cu, p, pairs)) << out_rows << " rows, " << r << "," << p;
        ASSERT_EQ(out_v[r * pairs + p], model_sample(lut, cv, p, pairs)) << out_rows << " rows, " << r << "," << p;
      }
    }
  }
}

TEST_F(ChromaDispatch, GenericBandsEqualOnePassAndReadExtraPlanesBeyondThree) {
  std::mt19937 rng(8);
  const std::vector<uint16_t> lut = random_table(rng);
  const int width = 21, rows = 10;
  std::vector<std::vector<uint8_t>> planes(6, std::vector<uint8_t>(width * rows));
  for (auto& p : planes) for (auto& v : p) v = static_cast<uint8_t>(rng());
  const uint8_t* all[6];
  for (int f = 0; f < 6; ++f) all[f] = planes[f].data();
  // The extra arrays: only their second elements are planes.
  const uint8_t* extra0[2] = {nullptr, all[3]};
  const uint8_t* extra1[2] = {nullptr, all[4]};
  const uint8_t* extra2[2] = {nullptr, all[5]};
  const uint8_t* const* extra[3] = {extra0, extra1, extra2};
  for (int frames : {1, 3, 5}) {
    std::vector<uint8_t> one(width * rows), four(width * rows);
    fusionUV(all, one.data(), lut.data(), width, rows, frames);
    fusionUV_process(all, four.data(), lut.data(), width, rows, frames, extra);
    EXPECT_EQ(four, one) << frames << " frames";
  }
}

TEST_F(ChromaDispatch, RefusalsAndNullArgumentsAreLogged) {
  uint8_t out[4] = {9, 9, 9, 9};
  const uint16_t lut[256] = {};
  const uint8_t* src[3] = {out, out, out};
  test::LogCapture log;
  fusionUV(src, out, lut, 4, 1, 0);
  EXPECT_EQ(std::vector<uint8_t>(out, out + 4), std::vector<uint8_t>(4, 9));
  fusionUV_process(src, out, lut, 4, 1, 4, nullptr);  // a fourth plane needs the extras
  EXPECT_EQ(std::vector<uint8_t>(out, out + 4), std::vector<uint8_t>(4, 9));
  const int32_t crop[6] = {};
  fusionUV_plane_process(nullptr, out, out, lut, 2, 2, 4, 1, crop);
  fusionUV_semiplane_process(src, out, nullptr, lut, 2, 2, 4, 1, crop);
  const std::vector<std::string> lines = log.lines();
  ASSERT_EQ(lines.size(), 5u) << log.joined();
  EXPECT_NE(lines[0].find("no frames"), std::string::npos) << lines[0];
  EXPECT_NE(lines[2].find("not all planes"), std::string::npos) << lines[2];
  char expected[3][128];
  const unsigned o = platform::log_hex(out), l = platform::log_hex(lut), s = platform::log_hex(src);
  snprintf(expected[0], 128, "L 868, fusionUV_process: in_buffer is NULL,0x%x,0x%x,0x%x,0x0\n", s, o, l);
  snprintf(expected[1], 128, "L 930, fusionUV_plane_process: in_buffer is NULL,0x0,0x%x,0x%x,0x%x\n", o, o, l);
  snprintf(expected[2], 128, "L 992, fusionUV_semiplane_process: in_buffer is NULL,0x%x,0x%x,0x0,0x%x\n", s, o, l);
  EXPECT_EQ(lines[1], expected[0]);
  EXPECT_EQ(lines[3], expected[1]);
  EXPECT_EQ(lines[4], expected[2]);
}

}  // namespace
}  // namespace tavo
