// Heap of the library: malloc and free, counted, with a switch by which tests
// make an allocation fail so that every failure path can be exercised.
#pragma once

#include <cstddef>

namespace tavo::platform {

void* mem_alloc(size_t size);
void* mem_calloc(size_t count, size_t size);
void mem_free(void* ptr);

// Asks the system to back the whole 2 MiB pages inside [ptr, ptr + bytes)
// with huge pages where it offers them on request: one page fault instead of
// 512 for a large buffer filled at once. A hint only; nothing else changes.
void advise_huge_pages(void* ptr, size_t bytes);

// Lets `successes` more allocations through, then fails the next `failures`
// (every later one when negative) until the switch is reset with a negative
// `successes` (the default: never fail).
void fail_allocations_after(long successes, long failures = -1);
// Allocations asked for since the switch was last set.
long allocations_since_switch();
// Allocations taken and not yet freed.
long live_allocations();

}  // namespace tavo::platform
