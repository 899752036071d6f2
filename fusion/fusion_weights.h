// Exposure and chroma weight tables: 256 weights in units of 1/1024, indexed by
// an 8-bit sample value.
#pragma once

#include <cstdint>

namespace tavo {

inline constexpr int kWeightTableSize = 256;

// The fusion's own tables. exposure: a Gaussian of the distance from mid-grey
// 128 with 2*sigma^2 = 0.12 on a full scale of 255, truncated; chroma: 1025
// minus the rounded Gaussian with 2*sigma^2 = 0.08, smallest (1) at neutral.
void build_fusion_weight_tables(uint16_t* exposure, uint16_t* chroma);

}  // namespace tavo
