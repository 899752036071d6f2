// The instruction-set masks a test runs the library under, in-process: every
// set, on x86-64 every set but AVX2 (so the SSE4.1 rows run), and none. The
// environment's switches still apply on top of a mask.
#pragma once

#include <gtest/gtest.h>

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
// each with the name of the first mask that picked it.
template <class Select>
auto OptimisedVariants(Select select) {
  using Result = decltype(select());
  Result portable;
  {
    const ScopedCpuMask scoped(0);
    portable = select();
  }
  std::vector<std::pair<const char*, Result>> variants;
  ForEachCpuMask([&](const CpuMask& m) {
    const Result r = select();
    if (r == portable) return;
    for (const auto& v : variants) {
      if (v.second == r) return;
    }
    variants.emplace_back(m.name, r);
  });
  return variants;
}

}  // namespace tavo::test
