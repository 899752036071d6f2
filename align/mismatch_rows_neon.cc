// The bitmap comparison of align/mismatch_rows.h with NEON, 32 pixels a step
// through two-register loads: the selects as bitwise selects, the bit count
// by CNT into byte counters (at most 8 a pixel, so 30 vectors fit a byte),
// widened by pairwise adds into 32-bit lanes that gather all rows of a call.
// A row ends with one more 16-pixel vector over its last 16 pixels (over a
// copy of a shorter row), the pixels already counted masked out.
#include <arm_neon.h>

#include <cstring>

#include "align/mismatch_rows.h"

namespace tavo {

namespace {

// Bytes 16 ... 31 set: 16 bytes loaded from `r` on keep the last r.
alignas(16) constexpr uint8_t kLastBytes[32] = {0,    0,    0,    0,    0,    0,    0,    0,
                                                0,    0,    0,    0,    0,    0,    0,    0,
                                                0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff,
                                                0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff};

// Two-vector steps a byte counter takes before it is widened.
constexpr int32_t kStepsPerWidening = 15;

// The per-pixel results f of 16 pixels.
inline uint8x16_t mismatch16(uint8x16_t moving_mask, uint8x16_t moving_bitmap, uint8x16_t ref_bitmap,
                             uint8x16_t ref_mask) {
  const uint8x16_t one = vdupq_n_u8(1);
  const uint8x16_t d = veorq_u8(moving_bitmap, ref_bitmap);
  const uint8x16_t e = vbslq_u8(vceqq_u8(moving_mask, d), one, d);
  return vbslq_u8(vceqq_u8(ref_mask, e), one, e);
}

inline uint8x16_t mismatch16_at(const uint8_t* moving_mask, const uint8_t* moving_bitmap, const uint8_t* ref_bitmap,
                                const uint8_t* ref_mask, int32_t j) {
  return mismatch16(vld1q_u8(moving_mask + j), vld1q_u8(moving_bitmap + j), vld1q_u8(ref_bitmap + j),
                    vld1q_u8(ref_mask + j));
}

// A row of 1 ... 15 pixels, through copies.
[[gnu::noinline]] uint32_t short_row(const uint8_t* moving_mask, const uint8_t* moving_bitmap,
                                     const uint8_t* ref_bitmap, const uint8_t* ref_mask, int32_t n) {
  uint8_t copy[4][16] = {};
  const uint8_t* rows[4] = {moving_mask, moving_bitmap, ref_bitmap, ref_mask};
  for (int p = 0; p < 4; ++p) memcpy(copy[p] + 16 - n, rows[p], static_cast<size_t>(n));
  const uint8x16_t f = mismatch16_at(copy[0], copy[1], copy[2], copy[3], 0);
  return vaddlvq_u8(vcntq_u8(vandq_u8(f, vld1q_u8(kLastBytes + n))));
}

}  // namespace

uint32_t MismatchRows_NEON(const uint8_t* moving_mask, const uint8_t* moving_bitmap, const uint8_t* ref_bitmap,
                           const uint8_t* ref_mask, int32_t n, int32_t rows, ptrdiff_t stride) {
  if (n < 16) {
    return n <= 0 ? 0 : score_rows(short_row, moving_mask, moving_bitmap, ref_bitmap, ref_mask, n, rows, stride);
  }
  // The same steps for every row: n / 32 two-vector steps, one vector more
  // when 16 or more pixels are left, and the last r pixels by a vector over
  // the row's last 16 (from `last`, relative to the end of the steps). The
  // counts of all rows gather in one set of 32-bit lanes.
  const int32_t steps = n / 32;
  const bool half = n - 32 * steps >= 16;
  const int32_t r = n - 32 * steps - (half ? 16 : 0);
  const int32_t last = n - 16 - 32 * steps;
  const uint8x16_t keep = vld1q_u8(kLastBytes + r);
  uint32x4_t sums = vdupq_n_u32(0);
  for (int32_t row = 0; row < rows; ++row) {
    const ptrdiff_t o = row * stride;
    const uint8_t *mm = moving_mask + o, *mb = moving_bitmap + o, *rb = ref_bitmap + o, *rm = ref_mask + o;
    for (int32_t left = steps; left > 0;) {
      int32_t chunk = left < kStepsPerWidening ? left : kStepsPerWidening;
      left -= chunk;
      uint8x16_t bits = vdupq_n_u8(0);
      for (; chunk > 0; --chunk, mm += 32, mb += 32, rb += 32, rm += 32) {
        const uint8x16x2_t m = vld1q_u8_x2(mm), b = vld1q_u8_x2(mb), c = vld1q_u8_x2(rb), q = vld1q_u8_x2(rm);
        bits = vaddq_u8(bits, vcntq_u8(mismatch16(m.val[0], b.val[0], c.val[0], q.val[0])));
        bits = vaddq_u8(bits, vcntq_u8(mismatch16(m.val[1], b.val[1], c.val[1], q.val[1])));
      }
      sums = vpadalq_u16(sums, vpaddlq_u8(bits));
    }
    uint8x16_t bits = half ? vcntq_u8(mismatch16_at(mm, mb, rb, rm, 0)) : vdupq_n_u8(0);
    if (r > 0) bits = vaddq_u8(bits, vcntq_u8(vandq_u8(mismatch16_at(mm, mb, rb, rm, last), keep)));
    sums = vpadalq_u16(sums, vpaddlq_u8(bits));
  }
  return vaddvq_u32(sums);
}

}  // namespace tavo
