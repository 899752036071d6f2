// Registration threshold of a frame: a percentile of its luma histogram. Frame 0
// takes the 37.5th percentile, every other frame the median; each frame is then
// thresholded at its own value, which makes the bitmaps comparable across
// exposures.
//
// The threshold is the first level at which the running histogram sum reaches
// the frame's target. With vector rows it is found without the full
// histogram: a histogram of every 32nd row estimates the level, one pass
// counts the bytes above the eight levels around the estimate, and when the
// counts bracket the target the first level reaching it is the threshold.
// When they do not (the estimate missed), the full histogram decides. Either
// way the level is the one the histogram walk gives.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "align/registration.h"
#include "align/align_rows.h"
#include "include/tavo_lumo_hdr.h"
#include "pool/band_jobs.h"

namespace {

constexpr int32_t kEstimateRowStep = 32;

struct ThresholdJob {
  const uint8_t* luma;
  int32_t width;
  int32_t height;
  uint8_t* threshold_out;
  int32_t frame_index;
};

// A histogram kept as four partial ones, so that runs of equal bytes do not
// serialise on one counter.
struct PartialHistograms {
  uint32_t counts[4][256] = {};

  // Adds `rows` rows of `width` bytes, `step` rows apart, read eight bytes at
  // a time and taken apart in registers.
  void add(const uint8_t* luma, int32_t width, int32_t rows, int32_t step = 1) {
    if (width < 1) return;
    for (int32_t r = 0; r < rows; r += step) {
      const uint8_t* row = luma + static_cast<ptrdiff_t>(r) * width;
      int32_t j = 0;
      for (; j + 8 <= width; j += 8) {
        uint64_t v;
        memcpy(&v, row + j, sizeof v);
        ++counts[0][v & 0xff];
        ++counts[1][(v >> 8) & 0xff];
        ++counts[2][(v >> 16) & 0xff];
        ++counts[3][(v >> 24) & 0xff];
        ++counts[0][(v >> 32) & 0xff];
        ++counts[1][(v >> 40) & 0xff];
        ++counts[2][(v >> 48) & 0xff];
        ++counts[3][v >> 56];
      }
      for (; j < width; ++j) ++counts[0][row[j]];
    }
  }

