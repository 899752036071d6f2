#include "align/align_rows.h"

namespace tavo {

void InitAlignRows_NEON(AlignRows* rows) {
  rows->mismatch = MismatchRows_NEON;
  rows->widen_x16 = WidenX16Row_NEON;
  rows->split_pairs = SplitPairsRow_NEON;
  rows->merge_pairs = MergePairsRow_NEON;
  rows->wavelet_main = WaveletMainRow_NEON;
  rows->count_above = CountAboveRow_NEON;
}

}  // namespace tavo
