// The planes registration works on: crops of the frames (luma widened to
// 16-bit samples, chroma pairs split into planes), one wavelet level (2x2
// means, threshold bitmap, validity mask), and the nearest-neighbour resize
// of the fused crop into the caller's layout.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <tuple>
#include <vector>

#include "align/exposure_shift.h"
#include "align/registration.h"
#include "fusion/pyramid_geometry.h"
#include "include/tavo_lumo_hdr.h"
#include "pool/band_jobs.h"
#include "support/test_support.h"

namespace {

using tavo::half_up;
using tavo::test::random_bytes;

// Luma widened to sixteen times the source, chroma pairs split into planes;
// widths below, at and above the vector steps, crops starting anywhere. The
// chroma origin's x counts bytes: an odd x swaps the roles of the two planes.
TEST(FrameWarp, CropsCopyTheSource) {
  const int32_t stride = 80, src_rows = 9;
  std::vector<uint8_t> src = random_bytes(stride * src_rows, 1);
  src[3 * stride + 5] = 255, src[3 * stride + 6] = 1, src[3 * stride + 7] = 0;
  for (int32_t width : {1, 7, 8, 9, 15, 16, 17, 18, 33}) {
    for (auto [xs, ys] : {std::pair{0, 0}, std::pair{5, 3}, std::pair{6, 1}, std::pair{80 - 66, 2}}) {
      const int32_t rows = src_rows - ys;
      std::vector<uint16_t> luma(width * rows + 1, 0xBEEF);
      std::vector<uint8_t> odd(width * rows + 1, 0xEE), even(odd);
      EXPECT_EQ(imageAffine(src.data(), luma.data(), stride, width, rows, xs, ys), 0u);
      EXPECT_EQ(imageAffine_uv(src.data(), odd.data(), even.data(), stride, width, rows, xs, ys), 0u);
      for (int32_t r = 0; r < rows; ++r) {
        const uint8_t* s = src.data() + (ys + r) * stride + xs;
        for (int32_t j = 0; j < width; ++j) {
          ASSERT_EQ(luma[r * width + j], s[j] * 16) << width << " at " << xs << "," << ys << " " << r << "," << j;
          ASSERT_EQ(even[r * width + j], s[2 * j]) << width << " at " << xs << "," << ys << " " << r << "," << j;
          ASSERT_EQ(odd[r * width + j], s[2 * j + 1]) << width << " at " << xs << "," << ys << " " << r << "," << j;
        }
      }
      EXPECT_EQ(std::tuple(luma.back(), odd.back(), even.back()), std::tuple(0xBEEF, 0xEE, 0xEE));
    }
  }
}

// A start before the frame (xs + ys * stride < 0) is reported by every band
// and the copy still runs from the given position.
TEST(FrameWarp, CropsBeforeTheFrameAreReported) {
  tavo::test::LogCapture log;
  const std::vector<uint8_t> src = random_bytes(64, 4);
  std::vector<uint16_t> dst(4);
  imageAffine(src.data() + 16, dst.data(), 8, 4, 1, 3, -1);
  EXPECT_EQ(dst[0], src[16 - 8 + 3] * 16);
  EXPECT_EQ(log.count("imageAffine: p0 location error,xs:3,ys:-1\n"), 1) << log.joined();
  imageAffine(src.data() + 16, dst.data(), 8, 4, 0, -1, 0);
  EXPECT_EQ(log.count("p0 location error,xs:-1,ys:0\n"), 1);
  uint8_t o[4], e[4];
  imageAffine_uv(src.data() + 16, o, e, 8, 2, 1, static_cast<uint32_t>(-2), 0);
  EXPECT_EQ(e[0], src[14]);
  EXPECT_EQ(log.count("imageAffine_uv: p0 location error,xs:-2,ys:0\n"), 1) << log.joined();
  imageAffine_process(src.data() + 16, dst.data(), 8, 1, 4, 0, static_cast<uint32_t>(-1));
  EXPECT_EQ(log.count("p0 location error,xs:0,ys:-1\n"), 4) << log.joined();
}

struct Level {
  std::vector<uint8_t> approx, bitmap, mask;
  bool operator==(const Level&) const = default;
};

// The kernel over the whole image, which the dispatcher's bands must equal.
Level decompose(const std::vector<uint8_t>& src, int32_t w, int32_t h, int32_t t) {
  const std::vector<uint8_t> unset(static_cast<size_t>(half_up(w)) * half_up(h), 0xEE);
  Level out{unset, unset, unset}, bands = out;
  wltDecompose(src.data(), out.approx.data(), out.bitmap.data(), out.mask.data(), w, h, t);
  wltDecompose_process(src.data(), w, h, bands.approx.data(), t, bands.bitmap.data(), bands.mask.data());
  EXPECT_TRUE(bands == out) << "bands of " << w << "x" << h << " t " << t;
  // The registration's pass of two levels at once: the bitmap and mask of this
  // level and the whole next level, as two whole-image kernels give them.
  const int32_t w1 = half_up(w), h1 = half_up(h);
  const std::vector<uint8_t> unset2(static_cast<size_t>(half_up(w1)) * half_up(h1), 0xEE);
  Level next{unset2, unset2, unset2}, two = next, one{unset, unset, unset};
  wltDecompose(out.approx.data(), next.approx.data(), next.bitmap.data(), next.mask.data(), w1, h1, t);
  std::vector<uint8_t> scratch(static_cast<size_t>(tavo::kWaveletScratchRows) * w1);
  const tavo::WaveletTarget upper{src.data(), nullptr, one.bitmap.data(), one.mask.data(), t};
  const tavo::WaveletTarget lower{nullptr, two.approx.data(), two.bitmap.data(), two.mask.data(), t};
  tavo::decompose_two_levels(&upper, &lower, 1, w, h, scratch.data());
  EXPECT_TRUE(one.bitmap == out.bitmap && one.mask == out.mask && two == next) << "two levels of " << w << "x" << h;
  return out;
}

// The level as a whole-image statement: the mean of the block's samples that
// exist (4, 2 at the odd last column or the unpaired last row, 1 at the corner),
// truncated; the exclusion band is +-4 clamped to 0...255 for outputs of the
// 16-column main part and +-20 unclamped for the tail.
Level reference(const std::vector<uint8_t>& src, int32_t w, int32_t h, int32_t t) {
  const int32_t ow = half_up(w), oh = half_up(h);
  Level out{std::vector<uint8_t>(ow * oh), std::vector<uint8_t>(ow * oh), std::vector<uint8_t>(ow * oh)};
  for (int32_t R = 0; R < oh; ++R) {
    for (int32_t C = 0; C < ow; ++C) {
      int32_t sum = 0, n = 0;
      for (int32_t r = 2 * R; r < std::min(2 * R + 2, h); ++r) {
        for (int32_t c = 2 * C; c < std::min(2 * C + 2, w); ++c, ++n) sum += src[r * w + c];
      }
      const int32_t a = sum / n;
      const bool main_part = 2 * C < (w & ~15);
      const int32_t lo = main_part ? std::max(t - 4, 0) : t - 20;
      const int32_t hi = main_part ? std::min(t + 4, 255) : t + 20;
      out.approx[R * ow + C] = static_cast<uint8_t>(a);
      out.bitmap[R * ow + C] = a > t;
      out.mask[R * ow + C] = a >= lo && a <= hi ? 0 : 255;
    }
  }
  return out;
}

class Wavelet : public tavo::test::PoolTest {};

// Every batch goes to the workers; heights leave chunks uneven or empty.
TEST_F(Wavelet, MatchesBlockMeansOnRandomImages) {
  tavo::set_inline_work_limit_for_testing(0);
  const int32_t sizes[][2] = {{1, 1},  {1, 7},  {2, 2},   {15, 3},  {16, 2},  {16, 5}, {17, 4}, {31, 9},
                              {32, 1}, {33, 33}, {47, 10}, {64, 13}, {100, 7}, {6, 67}, {37, 375}};
  uint32_t seed = 1;
  for (const auto& [w, h] : sizes) {
    for (int32_t t : {0, 3, 4, 100, 127, 251, 252, 255}) {
      const std::vector<uint8_t> src = random_bytes(static_cast<size_t>(w) * h, seed++);
      EXPECT_EQ(decompose(src, w, h, t), reference(src, w, h, t)) << w << "x" << h << " t " << t;
    }
  }
  // Smooth images put many means close to the threshold, also where the
  // exclusion band is clamped at 0 and 255 (main part) or not (tail).
  const int32_t w = 77, h = 21;
  std::vector<uint8_t> ramp(w * h);
  for (int32_t base : {0, 90, 210}) {
    for (int32_t i = 0; i < w * h; ++i) ramp[i] = static_cast<uint8_t>(std::min(255, base + (i % w) / 3 + (i / w)));
    for (int32_t t = std::max(0, base - 5); t < std::min(256, base + 50); ++t) {
      EXPECT_EQ(decompose(ramp, w, h, t), reference(ramp, w, h, t)) << base << " t " << t;
    }
  }
  tavo::set_inline_work_limit_for_testing(tavo::kInlineWork);
}

// Pixel-by-pixel statement of the sampling, written independently of the
// library's per-call column tables.
std::vector<uint8_t> reference_resize(const std::vector<uint8_t>& src, int32_t sw, int32_t sh,
                                      int32_t dw, int32_t dh, bool interleave, size_t size) {
  std::vector<uint8_t> dst(size, 0xEE);
  const float sx = static_cast<float>(sw) / static_cast<float>(dw);
  const float sy = static_cast<float>(sh) / static_cast<float>(dh);
  for (int32_t i = 0; i < dh; ++i) {
    for (int32_t j = 0; j < dw; ++j) {
      const int32_t r = std::min(sh - 1, static_cast<int32_t>(sy * static_cast<float>(i)));
      const int32_t c = std::min(sw - 1, static_cast<int32_t>(sx * static_cast<float>(j)));
      dst[static_cast<size_t>(i) * dw + j] = src[static_cast<size_t>(r) * sw + c];
    }
  }
  if (dw < 2 || dh < 2) return dst;
  for (int32_t i = 0; i < dh / 2; ++i) {
    for (int32_t j = 0; j < dw / 2; ++j) {
      int32_t r = static_cast<int32_t>(sy * static_cast<float>(i));
      int32_t c = static_cast<int32_t>(sx * static_cast<float>(j));
      if (r >= sh / 2) r = sh / 2 - 1;
      if (c >= sw / 2) c = sw / 2 - 1;
      const uint8_t u = src[sw * sh + (r * sw) / 2 + c];
      const uint8_t v = src[(sw * sh * 5) / 4 + (r * sw) / 2 + c];
      if (interleave) {
        dst[dw * dh + 2 * (i * (dw / 2) + j)] = v;
        dst[dw * dh + 2 * (i * (dw / 2) + j) + 1] = u;
      } else {
        dst[dw * dh + (i * dw) / 2 + j] = u;
        dst[(dw * dh * 5) / 4 + (i * dw) / 2 + j] = v;
      }
    }
  }
  return dst;
}

class ImageResize : public tavo::test::PoolTest {};

TEST_F(ImageResize, MatchesPixelByPixelSamplingOnAnySize) {
  struct Case {
    int32_t sw, sh, dw, dh;
  } cases[] = {{3994, 2, 4000, 4},  {16, 16, 4100, 6}, {8200, 4, 4099, 3}, {7, 5, 13, 9},
               {20, 12, 6, 4},      {5, 3, 2, 2},      {64, 48, 3, 7},     {2, 2, 9, 11},
               {100, 80, 1, 5},     {30, 20, 7, 1},    {1998, 8, 2000, 10}, {10, 6, 10, 6},
               {93, 4, 21, 4},  // same size: a copy; 93/21 rounds down in single precision
               {598, 250, 600, 251},  // large enough for the pool
               {8, 8, 8, 0},        {8, 8, 0, 8},      {8, 8, 8, -2}};  // nothing to write
  for (const Case& c : cases) {
    const std::vector<uint8_t> src = random_bytes(static_cast<size_t>(c.sw) * c.sh * 3 / 2, c.dw);
    const size_t size = static_cast<size_t>(std::max(c.dw * c.dh, 0)) * 3 / 2 + 8;
    for (const char* layout : {"YUV420_PLANAR", "YVU420_SEMIPLANAR", "NV21?"}) {  // any other name is planar
      const bool interleave = strcmp(layout, "YVU420_SEMIPLANAR") == 0;
      const std::vector<uint8_t> expect = reference_resize(src, c.sw, c.sh, c.dw, c.dh, interleave, size);
      // The exported resize, and the pipeline's in chunks of rows on the pool.
      for (bool in_bands : {false, true}) {
        std::vector<uint8_t> dst(size, 0xEE);
        in_bands ? tavo::resize_in_bands(src.data(), dst.data(), c.sw, c.sh, c.dw, c.dh, tavo::parse_layout(layout))
                 : image_resize(src.data(), dst.data(), c.sw, c.sh, c.dw, c.dh, layout);
        EXPECT_EQ(dst, expect) << c.sw << "x" << c.sh << " -> " << c.dw << "x" << c.dh << " " << layout
                               << (in_bands ? " in bands" : "");
      }
    }
  }
}

}  // namespace
