#include "fusion/fusion_rows.h"

namespace tavo {

void InitFusionRows_AVX512(FusionRows* rows) {
  rows->reduce_h = ReduceH_AVX512;
  rows->reduce_h_luma = ReduceHLuma_AVX512;
  rows->reduce_h_pyramid = ReduceHPyramid_AVX512;
  rows->reduce_v_pyramid = ReduceVPyramid_AVX512;
  rows->laplacian_even = LaplacianEven_AVX512;
  rows->laplacian_odd = LaplacianOdd_AVX512;
  rows->collapse_odd = CollapseOdd_AVX512;
  rows->blend_border = BlendBorderRow_AVX512;
  rows->blend_interior = BlendInteriorRow_AVX512;
}

}  // namespace tavo
