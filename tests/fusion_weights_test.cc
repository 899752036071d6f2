// Weight tables of the fusion and the exported Gaussian table builders.
#include <gtest/gtest.h>

#include <array>
#include <numeric>

#include "fusion/fusion_weights.h"
#include "include/tavo_lumo_hdr.h"

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

TEST(FusionWeights, ExportedBuildersMatchTheFusionBelowEntry255Only) {
  const FusionTables t;
  Table luma, chroma;
  luma.fill(0xBEEF);
  chroma.fill(0xBEEF);
  EXPECT_EQ(weight_Initialize(luma.data(), 0.12f, 128, 0, 255), 0);
  EXPECT_EQ(weight_Initialize_c(chroma.data(), 0.08f, 128, 0, 255), 0);
  for (int k = 0; k < 255; ++k) {
    EXPECT_EQ(luma[k], t.exposure[k]) << k;
    EXPECT_EQ(chroma[k], t.chroma[k]) << k;
  }
  EXPECT_EQ(luma[255], 0xBEEF);
  EXPECT_EQ(chroma[255], 0xBEEF);
  // Over the full range the tables differ from the fusion's.
  weight_Initialize(luma.data(), 0.12f, 128, 0, 256);
  weight_Initialize_c(chroma.data(), 0.08f, 128, 0, 256);
  int luma_differ = 0, chroma_differ = 0;
  for (int k = 0; k < 256; ++k) luma_differ += luma[k] != t.exposure[k], chroma_differ += chroma[k] != t.chroma[k];
  EXPECT_EQ(luma_differ, 215);
  EXPECT_EQ(chroma_differ, 223);
}

TEST(FusionWeights, ExportedBuildersAtEmptyAndSingleRanges) {
  Table table;
  table.fill(7);
  EXPECT_EQ(weight_Initialize(table.data(), 0.12f, 128, 10, 9), 0);
  EXPECT_EQ(weight_Initialize_c(table.data(), 0.08f, 128, 10, 9), 0);
  for (int k = 0; k < 256; ++k) ASSERT_EQ(table[k], 7);

  // A zero range: an infinite distance gives 0 (1025 inverted) ...
  weight_Initialize(table.data(), 0.12f, 128, 40, 40);
  EXPECT_EQ(table[40], 0);
  weight_Initialize_c(table.data(), 0.08f, 128, 40, 40);
  EXPECT_EQ(table[40], 1025);
  // ... and so does the not-a-number distance at the centre.
  weight_Initialize(table.data(), 0.12f, 128, 128, 128);
  EXPECT_EQ(table[128], 0);
  weight_Initialize_c(table.data(), 0.08f, 128, 128, 128);
  EXPECT_EQ(table[128], 1025);
  EXPECT_EQ(table[39], 7);
  EXPECT_EQ(table[41], 7);
}

}  // namespace
}  // namespace tavo
