// The eight-lane AVX2 forms of the ARM reciprocal estimate, step and
// conversions against the scalar emulation, over the values the grouped
// division rules form.
#if defined(__x86_64__)
#include <gtest/gtest.h>
#include <immintrin.h>

#include <array>
#include <bit>
#include <cstdint>
#include <random>

#include "platform/arm_float.h"

// Only the eight-lane helpers are built for AVX2: everything they include is
// already in.
#pragma GCC push_options
#pragma GCC target("avx2,fma")
#include "platform/arm_float_avx2.h"
#pragma GCC pop_options

namespace tavo {
namespace {

#pragma GCC push_options
#pragma GCC target("avx2,fma")
void lanes(const uint32_t* ints, bool is_signed, float* estimate, float* refined, float* converted) {
  const __m256i v = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(ints));
  const __m256 f = is_signed ? _mm256_cvtepi32_ps(v) : arm::avx2::u32_to_float(v);
  _mm256_storeu_ps(converted, f);
  _mm256_storeu_ps(estimate, arm::avx2::recip_estimate(f));
  _mm256_storeu_ps(refined, arm::avx2::refined_reciprocal(f));
}

void conversions(const float* in, int32_t* s, uint32_t* u) {
  const __m256 f = _mm256_loadu_ps(in);
  _mm256_storeu_si256(reinterpret_cast<__m256i*>(s), arm::avx2::to_s32(f));
  _mm256_storeu_si256(reinterpret_cast<__m256i*>(u), arm::avx2::to_u32(f));
}
#pragma GCC pop_options

uint32_t bits(float f) { return std::bit_cast<uint32_t>(f); }

TEST(ArmFloatAvx2, ReciprocalOfIntegerSums) {
  if (!__builtin_cpu_supports("avx2") || !__builtin_cpu_supports("fma")) GTEST_SKIP() << "no AVX2";
  std::mt19937 rng(9);
  uint32_t in[8];
  float est[8], ref[8], conv[8];
  for (int round = 0; round < 600000; ++round) {
    const bool is_signed = round % 2;
    for (int k = 0; k < 8; ++k) {
      // Every sum up to 2^18 in order, then random sums of every magnitude.
      in[k] = round < 65536 ? static_cast<uint32_t>(round * 4 + k / 2) : rng() >> (rng() % 32);
      if (k == 7 && round % 5 == 0) in[k] = 0;
      if (is_signed && k % 2) in[k] = 0u - in[k];
    }
    lanes(in, is_signed, est, ref, conv);
    for (int k = 0; k < 8; ++k) {
      const float f = is_signed ? static_cast<float>(static_cast<int32_t>(in[k])) : static_cast<float>(in[k]);
      ASSERT_EQ(bits(conv[k]), bits(f)) << in[k];
      ASSERT_EQ(bits(est[k]), bits(arm::recip_estimate(f))) << in[k];
      ASSERT_EQ(bits(ref[k]), bits(arm::refined_reciprocal(f))) << in[k];
    }
  }
}

TEST(ArmFloatAvx2, ConversionsSaturateLikeTheScalarForms) {
  if (!__builtin_cpu_supports("avx2") || !__builtin_cpu_supports("fma")) GTEST_SKIP() << "no AVX2";
  std::mt19937 rng(10);
  float in[8];
  int32_t s[8];
  uint32_t u[8];
  const float edges[] = {0.0f, -0.0f, 0.5f, -0.75f, 2147483520.0f, 2147483648.0f, -2147483648.0f,
                         4294967040.0f, 4294967296.0f, INFINITY, -INFINITY, NAN};
  for (int round = 0; round < 200000; ++round) {
    for (int k = 0; k < 8; ++k) {
      in[k] = round % 3 ? std::bit_cast<float>(static_cast<uint32_t>(rng())) : edges[rng() % std::size(edges)];
    }
    conversions(in, s, u);
    for (int k = 0; k < 8; ++k) {
      ASSERT_EQ(s[k], arm::to_s32(in[k])) << in[k];
      ASSERT_EQ(u[k], arm::to_u32(in[k])) << in[k];
    }
  }
}

}  // namespace
}  // namespace tavo
#endif