  void add_into(uint32_t* histogram) const {
    for (int32_t level = 0; level < 256; ++level) {
      histogram[level] += counts[0][level] + counts[1][level] + counts[2][level] + counts[3][level];
    }
  }
};

// The histogram of every step-th row of a frame, on this thread.
void frame_histogram(const uint8_t* luma, int32_t width, int32_t height, int32_t step, uint32_t* histogram) {
  PartialHistograms partial;
  partial.add(luma, width, height, step);
  partial.add_into(histogram);
}

// The frame's target: a signed 32-bit quotient (w*h wraps like the 32-bit
// product it is), compared unsigned, so a negative target is never reached.
uint32_t target_of(int32_t width, int32_t height, int32_t frame_index) {
  const int32_t pixels =
      static_cast<int32_t>(static_cast<uint32_t>(width) * static_cast<uint32_t>(height));
  const int32_t target =
      frame_index == 0 ? static_cast<int32_t>(static_cast<uint32_t>(pixels) * 3u) / 8 : pixels / 2;
  return static_cast<uint32_t>(target);
}

// The first level at which the running sum of the histogram reaches the
// target, 0 when none does.
uint8_t percentile_level(const uint32_t* histogram, uint32_t target) {
  uint32_t running = 0;
  for (int32_t level = 0; level < 256; ++level) {
    running += histogram[level];
    if (running >= target) return static_cast<uint8_t>(level);
  }
  return 0;
}

// The level a histogram of every kEstimateRowStep-th row (rows 0, 32, ...)
// puts at the target's share of the frame.
uint8_t estimate_from(const uint32_t* sampled_histogram, int32_t width, int32_t height, uint32_t target) {
  const uint64_t sampled = static_cast<uint64_t>((height + kEstimateRowStep - 1) / kEstimateRowStep) * width;
  const uint64_t pixels = static_cast<uint64_t>(width) * static_cast<uint64_t>(height);
  const auto scaled = static_cast<uint32_t>(std::min<uint64_t>(target, pixels) * sampled / std::max<uint64_t>(pixels, 1));
  return percentile_level(sampled_histogram, scaled);
}

uint8_t estimated_level(const uint8_t* luma, int32_t width, int32_t height, uint32_t target) {
  uint32_t histogram[256] = {};
  frame_histogram(luma, width, height, kEstimateRowStep, histogram);
  return estimate_from(histogram, width, height, target);
}

// The first of the eight levels around an estimate: the bound below the
// window; the other seven, estimate - 3 ... estimate + 3, are the candidates.
// A histogram of every 32nd row puts nearly every frame's level within 3 of
// the estimate.
int32_t window_first(uint8_t estimate) {
  return std::clamp<int32_t>(estimate - tavo::kThresholdLevels / 2, 0, tavo::kLastFirstLevel);
}

// The threshold from the counts above the window's levels of all n bytes, or
// -1 when the window does not hold it. The cumulative count of a level is
// kept in 32 bits, as the histogram walk keeps it.
int32_t level_in_window(int32_t first, const uint64_t* above, uint64_t n, uint32_t target) {
  auto reaches = [&](int k) { return static_cast<uint32_t>(n - above[k]) >= target; };
  if (reaches(0)) return first == 0 ? 0 : -1;
  for (int k = 1; k < tavo::kThresholdLevels; ++k) {
    if (reaches(k)) return first + k;
  }
  return -1;
}

// Whether the counting pass may stand in for the histogram: a vector row
// exists and every cumulative count fits the 32 bits the walk keeps it in.
bool counting_pays(int32_t width, int32_t height) {
  return tavo::GetAlignRows().count_above != tavo::CountAboveRow_C && width > 0 && height > 0 &&
         static_cast<uint64_t>(width) * static_cast<uint64_t>(height) <= UINT32_MAX;
}

// A band of rows of every frame, taken in chunks: with `first`, the counts
// above each frame's window of levels; without, each frame's histogram of every
// step-th row (the chunks count those rows).
struct ThresholdBand {
  const uint8_t* const* frames;
  int32_t width, height, step;
  tavo::RowChunks* chunks;
  const int32_t* first;   // kThresholdFrames first levels, or null
  uint64_t* above;        // this band's kThresholdFrames x kThresholdLevels counts
  uint32_t* histograms;   // this band's kThresholdFrames x 256 counts
};

// Calls take(f, luma, rows) for the rows of every frame in each chunk the
// band takes.
template <class Take>
void for_band_rows(const ThresholdBand& a, Take take) {
  int32_t first = 0, rows = 0;
  while (a.chunks->take(&first, &rows)) {
    const int32_t first_row = first * a.step;
    const int32_t rows_spanned = std::min(rows * a.step, a.height - first_row);
    for (int32_t f = 0; f < tavo::kThresholdFrames; ++f) {
      take(f, a.frames[f] + static_cast<ptrdiff_t>(first_row) * a.width, rows_spanned);
    }
  }
}

int32_t threshold_band_body(void* record) {
  const auto& a = tavo::band_payload<ThresholdBand>(record);
  if (a.first != nullptr) {
    const tavo::CountAboveRowFn count_above = tavo::GetAlignRows().count_above;
    for_band_rows(a, [&](int32_t f, const uint8_t* luma, int32_t rows) {
      count_above(luma, static_cast<size_t>(rows) * static_cast<size_t>(a.width), a.first[f],
                  a.above + tavo::kThresholdLevels * f);
    });
  } else {
    PartialHistograms partial[tavo::kThresholdFrames];
    for_band_rows(a, [&](int32_t f, const uint8_t* luma, int32_t rows) { partial[f].add(luma, a.width, rows, a.step); });
    for (int32_t f = 0; f < tavo::kThresholdFrames; ++f) partial[f].add_into(a.histograms + 256 * f);
  }
  tavo::band_done(record);
  return 0;
}

// Each frame's histogram of every step-th row, from one batch of bands.
void banded_histograms(const uint8_t* const* frames, int32_t width, int32_t height, int32_t step,
                       uint32_t (*histograms)[256]) {
  uint32_t bands[tavo::kBandCount][tavo::kThresholdFrames][256] = {};
  tavo::RowChunks chunks((height + step - 1) / step);
  tavo::run_bands<ThresholdBand>(tavo::kBandCount, threshold_band_body, [&](int32_t b, ThresholdBand& a) {
    a = ThresholdBand{frames, width, height, step, &chunks, nullptr, nullptr, &bands[b][0][0]};
  }, static_cast<int64_t>(width) * height * tavo::kThresholdFrames / step);
  for (int32_t f = 0; f < tavo::kThresholdFrames; ++f) {
    for (int32_t level = 0; level < 256; ++level) {
      histograms[f][level] = bands[0][f][level] + bands[1][f][level] + bands[2][f][level] + bands[3][f][level];
    }
  }
}

}  // namespace

