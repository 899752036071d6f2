#include "platform/cpu.h"

#include <atomic>
#include <cstdlib>
#include <cstring>

namespace tavo::platform {
namespace {

bool switched_on(const char* variable) {
  const char* value = getenv(variable);
  return value != nullptr && *value != '\0' && strcmp(value, "0") != 0;
}

int detected() {
  int flags = 0;
#if defined(__x86_64__)
  __builtin_cpu_init();
  if (__builtin_cpu_supports("sse4.1")) flags |= kCpuHasSSE41;
  if (__builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma")) flags |= kCpuHasAVX2;
#endif
#if defined(__aarch64__)
  flags |= kCpuHasNEON;  // part of every ARMv8-A processor
#endif
  return flags;
}

int allowed_by_environment() {
  if (switched_on("TAVO_HDR_PORTABLE")) return 0;
  constexpr struct {
    const char* variable;
    int flag;
  } kSwitches[] = {{"TAVO_HDR_DISABLE_SSE41", kCpuHasSSE41},
                   {"TAVO_HDR_DISABLE_AVX2", kCpuHasAVX2},
                   {"TAVO_HDR_DISABLE_NEON", kCpuHasNEON}};
  int flags = -1;
  for (const auto& s : kSwitches) {
    if (switched_on(s.variable)) flags &= ~s.flag;
  }
  return flags;
}

constexpr int kUninitialised = -1;
std::atomic<int> g_cpu_flags{kUninitialised};

}  // namespace

int MaskCpuFlags(int mask) {
  const int flags = detected() & allowed_by_environment() & mask;
  g_cpu_flags.store(flags, std::memory_order_relaxed);
  return flags;
}

int TestCpuFlag(int flag) {
  int flags = g_cpu_flags.load(std::memory_order_relaxed);
  if (flags == kUninitialised) flags = MaskCpuFlags(-1);
  return flags & flag;
}

}  // namespace tavo::platform
