// A whole capture through HDR_Function: argument checks, stop flag, time
// limit, capture lock, dumps.
#include <gtest/gtest.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <csignal>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <filesystem>
#include <functional>
#include <fstream>
#include <iterator>
#include <thread>

#include "api/lifecycle.h"
#include "include/tavo_lumo_hdr.h"
#include "platform/clock.h"
#include "platform/environment.h"
#include "platform/memory.h"
#include "pool/band_jobs.h"
#include "pool/thread_pool.h"
#include "support/test_support.h"

namespace tavo {
namespace {

using test::LogCapture;
using test::ScopedProperties;

class Capture : public test::PoolTest {
 protected:
  void SetUp() override {
    test::PoolTest::SetUp();
    tavo_hdr_set_stop_flag(0);
  }
  void TearDown() override {
    tavo_hdr_set_stop_flag(0);
    platform::set_monotonic_clock_for_testing(nullptr);
    platform::set_wall_clock_for_testing(nullptr);
    test::PoolTest::TearDown();
  }
  std::vector<uint8_t> run(int32_t w, int32_t h, const char* layout, int32_t* result,
                           uint8_t fill = 0xAB) {
    const auto frames = test::bracket(w, h, layout, 5);
    std::vector<uint8_t> out(static_cast<size_t>(w) * h * 3 / 2, fill);
    *result = HDR_Function(frames[0].data(), frames[1].data(), frames[2].data(), out.data(), h, w, layout);
    return out;
  }
};

// Null arguments and sizes the library does not take (its size limits are
// held to the public header's in tool_test.cc).
TEST_F(Capture, RefusesBadArguments) {
  std::vector<uint8_t> frame(64, 0), out(64, 0xAB);
  const struct {
    int null_arg;  // frame 0, 1, 2, output, layout given as null, or -1
    int32_t h, w;
  } cases[] = {{-1, 3000, 4001}, {0, 2, 8},  {1, 2, 8},   {2, 2, 8},   {3, 2, 8}, {4, 2, 8},
               {-1, 0, 8},       {-1, 2, 0}, {-1, -2, 8}, {-1, 2, -8}, {-1, 65536, 65536}};
  for (const auto& c : cases) {
    LogCapture log;
    const uint8_t* in[3] = {frame.data(), frame.data(), frame.data()};
    if (c.null_arg >= 0 && c.null_arg < 3) in[c.null_arg] = nullptr;
    EXPECT_EQ(HDR_Function(in[0], in[1], in[2], c.null_arg == 3 ? nullptr : out.data(), c.h, c.w,
                           c.null_arg == 4 ? nullptr : "YUV420_PLANAR"),
              -1) << c.w << "x" << c.h << " null " << c.null_arg;
    EXPECT_EQ(log.count("HDR_Function input error."), 1);
    EXPECT_FALSE(log.contains("START"));
  }
  for (uint8_t b : out) ASSERT_EQ(b, 0xAB);
}

// A clock that advances by a fixed step at every reading and can raise the
// stop flag at a chosen reading.
std::atomic<int64_t> g_now{0};
std::atomic<int64_t> g_step{0};
std::atomic<int> g_readings{0};
std::atomic<int> g_stop_at{-1};
int64_t stepping_clock() {
  const int reading = ++g_readings;
  if (reading == g_stop_at) tavo_hdr_set_stop_flag(1);
  return g_now += g_step;
}

// The stop flag (only 1 stops) is honoured after alignment, before fusion;
// raised during the resize it gives 1 with a complete output. A stage over
// the time limit fails the capture; stages each within it do not, however
// long the whole capture.
TEST_F(Capture, StopFlagAndTimeLimit) {
  int32_t result = -1;
  const std::vector<uint8_t> reference = run(64, 48, "YUV420_PLANAR", &result);
  ASSERT_EQ(result, 0);
  const struct {
    int32_t flag;
    double step;  // seconds per clock reading, or 0 for the real clock
    int stop_at;  // readings: capture start, pipeline start, end of alignment, of fusion, of resize
    int32_t result;
    bool complete;
    std::vector<std::string> lines;  // in this order
  } cases[] = {
      {1, 0, -1, 1, false, {"Test: align, ", "GetAlignImg: The camera set stop flag,please stop hdr processing\n"}},
      {2, 0, -1, 0, true, {}},
      {0, 0.01, 5, 1, true, {}},
      {0, 3.4, -1, -1, false, {"GetAlignImg: hdr exceed the preset time.\n", "GetAlignImg error!", "HDR_Function END."}},
      {0, 1.1, -1, 0, true, {}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.step);
    tavo_hdr_set_stop_flag(c.flag);
    g_now = 0, g_readings = 0, g_stop_at = c.stop_at, g_step = static_cast<int64_t>(c.step * 1e9);
    platform::set_monotonic_clock_for_testing(c.step > 0 ? stepping_clock : nullptr);
    LogCapture log;
    const std::vector<uint8_t> out = run(64, 48, "YUV420_PLANAR", &result);
    tavo_hdr_set_stop_flag(0);
    EXPECT_EQ(result, c.result);
    EXPECT_EQ(out, c.complete ? reference : std::vector<uint8_t>(out.size(), 0xAB));
    const std::string text = log.joined();
    size_t at = 0;
    for (const std::string& line : c.lines) EXPECT_NE(at = text.find(line, at), std::string::npos) << line << text;
    EXPECT_EQ(log.contains("Test: pyrFuse"), c.complete);
    EXPECT_EQ(log.contains("GetAlignImg error!"), c.result == -1);
  }
}

// Every allocation of a small capture fails in turn, one at a time: the
// capture either still computes every byte (a job record that could not be
// queued runs its band on the caller) or returns -1 with its reason logged,
// and nothing is left allocated either way. Every failure path of the
// registration and of the fusion is taken somewhere in the sweep.
// The first round runs small batches on the caller as usual; the second sends
// every batch to the workers, so that a band's failure crosses from a worker.
TEST_F(Capture, EveryAllocationFailureGivesMinusOneOrTheExactFrame) {
  const std::vector<std::string> paths = {
      ", GetAlignImg: lyerW||lyerH malloc error",
      ", GetAlignImg: mem malloc fail.\n",
      ", GetAlignImg: fusiondata malloc fail.\n",
      "L 106, pyrFuse: w_pyramid_y||h_pyramid_y malloc error",
      "L 137, pyrFuse: mem malloc fail.\n",
      "L 251, pyrFuse: pyramid_gaussian_down_sample_uint8_process malloc error and return -1\n",
      "L 269, pyrFuse: pyramid_laplacian_down_sample_process malloc error and return -1\n",
      "pyrFuse: fusion_pyramid_process could not blend level",
      "L 385, pyrFuse: pyramid_reconstruct_y_process malloc error and return -1\n"};
  std::vector<int> taken(paths.size(), 0);
  const struct {
    const char* layout;
    int64_t inline_limit;
  } rounds[] = {{"YUV420_PLANAR", kInlineWork}, {"YVU420_SEMIPLANAR", 0}};
  for (const auto& [layout, inline_limit] : rounds) {
    set_inline_work_limit_for_testing(inline_limit);
    int32_t result = -1;
    const std::vector<uint8_t> reference = run(72, 40, layout, &result);
    ASSERT_EQ(result, 0);
    for (long k = 0;; ++k) {
      SCOPED_TRACE(std::string(layout) + " allocation " + std::to_string(k));
      const long live = platform::live_allocations();
      LogCapture log;
      platform::fail_allocations_after(k, 1);
      const std::vector<uint8_t> out = run(72, 40, layout, &result);
      const bool injected = platform::allocations_since_switch() > k;
      platform::fail_allocations_after(-1);
      EXPECT_EQ(platform::live_allocations(), live);
      int reasons = 0;
      for (size_t p = 0; p < paths.size(); ++p) reasons += log.count(paths[p]), taken[p] += log.count(paths[p]);
      if (result == 0) {
        EXPECT_EQ(out, reference);
        EXPECT_EQ(reasons, 0) << log.joined();
      } else {
        EXPECT_EQ(result, -1);
        EXPECT_TRUE(log.contains("GetAlignImg error!")) << log.joined();
        EXPECT_EQ(reasons, 1) << log.joined();
      }
      if (!injected) break;
    }
  }
  set_inline_work_limit_for_testing(kInlineWork);
  for (size_t p = 0; p < paths.size(); ++p) EXPECT_GT(taken[p], 0) << paths[p];
}

// A destroy that arrives while a capture runs waits for the capture to end,
// then stops the pool: the capture completes, nothing hangs. The clock holds
// the capture at its first reading until the destroy has been called.
std::atomic<int> g_readings_taken{0};
int64_t slow_start_clock() {
  if (g_readings_taken++ == 0) std::this_thread::sleep_for(std::chrono::milliseconds(30));
  return 0;
}

TEST_F(Capture, DestroyDuringACaptureWaitsForItToEnd) {
  platform::set_monotonic_clock_for_testing(slow_start_clock);
  g_readings_taken = 1;
  int32_t result = -1;
  const std::vector<uint8_t> reference = run(160, 96, "YUV420_PLANAR", &result);
  ASSERT_EQ(result, 0);
  const int readings = g_readings_taken - 1;
  g_readings_taken = 0;
  std::vector<uint8_t> out;
  std::thread camera([&] { out = run(160, 96, "YUV420_PLANAR", &result); });
  while (g_readings_taken == 0) std::this_thread::yield();
  EXPECT_EQ(tavo_hdr_pool_destroy(), 0);
  EXPECT_EQ(g_readings_taken, readings);  // the whole capture ran before the pool went
  camera.join();
  EXPECT_EQ(result, 0);
  EXPECT_EQ(out, reference);
  EXPECT_EQ(pool, nullptr);
  ASSERT_EQ(tavo_hdr_pool_init(), 0);  // for the fixture's destroy
}

// The exported pipeline, fusion and dispatchers called from several threads
// beside running captures are serialised with them: every result is the one
// each gives alone.
TEST_F(Capture, ExportedOperationsBesideCapturesGiveTheirOwnResults) {
  const test::ScopedTickingClock clock;
  const auto frames = test::bracket(64, 48, "YUV420_PLANAR", 5);
  const uint8_t* ptrs[3] = {frames[0].data(), frames[1].data(), frames[2].data()};
  const int32_t offsets[6] = {0, 2, 2, 0, 4, 4};
  const int32_t widths[2] = {64, 32}, heights[2] = {48, 24};
  const std::vector<uint16_t> level0(64 * 48, 1234);
  const size_t frame = 64 * 48 * 3 / 2;
  // Each operation writes a frame, or the bytes of a pyramid level.
  const auto frame_of = [&](auto op) {
    return [=] {
      std::vector<uint8_t> out(frame, 0);
      EXPECT_EQ(op(out.data()), 0);
      return out;
    };
  };
  const auto capture = frame_of([&](uint8_t* out) { return HDR_Function(ptrs[0], ptrs[1], ptrs[2], out, 48, 64, "YUV420_PLANAR"); });
  const std::vector<std::function<std::vector<uint8_t>()>> ops = {
      capture,
      capture,
      frame_of([&](uint8_t* out) { return GetAlignImg(ptrs, 64, 48, 3, out, "YUV420_PLANAR"); }),
      frame_of([&](uint8_t* out) { return pyrFuse(ptrs, 3, 64, 48, 60, 44, offsets, out, "YUV420_PLANAR"); }),
      [&] {
        std::vector<uint16_t> pyramid(level0);
        pyramid.resize(64 * 48 + 32 * 24);
        uint16_t* table[2] = {pyramid.data(), pyramid.data() + 64 * 48};
        EXPECT_EQ(pyramid_gaussian_down_sample_uint8_process(table, 0, widths, heights), 0);
        const auto* bytes = reinterpret_cast<const uint8_t*>(table[1]);
        return std::vector<uint8_t>(bytes, bytes + 2 * 32 * 24);
      },
  };
  std::vector<std::vector<uint8_t>> alone;
  for (const auto& op : ops) alone.push_back(op());
  std::vector<std::thread> threads;
  for (size_t i = 0; i < ops.size(); ++i) {
    threads.emplace_back([&, i] {
      for (int round = 0; round < 3; ++round) EXPECT_EQ(ops[i](), alone[i]) << "operation " << i;
    });
  }
  for (std::thread& t : threads) t.join();
}

// A host program may change its environment from any thread at any time, and
// reading it meanwhile can crash: a capture never reads it.
std::atomic<bool> g_counting_getenv{false};
std::atomic<int> g_getenv_calls{0};

TEST_F(Capture, NeverReadsTheEnvironment) {
  ScopedProperties props({{"saveinput", "no"}});  // the property file is read, its name is not
  std::atomic<bool> done{false};
  std::thread host([&] {
    for (int k = 0; !done; ++k) {
      const std::string name = "TAVO_HOST_" + std::to_string(k % 64);
      k % 2 ? unsetenv(name.c_str()) : setenv(name.c_str(), std::string(k % 300, 'x').c_str(), 1);
    }
  });
  int32_t result = -1;
  const std::vector<uint8_t> reference = run(64, 48, "YUV420_PLANAR", &result);
  g_counting_getenv = true;
  for (int k = 0; k < 200 && !HasFailure(); ++k) {
    EXPECT_EQ(run(64, 48, "YUV420_PLANAR", &result), reference);
    EXPECT_EQ(result, 0);
  }
  g_counting_getenv = false;
  done = true;
  host.join();
  EXPECT_EQ(g_getenv_calls, 0);
}

// fork() copies only the thread that calls it: a child forked while another
// thread of the parent runs captures finds the library whole, its workers
// started again on first use, and its captures give the parent's bytes.
TEST_F(Capture, ForkedChildrenCaptureAsTheParentDoes) {
#if defined(__SANITIZE_THREAD__) || defined(__SANITIZE_ADDRESS__)
  // Their heaps, unlike the C library's, are not made whole in a child forked
  // while another thread was inside them; ThreadSanitizer also does not follow
  // threads started after a fork.
  GTEST_SKIP() << "the sanitizers' runtimes are not fork-safe beside running threads";
#endif
  // ctest names the emulator a run is under (for the tests that start the tool).
  if (getenv("TAVO_HDR_TOOL_EMULATOR") != nullptr) GTEST_SKIP() << "qemu-user cannot start threads after a fork";
  int32_t result = -1;
  const std::vector<uint8_t> reference = run(320, 240, "YVU420_SEMIPLANAR", &result);
  const auto frames = test::bracket(320, 240, "YVU420_SEMIPLANAR", 5);
  std::atomic<bool> done{false};
  std::thread camera([&] {
    std::vector<uint8_t> out(reference.size());
    while (!done) {
      HDR_Function(frames[0].data(), frames[1].data(), frames[2].data(), out.data(), 240, 320, "YVU420_SEMIPLANAR");
      EXPECT_TRUE(out == reference);
    }
  });
  for (int child = 0; child < 3; ++child) {
    const pid_t pid = fork();
    ASSERT_GE(pid, 0);
    if (pid == 0) {
      int32_t r = -1;
      const bool same = run(320, 240, "YVU420_SEMIPLANAR", &r) == reference && r == 0;
      const bool workers = std::count(pool->thread_creatflag, pool->thread_creatflag + kPoolWorkers, 1) == kPoolWorkers;
      _exit(same && workers && tavo_hdr_pool_destroy() == 0 ? 0 : 1);
    }
    int status = 0;
    ASSERT_EQ(waitpid(pid, &status, 0), pid);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "child " << child << " status " << status;
  }
  done = true;
  camera.join();
}

// Dumps go to the directory the build configured. The suite runs in several
// processes at once, so each test holds a lock on that directory.
class CaptureDumps : public Capture {
 protected:
  void SetUp() override {
    if (std::string(TAVO_HDR_DUMP_DIR).starts_with("/data/")) GTEST_SKIP() << "dump directory of a phone";
    lock_fd_ = open(TAVO_HDR_DUMP_DIR ".lock", O_CREAT | O_RDWR, 0644);
    ASSERT_GE(lock_fd_, 0);
    ASSERT_EQ(flock(lock_fd_, LOCK_EX), 0);
    Capture::SetUp();
    std::filesystem::remove_all(TAVO_HDR_DUMP_DIR);
    std::filesystem::create_directories(TAVO_HDR_DUMP_DIR);
    g_seconds = 12;
    platform::set_wall_clock_for_testing(wall_clock);
  }
  void TearDown() override {
    if (lock_fd_ < 0) return;
    std::filesystem::remove_all(TAVO_HDR_DUMP_DIR);
    Capture::TearDown();
    close(lock_fd_);  // releases the lock
  }
  int lock_fd_ = -1;
  // 23 August 2018, 09:08:12, one second later at every reading.
  static inline std::atomic<int> g_seconds{12};
  static struct tm wall_clock() {
    struct tm t{};
    t.tm_year = 118, t.tm_mon = 7, t.tm_mday = 23, t.tm_hour = 9, t.tm_min = 8, t.tm_sec = g_seconds++;
    return t;
  }
  static std::vector<uint8_t> read(const std::string& name) {
    std::ifstream file(std::string(TAVO_HDR_DUMP_DIR) + "/" + name, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
  }
  static size_t files() {
    return static_cast<size_t>(std::distance(std::filesystem::directory_iterator(TAVO_HDR_DUMP_DIR),
                                             std::filesystem::directory_iterator{}));
  }
};

// Only the exact word yes dumps: the inputs and the output with their time
// stamps, and the lines saying so.
TEST_F(CaptureDumps, InputsAndOutputWithTheirTimeStamps) {
  for (const char* value : {"YES", "1", ""}) {
    ScopedProperties props({{*value ? "saveinput" : "unrelated", value}, {"saveoutput", value}});
    LogCapture log;
    int32_t result = -1;
    run(64, 48, "YUV420_PLANAR", &result);
    EXPECT_EQ(result, 0);
    EXPECT_EQ(files(), 0u);
    EXPECT_TRUE(log.contains("HDR_Function START."));
    for (const std::string what : {"input\n", "output\n"}) {  // "no save ..." for the default value no only
      EXPECT_EQ(log.count("save " + what), log.count("no save " + what));
      EXPECT_EQ(log.contains("no save " + what), !*value) << value;
    }
  }
  ScopedProperties props({{"saveinput", "yes"}, {"saveoutput", "yes"}});
  LogCapture log;
  int32_t result = -1;
  const std::vector<uint8_t> out = run(64, 48, "YUV420_PLANAR", &result);
  ASSERT_EQ(result, 0);
  const auto frames = test::bracket(64, 48, "YUV420_PLANAR", 5);
  for (int k = 0; k < 3; ++k) {
    EXPECT_EQ(read("IMG_64x48YUV420_PLANAR_20180823_090812_" + std::to_string(k) + ".yuv"), frames[k]);
  }
  EXPECT_EQ(read("IMG_64x48YUV420_PLANAR_20180823_090813_hdr.yuv"), out);
  EXPECT_EQ(files(), 4u);
  for (const char* line : {"fopen img0 success!\n", "fwrite img1  success!\n", "save input\n",
                           "fopen img success!\n", "fwrite img success!\n", "save output\n", "value1=yes\n"}) {
    EXPECT_TRUE(log.contains(line)) << line;
  }
}

// Dumps that cannot be written fail the capture with the fixed message and a
// line naming the path and the reason, and leave no partial file; a dump
// directory with a long path works.
TEST_F(CaptureDumps, FailuresNameThePathAndTheReason) {
  const std::string dir = TAVO_HDR_DUMP_DIR;
  const std::string deep = dir + "/" + std::string(120, 'a') + "/" + std::string(120, 'b') + "/" + std::string(120, 'c');
  const struct {
    const char* what;
    const char* save;  // property switched on
    const char* layout;
    int32_t result;
    std::vector<std::string> lines;
  } cases[] = {
      {"missing directory", "saveinput", "YUV420_PLANAR", -1,
       {"fopen img0 fail!\n", "cannot open " + dir + "/IMG_8x2YUV420_PLANAR_", "No such file or directory"}},
      {"layout leaving the directory", "saveinput", "/../../escaped", -1,
       {"fopen img0 fail!\n", "layout /../../escaped holds a path separator"}},
      {"layout leaving the directory", "saveoutput", "/../../escaped", -1,
       {"fopen img fail!\n", "holds a path separator"}},
      {"output cut short", "saveoutput", "YUV420_PLANAR", -1,
       {"fwrite img error!\n", "cannot write " + dir + "/IMG_8x2YUV420_PLANAR_", "File too large"}},
      {"long directory", "saveinput", "YUV420_PLANAR", 0, {"fwrite img2 success!\n", "save input\n"}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    std::filesystem::remove_all(dir);
    if (c.what != std::string("missing directory")) std::filesystem::create_directories(deep);
    // With this directory "<dir>/IMG_8x2/../../escaped..." would name a file beside <dir>.
    if (c.what == std::string("layout leaving the directory")) std::filesystem::create_directories(dir + "/IMG_8x2");
    if (c.what == std::string("long directory")) setenv("TAVO_HDR_DUMP_DIR", deep.c_str(), 1);
    ScopedProperties props({{c.save, "yes"}});
    LogCapture log;
    // A file size limit below the 24 bytes of an 8x2 frame: the write fits
    // the stream's buffer and fails only when it is flushed.
    struct rlimit saved{};
    getrlimit(RLIMIT_FSIZE, &saved);
    if (c.what == std::string("output cut short")) {
      signal(SIGXFSZ, SIG_IGN);
      struct rlimit small = saved;
      small.rlim_cur = 10;
      setrlimit(RLIMIT_FSIZE, &small);
    }
    int32_t result = 1;
    run(8, 2, c.layout, &result);
    EXPECT_EQ(result, c.result);
    setrlimit(RLIMIT_FSIZE, &saved);
    signal(SIGXFSZ, SIG_DFL);
    unsetenv("TAVO_HDR_DUMP_DIR");
    platform::read_environment();
    for (const std::string& line : c.lines) EXPECT_TRUE(log.contains(line)) << line << "\n" << log.joined();
    EXPECT_EQ(log.contains("START"), c.save != std::string("saveinput") || c.result == 0);
    size_t written = 0;  // dumps in the directory, and beside it
    const auto count = [&](const auto& entries) {
      for (const auto& entry : entries) {
        const std::string name = entry.path().filename().string();
        written += entry.is_regular_file() && (name.starts_with("IMG_") || name.starts_with("escaped"));
      }
    };
    if (std::filesystem::exists(dir)) count(std::filesystem::recursive_directory_iterator(dir));
    count(std::filesystem::directory_iterator(std::filesystem::path(dir).parent_path()));
    EXPECT_EQ(written, c.result == 0 ? 3u : 0u);
  }
  std::filesystem::create_directories(dir);  // for TearDown
}

}  // namespace
}  // namespace tavo

// The C library's getenv, read straight from the environment (no lock, as
// the C library's), counted while a test asks.
extern "C" char* getenv(const char* name) {
  if (tavo::g_counting_getenv) ++tavo::g_getenv_calls;
  const size_t n = strlen(name);
  for (char** entry = environ; entry != nullptr && *entry != nullptr; ++entry) {
    if (strncmp(*entry, name, n) == 0 && (*entry)[n] == '=') return *entry + n + 1;
  }
  return nullptr;
}
