// The reciprocal both grouped division rules divide through, four lanes at a
// time with the instructions that platform/arm_float.h emulates: the estimate
// refined by one Newton step. Include only from aarch64 files.
#pragma once

#include <arm_neon.h>

namespace tavo::arm::neon {

// Inline helpers local to each object (see the instruction-set flags in
// CMakeLists.txt).
namespace {

inline float32x4_t refined_reciprocal(float32x4_t w) {
  const float32x4_t r0 = vrecpeq_f32(w);
  return vmulq_f32(r0, vrecpsq_f32(w, r0));
}

}  // namespace
}  // namespace tavo::arm::neon
