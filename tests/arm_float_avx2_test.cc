// The eight-lane AVX2 forms of the ARM reciprocal estimate, step and
// conversions against the scalar emulation, on the values the grouped division
// rules form and on edge floats.
#if defined(__x86_64__)
#include <gtest/gtest.h>
#include <immintrin.h>

#include <array>
#include <bit>
#include <cstdint>
#include <random>

#include "platform/arm_float.h"
#include "platform/cpu.h"

// Only the eight-lane helpers are built for AVX2; what they include is already in.
#pragma GCC push_options
#pragma GCC target("avx2,fma")
#include "platform/arm_float_avx2.h"

namespace tavo {
namespace {

struct Lanes {
  float converted[8], estimate[8], refined[8], positive_estimate[8], positive_refined[8];
  int32_t s32[8];
  uint32_t u32[8];
};

Lanes run_lanes(const uint32_t* ints, bool is_signed, const float* floats) {
  Lanes r;
  const __m256i v = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(ints));
  const __m256 f = is_signed ? _mm256_cvtepi32_ps(v) : arm::avx2::u32_to_float(v);
  _mm256_storeu_ps(r.converted, f);
  _mm256_storeu_ps(r.estimate, arm::avx2::recip_estimate(f));
  _mm256_storeu_ps(r.refined, arm::avx2::refined_reciprocal(f));
  _mm256_storeu_ps(r.positive_estimate, arm::avx2::recip_estimate_of_positive(f));
  _mm256_storeu_ps(r.positive_refined, arm::avx2::refined_reciprocal_of_positive(f));
  const __m256 g = _mm256_loadu_ps(floats);
  _mm256_storeu_si256(reinterpret_cast<__m256i*>(r.s32), arm::avx2::to_s32(g));
  _mm256_storeu_si256(reinterpret_cast<__m256i*>(r.u32), arm::avx2::to_u32(g));
  return r;
}
#pragma GCC pop_options

uint32_t bits(float f) { return std::bit_cast<uint32_t>(f); }

TEST(ArmFloatAvx2, MatchesTheScalarEmulation) {
  if (!platform::TestCpuFlag(platform::kCpuHasAVX2)) GTEST_SKIP() << "AVX2 off or absent";
  std::mt19937 rng(9);
  const float edges[] = {0.0f, -0.0f, 0.5f, -0.75f, 2147483520.0f, 2147483648.0f, -2147483648.0f,
                         4294967040.0f, 4294967296.0f, INFINITY, -INFINITY, NAN};
  for (int round = 0; round < 600000; ++round) {
    const bool is_signed = round % 2;
    uint32_t in[8];
    float floats[8];
    for (int k = 0; k < 8; ++k) {
      // Every sum below 2^18 in order, then sums of every magnitude, some zero.
      in[k] = round < 65536 ? static_cast<uint32_t>(round * 4 + k / 2) : rng() >> (rng() % 32);
      if (round % 5 == 0 && k == 7) in[k] = 0;
      if (is_signed && k % 2) in[k] = 0u - in[k];
      floats[k] = round % 3 ? std::bit_cast<float>(static_cast<uint32_t>(rng())) : edges[rng() % std::size(edges)];
    }
    const Lanes r = run_lanes(in, is_signed, floats);
    for (int k = 0; k < 8; ++k) {
      const float f = is_signed ? static_cast<float>(static_cast<int32_t>(in[k])) : static_cast<float>(in[k]);
      ASSERT_EQ(bits(r.converted[k]), bits(f)) << in[k];
      ASSERT_EQ(bits(r.estimate[k]), bits(arm::recip_estimate(f))) << in[k];
      ASSERT_EQ(bits(r.refined[k]), bits(arm::refined_reciprocal(f))) << in[k];
      if (f > 0.0f) {  // the forms for lanes known to be positive
        ASSERT_EQ(bits(r.positive_estimate[k]), bits(arm::recip_estimate(f))) << in[k];
        ASSERT_EQ(bits(r.positive_refined[k]), bits(arm::refined_reciprocal(f))) << in[k];
      }
      ASSERT_EQ(r.s32[k], arm::to_s32(floats[k])) << floats[k];
      ASSERT_EQ(r.u32[k], arm::to_u32(floats[k])) << floats[k];
    }
  }
}

}  // namespace
}  // namespace tavo
#endif
