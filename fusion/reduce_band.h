// One band of the Gaussian reduction: level l + 1 is level l filtered with
// 1-4-6-4-1 in both directions and subsampled by two, rounded after each pass.
//
// A band filters its own source rows horizontally into a scratch of
// destination width, plus the halo rows it needs from its neighbours (two
// above, one below), and then filters the scratch vertically. The first band
// reflects at the top of the image, the last band at the bottom, so every band
// writes exactly the rows a single pass over the whole level would.
#pragma once

#include <cstddef>
#include <cstdint>

#include "fusion/pyramid_rows.h"
#include "platform/memory.h"

namespace tavo {

// source(s) gives the band's source row s, s = -2 ... src_rows (halo rows
// included where the band has neighbours); it may hand out a row it has just
// made (e.g. widened from 8-bit samples), which is read before the next call.
// `row_buffer`, when not null, receives src_width more scratch samples for
// such a row. 0, or -1 when the scratch cannot be taken (nothing is written).
template <class SourceRow>
int32_t reduce_band(SourceRow source, int32_t src_width, int32_t src_rows, uint16_t* dst,
                    int32_t dst_width, int32_t dst_rows, bool first, bool last,
                    uint16_t** row_buffer) {
  const int32_t above = first ? 0 : 2;  // halo rows filtered above the band
  const int32_t below = last ? 0 : 1;
  const int32_t scratch_rows = src_rows + above + below;
  const size_t scratch_samples = static_cast<size_t>(dst_width) * static_cast<size_t>(scratch_rows);
  const size_t extra = row_buffer != nullptr ? static_cast<size_t>(src_width) : 0;
  auto* scratch = static_cast<uint16_t*>(platform::mem_alloc(sizeof(uint16_t) * (scratch_samples + extra)));
  if (scratch == nullptr) return -1;
  if (row_buffer != nullptr) *row_buffer = scratch + scratch_samples;
  const PyramidRows& rows = pyramid_rows();

  for (int32_t s = 0; s < scratch_rows; ++s) {
    rows.reduce_h(source(s - above), src_width, scratch + static_cast<ptrdiff_t>(s) * dst_width, dst_width);
  }

  // Scratch row of the band's source row r (r may reach into the halo).
  auto t = [&](int32_t r) -> const uint16_t* {
    return scratch + static_cast<ptrdiff_t>(r + above) * dst_width;
  };
  for (int32_t i = 0; i < dst_rows; ++i) {
    const int32_t c = 2 * i;
    const uint16_t* taps[5] = {t(c - 2), t(c - 1), t(c), t(c + 1), t(c + 2)};
    if (first && i == 0) {
      // Top of the image: rows -2, -1 reflect to 2, 1.
      taps[0] = t(c + 2);
      taps[1] = t(c + 1);
    } else if (last && i == dst_rows - 1) {
      if ((src_rows & 1) == 0) {
        taps[4] = t(c);  // row n reflects to n - 2
      } else {
        taps[3] = t(c - 1);  // rows n, n + 1 reflect to n - 2, n - 3
        taps[4] = t(c - 2);
      }
    }
    rows.reduce_v(taps, dst + static_cast<ptrdiff_t>(i) * dst_width, dst_width);
  }

  platform::mem_free(scratch);
  return 0;
}

}  // namespace tavo
