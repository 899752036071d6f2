#include "align/align_rows.h"

namespace tavo {

void InitAlignRows_AVX512(AlignRows* rows) {
  rows->count_above = CountAboveRow_AVX512;
}

}  // namespace tavo
