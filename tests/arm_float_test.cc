// The ARMv8 reciprocal estimate, reciprocal step and conversions emulated in
// plain C++, and their AVX2 and AVX-512 forms. On aarch64 the emulation is
// compared with the instructions, on x86-64 the vector forms with the
// emulation.
#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <climits>
#include <cmath>
#include <cstdint>
#include <iterator>
#include <random>

#include "platform/arm_float.h"
#include "platform/cpu.h"

#if defined(__aarch64__)
#include <arm_neon.h>
#endif

namespace tavo {
namespace {

uint32_t bits(float f) { return std::bit_cast<uint32_t>(f); }

}  // namespace
}  // namespace tavo

#if defined(__x86_64__)
#include <immintrin.h>
// Only the lane helpers and the runners are built for AVX2 and AVX-512, not
// what the other tests call on processors without them; what they include is
// already in.
#pragma GCC push_options
#pragma GCC target("avx2,fma")
#include "platform/arm_float_avx2.h"
#pragma GCC pop_options
// GCC 12 reads the AVX-512 headers' undefined-vector idiom as a maybe
// uninitialised value once their functions are inlined (up to run_avx512).
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#pragma GCC diagnostic ignored "-Wuninitialized"
#pragma GCC push_options
#pragma GCC target("avx512f,avx512bw,avx512vl,avx512vbmi,fma")
#include "platform/arm_float_avx512.h"
#pragma GCC pop_options
#endif

namespace tavo {
namespace {

#if defined(__x86_64__)
constexpr int kLanes = 16;

struct Lanes {
  float converted[kLanes], estimate[kLanes], refined[kLanes], positive_estimate[kLanes], positive_refined[kLanes];
  // The positive refined form of two vectors at once, where a set has it: the
  // lanes, and the lanes reversed as the second vector, put back in order.
  float paired_first[kLanes], paired_second[kLanes];
  int32_t s32[kLanes];
  uint32_t u32[kLanes];
};

#pragma GCC push_options
#pragma GCC target("avx2,fma")
Lanes run_avx2(const uint32_t* ints, bool is_signed, const float* floats) {
  Lanes r;
  for (int h = 0; h < kLanes; h += 8) {
    const __m256i v = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(ints + h));
    const __m256 f = is_signed ? _mm256_cvtepi32_ps(v) : arm::avx2::u32_to_float(v);
    _mm256_storeu_ps(r.converted + h, f);
    _mm256_storeu_ps(r.estimate + h, arm::avx2::recip_estimate(f));
    _mm256_storeu_ps(r.refined + h, arm::avx2::refined_reciprocal(f));
    _mm256_storeu_ps(r.positive_estimate + h, arm::avx2::recip_estimate_of_positive(f));
    _mm256_storeu_ps(r.positive_refined + h, arm::avx2::refined_reciprocal_of_positive(f));
    const __m256 g = _mm256_loadu_ps(floats + h);
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(r.s32 + h), arm::avx2::to_s32(g));
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(r.u32 + h), arm::avx2::to_u32(g));
  }
  std::copy(std::begin(r.positive_refined), std::end(r.positive_refined), r.paired_first);
  std::copy(std::begin(r.positive_refined), std::end(r.positive_refined), r.paired_second);
  return r;
}
#pragma GCC pop_options

