// The instruction-set rows of the alignment kernels give the portable rows'
// bytes: random and edge inputs, every length around the vector steps,
// unaligned pointers.
#include <gtest/gtest.h>

#include <cstdint>
#include <initializer_list>
#include <random>
#include <vector>

#include "align/align_rows.h"
#include "support/cpu_masks.h"
#include "support/row_inputs.h"

namespace {

using tavo::AlignRows;
using Alphabets = std::vector<std::vector<uint8_t>>;

// What run(row, input, n) gives for the table's row `entry` of every set this
// processor runs, against the portable row, on unit * n + 8 bytes drawn from
// each alphabet (all values when empty) and read from `offset` on, for every
// length.
template <class Row, class Run>
void expect_variants_match(Row AlignRows::*entry, const Alphabets& alphabets, const std::vector<size_t>& lengths,
                           size_t unit, std::initializer_list<size_t> offsets, Run run) {
  AlignRows portable_rows{};
  tavo::InitAlignRows_C(&portable_rows);
  const Row portable = portable_rows.*entry;
  const auto variants = tavo::test::OptimisedVariants(tavo::GetAlignRows, entry);
  std::mt19937 rng(1);
  for (const auto& alphabet : alphabets) {
    for (size_t n : lengths) {
      for (size_t offset : offsets) {
        const std::vector<uint8_t> in = tavo::test::draw_bytes(rng, unit * n + 8, alphabet);
        const auto want = run(portable, in.data() + offset, n);
        for (const auto& [set, row] : variants) {
          SCOPED_TRACE(set);
          ASSERT_EQ(run(row, in.data() + offset, n), want) << "n " << n << " offset " << offset;
        }
      }
    }
  }
}

std::vector<size_t> up_to(size_t last) {
  std::vector<size_t> v(last + 1);
  for (size_t n = 0; n <= last; ++n) v[n] = n;
  return v;
}

TEST(AlignRows, WaveletMainRowsMatchPortable) {
  // Blocks of 16 columns; thresholds where the exclusion band is clamped at 0
  // or 255 and around the signed-compare boundary; a last row without a pair
  // averages with itself.
  expect_variants_match(
      &AlignRows::wavelet_main,
      {{}, {0}, {255}, {0, 255}, {100, 101, 102, 103, 104, 105, 106, 107, 108}, {250, 251, 252, 253, 254, 255},
       {0, 1, 2, 3, 4, 5, 6, 7, 8}},
      {0, 1, 2, 3, 4, 5, 11}, 64, {0, 1, 2, 3}, [](tavo::WaveletMainRowFn row, const uint8_t* top, size_t blocks) {
        std::vector<uint8_t> out;
        for (int32_t t : {0, 1, 3, 4, 5, 104, 127, 128, 250, 251, 252, 254, 255}) {
          for (const uint8_t* bottom : {top, top + 32 * blocks + 1}) {
            std::vector<uint8_t> o(3 * 8 * blocks + 7, 0xEE);
            row(top, bottom, o.data() + 1, o.data() + 8 * blocks + 3, o.data() + 16 * blocks + 5,
                static_cast<int32_t>(blocks), t);
            out.insert(out.end(), o.begin(), o.end());
          }
        }
        return out;
      });
}

TEST(AlignRows, MismatchRowsMatchPortable) {
  // Any bytes, the level maps' values, and small alphabets where a mask often
  // equals the bitmap difference (the select steps); one row, and three rows
  // of n pixels n + 1 apart.
  expect_variants_match(&AlignRows::mismatch, {{}, {0, 1, 255}, {0, 1, 2, 3}, {0, 255}}, up_to(70), 12,
                        {0, 1, 3}, [](tavo::MismatchRowsFn row, const uint8_t* p, size_t n) {
                          const auto w = static_cast<int32_t>(n);
                          return std::vector<uint32_t>{row(p, p + n, p + 2 * n, p + 3 * n, w, 1, 0),
                                                       row(p, p + 3 * n, p + 6 * n, p + 9 * n, w, 3, w + 1)};
                        });
  // A long row of the worst case: every byte scores 8.
  const std::vector<uint8_t> ones(5000, 0xff), zeros(5000, 0);
  for (const auto& [set, row] : tavo::test::RowVariants(tavo::GetAlignRows, &AlignRows::mismatch)) {
    EXPECT_EQ(row(zeros.data(), ones.data(), zeros.data(), zeros.data(), 5000, 1, 0), 5000u * 8) << set;
  }
}

TEST(AlignRows, WarpRowsMatchPortable) {
  expect_variants_match(&AlignRows::widen_x16, {{}}, up_to(70), 2,
                        {0, 1, 2, 7}, [](tavo::WidenX16RowFn row, const uint8_t* src, size_t n) {
                          std::vector<uint16_t> dst(n + 8, 0xBEEF);
                          row(src, dst.data() + n % 3, static_cast<int32_t>(n));
                          return dst;
                        });
  expect_variants_match(&AlignRows::split_pairs, {{}}, up_to(70), 2,
                        {0, 1, 2, 7}, [](tavo::SplitPairsRowFn row, const uint8_t* src, size_t n) {
                          std::vector<uint8_t> dst(2 * n + 16, 0xEE);
                          row(src, dst.data() + 1, dst.data() + n + 9, static_cast<int32_t>(n));
                          return dst;
                        });
  expect_variants_match(&AlignRows::merge_pairs, {{}}, up_to(70), 2,
                        {0, 1, 2, 7}, [](tavo::MergePairsRowFn row, const uint8_t* src, size_t n) {
                          std::vector<uint8_t> dst(2 * n + 16, 0xEE);
                          row(src, src + n + 1, dst.data() + n % 5, static_cast<int32_t>(n));
                          return dst;
                        });
}

TEST(AlignRows, CountAboveRowsMatchPortable) {
  // Lengths around the vector and the 15-vector nibble counters; windows at
  // both ends and across the signed-compare boundary. The rows add to the
  // counts they are given.
  expect_variants_match(
      &AlignRows::count_above, {{}, {0}, {255}, {0, 255}, {126, 127, 128, 129}, {0, 1, 2, 7, 8, 9}, {246, 247, 248, 254}},
      {0, 1, 15, 16, 31, 32, 33, 63, 65, 15 * 64 - 1, 15 * 64 + 1, 255 * 32 + 47, 3 * 255 * 32 + 17}, 1, {0, 3},
      [](tavo::CountAboveRowFn row, const uint8_t* src, size_t n) {
        std::vector<uint64_t> above;
        for (int32_t first : {0, 1, 121, 124, 200, 247, tavo::kLastFirstLevel}) {
          std::vector<uint64_t> counts(tavo::kThresholdLevels);
          for (int k = 0; k < tavo::kThresholdLevels; ++k) counts[k] = k;
          row(src, n, first, counts.data());
          above.insert(above.end(), counts.begin(), counts.end());
        }
        return above;
      });
  // A long row of the worst case: every byte above every level, past the
  // point where wider counters are summed.
  const std::vector<uint8_t> bright(2049 * 15 * 16 + 5, 255);
  for (const auto& [set, row] : tavo::test::RowVariants(tavo::GetAlignRows, &AlignRows::count_above)) {
    std::vector<uint64_t> above(tavo::kThresholdLevels);
    row(bright.data(), bright.size(), 0, above.data());
    EXPECT_EQ(above, std::vector<uint64_t>(tavo::kThresholdLevels, bright.size())) << set;
  }
}

}  // namespace
