// Registration threshold of a frame: a percentile of its luma histogram. Frame 0
// takes the 37.5th percentile, every other frame the median; each frame is then
// thresholded at its own value, which makes the bitmaps comparable across
// exposures.
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "align/registration.h"
#include "include/tavo_lumo_hdr.h"
#include "pool/band_jobs.h"

namespace {

struct ThresholdJob {
  const uint8_t* luma;
  int32_t width;
  int32_t height;
  uint8_t* threshold_out;
  int32_t frame_index;
};

// Adds the histogram of `rows` rows of `width` bytes. Four partial histograms,
// so that runs of equal bytes do not serialise on one counter; eight bytes are
// read at a time and taken apart in registers.
void add_histogram(const uint8_t* luma, int32_t width, int32_t rows, uint32_t* histogram) {
  uint32_t partial[4][256] = {};
  if (width > 0) {
    const uint8_t* row = luma;
    for (int32_t r = 0; r < rows; ++r, row += width) {
      int32_t j = 0;
      for (; j + 8 <= width; j += 8) {
        uint64_t v;
        memcpy(&v, row + j, sizeof v);
        ++partial[0][v & 0xff];
        ++partial[1][(v >> 8) & 0xff];
        ++partial[2][(v >> 16) & 0xff];
        ++partial[3][(v >> 24) & 0xff];
        ++partial[0][(v >> 32) & 0xff];
        ++partial[1][(v >> 40) & 0xff];
        ++partial[2][(v >> 48) & 0xff];
        ++partial[3][v >> 56];
      }
      for (; j < width; ++j) ++partial[0][row[j]];
    }
  }
  for (int32_t level = 0; level < 256; ++level) {
    histogram[level] += partial[0][level] + partial[1][level] + partial[2][level] + partial[3][level];
  }
}

// The first level at which the running sum of the histogram reaches the
// frame's target, 0 when none does. The target is a signed 32-bit quotient
// (w*h wraps like the 32-bit product it is); the walk compares it unsigned, so
// a negative target is never reached.
uint8_t percentile_level(const uint32_t* histogram, int32_t width, int32_t height, int32_t frame_index) {
  const int32_t pixels =
      static_cast<int32_t>(static_cast<uint32_t>(width) * static_cast<uint32_t>(height));
  const int32_t target =
      frame_index == 0
          ? static_cast<int32_t>(static_cast<uint32_t>(pixels) * 3u) / 8
          : pixels / 2;
  uint32_t running = 0;
  for (int32_t level = 0; level < 256; ++level) {
    running += histogram[level];
    if (running >= static_cast<uint32_t>(target)) return static_cast<uint8_t>(level);
  }
  return 0;
}

// A quarter of the rows of every frame, into the band's own histograms.
struct HistogramBand {
  const uint8_t* const* frames;
  int32_t width;
  int32_t first, rows;
  uint32_t* histograms;  // kThresholdFrames x 256 counts of this band
};

int32_t histogram_band_body(void* record) {
  const auto& a = tavo::band_payload<HistogramBand>(record);
  for (int32_t f = 0; f < tavo::kThresholdFrames; ++f) {
    add_histogram(a.frames[f] + static_cast<ptrdiff_t>(a.first) * a.width, a.width, a.rows,
                  a.histograms + 256 * f);
  }
  tavo::band_done(record);
  return 0;
}

}  // namespace

extern "C" TAVO_HDR_EXPORT uint32_t loadImg(const uint8_t* luma, int32_t width, int32_t height,
                                            uint8_t* threshold_out, int32_t frame_index) {
  *threshold_out = 0;
  uint32_t histogram[256] = {};
  add_histogram(luma, width, height, histogram);
  *threshold_out = percentile_level(histogram, width, height, frame_index);
  return 0;
}

void tavo::frame_thresholds(const uint8_t* const* frames, int32_t width, int32_t height,
                            uint8_t* thresholds) {
  uint32_t histograms[4][kThresholdFrames][256] = {};
  const BandSplit split = split_rows(height, SplitRule::kFour);
  run_bands<HistogramBand>(split.bands, histogram_band_body, [&](int32_t b, HistogramBand& a) {
    a = HistogramBand{frames, width, split.first(b), split.rows(b), &histograms[b][0][0]};
  }, static_cast<int64_t>(width) * height * kThresholdFrames);
  for (int32_t f = 0; f < kThresholdFrames; ++f) {
    uint32_t histogram[256];
    for (int32_t level = 0; level < 256; ++level) {
      histogram[level] = histograms[0][f][level] + histograms[1][f][level] + histograms[2][f][level] +
                         histograms[3][f][level];
    }
    thresholds[f] = percentile_level(histogram, width, height, f);
  }
}

extern "C" TAVO_HDR_EXPORT int32_t loadImg_parameter(void* record) {
  const auto& a = tavo::band_payload<ThresholdJob>(record);
  loadImg(a.luma, a.width, a.height, a.threshold_out, a.frame_index);
  tavo::band_done(record);
  return 0;
}

// One job per frame rather than per band: the three histograms build at once.
extern "C" TAVO_HDR_EXPORT uint32_t loadImg_process(const uint8_t* const* frames, int32_t width,
                                                    int32_t height, uint8_t* thresholds_out) {
  tavo::run_bands<ThresholdJob>(3, loadImg_parameter, [&](int32_t b, ThresholdJob& a) {
    a = ThresholdJob{frames[b], width, height, thresholds_out + b, b};
  });
  return 0;
}
