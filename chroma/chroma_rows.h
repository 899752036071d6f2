// Row functions of chroma fusion. An output chroma sample is the mean of the
// frames' co-sited samples, each weighted by the chroma table at its own value,
// so the most saturated frame dominates. The first 8*floor(n/8) samples of a
// row are divided by the grouped rule, the rest by the exact rule
// (platform/fixed_point_mean.h).
//
// The portable functions are the reference; the _NEON and _AVX2 variants give
// the same bytes for the runs of eight.
#pragma once

#include <cstddef>
#include <cstdint>

namespace tavo {

inline constexpr int kChromaWeights = 256;

// The chroma table as weights: entries read as signed 16 bits.
void build_chroma_weights(const uint16_t* lut, int32_t* weights);

// One row: frame f's bytes of the row start at src[f] + offset.
struct ChromaRowArgs {
  const uint8_t* const* src;
  const int32_t* weights;  // kChromaWeights weights
  ptrdiff_t offset;
  int32_t frames;
  // Every weight lies in 1 ... 32767 and no sum wraps: set by
  // chroma_weights_positive(), it lets a vector row skip those cases.
  bool positive_weights = false;
};

// True when every weight lies in 1 ... 32767 and `frames` samples of 255
// weighted by the largest cannot wrap a 32-bit sum.
bool chroma_weights_positive(const int32_t* weights, int32_t frames);

// Planar: grouped rule for samples 0 ... count-1 (count a multiple of 8).
using ChromaGroupsFn = void (*)(const ChromaRowArgs& row, uint8_t* out, int32_t count);
// Interleaved V,U pairs: grouped rule for pairs 0 ... pairs-1 (a multiple of
// 8); first bytes go to out_v, second bytes to out_u.
using ChromaPairGroupsFn = void (*)(const ChromaRowArgs& row, uint8_t* out_u, uint8_t* out_v,
                                    int32_t pairs);

void ChromaGroups_C(const ChromaRowArgs& row, uint8_t* out, int32_t count);
void ChromaPairGroups_C(const ChromaRowArgs& row, uint8_t* out_u, uint8_t* out_v, int32_t pairs);
#if defined(__aarch64__)
void ChromaGroups_NEON(const ChromaRowArgs& row, uint8_t* out, int32_t count);
void ChromaPairGroups_NEON(const ChromaRowArgs& row, uint8_t* out_u, uint8_t* out_v, int32_t pairs);
#endif
#if defined(__x86_64__)
void ChromaGroups_AVX2(const ChromaRowArgs& row, uint8_t* out, int32_t count);
void ChromaPairGroups_AVX2(const ChromaRowArgs& row, uint8_t* out_u, uint8_t* out_v, int32_t pairs);
#endif

// The chroma fusion's rows as one table (the shape: platform/row_sets.h).
struct ChromaRows {
  ChromaGroupsFn plane;
  ChromaPairGroupsFn pairs;
  const char* set;  // the widest set applied (platform::CpuSetName)
  bool operator==(const ChromaRows&) const = default;
};

void InitChromaRows_C(ChromaRows* rows);
#if defined(__x86_64__)
void InitChromaRows_AVX2(ChromaRows* rows);
#endif
#if defined(__aarch64__)
void InitChromaRows_NEON(ChromaRows* rows);
#endif

// The rows of the sets on now (platform/cpu.h).
ChromaRows GetChromaRows();

// A whole row: the runs of eight by the given variant, the tail by the exact
// rule (in a pair, the U sample first).
void FuseChromaRow(const ChromaRowArgs& row, uint8_t* out, int32_t width, ChromaGroupsFn groups);
void FuseChromaPairRow(const ChromaRowArgs& row, uint8_t* out_u, uint8_t* out_v, int32_t pairs,
                       ChromaPairGroupsFn groups);

}  // namespace tavo
