// The few EXIF tags the tool reads from a photograph (orientation, exposure,
// capture time) and the ones it rewrites when the EXIF block is carried into a
// fused result (pixel dimensions; the thumbnail, which would show the
// reference rather than the result, is dropped). `tiff` is an EXIF block from
// its TIFF header on, as PNG's eXIf chunk holds it and a JPEG's APP1 after
// "Exif\0\0". Damaged blocks give what could be read; nothing is read out of
// bounds.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace tavo::tool {

struct ExifFacts {
  int orientation = 1;  // 1 to 8, 1 (as stored) when absent
  // The exposure, each 0 when absent.
  double exposure_time = 0, f_number = 0, iso = 0;
  std::string taken;  // DateTimeOriginal, "YYYY:MM:DD HH:MM:SS", "" when absent

  // Exposure time x ISO / f-number squared, 0 unless all three are known.
  double exposure() const {
    return exposure_time > 0 && f_number > 0 && iso > 0 ? exposure_time * iso / (f_number * f_number) : 0;
  }
};

ExifFacts read_exif(const std::vector<uint8_t>& tiff);

// Sets the pixel dimensions the block states (IFD0's ImageWidth and
// ImageLength, the EXIF IFD's PixelXDimension and PixelYDimension, where
// present) and unlinks the thumbnail's IFD.
void set_exif_pixel_size(std::vector<uint8_t>* tiff, uint32_t width, uint32_t height);

}  // namespace tavo::tool
