#include "fusion/blend_rows.h"

namespace tavo {

void build_exposure_factors(const uint16_t* lut, ExposureFactors* factors) {
  for (int i = 0; i < kExposureFactors; ++i) {
    const int16_t e = static_cast<int16_t>(lut[i]);
    const auto v = static_cast<uint16_t>(e == 0 ? 1 : e);
    factors->wide[i] = static_cast<int16_t>(v);
    factors->low[i] = static_cast<uint8_t>(v);
    factors->high[i] = static_cast<uint8_t>(v >> 8);
  }
}

bool exposure_weights_positive(const ExposureFactors& factors, int32_t frames) {
  return weights_stay_positive(factors.wide, frames, 512);  // contrast factors of at most 512
}

void BlendBorderRow_C(const BlendRowArgs& row) { blend_exact<false>(row, 0, row.width); }

void BlendInteriorRow_C(const BlendRowArgs& row) {
  if (row.width < 1) return;
  blend_exact<false>(row, 0, 1);
  if (row.width < 2) return;
  const int32_t split = 1 + (row.width - 2) / 8 * 8;
  for (int32_t x = 1; x < split; ++x) {
    uint32_t w, s;
    weight_sums<true>(row, x, w, s);
    row.out[x] = blend_mean_grouped(w, s);
  }
  blend_exact<true>(row, split, row.width - 1);
  blend_exact<false>(row, row.width - 1, row.width);
}

}  // namespace tavo
