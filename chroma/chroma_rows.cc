#include "chroma/chroma_rows.h"

#include "platform/fixed_point_mean.h"
#include "platform/row_sets.h"

namespace tavo {

void build_chroma_weights(const uint16_t* lut, int32_t* weights) {
  for (int i = 0; i < kChromaWeights; ++i) weights[i] = static_cast<int16_t>(lut[i]);
}

bool chroma_weights_positive(const int32_t* weights, int32_t frames) {
  return weights_stay_positive(weights, frames, 255);  // samples of at most 255
}

namespace {

// W = sum of w_f, S = sum of w_f * c_f over the frames' bytes at `at` (wrapping).
inline void weight_sums(const ChromaRowArgs& row, ptrdiff_t at, uint32_t& w_sum, uint32_t& s_sum) {
  uint32_t w_acc = 0, s_acc = 0;
  for (int32_t f = 0; f < row.frames; ++f) {
    const uint8_t c = row.src[f][at];
    const auto w = static_cast<uint32_t>(row.weights[c]);
    w_acc += w;
    s_acc += w * c;
  }
  w_sum = w_acc;
  s_sum = s_acc;
}

template <uint8_t (*kMean)(uint32_t, uint32_t)>
inline uint8_t fuse(const ChromaRowArgs& row, ptrdiff_t at) {
  uint32_t w, s;
  weight_sums(row, row.offset + at, w, s);
  return kMean(w, s);
}

}  // namespace

void ChromaGroups_C(const ChromaRowArgs& row, uint8_t* out, int32_t count) {
  for (int32_t x = 0; x < count; ++x) out[x] = fuse<chroma_mean_grouped>(row, x);
}

void ChromaPairGroups_C(const ChromaRowArgs& row, uint8_t* out_u, uint8_t* out_v, int32_t pairs) {
  for (int32_t p = 0; p < pairs; ++p) {
    out_v[p] = fuse<chroma_mean_grouped>(row, 2 * static_cast<ptrdiff_t>(p));
    out_u[p] = fuse<chroma_mean_grouped>(row, 2 * static_cast<ptrdiff_t>(p) + 1);
  }
}

void InitChromaRows_C(ChromaRows* rows) {
  rows->plane = ChromaGroups_C;
  rows->pairs = ChromaPairGroups_C;
}

ChromaRows GetChromaRows() {
  return platform::rows_of_sets_on<ChromaRows>(InitChromaRows_C, {
#if defined(__x86_64__)
      {platform::kCpuHasAVX2, InitChromaRows_AVX2},
#endif
#if defined(__aarch64__)
      {platform::kCpuHasNEON, InitChromaRows_NEON},
#endif
  });
}

void FuseChromaRow(const ChromaRowArgs& row, uint8_t* out, int32_t width, ChromaGroupsFn groups) {
  const int32_t grouped = width / 8 * 8;
  if (grouped > 0) groups(row, out, grouped);
  for (int32_t x = grouped; x < width; ++x) out[x] = fuse<chroma_mean_exact>(row, x);
}

void FuseChromaPairRow(const ChromaRowArgs& row, uint8_t* out_u, uint8_t* out_v, int32_t pairs,
                       ChromaPairGroupsFn groups) {
  const int32_t grouped = pairs / 8 * 8;
  if (grouped > 0) groups(row, out_u, out_v, grouped);
  for (int32_t p = grouped; p < pairs; ++p) {
    out_u[p] = fuse<chroma_mean_exact>(row, 2 * static_cast<ptrdiff_t>(p) + 1);
    out_v[p] = fuse<chroma_mean_exact>(row, 2 * static_cast<ptrdiff_t>(p));
  }
}

}  // namespace tavo
