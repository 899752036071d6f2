// Row functions of the bitmap comparison that scores a candidate shift. Per
// pixel: d = moving_bitmap ^ ref_bitmap; e = 1 if moving_mask == d, else d;
// f = 1 if ref_mask == e, else e; the row's score is the number of set bits of
// all f. With bitmaps of 0/1 and masks of 0/255 that is one point for every
// pixel whose bitmaps differ or that either mask marks as untrusted. A call
// scores a run of rows, so that a band makes one call a candidate for several
// rows.
#pragma once

#include <cstddef>
#include <cstdint>

namespace tavo {

// Score of `rows` rows of n pixels, each plane's rows `stride` bytes apart;
// the moving pointers and the reference pointers are already placed at the
// first pixels being paired.
using MismatchRowsFn = uint32_t (*)(const uint8_t* moving_mask, const uint8_t* moving_bitmap,
                                    const uint8_t* ref_bitmap, const uint8_t* ref_mask, int32_t n, int32_t rows,
                                    ptrdiff_t stride);

uint32_t MismatchRows_C(const uint8_t* moving_mask, const uint8_t* moving_bitmap, const uint8_t* ref_bitmap,
                        const uint8_t* ref_mask, int32_t n, int32_t rows, ptrdiff_t stride);
#if defined(__aarch64__)
uint32_t MismatchRows_NEON(const uint8_t* moving_mask, const uint8_t* moving_bitmap, const uint8_t* ref_bitmap,
                           const uint8_t* ref_mask, int32_t n, int32_t rows, ptrdiff_t stride);
#endif
#if defined(__x86_64__)
uint32_t MismatchRows_SSE41(const uint8_t* moving_mask, const uint8_t* moving_bitmap, const uint8_t* ref_bitmap,
                            const uint8_t* ref_mask, int32_t n, int32_t rows, ptrdiff_t stride);
uint32_t MismatchRows_AVX2(const uint8_t* moving_mask, const uint8_t* moving_bitmap, const uint8_t* ref_bitmap,
                           const uint8_t* ref_mask, int32_t n, int32_t rows, ptrdiff_t stride);
uint32_t MismatchRows_AVX512(const uint8_t* moving_mask, const uint8_t* moving_bitmap, const uint8_t* ref_bitmap,
                             const uint8_t* ref_mask, int32_t n, int32_t rows, ptrdiff_t stride);
#endif

// The columns of a shift by x: moving columns begin ... begin + n - 1 pair
// with reference columns begin + x onward (n = 0 when none does).
struct ShiftedColumns {
  int32_t begin, n;
};
ShiftedColumns shifted_columns(int32_t width, int32_t x);

// Local to each object (see the instruction-set flags in CMakeLists.txt).
namespace {

// The score of `rows` rows by a one-row score.
template <class Row>
inline uint32_t score_rows(Row row, const uint8_t* moving_mask, const uint8_t* moving_bitmap, const uint8_t* ref_bitmap,
                           const uint8_t* ref_mask, int32_t n, int32_t rows, ptrdiff_t stride) {
  uint32_t total = 0;
  for (int32_t r = 0; r < rows; ++r) {
    const ptrdiff_t o = r * stride;
    total += row(moving_mask + o, moving_bitmap + o, ref_bitmap + o, ref_mask + o, n);
  }
  return total;
}

}  // namespace

// Score of moving rows m_begin ... m_end - 1 (relative to the plane pointers,
// which may be negative) against reference rows m + y, over the columns j whose
// partner j + x lies inside the width.
uint32_t count_mismatches(const uint8_t* moving_mask, const uint8_t* moving_bitmap,
                          const uint8_t* ref_bitmap, const uint8_t* ref_mask, int32_t width,
                          int32_t m_begin, int32_t m_end, int32_t x, int32_t y, MismatchRowsFn rows);

}  // namespace tavo
