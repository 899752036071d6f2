// A bracket of photographs (JPEG or PNG) fused into one image: read, checked
// for one size and one orientation, ordered by exposure or taken as given,
// fused by the caller's capture function, and written with the reference
// frame's metadata. `fuse` and `batch` share it.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "tools/image_io.h"
#include "tools/replay.h"

namespace tavo::tool {

struct PhotoJob {
  // Three frames or more: of more, the darkest, the middle and the brightest
  // are fused (taken as given: the first, the middle and the last).
  std::vector<std::string> frames;
  bool by_exposure = true;
  std::string layout = "YUV420_PLANAR";  // of the frames the library fuses
  int quality = kDefaultJpegQuality;
  // The result's path, from the reference frame's.
  std::function<std::string(const std::string& reference)> output;
  bool keep_existing = false;  // an existing result is left as it is
};

struct PhotoResult {
  // A failure's exit code (kInputError, kLibraryFailed, kStopped; 0 when the
  // result was written or kept) and one-line reason.
  int failure = 0;
  std::string reason;
  bool kept = false;  // the result existed (keep_existing)
  std::string order;  // "dark A, normal B, bright C (by ...)", "" when taken as given
  std::string output;
  int32_t width = 0, height = 0;
  bool captured = false;  // the capture ran: `fused` tells how (fused.interrupted: a signal stopped it)
  Fused fused;
};

// `inputs`: files no result may replace (the frames are added to them).
PhotoResult fuse_photographs(const PhotoJob& job, std::vector<FileId> inputs, const CaptureFunction& capture);

}  // namespace tavo::tool
