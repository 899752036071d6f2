// Weight tables of the fusion, the exported Gaussian table builders, and the
// two division rules of blending and chroma fusion on worked values: exact
// halves, clamps, the low 16 bits kept by the grouped rules, wrapped sums and
// the divisions C leaves undefined. On aarch64 the grouped rules are also
// checked against the instructions they reproduce.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <numeric>
#include <vector>

#include "fusion/fusion_weights.h"
#include "include/tavo_lumo_hdr.h"
#include "platform/fixed_point_mean.h"

#if defined(__aarch64__)
#include <arm_neon.h>
#endif

namespace tavo {
namespace {

using Table = std::array<uint16_t, 256>;

struct FusionTables {
  Table exposure{}, chroma{};
  FusionTables() { build_fusion_weight_tables(exposure.data(), chroma.data()); }
};

TEST(FusionWeights, TellingEntriesAndSums) {
  const FusionTables t;
  const int index[] = {0, 1, 16, 32, 48, 64, 80, 96, 112, 120, 127, 128, 129, 160, 192, 224, 254, 255};
  const int exposure[] = {125, 129, 205, 314, 450, 605, 762, 898, 990, 1015, 1023, 1024, 1023, 898, 605, 314, 133, 129};
  const int chroma[] = {981, 979, 933, 851, 726, 559, 367, 184, 50, 14, 1, 1, 1, 184, 559, 851, 977, 979};
  for (size_t i = 0; i < std::size(index); ++i) {
    EXPECT_EQ(t.exposure[index[i]], exposure[i]) << "exposure " << index[i];
    EXPECT_EQ(t.chroma[index[i]], chroma[i]) << "chroma " << index[i];
  }
  EXPECT_EQ(std::accumulate(t.exposure.begin(), t.exposure.end(), 0), 153715);
  EXPECT_EQ(std::accumulate(t.chroma.begin(), t.chroma.end(), 0), 133082);
}

// The exported builders: over 0 ... 255 the fusion's table except entry 255,
// left as it was; nothing for an empty range; for a zero range (an infinite
// distance, or not-a-number at the centre) 0 inverted or not.
TEST(FusionWeights, ExportedBuilders) {
  const FusionTables t;
  using Builder = int32_t (*)(uint16_t*, float, int32_t, uint32_t, int32_t);
  const struct {
    Builder build;
    float sigma;
    const Table& fusion;
    uint16_t zero_range;
  } builders[] = {{weight_Initialize, 0.12f, t.exposure, 0}, {weight_Initialize_c, 0.08f, t.chroma, 1025}};
  for (const auto& b : builders) {
    Table table;
    table.fill(7);
    EXPECT_EQ(b.build(table.data(), b.sigma, 128, 10, 9), 0);
    EXPECT_EQ(std::count(table.begin(), table.end(), 7), 256);
    for (int at : {40, 128}) {
      b.build(table.data(), b.sigma, 128, at, at);
      EXPECT_EQ(table[at], b.zero_range) << at;
      EXPECT_EQ(table[at - 1], 7);
      EXPECT_EQ(table[at + 1], 7);
    }
    EXPECT_EQ(b.build(table.data(), b.sigma, 128, 0, 255), 0);
    EXPECT_TRUE(std::equal(table.begin(), table.end() - 1, b.fusion.begin()));
    EXPECT_EQ(table[255], 7);
  }
}

// Both division rules of blending (signed means, 0 ... 4080 when exact) and
// of chroma fusion (bytes) on worked weight and sample sums.
TEST(WeightedMean, WorkedValues) {
  const struct {
    bool chroma;
    int64_t w, s;
    int exact, grouped;
  } cases[] = {
      {false, 2, 3, 2, 1},  // an exact half rounds away from zero, or down when grouped
      {false, 1024, 1536, 2, 1},
      {false, 2, -3, -2, -1},  // mirrored
      {false, 3, 7, 2, 2},
      {false, 1, 5000, 4080, 4080},     // upper clamp in both rules
      {false, 1, -5000, -4080, -5000},  // no lower clamp in the grouped rule
      {false, 1, 65636, 4080, 100},     // the grouped rule keeps the low 16 bits
      {false, 1, -65636, -4080, -100},
      // Three frames, weight 1024 x contrast 255, Laplacian 4080: S = 3196108800 wraps.
      {false, 783360, 3196108800LL, -1403, -1403},
      {false, 0, 5, 0, -1},  // no weight: 0 as the processor divides; grouped: +inf saturates
      {true, 983, 256, 0, 0},  // samples 128, 128, 0: weights 1, 1, 981; the saturated frame wins
      {true, 3 * 500, 3 * 500 * 77, 77, 77},
      {true, 4, 10, 3, 2},  // an exact half: up when exact, down when grouped
      {true, 1, 300, 255, 255},
      {true, 1, -5, 0, 255},     // negative: 0 when exact; a huge unsigned sum when grouped
      {true, 1, 65541, 255, 5},  // the grouped rule keeps the low 16 bits
      {true, 0, 0, 0, 0},
  };
  for (const auto& c : cases) {
    const auto w = static_cast<uint32_t>(c.w), s = static_cast<uint32_t>(c.s);
    EXPECT_EQ(c.chroma ? chroma_mean_exact(w, s) : blend_mean_exact(w, s), c.exact) << c.w << " " << c.s;
    EXPECT_EQ(c.chroma ? chroma_mean_grouped(w, s) : blend_mean_grouped(w, s), c.grouped) << c.w << " " << c.s;
  }
  // INT32_MIN / -1 neither traps nor overflows.
  EXPECT_EQ(blend_mean_exact(0xffffffffu, 0x80000000u), 0);
  EXPECT_EQ(divide_toward_zero(INT32_MIN, -1), INT32_MIN);
  EXPECT_EQ(divide_toward_zero(-7, 2), -3);
}

#if defined(__aarch64__)
// The grouped rules written with the instructions, one lane.
float32x4_t quotient(float32x4_t w, float32x4_t s) {
  const float32x4_t r0 = vrecpeq_f32(w);
  return vmulq_f32(s, vmulq_f32(r0, vrecpsq_f32(w, r0)));
}
uint8_t chroma_by_instructions(uint32_t w, uint32_t s) {
  const float32x4_t q = vaddq_f32(vdupq_n_f32(0.5f), quotient(vcvtq_f32_u32(vdupq_n_u32(w)), vcvtq_f32_u32(vdupq_n_u32(s))));
  return vget_lane_u8(vqmovn_u16(vcombine_u16(vmovn_u32(vcvtq_u32_f32(q)), vdup_n_u16(0))), 0);
}
int16_t blend_by_instructions(uint32_t w, uint32_t s) {
  float32x4_t q = quotient(vcvtq_f32_s32(vdupq_n_s32(static_cast<int32_t>(w))), vcvtq_f32_s32(vdupq_n_s32(static_cast<int32_t>(s))));
  q = vaddq_f32(q, vbslq_f32(vcgeq_f32(q, vdupq_n_f32(0)), vdupq_n_f32(0.5f), vdupq_n_f32(-0.5f)));
  return vget_lane_s16(vmin_s16(vmovn_s32(vcvtq_s32_f32(q)), vdup_n_s16(4080)), 0);
}

// Sums at and around exact halves and multiples, negated, and wrapped.
std::vector<uint32_t> sums_for(uint32_t w) {
  std::vector<uint32_t> s = {0, 1, 0x7fffffffu, 0x80000000u, 0xffffffffu, 0x80000000u + w / 2};
  for (uint32_t k : {1u, 2u, 3u, 100u, 127u, 128u, 254u, 255u, 4079u, 4080u, 40000u}) {
    for (uint32_t t : {k * w, k * w + w / 2, k * w + w / 2 - 1, k * w + (w + 1) / 2}) s.insert(s.end(), {t, 0u - t});
  }
  return s;
}

TEST(WeightedMeanHardware, GroupedRulesMatchTheInstructions) {
  for (uint32_t w = 3; w <= 3 * 1025; ++w) {  // every chroma weight sum
    for (uint32_t s : sums_for(w)) ASSERT_EQ(chroma_mean_grouped(w, s), chroma_by_instructions(w, s)) << w << " " << s;
  }
  for (uint32_t w = 1; w <= 3u * 1024u * 255u; w += w < 4096 ? 1 : 97) {  // blending weight sums
    for (uint32_t s : sums_for(w)) ASSERT_EQ(blend_mean_grouped(w, s), blend_by_instructions(w, s)) << w << " " << s;
  }
}
#endif

}  // namespace
}  // namespace tavo