#pragma GCC push_options
#pragma GCC target("avx512f,avx512bw,avx512vl,avx512vbmi,fma")
Lanes run_avx512(const uint32_t* ints, bool is_signed, const float* floats) {
  Lanes r;
  const __m512i v = _mm512_loadu_si512(ints);
  const __m512 f = is_signed ? _mm512_cvtepi32_ps(v) : _mm512_cvtepu32_ps(v);
  _mm512_storeu_ps(r.converted, f);
  _mm512_storeu_ps(r.estimate, arm::avx512::recip_estimate(f));
  _mm512_storeu_ps(r.refined, arm::avx512::refined_reciprocal(f));
  _mm512_storeu_ps(r.positive_estimate, arm::avx512::recip_estimate_of_positive(f));
  _mm512_storeu_ps(r.positive_refined, arm::avx512::refined_reciprocal_of_positive(f));
  const __m512i reverse = _mm512_set_epi32(0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15);
  __m512 pair[2];
  arm::avx512::refined_reciprocals_of_positive(f, _mm512_permutexvar_ps(reverse, f), pair);
  _mm512_storeu_ps(r.paired_first, pair[0]);
  _mm512_storeu_ps(r.paired_second, _mm512_permutexvar_ps(reverse, pair[1]));
  const __m512 g = _mm512_loadu_ps(floats);
  _mm512_storeu_si512(r.s32, arm::avx512::to_s32(g));
  _mm512_storeu_si512(r.u32, arm::avx512::to_u32(g));
  return r;
}
#pragma GCC pop_options
#pragma GCC diagnostic pop
#endif

TEST(ArmFloat, KnownEstimatesAndConversions) {
  const struct {
    float in, estimate;
  } estimates[] = {{1.0f, 0.998046875f}, {2.0f, 0.4990234375f}, {0.0f, INFINITY}, {-0.0f, -INFINITY}, {INFINITY, 0.0f}};
  for (const auto& e : estimates) EXPECT_EQ(arm::recip_estimate(e.in), e.estimate) << e.in;
  EXPECT_TRUE(std::isnan(arm::recip_estimate(NAN)));
  // The estimate of W = 2 refined once is slightly low: 3 * r1 + 0.5 truncates to 1.
  const float r1 = arm::refined_reciprocal(2.0f);
  EXPECT_LT(r1, 0.5f);
  EXPECT_EQ(arm::to_s32(3.0f * r1 + 0.5f), 1);

  // Truncation toward zero, saturating, NaN giving 0.
  const struct {
    float in;
    int32_t s32;
    uint32_t u32;
  } conversions[] = {{1.0e10f, INT32_MAX, UINT32_MAX}, {-1.0e10f, INT32_MIN, 0}, {NAN, 0, 0},
                     {-2.75f, -2, 0}, {-0.75f, 0, 0}, {-5.0f, -5, 0}, {255.9f, 255, 255}};
  for (const auto& c : conversions) {
    EXPECT_EQ(arm::to_s32(c.in), c.s32) << c.in;
    EXPECT_EQ(arm::to_u32(c.in), c.u32) << c.in;
  }
}

// The step must equal the fused 2 - a*b for every pair, whichever way it is
// computed; estimate-times-operand pairs and arbitrary ones alike.
TEST(ArmFloat, StepIsTheFusedMultiplySubtract) {
  std::mt19937 rng(5);
  std::uniform_real_distribution<float> unit(0.5f, 2.0f);
  for (int i = 0; i < 1000000; ++i) {
    float a, b;
    if (i % 2 == 0) {
      a = static_cast<float>(rng() % (1u << 24) + 1);
      b = arm::recip_estimate(a) * unit(rng);
    } else {
      a = std::bit_cast<float>(static_cast<uint32_t>(rng()) & 0xbfffffffu);  // finite
      b = std::bit_cast<float>(static_cast<uint32_t>(rng()) & 0xbfffffffu);
    }
    ASSERT_EQ(bits(arm::recip_step(a, b)), bits(std::fma(-a, b, 2.0f))) << a << " " << b;
  }
}

