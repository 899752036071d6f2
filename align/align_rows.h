// The registration's row functions as one table (the shape: platform/row_sets.h).
// The portable rows define the result; every instruction-set row gives the
// same bytes.
#pragma once

#include "align/mismatch_rows.h"
#include "align/threshold_rows.h"
#include "align/warp_rows.h"
#include "align/wavelet_rows.h"

namespace tavo {

struct AlignRows {
  MismatchRowsFn mismatch;
  WidenX16RowFn widen_x16;
  SplitPairsRowFn split_pairs;
  MergePairsRowFn merge_pairs;
  WaveletMainRowFn wavelet_main;  // for thresholds 0 ... 255; others take WaveletMainRow_C
  CountAboveRowFn count_above;
  const char* set;  // the widest set applied (platform::CpuSetName)
  bool operator==(const AlignRows&) const = default;
};

void InitAlignRows_C(AlignRows* rows);
#if defined(__x86_64__)
void InitAlignRows_SSE41(AlignRows* rows);
void InitAlignRows_AVX2(AlignRows* rows);
void InitAlignRows_AVX512(AlignRows* rows);
#endif
#if defined(__aarch64__)
void InitAlignRows_NEON(AlignRows* rows);
#endif

// The rows of the sets on now (platform/cpu.h).
AlignRows GetAlignRows();

// The wavelet main row for a threshold: the table's for a threshold of a byte,
// which the vector rows take, the portable row for any other.
inline WaveletMainRowFn WaveletMainRowFor(const AlignRows& rows, int32_t threshold) {
  return threshold >= 0 && threshold <= 255 ? rows.wavelet_main : WaveletMainRow_C;
}

}  // namespace tavo
