// What a capture costs the process beyond time: resident memory (current and
// peak, from /proc/self/status, with the peak reset through clear_refs) and
// page faults (getrusage).
#pragma once

#include <cstdint>

namespace tavo::bench {

// Resident set now and its peak since the last reset_peak_rss(), in bytes.
int64_t rss_bytes();
int64_t peak_rss_bytes();
void reset_peak_rss();
// Minor and major page faults of the process so far.
int64_t page_faults();
// CPU time of all the process's threads so far (user and system), in seconds.
double cpu_seconds();

}  // namespace tavo::bench
