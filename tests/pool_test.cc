// Entry points and the worker pool: banner, start and stop, stage timer, core
// binding, failures of thread and job creation, and the batch protocol.
#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <thread>

#include "api/lifecycle.h"
#include "include/tavo_lumo_hdr.h"
#include "platform/clock.h"
#include "platform/memory.h"
#include "platform/threads.h"
#include "pool/band_jobs.h"
#include "pool/thread_pool.h"
#include "support/test_support.h"

namespace tavo {
namespace {

using test::LogCapture;
using test::ScopedProperties;

// The banner follows the value0 line when buildtime is unset (yes), and not
// when it is anything other than the exact word yes.
TEST(PoolLifecycle, BannerUnlessBuildtimeIsOtherThanYes) {
  for (const std::string value : {"", "no", "YES", "1"}) {
    const bool yes = value.empty();
    ScopedProperties props({{yes ? "unrelated" : "buildtime", yes ? "1" : value}});
    LogCapture log;
    ASSERT_EQ(tavo_hdr_pool_init(), 0);
    ASSERT_EQ(tavo_hdr_pool_destroy(), 0);
    const auto lines = log.lines();
    ASSERT_GE(lines.size(), 1u + yes);
    EXPECT_TRUE(lines[0].starts_with("L ") && lines[0].ends_with(", tavo_hdr_pool_init: value0=" + (yes ? "yes" : value) + "\n")) << lines[0];
    EXPECT_EQ(log.count("hdr lib version"), yes) << value;
    if (yes) {
      const std::string banner = std::string(", tavo_hdr_pool_init: -----------hdr lib version is v4.2.2.1,build time is: date:") + __DATE__ + " , time:";
      EXPECT_NE(lines[1].find(banner), std::string::npos) << lines[1];
      EXPECT_TRUE(lines[1].ends_with("-----------"));
    }
  }
}

int64_t fixed_clock() { return 5'500'000'000LL; }

TEST(PoolLifecycle, EndTimeLogsSecondsSinceStart) {
  platform::set_monotonic_clock_for_testing(fixed_clock);
  LogCapture log;
  EXPECT_DOUBLE_EQ(endTime("align", 2'000'000'000LL), 3.5);
  platform::set_monotonic_clock_for_testing(nullptr);
  ASSERT_EQ(log.lines().size(), 1u);
  EXPECT_TRUE(log.lines()[0].ends_with(", endTime: Test: align, 3.500000 s\n")) << log.lines()[0];
}

// Inits racing each other start one pool and keep it; one destroy stops it
// and gives everything back. Round after round.
TEST(PoolLifecycle, ConcurrentInitsStartOnePoolThatOneDestroyStops) {
  const long live = platform::live_allocations();
  for (int round = 0; round < 10; ++round) {
    std::atomic<int> ready{0};
    std::vector<std::thread> callers;
    std::vector<int32_t> results(4, -1);
    for (int t = 0; t < 4; ++t) {
      callers.emplace_back([&, t] {
        ++ready;
        while (ready < 4) std::this_thread::yield();
        results[t] = tavo_hdr_pool_init();
      });
    }
    for (std::thread& t : callers) t.join();
    ASSERT_EQ(results, std::vector<int32_t>(4, 0));
    thread_pool* first = pool;
    ASSERT_EQ(tavo_hdr_pool_init(), 0);
    ASSERT_EQ(pool, first);
    ASSERT_EQ(tavo_hdr_pool_destroy(), 0);
    ASSERT_EQ(pool, nullptr);
  }
  // A destroy that finds another one still joining returns at once.
  ASSERT_EQ(pool_init(4), 0);
  auto set_shutdown = [](int32_t value) {
    pthread_mutex_lock(&pool->queue_lock);
    __atomic_store_n(&pool->shutdown, value, __ATOMIC_RELEASE);
    pthread_mutex_unlock(&pool->queue_lock);
  };
  set_shutdown(1);
  EXPECT_EQ(pool_destroy(), -1);
  set_shutdown(0);
  EXPECT_EQ(pool_destroy(), 0);
  // Without a pool, destroys and captures are refused.
  LogCapture log;
  EXPECT_EQ(tavo_hdr_pool_destroy(), -1);
  EXPECT_TRUE(log.contains("pool_destroy fail\n"));
  std::vector<uint8_t> frame(24, 0);
  EXPECT_EQ(HDR_Function(frame.data(), frame.data(), frame.data(), frame.data(), 2, 8, "YUV420_PLANAR"), -1);
  EXPECT_TRUE(log.contains("HDR_Function called without a thread pool"));
  EXPECT_EQ(platform::live_allocations(), live);
}

int failing_create(pthread_t*, platform::ThreadBody, void*) { return EAGAIN; }

std::atomic<int> g_creations{0};
int every_other_create(pthread_t* thread, platform::ThreadBody body, void* arg) {
  if (g_creations.fetch_add(1) % 2 == 0) return EAGAIN;
  return pthread_create(thread, nullptr, body, arg);
}

// A failed start releases what it took, logs its reason and leaves no pool.
TEST(PoolLifecycle, FailedStartsAreReleasedAndLeaveNoPool) {
  const struct {
    long budget;  // allocations granted, or -1 with every thread creation failing
    const char* message;
    int times;
  } failures[] = {{0, "can't alloc thread pool\n", 1},
                  {1, "can't malloc threadid\n", 1},
                  {2, "can't malloc thread_creatflag\n", 1},
                  {-1, "can't create thread: ", 4},
                  {-1, "all LTM thread create failed.\n", 1}};
  for (const auto& f : failures) {
    const long live = platform::live_allocations();
    LogCapture log;
    platform::fail_allocations_after(f.budget);
    if (f.budget < 0) platform::set_thread_create_for_testing(failing_create);
    EXPECT_EQ(tavo_hdr_pool_init(), -1);
    platform::set_thread_create_for_testing(nullptr);
    platform::fail_allocations_after(-1);
    EXPECT_EQ(log.count(f.message), f.times) << log.joined();
    EXPECT_TRUE(log.contains("pool_init fail\n"));
    EXPECT_EQ(platform::live_allocations(), live);
    EXPECT_EQ(pool, nullptr);
  }
}

// Runs four bands that each count themselves; returns the count.
int bands_run() {
  std::atomic<int> ran{0};
  run_bands<std::atomic<int>*>(4, [](void* record) -> int32_t {
    band_payload<std::atomic<int>*>(record)->fetch_add(1);
    band_done(record);
    return 0;
  }, [&](int32_t, std::atomic<int>*& payload) { payload = &ran; }, 0);
  return ran;
}

// Workers bound as the property says (the default: worker k on core k); a
// core the processor lacks is logged and its worker still runs, as do the
// workers of a pool whose other thread creations failed.
TEST(PoolBindCore, BindsWorkersAsThePropertySays) {
  const struct {
    const char* value;
    std::vector<int32_t> cores;
    const char* message;  // a line the parse must log
    int times = 1;
  } cases[] = {
      {"", {0, 1, 2, 3}, "bindcore"},
      {"cpu_4_4_5_6_7", {4, 5, 6, 7}, "thread 3 is blended on 7th core\n"},
      {"x_2_6_7", {6, 7, 2, 3}, "thread 1 is blended on 7th core\n"},
      {"cpu_6_1_0_1_0_5_5", {1, 0, 1, 0}, "bindcore core 5 for thread 5 ignored: only 4 threads\n"},
      {"cpu4567", {0, 1, 2, 3}, "bindcore value cpu4567 has no core count, default cores kept\n"},
      {"cpu_4_4_5", {0, 1, 2, 3}, "bindcore value cpu_4_4_5 names 4 cores but gives 2, default cores kept\n"},
      {"c_1_40", {40, 1, 2, 3}, "thread 0 is blended on 40th core\n"},
      {"c_4_32_33_200_-1", {32, 33, 200, -1}, "sched_setaffinity failed", 4},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.value);
    ScopedProperties props({{*c.value ? "persist.bindcore.hdr" : "unrelated", c.value}});
    LogCapture log;
    ASSERT_EQ(pool_init(4), 0);
    EXPECT_EQ(std::vector<int32_t>(g_args, g_args + 4), c.cores);
    EXPECT_EQ(bands_run(), 4);
    EXPECT_EQ(pool_destroy(), 0);  // workers log their binding before they end
    EXPECT_EQ(log.contains(std::string("bindcore is ") + c.value + "\n"), *c.value != 0);
    EXPECT_EQ(log.count(c.message), *c.value ? c.times : 0) << log.joined();
  }
  g_creations = 0;
  platform::set_thread_create_for_testing(every_other_create);
  ASSERT_EQ(pool_init(4), 0);
  platform::set_thread_create_for_testing(nullptr);
  EXPECT_EQ(pool->thread_creatflag[0] + pool->thread_creatflag[1] + pool->thread_creatflag[2] + pool->thread_creatflag[3], 2);
  EXPECT_EQ(bands_run(), 4);
  EXPECT_EQ(pool_destroy(), 0);
}

TEST(BandSplit, RowsPerBand) {
  const struct {
    int32_t total;
    SplitRule rule;
    std::vector<int32_t> rows;
  } cases[] = {
      {7, SplitRule::kPyramidEven, {7}},          {8, SplitRule::kPyramidEven, {2, 2, 2, 2}},
      {375, SplitRule::kPyramidEven, {92, 92, 92, 99}}, {10, SplitRule::kFour, {2, 2, 2, 4}},
      {10, SplitRule::kFourEven, {2, 2, 2, 4}},   {14, SplitRule::kFourEven, {2, 2, 2, 8}},
      {5, SplitRule::kFour, {1, 1, 1, 2}},        {3, SplitRule::kFour, {0, 0, 0, 3}},
      {7, SplitRule::kPyramid, {7}},              {11, SplitRule::kPyramid, {2, 2, 2, 5}},
  };
  for (const auto& c : cases) {
    const BandSplit split = split_rows(c.total, c.rule);
    std::vector<int32_t> rows;
    for (int32_t b = 0; b < split.bands; ++b) {
      EXPECT_EQ(split.first(b), b == 0 ? 0 : split.first(b - 1) + split.rows(b - 1)) << c.total;
      rows.push_back(split.rows(b));
    }
    EXPECT_EQ(rows, c.rows) << c.total;
  }
}

class BandJobs : public test::PoolTest {};

struct Mark {
  int32_t* rows;
  int32_t first, n;
};

int32_t mark_rows(void* record) {
  const Mark& m = band_payload<Mark>(record);
  for (int32_t r = 0; r < m.n; ++r) m.rows[m.first + r] += 1 + static_cast<band_record*>(record)->band;
  band_done(record);
  return 0;
}

TEST_F(BandJobs, BatchFinishedBeforeTheWaitReturnsAtOnce) {
  std::vector<int32_t> rows(8, 0);
  count = 0;
  for (int32_t b = 0; b < 4; ++b) {
    arg[b].band = b, arg[b].bands = 4, arg[b].body = mark_rows;
    new (arg[b].payload) Mark{rows.data(), 2 * b, 2};
    detail::queue_band(&arg[b]);
  }
  for (bool done = false; !done; std::this_thread::yield()) {
    pthread_mutex_lock(&pool->pro_lock);
    done = count == 4;
    pthread_mutex_unlock(&pool->pro_lock);
  }
  detail::wait_bands(4);  // must not block
  EXPECT_EQ(rows, (std::vector<int32_t>{1, 1, 2, 2, 3, 3, 4, 4}));
}

}  // namespace
}  // namespace tavo
