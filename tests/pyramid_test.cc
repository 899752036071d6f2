// Gaussian reduction, band-pass (Laplacian) levels and reconstruction, through
// their dispatchers and as one band over a whole level, against a whole-image
// model that reflects indices at the borders instead of cutting bands.
#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include "fusion/pyramid_geometry.h"
#include "include/tavo_lumo_hdr.h"
#include "platform/memory.h"
#include "support/test_support.h"

namespace tavo {
namespace {

using test::LogCapture;
using U16 = std::vector<uint16_t>;
using S16 = std::vector<int16_t>;

// ---- Whole-image model -----------------------------------------------------

int reflect(int i, int n) { return i < 0 ? -i : (i >= n ? 2 * n - 2 - i : i); }

// 1-4-6-4-1 and subsample, horizontally then vertically, rounding each pass.
U16 model_reduce(const U16& src, int w, int h) {
  const int wd = half_up(w), hd = half_up(h), k[5] = {1, 4, 6, 4, 1};
  U16 t(static_cast<size_t>(wd) * h), out(static_cast<size_t>(wd) * hd);
  for (int y = 0; y < h; ++y) {
    for (int j = 0; j < wd; ++j) {
      uint32_t s = 8;
      for (int i = 0; i < 5; ++i) s += k[i] * src[y * w + reflect(2 * j + i - 2, w)];
      t[y * wd + j] = static_cast<uint16_t>(s >> 4);
    }
  }
  for (int i = 0; i < hd; ++i) {
    for (int x = 0; x < wd; ++x) {
      uint32_t s = 8;
      for (int r = 0; r < 5; ++r) s += k[r] * t[reflect(2 * i + r - 2, h) * wd + x];
      out[i * wd + x] = static_cast<uint16_t>(s >> 4);
    }
  }
  return out;
}

// Two-phase expansion of sample x from n coarse samples read through c(k).
template <class Get>
int32_t expand_at(Get c, int n, int x) {
  const int k = x / 2, r = reflect(k + 1, n);
  return x % 2 ? (c(k) + c(r) + 1) >> 1 : (c(reflect(k - 1, n)) + 6 * c(k) + c(r) + 4) >> 3;
}

// Expansion of a coarse level to wf x hf; the coarse samples are read as
// signed or unsigned 16-bit, the horizontally expanded ones as unsigned.
template <class Sample>
std::vector<int32_t> model_expand(const std::vector<Sample>& coarse, int wc, int hc, int wf,
                                  int hf) {
  U16 t(static_cast<size_t>(wf) * hc);
  for (int y = 0; y < hc; ++y) {
    for (int x = 0; x < wf; ++x) {
      t[y * wf + x] = static_cast<uint16_t>(
          expand_at([&](int k) -> int32_t { return coarse[y * wc + k]; }, wc, x));
    }
  }
  std::vector<int32_t> e(static_cast<size_t>(wf) * hf);
  for (int y = 0; y < hf; ++y) {
    for (int x = 0; x < wf; ++x) {
      e[y * wf + x] = expand_at([&](int k) -> int32_t { return t[k * wf + x]; }, hc, y);
    }
  }
  return e;
}

template <class Sample>
std::vector<Sample> random_plane(int n, int lo, int hi, uint32_t seed) {
  std::mt19937 rng(seed);
  std::uniform_int_distribution<int> d(lo, hi);
  std::vector<Sample> v(n);
  for (auto& s : v) s = static_cast<Sample>(d(rng));
  return v;
}

// Fine level sizes the tests run through: every height 4 ... 40 with widths
// of both parities, some of them at level 1 of the tables, and a tall level
// whose bands are uneven (375 = 92 + 92 + 92 + 99).
struct LevelCase {
  int w, h, level;
};
std::vector<LevelCase> level_cases() {
  const int widths[] = {4, 5, 6, 7, 9, 16, 17, 33, 40, 71};
  std::vector<LevelCase> cases;
  for (int h = 4; h <= 40; ++h) cases.push_back({widths[h % 10], h, h % 3 == 0 ? 1 : 0});
  cases.push_back({37, 375, 0});
  cases.push_back({64, 375, 1});
  return cases;
}

// Size tables in which level `level` is w x h and level + 1 its half.
struct Tables {
  std::vector<int32_t> w, h;
  Tables(const LevelCase& c) : w(c.level + 2), h(c.level + 2) {
    w[c.level] = c.w;
    h[c.level] = c.h;
    if (c.level == 1) w[0] = 2 * c.w + 3, h[0] = 2 * c.h + 1;  // never read
    w[c.level + 1] = half_up(c.w);
    h[c.level + 1] = half_up(c.h);
  }
  int n(int l) const { return w[l] * h[l]; }
};

std::string where(const LevelCase& c) {
  return std::to_string(c.w) + "x" + std::to_string(c.h) + " level " + std::to_string(c.level);
}

class Pyramid : public test::PoolTest {};

// ---- Gaussian reduction ----------------------------------------------------

TEST_F(Pyramid, GaussianMatchesTheModelInFourBandsAndInOne) {
  for (const LevelCase& c : level_cases()) {
    const Tables t(c);
    const int l = c.level;
    U16 fine = random_plane<uint16_t>(t.n(l), 0, 4080, c.w * 1000 + c.h);
    const U16 expect = model_reduce(fine, c.w, c.h);
    std::vector<uint16_t*> table(l + 2, nullptr);
    U16 banded(t.n(l + 1), 0xBEEF), single(t.n(l + 1), 0xBEEF);
    table[l] = fine.data();
    table[l + 1] = banded.data();
    EXPECT_EQ(pyramid_gaussian_down_sample_uint8_process(table.data(), l, t.w.data(), t.h.data()), 0);
    EXPECT_EQ(banded, expect) << where(c);

    uint16_t* pointers[2] = {fine.data(), single.data()};
    const int32_t widths[2] = {t.w[l], t.w[l + 1]}, rows[2] = {t.h[l], t.h[l + 1]};
    EXPECT_EQ(pyramid_gaussian_down_sample_uint8(pointers, widths, rows, 0, 1), 0);
    EXPECT_EQ(single, expect) << where(c);
    EXPECT_EQ(pointers[0], fine.data());
  }
}

// Columns and rows 0 ... 3 of value 16 i reduce to 12, 30 (even size: weight
// 7 on the last centre); 0 ... 4 to 12, 32, 52 (odd size).
TEST_F(Pyramid, GaussianBordersByHand) {
  const struct {
    int n;
    std::vector<uint16_t> expect;
  } cases[] = {{4, {12, 30}}, {5, {12, 32, 52}}};
  for (const auto& c : cases) {
    for (bool along_rows : {true, false}) {
      const int w = along_rows ? c.n : 6, h = along_rows ? 7 : c.n;
      U16 fine(w * h), coarse(half_up(w) * half_up(h));
      for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) fine[y * w + x] = 16 * (along_rows ? x : y);
      uint16_t* table[2] = {fine.data(), coarse.data()};
      const int32_t ws[2] = {w, half_up(w)}, hs[2] = {h, half_up(h)};
      pyramid_gaussian_down_sample_uint8_process(table, 0, ws, hs);
      for (int y = 0; y < hs[1]; ++y)
        for (int x = 0; x < ws[1]; ++x)
          EXPECT_EQ(coarse[y * ws[1] + x], c.expect[along_rows ? x : y]) << w << "x" << h;
    }
  }
}

// ---- Band-pass levels --------------------------------------------------------

TEST_F(Pyramid, LaplacianMatchesTheModelInFourBandsAndInOne) {
  for (const LevelCase& c : level_cases()) {
    const Tables t(c);
    const int l = c.level;
    // Full 16-bit Gaussian samples: the difference wraps in 16 bits.
    U16 fine = random_plane<uint16_t>(t.n(l), 0, 65535, c.h);
    U16 coarse = random_plane<uint16_t>(t.n(l + 1), 0, c.h % 2 ? 4080 : 65535, c.w);
    const std::vector<int32_t> e = model_expand(coarse, t.w[l + 1], t.h[l + 1], c.w, c.h);
    S16 expect(t.n(l));
    for (int i = 0; i < t.n(l); ++i) expect[i] = static_cast<int16_t>(fine[i] - e[i]);

    std::vector<uint16_t*> gauss(l + 2, nullptr);
    std::vector<int16_t*> lap(l + 2, nullptr);
    gauss[l] = fine.data();
    gauss[l + 1] = coarse.data();
    S16 banded(t.n(l), 0x5A5A), single(t.n(l), 0x5A5A);
    lap[l] = banded.data();
    EXPECT_EQ(pyramid_laplacian_down_sample_process(lap.data(), gauss.data(), l, t.w.data(),
                                                    t.h.data(), l + 2),
              0);
    EXPECT_EQ(banded, expect) << where(c);

    uint16_t* pointers[2] = {fine.data(), coarse.data()};
    const int32_t widths[2] = {t.w[l], t.w[l + 1]}, rows[2] = {t.h[l], t.h[l + 1]};
    EXPECT_EQ(pyramid_laplacian_down_sample(single.data(), pointers, widths, rows, 0, 1), 0);
    EXPECT_EQ(single, expect) << where(c);
  }
}

// Coarse 0, 100 expands to 25, 50, 75, 50 (fine size 4: the last sample
// averages with the reflected c[0]) or 25, 50, 75 (fine size 3), along rows and
// along columns.
TEST_F(Pyramid, LaplacianBordersByHand) {
  for (int n : {3, 4}) {
    const int32_t expect[4] = {25, 50, 75, 50};
    for (bool along_rows : {true, false}) {
      const int w = along_rows ? n : 5, h = along_rows ? 6 : n;
      const int wc = half_up(w), hc = half_up(h);
      U16 fine(w * h, 1000), coarse(wc * hc);
      for (int y = 0; y < hc; ++y)
        for (int x = 0; x < wc; ++x) coarse[y * wc + x] = 100 * (along_rows ? x : y);
      S16 lap(w * h);
      uint16_t* gauss[2] = {fine.data(), coarse.data()};
      int16_t* laps[2] = {lap.data(), nullptr};
      const int32_t ws[2] = {w, wc}, hs[2] = {h, hc};
      pyramid_laplacian_down_sample_process(laps, gauss, 0, ws, hs, 2);
      for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x)
          EXPECT_EQ(lap[y * w + x], 1000 - expect[along_rows ? x : y]) << w << "x" << h;
    }
  }
}

