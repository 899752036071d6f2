#include "tools/core_plan.h"

#include <sched.h>

#include <algorithm>

namespace tavo::tool {

namespace {
constexpr int kPoolThreads = 4;  // the library's pool
}

std::vector<int> allowed_cores() {
  cpu_set_t set;
  CPU_ZERO(&set);
  std::vector<int> cores;
  if (sched_getaffinity(0, sizeof set, &set) == 0) {
    for (int c = 0; c < CPU_SETSIZE; ++c) {
      if (CPU_ISSET(c, &set)) cores.push_back(c);
    }
  }
  if (cores.empty()) cores.push_back(0);
  return cores;
}

std::vector<int> worker_cores(int worker, int workers, const std::vector<int>& allowed) {
  const int count = static_cast<int>(allowed.size());
  const int share = std::clamp(count / std::max(workers, 1), 1, kPoolThreads);
  std::vector<int> cores;
  for (int j = 0; j < share; ++j) cores.push_back(allowed[(worker * share + j) % count]);
  std::sort(cores.begin(), cores.end());
  cores.erase(std::unique(cores.begin(), cores.end()), cores.end());
  return cores;
}

std::string bindcore_value(const std::vector<int>& cores) {
  std::string value = "cpu_" + std::to_string(kPoolThreads);
  for (int i = 0; i < kPoolThreads; ++i) value += "_" + std::to_string(cores[i % cores.size()]);
  return value;
}

bool pin_to_cores(const std::vector<int>& cores) {
  cpu_set_t set;
  CPU_ZERO(&set);
  for (int c : cores) {
    if (c >= 0 && c < CPU_SETSIZE) CPU_SET(c, &set);
  }
  return sched_setaffinity(0, sizeof set, &set) == 0;
}

int default_jobs() { return static_cast<int>(allowed_cores().size()); }

}  // namespace tavo::tool
