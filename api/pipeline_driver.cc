// The pipeline of one capture: registration, fusion inside the common crop
// window, resize back to full size. The preset time limit and the camera's
// stop request are checked at the end of every stage, never inside one.
#include <optional>

#include "align/crop_to_frame.h"
#include "align/registration.h"
#include "api/capture_limits.h"
#include "api/lifecycle.h"
#include "fusion/pyramid_geometry.h"
#include "fusion/pyramid_stages.h"
#include "include/tavo_lumo_hdr.h"
#include "platform/clock.h"
#include "platform/log.h"
#include "platform/memory.h"
#include "platform/yuv420_frame.h"
#include "pool/library_lock.h"

namespace {

constexpr double kPresetSeconds = 3.3;
int64_t align_start_ns = 0;

bool stop_requested() {
  if (tavo::stop_flag_value() != 1) return false;
  HDR_LOG_AS(__LINE__, "GetAlignImg", "The camera set stop flag,please stop hdr processing\n");
  return true;
}

bool over_time(const char* stage) {
  if (tavo::endTime(stage, align_start_ns) <= kPresetSeconds) return false;
  HDR_LOG_AS(__LINE__, "GetAlignImg", "hdr exceed the preset time.\n");
  return true;
}

}  // namespace

extern "C" TAVO_HDR_EXPORT int32_t GetAlignImg(const uint8_t* const* frames, int32_t width,
                                               int32_t height, int32_t nframes, uint8_t* out,
                                               const char* layout) {
  const tavo::LibraryLock hold;  // one pipeline at a time, and never beside a capture
  if (frames == nullptr || nframes != 3 || frames[0] == nullptr || frames[1] == nullptr ||
      frames[2] == nullptr || out == nullptr || layout == nullptr ||
      !tavo::capture_size_supported(width, height)) {
    HDR_LOG("GetAlignImg input error.\n");
    return -1;
  }
  align_start_ns = tavo::platform::monotonic_ns();
  const tavo::ChromaLayout chroma_layout = tavo::parse_layout(layout);

  tavo::CropWindow window{};
  if (tavo::register_frames(frames, width, height, &window) != 0) return -1;
  if (over_time("align")) return -1;

  // The fusion writes the whole crop when its pyramid has two levels or more
  // and the layout has chroma it fuses. Otherwise the buffer is zero-filled,
  // so that a crop whose luma or chroma the fusion leaves alone still resizes
  // to the same bytes every time.
  const auto frame_bytes = static_cast<size_t>(tavo::yuv420_planes(width, height).frame_bytes);
  const bool fused_whole = tavo::pyramid_level_count(window.width, window.height) >= 2 &&
                           chroma_layout != tavo::ChromaLayout::kOther;
  auto* fused = static_cast<uint8_t*>(fused_whole ? tavo::platform::mem_alloc(frame_bytes)
                                                  : tavo::platform::mem_calloc(frame_bytes, 1));
  if (fused == nullptr) {
    HDR_LOG("fusiondata malloc fail.\n");
    return -1;
  }
  tavo::platform::advise_huge_pages(fused, frame_bytes);
  struct FreeOnReturn {
    uint8_t* buffer;
    ~FreeOnReturn() { tavo::platform::mem_free(buffer); }
  } release{fused};

  // The resize follows the fusion row by row: a crop row lands in the frame
  // as soon as it is made, and the fused crop is never written. Its maps take
  // the start of the crop's luma, which the fusion then leaves alone.
  const bool resize_in_fusion =
      fused_whole && tavo::CropToFrame::bytes(window.width, window.height, width) <=
                         static_cast<size_t>(window.width) * static_cast<size_t>(window.height);
  std::optional<tavo::CropToFrame> frame;
  if (resize_in_fusion) frame.emplace(fused, window.width, window.height, width, height, chroma_layout, out);

  if (stop_requested()) return 1;
  if (tavo::fuse_crop(frames, 3, static_cast<uint32_t>(width), static_cast<uint32_t>(height), window.width,
                      window.height, window.origins, fused, layout, frame ? &*frame : nullptr) == -1) {
    return -1;
  }
  if (over_time("pyrFuse")) return -1;
  if (stop_requested()) return 1;

  if (!resize_in_fusion) tavo::resize_in_bands(fused, out, window.width, window.height, width, height, chroma_layout);
  if (over_time("resize")) return -1;
  if (stop_requested()) return 1;
  return 0;
}
