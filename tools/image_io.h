// JPEG and PNG files to and from 8-bit RGB, through libjpeg-turbo and libpng.
// Only the tool uses them; the library stays free of image formats.
#pragma once

#include <string>
#include <vector>

#include "tools/contact_sheet.h"

namespace tavo::tool {

enum class ImageFormat { kNone, kJpeg, kPng };

// The format a file name's extension names (.jpg, .jpeg, .png, any case).
ImageFormat image_format_of(const std::string& path);

// Reads a JPEG or PNG file (chosen by its extension) as RGB; grey and
// palette images are expanded, alpha is dropped. False with a one-line reason.
bool read_image(const std::string& path, RgbImage* image, std::string* error);

// Encodes by the extension of `path` (JPEG at quality 95) and writes the file
// all at once (temporary name, then rename).
bool write_image(const std::string& path, const RgbImage& image, std::string* error);

}  // namespace tavo::tool
