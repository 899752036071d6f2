// Heap of the library: malloc and free, counted, with a switch by which tests
// make an allocation fail so that every failure path can be exercised.
#pragma once

#include <cstddef>

namespace tavo::platform {

void* mem_alloc(size_t size);
void* mem_calloc(size_t count, size_t size);
void mem_free(void* ptr);

// Lets `successes` more allocations through, then fails every later one until
// the switch is reset with a negative value (the default: never fail).
void fail_allocations_after(long successes);
// Allocations taken and not yet freed.
long live_allocations();

}  // namespace tavo::platform
