// Instruction sets the row functions may use, one flag per set. The processor
// is asked once; the environment can switch sets off, each on its own:
//   TAVO_HDR_DISABLE_SSE41, TAVO_HDR_DISABLE_AVX2, TAVO_HDR_DISABLE_AVX512,
//   TAVO_HDR_DISABLE_NEON
// (any value but empty or "0"), and TAVO_HDR_PORTABLE for all of them, as
// the library's environment snapshot holds them (platform/environment.h).
// Every module keeps its rows in one table (platform/row_sets.h): the
// portable rows, over which each set that is on, narrowest first, puts the
// rows it has; so with AVX2 off a row with an SSE4.1 variant runs that.
#pragma once

namespace tavo::platform {

inline constexpr int kCpuHasSSE41 = 0x1;
inline constexpr int kCpuHasAVX2 = 0x2;  // with FMA: the AVX2 rows are built with -mfma
inline constexpr int kCpuHasNEON = 0x4;
// AVX-512 F, BW, VL and VBMI (with FMA), the ZMM state saved by the system.
inline constexpr int kCpuHasAVX512 = 0x8;

// Nonzero when the set is on: the processor has it, the build has rows for it
// and neither the environment nor MaskCpuFlags switched it off.
int TestCpuFlag(int flag);

// Tests and benchmarks: only the sets in `mask` that the processor has and the
// environment snapshot allows stay on; -1 puts back the environment's choice,
// 0 leaves the portable rows. Returns the sets now on.
int MaskCpuFlags(int mask);

// The name of one set, as tables, benchmarks and traces give it: "SSE4.1",
// "AVX2", "AVX-512", "NEON", and "C" for 0, the portable rows. Always the same
// pointer for a set.
const char* CpuSetName(int flag);

}  // namespace tavo::platform
