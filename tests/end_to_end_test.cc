// Whole captures of the synthetic scene: the output bytes are pinned by
// checksums recorded once, which every architecture and every instruction-set
// mask must reproduce.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <ostream>
#include <tuple>

#include "include/tavo_lumo_hdr.h"
#include "support/cpu_masks.h"
#include "support/test_support.h"
#include "tools/scene/scene.h"

namespace tavo {
namespace {

struct CaptureCase {
  int32_t width, height;
  ChromaLayout layout;
  int32_t dx0, dy0, dx2, dy2;  // hand shake of the outer frames
  uint64_t checksum;           // of the fused frame
};

void PrintTo(const CaptureCase& c, std::ostream* os) {
  *os << c.width << "x" << c.height << " " << layout_name(c.layout) << " shifts (" << c.dx0 << ","
      << c.dy0 << ") (" << c.dx2 << "," << c.dy2 << ")";
}

std::vector<uint8_t> capture(const CaptureCase& c, int32_t* result) {
  const auto frames = scene::render_bracket(scene::Scene{c.width, c.height, 3},
                                            scene::BracketSetup{c.layout, c.dx0, c.dy0, c.dx2, c.dy2});
  std::vector<uint8_t> out(frames[0].size(), 0);
  *result = HDR_Function(frames[0].data(), frames[1].data(), frames[2].data(), out.data(), c.height,
                         c.width, layout_name(c.layout));
  return out;
}

class EndToEnd : public test::PoolTest,
                 public ::testing::WithParamInterface<std::tuple<CaptureCase, test::CpuMask>> {};

TEST_P(EndToEnd, FusedFrameMatchesItsChecksum) {
  const test::ScopedTickingClock clock;
  const CaptureCase& c = std::get<0>(GetParam());
  const test::CpuMask& m = std::get<1>(GetParam());
  if (test::RepeatsAnEarlierMask(m)) GTEST_SKIP() << "the rows of an earlier mask";
  const test::ScopedCpuMask mask(m.mask);
  SCOPED_TRACE(test::RowTables{}.sets());
  int32_t result = -1;
  const std::vector<uint8_t> out = capture(c, &result);
  ASSERT_EQ(result, 0);
  const uint64_t checksum = scene::fnv1a64(out.data(), out.size());
  EXPECT_EQ(checksum, c.checksum) << "0x" << std::hex << checksum;
}

INSTANTIATE_TEST_SUITE_P(
    Scenes, EndToEnd,
    ::testing::Combine(::testing::Values(
        CaptureCase{8, 2, ChromaLayout::kPlanar, 0, 0, 0, 0, 0x7c877546bc121311},
        CaptureCase{8, 2, ChromaLayout::kSemiPlanar, 0, 0, 0, 0, 0xdf9bc261b7f77b33},
        CaptureCase{200, 120, ChromaLayout::kPlanar, 4, -2, -6, 2, 0xd99e01512780bd26},
        CaptureCase{328, 246, ChromaLayout::kSemiPlanar, -4, 6, 2, -4, 0xa2df5485a08e80fe},
        CaptureCase{1928, 1090, ChromaLayout::kPlanar, 6, -4, -8, 2, 0x7745dc87b259b1bf},
        CaptureCase{1920, 1080, ChromaLayout::kSemiPlanar, -6, 4, 8, -2, 0xf35f27225c3167e}),
        ::testing::ValuesIn(test::kCpuMasks)),
    [](const ::testing::TestParamInfo<std::tuple<CaptureCase, test::CpuMask>>& info) {
      const CaptureCase& c = std::get<0>(info.param);
      return std::to_string(c.width) + "x" + std::to_string(c.height) +
             (c.layout == ChromaLayout::kPlanar ? "Planar" : "SemiPlanar") + "_" + std::get<1>(info.param).name;
    });

}  // namespace
}  // namespace tavo
