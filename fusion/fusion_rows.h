// The luma fusion's row functions as one table (the shape: platform/row_sets.h):
// the pyramid rows (fusion/pyramid_rows.h) and the blending rows
// (fusion/blend_rows.h). The portable rows define the result; every
// instruction-set row gives the same bytes.
#pragma once

#include "fusion/blend_rows.h"
#include "fusion/pyramid_rows.h"

namespace tavo {

struct FusionRows {
  ReduceHRow<uint16_t>* reduce_h;
  ReduceHRow<uint8_t>* reduce_h_luma;
  ReduceVRow* reduce_v;
  // The same for rows of at most kLumaFixedMax, as every level of a crop's
  // pyramid holds: their sums, at most 16 x 4080 + 8, fit 16-bit lanes.
  ReduceHRow<uint16_t>* reduce_h_pyramid;
  ReduceVRow* reduce_v_pyramid;
  ExpandHRow<uint16_t>* expand_h_unsigned;
  ExpandHRow<int16_t>* expand_h_signed;
  LaplacianEvenRow* laplacian_even;
  LaplacianOddRow* laplacian_odd;
  CollapseEvenRow* collapse_even;
  CollapseOddRow* collapse_odd;
  BlendRowFn blend_border;
  BlendRowFn blend_interior;
  const char* set;  // the widest set applied (platform::CpuSetName)
  bool operator==(const FusionRows&) const = default;
};

void InitFusionRows_C(FusionRows* rows);
#if defined(__x86_64__)
void InitFusionRows_AVX2(FusionRows* rows);
void InitFusionRows_AVX512(FusionRows* rows);
#endif
#if defined(__aarch64__)
void InitFusionRows_NEON(FusionRows* rows);
#endif

// The rows of the sets on now (platform/cpu.h).
FusionRows GetFusionRows();

}  // namespace tavo
