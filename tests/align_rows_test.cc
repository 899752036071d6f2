// The instruction-set rows of the alignment kernels give the portable rows'
// bytes: random and edge inputs, every length around the vector steps,
// unaligned pointers.
#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <vector>

#include "align/mismatch_rows.h"
#include "align/threshold_rows.h"
#include "align/warp_rows.h"
#include "align/wavelet_rows.h"

namespace {

// The vector rows this processor runs, whatever the portable switch says.
struct VectorRows {
  const char* name;
  tavo::WaveletMainRow wavelet;
  tavo::MismatchRow mismatch;
  tavo::WidenRow widen;
  tavo::SplitPairsRow split;
  tavo::CountAboveRow count_above;  // null where the set has no row of its own
};

std::vector<VectorRows> vector_rows() {
  std::vector<VectorRows> rows;
#if defined(__aarch64__)
  rows.push_back({"neon", tavo::wavelet_main_row_neon, tavo::mismatch_row_neon,
                  tavo::widen_x16_row_neon, tavo::split_pairs_row_neon, tavo::count_above_row_neon});
#endif
#if defined(__x86_64__)
  if (__builtin_cpu_supports("sse4.1")) {
    rows.push_back({"sse41", tavo::wavelet_main_row_sse41, tavo::mismatch_row_sse41,
                    tavo::widen_x16_row_sse41, tavo::split_pairs_row_sse41, nullptr});
  }
  if (__builtin_cpu_supports("avx2")) {  // the wavelet, comparison and counts have wider rows
    rows.push_back({"avx2", tavo::wavelet_main_row_avx2, tavo::mismatch_row_avx2,
                    tavo::widen_x16_row_sse41, tavo::split_pairs_row_sse41, tavo::count_above_row_avx2});
  }
#endif
  return rows;
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
  const auto variants = vector_rows();
  if (variants.empty()) GTEST_SKIP() << "no vector rows on this processor";
  std::mt19937 rng(1);
  constexpr int32_t kMaxBlocks = 11;
  const std::vector<std::vector<uint8_t>> alphabets = {
      {}, {0}, {255}, {0, 255}, {100, 101, 102, 103, 104, 105, 106, 107, 108}, {250, 251, 252, 253, 254, 255}, {0, 1, 2, 3, 4, 5, 6, 7, 8}};
  for (const VectorRows& v : variants) {
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
              v.wavelet(top.data() + offset, b, got.data() + offset, got.data() + 88 + offset,
                        got.data() + 176 + offset, blocks, t);
              ASSERT_EQ(got, want) << v.name << " blocks " << blocks << " t " << t
                                   << " offset " << offset << (unpaired ? " unpaired" : "");
            }
          }
        }
      }
    }
  }
}

TEST(AlignRows, MismatchRowsMatchPortable) {
  const auto variants = vector_rows();
  if (variants.empty()) GTEST_SKIP() << "no vector rows on this processor";
  std::mt19937 rng(2);
  // Any bytes, the level maps' values, and small alphabets where a mask often
  // equals the bitmap difference (the select steps).
  const std::vector<std::vector<uint8_t>> alphabets = {{}, {0, 1, 255}, {0, 1, 2, 3}, {0, 255}};
  for (const VectorRows& v : variants) {
    for (const auto& alphabet : alphabets) {
      for (int32_t n = 0; n <= 70; ++n) {
        for (int32_t offset : {0, 1, 3}) {
          const size_t size = static_cast<size_t>(n + offset);
          const auto mm = bytes(size, rng, alphabet), mb = bytes(size, rng, alphabet);
          const auto rb = bytes(size, rng, alphabet), rm = bytes(size, rng, alphabet);
          const uint32_t want = tavo::mismatch_row_c(mm.data() + offset, mb.data() + offset,
                                                     rb.data() + offset, rm.data() + offset, n);
          ASSERT_EQ(v.mismatch(mm.data() + offset, mb.data() + offset, rb.data() + offset,
                        rm.data() + offset, n),
                    want)
              << v.name << " n " << n << " offset " << offset;
        }
      }
    }
    // A long row of the worst case: every byte scores 8.
    const std::vector<uint8_t> ones(5000, 0xff), zeros(5000, 0);
    EXPECT_EQ(v.mismatch(zeros.data(), ones.data(), zeros.data(), zeros.data(), 5000), 5000u * 8)
        << v.name;
  }
}

TEST(AlignRows, WarpRowsMatchPortable) {
  const auto variants = vector_rows();
  if (variants.empty()) GTEST_SKIP() << "no vector rows on this processor";
  std::mt19937 rng(3);
  for (const VectorRows& v : variants) {
    for (int32_t n = 0; n <= 70; ++n) {
      for (int32_t offset : {0, 1, 2, 7}) {
        const auto src = bytes(2 * static_cast<size_t>(n) + 8, rng);
        std::vector<uint16_t> want16(n + 8, 0xBEEF), got16(want16);
        tavo::widen_x16_row_c(src.data() + offset, want16.data() + offset % 3, n);
        v.widen(src.data() + offset, got16.data() + offset % 3, n);
        ASSERT_EQ(got16, want16) << v.name << " n " << n << " offset " << offset;

        std::vector<uint8_t> want(2 * n + 16, 0xEE), got(want);
        tavo::split_pairs_row_c(src.data() + offset, want.data() + 1, want.data() + n + 9, n);
        v.split(src.data() + offset, got.data() + 1, got.data() + n + 9, n);
        ASSERT_EQ(got, want) << v.name << " n " << n << " offset " << offset;
      }
    }
  }
}

TEST(AlignRows, CountAboveRowsMatchPortable) {
  std::mt19937 rng(4);
  // Lengths around the vector and the 255-vector counter blocks; levels at
  // both ends and around the signed-compare boundary.
  const size_t lengths[] = {0, 1, 15, 16, 31, 32, 33, 255 * 32 - 1, 255 * 32, 255 * 32 + 47, 3 * 255 * 32 + 17};
  const std::vector<std::vector<uint8_t>> alphabets = {{}, {0}, {255}, {0, 255}, {126, 127, 128, 129}};
  for (const VectorRows& v : vector_rows()) {
    if (v.count_above == nullptr) continue;
    for (const auto& alphabet : alphabets) {
      for (size_t n : lengths) {
        const size_t offset = n % 5;
        const auto src = bytes(n + offset, rng, alphabet);
        uint8_t levels[tavo::kThresholdLevels] = {0, 255, 127, 128, 126, 129, 1, 254};
        for (int k = 8; k < tavo::kThresholdLevels; ++k) levels[k] = static_cast<uint8_t>(rng());
        uint64_t want[tavo::kThresholdLevels], got[tavo::kThresholdLevels];
        for (int k = 0; k < tavo::kThresholdLevels; ++k) want[k] = got[k] = k;  // the rows add
        tavo::count_above_row_c(src.data() + offset, n, levels, want);
        v.count_above(src.data() + offset, n, levels, got);
        for (int k = 0; k < tavo::kThresholdLevels; ++k) {
          ASSERT_EQ(got[k], want[k]) << v.name << " n " << n << " level " << int{levels[k]};
        }
      }
    }
  }
}

}  // namespace