// ---- Reconstruction ------------------------------------------------------------

TEST_F(Pyramid, ReconstructionMatchesTheModelInFourBandsAndInOne) {
  for (const LevelCase& c : level_cases()) {
    const Tables t(c);
    const int l = c.level;
    // Fused samples around the clamps; a coarse level over the whole signed
    // range, so that negative samples expand to large unsigned ones.
    const S16 fused = random_plane<int16_t>(t.n(l), -6000, 6000, c.h);
    const S16 coarse = random_plane<int16_t>(t.n(l + 1), c.h % 2 ? -32768 : -200,
                                             c.h % 2 ? 32767 : 4200, c.w);
    const std::vector<int32_t> e = model_expand(coarse, t.w[l + 1], t.h[l + 1], c.w, c.h);
    S16 expect(t.n(l));
    std::vector<uint8_t> expect_luma(t.n(0), 0xEE);
    for (int i = 0; i < t.n(l); ++i) {
      const int32_t r = std::clamp(fused[i] + e[i], 0, 4080);
      expect[i] = static_cast<int16_t>(r);
      if (l == 0) expect_luma[i] = static_cast<uint8_t>((r + 8) >> 4);
    }

    S16 banded = fused, single = fused, coarse_copy = coarse;
    std::vector<uint8_t> luma(t.n(0), 0xEE), single_luma(t.n(0), 0xEE);
    std::vector<int16_t*> levels(l + 2, nullptr);
    levels[l] = banded.data();
    levels[l + 1] = coarse_copy.data();
    EXPECT_EQ(pyramid_reconstruct_y_process(luma.data(), levels.data(), t.w.data(), t.h.data(), l),
              0u);
    EXPECT_EQ(banded, expect) << where(c);
    EXPECT_EQ(luma, expect_luma) << where(c);
    EXPECT_EQ(coarse_copy, coarse);

    int16_t* planes[2] = {single.data(), coarse_copy.data()};
    const int32_t widths[2] = {t.w[l], t.w[l + 1]}, rows[2] = {t.h[l], t.h[l + 1]};
    EXPECT_EQ(pyramid_reconstruct_y(single_luma.data(), planes, widths, rows, l, 0, 1), 0);
    EXPECT_EQ(single, expect) << where(c);
    EXPECT_EQ(single_luma, expect_luma) << where(c);
  }
}

