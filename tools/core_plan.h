// Which processor cores a worker's capture pool runs on, when several
// processes replay captures side by side on one machine: each worker's pool
// is pinned to cores of its own (through "persist.bindcore.hdr"), so that N
// workers do not all pile onto the library's default cores 0 to 3.
#pragma once

#include <string>
#include <vector>

namespace tavo::tool {

// The cores this process may run on (its affinity mask), ascending.
std::vector<int> allowed_cores();

// The cores of worker `worker` of `workers` out of `allowed` (ascending):
// each worker takes min(4, allowed / workers) cores of its own, at least one,
// in order; when there are more workers than cores, workers share them round
// robin. With 4 cores or more per worker the pools never meet.
std::vector<int> worker_cores(int worker, int workers, const std::vector<int>& allowed);

// The "persist.bindcore.hdr" value that puts the pool's four threads on
// `cores`, one each while they last, then round again: e.g. cpu_4_4_5_6_7,
// cpu_4_2_3_2_3.
std::string bindcore_value(const std::vector<int>& cores);

// Pins the calling thread (and so the threads it starts) to `cores`; false
// when the system refuses.
bool pin_to_cores(const std::vector<int>& cores);

// Worker processes that suit this machine: one per allowed core. A replay
// spends more of a capture's time reading, writing and comparing frames, one
// core's work, than fusing them, so single-core workers side by side replay
// the most captures a second (README's figures).
int default_jobs();

}  // namespace tavo::tool