extern "C" TAVO_HDR_EXPORT uint32_t loadImg(const uint8_t* luma, int32_t width, int32_t height,
                                            uint8_t* threshold_out, int32_t frame_index) {
  *threshold_out = 0;
  const uint32_t target = target_of(width, height, frame_index);
  if (counting_pays(width, height)) {
    const int32_t first = window_first(estimated_level(luma, width, height, target));
    uint64_t above[tavo::kThresholdLevels] = {};
    const uint64_t n = static_cast<uint64_t>(width) * static_cast<uint64_t>(height);
    tavo::GetAlignRows().count_above(luma, n, first, above);
    const int32_t level = level_in_window(first, above, n, target);
    if (level >= 0) {
      *threshold_out = static_cast<uint8_t>(level);
      return 0;
    }
  }
  uint32_t histogram[256] = {};
  frame_histogram(luma, width, height, 1, histogram);
  *threshold_out = percentile_level(histogram, target);
  return 0;
}

void tavo::frame_thresholds(const uint8_t* const* frames, int32_t width, int32_t height,
                            uint8_t* thresholds) {
  constexpr int32_t kFrames = kThresholdFrames;
  uint32_t targets[kFrames];
  for (int32_t f = 0; f < kFrames; ++f) targets[f] = target_of(width, height, f);

  uint32_t histograms[kFrames][256];
  if (counting_pays(width, height)) {
    int32_t first[kFrames];
    banded_histograms(frames, width, height, kEstimateRowStep, histograms);
    for (int32_t f = 0; f < kFrames; ++f) first[f] = window_first(estimate_from(histograms[f], width, height, targets[f]));
    uint64_t above[kBandCount][kFrames][kThresholdLevels] = {};
    RowChunks chunks(height);
    run_bands<ThresholdBand>(kBandCount, threshold_band_body, [&](int32_t b, ThresholdBand& a) {
      a = ThresholdBand{frames, width, height, 1, &chunks, first, &above[b][0][0], nullptr};
    }, static_cast<int64_t>(width) * height * kFrames);
    const uint64_t n = static_cast<uint64_t>(width) * static_cast<uint64_t>(height);
    bool settled = true;
    for (int32_t f = 0; f < kFrames && settled; ++f) {
      uint64_t total[kThresholdLevels];
      for (int32_t k = 0; k < kThresholdLevels; ++k) total[k] = above[0][f][k] + above[1][f][k] + above[2][f][k] + above[3][f][k];
      const int32_t level = level_in_window(first[f], total, n, targets[f]);
      settled = level >= 0;
      thresholds[f] = static_cast<uint8_t>(level);
    }
    if (settled) return;
  }

  banded_histograms(frames, width, height, 1, histograms);
  for (int32_t f = 0; f < kFrames; ++f) thresholds[f] = percentile_level(histograms[f], targets[f]);
}

extern "C" TAVO_HDR_EXPORT int32_t loadImg_parameter(void* record) {
  const auto& a = tavo::band_payload<ThresholdJob>(record);
  loadImg(a.luma, a.width, a.height, a.threshold_out, a.frame_index);
  tavo::band_done(record);
  return 0;
}

// One job per frame rather than per band: the three thresholds are found at once.
extern "C" TAVO_HDR_EXPORT uint32_t loadImg_process(const uint8_t* const* frames, int32_t width,
                                                    int32_t height, uint8_t* thresholds_out) {
  tavo::run_bands<ThresholdJob>(3, loadImg_parameter, [&](int32_t b, ThresholdJob& a) {
    a = ThresholdJob{frames[b], width, height, thresholds_out + b, b};
  });
  return 0;
}
