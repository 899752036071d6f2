// The stage times of the last capture, kept beside the "Test:" lines endTime
// logs, for the programs that link the library's objects (the benchmarks),
// which read them here instead of out of the log.
#pragma once

namespace tavo {

// Seconds of each stage on its own; -1 for a stage that did not end.
struct StageTimes {
  double registration = -1, fusion = -1, resize = -1, capture = -1;
};

// Keeps endTime's reading for `label`: "align", "pyrFuse" and "resize" run
// from the pipeline's start, "hdr_function" from the capture's. A reading
// forgets those of the stages after it, which belonged to an earlier capture.
// Other labels are not kept.
void record_stage_time(const char* label, double seconds);
StageTimes last_stage_times();

}  // namespace tavo
