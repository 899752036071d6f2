#include "fusion/fusion_rows.h"

namespace tavo {

void InitFusionRows_NEON(FusionRows* rows) {
  rows->reduce_h = ReduceH_NEON;
  rows->reduce_h_luma = ReduceHLuma_NEON;
  rows->reduce_v = ReduceV_NEON;
  rows->reduce_h_pyramid = ReduceHPyramid_NEON;
  rows->reduce_v_pyramid = ReduceVPyramid_NEON;
  rows->expand_h_unsigned = ExpandHUnsigned_NEON;
  rows->expand_h_signed = ExpandHSigned_NEON;
  rows->laplacian_even = LaplacianEven_NEON;
  rows->laplacian_odd = LaplacianOdd_NEON;
  rows->collapse_even = CollapseEven_NEON;
  rows->collapse_odd = CollapseOdd_NEON;
  rows->blend_border = BlendBorderRow_NEON;
  rows->blend_interior = BlendInteriorRow_NEON;
}

}  // namespace tavo