// ---- The three together ----------------------------------------------------------

// Reduce, take band-pass levels, keep the top Gaussian level and collapse:
// every level comes back exactly, and level 0 gives the 8-bit image again.
TEST_F(Pyramid, CollapsingAnUnblendedPyramidGivesTheImageBack) {
  for (auto [w, h] : {std::pair{64, 48}, {37, 29}, {200, 150}, {9, 4}, {6, 7}, {4, 4}}) {
    const int levels = pyramid_level_count(w, h);
    std::vector<int32_t> ws(levels), hs(levels);
    fill_pyramid_sizes(ws.data(), hs.data(), w, h, levels);
    const auto image = random_plane<uint8_t>(w * h, 0, 255, w + h);
    std::vector<U16> gauss(levels);
    std::vector<S16> lap(levels);
    std::vector<uint16_t*> gauss_table;
    std::vector<int16_t*> lap_table;
    for (int l = 0; l < levels; ++l) {
      gauss[l].assign(ws[l] * hs[l], 0);
      lap[l].assign(ws[l] * hs[l], 0);
      gauss_table.push_back(gauss[l].data());
      lap_table.push_back(lap[l].data());
    }
    for (int i = 0; i < w * h; ++i) gauss[0][i] = static_cast<uint16_t>(image[i] * 16);
    for (int l = 0; l + 1 < levels; ++l)
      pyramid_gaussian_down_sample_uint8_process(gauss_table.data(), l, ws.data(), hs.data());
    for (int l = 0; l + 1 < levels; ++l)
      pyramid_laplacian_down_sample_process(lap_table.data(), gauss_table.data(), l, ws.data(),
                                            hs.data(), levels);
    std::copy(gauss[levels - 1].begin(), gauss[levels - 1].end(), lap[levels - 1].begin());
    std::vector<uint8_t> out(w * h, 0);
    for (int l = levels - 2; l >= 0; --l) {
      pyramid_reconstruct_y_process(out.data(), lap_table.data(), ws.data(), hs.data(), l);
      EXPECT_TRUE(std::equal(lap[l].begin(), lap[l].end(), gauss[l].begin())) << w << "x" << h;
    }
    EXPECT_EQ(out, image) << w << "x" << h;
  }
}

