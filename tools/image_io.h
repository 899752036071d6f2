// JPEG and PNG files to and from 8-bit RGB, through libjpeg-turbo and libpng.
// Only the tool uses them; the library stays free of image formats.
#pragma once

#include <string>
#include <vector>

#include "tools/contact_sheet.h"
#include "tools/output_file.h"

namespace tavo::tool {

enum class ImageFormat { kNone, kJpeg, kPng };

// The format a file name's extension names (.jpg, .jpeg, .png, any case).
ImageFormat image_format_of(const std::string& path);

// Why an image of this size is refused ("" when it is not).
using SizeCheck = std::string (*)(int32_t width, int32_t height);

// What a photograph says about itself besides its pixels, carried from the
// reference frame into a fused result. The pixels stay in the colour space
// the profile names: the fusion mixes the frames' values as stored.
struct ImageMetadata {
  std::vector<uint8_t> exif;               // from the TIFF header on (JPEG APP1 "Exif", PNG eXIf)
  std::vector<std::vector<uint8_t>> xmp;   // JPEG APP1 payloads besides EXIF: XMP and its extensions
  std::vector<uint8_t> icc;                // the ICC profile (JPEG APP2 chunks joined, PNG iCCP)
};

inline constexpr int kDefaultJpegQuality = 95;

// Reads a JPEG or PNG file (chosen by its extension) as RGB; grey, palette and
// 16-bit images are converted, alpha is composited over black. The size from
// the header goes through `size_problem` before any pixel memory is taken. A
// truncated or corrupt file is refused, libjpeg's warnings included; the
// libraries print nothing. False with a one-line reason naming the file.
// With `metadata`, its EXIF, XMP and ICC profile are kept there.
bool read_image(const std::string& path, RgbImage* image, std::string* error, SizeCheck size_problem = nullptr,
                ImageMetadata* metadata = nullptr);

// The size (in `image`, without pixels) and metadata of an image, read from
// its header; false with a one-line reason naming the file.
bool read_image_header(const std::string& path, RgbImage* image, ImageMetadata* metadata, std::string* error);

// Encodes by the extension of `path` in memory and writes the file with
// write_output, which protects `inputs`. A JPEG (at `quality`) carries the
// metadata's EXIF (its pixel size set to the image's, no thumbnail), XMP and
// profile; a PNG its profile (else the sRGB chunk) and EXIF.
bool write_image(const std::string& path, const RgbImage& image, std::string* error,
                 const std::vector<FileId>& inputs = {}, const ImageMetadata& metadata = {},
                 int quality = kDefaultJpegQuality);

}  // namespace tavo::tool
