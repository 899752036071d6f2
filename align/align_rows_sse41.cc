#include "align/align_rows.h"

namespace tavo {

void InitAlignRows_SSE41(AlignRows* rows) {
  rows->mismatch = MismatchRows_SSE41;
  rows->widen_x16 = WidenX16Row_SSE41;
  rows->split_pairs = SplitPairsRow_SSE41;
  rows->wavelet_main = WaveletMainRow_SSE41;
}

}  // namespace tavo
