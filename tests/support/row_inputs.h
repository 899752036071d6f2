// Inputs of the row tests and the row benchmark (bench/rows_bench.cc): rows of
// random and extreme samples drawn by fixed sequences.
#pragma once

#include <cstdint>
#include <iterator>
#include <random>
#include <vector>

namespace tavo::test {

// Patterns of 16-bit rows: 0 draws random 16-bit samples, 1 random samples of
// a pyramid level (0 ... 4080); the others alternate between two values: flat
// extremes, alternating extremes (the largest sums and differences) and the
// signed extremes.
inline constexpr uint16_t kAlternating[][2] = {{0, 0}, {4080, 4080}, {0xffff, 0xffff}, {0, 4080}, {0xffff, 0}, {0x7fff, 0x8000}};
inline constexpr int kRandomSamples = 0, kLevelSamples = 1;
inline constexpr int kRowPatterns = 2 + static_cast<int>(std::size(kAlternating));

// `offset` unused samples, then n samples of the pattern, nothing after them.
template <class Sample = uint16_t>
std::vector<Sample> make_row(int offset, int n, int pattern, uint32_t seed) {
  std::mt19937 rng(seed);
  std::vector<Sample> v(offset + n, static_cast<Sample>(0x1234));
  for (int i = 0; i < n; ++i) {
    const uint32_t r = rng();
    v[offset + i] = static_cast<Sample>(pattern == kRandomSamples ? r
                                        : pattern == kLevelSamples ? r % 4081
                                                                   : kAlternating[pattern - 2][(i + seed) % 2]);
  }
  return v;
}

// n bytes drawn from `alphabet` by rng, any byte when it is empty.
inline std::vector<uint8_t> draw_bytes(std::mt19937& rng, size_t n, const std::vector<uint8_t>& alphabet = {}) {
  std::vector<uint8_t> v(n);
  for (auto& b : v) b = alphabet.empty() ? static_cast<uint8_t>(rng()) : alphabet[rng() % alphabet.size()];
  return v;
}

}  // namespace tavo::test
