// A synthetic high-dynamic-range scene and a camera that photographs it: the
// test frames of the library, its benchmark and its demo.
//
// The scene is a room lit by a window: a bright sky with clouds, a sun and a
// skyline behind the window bars, a brick wall and plaster beside it, a tiled
// floor with a sun patch, a table with coloured fruit. It is defined as linear
// RGB radiance at every integer point of the plane (also outside the frame), so
// that a translated frame shows exactly the same scene points.
//
// The camera scales the radiance by an exposure gain, adds sensor-like noise
// (shot noise growing with the signal, plus read noise), clips at the sensor's
// full level, applies a square-root tone curve and writes 8-bit full-range
// BT.601 YUV 4:2:0. Everything is integer arithmetic with its own random
// generator, so a frame has the same bytes on every architecture and library.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "platform/yuv420_frame.h"

namespace tavo::scene {

// Linear radiance per channel, 4096 being the level that just clips at the
// normal exposure.
struct Radiance {
  int32_t r, g, b;
};

// The scene is framed for a reference frame of width x height pixels: its
// objects scale with the frame, its fine grain stays at pixel scale.
struct Scene {
  int32_t width = 0;
  int32_t height = 0;
  uint32_t seed = 1;  // bricks, clouds, skyline and grain differ with it
};

// Radiance of the scene point at column x, row y of the reference frame.
Radiance radiance(const Scene& scene, int32_t x, int32_t y);

// Exposure gains in 1/256: two stops under, normal, two stops over.
inline constexpr int32_t kDarkGain = 64;
inline constexpr int32_t kNormalGain = 256;
inline constexpr int32_t kBrightGain = 1024;

struct Shot {
  int32_t gain_q8 = kNormalGain;
  // The frame's pixel (row r, column j) shows the scene point (row r + dy,
  // column j + dx) of the reference frame.
  int32_t dx = 0;
  int32_t dy = 0;
  uint32_t noise_seed = 0;
  int32_t noise_q8 = 256;  // noise amount in 1/256 of the default; 0 = none
  ChromaLayout layout = ChromaLayout::kPlanar;
};

// One frame of scene.width x scene.height (both even), width*height*3/2 bytes.
std::vector<uint8_t> render(const Scene& scene, const Shot& shot);
void render_into(const Scene& scene, const Shot& shot, uint8_t* frame);

// The usual three frames: 0 dark, 1 normal (the reference, unshifted), 2
// bright; frames 0 and 2 translated by (dx0, dy0) and (dx2, dy2), every frame
// with its own noise.
struct BracketSetup {
  ChromaLayout layout = ChromaLayout::kPlanar;
  int32_t dx0 = 0, dy0 = 0;
  int32_t dx2 = 0, dy2 = 0;
  std::array<int32_t, 3> gains_q8 = {kDarkGain, kNormalGain, kBrightGain};
  uint32_t noise_seed = 1;
  int32_t noise_q8 = 256;
};
std::array<std::vector<uint8_t>, 3> render_bracket(const Scene& scene, const BracketSetup& setup);

// 64-bit FNV-1a, to fingerprint frames.
uint64_t fnv1a64(const uint8_t* data, size_t size, uint64_t hash = 14695981039346656037ull);

}  // namespace tavo::scene