// Flat levels keep their value everywhere, borders included: a constant level
// reduces to itself, a constant pair gives zero band-pass samples, and zero
// band-pass samples over a constant coarse level collapse to it. A negative
// coarse sample expands to a scratch value read back as unsigned, so it
// collapses to white.
TEST_F(Pyramid, FlatLevelsStayFlat) {
  for (auto [w, h] : {std::pair{4, 4}, {5, 5}, {6, 7}, {9, 4}, {33, 17}, {18, 40}}) {
    const int32_t ws[2] = {w, half_up(w)}, hs[2] = {h, half_up(h)};
    const int n = w * h, nc = ws[1] * hs[1];
    for (int v : {0, 1, 777, 4080}) {
      U16 fine(n, static_cast<uint16_t>(v)), coarse(nc, 0);
      uint16_t* gauss[2] = {fine.data(), coarse.data()};
      pyramid_gaussian_down_sample_uint8_process(gauss, 0, ws, hs);
      EXPECT_EQ(coarse, U16(nc, static_cast<uint16_t>(v))) << w << "x" << h << " " << v;

      S16 lap(n, 99);
      int16_t* laps[2] = {lap.data(), nullptr};
      pyramid_laplacian_down_sample_process(laps, gauss, 0, ws, hs, 2);
      EXPECT_EQ(lap, S16(n, 0)) << w << "x" << h << " " << v;
    }
    for (int v : {0, 1, 777, 4080, -16}) {
      S16 fused(n, 0), coarse(nc, static_cast<int16_t>(v));
      std::vector<uint8_t> luma(n, 7);
      int16_t* levels[2] = {fused.data(), coarse.data()};
      pyramid_reconstruct_y_process(luma.data(), levels, ws, hs, 0);
      const int expect = v < 0 ? 4080 : v;
      EXPECT_EQ(fused, S16(n, static_cast<int16_t>(expect))) << w << "x" << h << " " << v;
      EXPECT_EQ(luma, std::vector<uint8_t>(n, static_cast<uint8_t>((expect + 8) >> 4)));
    }
  }
}

