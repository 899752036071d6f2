// The environment's instruction-set switches take their sets away from every
// row family as masking them does; TAVO_HDR_PORTABLE takes all of them.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <optional>
#include <string>
#include <tuple>
#include <utility>

#include "align/mismatch_rows.h"
#include "align/threshold_rows.h"
#include "align/warp_rows.h"
#include "align/wavelet_rows.h"
#include "chroma/chroma_rows.h"
#include "fusion/blend_rows.h"
#include "fusion/pyramid_rows.h"
#include "platform/cpu.h"
#include "platform/environment.h"
#include "support/cpu_masks.h"

namespace tavo {
namespace {

using platform::kCpuHasAVX2;
using platform::kCpuHasNEON;
using platform::kCpuHasSSE41;

// What every family's selector returns.
auto selected() {
  return std::make_tuple(SelectMismatchRow(), SelectWidenX16Row(), SelectSplitPairsRow(),
                         SelectWaveletMainRow(128), SelectCountAboveRow(), SelectBlendGroups(),
                         &SelectPyramidRows(), SelectChromaRows());
}

// Sets a variable (unsets it for null) and has the library read the
// environment again; puts both back when it goes.
class ScopedSwitch {
 public:
  ScopedSwitch(const char* variable, const char* value) : variable_(variable) {
    if (const char* old = getenv(variable)) old_ = old;
    set(value);
  }
  ~ScopedSwitch() { set(old_ ? old_->c_str() : nullptr); }

 private:
  void set(const char* value) {
    value != nullptr ? setenv(variable_, value, 1) : unsetenv(variable_);
    platform::read_environment();
    platform::MaskCpuFlags(-1);
  }
  const char* variable_;
  std::optional<std::string> old_;
};

constexpr struct {
  const char* variable;
  int mask;
} kSwitches[] = {{"TAVO_HDR_DISABLE_AVX2", ~kCpuHasAVX2},
                 {"TAVO_HDR_DISABLE_SSE41", ~kCpuHasSSE41},
                 {"TAVO_HDR_DISABLE_NEON", ~kCpuHasNEON},
                 {"TAVO_HDR_PORTABLE", 0}};

TEST(CpuFlags, EnvironmentSwitchesActLikeMasks) {
  std::optional<ScopedSwitch> cleared[std::size(kSwitches)];  // whatever the test run was given
  for (size_t i = 0; i < std::size(kSwitches); ++i) cleared[i].emplace(kSwitches[i].variable, nullptr);
  for (const auto& s : kSwitches) {
    const auto masked = [&] {
      const test::ScopedCpuMask mask(s.mask);
      return selected();
    }();
    const ScopedSwitch on(s.variable, "1");
    EXPECT_EQ(platform::TestCpuFlag(~s.mask), 0) << s.variable;
    EXPECT_TRUE(selected() == masked) << s.variable;
  }
  const ScopedSwitch portable("TAVO_HDR_PORTABLE", "1");
  EXPECT_TRUE(selected() == std::make_tuple(MismatchRow_C, WidenX16Row_C, SplitPairsRow_C, WaveletMainRow_C,
                                            CountAboveRow_C, BlendGroups_C, &PyramidRows_C,
                                            ChromaRowFns{ChromaGroups_C, ChromaPairGroups_C}));
}

// The sets on, printed; a run on an emulated processor names the ones it
// must have in TAVO_TEST_CPU_SETS.
TEST(CpuFlags, SetsOnAreTheExpectedOnes) {
  std::string on;
  for (const auto& [flag, name] : {std::pair{kCpuHasSSE41, "SSE4.1"}, {kCpuHasAVX2, "AVX2"}, {kCpuHasNEON, "NEON"}}) {
    if (platform::TestCpuFlag(flag)) on += (on.empty() ? "" : " ") + std::string(name);
  }
  printf("instruction sets on: %s\n", on.empty() ? "none" : on.c_str());
  if (const char* expected = getenv("TAVO_TEST_CPU_SETS")) {
    EXPECT_EQ(on, expected);
  }
}

}  // namespace
}  // namespace tavo
