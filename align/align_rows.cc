#include "align/align_rows.h"

#include "platform/row_sets.h"

namespace tavo {

void InitAlignRows_C(AlignRows* rows) {
  rows->mismatch = MismatchRows_C;
  rows->widen_x16 = WidenX16Row_C;
  rows->split_pairs = SplitPairsRow_C;
  rows->merge_pairs = MergePairsRow_C;
  rows->wavelet_main = WaveletMainRow_C;
  rows->count_above = CountAboveRow_C;
}

AlignRows GetAlignRows() {
  return platform::rows_of_sets_on<AlignRows>(InitAlignRows_C, {
#if defined(__x86_64__)
      {platform::kCpuHasSSE41, InitAlignRows_SSE41},
      {platform::kCpuHasAVX2, InitAlignRows_AVX2},
      {platform::kCpuHasAVX512, InitAlignRows_AVX512},
#endif
#if defined(__aarch64__)
      {platform::kCpuHasNEON, InitAlignRows_NEON},
#endif
  });
}

}  // namespace tavo
