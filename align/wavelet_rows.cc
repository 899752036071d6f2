#include "align/wavelet_rows.h"

#include <algorithm>

#include "platform/half_size.h"

namespace tavo {

void WaveletMainRow_C(const uint8_t* top, const uint8_t* bottom, uint8_t* approx,
                      uint8_t* bitmap, uint8_t* mask, int32_t blocks, int32_t threshold) {
  const int32_t lo = threshold < 4 ? 0 : threshold - 4;
  const int32_t hi = std::min(threshold + 4, 255);
  const int32_t outputs = blocks * 8;
  for (int32_t k = 0; k < outputs; ++k) {
    const int32_t sum = top[2 * k] + top[2 * k + 1] + bottom[2 * k] + bottom[2 * k + 1];
    const int32_t a = std::min(sum >> 2, 255);
    approx[k] = static_cast<uint8_t>(a);
    bitmap[k] = a > threshold ? 1 : 0;
    mask[k] = a >= lo && a <= hi ? 0 : 255;
  }
}

void wavelet_tail_row(const uint8_t* top, const uint8_t* bottom, bool unpaired, int32_t first,
                      int32_t width, uint8_t* approx, uint8_t* bitmap, uint8_t* mask,
                      int32_t threshold) {
  const bool odd_width = (width & 1) != 0;
  for (int32_t j = first; j < width; j += 2) {
    const bool last_column = odd_width && j == width - 1;
    int32_t a;
    if (unpaired) {
      a = last_column ? top[j] : (top[j] + top[j + 1]) >> 1;
    } else {
      a = last_column ? (top[j] + bottom[j]) >> 1
                      : (top[j] + top[j + 1] + bottom[j] + bottom[j + 1]) >> 2;
    }
    a = std::clamp(a, 0, 255);
    const int32_t k = j / 2;
    approx[k] = static_cast<uint8_t>(a);
    bitmap[k] = a > threshold ? 1 : 0;
    mask[k] = a >= threshold - 20 && a <= threshold + 20 ? 0 : 255;
  }
}

void wavelet_level(const uint8_t* src, uint8_t* approx, uint8_t* bitmap, uint8_t* mask,
                   int32_t width, int32_t rows, int32_t threshold, WaveletMainRowFn main_row) {
  if (width < 1) return;
  const int32_t out_width = half_up(width);
  const int32_t main_columns = width & ~15;
  for (int32_t r = 0; r < rows; r += 2) {
    const uint8_t* top = src + static_cast<int64_t>(r) * width;
    const bool unpaired = r == rows - 1;  // only when rows is odd
    const uint8_t* bottom = unpaired ? top : top + width;
    const int64_t out = static_cast<int64_t>(r / 2) * out_width;
    main_row(top, bottom, approx + out, bitmap + out, mask + out, main_columns / 16, threshold);
    wavelet_tail_row(top, bottom, unpaired, main_columns, width, approx + out, bitmap + out,
                     mask + out, threshold);
  }
}

}  // namespace tavo
