// The benchmarks' log writer keeps the library's stage timings ("Test: <stage>,
// <seconds> s") instead of printing every line.
#pragma once

#include <string>

namespace tavo::bench {

// Sum of the seconds logged for `stage` since the last reset.
double stage_seconds(const std::string& stage);
void reset_stage_seconds();

}  // namespace tavo::bench
