// The fusion driver against the exported kernels composed level by level (and
// resized into a frame as it goes, against image_resize), and what it refuses. (Its allocation failures are swept with the capture's.)
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include "align/crop_to_frame.h"
#include "fusion/pyramid_geometry.h"
#include "fusion/pyramid_stages.h"
#include "include/tavo_lumo_hdr.h"
#include "support/test_support.h"

namespace tavo {
namespace {

using Frame = std::vector<uint8_t>;

class FusionDriver : public test::PoolTest {};

// pyrFuse of full w x h frames cropped to crop_w x crop_h, which must equal
// the reference, both written over 0xAB: what either leaves must match too.
// Where a capture resizes the crop as the fusion makes it (even sides, two
// levels or more, a layout with chroma), the frame it fills must equal
// image_resize of the reference crop.
void fuse_both_ways(const std::vector<const uint8_t*>& frames, int32_t w, int32_t h, int32_t crop_w,
                    int32_t crop_h, const int32_t* offsets, const char* layout) {
  const auto n = static_cast<uint32_t>(frames.size());
  Frame streamed(static_cast<size_t>(w) * h * 3 / 2, 0xAB), reference = streamed;
  EXPECT_EQ(pyrFuse(frames.data(), n, w, h, crop_w, crop_h, offsets, streamed.data(), layout), 0);
  test::reference_fusion(frames.data(), n, w, h, crop_w, crop_h, offsets, layout, reference.data());
  EXPECT_EQ(streamed, reference);

  const ChromaLayout chroma = parse_layout(layout);
  if (crop_w % 2 != 0 || crop_h % 2 != 0 || chroma == ChromaLayout::kOther || pyramid_level_count(crop_w, crop_h) < 2) {
    return;
  }
  std::vector<int32_t> maps(CropToFrame::bytes(crop_w, crop_h, w) / sizeof(int32_t) + 1);
  Frame resized(streamed.size(), 0xAB), expected = resized, crop = resized;
  const CropToFrame frame(maps.data(), crop_w, crop_h, w, h, chroma, resized.data());
  EXPECT_EQ(fuse_crop(frames.data(), n, w, h, crop_w, crop_h, offsets, crop.data(), layout, &frame), 0);
  image_resize(reference.data(), expected.data(), crop_w, crop_h, w, h, layout);
  EXPECT_EQ(resized, expected);
}

// The streamed fusion equals the exported kernels composed level by level,
// byte for byte: crops of odd and even sides, levels of one band, crops of
// fewer than two levels, both layouts, frames of extreme contrast, and many
// frames whose weight sums wrap.
TEST_F(FusionDriver, EqualsTheLevelByLevelReference) {
  std::mt19937 rng(7);
  for (const char* layout : {"YUV420_PLANAR", "YVU420_SEMIPLANAR"}) {
    for (int32_t crop_w : {2, 5, 8, 9, 16, 31, 64, 130}) {
      for (int32_t crop_h : {2, 3, 4, 7, 8, 9, 17, 40}) {
        for (bool extreme : {false, true}) {
          SCOPED_TRACE(std::string(layout) + " crop " + std::to_string(crop_w) + "x" + std::to_string(crop_h) +
                       (extreme ? " extreme" : ""));
          const int32_t w = (crop_w + 7 + 8) / 8 * 8, h = (crop_h + 5) / 2 * 2;
          auto frames = test::bracket(w, h, layout, static_cast<uint32_t>(crop_w * 100 + crop_h));
          for (int f = 0; f < 3 && extreme; ++f) {  // 255 beside 0 or 128 everywhere
            for (size_t i = 0; i < frames[f].size(); ++i) {
              frames[f][i] = ((i % w + i / w + f) & 1) != 0 ? 255 : (rng() % 3 == 0 ? 128 : 0);
            }
          }
          int32_t offsets[6];
          for (int f = 0; f < 3; ++f) {
            offsets[2 * f] = static_cast<int32_t>(rng() % (w - crop_w + 1));
            offsets[2 * f + 1] = static_cast<int32_t>(rng() % (h - crop_h + 1));
          }
          fuse_both_ways({frames[0].data(), frames[1].data(), frames[2].data()}, w, h, crop_w, crop_h, offsets, layout);
          ASSERT_FALSE(HasFailure());
        }
      }
    }
  }

  // Sixty-four frames of a bright cell on black (no chroma layout, so any count):
  // at the coarse levels the weight sums of the bright cell pass 2^31 and wrap.
  // The chroma of an unknown layout is left as it was, and said so.
  const int32_t w = 96, h = 96;
  std::vector<Frame> many(64, Frame(w * h * 3 / 2, 0));
  std::vector<const uint8_t*> ptrs;
  for (auto& frame : many) {
    for (int32_t y = 32; y < 64; ++y) std::fill_n(frame.begin() + y * w + 32, 32, 188);
    ptrs.push_back(frame.data());
  }
  const int32_t offsets[128] = {};
  test::LogCapture log;
  fuse_both_ways(ptrs, w, h, w, h, offsets, "NV21");
  EXPECT_EQ(log.count("pyrFuse: layout NV21 is neither YUV420_PLANAR nor YVU420_SEMIPLANAR, chroma not fused\n"), 1);
}

TEST_F(FusionDriver, RefusesWhatItCannotFuse) {
  const auto frames = test::bracket(16, 16, "YUV420_PLANAR", 21);
  const uint8_t* ptrs[3] = {frames[0].data(), frames[1].data(), frames[2].data()};
  const int32_t offsets[6] = {};
  Frame out(16 * 16 * 3 / 2, 0);
  test::LogCapture log;
  EXPECT_EQ(pyrFuse(ptrs, 3, 16, 16, 16, 1, offsets, out.data(), "YUV420_PLANAR"), -1);
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
