// Time sources. The monotonic clock times the stages of a capture; the wall
// clock names the dump files. Tests replace both to move time without sleeping.
#pragma once

#include <cstdint>
#include <ctime>

namespace tavo::platform {

// CLOCK_MONOTONIC as signed 64-bit nanoseconds (seconds * 1e9 + nanoseconds).
int64_t monotonic_ns();
// Local wall-clock time, broken down (time, then localtime).
struct tm local_time();

using MonotonicClock = int64_t (*)();
using WallClock = struct tm (*)();
// Installs a replacement clock; nullptr restores the system clock.
void set_monotonic_clock_for_testing(MonotonicClock clock);
void set_wall_clock_for_testing(WallClock clock);

}  // namespace tavo::platform
