#include "platform/memory.h"

#include <atomic>
#include <cstdlib>

namespace tavo::platform {
namespace {
std::atomic<long> g_live{0};
std::atomic<long> g_budget{-1};  // allocations left before failures start; <0: unlimited

bool allocation_allowed() {
  long budget = g_budget.load(std::memory_order_relaxed);
  while (budget >= 0) {
    if (budget == 0) return false;
    if (g_budget.compare_exchange_weak(budget, budget - 1, std::memory_order_relaxed)) return true;
  }
  return true;
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

void mem_free(void* ptr) {
  if (ptr == nullptr) return;
  g_live.fetch_sub(1, std::memory_order_relaxed);
  free(ptr);
}

void fail_allocations_after(long successes) { g_budget.store(successes, std::memory_order_relaxed); }
long live_allocations() { return g_live.load(std::memory_order_relaxed); }

}  // namespace tavo::platform
