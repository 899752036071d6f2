// The instruction-set masks a test runs the library under, in-process: every
// set, on x86-64 every set but AVX2 (so the SSE4.1 rows run), and none. The
// environment's switches still apply on top of a mask.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <ostream>
#include <utility>
#include <vector>

#include "platform/cpu.h"

namespace tavo::test {

struct CpuMask {
  const char* name;
  int mask;
};

inline void PrintTo(const CpuMask& m, std::ostream* os) { *os << m.name; }

inline constexpr CpuMask kCpuMasks[] = {
    {"AllSets", -1},
#if defined(__x86_64__)
    {"NoAVX2", ~platform::kCpuHasAVX2},
#endif
    {"Portable", 0},
};

// Sets the mask for as long as it lives, then puts back the environment's choice.
class ScopedCpuMask {
 public:
  explicit ScopedCpuMask(int mask) { platform::MaskCpuFlags(mask); }
  ~ScopedCpuMask() { platform::MaskCpuFlags(-1); }
  ScopedCpuMask(const ScopedCpuMask&) = delete;
  ScopedCpuMask& operator=(const ScopedCpuMask&) = delete;
};

// body() under every mask.
template <class Body>
void ForEachCpuMask(Body body) {
  for (const CpuMask& m : kCpuMasks) {
    const ScopedCpuMask scoped(m.mask);
    SCOPED_TRACE(m.name);
    body(m);
  }
}

// What select() returns under every mask, without the portable result and
// without repeats: every optimised variant of a row family this processor runs,
// each with the name of the first mask (from the portable end) that picks it.
template <class Select>
auto OptimisedVariants(Select select) {
  std::vector<std::pair<const char*, decltype(select())>> found;
  for (auto m = std::rbegin(kCpuMasks); m != std::rend(kCpuMasks); ++m) {
    const ScopedCpuMask scoped(m->mask);
    const auto r = select();
    if (std::none_of(found.begin(), found.end(), [&](const auto& f) { return f.second == r; })) {
      found.emplace_back(m->name, r);
    }
  }
  found.erase(found.begin());  // the portable rows
  return found;
}

}  // namespace tavo::test
