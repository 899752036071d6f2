// The expansion of one band of a coarse level to fine size, shared by the
// band-pass levels and the reconstruction: the band's coarse rows, plus one halo
// row above and below where it has a neighbour band, are expanded horizontally
// into a scratch of fine width; then every fine row y takes the scratch rows
// j - 1, j, j + 1 (y = 2j) or j, j + 1 (y = 2j + 1). The first band reflects
// coarse row -1 to row 1 at the top of the image; the last band takes, for its
// last two fine rows, the row 2 * coarse_rows - 3 - j as the one below, which
// reflects about the last coarse row.
#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/memory.h"

namespace tavo {

// The coarse rows fine row y expands from, y and the rows counted from the
// first of a run of fine_rows fine rows over coarse_rows coarse rows: even rows
// weigh above, centre and below, odd rows centre and below. At the top of the
// image (`top`) row -1 reflects to row 1; at its bottom (`bottom`) the last two
// fine rows take 2 * coarse_rows - 3 - j as the row below, the reflection about
// the last coarse row. Elsewhere rows -1 and coarse_rows are the neighbours'.
struct CoarseRows {
  int32_t above, centre, below;
  bool even;
};

constexpr CoarseRows coarse_rows_of(int32_t y, int32_t fine_rows, int32_t coarse_rows, bool top,
                                    bool bottom) {
  if (top && y == 0) return {1, 0, 1, true};
  const int32_t j = y >> 1;
  const int32_t below = bottom && y >= fine_rows - 2 ? 2 * coarse_rows - 3 - j : j + 1;
  return {j - 1, j, below, (y & 1) == 0};
}

class ExpandedBand {
 public:
  // Expands coarse_rows rows from `coarse` (the band's first coarse row) with
  // expand(row, coarse_width, scratch_row, fine_width). ok() is false when the
  // scratch could not be taken.
  template <class Sample, class Expand>
  ExpandedBand(const Sample* coarse, int32_t coarse_width, int32_t coarse_rows, int32_t fine_width,
               bool first, bool last, Expand expand)
      : fine_width_(fine_width), coarse_rows_(coarse_rows), above_(first ? 0 : 1), first_(first),
        last_(last) {
    const int32_t rows = coarse_rows + above_ + (last ? 0 : 1);
    scratch_ = static_cast<uint16_t*>(platform::mem_alloc(
        sizeof(uint16_t) * static_cast<size_t>(fine_width) * static_cast<size_t>(rows)));
    if (scratch_ == nullptr) return;
    const Sample* row = coarse - static_cast<ptrdiff_t>(above_) * coarse_width;
    for (int32_t s = 0; s < rows; ++s) {
      expand(row + static_cast<ptrdiff_t>(s) * coarse_width, coarse_width,
             scratch_ + static_cast<ptrdiff_t>(s) * fine_width, fine_width);
    }
  }
  ~ExpandedBand() { platform::mem_free(scratch_); }
  ExpandedBand(const ExpandedBand&) = delete;
  ExpandedBand& operator=(const ExpandedBand&) = delete;

  bool ok() const { return scratch_ != nullptr; }

  // Walks the band's fine rows top to bottom: even(y, above, centre, below)
  // and odd(y, centre, below) receive the scratch rows of fine row y.
  template <class Even, class Odd>
  void for_each_fine_row(int32_t fine_rows, Even even, Odd odd) const {
    for (int32_t y = 0; y < fine_rows; ++y) {
      const CoarseRows c = coarse_rows_of(y, fine_rows, coarse_rows_, first_, last_);
      if (c.even) {
        even(y, h(c.above), h(c.centre), h(c.below));
      } else {
        odd(y, h(c.centre), h(c.below));
      }
    }
  }

 private:
  // Scratch row of the band's coarse row j (-1 and coarse_rows are halo rows).
  const uint16_t* h(int32_t j) const {
    return scratch_ + static_cast<ptrdiff_t>(j + above_) * fine_width_;
  }

  uint16_t* scratch_ = nullptr;
  int32_t fine_width_, coarse_rows_, above_;
  bool first_, last_;
};

}  // namespace tavo
