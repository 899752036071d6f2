#include "tools/image_io.h"

#include <algorithm>
#include <cctype>
#include <climits>
#include <csetjmp>
#include <cstdio>
#include <cstdlib>

#include <jpeglib.h>
#include <png.h>

#include "tools/raw_io.h"

namespace tavo::tool {

namespace {

// libjpeg reports errors through a callback that must not return: jump back.
struct JpegError {
  jpeg_error_mgr mgr;
  jmp_buf jump;
  char message[JMSG_LENGTH_MAX];
};

void jpeg_error_exit(j_common_ptr info) {
  auto* err = reinterpret_cast<JpegError*>(info->err);
  (*info->err->format_message)(info, err->message);
  longjmp(err->jump, 1);
}

// A warning (level -1: premature end of data, corrupt data) fails the read
// like an error; trace messages (level 0 and up) are dropped. Nothing reaches
// stderr.
void jpeg_message(j_common_ptr info, int level) {
  if (level < 0) jpeg_error_exit(info);
}

void handle_jpeg_errors(jpeg_error_mgr* mgr) {
  jpeg_std_error(mgr);
  mgr->error_exit = jpeg_error_exit;
  mgr->emit_message = jpeg_message;
}

// Dimensions a decoder may allocate for: libjpeg's and libpng's are 32-bit.
std::string size_problem_of(uint32_t width, uint32_t height, SizeCheck check) {
  if (width > INT32_MAX || height > INT32_MAX) return "its size is out of range";
  return check == nullptr ? "" : check(static_cast<int32_t>(width), static_cast<int32_t>(height));
}

// The decoders: false with the reason, *refused when the size was refused.
bool decode_jpeg(const std::vector<uint8_t>& bytes, RgbImage* image, SizeCheck check, bool* refused,
                 std::string* error) {
  jpeg_decompress_struct info{};
  JpegError err{};
  info.err = &err.mgr;
  handle_jpeg_errors(&err.mgr);
  if (setjmp(err.jump) != 0) {
    jpeg_destroy_decompress(&info);
    *error = err.message;
    return false;
  }
  jpeg_create_decompress(&info);
  jpeg_mem_src(&info, bytes.data(), static_cast<unsigned long>(bytes.size()));
  jpeg_read_header(&info, TRUE);
  if (*error = size_problem_of(info.image_width, info.image_height, check); !error->empty()) {
    *refused = true;
    jpeg_destroy_decompress(&info);
    return false;
  }
  info.out_color_space = JCS_RGB;
  jpeg_start_decompress(&info);
  image->width = static_cast<int32_t>(info.output_width);
  image->height = static_cast<int32_t>(info.output_height);
  image->pixels.resize(static_cast<size_t>(image->width) * image->height * 3);
  while (info.output_scanline < info.output_height) {
    JSAMPROW row = &image->pixels[static_cast<size_t>(info.output_scanline) * image->width * 3];
    jpeg_read_scanlines(&info, &row, 1);
  }
  jpeg_finish_decompress(&info);
  jpeg_destroy_decompress(&info);
  return true;
}

bool encode_jpeg(const RgbImage& image, std::vector<uint8_t>* bytes, std::string* error) {
  jpeg_compress_struct info{};
  JpegError err{};
  info.err = &err.mgr;
  handle_jpeg_errors(&err.mgr);
  unsigned char* buffer = nullptr;
  unsigned long size = 0;
  if (setjmp(err.jump) != 0) {
    jpeg_destroy_compress(&info);
    free(buffer);
    *error = err.message;
    return false;
  }
  jpeg_create_compress(&info);
  jpeg_mem_dest(&info, &buffer, &size);
  info.image_width = static_cast<JDIMENSION>(image.width);
  info.image_height = static_cast<JDIMENSION>(image.height);
  info.input_components = 3;
  info.in_color_space = JCS_RGB;
  jpeg_set_defaults(&info);
  jpeg_set_quality(&info, 95, TRUE);
  jpeg_start_compress(&info, TRUE);
  while (info.next_scanline < info.image_height) {
    JSAMPROW row = const_cast<JSAMPROW>(&image.pixels[static_cast<size_t>(info.next_scanline) * image.width * 3]);
    jpeg_write_scanlines(&info, &row, 1);
  }
  jpeg_finish_compress(&info);
  bytes->assign(buffer, buffer + size);
  jpeg_destroy_compress(&info);
  free(buffer);
  return true;
}

// libpng's simplified reader keeps its warnings in png.message and prints
// nothing; a warning alone (an ancillary chunk's CRC) does not fail the read.
bool decode_png(const std::vector<uint8_t>& bytes, RgbImage* image, SizeCheck check, bool* refused,
                std::string* error) {
  png_image png{};
  png.version = PNG_IMAGE_VERSION;
  if (!png_image_begin_read_from_memory(&png, bytes.data(), bytes.size())) {
    *error = png.message;
    return false;
  }
  if (*error = size_problem_of(png.width, png.height, check); !error->empty()) {
    *refused = true;
    png_image_free(&png);
    return false;
  }
  png.format = PNG_FORMAT_RGB;
  image->width = static_cast<int32_t>(png.width);
  image->height = static_cast<int32_t>(png.height);
  image->pixels.resize(static_cast<size_t>(image->width) * image->height * 3);
  const png_color black{0, 0, 0};
  if (!png_image_finish_read(&png, &black, image->pixels.data(), 0, nullptr)) {
    *error = png.message;
    png_image_free(&png);
    return false;
  }
  return true;
}

bool encode_png(const RgbImage& image, std::vector<uint8_t>* bytes, std::string* error) {
  png_image png{};
  png.version = PNG_IMAGE_VERSION;
  png.width = static_cast<png_uint_32>(image.width);
  png.height = static_cast<png_uint_32>(image.height);
  png.format = PNG_FORMAT_RGB;
  png.flags = PNG_IMAGE_FLAG_FAST;  // a little larger, several times faster to write
  png_alloc_size_t size = 0;
  if (!png_image_write_get_memory_size(png, size, 0, image.pixels.data(), 0, nullptr)) {
    *error = png.message;
    return false;
  }
  bytes->resize(size);
  if (!png_image_write_to_memory(&png, bytes->data(), &size, 0, image.pixels.data(), 0, nullptr)) {
    *error = png.message;
    return false;
  }
  bytes->resize(size);
  return true;
}

}  // namespace

ImageFormat image_format_of(const std::string& path) {
  const size_t dot = path.find_last_of('.');
  if (dot == std::string::npos || path.find('/', dot) != std::string::npos) return ImageFormat::kNone;
  std::string ext = path.substr(dot + 1);
  std::transform(ext.begin(), ext.end(), ext.begin(), [](unsigned char c) { return std::tolower(c); });
  if (ext == "jpg" || ext == "jpeg") return ImageFormat::kJpeg;
  if (ext == "png") return ImageFormat::kPng;
  return ImageFormat::kNone;
}

bool read_image(const std::string& path, RgbImage* image, std::string* error, SizeCheck size_problem) {
  std::vector<uint8_t> bytes;
  if (!read_file(path, &bytes, error)) return false;
  std::string why;
  bool refused = false;
  const bool ok = image_format_of(path) == ImageFormat::kJpeg
                      ? decode_jpeg(bytes, image, size_problem, &refused, &why)
                      : decode_png(bytes, image, size_problem, &refused, &why);
  if (!ok) {
    while (!why.empty() && (why.back() == '\n' || why.back() == '.')) why.pop_back();
    *error = (refused ? path : "cannot decode " + path) + ": " + why;
  }
  return ok;
}

bool write_image(const std::string& path, const RgbImage& image, std::string* error,
                 const std::vector<FileId>& inputs) {
  std::vector<uint8_t> bytes;
  std::string why;
  const bool ok = image_format_of(path) == ImageFormat::kJpeg ? encode_jpeg(image, &bytes, &why)
                                                               : encode_png(image, &bytes, &why);
  if (!ok) {
    *error = "cannot encode " + path + ": " + why;
    return false;
  }
  return write_output(path, bytes.data(), bytes.size(), inputs, error);
}

}  // namespace tavo::tool
