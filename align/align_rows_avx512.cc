#include "align/align_rows.h"

namespace tavo {

void InitAlignRows_AVX512(AlignRows* rows) {
  rows->mismatch = MismatchRows_AVX512;
  rows->wavelet_main = WaveletMainRow_AVX512;
  rows->count_above = CountAboveRow_AVX512;
}

}  // namespace tavo
