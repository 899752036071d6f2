// The shape of the instruction-set pyramid rows: a vector body runs on whole
// vectors and the portable row's own code does the rest (the heads and tails
// at the borders and the samples short of a vector), so a set file holds its
// vector steps only and gives the portable bytes at every width. Included by
// the set files only.
#pragma once

#include <cstdint>
#include <type_traits>

#include "fusion/pyramid_rows.h"

namespace tavo {
// Local to each object (see the instruction-set flags in CMakeLists.txt).
namespace {

// body(x) for x = 0, kStep, ... while a whole vector of kStep samples lies
// below n; returns where the vectors end, for the portable row to go on from.
template <int32_t kStep, class Body>
inline int32_t whole_vectors(int32_t n, Body&& body) {
  int32_t x = 0;
  for (; x + kStep <= n; x += kStep) body(x);
  return x;
}

// Horizontal reduce: column 0 by its reflection, body(j) for outputs
// j ... j + kStep - 1 from j = 1 while they lie before the last column and
// read samples 2j - 2 ... 2j + 2 kStep + 1 inside the row, then the rest as
// the portable row.
template <int32_t kStep, class Sample, class Body>
inline void reduce_h_any(const Sample* src, int32_t src_width, uint16_t* dst, int32_t dst_width, Body&& body) {
  dst[0] = reduce_column(src, src_width, dst_width, 0);
  int32_t j = 1;
  for (; j + kStep <= dst_width - 1 && 2 * j + 2 * kStep + 2 <= src_width; j += kStep) body(j);
  reduce_h_tail(src, src_width, dst, dst_width, j);
}

// Vertical reduce: body(x) on whole vectors, the rest by the portable row.
template <int32_t kStep, class Body>
inline void reduce_v_any(const uint16_t* const* rows, uint16_t* dst, int32_t width, Body&& body) {
  const int32_t x = whole_vectors<kStep>(width, body);
  const uint16_t* rest[5] = {rows[0] + x, rows[1] + x, rows[2] + x, rows[3] + x, rows[4] + x};
  ReduceV_C(rest, dst + x, width - x);
}

// Horizontal expansion: fine positions 0 and 1, body(k) for the pairs
// (2k, 2k + 1) of kStep coarse positions from k = 1 while they lie before the
// last two fine positions, then the rest as the portable row.
template <int32_t kStep, class Sample, class Body>
inline void expand_h_any(const Sample* coarse, int32_t coarse_width, uint16_t* fine, int32_t fine_width,
                         Body&& body) {
  expand_h_head(coarse, coarse_width, fine, fine_width);
  const int32_t pairs_end = (fine_width - 2) / 2;  // pairs k with 2k + 1 < fine_width - 2
  int32_t k = 1;
  for (; k + kStep <= pairs_end; k += kStep) body(k);
  expand_h_tail(coarse, coarse_width, fine, fine_width, k);
}

// Collapse rows: block(with_luma, x) on whole vectors, the luma variant (a
// std::bool_constant) chosen once per row; returns where the vectors end.
template <int32_t kStep, class Block>
inline int32_t collapse_vectors(int32_t width, bool luma, Block&& block) {
  if (luma) return whole_vectors<kStep>(width, [&](int32_t x) { block(std::true_type{}, x); });
  return whole_vectors<kStep>(width, [&](int32_t x) { block(std::false_type{}, x); });
}

}  // namespace
}  // namespace tavo