// ---- Failures ----------------------------------------------------------------------

// Bit b set when band b (of four, `band_len` samples each) still holds its
// `before` samples; every other band must hold `good`.
template <class V>
unsigned untouched_bands(const V& out, const V& before, const V& good, int band_len) {
  unsigned mask = 0;
  for (int b = 0; b < 4; ++b) {
    const auto first = out.begin() + b * band_len, last = first + band_len;
    if (std::equal(first, last, before.begin() + b * band_len)) {
      mask |= 1u << b;
    } else {
      EXPECT_TRUE(std::equal(first, last, good.begin() + b * band_len)) << "band " << b;
    }
  }
  return mask;
}

// A band whose scratch cannot be taken logs, writes none of its rows and the
// dispatcher still returns 0; the other bands complete. Which allocations
// fail after the first `budget` depends on the workers' timing, so the bands
// are checked against the number of failures logged.
TEST_F(Pyramid, BandsWithoutScratchLeaveTheirRowsAndLog) {
  const LevelCase c{21, 40, 0};  // bands of 10 fine and 5 coarse rows
  const Tables t(c);
  const int fine_band = 10 * c.w, coarse_band = 5 * t.w[1];
  U16 fine = random_plane<uint16_t>(t.n(0), 0, 4080, 5);
  U16 coarse = model_reduce(fine, c.w, c.h);
  const S16 fused = random_plane<int16_t>(t.n(0), -100, 100, 6);
  const S16 fused_coarse = random_plane<int16_t>(t.n(1), 0, 4080, 7);
  uint16_t* gauss[2] = {fine.data(), coarse.data()};

  // Runs `stage` with allocations failing after `budget`; returns the number
  // of times `message` was logged.
  auto failing = [](long budget, const std::string& message, auto stage) {
    LogCapture log;
    platform::fail_allocations_after(budget);
    stage();
    platform::fail_allocations_after(-1);
    return log.count(message);
  };
  for (long budget : {0L, 1L, 3L, 5L}) {
    SCOPED_TRACE("budget " + std::to_string(budget));
    const U16 unset(t.n(1), 0xBEEF);
    U16 reduced = unset;
    uint16_t* reduce_table[2] = {fine.data(), reduced.data()};
    int failures = failing(budget, "L 970, pyramid_gaussian_down_sample_uint8: temp_p malloc fail\n", [&] {
      EXPECT_EQ(pyramid_gaussian_down_sample_uint8_process(reduce_table, 0, t.w.data(), t.h.data()), 0);
    });
    EXPECT_EQ(std::popcount(untouched_bands(reduced, unset, coarse, coarse_band)), failures);
    if (budget <= 1) {
      EXPECT_EQ(failures, 4);
    }

    const S16 lap_unset(t.n(0), 0x5A5A);
    S16 lap_good(t.n(0)), lap = lap_unset;
    int16_t* laps[2] = {lap_good.data(), nullptr};
    pyramid_laplacian_down_sample_process(laps, gauss, 0, t.w.data(), t.h.data(), 2);
    laps[0] = lap.data();
    failures = failing(budget, "L 1184, pyramid_laplacian_down_sample: o_temp_ptr malloc fail\n", [&] {
      EXPECT_EQ(pyramid_laplacian_down_sample_process(laps, gauss, 0, t.w.data(), t.h.data(), 2), 0);
    });
    EXPECT_EQ(std::popcount(untouched_bands(lap, lap_unset, lap_good, fine_band)), failures);
    if (budget <= 1) {
      EXPECT_EQ(failures, 4);
    }

    using Luma = std::vector<uint8_t>;
    const Luma luma_unset(t.n(0), 0xEE);
    S16 level_good = fused, level = fused, top = fused_coarse;
    Luma luma_good(t.n(0)), luma = luma_unset;
    int16_t* levels[2] = {level_good.data(), top.data()};
    pyramid_reconstruct_y_process(luma_good.data(), levels, t.w.data(), t.h.data(), 0);
    levels[0] = level.data();
    failures = failing(budget, "L 1652, pyramid_reconstruct_y: o_temp_ptr malloc fail\n", [&] {
      EXPECT_EQ(pyramid_reconstruct_y_process(luma.data(), levels, t.w.data(), t.h.data(), 0), 0u);
    });
    const unsigned kept = untouched_bands(level, fused, level_good, fine_band);
    EXPECT_EQ(untouched_bands(luma, luma_unset, luma_good, fine_band), kept);
    EXPECT_EQ(std::popcount(kept), failures);
    if (budget <= 1) {
      EXPECT_EQ(failures, 4);
    }
  }
}

