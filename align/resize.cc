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

#include "align/align_rows.h"
#include "align/column_map.h"
#include "align/registration.h"
#include "include/tavo_lumo_hdr.h"
#include "platform/yuv420_frame.h"
#include "pool/band_jobs.h"

namespace {

// Destination columns are handled in blocks whose source columns are looked up
// once per block and kept (with their runs, about 64 KB): a band fills its
// maps once and reuses them for every chunk of rows it takes.
constexpr int32_t kColumnBlock = 4096;

using tavo::ColumnMap;
using tavo::source_index;

// A map over its own arrays, for blocks of up to kColumns columns; its map
// points into it, so it is never copied.
template <int32_t kColumns>
struct BlockMap {
  int32_t columns[kColumns];
  ColumnMap::Run runs[kColumns];
  ColumnMap map{columns, runs};
  BlockMap() = default;
  BlockMap(const BlockMap&) = delete;
  BlockMap& operator=(const BlockMap&) = delete;
};

// The maps a band keeps over its chunks, and the rows of the U and V samples
// of a destination chroma row before they are merged into V,U pairs.
struct ResizeScratch {
  BlockMap<kColumnBlock> luma, chroma;
  uint8_t u[kColumnBlock], v[kColumnBlock];
};

// Destination luma rows first ... end - 1.
void resize_luma(const uint8_t* src, uint8_t* dst, int32_t src_width, int32_t src_height,
                 int32_t dst_width, float sx, float sy, int32_t first, int32_t end, ColumnMap& map) {
  for (int32_t j0 = 0; j0 < dst_width; j0 += kColumnBlock) {
    map.fill(j0, std::min(kColumnBlock, dst_width - j0), sx, src_width - 1);
    for (int32_t i = first; i < end; ++i) {
      const int64_t row = source_index(sy, i, src_height - 1);
      map.copy(src + row * src_width, dst + static_cast<int64_t>(i) * dst_width + j0);
    }
  }
}

// Destination chroma rows first ... end - 1.
void resize_chroma(const uint8_t* src, uint8_t* dst, int32_t src_width, int32_t src_height,
                   int32_t dst_width, int32_t dst_height, float sx, float sy, tavo::MergePairsRowFn merge,
                   int32_t first, int32_t end, ResizeScratch& scratch) {
  const tavo::Yuv420Planes from = tavo::yuv420_planes(src_width, src_height);
  const tavo::Yuv420Planes to = tavo::yuv420_planes(dst_width, dst_height);
  const uint8_t* src_u = src + from.u_plane;
  const uint8_t* src_v = src + from.v_plane;
  const int32_t pairs = dst_width / 2;  // chroma columns of a destination row

  ColumnMap& map = scratch.chroma.map;
  for (int32_t j0 = 0; j0 < pairs; j0 += kColumnBlock) {
    const int32_t n = std::min(kColumnBlock, pairs - j0);
    map.fill(j0, n, sx, src_width / 2 - 1);
    for (int32_t i = first; i < end; ++i) {
      const int64_t row = source_index(sy, i, src_height / 2 - 1);
      const int64_t src_offset = (row * src_width) / 2;
      const uint8_t* su = src_u + src_offset;
      const uint8_t* sv = src_v + src_offset;
      if (merge != nullptr) {
        map.copy(su, scratch.u);
        map.copy(sv, scratch.v);
        merge(scratch.u, scratch.v, dst + to.vu_plane + 2 * (static_cast<int64_t>(i) * pairs + j0), n);
      } else {
        const int64_t dst_offset = (static_cast<int64_t>(i) * dst_width) / 2 + j0;
        map.copy(su, dst + to.u_plane + dst_offset);
        map.copy(sv, dst + to.v_plane + dst_offset);
      }
    }
  }
}

struct ResizeBand {
  const uint8_t* src;
  uint8_t* dst;
  int32_t src_width, src_height, dst_width, dst_height;
  float sx, sy;
  bool chroma;
  tavo::MergePairsRowFn merge;  // for V,U pairs; null for planar chroma
  tavo::RowChunks* chunks;      // of luma rows, which start on even rows
};

// The luma rows of every chunk the band takes and, when the frame has chroma,
// the chroma rows they hold.
int32_t resize_band_body(void* record) {
  const auto& a = tavo::band_payload<ResizeBand>(record);
  ResizeScratch scratch;
  int32_t first = 0, rows = 0;
  while (a.chunks->take(&first, &rows)) {
    resize_luma(a.src, a.dst, a.src_width, a.src_height, a.dst_width, a.sx, a.sy, first, first + rows, scratch.luma.map);
    if (a.chroma) {
      resize_chroma(a.src, a.dst, a.src_width, a.src_height, a.dst_width, a.dst_height, a.sx, a.sy, a.merge,
                    first / 2, std::min((first + rows) / 2, a.dst_height / 2), scratch);
    }
  }
  tavo::band_done(record);
  return 0;
}

}  // namespace

void tavo::resize_in_bands(const uint8_t* src, uint8_t* dst, int32_t src_width, int32_t src_height,
                           int32_t dst_width, int32_t dst_height, ChromaLayout layout) {
  if (dst_height < 1 || dst_width < 1) return;
  const float sx = static_cast<float>(src_width) / static_cast<float>(dst_width);
  const float sy = static_cast<float>(src_height) / static_cast<float>(dst_height);
  const bool chroma = dst_width >= 2 && dst_height >= 2;
  const MergePairsRowFn merge = layout == ChromaLayout::kSemiPlanar ? GetAlignRows().merge_pairs : nullptr;
  RowChunks chunks(dst_height);
  run_bands<ResizeBand>(kBandCount, resize_band_body, [&](int32_t, ResizeBand& a) {
    a = ResizeBand{src, dst, src_width, src_height, dst_width, dst_height, sx, sy, chroma, merge, &chunks};
  }, static_cast<int64_t>(dst_width) * dst_height);
}

extern "C" TAVO_HDR_EXPORT void image_resize(const uint8_t* src, uint8_t* dst, int32_t src_width,
                                             int32_t src_height, int32_t dst_width,
                                             int32_t dst_height, const char* layout) {
  if (dst_height < 1 || dst_width < 1) return;
  const float sx = static_cast<float>(src_width) / static_cast<float>(dst_width);
  const float sy = static_cast<float>(src_height) / static_cast<float>(dst_height);
  ResizeScratch scratch;
  resize_luma(src, dst, src_width, src_height, dst_width, sx, sy, 0, dst_height, scratch.luma.map);
  if (dst_width < 2 || dst_height < 2) return;
  const tavo::MergePairsRowFn merge =
      tavo::parse_layout(layout) == tavo::ChromaLayout::kSemiPlanar ? tavo::GetAlignRows().merge_pairs : nullptr;
  resize_chroma(src, dst, src_width, src_height, dst_width, dst_height, sx, sy, merge, 0, dst_height / 2, scratch);
}
