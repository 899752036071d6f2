// Row functions of pyramid blending. One fused Laplacian sample is the weighted
// mean of the frames' co-sited Laplacian samples; a frame's weight is an
// exposure factor looked up from its Gaussian sample, times (inside the level)
// a contrast factor from the discrete Laplacian of the Gaussian level.
//
// The portable functions here are the reference; BlendGroups_NEON and
// BlendGroups_AVX2 give the same bytes for the runs of eight.
#pragma once

#include <cstddef>
#include <cstdint>

namespace tavo {

inline constexpr int kExposureFactors = 256;

// The exposure factors of a weight table: entries read as signed 16 bits, an
// entry of 0 taken as 1.
void build_exposure_factors(const uint16_t* lut, int32_t* factors);

// Inline helpers local to each object (see the instruction-set flags in
// CMakeLists.txt).
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

}  // namespace

// One row: frame f's samples of the row are lap[f][lap_offset + x] and
// gauss[f][gauss_offset + x]; the Gaussian samples above and below a sample lie
// `up` elements before it and `down` elements after it (a row stride in a
// whole level; other distances where the rows are kept in a rolling window,
// the same for every frame).
struct BlendRowArgs {
  int16_t* out;                    // the fused row
  const int16_t* const* lap;       // per frame: Laplacian samples
  const uint16_t* const* gauss;    // per frame: Gaussian samples
  const int32_t* factors;          // kExposureFactors exposure factors
  ptrdiff_t lap_offset;
  ptrdiff_t gauss_offset;
  ptrdiff_t up;
  ptrdiff_t down;
  int32_t frames;
  int32_t width;
  // Every weight sum lies in [1, 2^31): set by exposure_weights_positive(),
  // it lets a vector row skip the zero, sign and overflow cases of the rule.
  bool positive_weights = false;
};

// True when every factor is at least 1 and `frames` weights of a factor times
// a contrast of at most 512 cannot wrap a 32-bit sum.
bool exposure_weights_positive(const int32_t* factors, int32_t frames);

// Grouped rule with exposure and contrast weights for samples x0 ... x0+count-1
// of an interior row; count is a multiple of 8.
using BlendGroupsFn = void (*)(const BlendRowArgs& row, int32_t x0, int32_t count);
void BlendGroups_C(const BlendRowArgs& row, int32_t x0, int32_t count);
#if defined(__aarch64__)
void BlendGroups_NEON(const BlendRowArgs& row, int32_t x0, int32_t count);
#endif
#if defined(__x86_64__)
void BlendGroups_AVX2(const BlendRowArgs& row, int32_t x0, int32_t count);
#endif

// A border row (the level's top or bottom row): every sample by the exact rule
// with exposure weights alone.
void BlendBorderRow(const BlendRowArgs& row);
// An interior row: columns 0 and width-1 as border samples, the runs of eight
// from column 1 by `groups`, the remaining columns by the exact rule with
// contrast weights.
void BlendInteriorRow(const BlendRowArgs& row, BlendGroupsFn groups);

}  // namespace tavo
