// Row functions of one wavelet level: each output pixel is the mean of a 2x2
// input block (truncated), classified against the frame's threshold t into a
// bitmap (1 when brighter than t) and a validity mask (0 when too close to t to
// be trusted, else 255).
//
// A row is produced in two parts whose classification differs on purpose, and
// the boundary between them is part of the result:
//  - the main part, input columns 0 ... (w & ~15) - 1, in steps of 16 columns
//    (8 outputs): exclusion band [max(t - 4, 0), min(t + 4, 255)];
//  - the tail, input columns (w & ~15) ... w - 1: exclusion band [t - 20, t + 20]
//    (signed, not clamped), with the odd last column and the unpaired last row
//    averaged over the samples that exist.
// The portable rows define the result; the instruction-set main rows beside
// them give the same bytes. The tail has only the portable form.
#pragma once

#include <cstdint>

namespace tavo {

// `blocks` steps of 16 input columns of rows top and bottom (the same row for
// an unpaired last row) into 8 * blocks outputs.
using WaveletMainRowFn = void (*)(const uint8_t* top, const uint8_t* bottom, uint8_t* approx,
                                  uint8_t* bitmap, uint8_t* mask, int32_t blocks, int32_t threshold);

void WaveletMainRow_C(const uint8_t* top, const uint8_t* bottom, uint8_t* approx,
                      uint8_t* bitmap, uint8_t* mask, int32_t blocks, int32_t threshold);
#if defined(__aarch64__)
void WaveletMainRow_NEON(const uint8_t* top, const uint8_t* bottom, uint8_t* approx,
                         uint8_t* bitmap, uint8_t* mask, int32_t blocks, int32_t threshold);
#endif
#if defined(__x86_64__)
void WaveletMainRow_SSE41(const uint8_t* top, const uint8_t* bottom, uint8_t* approx,
                          uint8_t* bitmap, uint8_t* mask, int32_t blocks, int32_t threshold);
void WaveletMainRow_AVX2(const uint8_t* top, const uint8_t* bottom, uint8_t* approx,
                         uint8_t* bitmap, uint8_t* mask, int32_t blocks, int32_t threshold);
void WaveletMainRow_AVX512(const uint8_t* top, const uint8_t* bottom, uint8_t* approx,
                           uint8_t* bitmap, uint8_t* mask, int32_t blocks, int32_t threshold);
#endif

// Input columns first ... width - 1 (first even) into outputs first/2 onward of
// approx, bitmap and mask (which point at output column 0). `unpaired` marks
// the last row of an odd row count, which has no row below it.
void wavelet_tail_row(const uint8_t* top, const uint8_t* bottom, bool unpaired, int32_t first,
                      int32_t width, uint8_t* approx, uint8_t* bitmap, uint8_t* mask,
                      int32_t threshold);

// One level of rows 0 ... rows - 1 of src (stride width) into output rows
// 0 ... ceil(rows / 2) - 1 of stride ceil(width / 2), with the given main row.
void wavelet_level(const uint8_t* src, uint8_t* approx, uint8_t* bitmap, uint8_t* mask,
                   int32_t width, int32_t rows, int32_t threshold, WaveletMainRowFn main_row);

}  // namespace tavo
