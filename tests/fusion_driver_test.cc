// The fusion driver against the exported kernels composed level by level, and
// what it refuses. (Its allocation failures are swept with the capture's.)
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <vector>

#include "include/tavo_lumo_hdr.h"
#include "support/test_support.h"

namespace tavo {
namespace {

using test::LogCapture;

class FusionDriver : public test::PoolTest {
 protected:
  // Three exposures of one smooth scene, full frames of w x h.
  void make_frames(int32_t w, int32_t h, const char* layout) {
    width_ = w;
    height_ = h;
    frames_ = test::bracket(w, h, layout, 21);
  }
  int32_t fuse(int32_t crop_w, int32_t crop_h, const int32_t* offsets, const char* layout,
               std::vector<uint8_t>& out) {
    const uint8_t* ptrs[3] = {frames_[0].data(), frames_[1].data(), frames_[2].data()};
    return pyrFuse(ptrs, 3, width_, height_, crop_w, crop_h, offsets, out.data(), layout);
  }
  int32_t width_ = 0, height_ = 0;
  std::array<std::vector<uint8_t>, 3> frames_;
};

// The streamed fusion equals the exported kernels composed level by level,
// byte for byte: crops of odd and even sides, levels of one band, crops of
// fewer than two levels, both layouts, frames of extreme contrast, and many
// frames whose weight sums wrap.
TEST_F(FusionDriver, EqualsTheLevelByLevelReference) {
  std::mt19937 rng(7);
  const auto extreme = [&](int32_t w, int32_t h, int phase) {
    std::vector<uint8_t> frame(static_cast<size_t>(w) * h * 3 / 2);
    for (size_t i = 0; i < frame.size(); ++i) {
      const size_t x = i % w, y = i / w;
      frame[i] = ((x + y + phase) & 1) != 0 ? 255 : (rng() % 3 == 0 ? 128 : 0);
    }
    return frame;
  };
  int cases = 0;
  for (const char* layout : {"YUV420_PLANAR", "YVU420_SEMIPLANAR"}) {
    for (int32_t crop_w : {2, 5, 8, 9, 16, 31, 64, 130}) {
      for (int32_t crop_h : {2, 3, 4, 7, 8, 9, 17, 40}) {
        for (bool wild : {false, true}) {
          const int32_t w = (crop_w + 7 + 8) / 8 * 8, h = (crop_h + 5) / 2 * 2;
          if (wild) {
            for (int f = 0; f < 3; ++f) frames_[f] = extreme(w, h, f);
          } else {
            frames_ = test::bracket(w, h, layout, static_cast<uint32_t>(crop_w * 100 + crop_h));
          }
          width_ = w;
          height_ = h;
          int32_t offsets[6];
          for (int f = 0; f < 3; ++f) {
            offsets[2 * f] = static_cast<int32_t>(rng() % (w - crop_w + 1));
            offsets[2 * f + 1] = static_cast<int32_t>(rng() % (h - crop_h + 1));
          }
          std::vector<uint8_t> streamed(static_cast<size_t>(w) * h * 3 / 2, 0xAB), reference = streamed;
          ASSERT_EQ(fuse(crop_w, crop_h, offsets, layout, streamed), 0);
          const uint8_t* ptrs[3] = {frames_[0].data(), frames_[1].data(), frames_[2].data()};
          test::reference_fusion(ptrs, 3, w, h, crop_w, crop_h, offsets, layout, reference.data());
          ASSERT_EQ(streamed, reference) << layout << " crop " << crop_w << "x" << crop_h << (wild ? " extreme" : "");
          if (crop_h < 4) {  // one level: no collapse, the luma is left as it was
            EXPECT_EQ(std::count(streamed.begin(), streamed.begin() + crop_w * crop_h, 0xAB), crop_w * crop_h);
          }
          ++cases;
        }
      }
    }
  }
  EXPECT_EQ(cases, 256);

  // Sixty-four frames of a bright cell on black (no chroma layout, so any count):
  // at the coarse levels the weight sums of the bright cell pass 2^31 and wrap.
  // The chroma of an unknown layout is left as it was, and said so.
  const int32_t w = 96, h = 96;
  std::vector<std::vector<uint8_t>> many(64, std::vector<uint8_t>(w * h * 3 / 2, 0));
  std::vector<const uint8_t*> ptrs;
  for (auto& frame : many) {
    for (int32_t y = 32; y < 64; ++y) std::fill_n(frame.begin() + y * w + 32, 32, 188);
    ptrs.push_back(frame.data());
  }
  const int32_t offsets[128] = {};
  std::vector<uint8_t> streamed(w * h * 3 / 2, 0xAB), reference = streamed;
  LogCapture log;
  ASSERT_EQ(pyrFuse(ptrs.data(), 64, w, h, w, h, offsets, streamed.data(), "NV21"), 0);
  EXPECT_EQ(log.count("pyrFuse: layout NV21 is neither YUV420_PLANAR nor YVU420_SEMIPLANAR, chroma not fused\n"), 1);
  test::reference_fusion(ptrs.data(), 64, w, h, w, h, offsets, "NV21", reference.data());
  EXPECT_EQ(streamed, reference);
  EXPECT_EQ(std::count(streamed.begin() + w * h, streamed.end(), 0xAB), w * h / 2);
}

TEST_F(FusionDriver, RefusesWhatItCannotFuse) {
  make_frames(16, 16, "YUV420_PLANAR");
  const int32_t offsets[6] = {0, 0, 0, 0, 0, 0};
  std::vector<uint8_t> out(16 * 16 * 3 / 2, 0);
  const uint8_t* ptrs[3] = {frames_[0].data(), frames_[1].data(), frames_[2].data()};
  LogCapture log;
  EXPECT_EQ(fuse(16, 1, offsets, "YUV420_PLANAR", out), -1);
  EXPECT_EQ(pyrFuse(nullptr, 3, 16, 16, 16, 16, offsets, out.data(), "YUV420_PLANAR"), -1);
  // Chroma is fused from three frames: fewer are refused before anything is read.
  for (const char* layout : {"YUV420_PLANAR", "YVU420_SEMIPLANAR"}) {
    for (uint32_t n : {1u, 2u}) EXPECT_EQ(pyrFuse(ptrs, n, 16, 16, 16, 16, offsets, out.data(), layout), -1);
  }
  EXPECT_EQ(log.count("pyrFuse input error"), 6);
  EXPECT_EQ(log.count("is fused from 3 frames, 2 given"), 2);
}

}  // namespace
}  // namespace tavo
