// Row functions of the frame crop: widening luma to the pyramids' 16-bit samples
// (value x 16, four fractional bits) and splitting interleaved chroma pairs. The
// portable rows in warp_rows.cc define the result; the instruction-set rows beside
// them give the same bytes.
#pragma once

#include <cstdint>

namespace tavo {

// dst[j] = src[j] * 16, j < n.
using WidenRow = void (*)(const uint8_t* src, uint16_t* dst, int32_t n);
// even[j] = src[2j], odd[j] = src[2j + 1], j < n.
using SplitPairsRow = void (*)(const uint8_t* src, uint8_t* odd, uint8_t* even, int32_t n);

void widen_x16_row_c(const uint8_t* src, uint16_t* dst, int32_t n);
void split_pairs_row_c(const uint8_t* src, uint8_t* odd, uint8_t* even, int32_t n);
#if defined(__aarch64__)
void widen_x16_row_neon(const uint8_t* src, uint16_t* dst, int32_t n);
void split_pairs_row_neon(const uint8_t* src, uint8_t* odd, uint8_t* even, int32_t n);
#endif
#if defined(__x86_64__)
void widen_x16_row_sse41(const uint8_t* src, uint16_t* dst, int32_t n);
void split_pairs_row_sse41(const uint8_t* src, uint8_t* odd, uint8_t* even, int32_t n);
#endif

// The best rows this processor runs (the portable ones when forced).
WidenRow pick_widen_row();
SplitPairsRow pick_split_pairs_row();

}  // namespace tavo
