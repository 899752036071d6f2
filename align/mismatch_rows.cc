#include "align/mismatch_rows.h"

#include <algorithm>

namespace tavo {

namespace {

// Set bits of a byte by halves, quarters and nibbles: the portable build has
// no population-count instruction, and a library call per byte costs more.
constexpr uint32_t bits_set(uint8_t v) {
  uint32_t b = v - ((v >> 1) & 0x55u);
  b = (b & 0x33u) + ((b >> 2) & 0x33u);
  return (b + (b >> 4)) & 0x0fu;
}

uint32_t mismatch_row(const uint8_t* moving_mask, const uint8_t* moving_bitmap, const uint8_t* ref_bitmap,
                      const uint8_t* ref_mask, int32_t n) {
  uint32_t total = 0;
  for (int32_t j = 0; j < n; ++j) {
    const uint8_t d = moving_bitmap[j] ^ ref_bitmap[j];
    const uint8_t e = moving_mask[j] == d ? 1 : d;
    const uint8_t f = ref_mask[j] == e ? 1 : e;
    total += bits_set(f);
  }
  return total;
}

}  // namespace

uint32_t MismatchRows_C(const uint8_t* moving_mask, const uint8_t* moving_bitmap, const uint8_t* ref_bitmap,
                        const uint8_t* ref_mask, int32_t n, int32_t rows, ptrdiff_t stride) {
  return score_rows(mismatch_row, moving_mask, moving_bitmap, ref_bitmap, ref_mask, n, rows, stride);
}

ShiftedColumns shifted_columns(int32_t width, int32_t x) {
  const int64_t j_begin = std::max<int64_t>(-static_cast<int64_t>(x), 0);
  const int64_t j_end = std::min<int64_t>(static_cast<int64_t>(width) - x, width);
  if (j_end <= j_begin) return {0, 0};
  return {static_cast<int32_t>(j_begin), static_cast<int32_t>(j_end - j_begin)};
}

uint32_t count_mismatches(const uint8_t* moving_mask, const uint8_t* moving_bitmap,
                          const uint8_t* ref_bitmap, const uint8_t* ref_mask, int32_t width,
                          int32_t m_begin, int32_t m_end, int32_t x, int32_t y, MismatchRowsFn rows) {
  const ShiftedColumns columns = shifted_columns(width, x);
  if (columns.n == 0 || m_end <= m_begin) return 0;
  const int64_t moving = static_cast<int64_t>(m_begin) * width + columns.begin;
  const int64_t ref = (static_cast<int64_t>(m_begin) + y) * width + columns.begin + x;
  return rows(moving_mask + moving, moving_bitmap + moving, ref_bitmap + ref, ref_mask + ref, columns.n,
              m_end - m_begin, width);
}

}  // namespace tavo
