// Instruction sets the row functions may use. Detected once; the environment
// variable TAVO_HDR_PORTABLE=1 (or the test switch) forces the portable rows.
#pragma once

namespace tavo::platform {

enum class Isa { kPortable, kSse41, kAvx2, kNeon };

bool cpu_has(Isa isa);
// The widest instruction set this build and processor support.
Isa best_isa();

inline constexpr const char* kPortableVariable = "TAVO_HDR_PORTABLE";
// Tests: true forces the portable rows, false returns to detection.
void force_portable_for_testing(bool portable);

}  // namespace tavo::platform
