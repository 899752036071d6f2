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
#include "support/cpu_masks.h"

namespace {

using tavo::test::OptimisedVariants;

// Bytes drawn from `alphabet` (all values when empty).
std::vector<uint8_t> bytes(size_t n, std::mt19937& rng, const std::vector<uint8_t>& alphabet = {}) {
  std::vector<uint8_t> v(n);
  for (auto& b : v) {
    b = alphabet.empty() ? static_cast<uint8_t>(rng()) : alphabet[rng() % alphabet.size()];
  }
  return v;
}

TEST(AlignRows, WaveletMainRowsMatchPortable) {
  const auto variants = OptimisedVariants([] { return tavo::SelectWaveletMainRow(128); });
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
              tavo::WaveletMainRow_C(top.data() + offset, b, want.data() + offset,
                                     want.data() + 88 + offset, want.data() + 176 + offset,
                                     blocks, t);
              row(top.data() + offset, b, got.data() + offset, got.data() + 88 + offset,
                        got.data() + 176 + offset, blocks, t);
              ASSERT_EQ(got, want) << name << " blocks " << blocks << " t " << t
                                   << " offset " << offset << (unpaired ? " unpaired" : "");
            }
          }
        }
      }
    }
  }
}

TEST(AlignRows, MismatchRowsMatchPortable) {
  std::mt19937 rng(2);
  // Any bytes, the level maps' values, and small alphabets where a mask often
  // equals the bitmap difference (the select steps).
  const std::vector<std::vector<uint8_t>> alphabets = {{}, {0, 1, 255}, {0, 1, 2, 3}, {0, 255}};
  for (const auto& [name, row] : OptimisedVariants(tavo::SelectMismatchRow)) {
    for (const auto& alphabet : alphabets) {
      for (int32_t n = 0; n <= 70; ++n) {
        for (int32_t offset : {0, 1, 3}) {
          const size_t size = static_cast<size_t>(n + offset);
          const auto mm = bytes(size, rng, alphabet), mb = bytes(size, rng, alphabet);
          const auto rb = bytes(size, rng, alphabet), rm = bytes(size, rng, alphabet);
          const uint32_t want = tavo::MismatchRow_C(mm.data() + offset, mb.data() + offset,
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
  std::mt19937 rng(3);
  const auto widens = OptimisedVariants(tavo::SelectWidenX16Row);
  const auto splits = OptimisedVariants(tavo::SelectSplitPairsRow);
  for (int32_t n = 0; n <= 70; ++n) {
    for (int32_t offset : {0, 1, 2, 7}) {
      const auto src = bytes(2 * static_cast<size_t>(n) + 8, rng);
      std::vector<uint16_t> want16(n + 8, 0xBEEF);
      tavo::WidenX16Row_C(src.data() + offset, want16.data() + offset % 3, n);
      for (const auto& [name, widen] : widens) {
        std::vector<uint16_t> got16(n + 8, 0xBEEF);
        widen(src.data() + offset, got16.data() + offset % 3, n);
        ASSERT_EQ(got16, want16) << name << " n " << n << " offset " << offset;
      }
      std::vector<uint8_t> want(2 * n + 16, 0xEE);
      tavo::SplitPairsRow_C(src.data() + offset, want.data() + 1, want.data() + n + 9, n);
      for (const auto& [name, split] : splits) {
        std::vector<uint8_t> got(2 * n + 16, 0xEE);
        split(src.data() + offset, got.data() + 1, got.data() + n + 9, n);
        ASSERT_EQ(got, want) << name << " n " << n << " offset " << offset;
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
  for (const auto& [name, row] : OptimisedVariants(tavo::SelectCountAboveRow)) {
    for (const auto& alphabet : alphabets) {
      for (size_t n : lengths) {
        const size_t offset = n % 5;
        const auto src = bytes(n + offset, rng, alphabet);
        uint8_t levels[tavo::kThresholdLevels] = {0, 255, 127, 128, 126, 129, 1, 254};
        for (int k = 8; k < tavo::kThresholdLevels; ++k) levels[k] = static_cast<uint8_t>(rng());
        uint64_t want[tavo::kThresholdLevels], got[tavo::kThresholdLevels];
        for (int k = 0; k < tavo::kThresholdLevels; ++k) want[k] = got[k] = k;  // the rows add
        tavo::CountAboveRow_C(src.data() + offset, n, levels, want);
        row(src.data() + offset, n, levels, got);
        for (int k = 0; k < tavo::kThresholdLevels; ++k) {
          ASSERT_EQ(got[k], want[k]) << name << " n " << n << " level " << int{levels[k]};
        }
      }
    }
  }
}

}  // namespace