// Null tables are reported with every pointer and the work goes on. Without an
// output plane the reconstruction still collapses the level.
TEST_F(Pyramid, NullOutputPlaneIsReportedAndTheLevelStillCollapses) {
  const int32_t ws[2] = {8, 4}, hs[2] = {6, 3};
  S16 fused(48, 5), coarse(12, 160);
  int16_t* levels[2] = {fused.data(), coarse.data()};
  LogCapture log;
  EXPECT_EQ(pyramid_reconstruct_y_process(nullptr, levels, ws, hs, 0), 0u);
  char expect[160];
  snprintf(expect, sizeof expect,
           "L 760, pyramid_reconstruct_y_process: in_buffer is NULL,0x0,0x%x,0x%x,0x%x,0x0\n",
           static_cast<unsigned>(reinterpret_cast<uintptr_t>(levels)),
           static_cast<unsigned>(reinterpret_cast<uintptr_t>(ws)),
           static_cast<unsigned>(reinterpret_cast<uintptr_t>(hs)));
  EXPECT_EQ(log.count(expect), 1) << log.joined();
  EXPECT_EQ(fused, S16(48, 165));
}

// The reduction and band-pass dispatchers read the tables they report, so a
// null table ends the process right after its report.
TEST(PyramidDeathTest, NullTablesAreReportedFirst) {
  GTEST_FLAG_SET(death_test_style, "fast");
  const int32_t ws[2] = {8, 4}, hs[2] = {8, 4};
  EXPECT_DEATH(
      {
        setenv("TAVO_TEST_LOG", "1", 1);
        pyramid_gaussian_down_sample_uint8_process(nullptr, 0, ws, hs);
      },
      "L 544, pyramid_gaussian_down_sample_uint8_process: in_buffer is "
      "NULL,0x0,0x[0-9a-f]+,0x[0-9a-f]+,0x0\n");
  EXPECT_DEATH(
      {
        setenv("TAVO_TEST_LOG", "1", 1);
        pyramid_laplacian_down_sample_process(nullptr, nullptr, 0, ws, hs, 2);
      },
      "L 607, pyramid_laplacian_down_sample_process: in_buffer is "
      "NULL,0x0,0x0,0x[0-9a-f]+,0x[0-9a-f]+,0x0\n");
}

}  // namespace
}  // namespace tavo
