#include "fusion/fusion_rows.h"

namespace tavo {

void InitFusionRows_AVX2(FusionRows* rows) {
  rows->reduce_h = ReduceH_AVX2;
  rows->reduce_h_luma = ReduceHLuma_AVX2;
  rows->reduce_v = ReduceV_AVX2;
  rows->reduce_h_pyramid = ReduceHPyramid_AVX2;
  rows->reduce_v_pyramid = ReduceVPyramid_AVX2;
  rows->expand_h_unsigned = ExpandHUnsigned_AVX2;
  rows->expand_h_signed = ExpandHSigned_AVX2;
  rows->laplacian_even = LaplacianEven_AVX2;
  rows->laplacian_odd = LaplacianOdd_AVX2;
  rows->collapse_even = CollapseEven_AVX2;
  rows->collapse_odd = CollapseOdd_AVX2;
  rows->blend_border = BlendBorderRow_AVX2;
  rows->blend_interior = BlendInteriorRow_AVX2;
}

}  // namespace tavo
