#include "fusion/fusion_rows.h"

#include "platform/row_sets.h"

namespace tavo {

void InitFusionRows_C(FusionRows* rows) {
  rows->reduce_h = ReduceH_C;
  rows->reduce_h_luma = ReduceHLuma_C;
  rows->reduce_v = ReduceV_C;
  rows->reduce_h_pyramid = ReduceH_C;
  rows->reduce_v_pyramid = ReduceV_C;
  rows->expand_h_unsigned = ExpandHUnsigned_C;
  rows->expand_h_signed = ExpandHSigned_C;
  rows->laplacian_even = LaplacianEven_C;
  rows->laplacian_odd = LaplacianOdd_C;
  rows->collapse_even = CollapseEven_C;
  rows->collapse_odd = CollapseOdd_C;
  rows->blend_border = BlendBorderRow_C;
  rows->blend_interior = BlendInteriorRow_C;
}

FusionRows GetFusionRows() {
  return platform::rows_of_sets_on<FusionRows>(InitFusionRows_C, {
#if defined(__x86_64__)
      {platform::kCpuHasAVX2, InitFusionRows_AVX2},
      {platform::kCpuHasAVX512, InitFusionRows_AVX512},
#endif
#if defined(__aarch64__)
      {platform::kCpuHasNEON, InitFusionRows_NEON},
#endif
  });
}

}  // namespace tavo
