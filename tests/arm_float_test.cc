// The ARMv8 reciprocal estimate, reciprocal step and conversions, emulated in
// plain C++. On aarch64 the emulation is compared with the instructions.
#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <random>

#include "platform/arm_float.h"

#if defined(__aarch64__)
#include <arm_neon.h>
#endif

namespace tavo {
namespace {

TEST(ArmFloat, EstimateOfKnownValues) {
  EXPECT_EQ(arm::recip_estimate(1.0f), 0.998046875f);
  EXPECT_EQ(arm::recip_estimate(2.0f), 0.4990234375f);
  EXPECT_EQ(arm::recip_estimate(0.0f), INFINITY);
  EXPECT_EQ(arm::recip_estimate(-0.0f), -INFINITY);
  EXPECT_EQ(arm::recip_estimate(INFINITY), 0.0f);
  EXPECT_TRUE(std::isnan(arm::recip_estimate(NAN)));
  // The estimate of W = 2 refined once is slightly low: 3 * r1 + 0.5 truncates to 1.
  const float r1 = arm::refined_reciprocal(2.0f);
  EXPECT_LT(r1, 0.5f);
  EXPECT_EQ(arm::to_s32(3.0f * r1 + 0.5f), 1);
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
    ASSERT_EQ(std::bit_cast<uint32_t>(arm::recip_step(a, b)), std::bit_cast<uint32_t>(std::fma(-a, b, 2.0f)))
        << a << " " << b;
  }
}

TEST(ArmFloat, Conversions) {
  EXPECT_EQ(arm::to_s32(1.0e10f), INT32_MAX);
  EXPECT_EQ(arm::to_s32(-1.0e10f), INT32_MIN);
  EXPECT_EQ(arm::to_s32(NAN), 0);
  EXPECT_EQ(arm::to_s32(-2.75f), -2);
  EXPECT_EQ(arm::to_u32(-0.75f), 0u);
  EXPECT_EQ(arm::to_u32(-5.0f), 0u);
  EXPECT_EQ(arm::to_u32(1.0e10f), UINT32_MAX);
  EXPECT_EQ(arm::to_u32(NAN), 0u);
  EXPECT_EQ(arm::to_u32(255.9f), 255u);
}

#if defined(__aarch64__)
float hw_estimate(float w) { return vgetq_lane_f32(vrecpeq_f32(vdupq_n_f32(w)), 0); }
float hw_refined(float w) {
  const float32x4_t v = vdupq_n_f32(w);
  const float32x4_t r0 = vrecpeq_f32(v);
  return vgetq_lane_f32(vmulq_f32(r0, vrecpsq_f32(v, r0)), 0);
}

// Every weight sum blending (1 ... 3*1024*255) and chroma fusion can form.
TEST(ArmFloatHardware, EstimateAndStepOfEveryWeightSum) {
  for (uint32_t w = 1; w <= 3u * 1024u * 255u; ++w) {
    const float f = static_cast<float>(w);
    ASSERT_EQ(std::bit_cast<uint32_t>(arm::recip_estimate(f)), std::bit_cast<uint32_t>(hw_estimate(f))) << w;
    ASSERT_EQ(std::bit_cast<uint32_t>(arm::refined_reciprocal(f)), std::bit_cast<uint32_t>(hw_refined(f))) << w;
  }
}

TEST(ArmFloatHardware, EstimateOfRandomBitPatterns) {
  std::mt19937 rng(7);
  for (int i = 0; i < 2000000; ++i) {
    const float f = std::bit_cast<float>(static_cast<uint32_t>(rng()));
    const uint32_t hw = std::bit_cast<uint32_t>(hw_estimate(f));
    const uint32_t em = std::bit_cast<uint32_t>(arm::recip_estimate(f));
    if (std::isnan(f)) {
      ASSERT_TRUE(std::isnan(std::bit_cast<float>(hw)));
      ASSERT_TRUE(std::isnan(std::bit_cast<float>(em)));
    } else {
      ASSERT_EQ(em, hw) << std::hex << std::bit_cast<uint32_t>(f);
    }
  }
}

TEST(ArmFloatHardware, ConversionsSaturateLikeTheInstructions) {
  std::mt19937 rng(11);
  for (int i = 0; i < 1000000; ++i) {
    const float f = std::bit_cast<float>(static_cast<uint32_t>(rng()));
    ASSERT_EQ(arm::to_s32(f), vgetq_lane_s32(vcvtq_s32_f32(vdupq_n_f32(f)), 0)) << f;
    ASSERT_EQ(arm::to_u32(f), vgetq_lane_u32(vcvtq_u32_f32(vdupq_n_f32(f)), 0)) << f;
  }
}
#endif

}  // namespace
}  // namespace tavo
