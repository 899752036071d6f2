#include "platform/cpu.h"

#include <atomic>
#include <cstdlib>
#include <cstring>

namespace tavo::platform {
namespace {

bool portable_from_environment() {
  const char* value = getenv(kPortableVariable);
  return value != nullptr && *value != '\0' && strcmp(value, "0") != 0;
}

bool detected(Isa isa) {
  switch (isa) {
    case Isa::kPortable:
      return true;
#if defined(__x86_64__) || defined(__i386__)
    case Isa::kSse41:
      return __builtin_cpu_supports("sse4.1");
    case Isa::kAvx2:
      return __builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma");
#endif
#if defined(__aarch64__)
    case Isa::kNeon:
      return true;
#endif
    default:
      return false;
  }
}

std::atomic<int> g_forced{-1};  // -1: from the environment, 0: detect, 1: portable

}  // namespace

bool cpu_has(Isa isa) {
  int forced = g_forced.load(std::memory_order_relaxed);
  if (forced < 0) {
    forced = portable_from_environment() ? 1 : 0;
    g_forced.store(forced, std::memory_order_relaxed);
  }
  if (forced == 1) return isa == Isa::kPortable;
  return detected(isa);
}

Isa best_isa() {
  for (Isa isa : {Isa::kNeon, Isa::kAvx2, Isa::kSse41}) {
    if (cpu_has(isa)) return isa;
  }
  return Isa::kPortable;
}

void force_portable_for_testing(bool portable) {
  g_forced.store(portable ? 1 : 0, std::memory_order_relaxed);
}

}  // namespace tavo::platform
