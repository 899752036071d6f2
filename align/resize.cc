// Nearest-neighbour scaling of the fused crop back to the full frame. The
// source of a destination pixel is the truncated single-precision product of
// the scale factor and the destination coordinate, clamped to the last source
// row or column; that float rounding decides which pixel is taken, so it is kept
// as it is rather than replaced by a fixed-point stepper. The source has planar
// chroma; the destination gets interleaved V,U pairs for "YVU420_SEMIPLANAR" and
// planar chroma for any other layout.
#include <algorithm>
#include <cstdint>
#include <cstring>

#include "include/tavo_lumo_hdr.h"
#include "platform/arm_float.h"

namespace {

// Destination columns are handled in blocks whose source columns are looked up
// once per call and kept on the stack.
constexpr int32_t kColumnBlock = 4096;

// min(last, trunc(scale * d)), the source index of destination index d.
inline int32_t source_index(float scale, int32_t d, int32_t last) {
  return std::min(last, tavo::arm::to_s32(scale * static_cast<float>(d)));
}

void fill_indices(int32_t* indices, int32_t first, int32_t count, float scale, int32_t last) {
  for (int32_t k = 0; k < count; ++k) indices[k] = source_index(scale, first + k, last);
}

void resize_luma(const uint8_t* src, uint8_t* dst, int32_t src_width, int32_t src_height,
                 int32_t dst_width, int32_t dst_height, float sx, float sy) {
  int32_t columns[kColumnBlock];
  for (int32_t j0 = 0; j0 < dst_width; j0 += kColumnBlock) {
    const int32_t n = std::min(kColumnBlock, dst_width - j0);
    fill_indices(columns, j0, n, sx, src_width - 1);
    for (int32_t i = 0; i < dst_height; ++i) {
      const int64_t row = source_index(sy, i, src_height - 1);
      const uint8_t* s = src + row * src_width;
      uint8_t* d = dst + static_cast<int64_t>(i) * dst_width + j0;
      for (int32_t k = 0; k < n; ++k) d[k] = s[columns[k]];
    }
  }
}

void resize_chroma(const uint8_t* src, uint8_t* dst, int32_t src_width, int32_t src_height,
                   int32_t dst_width, int32_t dst_height, float sx, float sy, bool interleave) {
  const int64_t src_area = static_cast<int64_t>(src_width) * src_height;
  const uint8_t* src_u = src + src_area;
  const uint8_t* src_v = src + (src_area * 5) / 4;
  const int64_t dst_area = static_cast<int64_t>(dst_width) * dst_height;
  const int32_t pairs = dst_width / 2;  // chroma columns of a destination row
  const int32_t chroma_rows = dst_height / 2;

  int32_t columns[kColumnBlock];
  for (int32_t j0 = 0; j0 < pairs; j0 += kColumnBlock) {
    const int32_t n = std::min(kColumnBlock, pairs - j0);
    fill_indices(columns, j0, n, sx, src_width / 2 - 1);
    for (int32_t i = 0; i < chroma_rows; ++i) {
      const int64_t row = source_index(sy, i, src_height / 2 - 1);
      const int64_t src_offset = (row * src_width) / 2;
      const uint8_t* su = src_u + src_offset;
      const uint8_t* sv = src_v + src_offset;
      if (interleave) {
        uint8_t* d = dst + dst_area + 2 * (static_cast<int64_t>(i) * pairs + j0);
        for (int32_t k = 0; k < n; ++k) {
          d[2 * k] = sv[columns[k]];
          d[2 * k + 1] = su[columns[k]];
        }
      } else {
        const int64_t dst_offset = (static_cast<int64_t>(i) * dst_width) / 2 + j0;
        uint8_t* du = dst + dst_area + dst_offset;
        uint8_t* dv = dst + (dst_area * 5) / 4 + dst_offset;
        for (int32_t k = 0; k < n; ++k) {
          du[k] = su[columns[k]];
          dv[k] = sv[columns[k]];
        }
      }
    }
  }
}

}  // namespace

extern "C" TAVO_HDR_EXPORT void image_resize(const uint8_t* src, uint8_t* dst, int32_t src_width,
                                             int32_t src_height, int32_t dst_width,
                                             int32_t dst_height, const char* layout) {
  if (dst_height < 1 || dst_width < 1) return;
  const float sx = static_cast<float>(src_width) / static_cast<float>(dst_width);
  const float sy = static_cast<float>(src_height) / static_cast<float>(dst_height);
  resize_luma(src, dst, src_width, src_height, dst_width, dst_height, sx, sy);
  if (dst_width < 2 || dst_height < 2) return;
  const bool interleave = layout != nullptr && strcmp(layout, "YVU420_SEMIPLANAR") == 0;
  resize_chroma(src, dst, src_width, src_height, dst_width, dst_height, sx, sy, interleave);
}
