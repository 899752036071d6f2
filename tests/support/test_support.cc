#include "support/test_support.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <atomic>
#include <mutex>

#include "include/tavo_lumo_hdr.h"
#include "platform/clock.h"
#include "platform/environment.h"
#include "platform/log.h"
#include "platform/memory.h"
#include "platform/properties.h"
#include "tools/scene/scene.h"

namespace {
std::mutex g_log_mutex;
std::vector<std::string> g_lines;
bool g_capturing = false;
// Read once: a test may change the environment while captures log.
std::atomic<bool> g_echo{getenv("TAVO_TEST_LOG") != nullptr};
// The tests' log sink: keeps every line while a LogCapture lives, and echoes
// it to stderr when TAVO_TEST_LOG is set (or EchoLogToStderr was called).
void capture_line(int prio, const char* tag, const char* line) {
  EXPECT_EQ(prio, tavo::platform::kLogPriorityError);
  EXPECT_STREQ(tag, "hdr");
  if (g_echo) fprintf(stderr, "hdr: %s", line);
  std::lock_guard<std::mutex> lock(g_log_mutex);
  if (g_capturing) g_lines.emplace_back(line);
}

// Installed before main, so that no line of a test reaches stderr otherwise.
[[maybe_unused]] const bool g_sink_installed = (tavo::platform::set_log_sink_for_testing(capture_line), true);

}  // namespace

namespace tavo::test {

void EchoLogToStderr() { g_echo = true; }

LogCapture::LogCapture() {
  std::lock_guard<std::mutex> lock(g_log_mutex);
  g_lines.clear();
  g_capturing = true;
}

LogCapture::~LogCapture() {
  std::lock_guard<std::mutex> lock(g_log_mutex);
  g_capturing = false;
  g_lines.clear();
}

std::vector<std::string> LogCapture::lines() const {
  std::lock_guard<std::mutex> lock(g_log_mutex);
  return g_lines;
}

int LogCapture::count(const std::string& text) const {
  int n = 0;
  for (const std::string& line : lines()) n += line.find(text) != std::string::npos;
  return n;
}

std::string LogCapture::joined() const {
  std::string all;
  for (const std::string& line : lines()) all += line + (line.ends_with('\n') ? "" : "\n");
  return all;
}

std::array<std::vector<uint8_t>, 3> bracket(int32_t width, int32_t height, const std::string& layout,
                                            uint32_t seed) {
  scene::BracketSetup setup;
  setup.layout = parse_layout(layout.c_str());
  setup.dx0 = 2, setup.dy0 = -2, setup.dx2 = -4;
  return scene::render_bracket(scene::Scene{width, height, seed}, setup);
}

ScopedProperties::ScopedProperties(
    std::initializer_list<std::pair<std::string, std::string>> values) {
  char name[] = "/tmp/tavo_props_XXXXXX";
  const int fd = mkstemp(name);
  EXPECT_GE(fd, 0);
  path_ = name;
  std::string text = "# test properties\n";
  for (const auto& [key, value] : values) text += key + "=" + value + "\n";
  EXPECT_EQ(write(fd, text.data(), text.size()), static_cast<ssize_t>(text.size()));
  close(fd);
  setenv(platform::kPropertyFileVariable, path_.c_str(), 1);
  platform::read_environment();
}

ScopedProperties::~ScopedProperties() {
  unsetenv(platform::kPropertyFileVariable);
  platform::read_environment();
  unlink(path_.c_str());
}

void PoolTest::SetUp() {
  live_at_start_ = platform::live_allocations();
  ASSERT_EQ(tavo_hdr_pool_init(), 0);
}

void PoolTest::TearDown() {
  platform::fail_allocations_after(-1);
  EXPECT_EQ(tavo_hdr_pool_destroy(), 0);
  EXPECT_EQ(platform::live_allocations(), live_at_start_) << "library allocations left behind";
}

namespace {
std::atomic<int64_t> g_ticks{0};
int64_t ticking_clock() { return g_ticks += 1'000'000; }
}  // namespace

ScopedTickingClock::ScopedTickingClock() { platform::set_monotonic_clock_for_testing(ticking_clock); }
ScopedTickingClock::~ScopedTickingClock() { platform::set_monotonic_clock_for_testing(nullptr); }

TempDir::TempDir() {
  char name[] = "/tmp/tavo_test_XXXXXX";
  path_ = mkdtemp(name);
}

TempDir::~TempDir() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

}  // namespace tavo::test
