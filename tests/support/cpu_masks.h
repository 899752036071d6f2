// The instruction-set masks the tests and the row benchmark run the library
// under, in-process: every set; on x86-64 every set but AVX-512 (so the AVX2
// rows run) and every set but AVX2 and AVX-512 (so the SSE4.1 rows run); and
// none. The environment's switches still apply on top of a mask.
#pragma once

#include <algorithm>
#include <functional>
#include <iterator>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "align/align_rows.h"
#include "chroma/chroma_rows.h"
#include "fusion/fusion_rows.h"
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
    {"NoAVX512", ~platform::kCpuHasAVX512},
    {"NoAVX2", ~(platform::kCpuHasAVX2 | platform::kCpuHasAVX512)},
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

// Every module's table of rows under the mask in force.
struct RowTables {
  AlignRows align = GetAlignRows();
  FusionRows fusion = GetFusionRows();
  ChromaRows chroma = GetChromaRows();
  bool operator==(const RowTables&) const = default;
  // "align AVX2, fusion AVX2, chroma AVX2"
  std::string sets() const {
    return std::string("align ") + align.set + ", fusion " + fusion.set + ", chroma " + chroma.set;
  }
};

// Whether an earlier mask of kCpuMasks gives the same tables as m, so that
// whatever runs under m ran already.
inline bool RepeatsAnEarlierMask(const CpuMask& m) {
  const auto tables_under = [](int mask) {
    const ScopedCpuMask scoped(mask);
    return RowTables{};
  };
  const RowTables mine = tables_under(m.mask);
  for (const CpuMask* e = std::begin(kCpuMasks); e->mask != m.mask; ++e) {
    if (tables_under(e->mask) == mine) return true;
  }
  return false;
}

// What pick(table) gives for a module's table get() under every mask, from
// the portable end and without repeats, each with the name of the set of the
// first table that holds it: the portable row first, then every optimised
// variant this processor runs. pick may be a row member (&AlignRows::mismatch).
template <class Get, class Pick>
auto RowVariants(Get get, Pick pick) {
  std::vector<std::pair<const char*, std::decay_t<decltype(std::invoke(pick, get()))>>> found;
  for (auto m = std::rbegin(kCpuMasks); m != std::rend(kCpuMasks); ++m) {
    const ScopedCpuMask scoped(m->mask);
    const auto table = get();
    const auto r = std::invoke(pick, table);
    if (std::none_of(found.begin(), found.end(), [&](const auto& f) { return f.second == r; })) {
      found.emplace_back(table.set, r);
    }
  }
  return found;
}

// The same without the portable row: what the row tests compare with it.
template <class Get, class Pick>
auto OptimisedVariants(Get get, Pick pick) {
  auto found = RowVariants(get, pick);
  found.erase(found.begin());
  return found;
}

}  // namespace tavo::test
