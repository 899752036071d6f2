#include "platform/clock.h"

#include <atomic>

namespace tavo::platform {
namespace {
std::atomic<MonotonicClock> g_monotonic{nullptr};
std::atomic<WallClock> g_wall{nullptr};
}  // namespace

int64_t monotonic_ns() {
  if (MonotonicClock clock = g_monotonic.load(std::memory_order_acquire)) return clock();
  timespec ts{};
  clock_gettime(CLOCK_MONOTONIC, &ts);
  return static_cast<int64_t>(ts.tv_sec) * 1000000000LL + ts.tv_nsec;
}

struct tm local_time() {
  if (WallClock clock = g_wall.load(std::memory_order_acquire)) return clock();
  time_t now = time(nullptr);
  struct tm broken{};
  localtime_r(&now, &broken);
  return broken;
}

void set_monotonic_clock_for_testing(MonotonicClock clock) {
  g_monotonic.store(clock, std::memory_order_release);
}
void set_wall_clock_for_testing(WallClock clock) { g_wall.store(clock, std::memory_order_release); }

}  // namespace tavo::platform
