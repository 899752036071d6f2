#include "bench/process_stats.h"

#include <sys/resource.h>

#include <cstdio>
#include <cstring>
#include <ctime>

#include "platform/log.h"

namespace tavo::bench {
namespace {

// The benchmarks measure, they do not show the library's log: every line goes
// to a sink that drops it (the stage times come from api/stage_times.h).
[[maybe_unused]] const bool g_quiet_log =
    (platform::set_log_sink_for_testing([](int, const char*, const char*) {}), true);

// A "Name:   <n> kB" line of /proc/self/status, in bytes; -1 when absent.
int64_t status_kb(const char* name) {
  FILE* file = fopen("/proc/self/status", "r");
  if (file == nullptr) return -1;
  char line[256];
  int64_t value = -1;
  const size_t len = strlen(name);
  while (fgets(line, sizeof line, file) != nullptr) {
    long long kb = 0;
    if (strncmp(line, name, len) == 0 && line[len] == ':' && sscanf(line + len + 1, "%lld", &kb) == 1) {
      value = kb * 1024;
      break;
    }
  }
  fclose(file);
  return value;
}

}  // namespace

int64_t rss_bytes() { return status_kb("VmRSS"); }
int64_t peak_rss_bytes() { return status_kb("VmHWM"); }

void reset_peak_rss() {
  if (FILE* file = fopen("/proc/self/clear_refs", "w")) {
    fputs("5", file);
    fclose(file);
  }
}

int64_t page_faults() {
  struct rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return usage.ru_minflt + usage.ru_majflt;
}

double cpu_seconds() {
  timespec t{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t);
  return static_cast<double>(t.tv_sec) + 1e-9 * static_cast<double>(t.tv_nsec);
}

}  // namespace tavo::bench
