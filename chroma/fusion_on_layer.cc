// Blend of one level of 8-bit Gaussian and 16-bit Laplacian pyramids, on the
// calling thread, with an exposure table built from the level's value range.
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>

#include "include/tavo_lumo_hdr.h"
#include "platform/arm_float.h"
#include "platform/fixed_point_mean.h"
#include "platform/log.h"

namespace tavo {
namespace {

// Lifts small Laplacian values towards the middle of their range; entries 64
// and up are the identity.
constexpr std::array<uint8_t, 256> kRemap = [] {
  constexpr uint8_t kLow[64] = {0,  4,  6,  8,  10, 12, 13, 15, 16, 17, 19, 20, 21, 22, 23, 24,
                                25, 26, 27, 28, 29, 30, 31, 32, 33, 34, 35, 36, 37, 38, 39, 39,
                                40, 41, 42, 43, 44, 44, 45, 46, 47, 48, 48, 49, 50, 51, 51, 52,
                                53, 54, 54, 55, 56, 56, 57, 58, 59, 59, 60, 61, 61, 62, 63, 63};
  std::array<uint8_t, 256> t{};
  for (int i = 0; i < 256; ++i) t[i] = i < 64 ? kLow[i] : static_cast<uint8_t>(i);
  return t;
}();

}  // namespace
}  // namespace tavo

// Blends level `level` of `frames` pyramids into out (width x height samples).
// The exposure table is rebuilt over the level's value range m ... M as a
// Gaussian of (i - (M-m)/2) / (M-m) with spread sigma; each frame's Laplacian
// samples (0 ... 255) are remapped in place, then averaged with weights
// exposure x contrast (|discrete Laplacian| >> 2) inside the level, exposure
// alone on its border; the mean rounds half away from zero, clamped to 255.
extern "C" TAVO_HDR_EXPORT uint32_t FusionOnLayer(int16_t*** lap_pyramids, uint8_t*** gauss_pyramids,
                                                  int16_t* out, uint16_t* table, int32_t width,
                                                  int32_t height, int32_t level, int32_t frames,
                                                  float sigma) {
  if (frames < 1) {
    HDR_LOG("no frames to fuse (%d)\n", frames);
    return 0;
  }
  if (lap_pyramids == nullptr || gauss_pyramids == nullptr || out == nullptr || table == nullptr) {
    HDR_LOG("in_buffer is NULL,0x%x,0x%x,0x%x,0x%x\n", tavo::platform::log_hex(lap_pyramids),
            tavo::platform::log_hex(gauss_pyramids), tavo::platform::log_hex(out),
            tavo::platform::log_hex(table));
    return 0;
  }
  if (width < 1 || height < 1) return 0;
  const ptrdiff_t samples = static_cast<ptrdiff_t>(width) * height;

  // The remap reads a table of 256: refuse the level before writing anything.
  for (int32_t f = 0; f < frames; ++f) {
    const int16_t* lap = lap_pyramids[f][level];
    for (ptrdiff_t p = 0; p < samples; ++p) {
      if (lap[p] < 0 || lap[p] > 255) {
        HDR_LOG("Laplacian sample %d of frame %d outside 0..255, level not fused\n", lap[p], f);
        return 0;
      }
    }
  }

  int32_t lo = 255, hi = 0;
  for (int32_t f = 0; f < frames; ++f) {
    const uint8_t* g = gauss_pyramids[f][level];
    for (ptrdiff_t p = 0; p < samples; ++p) {
      lo = g[p] < lo ? g[p] : lo;
      hi = g[p] > hi ? g[p] : hi;
    }
  }
  if (hi >= lo) {
    const int32_t range = hi - lo;
    const int32_t centre = (range / 2) % 256;
    for (int32_t i = lo; i <= hi; ++i) {
      const float t = static_cast<float>(i - centre) / static_cast<float>(range);
      const float q = -(t * t) / sigma;
      table[i] = static_cast<uint16_t>(tavo::arm::to_s32(std::exp(static_cast<double>(q)) * 1024.0));
    }
  }

  for (int32_t y = 0; y < height; ++y) {
    for (int32_t x = 0; x < width; ++x) {
      const ptrdiff_t p = static_cast<ptrdiff_t>(y) * width + x;
      const bool interior = y > 0 && y < height - 1 && x > 0 && x < width - 1;
      uint32_t w_sum = 0, s_sum = 0;
      for (int32_t f = 0; f < frames; ++f) {
        const uint8_t* g = gauss_pyramids[f][level];
        int16_t* lap = lap_pyramids[f][level];
        const uint8_t remapped = tavo::kRemap[static_cast<uint8_t>(lap[p])];
        lap[p] = remapped;
        int32_t w = static_cast<int16_t>(table[g[p]]);
        if (w == 0) w = 1;
        if (interior) {
          const int32_t d = g[p - width] + g[p + width] + g[p - 1] + g[p + 1] - 4 * g[p];
          const int32_t c = (d < 0 ? -d : d) >> 2;
          w *= c == 0 ? 1 : c;
        }
        w_sum += static_cast<uint32_t>(w);
        s_sum += static_cast<uint32_t>(w) * remapped;
      }
      out[p] = tavo::signed_mean_exact(w_sum, s_sum, 255);
    }
  }
  return 0;
}
