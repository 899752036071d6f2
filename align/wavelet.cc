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

// A band of two levels at once: the input rows taken four at a time (in
// chunks of such quads), the two middle rows of each quad made in the band's
// scratch and reduced again at once.
struct TwoLevelJob {
  const tavo::WaveletTarget* upper;  // input -> middle level, approximation unused
  const tavo::WaveletTarget* lower;  // middle level -> level below, source unused
  int32_t count;
  int32_t width, height;
  uint8_t* scratch;  // two middle rows a band
  tavo::RowChunks* chunks;  // of quads
};

static_assert(tavo::kWaveletScratchRows == 2 * tavo::kBandCount);

int32_t two_levels_body(void* record) {
  const auto& a = tavo::band_payload<TwoLevelJob>(record);
  const int32_t mid_width = tavo::half_up(a.width), low_width = tavo::half_up(mid_width);
  uint8_t* mid = a.scratch + static_cast<ptrdiff_t>(2) * mid_width * static_cast<const band_record*>(record)->band;
  const tavo::AlignRows rows = tavo::GetAlignRows();
  tavo::WaveletMainRowFn upper_rows[tavo::kMaxDecompositions], lower_rows[tavo::kMaxDecompositions];
  for (int32_t t = 0; t < a.count; ++t) {
    upper_rows[t] = tavo::WaveletMainRowFor(rows, a.upper[t].threshold);
    lower_rows[t] = tavo::WaveletMainRowFor(rows, a.lower[t].threshold);
  }
  int32_t first = 0, quads = 0;
  while (a.chunks->take(&first, &quads)) {
    for (int32_t q = first; q < first + quads; ++q) {
      const int32_t rows = a.height - 4 * q < 4 ? a.height - 4 * q : 4;
      const int64_t in = static_cast<int64_t>(4 * q) * a.width;
      const int64_t out = static_cast<int64_t>(2 * q) * mid_width;
      const int64_t low = static_cast<int64_t>(q) * low_width;
      for (int32_t t = 0; t < a.count; ++t) {
        const tavo::WaveletTarget& u = a.upper[t];
        const tavo::WaveletTarget& d = a.lower[t];
        tavo::wavelet_level(u.src + in, mid, u.bitmap + out, u.mask + out, a.width, rows, u.threshold,
                            upper_rows[t]);
        tavo::wavelet_level(mid, d.approx + low, d.bitmap + low, d.mask + low, mid_width, (rows + 1) / 2,
                            d.threshold, lower_rows[t]);
      }
    }
  }
  tavo::band_done(record);
  return 0;
}

}  // namespace

extern "C" TAVO_HDR_EXPORT uint32_t wltDecompose(const uint8_t* src, uint8_t* approx_out,
                                                 uint8_t* bitmap_out, uint8_t* mask_out,
                                                 int32_t width, int32_t rows, int32_t threshold) {
  tavo::wavelet_level(src, approx_out, bitmap_out, mask_out, width, rows, threshold,
                      tavo::WaveletMainRowFor(tavo::GetAlignRows(), threshold));
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

void tavo::decompose_two_levels(const WaveletTarget* upper, const WaveletTarget* lower, int32_t count,
                                int32_t width, int32_t height, uint8_t* scratch) {
  RowChunks chunks((height + 3) / 4);
  run_bands<TwoLevelJob>(kBandCount, two_levels_body, [&](int32_t, TwoLevelJob& a) {
    a = TwoLevelJob{upper, lower, count, width, height, scratch, &chunks};
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
