#include "chroma/chroma_rows.h"

#include "platform/fixed_point_mean.h"
#include "platform/row_sets.h"

namespace tavo {

void build_chroma_weights(const uint16_t* lut, int32_t frames, ChromaWeights* weights) {
  for (int i = 0; i < kChromaWeights; ++i) {
    weights->w[i] = static_cast<int16_t>(lut[i]);
    weights->low[i] = static_cast<uint8_t>(lut[i]);
    weights->high[i] = static_cast<uint8_t>(lut[i] >> 8);
  }
  weights->positive = weights_stay_positive(weights->w, frames, 255);  // samples of at most 255
}

void ChromaRow_C(const ChromaRowArgs& row, uint8_t* out, int32_t width) {
  const ChromaFrames<0> frames(row);
  const int32_t grouped = width / 8 * 8;
  for (int32_t x = 0; x < grouped; ++x) out[x] = chroma_sample<chroma_mean_grouped>(frames, row.weights->w, x);
  chroma_exact_tail(row, out, grouped, width);
}

void ChromaPairRow_C(const ChromaRowArgs& row, uint8_t* out_u, uint8_t* out_v, int32_t pairs) {
  const ChromaFrames<0> frames(row);
  const int32_t* weights = row.weights->w;
  const int32_t grouped = pairs / 8 * 8;
  for (int32_t p = 0; p < grouped; ++p) {
    out_v[p] = chroma_sample<chroma_mean_grouped>(frames, weights, 2 * static_cast<ptrdiff_t>(p));
    out_u[p] = chroma_sample<chroma_mean_grouped>(frames, weights, 2 * static_cast<ptrdiff_t>(p) + 1);
  }
  chroma_pair_exact_tail(row, out_u, out_v, grouped, pairs);
}

void InitChromaRows_C(ChromaRows* rows) {
  rows->plane = ChromaRow_C;
  rows->pairs = ChromaPairRow_C;
}

ChromaRows GetChromaRows() {
  return platform::rows_of_sets_on<ChromaRows>(InitChromaRows_C, {
#if defined(__x86_64__)
      {platform::kCpuHasAVX2, InitChromaRows_AVX2},
      {platform::kCpuHasAVX512, InitChromaRows_AVX512},
#endif
#if defined(__aarch64__)
      {platform::kCpuHasNEON, InitChromaRows_NEON},
#endif
  });
}

}  // namespace tavo
