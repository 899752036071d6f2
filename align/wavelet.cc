// One level of the registration pyramid: 2x2 block means of the luma, with the
// threshold bitmap and validity mask of every mean (rows in wavelet_rows.cc).
#include <cstdint>

#include "align/exposure_shift.h"
#include "align/align_rows.h"
#include "include/tavo_lumo_hdr.h"
#include "platform/half_size.h"
#include "platform/log.h"
#include "pool/band_jobs.h"

namespace {

// A band of one level of one or more decompositions of one size: the input
// rows taken in chunks of an even number of rows, so that no 2x2 block
// straddles two chunks.
struct WaveletJob {
  const tavo::WaveletTarget* targets;
  int32_t count;
  int32_t width;
  tavo::RowChunks* chunks;
};

}  // namespace

extern "C" TAVO_HDR_EXPORT uint32_t wltDecompose(const uint8_t* src, uint8_t* approx_out,
                                                 uint8_t* bitmap_out, uint8_t* mask_out,
                                                 int32_t width, int32_t rows, int32_t threshold) {
  // The vector main rows take thresholds of a byte; others the portable row.
  const bool byte_threshold = threshold >= 0 && threshold <= 255;
  tavo::wavelet_level(src, approx_out, bitmap_out, mask_out, width, rows, threshold,
                      byte_threshold ? tavo::GetAlignRows().wavelet_main : tavo::WaveletMainRow_C);
  return 0;
}

extern "C" TAVO_HDR_EXPORT int32_t wltDecompose_parameter(void* record) {
  const auto& a = tavo::band_payload<WaveletJob>(record);
  const int64_t out_width = tavo::half_up(a.width);
  int32_t first = 0, rows = 0;
  while (a.chunks->take(&first, &rows)) {
    const int64_t in = static_cast<int64_t>(first) * a.width;
    const int64_t out = static_cast<int64_t>(first / 2) * out_width;
    for (int32_t t = 0; t < a.count; ++t) {
      const tavo::WaveletTarget& d = a.targets[t];
      wltDecompose(d.src + in, d.approx + out, d.bitmap + out, d.mask + out, a.width, rows, d.threshold);
    }
  }
  tavo::band_done(record);
  return 0;
}

void tavo::decompose_level(const WaveletTarget* targets, int32_t count, int32_t width, int32_t height) {
  RowChunks chunks(height);
  run_bands<WaveletJob>(kBandCount, wltDecompose_parameter, [&](int32_t, WaveletJob& a) {
    a = WaveletJob{targets, count, width, &chunks};
  }, static_cast<int64_t>(width) * height * count);
}

// One decomposition: four bands taking the input rows in chunks.
extern "C" TAVO_HDR_EXPORT uint32_t wltDecompose_process(const uint8_t* src, int32_t width,
                                                         int32_t height, uint8_t* approx_out,
                                                         int32_t threshold, uint8_t* bitmap_out,
                                                         uint8_t* mask_out) {
  if (src == nullptr) HDR_LOG("in_buffer is NULL\n");
  const tavo::WaveletTarget target{src, approx_out, bitmap_out, mask_out, threshold};
  tavo::decompose_level(&target, 1, width, height);
  return 0;
}