#if defined(__x86_64__)
// The lanes of each set on, on the values the grouped division rules form and
// on edge floats.
TEST(ArmFloatVectors, MatchTheScalarEmulation) {
  const struct {
    int flag;
    Lanes (*run)(const uint32_t*, bool, const float*);
  } forms[] = {{platform::kCpuHasAVX2, run_avx2}, {platform::kCpuHasAVX512, run_avx512}};
  std::mt19937 rng(9);
  const float edges[] = {0.0f, -0.0f, 0.5f, -0.75f, 2147483520.0f, 2147483648.0f, -2147483648.0f,
                         4294967040.0f, 4294967296.0f, INFINITY, -INFINITY, NAN};
  for (const auto& form : forms) {
    if (!platform::TestCpuFlag(form.flag)) continue;
    SCOPED_TRACE(platform::CpuSetName(form.flag));
    for (int round = 0; round < 150000; ++round) {
      const bool is_signed = round % 2;
      uint32_t in[kLanes];
      float floats[kLanes];
      for (int k = 0; k < kLanes; ++k) {
        // Every sum below 2^18 in order, then sums of every magnitude, some zero.
        in[k] = round < 32768 ? static_cast<uint32_t>(round * 8 + k / 2) : rng() >> (rng() % 32);
        if (round % 5 == 0 && k == 7) in[k] = 0;
        if (is_signed && k % 2) in[k] = 0u - in[k];
        floats[k] = round % 3 ? std::bit_cast<float>(static_cast<uint32_t>(rng())) : edges[rng() % std::size(edges)];
      }
      const Lanes r = form.run(in, is_signed, floats);
      for (int k = 0; k < kLanes; ++k) {
        const float f = is_signed ? static_cast<float>(static_cast<int32_t>(in[k])) : static_cast<float>(in[k]);
        ASSERT_EQ(bits(r.converted[k]), bits(f)) << in[k];
        ASSERT_EQ(bits(r.estimate[k]), bits(arm::recip_estimate(f))) << in[k];
        ASSERT_EQ(bits(r.refined[k]), bits(arm::refined_reciprocal(f))) << in[k];
        if (f > 0.0f) {  // the forms for lanes known to be positive
          ASSERT_EQ(bits(r.positive_estimate[k]), bits(arm::recip_estimate(f))) << in[k];
          ASSERT_EQ(bits(r.positive_refined[k]), bits(arm::refined_reciprocal(f))) << in[k];
          ASSERT_EQ(bits(r.paired_first[k]), bits(arm::refined_reciprocal(f))) << in[k];
          ASSERT_EQ(bits(r.paired_second[k]), bits(arm::refined_reciprocal(f))) << in[k];
        }
        ASSERT_EQ(r.s32[k], arm::to_s32(floats[k])) << floats[k];
        ASSERT_EQ(r.u32[k], arm::to_u32(floats[k])) << floats[k];
      }
    }
  }
}
#endif

#if defined(__aarch64__)
// Every weight sum blending (1 ... 3*1024*255) and chroma fusion can form.
TEST(ArmFloatHardware, EstimateAndStepOfEveryWeightSum) {
  for (uint32_t w = 1; w <= 3u * 1024u * 255u; ++w) {
    const float f = static_cast<float>(w);
    const float32x4_t v = vdupq_n_f32(f), r0 = vrecpeq_f32(v);
    ASSERT_EQ(bits(arm::recip_estimate(f)), bits(vgetq_lane_f32(r0, 0))) << w;
    ASSERT_EQ(bits(arm::refined_reciprocal(f)), bits(vgetq_lane_f32(vmulq_f32(r0, vrecpsq_f32(v, r0)), 0))) << w;
  }
}

TEST(ArmFloatHardware, EstimateAndConversionsOfRandomBitPatterns) {
  std::mt19937 rng(7);
  for (int i = 0; i < 2000000; ++i) {
    const float f = std::bit_cast<float>(static_cast<uint32_t>(rng()));
    const float32x4_t v = vdupq_n_f32(f);
    const float hw = vgetq_lane_f32(vrecpeq_f32(v), 0), em = arm::recip_estimate(f);
    if (std::isnan(f)) {
      ASSERT_TRUE(std::isnan(hw) && std::isnan(em));
    } else {
      ASSERT_EQ(bits(em), bits(hw)) << std::hex << bits(f);
    }
    ASSERT_EQ(arm::to_s32(f), vgetq_lane_s32(vcvtq_s32_f32(v), 0)) << f;
    ASSERT_EQ(arm::to_u32(f), vgetq_lane_u32(vcvtq_u32_f32(v), 0)) << f;
  }
}
#endif

}  // namespace
}  // namespace tavo
