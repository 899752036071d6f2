// Row functions of the bitmap comparison that scores a candidate shift. Per
// pixel: d = moving_bitmap ^ ref_bitmap; e = 1 if moving_mask == d, else d;
// f = 1 if ref_mask == e, else e; the row's score is the number of set bits of
// all f. With bitmaps of 0/1 and masks of 0/255 that is one point for every
// pixel whose bitmaps differ or that either mask marks as untrusted.
#pragma once

#include <cstdint>

namespace tavo {

// Score of n pixels; the moving pointers and the reference pointers are already
// placed at the pixels being paired.
using MismatchRowFn = uint32_t (*)(const uint8_t* moving_mask, const uint8_t* moving_bitmap,
                                   const uint8_t* ref_bitmap, const uint8_t* ref_mask, int32_t n);

uint32_t MismatchRow_C(const uint8_t* moving_mask, const uint8_t* moving_bitmap,
                       const uint8_t* ref_bitmap, const uint8_t* ref_mask, int32_t n);
#if defined(__aarch64__)
uint32_t MismatchRow_NEON(const uint8_t* moving_mask, const uint8_t* moving_bitmap,
                          const uint8_t* ref_bitmap, const uint8_t* ref_mask, int32_t n);
#endif
#if defined(__x86_64__)
uint32_t MismatchRow_SSE41(const uint8_t* moving_mask, const uint8_t* moving_bitmap,
                           const uint8_t* ref_bitmap, const uint8_t* ref_mask, int32_t n);
uint32_t MismatchRow_AVX2(const uint8_t* moving_mask, const uint8_t* moving_bitmap,
                          const uint8_t* ref_bitmap, const uint8_t* ref_mask, int32_t n);
uint32_t MismatchRow_AVX512(const uint8_t* moving_mask, const uint8_t* moving_bitmap,
                            const uint8_t* ref_bitmap, const uint8_t* ref_mask, int32_t n);
#endif

// The columns of a shift by x: moving columns begin ... begin + n - 1 pair
// with reference columns begin + x onward (n = 0 when none does).
struct ShiftedColumns {
  int32_t begin, n;
};
ShiftedColumns shifted_columns(int32_t width, int32_t x);

// Score of moving rows m_begin ... m_end - 1 (relative to the plane pointers,
// which may be negative) against reference rows m + y, over the columns j whose
// partner j + x lies inside the width.
uint32_t count_mismatches(const uint8_t* moving_mask, const uint8_t* moving_bitmap,
                          const uint8_t* ref_bitmap, const uint8_t* ref_mask, int32_t width,
                          int32_t m_begin, int32_t m_end, int32_t x, int32_t y, MismatchRowFn row);

}  // namespace tavo
