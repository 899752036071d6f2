#include "align/crop_window.h"

#include <algorithm>
#include <iterator>

#include "include/tavo_lumo_hdr.h"

namespace tavo {
namespace {

// Signed 32-bit product that wraps instead of overflowing.
int32_t mul32(int32_t a, int32_t b) {
  return static_cast<int32_t>(static_cast<uint32_t>(a) * static_cast<uint32_t>(b));
}

// Signed 32-bit division truncating toward zero; 0 for a zero divisor, and the
// one quotient that does not fit (INT32_MIN / -1) wraps like the product.
int32_t div32(int32_t a, int32_t b) {
  if (b == 0) return 0;
  return static_cast<int32_t>(static_cast<uint32_t>(static_cast<int64_t>(a) / b));
}

}  // namespace

CropRect crop_window_from_shifts(int32_t width, int32_t height, int16_t x0, int16_t y0,
                                 int16_t x2, int16_t y2) {
  // Sums of a frame side and a 16-bit shift stay far inside 32 bits for every
  // side that can be allocated; they are still formed in 64 bits and wrapped.
  auto sum = [](int64_t a, int64_t b) { return static_cast<int32_t>(static_cast<uint32_t>(a + b)); };
  const int32_t left = std::max<int32_t>(std::max<int32_t>(x0, 0), x2);
  const int32_t right = std::min(sum(width, x2), sum(width, std::min<int32_t>(x0, 0)));
  const int32_t top = std::max<int32_t>(std::max<int32_t>(y0, 0), y2);
  const int32_t bottom = std::min(sum(height, y2), sum(height, std::min<int32_t>(y0, 0)));

  CropRect rect{};
  rect.width = sum(right, -static_cast<int64_t>(left));
  rect.height = sum(bottom, -static_cast<int64_t>(top));
  if (mul32(rect.width, height) > mul32(rect.height, width)) {
    rect.width = div32(mul32(rect.height, width), height);
  } else {
    rect.height = div32(mul32(rect.width, height), width);
  }
  rect.width &= ~1;
  rect.height &= ~1;

  // Origins come from the untrimmed corner: trimming only moves the right or
  // bottom edge.
  const int32_t origins[6] = {left - x0, top - y0, left, top, left - x2, top - y2};
  std::copy(std::begin(origins), std::end(origins), rect.origins);
  return rect;
}

}  // namespace tavo

extern "C" TAVO_HDR_EXPORT void imageCrop(int32_t width, int32_t height, int32_t* crop_width_out,
                                          int32_t* crop_height_out, int32_t x0, int32_t y0,
                                          int32_t x2, int32_t y2, int32_t* origins_out) {
  // The shifts are 16-bit quantities carried in 32-bit arguments.
  const tavo::CropRect rect = tavo::crop_window_from_shifts(
      width, height, static_cast<int16_t>(x0), static_cast<int16_t>(y0),
      static_cast<int16_t>(x2), static_cast<int16_t>(y2));
  *crop_width_out = rect.width;
  *crop_height_out = rect.height;
  std::copy(std::begin(rect.origins), std::end(rect.origins), origins_out);
}
