// The shape of the instruction-set pyramid rows: vector steps cover a row to
// its end, the last step overlapping the one before instead of leaving samples
// to scalar code, and the borders and rows shorter than a vector take the
// portable formulas inlined (fusion/pyramid_rows.h), so no portable row runs
// where a set has its own. Included by the set files only.
#pragma once

#include <cstdint>

#include "fusion/pyramid_rows.h"

namespace tavo {
// Local to each object (see the instruction-set flags in CMakeLists.txt).
namespace {

// body(i) for i = first, first + kStep, ... while a whole step lies below end,
// then once at end - kStep when samples are left: that step overlaps the one
// before and writes the same values again (the horizontal rows never write
// what they read). False, and nothing done, when fewer than kStep lie in
// [first, end).
template <int32_t kStep, class Body>
inline bool overlapping_vectors(int32_t first, int32_t end, Body&& body) {
  if (end - first < kStep) return false;
  int32_t i = first;
  for (; i + kStep <= end; i += kStep) body(i);
  if (i < end) body(end - kStep);
  return true;
}

// An elementwise row of width samples: store(x, compute(x)) for every whole
// step from 0, and the step ending at the row's end, which is computed before
// anything is stored, so that a row written in place (a collapse) reads only
// samples it has not written. False, and nothing done, on rows shorter than
// kStep.
template <int32_t kStep, class Compute, class Store>
inline bool elementwise_vectors(int32_t width, Compute&& compute, Store&& store) {
  if (width < kStep) return false;
  const int32_t last = width - kStep;
  const auto tail = compute(last);
  for (int32_t x = 0; x < last; x += kStep) store(x, compute(x));
  store(last, tail);
  return true;
}

// Horizontal reduce: column 0 and the last column by their reflections, the
// columns between by interior(first, end), which computes outputs
// [first, end) reading source samples 2 first - 2 ... 2 end, or returns false
// when the row is too short for it (the portable formulas do them then).
template <class Sample, class Interior>
inline void reduce_h_any(const Sample* src, int32_t src_width, uint16_t* dst, int32_t dst_width, Interior&& interior) {
  dst[0] = reduce_column(src, src_width, dst_width, 0);
  if (interior(1, dst_width - 1)) {
    dst[dst_width - 1] = reduce_column(src, src_width, dst_width, dst_width - 1);
  } else {
    reduce_h_tail(src, src_width, dst, dst_width, 1);
  }
}

// Horizontal expansion: fine positions 0 and 1 and the last two or three by
// the border rules, the pairs (2k, 2k + 1) between by interior(first, end),
// which computes the pairs of coarse positions [first, end) reading coarse
// samples first - 1 ... end, or returns false when the row is too short for it.
template <class Sample, class Interior>
inline void expand_h_any(const Sample* coarse, int32_t coarse_width, uint16_t* fine, int32_t fine_width,
                         Interior&& interior) {
  expand_h_head(coarse, coarse_width, fine, fine_width);
  const int32_t pairs_end = (fine_width - 2) / 2;  // pairs k with 2k + 1 < fine_width - 2
  expand_h_tail(coarse, coarse_width, fine, fine_width, interior(1, pairs_end) ? pairs_end : 1);
}

}  // namespace
}  // namespace tavo
