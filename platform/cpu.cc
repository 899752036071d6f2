#include "platform/cpu.h"

#include <atomic>

#include "platform/environment.h"

namespace tavo::platform {
namespace {

int detected() {
  int flags = 0;
#if defined(__x86_64__)
  // The compiler's run-time checks also ask the system (XGETBV) whether it
  // saves the YMM and ZMM registers, so an AVX or AVX-512 feature is only
  // reported where it can be used.
  __builtin_cpu_init();
  if (__builtin_cpu_supports("sse4.1")) flags |= kCpuHasSSE41;
  if (__builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma")) flags |= kCpuHasAVX2;
  if (__builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw") &&
      __builtin_cpu_supports("avx512vl") && __builtin_cpu_supports("avx512vbmi") &&
      __builtin_cpu_supports("fma")) {
    flags |= kCpuHasAVX512;
  }
#endif
#if defined(__aarch64__)
  flags |= kCpuHasNEON;  // part of every ARMv8-A processor
#endif
  return flags;
}

constexpr int kUninitialised = -1;
std::atomic<int> g_cpu_flags{kUninitialised};

}  // namespace

int MaskCpuFlags(int mask) {
  const int flags = detected() & ~environment().cpu_sets_off & mask;
  g_cpu_flags.store(flags, std::memory_order_relaxed);
  return flags;
}

int TestCpuFlag(int flag) {
  int flags = g_cpu_flags.load(std::memory_order_relaxed);
  if (flags == kUninitialised) flags = MaskCpuFlags(-1);
  return flags & flag;
}

const char* CpuSetName(int flag) {
  static constexpr struct {
    int flag;
    const char* name;
  } kNames[] = {{kCpuHasSSE41, "SSE4.1"}, {kCpuHasAVX2, "AVX2"}, {kCpuHasAVX512, "AVX-512"}, {kCpuHasNEON, "NEON"}};
  for (const auto& n : kNames) {
    if (n.flag == flag) return n.name;
  }
  return "C";
}

}  // namespace tavo::platform
