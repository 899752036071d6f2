#include "tools/image_io.h"

#include <algorithm>
#include <cctype>
#include <climits>
#include <csetjmp>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <jpeglib.h>
#include <png.h>

#include "tools/exif_tags.h"
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

// Out of line, so that no string code is inlined into a function that calls
// setjmp (its locals could be clobbered by the longjmp back).
[[gnu::noinline]] void set_error(std::string* error, const char* message) { *error = message; }

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
// True, with the reason in *error, when the size is refused. Out of line, as
// set_error is.
[[gnu::noinline]] bool size_refused(uint32_t width, uint32_t height, SizeCheck check, std::string* error) {
  if (width > INT32_MAX || height > INT32_MAX) {
    *error = "its size is out of range";
  } else {
    *error = check == nullptr ? "" : check(static_cast<int32_t>(width), static_cast<int32_t>(height));
  }
  return !error->empty();
}

// A JPEG's APP1 payload that holds EXIF starts with this (six bytes).
constexpr char kExifHeader[] = "Exif\0";
constexpr size_t kMaxMarkerData = 65533;

// The APP1 markers (EXIF, XMP) and the ICC profile libjpeg kept.
void take_jpeg_metadata(jpeg_decompress_struct* info, ImageMetadata* metadata) {
  for (jpeg_saved_marker_ptr m = info->marker_list; m != nullptr; m = m->next) {
    if (m->marker != JPEG_APP0 + 1) continue;
    if (m->data_length >= 6 && memcmp(m->data, kExifHeader, 6) == 0) {
      if (metadata->exif.empty()) metadata->exif.assign(m->data + 6, m->data + m->data_length);
    } else {
      metadata->xmp.emplace_back(m->data, m->data + m->data_length);
    }
  }
  JOCTET* icc = nullptr;
  unsigned int size = 0;
  if (jpeg_read_icc_profile(info, &icc, &size)) metadata->icc.assign(icc, icc + size);
  free(icc);
}

