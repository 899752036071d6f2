#include "tools/photo_bracket.h"

#include <sys/stat.h>

#include "platform/yuv420_frame.h"
#include "tools/cli_args.h"
#include "tools/exif_tags.h"
#include "tools/exit_codes.h"
#include "tools/exposure_order.h"
#include "tools/raw_io.h"
#include "tools/yuv_convert.h"

namespace tavo::tool {

namespace {

PhotoResult failed(int code, const std::string& reason) {
  PhotoResult r;
  r.failure = code;
  r.reason = reason;
  return r;
}

std::string size_of(const RgbImage& image) {
  return std::to_string(image.width) + "x" + std::to_string(image.height);
}

}  // namespace

PhotoResult fuse_photographs(const PhotoJob& job, std::vector<FileId> inputs, const CaptureFunction& capture) {
  const size_t n = job.frames.size();
  std::vector<RgbImage> rgb(n);
  std::vector<ImageMetadata> metadata(n);
  std::vector<double> exposure(n), luma(n);
  std::vector<std::vector<uint8_t>> yuv(n);
  const ChromaLayout layout = parse_layout(job.layout.c_str());
  int first = 0;  // the first frame's EXIF orientation
  for (size_t k = 0; k < n; ++k) {
    const std::string& path = job.frames[k];
    std::string error;
    if (!read_image(path, &rgb[k], &error, frame_size_problem, &metadata[k])) return failed(kInputError, error);
    if (rgb[k].width != rgb[0].width || rgb[k].height != rgb[0].height) {
      return failed(kInputError, "images of different sizes: " + job.frames[0] + " is " + size_of(rgb[0]) + ", " +
                                     path + " is " + size_of(rgb[k]));
    }
    // Pixels stay as stored and the result keeps the reference's Orientation
    // tag, as a camera does; that holds for all frames only when they agree.
    const ExifFacts facts = read_exif(metadata[k].exif);
    if (k == 0) first = facts.orientation;
    if (facts.orientation != first) {
      return failed(kInputError, "images of different orientations: " + job.frames[0] + " has EXIF orientation " +
                                     std::to_string(first) + ", " + path + " " + std::to_string(facts.orientation));
    }
    exposure[k] = facts.exposure();
    yuv[k].resize(raw_frame_bytes(rgb[k].width, rgb[k].height));
    rgb_to_yuv420(rgb[k].pixels.data(), rgb[k].width, rgb[k].height, layout, yuv[k].data());
    luma[k] = mean_luma(yuv[k].data(), static_cast<size_t>(rgb[k].width) * rgb[k].height);
    add_file_id(path, &inputs);
  }
  BracketOrder order;
  order.frame[1] = static_cast<int>(n / 2);
  order.frame[2] = static_cast<int>(n - 1);
  std::string error;
  if (job.by_exposure && !order_bracket(job.frames, exposure, luma, &order, &error)) {
    return failed(kInputError, error);
  }
  PhotoResult r;
  r.order = order.line;
  r.width = rgb[0].width;
  r.height = rgb[0].height;
  const int reference = order.frame[1];
  r.output = job.output(job.frames[reference]);
  struct stat st;
  if (job.keep_existing && lstat(r.output.c_str(), &st) == 0) {
    r.kept = true;
    return r;
  }
  if (const std::string p = output_problem(r.output, inputs); !p.empty()) return failed(kInputError, p);

  Frames frames;
  frames.width = r.width;
  frames.height = r.height;
  frames.layout = job.layout;
  for (int k = 0; k < 3; ++k) frames.data[k] = std::move(yuv[order.frame[k]]);
  std::vector<uint8_t> out;
  r.fused = capture(frames, &out);
  r.captured = true;
  if (r.fused.interrupted || r.fused.result != 0) {
    r.failure = r.fused.interrupted ? 0 : r.fused.result == 1 ? kStopped : kLibraryFailed;
    r.reason = r.fused.interrupted ? "" : capture_failure(r.fused.result);
    return r;
  }
  RgbImage result{r.width, r.height, std::vector<uint8_t>(rgb[0].pixels.size())};
  yuv420_to_rgb(out.data(), r.width, r.height, layout, result.pixels.data());
  if (!write_image(r.output, result, &error, inputs, metadata[reference], job.quality)) {
    r.failure = kInputError;
    r.reason = error;
  }
  return r;
}

}  // namespace tavo::tool
