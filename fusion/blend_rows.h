// Row functions of pyramid blending. One fused Laplacian sample is the weighted
// mean of the frames' co-sited Laplacian samples; a frame's weight is an
// exposure factor looked up from its Gaussian sample, times (inside the level)
// a contrast factor from the discrete Laplacian of the Gaussian level.
//
// The portable rows here are the reference; the _NEON, _AVX2 and _AVX512 rows
// give the same bytes, the runs of eight by the grouped rule included.
#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/fixed_point_mean.h"

namespace tavo {

inline constexpr int kExposureFactors = 256;

// The exposure factors of a weight table: entries read as signed 16 bits, an
// entry of 0 taken as 1. Held as 32-bit values, and as the low and high bytes
// of the 16-bit values for rows that look them up by byte.
struct ExposureFactors {
  alignas(64) int32_t wide[kExposureFactors];
  alignas(64) uint8_t low[kExposureFactors];
  alignas(64) uint8_t high[kExposureFactors];
};

void build_exposure_factors(const uint16_t* lut, ExposureFactors* factors);

// One row: frame f's samples of the row are lap[f][lap_offset + x] and
// gauss[f][gauss_offset + x]; the Gaussian samples above and below a sample lie
// `up` elements before it and `down` elements after it (a row stride in a
// whole level; other distances where the rows are kept in a rolling window,
// the same for every frame).
struct BlendRowArgs {
  int16_t* out;                    // the fused row
  const int16_t* const* lap;       // per frame: Laplacian samples
  const uint16_t* const* gauss;    // per frame: Gaussian samples
  const ExposureFactors* factors;
  ptrdiff_t lap_offset;
  ptrdiff_t gauss_offset;
  ptrdiff_t up;
  ptrdiff_t down;
  int32_t frames;
  int32_t width;
  // Every weight sum lies in [1, 2^31): set by exposure_weights_positive(),
  // it lets a vector row skip the zero, sign and overflow cases of both rules.
  bool positive_weights = false;
};

// True when every factor is at least 1 and `frames` weights of a factor times
// a contrast of at most 512 cannot wrap a 32-bit sum.
bool exposure_weights_positive(const ExposureFactors& factors, int32_t frames);

// A whole row of the level: a border row (the level's top or bottom row) is
// weighted by exposure alone and divided by the exact rule; an interior row
// weights columns 0 and width-1 likewise and its other samples by exposure and
// contrast, columns 1 ... 8*floor((width-2)/8) divided by the grouped rule,
// the rest by the exact rule.
using BlendRowFn = void (*)(const BlendRowArgs& row);
void BlendBorderRow_C(const BlendRowArgs& row);
void BlendInteriorRow_C(const BlendRowArgs& row);
#if defined(__aarch64__)
void BlendBorderRow_NEON(const BlendRowArgs& row);
void BlendInteriorRow_NEON(const BlendRowArgs& row);
#endif
#if defined(__x86_64__)
void BlendBorderRow_AVX2(const BlendRowArgs& row);
void BlendInteriorRow_AVX2(const BlendRowArgs& row);
void BlendBorderRow_AVX512(const BlendRowArgs& row);
void BlendInteriorRow_AVX512(const BlendRowArgs& row);
#endif

// Inline helpers local to each object (see the instruction-set flags in
// CMakeLists.txt): the portable rows' arithmetic, which the vector rows inline
// for the samples outside their vectors.
namespace {

// Table index of a Gaussian sample: the nearest 8-bit luma value, (g + 8) >> 4,
// kept inside the table for samples above 4087.
constexpr uint32_t exposure_index(uint16_t g) {
  const uint32_t i = (static_cast<uint32_t>(g) + 8) >> 4;
  return i > 255 ? 255 : i;
}

// Contrast factor of a sample from its four neighbours, in 16-bit arithmetic:
// d = up + down + left + right - 4*centre, |d| >> 6, at least 1. For samples of
// 0 ... 4080 it lies in 1 ... 255.
constexpr uint32_t contrast_factor(uint16_t up, uint16_t down, uint16_t left, uint16_t right,
                                   uint16_t centre) {
  const auto sum = static_cast<uint16_t>(up + down + left + right);
  const auto d = static_cast<int16_t>(static_cast<uint16_t>(sum - static_cast<uint16_t>(centre << 2)));
  const auto magnitude = static_cast<uint16_t>(d < 0 ? -static_cast<int32_t>(d) : d);
  const uint32_t c = magnitude >> 6;
  return c == 0 ? 1 : c;
}

// Weight sums of sample x: W = sum of w_f, S = sum of w_f * L_f, both wrapping
// in 32 bits. With contrast, w_f = e_f * c_f; at the border w_f = e_f.
template <bool kContrast>
[[gnu::always_inline]] inline void weight_sums(const BlendRowArgs& row, int32_t x, uint32_t& w_sum,
                                               uint32_t& s_sum) {
  uint32_t w_acc = 0, s_acc = 0;
  for (int32_t f = 0; f < row.frames; ++f) {
    const uint16_t* g = row.gauss[f] + row.gauss_offset + x;
    auto w = static_cast<uint32_t>(row.factors->wide[exposure_index(g[0])]);
    if constexpr (kContrast) w *= contrast_factor(g[-row.up], g[row.down], g[-1], g[1], g[0]);
    w_acc += w;
    s_acc += w * static_cast<uint32_t>(static_cast<int32_t>(row.lap[f][row.lap_offset + x]));
  }
  w_sum = w_acc;
  s_sum = s_acc;
}

// Samples x0 ... x1-1 of the row by the exact rule.
template <bool kContrast>
[[gnu::always_inline]] inline void blend_exact(const BlendRowArgs& row, int32_t x0, int32_t x1) {
  for (int32_t x = x0; x < x1; ++x) {
    uint32_t w, s;
    weight_sums<kContrast>(row, x, w, s);
    row.out[x] = blend_mean_exact(w, s);
  }
}

}  // namespace
}  // namespace tavo
