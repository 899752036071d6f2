// How a replayed frame differs from the one the phone wrote: per plane the
// number of differing samples, the largest absolute difference and the PSNR,
// and a picture that shows where. Both frames are YUV 4:2:0 of one size and
// layout; in the semi-planar layout U and V are taken out of the V,U pairs.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "tools/contact_sheet.h"
#include "tools/yuv_convert.h"

namespace tavo::tool {

struct PlaneDiff {
  size_t samples = 0;    // in the plane
  size_t differing = 0;  // samples that are not equal
  int largest = 0;       // largest absolute difference, 0..255
  uint64_t squared = 0;  // sum of the squared differences

  // 10*log10(255^2 / MSE); infinity when the planes are equal.
  double psnr() const;
};

struct FrameDiff {
  PlaneDiff plane[3];  // Y, U, V
  size_t differing() const { return plane[0].differing + plane[1].differing + plane[2].differing; }
};

// `ours` and `theirs`: width*height*3/2 bytes each; width and height even.
FrameDiff diff_frames(const uint8_t* ours, const uint8_t* theirs, int32_t width, int32_t height,
                      ChromaLayout layout);

// "48.13 dB", or "inf" for equal planes.
std::string psnr_text(double psnr);

// One line a plane, each starting with `indent`, e.g.
// "  Y  3 of 3072 samples differ, largest 7, PSNR 50.33 dB".
std::string diff_report(const FrameDiff& diff, const std::string& indent);

// Colours of the difference picture: the phone's luma at half brightness,
// kLumaDiffers on pixels whose luma differs, kChromaDiffers on the others of a
// 2x2 block whose U or V differs.
inline constexpr uint8_t kLumaDiffers[3] = {255, 0, 0};
inline constexpr uint8_t kChromaDiffers[3] = {0, 255, 255};
RgbImage diff_picture(const uint8_t* ours, const uint8_t* theirs, int32_t width, int32_t height,
                      ChromaLayout layout);

}  // namespace tavo::tool
