#include "platform/memory.h"

#include <sys/mman.h>

#include <atomic>
#include <cstdint>
#include <cstdlib>

namespace tavo::platform {
namespace {
std::atomic<long> g_live{0};
// Failure injection: allocations numbered from 0 since the switch was set;
// those from g_first on fail, g_failures of them (all when negative).
std::atomic<long> g_first{-1};  // <0: never fail
std::atomic<long> g_failures{-1};
std::atomic<long> g_seen{0};

bool allocation_allowed() {
  const long first = g_first.load(std::memory_order_relaxed);
  if (first < 0) return true;
  const long n = g_seen.fetch_add(1, std::memory_order_relaxed);
  if (n < first) return true;
  const long failures = g_failures.load(std::memory_order_relaxed);
  return failures >= 0 && n >= first + failures;
}
}  // namespace

void* mem_alloc(size_t size) {
  if (!allocation_allowed()) return nullptr;
  void* ptr = malloc(size);
  if (ptr != nullptr) g_live.fetch_add(1, std::memory_order_relaxed);
  return ptr;
}

void* mem_calloc(size_t count, size_t size) {
  if (!allocation_allowed()) return nullptr;
  void* ptr = calloc(count, size);
  if (ptr != nullptr) g_live.fetch_add(1, std::memory_order_relaxed);
  return ptr;
}

void advise_huge_pages(void* ptr, size_t bytes) {
#if defined(MADV_HUGEPAGE)
  constexpr uintptr_t kHugePage = uintptr_t{1} << 21;
  const auto begin = (reinterpret_cast<uintptr_t>(ptr) + kHugePage - 1) & ~(kHugePage - 1);
  const auto end = (reinterpret_cast<uintptr_t>(ptr) + bytes) & ~(kHugePage - 1);
  if (end > begin) madvise(reinterpret_cast<void*>(begin), end - begin, MADV_HUGEPAGE);
#else
  (void)ptr;
  (void)bytes;
#endif
}

void mem_free(void* ptr) {
  if (ptr == nullptr) return;
  g_live.fetch_sub(1, std::memory_order_relaxed);
  free(ptr);
}

void fail_allocations_after(long successes, long failures) {
  g_first.store(-1, std::memory_order_relaxed);
  g_seen.store(0, std::memory_order_relaxed);
  g_failures.store(failures, std::memory_order_relaxed);
  g_first.store(successes, std::memory_order_relaxed);
}
long allocations_since_switch() { return g_seen.load(std::memory_order_relaxed); }
long live_allocations() { return g_live.load(std::memory_order_relaxed); }

}  // namespace tavo::platform
