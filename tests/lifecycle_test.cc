// Entry points: banner, pool start and stop, stop flag, stage timer.
#include <gtest/gtest.h>

#include "api/lifecycle.h"
#include "include/tavo_lumo_hdr.h"
#include "platform/clock.h"
#include "support/test_support.h"

namespace tavo {
namespace {

using test::LogCapture;
using test::ScopedProperties;

const std::string kBannerStart = "-----------hdr lib version is v4.2.2.1,build time is: date:";

TEST(Lifecycle, BannerWhenBuildtimeUnset) {
  LogCapture log;
  ASSERT_EQ(tavo_hdr_pool_init(), 0);
  ASSERT_EQ(tavo_hdr_pool_destroy(), 0);
  const auto lines = log.lines();
  ASSERT_GE(lines.size(), 2u);
  EXPECT_EQ(lines[0].substr(0, 2), "L ");
  EXPECT_NE(lines[0].find(", tavo_hdr_pool_init: value0=yes\n"), std::string::npos);
  const std::string banner = std::string(", tavo_hdr_pool_init: ") + kBannerStart + __DATE__ + " , time:";
  EXPECT_NE(lines[1].find(banner), std::string::npos) << lines[1];
  EXPECT_TRUE(lines[1].ends_with("-----------"));
}

TEST(Lifecycle, BuildtimeOtherThanYesSuppressesBanner) {
  for (const char* value : {"no", "YES", "1"}) {
    ScopedProperties props({{"buildtime", value}});
    LogCapture log;
    ASSERT_EQ(tavo_hdr_pool_init(), 0);
    ASSERT_EQ(tavo_hdr_pool_destroy(), 0);
    EXPECT_TRUE(log.contains(std::string("value0=") + value + "\n"));
    EXPECT_FALSE(log.contains("hdr lib version"));
  }
}

int64_t fixed_clock() { return 5'500'000'000LL; }

TEST(Lifecycle, EndTimeLogsSecondsSinceStart) {
  platform::set_monotonic_clock_for_testing(fixed_clock);
  LogCapture log;
  EXPECT_DOUBLE_EQ(endTime("align", 2'000'000'000LL), 3.5);
  platform::set_monotonic_clock_for_testing(nullptr);
  ASSERT_EQ(log.lines().size(), 1u);
  EXPECT_TRUE(log.lines()[0].ends_with(", endTime: Test: align, 3.500000 s\n")) << log.lines()[0];
}

}  // namespace
}  // namespace tavo
