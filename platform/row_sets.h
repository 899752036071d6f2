// The one shape of every module's row functions (align/align_rows.h,
// fusion/fusion_rows.h, chroma/chroma_rows.h): a table of row-function
// pointers that the module's portable init fills, over which the init of each
// instruction set that is on, narrowest set first, puts the rows that set
// has. Each init lies in its set's file (InitXRows_AVX2 in x_rows_avx2.cc),
// and the table's `set` names the widest set applied. A new row goes into the
// table, the portable init and the inits of the sets that have it; a new set
// of a module is one file with its init and one line in the module's list.
// Included by the modules' portable files only.
#pragma once

#include <initializer_list>

#include "platform/cpu.h"

namespace tavo::platform {
// Local to each object (see the instruction-set flags in CMakeLists.txt).
namespace {

template <class Rows>
struct RowSetInit {
  int flag;              // the kCpuHas* flag of the set
  void (*init)(Rows*);  // puts the set's rows into the table
};

// The module's table for the sets on now: init_c, then every init of `sets`
// (narrowest first) whose set is on. A dispatcher takes it once per call.
template <class Rows>
Rows rows_of_sets_on(void (*init_c)(Rows*), std::initializer_list<RowSetInit<Rows>> sets) {
  Rows rows{};
  init_c(&rows);
  rows.set = CpuSetName(0);
  for (const RowSetInit<Rows>& s : sets) {
    if (TestCpuFlag(s.flag) == 0) continue;
    s.init(&rows);
    rows.set = CpuSetName(s.flag);
  }
  return rows;
}

}  // namespace
}  // namespace tavo::platform
