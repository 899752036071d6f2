// The environment's instruction-set switches take their sets away from every
// row family as masking them does; TAVO_HDR_PORTABLE takes all of them.
#include <gtest/gtest.h>

#include <cstdlib>
#include <iterator>
#include <optional>
#include <string>

#include "align/mismatch_rows.h"
#include "align/threshold_rows.h"
#include "align/warp_rows.h"
#include "align/wavelet_rows.h"
#include "chroma/chroma_rows.h"
#include "fusion/blend_rows.h"
#include "fusion/pyramid_rows.h"
#include "platform/cpu.h"
#include "support/cpu_masks.h"

namespace tavo {
namespace {

using platform::kCpuHasAVX2;
using platform::kCpuHasNEON;
using platform::kCpuHasSSE41;

// What every family's selector returns.
struct Selected {
  MismatchRowFn mismatch;
  WidenX16RowFn widen;
  SplitPairsRowFn split;
  WaveletMainRowFn wavelet;
  CountAboveRowFn count_above;
  BlendGroupsFn blend;
  const PyramidRows* pyramid;
  ChromaRowFns chroma;
  bool operator==(const Selected&) const = default;
};

Selected selected() {
  return {SelectMismatchRow(),   SelectWidenX16Row(), SelectSplitPairsRow(), SelectWaveletMainRow(128),
          SelectCountAboveRow(), SelectBlendGroups(), &SelectPyramidRows(),   SelectChromaRows()};
}

// Sets a variable (unsets it for null) and has the library read the
// environment again; undoes both when it goes.
class ScopedSwitch {
 public:
  ScopedSwitch(const char* variable, const char* value) : variable_(variable) {
    if (const char* old = getenv(variable)) old_ = old;
    if (value != nullptr) {
      setenv(variable, value, 1);
    } else {
      unsetenv(variable);
    }
    platform::MaskCpuFlags(-1);
  }
  ~ScopedSwitch() {
    if (old_) {
      setenv(variable_, old_->c_str(), 1);
    } else {
      unsetenv(variable_);
    }
    platform::MaskCpuFlags(-1);
  }

 private:
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

// Starts from an environment without switches, whatever the test run was given.
class CpuFlags : public ::testing::Test {
 protected:
  CpuFlags() {
    for (size_t i = 0; i < std::size(kSwitches); ++i) cleared_[i].emplace(kSwitches[i].variable, nullptr);
  }

 private:
  std::optional<ScopedSwitch> cleared_[std::size(kSwitches)];
};

TEST_F(CpuFlags, EnvironmentSwitchesActLikeMasks) {
  for (const auto& s : kSwitches) {
    Selected masked;
    {
      const test::ScopedCpuMask mask(s.mask);
      masked = selected();
    }
    const Selected unswitched = selected();
    {
      const ScopedSwitch on(s.variable, "1");
      EXPECT_EQ(platform::TestCpuFlag(~s.mask), 0) << s.variable;
      EXPECT_TRUE(selected() == masked) << s.variable;
    }
    const ScopedSwitch off(s.variable, "0");
    EXPECT_TRUE(selected() == unswitched) << s.variable << "=0";
  }
  const ScopedSwitch portable("TAVO_HDR_PORTABLE", "1");
  EXPECT_TRUE(selected() == (Selected{MismatchRow_C, WidenX16Row_C, SplitPairsRow_C, WaveletMainRow_C,
                                      CountAboveRow_C, BlendGroups_C, &PyramidRows_C,
                                      {ChromaGroups_C, ChromaPairGroups_C}}));
}

#if defined(__x86_64__)
// Without AVX2 a family with an SSE4.1 row runs it, one without runs the portable row.
TEST_F(CpuFlags, WithoutAVX2TheSSE41RowsRun) {
  const ScopedSwitch no_avx2("TAVO_HDR_DISABLE_AVX2", "1");
  if (!platform::TestCpuFlag(kCpuHasSSE41)) GTEST_SKIP() << "no SSE4.1";
  EXPECT_EQ(SelectMismatchRow(), MismatchRow_SSE41);
  EXPECT_EQ(SelectWaveletMainRow(128), WaveletMainRow_SSE41);
  EXPECT_EQ(SelectCountAboveRow(), CountAboveRow_C);
  EXPECT_EQ(SelectBlendGroups(), BlendGroups_C);
}
#endif

}  // namespace
}  // namespace tavo
