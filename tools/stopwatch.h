// Milliseconds on the steady clock, for the times the tool prints: a stage's
// own time is the lap since the one before it.
#pragma once

#include <chrono>

namespace tavo::tool {

class Stopwatch {
 public:
  // Since the start or the last lap.
  double ms() const { return std::chrono::duration<double, std::milli>(Clock::now() - start_).count(); }
  // ms(), and the next lap starts now.
  double lap_ms() {
    const double elapsed = ms();
    start_ = Clock::now();
    return elapsed;
  }

 private:
  using Clock = std::chrono::steady_clock;
  Clock::time_point start_ = Clock::now();
};

}  // namespace tavo::tool
