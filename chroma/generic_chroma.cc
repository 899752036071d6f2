// Generic chroma fusion over any number of equal-stride planes, by the rows of
// the planar chroma fusion, and its four-band dispatcher.
#include "chroma/chroma_fusion.h"
#include "include/tavo_lumo_hdr.h"
#include "platform/log.h"
#include "pool/band_jobs.h"

namespace tavo {
namespace {

// Up to three source planes and, after them, the second elements of the three
// extra arrays; a band fuses `frames` of these.
inline constexpr int kBandPlanes = 6;

struct GenericBand {
  const uint8_t* planes[kBandPlanes];
  uint8_t* out;
  const uint16_t* lut;
  int32_t width;
  int32_t rows;
  int32_t frames;
};

}  // namespace
}  // namespace tavo

// `frames` chroma planes of stride width into out, by the same rows as the
// planar chroma fusion.
extern "C" TAVO_HDR_EXPORT uint32_t fusionUV(const uint8_t** src, uint8_t* out, const uint16_t* lut,
                                             int32_t width, int32_t rows, int32_t frames) {
  if (frames < 1) {
    HDR_LOG("no frames to fuse (%d)\n", frames);
    return 0;
  }
  tavo::fuse_chroma_plane(src, frames, width, out, lut, width, rows);
  return 0;
}

extern "C" TAVO_HDR_EXPORT int32_t fusionUV_parameter(void* record) {
  auto& a = tavo::band_payload<tavo::GenericBand>(record);
  fusionUV(a.planes, a.out, a.lut, a.width, a.rows, a.frames);
  tavo::band_done(record);
  return 0;
}

// Four bands of rows/4 rows. Every plane pointer, the extra ones included, is
// advanced to the band's first row.
extern "C" TAVO_HDR_EXPORT uint32_t fusionUV_process(const uint8_t** src, uint8_t* out,
                                                     const uint16_t* lut, int32_t width,
                                                     int32_t rows, int32_t frames,
                                                     const uint8_t* const* const* extra) {
  using tavo::platform::log_hex;
  if (src == nullptr || out == nullptr || lut == nullptr || extra == nullptr) {
    HDR_LOG_AS(868, "fusionUV_process", "in_buffer is NULL,0x%x,0x%x,0x%x,0x%x\n", log_hex(src),
               log_hex(out), log_hex(lut), log_hex(extra));
    if (src == nullptr || out == nullptr || lut == nullptr) return 0;
  }
  // Planes beyond the third are the extra ones; all that are fused must exist.
  // Only the extras the frame count asks for are read: a caller fusing four
  // frames may pass an array of one.
  const uint8_t* planes[tavo::kBandPlanes] = {};
  for (int f = 0; f < 3 && f < frames; ++f) planes[f] = src[f];
  for (int k = 0; extra != nullptr && k < 3 && 3 + k < frames; ++k) {
    planes[3 + k] = extra[k] != nullptr ? extra[k][1] : nullptr;
  }
  bool present = frames >= 1 && frames <= tavo::kBandPlanes;
  for (int f = 0; present && f < frames; ++f) present = planes[f] != nullptr;
  if (!present) {
    HDR_LOG("%d frames asked, not all planes given, nothing fused\n", frames);
    return 0;
  }
  const tavo::BandSplit split = tavo::split_rows(rows, tavo::SplitRule::kFour);
  tavo::run_bands<tavo::GenericBand>(split.bands, fusionUV_parameter, [&](int32_t b, tavo::GenericBand& a) {
    const ptrdiff_t first = static_cast<ptrdiff_t>(split.first(b)) * width;
    for (int k = 0; k < tavo::kBandPlanes; ++k) a.planes[k] = planes[k] != nullptr ? planes[k] + first : nullptr;
    a.out = out + first;
    a.lut = lut;
    a.width = width;
    a.rows = split.rows(b);
    a.frames = frames;
  });
  return 0;
}
