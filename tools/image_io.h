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

// Reads a JPEG or PNG file (chosen by its extension) as RGB; grey, palette and
// 16-bit images are converted, alpha is composited over black. The size from
// the header goes through `size_problem` before any pixel memory is taken. A
// truncated or corrupt file is refused, libjpeg's warnings included; the
// libraries print nothing. False with a one-line reason naming the file.
bool read_image(const std::string& path, RgbImage* image, std::string* error, SizeCheck size_problem = nullptr);

// Encodes by the extension of `path` (JPEG at quality 95) in memory and writes
// the file with write_output, which protects `inputs`.
bool write_image(const std::string& path, const RgbImage& image, std::string* error,
                 const std::vector<FileId>& inputs = {});

}  // namespace tavo::tool
