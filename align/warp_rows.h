// Row functions of the frame crop: widening luma to the pyramids' 16-bit samples
// (value x 16, four fractional bits) and splitting interleaved chroma pairs;
// and of the resize back to the frame: merging chroma planes into pairs. The
// portable rows in warp_rows.cc define the result; the instruction-set rows beside
// them give the same bytes.
#pragma once

#include <cstdint>

namespace tavo {

// dst[j] = src[j] * 16, j < n.
using WidenX16RowFn = void (*)(const uint8_t* src, uint16_t* dst, int32_t n);
// even[j] = src[2j], odd[j] = src[2j + 1], j < n.
using SplitPairsRowFn = void (*)(const uint8_t* src, uint8_t* odd, uint8_t* even, int32_t n);
// dst[2j] = even[j], dst[2j + 1] = odd[j], j < n.
using MergePairsRowFn = void (*)(const uint8_t* odd, const uint8_t* even, uint8_t* dst, int32_t n);

void WidenX16Row_C(const uint8_t* src, uint16_t* dst, int32_t n);
void SplitPairsRow_C(const uint8_t* src, uint8_t* odd, uint8_t* even, int32_t n);
void MergePairsRow_C(const uint8_t* odd, const uint8_t* even, uint8_t* dst, int32_t n);
#if defined(__aarch64__)
void WidenX16Row_NEON(const uint8_t* src, uint16_t* dst, int32_t n);
void SplitPairsRow_NEON(const uint8_t* src, uint8_t* odd, uint8_t* even, int32_t n);
void MergePairsRow_NEON(const uint8_t* odd, const uint8_t* even, uint8_t* dst, int32_t n);
#endif
#if defined(__x86_64__)
void WidenX16Row_SSE41(const uint8_t* src, uint16_t* dst, int32_t n);
void WidenX16Row_AVX2(const uint8_t* src, uint16_t* dst, int32_t n);
void SplitPairsRow_SSE41(const uint8_t* src, uint8_t* odd, uint8_t* even, int32_t n);
void MergePairsRow_AVX2(const uint8_t* odd, const uint8_t* even, uint8_t* dst, int32_t n);
#endif

// Inline helpers local to each object (see the instruction-set flags in
// CMakeLists.txt).
namespace {

// Row r of the crop whose top-left corner lies at column xs, row ys of a plane
// of row stride `stride` (64-bit offsets: the corner may lie anywhere).
inline const uint8_t* crop_row(const uint8_t* src, uint32_t stride, int32_t xs, int32_t ys, int32_t r) {
  return src + (static_cast<int64_t>(ys) + r) * static_cast<int64_t>(stride) + xs;
}

// Pairs j ... n - 1 of a merge, one at a time.
inline void merge_pairs_from(const uint8_t* odd, const uint8_t* even, uint8_t* dst, int32_t j, int32_t n) {
  for (; j < n; ++j) {
    dst[2 * j] = even[j];
    dst[2 * j + 1] = odd[j];
  }
}

}  // namespace

}  // namespace tavo
