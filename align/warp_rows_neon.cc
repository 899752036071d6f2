// The crop rows with NEON. Widening: 64 samples a step through four-register
// loads and stores, 16 a step after that, and a row of at least 16 ends with
// one more step over its last 16. Splitting: 16 pairs a step by
// de-interleaving loads, and a row of at least 8 pairs ends with one more step
// over its last 8. Merging likewise, by interleaving stores. Shorter rows are
// copied sample by sample.
#include <arm_neon.h>

#include "align/warp_rows.h"

namespace tavo {

namespace {

inline void widen16(const uint8_t* src, uint16_t* dst) {
  const uint8x16_t v = vld1q_u8(src);
  vst1q_u16_x2(dst, (uint16x8x2_t{{vshll_n_u8(vget_low_u8(v), 4), vshll_high_n_u8(v, 4)}}));
}

inline void split8(const uint8_t* src, uint8_t* odd, uint8_t* even) {
  const uint8x8x2_t v = vld2_u8(src);
  vst1_u8(even, v.val[0]);
  vst1_u8(odd, v.val[1]);
}

inline void merge8(const uint8_t* odd, const uint8_t* even, uint8_t* dst) {
  vst2_u8(dst, (uint8x8x2_t{{vld1_u8(even), vld1_u8(odd)}}));
}

}  // namespace

void WidenX16Row_NEON(const uint8_t* src, uint16_t* dst, int32_t n) {
  int32_t j = 0;
  for (; j + 64 <= n; j += 64) {
    const uint8x16x4_t v = vld1q_u8_x4(src + j);
    vst1q_u16_x4(dst + j, (uint16x8x4_t{{vshll_n_u8(vget_low_u8(v.val[0]), 4), vshll_high_n_u8(v.val[0], 4),
                                         vshll_n_u8(vget_low_u8(v.val[1]), 4), vshll_high_n_u8(v.val[1], 4)}}));
    vst1q_u16_x4(dst + j + 32, (uint16x8x4_t{{vshll_n_u8(vget_low_u8(v.val[2]), 4), vshll_high_n_u8(v.val[2], 4),
                                              vshll_n_u8(vget_low_u8(v.val[3]), 4), vshll_high_n_u8(v.val[3], 4)}}));
  }
  for (; j + 16 <= n; j += 16) widen16(src + j, dst + j);
  if (j == n) return;
  if (n >= 16) {
    widen16(src + n - 16, dst + n - 16);
  } else {
    for (; j < n; ++j) dst[j] = static_cast<uint16_t>(src[j] << 4);
  }
}

void SplitPairsRow_NEON(const uint8_t* src, uint8_t* odd, uint8_t* even, int32_t n) {
  int32_t j = 0;
  for (; j + 16 <= n; j += 16) {
    const uint8x16x2_t v = vld2q_u8(src + 2 * j);
    vst1q_u8(even + j, v.val[0]);
    vst1q_u8(odd + j, v.val[1]);
  }
  for (; j + 8 <= n; j += 8) split8(src + 2 * j, odd + j, even + j);
  if (j == n) return;
  if (n >= 8) {
    split8(src + 2 * (n - 8), odd + n - 8, even + n - 8);
  } else {
    for (; j < n; ++j) {
      even[j] = src[2 * j];
      odd[j] = src[2 * j + 1];
    }
  }
}

void MergePairsRow_NEON(const uint8_t* odd, const uint8_t* even, uint8_t* dst, int32_t n) {
  int32_t j = 0;
  for (; j + 16 <= n; j += 16) vst2q_u8(dst + 2 * j, (uint8x16x2_t{{vld1q_u8(even + j), vld1q_u8(odd + j)}}));
  for (; j + 8 <= n; j += 8) merge8(odd + j, even + j, dst + 2 * j);
  if (j == n) return;
  if (n >= 8) {
    merge8(odd + n - 8, even + n - 8, dst + 2 * (n - 8));
  } else {
    merge_pairs_from(odd, even, dst, j, n);
  }
}

}  // namespace tavo
