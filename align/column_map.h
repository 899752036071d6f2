// The nearest-neighbour map of the resize: which source row or column each
// destination row or column takes, and the copy of a row through it.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>

#include "platform/arm_float.h"

namespace tavo {

// min(last, trunc(scale * d)), the source index of destination index d. The
// single-precision product decides which pixel is taken. It never decreases
// as d grows.
inline int32_t source_index(float scale, int32_t d, int32_t last) {
  return std::min(last, arm::to_s32(scale * static_cast<float>(d)));
}

// The source columns of a block of destination columns, and the same as runs
// of consecutive source columns: destination columns first ... first+length-1
// take source columns source ... source+length-1. A crop scaled back to a
// frame a little larger repeats a source column only here and there, so a
// row is a few block copies. The arrays are the holder's, one entry per
// column of the widest block it fills.
struct ColumnMap {
  struct Run {
    int32_t first, source, length;
  };
  int32_t* columns;
  Run* runs;
  int32_t block = -1;  // the first destination column of the block held
  int32_t count = 0, run_count = 0;

  // Holds the block from destination column `first` on, n columns; a map
  // serves one scale and one last source column.
  void fill(int32_t first, int32_t n, float scale, int32_t last) {
    if (block == first && count == n) return;
    block = first;
    count = n;
    for (int32_t k = 0; k < n; ++k) columns[k] = source_index(scale, first + k, last);
    run_count = 0;
    for (int32_t k = 0; k < n; ++k) {
      if (run_count > 0) {
        Run& r = runs[run_count - 1];
        if (columns[k] == r.source + r.length) {
          ++r.length;
          continue;
        }
      }
      runs[run_count++] = Run{k, columns[k], 1};
    }
  }

  // d[k] = s[columns[k]] for every column of the block.
  void copy(const uint8_t* s, uint8_t* d) const {
    if (run_count * 8 > count) {  // short runs: one sample at a time
      for (int32_t k = 0; k < count; ++k) d[k] = s[columns[k]];
      return;
    }
    for (int32_t r = 0; r < run_count; ++r) memcpy(d + runs[r].first, s + runs[r].source, runs[r].length);
  }
};

}  // namespace tavo
