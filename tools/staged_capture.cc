// The library's pipeline composed of its exported operations, in the order the
// pipeline runs them: the registration thresholds (loadImg_process), the
// reference frame's wavelet levels (wltDecompose_process per level), the
// shift of frame 0 and then of frame 2 against them (GetExpShift, which
// decomposes the moving frame itself), the common window (imageCrop), the
// fusion inside it (pyrFuse) and the resize back to full size (image_resize).
// HDR_Function runs the same stages but returns only the fused frame; this
// composition lets the demo see the shifts and time each stage. It takes no
// time limit and no stop flag, and dumps nothing.
#include "tools/staged_capture.h"

#include <vector>

#include "align/registration_levels.h"
#include "platform/yuv420_frame.h"
#include "tavo_lumo_hdr.h"
#include "tools/stopwatch.h"

namespace tavo::tool {
namespace {

// One plane per level, level 0 left empty: the frame itself stands there.
struct LevelPlanes {
  std::vector<std::vector<uint8_t>> storage;
  std::vector<uint8_t*> at;
  LevelPlanes(const std::vector<int32_t>& widths, const std::vector<int32_t>& heights)
      : storage(widths.size()), at(widths.size(), nullptr) {
    for (size_t k = 1; k < widths.size(); ++k) {
      storage[k].resize(static_cast<size_t>(widths[k]) * static_cast<size_t>(heights[k]));
      at[k] = storage[k].data();
    }
  }
};

}  // namespace

bool run_staged_capture(const uint8_t* const* frames, int32_t width, int32_t height, const char* layout,
                        uint8_t* out, StagedCapture* result) {
  Stopwatch watch;
  const int32_t levels = registration_level_count(width, height);
  std::vector<int32_t> widths{width}, heights{height};
  for (int32_t k = 1; k < levels; ++k) {
    widths.push_back(half_up(widths.back()));
    heights.push_back(half_up(heights.back()));
  }
  LevelPlanes ref_approx(widths, heights), ref_bitmap(widths, heights), ref_mask(widths, heights);
  LevelPlanes moving_approx(widths, heights), moving_bitmap(widths, heights), moving_mask(widths, heights);

  uint8_t thresholds[3] = {};
  loadImg_process(frames, width, height, thresholds);
  for (int32_t k = 0; k + 1 < levels; ++k) {
    wltDecompose_process(k == 0 ? frames[1] : ref_approx.at[k], widths[k], heights[k], ref_approx.at[k + 1],
                         thresholds[1], ref_bitmap.at[k + 1], ref_mask.at[k + 1]);
  }
  int16_t* const shifts[2] = {result->shift0, result->shift2};
  for (int i = 0; i < 2; ++i) {
    const int f = 2 * i;  // frames 0 and 2
    GetExpShift(frames[f], static_cast<uint32_t>(levels), thresholds[f], moving_approx.at.data(),
                ref_bitmap.at.data(), ref_mask.at.data(), moving_bitmap.at.data(), moving_mask.at.data(),
                widths.data(), heights.data(), shifts[i]);
    // Level-1 pixels to full resolution, kept in 16 bits.
    shifts[i][0] = static_cast<int16_t>(2 * shifts[i][0]);
    shifts[i][1] = static_cast<int16_t>(2 * shifts[i][1]);
  }
  imageCrop(width, height, &result->crop_width, &result->crop_height, result->shift0[0], result->shift0[1],
            result->shift2[0], result->shift2[1], result->origins);
  result->registration_ms = watch.lap_ms();

  // Zeroed, as the pipeline's buffer is wherever the fusion leaves it alone.
  std::vector<uint8_t> fused(static_cast<size_t>(yuv420_planes(width, height).frame_bytes));
  if (pyrFuse(frames, 3, static_cast<uint32_t>(width), static_cast<uint32_t>(height), result->crop_width,
              result->crop_height, result->origins, fused.data(), layout) == -1) {
    return false;
  }
  result->fusion_ms = watch.lap_ms();

  image_resize(fused.data(), out, result->crop_width, result->crop_height, width, height, layout);
  result->resize_ms = watch.lap_ms();
  return true;
}

}  // namespace tavo::tool
