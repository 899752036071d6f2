#include "align/align_rows.h"

namespace tavo {

void InitAlignRows_AVX2(AlignRows* rows) {
  rows->mismatch = MismatchRows_AVX2;
  rows->widen_x16 = WidenX16Row_AVX2;
  rows->merge_pairs = MergePairsRow_AVX2;
  rows->wavelet_main = WaveletMainRow_AVX2;
  rows->count_above = CountAboveRow_AVX2;
}

}  // namespace tavo
