// The instruction-set rows of the alignment kernels give the portable rows'
// bytes: random and edge inputs, every length around the vector steps,
// unaligned pointers.
#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "align/mismatch_rows.h"
#include "align/warp_rows.h"
#include "align/wavelet_rows.h"

namespace {

#if defined(__x86_64__)
bool have_sse41() { return __builtin_cpu_supports("sse4.1"); }
#endif

template <class Row>
using Variants = std::vector<std::pair<std::string, Row>>;

Variants<tavo::WaveletMainRow> wavelet_variants() {
  Variants<tavo::WaveletMainRow> v;
#if defined(__aarch64__)
  v.emplace_back("neon", tavo::wavelet_main_row_neon);
#endif
#if defined(__x86_64__)
  if (have_sse41()) v.emplace_back("sse41", tavo::wavelet_main_row_sse41);
#endif
  return v;
}

Variants<tavo::MismatchRow> mismatch_variants() {
  Variants<tavo::MismatchRow> v;
#if defined(__aarch64__)
  v.emplace_back("neon", tavo::mismatch_row_neon);
#endif
#if defined(__x86_64__)
  if (have_sse41()) v.emplace_back("sse41", tavo::mismatch_row_sse41);
#endif
  return v;
}

Variants<tavo::WidenRow> widen_variants() {
  Variants<tavo::WidenRow> v;
#if defined(__aarch64__)
  v.emplace_back("neon", tavo::widen_x16_row_neon);
#endif
#if defined(__x86_64__)
  if (have_sse41()) v.emplace_back("sse41", tavo::widen_x16_row_sse41);
#endif
  return v;
}

Variants<tavo::SplitPairsRow> split_variants() {
  Variants<tavo::SplitPairsRow> v;
#if defined(__aarch64__)
  v.emplace_back("neon", tavo::split_pairs_row_neon);
#endif
#if defined(__x86_64__)
  if (have_sse41()) v.emplace_back("sse41", tavo::split_pairs_row_sse41);
#endif
  return v;
}

// Bytes drawn from `alphabet` (all values when empty).
std::vector<uint8_t> bytes(size_t n, std::mt19937& rng, const std::vector<uint8_t>& alphabet = {}) {
  std::vector<uint8_t> v(n);
  for (auto& b : v) {
    b = alphabet.empty() ? static_cast<uint8_t>(rng()) : alphabet[rng() % alphabet.size()];
  }
  return v;
}

TEST(AlignRows, WaveletMainRowsMatchPortable) {
  const auto variants = wavelet_variants();
  if (variants.empty()) GTEST_SKIP() << "no vector rows on this processor";
  std::mt19937 rng(1);
  constexpr int32_t kMaxBlocks = 11;
  const std::vector<std::vector<uint8_t>> alphabets = {
      {}, {0}, {255}, {0, 255}, {100, 101, 102, 103, 104, 105, 106, 107, 108}, {250, 251, 252, 253, 254, 255}, {0, 1, 2, 3, 4, 5, 6, 7, 8}};
  for (const auto& [name, row] : variants) {
    for (const auto& alphabet : alphabets) {
      for (int32_t blocks : {0, 1, 2, 3, 4, 5, kMaxBlocks}) {
        for (int32_t offset = 0; offset < 4; ++offset) {
          const std::vector<uint8_t> top = bytes(16 * kMaxBlocks + 4, rng, alphabet);
          const std::vector<uint8_t> bottom = bytes(16 * kMaxBlocks + 4, rng, alphabet);
          for (int32_t t : {0, 1, 3, 4, 5, 104, 127, 128, 250, 251, 252, 254, 255}) {
            for (bool unpaired : {false, true}) {
              const uint8_t* b = unpaired ? top.data() + offset : bottom.data() + offset;
              std::vector<uint8_t> want(3 * 8 * kMaxBlocks + 3, 0xEE), got(want);
              tavo::wavelet_main_row_c(top.data() + offset, b, want.data() + offset,
                                       want.data() + 88 + offset, want.data() + 176 + offset,
                                       blocks, t);
              row(top.data() + offset, b, got.data() + offset, got.data() + 88 + offset,
                  got.data() + 176 + offset, blocks, t);
              ASSERT_EQ(got, want) << name << " blocks " << blocks << " t " << t << " offset "
                                   << offset << (unpaired ? " unpaired" : "");
            }
          }
        }
      }
    }
  }
}

TEST(AlignRows, MismatchRowsMatchPortable) {
  const auto variants = mismatch_variants();
  if (variants.empty()) GTEST_SKIP() << "no vector rows on this processor";
  std::mt19937 rng(2);
  // Any bytes, the level maps' values, and small alphabets where a mask often
  // equals the bitmap difference (the select steps).
  const std::vector<std::vector<uint8_t>> alphabets = {{}, {0, 1, 255}, {0, 1, 2, 3}, {0, 255}};
  for (const auto& [name, row] : variants) {
    for (const auto& alphabet : alphabets) {
      for (int32_t n = 0; n <= 70; ++n) {
        for (int32_t offset : {0, 1, 3}) {
          const size_t size = static_cast<size_t>(n + offset);
          const auto mm = bytes(size, rng, alphabet), mb = bytes(size, rng, alphabet);
          const auto rb = bytes(size, rng, alphabet), rm = bytes(size, rng, alphabet);
          const uint32_t want = tavo::mismatch_row_c(mm.data() + offset, mb.data() + offset,
                                                     rb.data() + offset, rm.data() + offset, n);
          ASSERT_EQ(row(mm.data() + offset, mb.data() + offset, rb.data() + offset,
                        rm.data() + offset, n),
                    want)
              << name << " n " << n << " offset " << offset;
        }
      }
    }
    // A long row of the worst case: every byte scores 8.
    const std::vector<uint8_t> ones(5000, 0xff), zeros(5000, 0);
    EXPECT_EQ(row(zeros.data(), ones.data(), zeros.data(), zeros.data(), 5000), 5000u * 8) << name;
  }
}

TEST(AlignRows, WarpRowsMatchPortable) {
  const auto widen = widen_variants();
  const auto split = split_variants();
  if (widen.empty() && split.empty()) GTEST_SKIP() << "no vector rows on this processor";
  std::mt19937 rng(3);
  for (int32_t n = 0; n <= 70; ++n) {
    for (int32_t offset : {0, 1, 2, 7}) {
      const auto src = bytes(2 * static_cast<size_t>(n) + 8, rng);
      std::vector<uint16_t> want16(n + 8, 0xBEEF);
      tavo::widen_x16_row_c(src.data() + offset, want16.data() + offset % 3, n);
      for (const auto& [name, row] : widen) {
        std::vector<uint16_t> got16(n + 8, 0xBEEF);
        row(src.data() + offset, got16.data() + offset % 3, n);
        ASSERT_EQ(got16, want16) << name << " n " << n << " offset " << offset;
      }
      std::vector<uint8_t> want_odd(n + 8, 0xEE), want_even(n + 8, 0xEE);
      tavo::split_pairs_row_c(src.data() + offset, want_odd.data() + 1, want_even.data() + offset, n);
      for (const auto& [name, row] : split) {
        std::vector<uint8_t> odd(n + 8, 0xEE), even(n + 8, 0xEE);
        row(src.data() + offset, odd.data() + 1, even.data() + offset, n);
        ASSERT_EQ(odd, want_odd) << name << " n " << n << " offset " << offset;
        ASSERT_EQ(even, want_even) << name << " n " << n << " offset " << offset;
      }
    }
  }
}

}  // namespace
