// The environment's instruction-set switches take their sets away from every
// module's row table as masking them does; TAVO_HDR_PORTABLE takes all of
// them. Each table names the widest set it holds rows of.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <optional>
#include <string>
#include <vector>

#include "platform/cpu.h"
#include "platform/environment.h"
#include "support/cpu_masks.h"

namespace tavo {
namespace {

using platform::kCpuHasAVX2;
using platform::kCpuHasAVX512;
using platform::kCpuHasNEON;
using platform::kCpuHasSSE41;

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
                 {"TAVO_HDR_DISABLE_AVX512", ~kCpuHasAVX512},
                 {"TAVO_HDR_DISABLE_NEON", ~kCpuHasNEON},
                 {"TAVO_HDR_PORTABLE", 0}};

TEST(CpuFlags, EnvironmentSwitchesActLikeMasks) {
  std::optional<ScopedSwitch> cleared[std::size(kSwitches)];  // whatever the test run was given
  for (size_t i = 0; i < std::size(kSwitches); ++i) cleared[i].emplace(kSwitches[i].variable, nullptr);
  for (const auto& s : kSwitches) {
    const auto masked = [&] {
      const test::ScopedCpuMask mask(s.mask);
      return test::RowTables{};
    }();
    const ScopedSwitch on(s.variable, "1");
    EXPECT_EQ(platform::TestCpuFlag(~s.mask), 0) << s.variable;
    EXPECT_TRUE(test::RowTables{} == masked) << s.variable;
  }
  const ScopedSwitch portable("TAVO_HDR_PORTABLE", "1");
  EXPECT_EQ(test::RowTables{}.sets(), "align C, fusion C, chroma C");
}

// Under every mask, each module's table names the widest set that is on of
// those it has rows of, "C" when none is.
TEST(CpuFlags, TablesNameTheWidestSetTheyHoldRowsOf) {
  const struct {
    const char* module;
    std::vector<int> sets;  // with rows in the module, narrowest first
    const char* (*named)();
  } modules[] = {
      {"align", {kCpuHasSSE41, kCpuHasAVX2, kCpuHasNEON}, [] { return GetAlignRows().set; }},
      {"fusion", {kCpuHasAVX2, kCpuHasAVX512, kCpuHasNEON}, [] { return GetFusionRows().set; }},
      {"chroma", {kCpuHasAVX2, kCpuHasAVX512, kCpuHasNEON}, [] { return GetChromaRows().set; }},
  };
  for (const test::CpuMask& m : test::kCpuMasks) {
    const test::ScopedCpuMask scoped(m.mask);
    for (const auto& module : modules) {
      const char* widest = "C";
      for (int set : module.sets) {
        if (platform::TestCpuFlag(set)) widest = platform::CpuSetName(set);
      }
      EXPECT_STREQ(module.named(), widest) << m.name << ", " << module.module;
    }
  }
}

// The sets on, printed; a run on an emulated processor names the ones it
// must have in TAVO_TEST_CPU_SETS.
TEST(CpuFlags, SetsOnAreTheExpectedOnes) {
  std::string on;
  for (int flag : {kCpuHasSSE41, kCpuHasAVX2, kCpuHasAVX512, kCpuHasNEON}) {
    if (platform::TestCpuFlag(flag)) on += (on.empty() ? "" : " ") + std::string(platform::CpuSetName(flag));
  }
  printf("instruction sets on: %s\n", on.empty() ? "none" : on.c_str());
  if (const char* expected = getenv("TAVO_TEST_CPU_SETS")) {
    EXPECT_EQ(on, expected);
  }
}

}  // namespace
}  // namespace tavo
