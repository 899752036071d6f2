#include "api/stage_times.h"

#include <cstring>
#include <iterator>
#include <mutex>

namespace tavo {
namespace {

// The labels endTime is called with, in the order of the stages.
constexpr const char* kLabels[] = {"align", "pyrFuse", "resize", "hdr_function"};
constexpr int kStages = static_cast<int>(std::size(kLabels));

std::mutex g_lock;
double g_readings[kStages] = {-1, -1, -1, -1};

}  // namespace

void record_stage_time(const char* label, double seconds) {
  for (int k = 0; k < kStages; ++k) {
    if (strcmp(label, kLabels[k]) != 0) continue;
    const std::lock_guard<std::mutex> hold(g_lock);
    g_readings[k] = seconds;
    for (int later = k + 1; later < kStages; ++later) g_readings[later] = -1;
  }
}

StageTimes last_stage_times() {
  const std::lock_guard<std::mutex> hold(g_lock);
  // The pipeline's readings are cumulative: a stage's own time is the
  // difference from the reading before it.
  const auto since = [](double end, double start) { return end < 0 || start < 0 ? -1 : end - start; };
  return {g_readings[0], since(g_readings[1], g_readings[0]), since(g_readings[2], g_readings[1]), g_readings[3]};
}

}  // namespace tavo
