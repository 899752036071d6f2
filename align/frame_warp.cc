// Registration yields whole-pixel translations, so warping a frame is cropping
// it at its own origin. The luma crop is widened to the pyramids' sample format
// (value x 16); the chroma crop splits interleaved pairs into two planes.
#include <cstdint>

#include "align/align_rows.h"
#include "include/tavo_lumo_hdr.h"
#include "platform/log.h"
#include "pool/band_jobs.h"

namespace {

// The crop start as the signed 32-bit offset xs + ys * stride: a negative one
// lies before the frame. It is reported, and the copy still runs.
bool starts_before_frame(int32_t xs, int32_t ys, uint32_t src_stride) {
  const uint32_t p0 = static_cast<uint32_t>(xs) + static_cast<uint32_t>(ys) * src_stride;
  return static_cast<int32_t>(p0) < 0;
}

struct WarpJob {
  const uint8_t* src;
  uint16_t* dst;
  uint32_t src_stride;
  uint32_t width;
  int32_t rows;
  uint32_t xs;
  uint32_t ys;
};

struct SplitJob {
  const uint8_t* src;
  uint8_t* dst_odd;
  uint8_t* dst_even;
  uint32_t src_stride;
  uint32_t width;
  int32_t rows;
  uint32_t xs;
  uint32_t ys;
};

}  // namespace

extern "C" TAVO_HDR_EXPORT uint32_t imageAffine(const uint8_t* src, uint16_t* dst,
                                                uint32_t src_stride, int32_t width, int32_t rows,
                                                int32_t xs, int32_t ys) {
  if (starts_before_frame(xs, ys, src_stride)) HDR_LOG("p0 location error,xs:%d,ys:%d\n", xs, ys);
  if (rows < 1 || width < 1) return 0;
  const tavo::WidenX16RowFn widen = tavo::GetAlignRows().widen_x16;
  for (int32_t r = 0; r < rows; ++r) {
    widen(tavo::crop_row(src, src_stride, xs, ys, r), dst + static_cast<int64_t>(r) * width, width);
  }
  return 0;
}

extern "C" TAVO_HDR_EXPORT uint32_t imageAffine_uv(const uint8_t* src, uint8_t* dst_odd,
                                                   uint8_t* dst_even, uint32_t src_stride,
                                                   uint32_t width, int32_t rows, uint32_t xs,
                                                   uint32_t ys) {
  // The origin is a signed position carried in unsigned words; xs counts bytes.
  const auto x = static_cast<int32_t>(xs);
  const auto y = static_cast<int32_t>(ys);
  if (starts_before_frame(x, y, src_stride)) HDR_LOG("p0 location error,xs:%d,ys:%d\n", x, y);
  const auto n = static_cast<int32_t>(width);
  if (rows < 1 || n < 1) return 0;
  const tavo::SplitPairsRowFn split = tavo::GetAlignRows().split_pairs;
  for (int32_t r = 0; r < rows; ++r) {
    const int64_t out = static_cast<int64_t>(r) * n;
    split(tavo::crop_row(src, src_stride, x, y, r), dst_odd + out, dst_even + out, n);
  }
  return 0;
}

extern "C" TAVO_HDR_EXPORT int32_t imageAffine_parameter(void* record) {
  const auto& a = tavo::band_payload<WarpJob>(record);
  imageAffine(a.src, a.dst, a.src_stride, static_cast<int32_t>(a.width), a.rows,
              static_cast<int32_t>(a.xs), static_cast<int32_t>(a.ys));
  tavo::band_done(record);
  return 0;
}

extern "C" TAVO_HDR_EXPORT int32_t imageAffine_uv_parameter(void* record) {
  const auto& a = tavo::band_payload<SplitJob>(record);
  imageAffine_uv(a.src, a.dst_odd, a.dst_even, a.src_stride, a.width, a.rows, a.xs, a.ys);
  tavo::band_done(record);
  return 0;
}

// Four bands of height/4 rows, the last taking the rest; every band crops at the
// same origin, relative to its own first row.
extern "C" TAVO_HDR_EXPORT uint32_t imageAffine_process(const uint8_t* src, uint16_t* dst,
                                                        uint32_t src_stride, uint32_t width,
                                                        int32_t height, uint32_t xs,
                                                        uint32_t ys) {
  if (src == nullptr || dst == nullptr) {
    HDR_LOG("in_buffer is NULL,0x%x,0x%x\n", tavo::platform::log_hex(src),
            tavo::platform::log_hex(dst));
  }
  const tavo::BandSplit split = tavo::split_rows(height, tavo::SplitRule::kFour);
  tavo::run_bands<WarpJob>(split.bands, imageAffine_parameter, [&](int32_t b, WarpJob& a) {
    const int64_t first = split.first(b);
    a = WarpJob{src + first * src_stride, dst + first * width, src_stride, width,
                split.rows(b), xs, ys};
  });
  return 0;
}

extern "C" TAVO_HDR_EXPORT uint32_t imageAffine_uv_process(const uint8_t* src, uint8_t* dst_odd,
                                                           uint8_t* dst_even, uint32_t src_stride,
                                                           uint32_t width, int32_t height,
                                                           uint32_t xs, uint32_t ys) {
  if (src == nullptr || dst_odd == nullptr || dst_even == nullptr) {
    HDR_LOG("in_buffer is NULL,0x%x,0x%x,0x%x\n", tavo::platform::log_hex(src),
            tavo::platform::log_hex(dst_odd), tavo::platform::log_hex(dst_even));
  }
  const tavo::BandSplit split = tavo::split_rows(height, tavo::SplitRule::kFour);
  tavo::run_bands<SplitJob>(split.bands, imageAffine_uv_parameter, [&](int32_t b, SplitJob& a) {
    const int64_t first = split.first(b);
    a = SplitJob{src + first * src_stride, dst_odd + first * width, dst_even + first * width,
                 src_stride, width, split.rows(b), xs, ys};
  });
  return 0;
}
