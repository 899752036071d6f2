// One level of the registration pyramid: 2x2 block means of the luma, with the
// threshold bitmap and validity mask of every mean (rows in wavelet_rows.cc).
#include <cstdint>

#include "align/wavelet_rows.h"
#include "include/tavo_lumo_hdr.h"
#include "platform/log.h"
#include "pool/band_jobs.h"

namespace {

struct WaveletJob {
  const uint8_t* src;
  uint8_t* approx;
  uint8_t* bitmap;
  uint8_t* mask;
  int32_t width;
  int32_t rows;
  int32_t threshold;
};

}  // namespace

extern "C" TAVO_HDR_EXPORT uint32_t wltDecompose(const uint8_t* src, uint8_t* approx_out,
                                                 uint8_t* bitmap_out, uint8_t* mask_out,
                                                 int32_t width, int32_t rows, int32_t threshold) {
  tavo::wavelet_level(src, approx_out, bitmap_out, mask_out, width, rows, threshold,
                      tavo::pick_wavelet_main_row(threshold));
  return 0;
}

extern "C" TAVO_HDR_EXPORT int32_t wltDecompose_parameter(void* record) {
  const auto& a = tavo::band_payload<WaveletJob>(record);
  wltDecompose(a.src, a.approx, a.bitmap, a.mask, a.width, a.rows, a.threshold);
  tavo::band_done(record);
  return 0;
}

// Four bands of an even number of input rows each (the last takes the rest), so
// that no 2x2 block straddles two bands.
extern "C" TAVO_HDR_EXPORT uint32_t wltDecompose_process(const uint8_t* src, int32_t width,
                                                         int32_t height, uint8_t* approx_out,
                                                         int32_t threshold, uint8_t* bitmap_out,
                                                         uint8_t* mask_out) {
  if (src == nullptr) HDR_LOG("in_buffer is NULL\n");
  const int64_t out_width = (width & 1) + width / 2;
  const tavo::BandSplit split = tavo::split_rows(height, tavo::SplitRule::kFourEven);
  tavo::run_bands<WaveletJob>(split.bands, wltDecompose_parameter, [&](int32_t b, WaveletJob& a) {
    const int64_t in = static_cast<int64_t>(split.first(b)) * width;
    const int64_t out = static_cast<int64_t>(split.first(b) / 2) * out_width;
    a = WaveletJob{src + in,           approx_out + out, bitmap_out + out, mask_out + out,
                   width,              split.rows(b),    threshold};
  }, static_cast<int64_t>(width) * height);
  return 0;
}
