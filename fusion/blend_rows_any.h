// The shape of the instruction-set blending rows: vectors of kStep samples
// (kStep/2, ... 8 in rows too short for them), each row's last vector, the
// narrowest that covers the rest, ending at its last sample over samples done
// already, which it gives again; the portable code, inlined, for the columns
// outside the vectors. A set file holds its vector step only and gives the
// portable bytes at every width.
// Included by the set files only.
//
// A set's Step<kFrames, kPositive>{RowSamples<kFrames>} is one vector:
// step(contrast, lanes, x, split) blends the `lanes` samples from x (contrast
// and lanes are std::bool_constant and std::integral_constant): those before
// split by the grouped rule, the others by the exact rule. The exact rule is
// asked for only when the weights are positive; otherwise the portable code
// gives those samples after the vectors.
#pragma once

#include <cstdint>
#include <type_traits>

#include "fusion/blend_rows.h"

namespace tavo {
// Local to each object (see the instruction-set flags in CMakeLists.txt).
namespace {

// Where a row's samples lie, copied out of the row once so that they stay in
// registers across the vectors: frame f's Gaussian and Laplacian samples at
// gauss(f) and lap(f); kFrames frames when the count is known at compile
// time, else (kFrames = 0) row.frames, read from the row.
template <int kFrames>
struct RowSamples {
  explicit RowSamples(const BlendRowArgs& row)
      : out(row.out), factors(row.factors), up(row.up), down(row.down), frames(kFrames) {
    for (int f = 0; f < kFrames; ++f) {
      gauss_[f] = row.gauss[f] + row.gauss_offset;
      lap_[f] = row.lap[f] + row.lap_offset;
    }
  }
  const uint16_t* gauss(int f) const { return gauss_[f]; }
  const int16_t* lap(int f) const { return lap_[f]; }
  int16_t* out;
  const ExposureFactors* factors;
  ptrdiff_t up, down;
  int32_t frames;

 private:
  const uint16_t* gauss_[kFrames];
  const int16_t* lap_[kFrames];
};

template <>
struct RowSamples<0> {
  explicit RowSamples(const BlendRowArgs& r)
      : out(r.out), factors(r.factors), up(r.up), down(r.down), frames(r.frames), row(r) {}
  const uint16_t* gauss(int f) const { return row.gauss[f] + row.gauss_offset; }
  const int16_t* lap(int f) const { return row.lap[f] + row.lap_offset; }
  int16_t* out;
  const ExposureFactors* factors;
  ptrdiff_t up, down;
  int32_t frames;

 private:
  const BlendRowArgs& row;
};

template <bool kContrast, int32_t kLanes, class Step>
[[gnu::always_inline]] inline void blend_step(Step& step, int32_t x, int32_t split) {
  step(std::bool_constant<kContrast>{}, std::integral_constant<int32_t, kLanes>{}, x, split);
}

// Samples x ... stop-1, fewer than kLanes, by one vector ending at stop, the
// narrowest that covers them.
template <bool kContrast, int32_t kLanes, class Step>
[[gnu::always_inline]] inline void last_vector(Step& step, int32_t x, int32_t stop, int32_t split) {
  if constexpr (kLanes > 8) {
    if (stop - x <= kLanes / 2) return last_vector<kContrast, kLanes / 2>(step, x, stop, split);
  }
  blend_step<kContrast, kLanes>(step, stop - kLanes, split);
}

// Interior samples x ... end-1 by the widest vectors that fit between columns
// 0 and end: whole vectors over the grouped samples, then one ending at end
// (at split when the portable code gives the exact samples).
template <int32_t kLanes, class Step>
[[gnu::always_inline]] inline void interior_vectors(const BlendRowArgs& row, int32_t end, int32_t split, int32_t& x, Step& step) {
  if (end - kLanes >= 1) {
    for (; x + kLanes <= split; x += kLanes) blend_step<true, kLanes>(step, x, split);
    const int32_t stop = row.positive_weights ? end : split;
    if (x < stop) {
      last_vector<true, kLanes>(step, x, stop, split);
      x = stop;
    }
  } else if constexpr (kLanes > 8) {
    interior_vectors<kLanes / 2>(row, end, split, x, step);
  }
}

template <int32_t kStep, class Step>
[[gnu::always_inline]] inline void interior_row(const BlendRowArgs& row, Step&& step) {
  const int32_t width = row.width;
  if (width < 1) return;
  blend_exact<false>(row, 0, 1);
  if (width < 2) return;
  const int32_t end = width - 1;
  const int32_t split = 1 + (width - 2) / 8 * 8;
  int32_t x = 1;
  interior_vectors<kStep>(row, end, split, x, step);
  blend_exact<true>(row, x, end);
  blend_exact<false>(row, end, width);
}

// Border samples by vectors when the weights are positive.
template <int32_t kLanes, class Step>
[[gnu::always_inline]] inline void border_vectors(const BlendRowArgs& row, int32_t& x, Step& step) {
  if (row.width >= kLanes) {
    for (; x + kLanes <= row.width; x += kLanes) blend_step<false, kLanes>(step, x, 0);
    if (x < row.width) {
      last_vector<false, kLanes>(step, x, row.width, 0);
      x = row.width;
    }
  } else if constexpr (kLanes > 8) {
    border_vectors<kLanes / 2>(row, x, step);
  }
}

template <int32_t kStep, class Step>
[[gnu::always_inline]] inline void border_row(const BlendRowArgs& row, Step&& step) {
  int32_t x = 0;
  if (row.positive_weights) border_vectors<kStep>(row, x, step);
  blend_exact<false>(row, x, row.width);
}

// A set's rows from its Step<kFrames, kPositive>, made for three frames (what
// captures fuse) and for other counts, with and without positive weights.
template <int32_t kStep, template <int, bool> class Step>
[[gnu::always_inline]] inline void blend_interior_any(const BlendRowArgs& row) {
  if (row.positive_weights && row.frames == 3) {
    interior_row<kStep>(row, Step<3, true>{RowSamples<3>(row)});
  } else if (row.positive_weights) {
    interior_row<kStep>(row, Step<0, true>{RowSamples<0>(row)});
  } else {
    interior_row<kStep>(row, Step<0, false>{RowSamples<0>(row)});
  }
}

template <int32_t kStep, template <int, bool> class Step>
[[gnu::always_inline]] inline void blend_border_any(const BlendRowArgs& row) {
  if (row.frames == 3) {
    border_row<kStep>(row, Step<3, true>{RowSamples<3>(row)});
  } else {
    border_row<kStep>(row, Step<0, true>{RowSamples<0>(row)});
  }
}

}  // namespace
}  // namespace tavo
