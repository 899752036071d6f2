// Row functions of the registration threshold: the number of bytes above each
// of sixteen luma levels. A threshold is the first level whose cumulative
// count (the bytes not above it) reaches a target; counting above the sixteen
// levels around an estimate settles it in one vector pass over the luma,
// where a histogram takes a scalar read-modify-write per byte.
#pragma once

#include <cstddef>
#include <cstdint>

namespace tavo {

inline constexpr int kThresholdLevels = 16;

// Adds to above[k] the number of the n bytes at src greater than levels[k],
// for k = 0 ... 15.
using CountAboveRowFn = void (*)(const uint8_t* src, size_t n, const uint8_t* levels, uint64_t* above);

void CountAboveRow_C(const uint8_t* src, size_t n, const uint8_t* levels, uint64_t* above);
#if defined(__aarch64__)
void CountAboveRow_NEON(const uint8_t* src, size_t n, const uint8_t* levels, uint64_t* above);
#endif
#if defined(__x86_64__)
void CountAboveRow_AVX2(const uint8_t* src, size_t n, const uint8_t* levels, uint64_t* above);
#endif

}  // namespace tavo
