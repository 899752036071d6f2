#include "fusion/blend_rows.h"

#include "platform/fixed_point_mean.h"

namespace tavo {

void build_exposure_factors(const uint16_t* lut, int32_t* factors) {
  for (int i = 0; i < kExposureFactors; ++i) {
    const int32_t e = static_cast<int16_t>(lut[i]);
    factors[i] = e == 0 ? 1 : e;
  }
}

bool exposure_weights_positive(const int32_t* factors, int32_t frames) {
  return weights_stay_positive(factors, frames, 512);  // contrast factors of at most 512
}

namespace {

// Weight sums of sample x: W = sum of w_f, S = sum of w_f * L_f, both wrapping
// in 32 bits. With contrast, w_f = e_f * c_f; at the border w_f = e_f.
template <bool kContrast>
void weight_sums(const BlendRowArgs& row, int32_t x, uint32_t& w_sum, uint32_t& s_sum) {
  uint32_t w_acc = 0, s_acc = 0;
  for (int32_t f = 0; f < row.frames; ++f) {
    const uint16_t* g = row.gauss[f] + row.gauss_offset + x;
    auto w = static_cast<uint32_t>(row.factors[exposure_index(g[0])]);
    if constexpr (kContrast) w *= contrast_factor(g[-row.up], g[row.down], g[-1], g[1], g[0]);
    w_acc += w;
    s_acc += w * static_cast<uint32_t>(static_cast<int32_t>(row.lap[f][row.lap_offset + x]));
  }
  w_sum = w_acc;
  s_sum = s_acc;
}

template <bool kContrast>
int16_t blend_exact(const BlendRowArgs& row, int32_t x) {
  uint32_t w, s;
  weight_sums<kContrast>(row, x, w, s);
  return blend_mean_exact(w, s);
}

}  // namespace

void BlendGroups_C(const BlendRowArgs& row, int32_t x0, int32_t count) {
  for (int32_t x = x0; x < x0 + count; ++x) {
    uint32_t w, s;
    weight_sums<true>(row, x, w, s);
    row.out[x] = blend_mean_grouped(w, s);
  }
}

void BlendBorderRow(const BlendRowArgs& row) {
  for (int32_t x = 0; x < row.width; ++x) row.out[x] = blend_exact<false>(row, x);
}

void BlendInteriorRow(const BlendRowArgs& row, BlendGroupsFn groups) {
  if (row.width < 1) return;
  row.out[0] = blend_exact<false>(row, 0);
  if (row.width < 2) return;
  const int32_t grouped = (row.width - 2) / 8 * 8;
  if (grouped > 0) groups(row, 1, grouped);
  for (int32_t x = 1 + grouped; x < row.width - 1; ++x) row.out[x] = blend_exact<true>(row, x);
  row.out[row.width - 1] = blend_exact<false>(row, row.width - 1);
}

}  // namespace tavo