// The decoders: false with the reason, *refused when the size was refused.
// With `header_only`, the image's size is set and no pixel is decoded.
bool decode_jpeg(const std::vector<uint8_t>& bytes, RgbImage* image, SizeCheck check, bool* refused,
                 std::string* error, ImageMetadata* metadata, bool header_only) {
  jpeg_decompress_struct info{};
  JpegError err{};
  info.err = &err.mgr;
  handle_jpeg_errors(&err.mgr);
  if (setjmp(err.jump) != 0) {
    jpeg_destroy_decompress(&info);
    set_error(error, err.message);
    return false;
  }
  jpeg_create_decompress(&info);
  jpeg_mem_src(&info, bytes.data(), static_cast<unsigned long>(bytes.size()));
  if (metadata != nullptr) {
    jpeg_save_markers(&info, JPEG_APP0 + 1, 0xffff);
    jpeg_save_markers(&info, JPEG_APP0 + 2, 0xffff);
  }
  jpeg_read_header(&info, TRUE);
  if (metadata != nullptr) take_jpeg_metadata(&info, metadata);
  if (size_refused(info.image_width, info.image_height, check, error)) {
    *refused = true;
    jpeg_destroy_decompress(&info);
    return false;
  }
  if (header_only) {
    image->width = static_cast<int32_t>(info.image_width);
    image->height = static_cast<int32_t>(info.image_height);
    jpeg_destroy_decompress(&info);
    return true;
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

bool encode_jpeg(const RgbImage& image, const ImageMetadata& metadata, int quality, std::vector<uint8_t>* bytes,
                 std::string* error) {
  jpeg_compress_struct info{};
  JpegError err{};
  info.err = &err.mgr;
  handle_jpeg_errors(&err.mgr);
  unsigned char* buffer = nullptr;
  unsigned long size = 0;
  if (setjmp(err.jump) != 0) {
    jpeg_destroy_compress(&info);
    free(buffer);
    set_error(error, err.message);
    return false;
  }
  jpeg_create_compress(&info);
  jpeg_mem_dest(&info, &buffer, &size);
  info.image_width = static_cast<JDIMENSION>(image.width);
  info.image_height = static_cast<JDIMENSION>(image.height);
  info.input_components = 3;
  info.in_color_space = JCS_RGB;
  jpeg_set_defaults(&info);
  jpeg_set_quality(&info, quality, TRUE);
  // EXIF comes first after the start of the image, in place of JFIF's marker.
  info.write_JFIF_header = metadata.exif.empty();
  jpeg_start_compress(&info, TRUE);
  if (!metadata.exif.empty() && metadata.exif.size() <= kMaxMarkerData - 6) {
    std::vector<uint8_t> exif(kExifHeader, kExifHeader + 6);
    exif.insert(exif.end(), metadata.exif.begin(), metadata.exif.end());
    jpeg_write_marker(&info, JPEG_APP0 + 1, exif.data(), static_cast<unsigned int>(exif.size()));
  }
  for (const std::vector<uint8_t>& xmp : metadata.xmp) {
    jpeg_write_marker(&info, JPEG_APP0 + 1, xmp.data(), static_cast<unsigned int>(xmp.size()));
  }
  if (!metadata.icc.empty()) {
    jpeg_write_icc_profile(&info, metadata.icc.data(), static_cast<unsigned int>(metadata.icc.size()));
  }
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

// libpng's full interface, for the chunks its simplified one does not reach:
// errors jump back, warnings are dropped, data comes from and goes to memory.
struct PngStream {
  const std::vector<uint8_t>* in = nullptr;
  size_t at = 0;
  std::vector<uint8_t>* out = nullptr;
  jmp_buf jump;
  std::string message;
};

void png_error_exit(png_structp png, png_const_charp message) {
  auto* s = static_cast<PngStream*>(png_get_error_ptr(png));
  s->message = message;
  longjmp(s->jump, 1);
}
void png_warning_dropped(png_structp, png_const_charp) {}
void png_read_memory(png_structp png, png_bytep data, size_t n) {
  auto* s = static_cast<PngStream*>(png_get_io_ptr(png));
  if (n > s->in->size() - s->at) png_error(png, "premature end of data");
  memcpy(data, s->in->data() + s->at, n);
  s->at += n;
}
void png_write_memory(png_structp png, png_bytep data, size_t n) {
  auto* s = static_cast<PngStream*>(png_get_io_ptr(png));
  s->out->insert(s->out->end(), data, data + n);
}
void png_flush_nothing(png_structp) {}

// The size, and the profile and EXIF of the chunks before the image data.
bool read_png_header(const std::vector<uint8_t>& bytes, RgbImage* image, ImageMetadata* metadata,
                     std::string* error) {
  PngStream stream;
  stream.in = &bytes;
  png_structp png = png_create_read_struct(PNG_LIBPNG_VER_STRING, &stream, png_error_exit, png_warning_dropped);
  png_infop info = png != nullptr ? png_create_info_struct(png) : nullptr;
  volatile bool ok = false;  // set after setjmp, read after a possible longjmp
  if (info == nullptr) {
    stream.message = "out of memory";
  } else if (setjmp(stream.jump) == 0) {
    png_set_benign_errors(png, 1);
    png_set_read_fn(png, &stream, png_read_memory);
    png_read_info(png, info);
    png_charp name = nullptr;
    int compression = 0;
    png_bytep data = nullptr;
    png_uint_32 size = 0;
    if (png_get_iCCP(png, info, &name, &compression, &data, &size) != 0) metadata->icc.assign(data, data + size);
    if (png_get_eXIf_1(png, info, &size, &data) != 0) metadata->exif.assign(data, data + size);
    image->width = static_cast<int32_t>(std::min<png_uint_32>(png_get_image_width(png, info), INT32_MAX));
    image->height = static_cast<int32_t>(std::min<png_uint_32>(png_get_image_height(png, info), INT32_MAX));
    ok = true;
  }
  png_destroy_read_struct(&png, &info, nullptr);
  set_error(error, stream.message.c_str());
  return ok;
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
  if (size_refused(png.width, png.height, check, error)) {
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

// Fast to write (no filter, light compression: a little larger); the profile
// in iCCP, else sRGB; EXIF in eXIf.
bool encode_png(const RgbImage& image, const ImageMetadata& metadata, std::vector<uint8_t>* bytes,
                std::string* error) {
  PngStream stream;
  stream.out = bytes;
  png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, &stream, png_error_exit, png_warning_dropped);
  png_infop info = png != nullptr ? png_create_info_struct(png) : nullptr;
  if (info == nullptr || setjmp(stream.jump) != 0) {
    png_destroy_write_struct(&png, &info);
    set_error(error, info == nullptr ? "out of memory" : stream.message.c_str());
    return false;
  }
  png_set_benign_errors(png, 1);  // a profile libpng finds wrong is left out, not an error
  png_set_write_fn(png, &stream, png_write_memory, png_flush_nothing);
  png_set_filter(png, PNG_FILTER_TYPE_BASE, PNG_FILTER_NONE);
  png_set_compression_level(png, 3);
  png_set_IHDR(png, info, static_cast<png_uint_32>(image.width), static_cast<png_uint_32>(image.height), 8,
               PNG_COLOR_TYPE_RGB, PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_BASE, PNG_FILTER_TYPE_BASE);
  if (!metadata.icc.empty()) {
    png_set_iCCP(png, info, "ICC profile", PNG_COMPRESSION_TYPE_BASE, metadata.icc.data(),
                 static_cast<png_uint_32>(metadata.icc.size()));
  }
  if (png_get_valid(png, info, PNG_INFO_iCCP) == 0) png_set_sRGB(png, info, PNG_sRGB_INTENT_PERCEPTUAL);
  if (!metadata.exif.empty()) {
    png_set_eXIf_1(png, info, static_cast<png_uint_32>(metadata.exif.size()),
                   const_cast<png_bytep>(metadata.exif.data()));
  }
  png_write_info(png, info);
  for (int32_t y = 0; y < image.height; ++y) {
    png_write_row(png, &image.pixels[static_cast<size_t>(y) * image.width * 3]);
  }
  png_write_end(png, nullptr);
  png_destroy_write_struct(&png, &info);
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

namespace {

// A JPEG or PNG file decoded, or with `header_only` its size and metadata only.
bool load_image(const std::string& path, RgbImage* image, std::string* error, SizeCheck size_problem,
                ImageMetadata* metadata, bool header_only) {
  std::vector<uint8_t> bytes;
  if (!read_file(path, &bytes, error)) return false;
  std::string why;
  bool refused = false;
  ImageMetadata ignored;
  const bool jpeg = image_format_of(path) == ImageFormat::kJpeg;
  bool ok = jpeg ? decode_jpeg(bytes, image, size_problem, &refused, &why, metadata, header_only)
                 : (header_only || decode_png(bytes, image, size_problem, &refused, &why));
  if (ok && !jpeg && (metadata != nullptr || header_only)) {
    RgbImage header;
    ok = read_png_header(bytes, &header, metadata != nullptr ? metadata : &ignored, &why);
    if (header_only) *image = std::move(header);
  }
  if (!ok) {
    while (!why.empty() && (why.back() == '\n' || why.back() == '.')) why.pop_back();
    *error = (refused ? path : "cannot decode " + path) + ": " + why;
  }
  return ok;
}

}  // namespace

bool read_image(const std::string& path, RgbImage* image, std::string* error, SizeCheck size_problem,
                ImageMetadata* metadata) {
  return load_image(path, image, error, size_problem, metadata, false);
}

bool read_image_header(const std::string& path, RgbImage* image, ImageMetadata* metadata, std::string* error) {
  return load_image(path, image, error, nullptr, metadata, true);
}

bool write_image(const std::string& path, const RgbImage& image, std::string* error,
                 const std::vector<FileId>& inputs, const ImageMetadata& metadata, int quality) {
  ImageMetadata carried = metadata;
  set_exif_pixel_size(&carried.exif, static_cast<uint32_t>(image.width), static_cast<uint32_t>(image.height));
  std::vector<uint8_t> bytes;
  std::string why;
  const bool ok = image_format_of(path) == ImageFormat::kJpeg ? encode_jpeg(image, carried, quality, &bytes, &why)
                                                               : encode_png(image, carried, &bytes, &why);
  if (!ok) {
    *error = "cannot encode " + path + ": " + why;
    return false;
  }
  return write_output(path, bytes.data(), bytes.size(), inputs, error);
}

}  // namespace tavo::tool
