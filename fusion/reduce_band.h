// One band of the Gaussian reduction: level l + 1 is level l filtered with
// 1-4-6-4-1 in both directions and subsampled by two, rounded after each pass.
//
// A band filters its source rows horizontally, plus the halo rows it needs
// from its neighbours (two above, one below), and combines them vertically.
// The horizontally filtered rows live in a window of five rows: destination
// row i reads rows 2i - 2 ... 2i + 2, and the next one reads two rows further
// down, so each source row is filtered once and the band's working set stays
// in cache. The first band reflects at the top of the image, the last band at
// the bottom, so every band writes exactly the rows a single pass over the
// whole level would.
#pragma once

#include <cstddef>
#include <cstdint>

#include "fusion/pyramid_rows.h"
#include "platform/memory.h"

namespace tavo {

// A run of destination rows of a reduction, first ... first + count - 1 of a
// level of dst_height rows reduced from src_height rows, and the source rows
// it filters (halo rows aside): two a destination row, the rest of the level
// for the last run.
struct ReduceRows {
  int32_t src_first, src_rows, dst_first, dst_rows;
  bool first, last;  // the run holds the level's top, bottom row
};
constexpr ReduceRows reduce_rows_of(int32_t first, int32_t count, int32_t src_height, int32_t dst_height) {
  const bool last = first + count >= dst_height;
  return {2 * first, last ? src_height - 2 * first : 2 * count, first, count, first == 0, last};
}

// horizontal(s, out) filters the band's source row s horizontally into the
// dst_width samples at out; s runs over -2 ... src_rows where the band has
// neighbours (its halo rows) and over 0 ... src_rows - 1 otherwise. `vertical`
// is the pyramid rows' reduce_v, or reduce_v_pyramid where the samples are a
// crop pyramid's. 0, or -1 when the window cannot be taken (nothing is
// written).
using VerticalReduceRow = ReduceVRow*;
template <class HorizontalRow>
int32_t reduce_band(HorizontalRow horizontal, VerticalReduceRow vertical, int32_t src_rows, uint16_t* dst,
                    int32_t dst_width, int32_t dst_rows, bool first, bool last) {
  constexpr int32_t kWindow = 5;
  const size_t row_samples = static_cast<size_t>(dst_width);
  void* block = platform::mem_alloc(kWindow * (sizeof(int32_t) + sizeof(uint16_t) * row_samples));
  if (block == nullptr) return -1;
  auto* tags = static_cast<int32_t*>(block);  // source row held by each slot
  auto* window = reinterpret_cast<uint16_t*>(tags + kWindow);
  for (int32_t s = 0; s < kWindow; ++s) tags[s] = INT32_MIN;
  // Horizontally filtered source row r (r >= -2), filtered when first asked for.
  auto t = [&](int32_t r) -> const uint16_t* {
    const int32_t s = (r + 2) % kWindow;
    uint16_t* slot = window + static_cast<ptrdiff_t>(s) * dst_width;
    if (tags[s] != r) {
      horizontal(r, slot);
      tags[s] = r;
    }
    return slot;
  };

  for (int32_t i = 0; i < dst_rows; ++i) {
    const int32_t c = 2 * i;
    const uint16_t* taps[5];
    if (first && i == 0) {
      // Top of the image: rows -2, -1 reflect to 2, 1.
      taps[2] = t(c);
      taps[1] = taps[3] = t(c + 1);
      taps[0] = taps[4] = t(c + 2);
    } else if (last && i == dst_rows - 1) {
      taps[0] = t(c - 2);
      taps[1] = t(c - 1);
      taps[2] = t(c);
      if ((src_rows & 1) == 0) {
        taps[3] = t(c + 1);
        taps[4] = taps[2];  // row n reflects to n - 2
      } else {
        taps[3] = taps[1];  // rows n, n + 1 reflect to n - 2, n - 3
        taps[4] = taps[0];
      }
    } else {
      for (int32_t k = 0; k < 5; ++k) taps[k] = t(c - 2 + k);
    }
    vertical(taps, dst + static_cast<ptrdiff_t>(i) * dst_width, dst_width);
  }

  platform::mem_free(block);
  return 0;
}

}  // namespace tavo
