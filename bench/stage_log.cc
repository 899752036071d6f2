#include "bench/stage_log.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <map>
#include <mutex>

namespace {
std::mutex g_mutex;
std::map<std::string, double> g_seconds;
}  // namespace

extern "C" int __android_log_print(int, const char*, const char* fmt, ...) {
  char line[1024];
  va_list ap;
  va_start(ap, fmt);
  const int n = vsnprintf(line, sizeof line, fmt, ap);
  va_end(ap);
  const char* test = strstr(line, ": Test: ");
  if (test == nullptr) return n;
  char stage[64];
  double seconds = 0;
  if (sscanf(test + 8, "%63[^,], %lf s", stage, &seconds) == 2) {
    std::lock_guard<std::mutex> lock(g_mutex);
    g_seconds[stage] += seconds;
  }
  return n;
}

namespace tavo::bench {

double stage_seconds(const std::string& stage) {
  std::lock_guard<std::mutex> lock(g_mutex);
  auto it = g_seconds.find(stage);
  return it == g_seconds.end() ? 0.0 : it->second;
}

void reset_stage_seconds() {
  std::lock_guard<std::mutex> lock(g_mutex);
  g_seconds.clear();
}

}  // namespace tavo::bench
