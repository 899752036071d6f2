// Row functions of the registration threshold: the number of bytes above each
// of eight consecutive luma levels. A threshold is the first level whose
// cumulative count (the bytes not above it) reaches a target; counting above
// the eight levels around an estimate settles it in one vector pass over the
// luma, where a histogram takes a scalar read-modify-write per byte.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace tavo {

inline constexpr int kThresholdLevels = 8;
inline constexpr int32_t kLastFirstLevel = 256 - kThresholdLevels;

// Adds to above[k] the number of the n bytes at src greater than first + k,
// for k = 0 ... 7 (0 <= first <= kLastFirstLevel).
using CountAboveRowFn = void (*)(const uint8_t* src, size_t n, int32_t first, uint64_t* above);

void CountAboveRow_C(const uint8_t* src, size_t n, int32_t first, uint64_t* above);
#if defined(__aarch64__)
void CountAboveRow_NEON(const uint8_t* src, size_t n, int32_t first, uint64_t* above);
#endif
#if defined(__x86_64__)
void CountAboveRow_AVX2(const uint8_t* src, size_t n, int32_t first, uint64_t* above);
void CountAboveRow_AVX512(const uint8_t* src, size_t n, int32_t first, uint64_t* above);
#endif

// Local to each object (see the instruction-set flags in CMakeLists.txt).
namespace {

// The look-up of the vector rows. A byte x is mapped to e = c - x, saturated
// at 0, with c = min(first + 8, 255): an e below 16 gives x exactly, and so
// the number of levels x is above, min(max(c - first - e, 0), 8); every e of
// 16 or more lies below all levels. Table a holds, for each e below 16, 1 in
// the low nibble when x is above level 2a and 1 in the high nibble when above
// level 2a + 1: one byte add counts two levels, up to 15 times. The tables
// depend on c - first alone, which is 8, or 7 for the last window.
struct CountAboveTables {
  uint8_t nibbles[kThresholdLevels / 2][16];
};

inline constexpr CountAboveTables count_above_tables_of(int32_t span) {
  CountAboveTables t{};
  for (int32_t e = 0; e < 16; ++e) {
    const int32_t above = span - e < 0 ? 0 : span - e;
    for (int32_t a = 0; a < kThresholdLevels / 2; ++a) {
      t.nibbles[a][e] = static_cast<uint8_t>((above > 2 * a ? 0x01 : 0) | (above > 2 * a + 1 ? 0x10 : 0));
    }
  }
  return t;
}

inline constexpr CountAboveTables kCountAboveTables[2] = {count_above_tables_of(kThresholdLevels),
                                                         count_above_tables_of(kThresholdLevels - 1)};

struct CountAboveWindow {
  uint8_t c;
  const CountAboveTables* tables;
};

inline CountAboveWindow count_above_window(int32_t first) {
  return first < kLastFirstLevel ? CountAboveWindow{static_cast<uint8_t>(first + kThresholdLevels), &kCountAboveTables[0]}
                                 : CountAboveWindow{255, &kCountAboveTables[1]};
}

// Vectors a nibble counter takes before it is spread into wider counters.
inline constexpr size_t kNibbleVectors = 15;

// The last `width` bytes of a row of n bytes; a shorter row is copied to the
// end of `copy` (width bytes, zeroed), which is returned.
inline const uint8_t* last_bytes(const uint8_t* src, size_t n, uint8_t* copy, size_t width) {
  if (n >= width) return src + n - width;
  memcpy(copy + width - n, src, n);
  return copy;
}

}  // namespace

}  // namespace tavo
