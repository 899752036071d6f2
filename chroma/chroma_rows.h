// Row functions of chroma fusion. An output chroma sample is the mean of the
// frames' co-sited samples, each weighted by the chroma table at its own value,
// so the most saturated frame dominates. The first 8*floor(n/8) samples of a
// row are divided by the grouped rule, the rest by the exact rule
// (platform/fixed_point_mean.h).
//
// A row function fuses a whole row, both rules. The portable functions are the
// reference; the _NEON, _AVX2 and _AVX512 variants give the same bytes.
#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/fixed_point_mean.h"

namespace tavo {

inline constexpr int kChromaWeights = 256;

// The chroma table as the rows read it, made once per call of a dispatcher.
struct ChromaWeights {
  int32_t w[kChromaWeights];  // the entries read as signed 16 bits
  // The entries' low and high bytes: tables for byte look-ups (TBL, VPERMB).
  alignas(64) uint8_t low[kChromaWeights];
  alignas(64) uint8_t high[kChromaWeights];
  // Every weight lies in 1 ... 32767 and `frames` samples of 255 weighted by
  // the largest cannot wrap a 32-bit sum: a vector row may skip those cases.
  bool positive;
};

void build_chroma_weights(const uint16_t* lut, int32_t frames, ChromaWeights* weights);

// One row: frame f's bytes of the row start at src[f] + offset.
struct ChromaRowArgs {
  const uint8_t* const* src;
  const ChromaWeights* weights;  // built for `frames`
  ptrdiff_t offset;
  int32_t frames;
};

// Planar: `width` samples into out.
using ChromaRowFn = void (*)(const ChromaRowArgs& row, uint8_t* out, int32_t width);
// Interleaved V,U pairs: `pairs` pairs; first bytes go to out_v, second bytes
// to out_u.
using ChromaPairRowFn = void (*)(const ChromaRowArgs& row, uint8_t* out_u, uint8_t* out_v, int32_t pairs);

void ChromaRow_C(const ChromaRowArgs& row, uint8_t* out, int32_t width);
void ChromaPairRow_C(const ChromaRowArgs& row, uint8_t* out_u, uint8_t* out_v, int32_t pairs);
#if defined(__aarch64__)
void ChromaRow_NEON(const ChromaRowArgs& row, uint8_t* out, int32_t width);
void ChromaPairRow_NEON(const ChromaRowArgs& row, uint8_t* out_u, uint8_t* out_v, int32_t pairs);
#endif
#if defined(__x86_64__)
void ChromaRow_AVX2(const ChromaRowArgs& row, uint8_t* out, int32_t width);
void ChromaPairRow_AVX2(const ChromaRowArgs& row, uint8_t* out_u, uint8_t* out_v, int32_t pairs);
void ChromaRow_AVX512(const ChromaRowArgs& row, uint8_t* out, int32_t width);
void ChromaPairRow_AVX512(const ChromaRowArgs& row, uint8_t* out_u, uint8_t* out_v, int32_t pairs);
#endif

// The chroma fusion's rows as one table (the shape: platform/row_sets.h).
struct ChromaRows {
  ChromaRowFn plane;
  ChromaPairRowFn pairs;
  const char* set;  // the widest set applied (platform::CpuSetName)
  bool operator==(const ChromaRows&) const = default;
};

void InitChromaRows_C(ChromaRows* rows);
#if defined(__x86_64__)
void InitChromaRows_AVX2(ChromaRows* rows);
void InitChromaRows_AVX512(ChromaRows* rows);
#endif
#if defined(__aarch64__)
void InitChromaRows_NEON(ChromaRows* rows);
#endif

// The rows of the sets on now (platform/cpu.h).
ChromaRows GetChromaRows();

// Inline helpers local to each object (see the instruction-set flags in
// CMakeLists.txt).
namespace {

// The frames' bytes of a row from its offset, kept in the object when their
// count is fixed (a row's stores could otherwise alias row.src).
template <int kFrames>
struct ChromaFrames {
  const ChromaRowArgs& row;
  const uint8_t* at[kFrames > 0 ? kFrames : 1];
  explicit ChromaFrames(const ChromaRowArgs& r) : row(r) {
    for (int f = 0; f < kFrames; ++f) at[f] = r.src[f] + r.offset;
  }
  int32_t count() const { return kFrames > 0 ? kFrames : row.frames; }
  const uint8_t* operator[](int32_t f) const { return kFrames > 0 ? at[f] : row.src[f] + row.offset; }
};

// The rule of one sample from the frames' bytes at `at`: W = sum of w_f and
// S = sum of w_f * c_f, wrapping.
template <uint8_t (*kMean)(uint32_t, uint32_t), int kFrames>
inline uint8_t chroma_sample(const ChromaFrames<kFrames>& frames, const int32_t* weights, ptrdiff_t at) {
  uint32_t w_sum = 0, s_sum = 0;
  const int32_t n = frames.count();
#pragma GCC unroll 4
  for (int32_t f = 0; f < n; ++f) {
    const uint8_t c = frames[f][at];
    const auto w = static_cast<uint32_t>(weights[c]);
    w_sum += w;
    s_sum += w * c;
  }
  return kMean(w_sum, s_sum);
}

// The exact rule for the samples `from` ... width-1 of a planar row.
template <int kFrames = 0>
inline void chroma_exact_tail(const ChromaRowArgs& row, uint8_t* out, int32_t from, int32_t width) {
  const ChromaFrames<kFrames> frames(row);
  for (int32_t x = from; x < width; ++x) out[x] = chroma_sample<chroma_mean_exact>(frames, row.weights->w, x);
}

// The exact rule for the pairs `from` ... pairs-1 of a pair row, in each pair
// the U sample first.
template <int kFrames = 0>
inline void chroma_pair_exact_tail(const ChromaRowArgs& row, uint8_t* out_u, uint8_t* out_v, int32_t from,
                                   int32_t pairs) {
  const ChromaFrames<kFrames> frames(row);
  const int32_t* weights = row.weights->w;
  for (int32_t p = from; p < pairs; ++p) {
    out_u[p] = chroma_sample<chroma_mean_exact>(frames, weights, 2 * static_cast<ptrdiff_t>(p) + 1);
    out_v[p] = chroma_sample<chroma_mean_exact>(frames, weights, 2 * static_cast<ptrdiff_t>(p));
  }
}

}  // namespace
}  // namespace tavo
