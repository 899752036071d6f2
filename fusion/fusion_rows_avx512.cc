#include "fusion/fusion_rows.h"

namespace tavo {

void InitFusionRows_AVX512(FusionRows* rows) {
  rows->blend_border = BlendBorderRow_AVX512;
  rows->blend_interior = BlendInteriorRow_AVX512;
}

}  // namespace tavo
