// Every dispatcher X_process against its kernel: the bands it cuts give what
// the kernel gives over the whole image as one band and, for the pyramid
// stages and blending, what a whole-image model gives; null arguments are
// reported with their pointers; a band whose allocations fail leaves its rows
// as they were and says so, and nothing is left allocated. (The wavelet level,
// the mismatch count and the thresholds are held to whole-image models in
// align_planes_test.cc and align_shift_test.cc.)
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

#include "fusion/pyramid_geometry.h"
#include "include/tavo_lumo_hdr.h"
#include "platform/fixed_point_mean.h"
#include "platform/log.h"
#include "platform/memory.h"
#include "pool/band_jobs.h"
#include "support/test_support.h"

namespace tavo {
namespace {

using test::random_samples;
using Bytes = std::vector<uint8_t>;
using U16 = std::vector<uint16_t>;
using S16 = std::vector<int16_t>;

// The bytes of every vector given, one after the other.
template <class... V>
Bytes bytes_of(const V&... v) {
  Bytes out;
  (out.insert(out.end(), reinterpret_cast<const uint8_t*>(v.data()),
              reinterpret_cast<const uint8_t*>(v.data() + v.size())),
   ...);
  return out;
}

// One dispatcher on inputs made from `seed`: run in bands, its kernel over the
// whole w x h image as one band, the whole-image model where there is one, or
// (for those with scratch) nothing run; returns what would be written.
enum Mode { kKernel, kBands, kUntouched, kModel };
struct Dispatcher {
  const char* name;
  int min_side;  // pyramid levels of fewer than 4 samples have no coarser level
  std::function<Bytes(int mode, int w, int h, uint32_t seed)> run;
  const char* scratch_failure = nullptr;  // what a band logs when its scratch cannot be had
  bool has_model = false;
};

// ---- Whole-image models: indices reflect at the borders ------------------

int reflect(int i, int n) { return i < 0 ? -i : (i >= n ? 2 * n - 2 - i : i); }

// 1-4-6-4-1 and subsample, horizontally then vertically, rounding each pass.
U16 model_reduce(const U16& src, int w, int h) {
  const int wd = half_up(w), hd = half_up(h), k[5] = {1, 4, 6, 4, 1};
  U16 t(wd * h), out(wd * hd);
  for (int y = 0; y < h; ++y)
    for (int j = 0; j < wd; ++j) {
      uint32_t s = 8;
      for (int i = 0; i < 5; ++i) s += k[i] * src[y * w + reflect(2 * j + i - 2, w)];
      t[y * wd + j] = static_cast<uint16_t>(s >> 4);
    }
  for (int i = 0; i < hd; ++i)
    for (int x = 0; x < wd; ++x) {
      uint32_t s = 8;
      for (int r = 0; r < 5; ++r) s += k[r] * t[reflect(2 * i + r - 2, h) * wd + x];
      out[i * wd + x] = static_cast<uint16_t>(s >> 4);
    }
  return out;
}

// Two-phase expansion of sample x from n coarse samples read through c(k).
template <class Get>
int32_t expand_at(Get c, int n, int x) {
  const int k = x / 2, r = reflect(k + 1, n);
  return x % 2 ? (c(k) + c(r) + 1) >> 1 : (c(reflect(k - 1, n)) + 6 * c(k) + c(r) + 4) >> 3;
}

// Expansion of the half-size level to w x h. The coarse samples are read as
// their own type (signed or unsigned), the horizontally expanded ones as
// unsigned 16-bit.
template <class Sample>
std::vector<int32_t> model_expand(const std::vector<Sample>& coarse, int w, int h) {
  const int wc = half_up(w), hc = half_up(h);
  U16 t(w * hc);
  for (int y = 0; y < hc; ++y)
    for (int x = 0; x < w; ++x)
      t[y * w + x] = static_cast<uint16_t>(expand_at([&](int k) { return int32_t{coarse[y * wc + k]}; }, wc, x));
  std::vector<int32_t> e(w * h);
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x) e[y * w + x] = expand_at([&](int k) { return int32_t{t[k * w + x]}; }, hc, y);
  return e;
}

// A blended sample straight from the description of the weights, sums in 64
// bits reduced to 32 at the end. Valid Gaussian samples only (0 ... 4080).
int16_t model_blend(const std::vector<U16>& g, const std::vector<S16>& l, const U16& lut, int w, int h, int p) {
  const int x = p % w, y = p / w;
  const bool border = x == 0 || x == w - 1 || y == 0 || y == h - 1;
  int64_t w_sum = 0, s_sum = 0;
  for (size_t f = 0; f < g.size(); ++f) {
    const int c = g[f][p];
    int64_t e = static_cast<int16_t>(lut[(c + 8) >> 4]);
    e = e == 0 ? 1 : e;
    if (!border) e *= std::max(std::abs(g[f][p - w] + g[f][p + w] + g[f][p - 1] + g[f][p + 1] - 4 * c) >> 6, 1);
    w_sum += e;
    s_sum += e * l[f][p];
  }
  const auto w32 = static_cast<uint32_t>(w_sum), s32 = static_cast<uint32_t>(s_sum);
  return !border && x <= (w - 2) / 8 * 8 ? blend_mean_grouped(w32, s32) : blend_mean_exact(w32, s32);
}

// Size tables in which level l = seed % 2 is w x h and level l + 1 its half;
// at level 1 entry 0 holds a size no kernel may use.
struct Tables {
  int l;
  std::vector<int32_t> w, h;
  Tables(int fw, int fh, uint32_t seed) : l(seed % 2), w(l + 2, 2 * fw + 3), h(l + 2, 2 * fh + 1) {
    w[l] = fw, h[l] = fh, w[l + 1] = half_up(fw), h[l + 1] = half_up(fh);
  }
  // The pair {level, level + 1} of a table as a kernel takes it.
  template <class T>
  std::vector<T*> table(T* fine, T* coarse = nullptr) const {
    std::vector<T*> t(l + 2, nullptr);
    t[l] = fine, t[l + 1] = coarse;
    return t;
  }
};

// One to four frames of one level, held as level 1 of their pyramids for the
// dispatcher (entry 0 is never read).
Bytes blend(int mode, int w, int h, uint32_t seed) {
  const int n = 1 + static_cast<int>(seed % 4);
  const U16 lut = random_samples<uint16_t>(256, seed, 0, 1024);
  std::vector<U16> gauss(n);
  std::vector<S16> lap(n);
  S16 out(w * h, 0x5a5a);
  std::vector<uint16_t*> g(2 * n), g_rows(n);
  std::vector<int16_t*> l(2 * n), l_rows(n);
  std::vector<uint16_t**> gp(n);
  std::vector<int16_t**> lp(n);
  for (int f = 0; f < n; ++f) {
    gauss[f] = random_samples<uint16_t>(w * h, seed + f, 0, 4080), lap[f] = random_samples<int16_t>(w * h, seed + 9 + f, -4080, 4080);
    g[2 * f] = g[2 * f + 1] = g_rows[f] = gauss[f].data(), l[2 * f] = l[2 * f + 1] = l_rows[f] = lap[f].data();
    gp[f] = &g[2 * f], lp[f] = &l[2 * f];
  }
  int16_t* out_levels[2] = {nullptr, out.data()};
  const int32_t widths[2] = {0, w}, heights[2] = {0, h};
  if (mode == kBands) fusion_pyramid_process(out_levels, lut.data(), lp.data(), gp.data(), widths, heights, 1, n);
  if (mode == kKernel) fusion_pyramid(out.data(), lut.data(), l_rows.data(), g_rows.data(), w, h, n, 0, 1);
  for (int p = 0; p < w * h && mode == kModel; ++p) out[p] = model_blend(gauss, lap, lut, w, h, p);
  return bytes_of(out);
}

const Dispatcher kDispatchers[] = {
    {"imageAffine", 1, [](int banded, int w, int h, uint32_t seed) {
       const uint32_t stride = w + 9;
       const Bytes src = test::random_bytes(stride * (h + 3), seed);
       U16 dst(w * h, 0xBEEF);
       banded ? imageAffine_process(src.data(), dst.data(), stride, w, h, 5, 3) : imageAffine(src.data(), dst.data(), stride, w, h, 5, 3);
       return bytes_of(dst);
     }},
    {"imageAffine_uv", 1, [](int banded, int w, int h, uint32_t seed) {
       const uint32_t stride = 2 * w + 9;
       const Bytes src = test::random_bytes(stride * (h + 2), seed);
       Bytes odd(w * h, 0xEE), even(w * h, 0xEE);
       banded ? imageAffine_uv_process(src.data(), odd.data(), even.data(), stride, w, h, 3, 2)
              : imageAffine_uv(src.data(), odd.data(), even.data(), stride, w, h, 3, 2);
       return bytes_of(odd, even);
     }},
    {"saturation", 1, [](int banded, int w, int h, uint32_t seed) {
       Bytes plane = test::random_bytes(w * h, seed);
       banded ? (void)saturation_process(plane.data(), w, h, 1.7f) : saturation(plane.data(), w, h, 1.7f);
       return plane;
     }},
    {"fusionUV", 1, [](int banded, int w, int h, uint32_t seed) {
       // Any frame count; planes beyond the third come through the extras,
       // whose second element is the plane.
       const int frames = 1 + static_cast<int>(seed % 5);
       const U16 lut = random_samples<uint16_t>(256, seed, 0, 65535);
       Bytes planes[5];
       const uint8_t* all[5];
       for (int f = 0; f < 5; ++f) planes[f] = test::random_bytes(w * h, seed + f), all[f] = planes[f].data();
       const uint8_t* e0[2] = {nullptr, all[3]};
       const uint8_t* e1[2] = {nullptr, all[4]};
       const uint8_t* const* extra[2] = {e0, e1};
       Bytes out(w * h, 0xEE);
       banded ? fusionUV_process(all, out.data(), lut.data(), w, h, frames, extra)
              : fusionUV(all, out.data(), lut.data(), w, h, frames);
       return out;
     }},
    {"fusion_pyramid", 1, blend, "row pointer arrays not allocated, band left unblended\n", true},
    {"pyramid_gaussian_down_sample_uint8", 4, [](int mode, int w, int h, uint32_t seed) {
       const Tables t(w, h, seed);
       const U16 fine = random_samples<uint16_t>(w * h, seed, 0, 4080);
       U16 coarse(half_up(w) * half_up(h), 0xBEEF);
       auto table = t.table(const_cast<uint16_t*>(fine.data()), coarse.data());
       if (mode == kBands) pyramid_gaussian_down_sample_uint8_process(table.data(), t.l, t.w.data(), t.h.data());
       if (mode == kKernel) pyramid_gaussian_down_sample_uint8(&table[t.l], &t.w[t.l], &t.h[t.l], 0, 1);
       return bytes_of(mode == kModel ? model_reduce(fine, w, h) : coarse);
     }, "L 970, pyramid_gaussian_down_sample_uint8: temp_p malloc fail\n", true},
    // Band-pass samples of full 16-bit Gaussian samples wrap in 16 bits.
    {"pyramid_laplacian_down_sample", 4, [](int mode, int w, int h, uint32_t seed) {
       const Tables t(w, h, seed);
       U16 fine = random_samples<uint16_t>(w * h, seed, 0, 65535),
           coarse = random_samples<uint16_t>(half_up(w) * half_up(h), seed + 1, 0, seed % 3 ? 65535 : 4080);
       S16 lap(w * h, 0x5A5A);
       auto gauss = t.table(fine.data(), coarse.data());
       auto laps = t.table(lap.data());
       if (mode == kBands) pyramid_laplacian_down_sample_process(laps.data(), gauss.data(), t.l, t.w.data(), t.h.data(), t.l + 2);
       if (mode == kKernel) pyramid_laplacian_down_sample(lap.data(), &gauss[t.l], &t.w[t.l], &t.h[t.l], 0, 1);
       if (mode == kModel) {
         const std::vector<int32_t> e = model_expand(coarse, w, h);
         for (int i = 0; i < w * h; ++i) lap[i] = static_cast<int16_t>(fine[i] - e[i]);
       }
       return bytes_of(lap);
     }, "L 1184, pyramid_laplacian_down_sample: o_temp_ptr malloc fail\n", true},
    // Fused samples around the clamps onto a coarse level, at times over the
    // whole signed range: negative samples expand to large unsigned ones.
    {"pyramid_reconstruct_y", 4, [](int mode, int w, int h, uint32_t seed) {
       const Tables t(w, h, seed);
       const bool wide = seed % 3 == 0;
       S16 fused = random_samples<int16_t>(w * h, seed, -6000, 6000),
           top = random_samples<int16_t>(half_up(w) * half_up(h), seed + 1, wide ? -32768 : -200, wide ? 32767 : 4200);
       Bytes luma(w * h, 0xEE);
       auto levels = t.table(fused.data(), top.data());
       if (mode == kBands) pyramid_reconstruct_y_process(luma.data(), levels.data(), t.w.data(), t.h.data(), t.l);
       if (mode == kKernel) pyramid_reconstruct_y(luma.data(), &levels[t.l], &t.w[t.l], &t.h[t.l], t.l, 0, 1);
       if (mode == kModel) {
         const std::vector<int32_t> e = model_expand(top, w, h);
         for (int i = 0; i < w * h; ++i) {
           fused[i] = static_cast<int16_t>(std::clamp(fused[i] + e[i], 0, 4080));
           if (t.l == 0) luma[i] = static_cast<uint8_t>((fused[i] + 8) >> 4);
         }
       }
       return bytes_of(fused, luma);
     }, "L 1652, pyramid_reconstruct_y: o_temp_ptr malloc fail\n", true},
};

class Dispatchers : public test::PoolTest {};

// Heights that leave bands empty, uneven or odd under every split rule (tall
// levels split 92 + 92 + 92 + 99), widths of both parities around the
// eight-sample groups; every batch goes to the workers.
TEST_F(Dispatchers, BandsEqualTheKernelOverOneBandAndTheModel) {
  set_inline_work_limit_for_testing(0);
  uint32_t seed = 1;
  for (const Dispatcher& d : kDispatchers) {
    for (int h : {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 13, 14, 17, 33, 67, 375}) {
      for (int w : {1, 4, 6, 9, 10, 17, 37}) {
        if (w < d.min_side || h < d.min_side) continue;
        SCOPED_TRACE(std::string(d.name) + " " + std::to_string(w) + "x" + std::to_string(h));
        const Bytes bands = d.run(kBands, w, h, ++seed);
        ASSERT_EQ(bands, d.run(kKernel, w, h, seed));
        if (d.has_model) {
          ASSERT_EQ(bands, d.run(kModel, w, h, seed)) << "model";
        }
      }
    }
  }
  set_inline_work_limit_for_testing(kInlineWork);
}

// The allocations of a batch sent to the workers fail from the k-th on: job
// records (the band then runs on the caller, and says so) and each band's own
// scratch. A band without its scratch logs and leaves its rows; the others
// are complete.
TEST_F(Dispatchers, BandsWithoutScratchLeaveTheirRowsAndLog) {
  set_inline_work_limit_for_testing(0);
  for (const Dispatcher& d : kDispatchers) {
    if (d.scratch_failure == nullptr) continue;
    const int w = 21, h = 40;
    const Bytes whole = d.run(kBands, w, h, 3), untouched = d.run(kUntouched, w, h, 3);
    for (long k = 0;; ++k) {
      SCOPED_TRACE(std::string(d.name) + " allocation " + std::to_string(k));
      test::LogCapture log;
      platform::fail_allocations_after(k);  // the inputs are not the library's allocations
      const Bytes out = d.run(kBands, w, h, 3);
      const bool injected = platform::allocations_since_switch() > k;
      platform::fail_allocations_after(-1);
      const int failed = log.count(d.scratch_failure);
      EXPECT_EQ(out == whole, failed == 0) << log.joined();
      EXPECT_LE(failed, 4);
      for (size_t i = 0; i < out.size(); ++i) ASSERT_TRUE(out[i] == whole[i] || out[i] == untouched[i]) << i;
      if (k == 0) {  // every band ran on the caller, none had its scratch
        EXPECT_EQ(std::pair(out, failed), std::pair(untouched, 4));
        EXPECT_EQ(log.count("can't malloc job, job runs on the calling thread\n"), 4);
      }
      if (!injected) break;
    }
  }
  set_inline_work_limit_for_testing(kInlineWork);
}

// A pointer as the log writes it.
std::string hex(const void* p) {
  char s[16];
  snprintf(s, sizeof s, "0x%x", platform::log_hex(p));
  return s;
}

// Null arguments are reported with every pointer (as 32-bit hex). The
// reduction and band-pass dispatchers go on to read the tables they report,
// which ends the process right after the report; the collapse goes on
// without an output plane; the others do nothing more.
TEST(DispatchersDeathTest, NullArgumentsAreReportedWithTheirPointers) {
  const auto* a = reinterpret_cast<uint8_t*>(0xa10);
  auto* b = reinterpret_cast<uint8_t*>(0xb20);
  auto* table = reinterpret_cast<uint16_t*>(0xc30);
  auto* sizes = reinterpret_cast<const int32_t*>(0xd40);
  S16 fused(48, 5), top(12, 160);
  int16_t* levels[2] = {fused.data(), top.data()};
  const int32_t ws[2] = {8, 4}, hs[2] = {6, 3};
  uint32_t count = 99;
  const uint8_t* src[3] = {a, a, a};
  const struct {
    std::function<void()> call;
    std::vector<std::string> lines;  // those without "L n, " end the logged line
    bool dies = false;
  } cases[] = {
      {[&] { imageAffine_process(nullptr, reinterpret_cast<uint16_t*>(b), 8, 4, 0, 0, 0); },
       {", imageAffine_process: in_buffer is NULL,0x0,0xb20\n"}},
      {[&] { imageAffine_uv_process(a, nullptr, b, 8, 4, 0, 0, 0); },
       {", imageAffine_uv_process: in_buffer is NULL,0xa10,0x0,0xb20\n"}},
      {[&] { wltDecompose_process(nullptr, 8, 0, b, 10, b, b); }, {", wltDecompose_process: in_buffer is NULL\n"}},
      {[&] { imageAffine_xor_and_process(nullptr, a, a, a, 8, 0, 0, 0, &count); },
       {", imageAffine_xor_and_process: in_buffer is NULL,0x0,0xa10,0xa10,0xa10\n"}},
      {[&] { fusion_pyramid_process(nullptr, table, nullptr, nullptr, sizes, sizes, 0, 3); },
       {"L 679, fusion_pyramid_process: in_buffer is NULL,0x0,0xc30,0x0,0x0,0xd40,0xd40\n"}},
      {[&] { fusionUV(src, b, table, 4, 1, 0); }, {", fusionUV: no frames to fuse (0)\n"}},
      {[&] { fusionUV_process(src, b, table, 4, 1, 4, nullptr); },  // a fourth plane needs the extras
       {"L 868, fusionUV_process: in_buffer is NULL," + hex(src) + ",0xb20,0xc30,0x0\n",
        ", fusionUV_process: 4 frames asked, not all planes given, nothing fused\n"}},
      {[&] { fusionUV_plane_process(nullptr, b, b, table, 2, 2, 4, 1, sizes); },
       {"L 930, fusionUV_plane_process: in_buffer is NULL,0x0,0xb20,0xb20,0xc30\n"}},
      {[&] { fusionUV_semiplane_process(src, b, nullptr, table, 2, 2, 4, 1, sizes); },
       {"L 992, fusionUV_semiplane_process: in_buffer is NULL," + hex(src) + ",0xb20,0x0,0xc30\n"}},
      {[&] { pyramid_reconstruct_y_process(nullptr, levels, ws, hs, 0); },
       {"L 760, pyramid_reconstruct_y_process: in_buffer is NULL,0x0," + hex(levels) + "," + hex(ws) + "," + hex(hs) + ",0x0\n"}},
      {[&] { pyramid_gaussian_down_sample_uint8_process(nullptr, 0, sizes, sizes); },
       {"L 544, pyramid_gaussian_down_sample_uint8_process: in_buffer is NULL,0x0,0xd40,0xd40,0x0\n"}, true},
      {[&] { pyramid_laplacian_down_sample_process(nullptr, nullptr, 0, sizes, sizes, 2); },
       {"L 607, pyramid_laplacian_down_sample_process: in_buffer is NULL,0x0,0x0,0xd40,0xd40,0x0\n"}, true},
  };
  GTEST_FLAG_SET(death_test_style, "fast");
  for (const auto& c : cases) {
    if (c.dies) {
      EXPECT_DEATH((test::EchoLogToStderr(), c.call()), c.lines[0]);
      continue;
    }
    test::LogCapture log;
    c.call();
    std::vector<std::string> lines;  // without the pool each band runs on the caller, and says so
    for (const std::string& line : log.lines()) {
      if (line.find("no thread pool") == std::string::npos) lines.push_back(line);
    }
    ASSERT_EQ(lines.size(), c.lines.size()) << log.joined();
    for (size_t i = 0; i < lines.size(); ++i) {
      const std::string& want = c.lines[i];
      EXPECT_TRUE(want.starts_with("L ") ? lines[i] == want : lines[i].starts_with("L ") && lines[i].ends_with(want))
          << lines[i] << " is not " << want;
    }
  }
  EXPECT_EQ(count, 0u);                 // the count is reset first
  EXPECT_EQ(fused, S16(48, 165));  // the collapse ran: 5 + 160
}

}  // namespace
}  // namespace tavo
