#include "align/crop_to_frame.h"

#include <cstring>
#include <utility>

#include "align/align_rows.h"
#include "pool/band_jobs.h"

namespace tavo {
namespace {

// starts[y] = the first destination row whose source row is y or more, for
// y = 0 ... src_rows: source row y goes to rows starts[y] ... starts[y+1]-1
// (the source index never decreases along the destination).
void fill_row_starts(int32_t* starts, int32_t src_rows, int32_t dst_rows, float scale) {
  int32_t i = 0;
  for (int32_t y = 0; y <= src_rows; ++y) {
    while (i < dst_rows && source_index(scale, i, src_rows - 1) < y) ++i;
    starts[y] = i;
  }
}

}  // namespace

size_t CropToFrame::bytes(int32_t crop_width, int32_t crop_height, int32_t width) {
  const auto columns = static_cast<size_t>(width) + static_cast<size_t>(width / 2);
  const auto rows = static_cast<size_t>(crop_height) + 1 + static_cast<size_t>(crop_height / 2) + 1;
  const size_t band_rows = static_cast<size_t>(kBandCount) * (static_cast<size_t>(crop_width) + static_cast<size_t>(width));
  return columns * (sizeof(int32_t) + sizeof(ColumnMap::Run)) + rows * sizeof(int32_t) + band_rows;
}

CropToFrame::CropToFrame(void* memory, int32_t crop_width, int32_t crop_height, int32_t width, int32_t height,
                         ChromaLayout layout, uint8_t* frame)
    : width_(width),
      pairs_(width / 2),
      crop_pairs_(crop_width / 2),
      frame_(frame),
      planes_(yuv420_planes(width, height)),
      pairs_layout_(layout == ChromaLayout::kSemiPlanar) {
  merge_ = GetAlignRows().merge_pairs;
  // The scales image_resize takes; rows and columns each their own.
  const float sx = static_cast<float>(crop_width) / static_cast<float>(width);
  const float sy = static_cast<float>(crop_height) / static_cast<float>(height);
  auto* ints = static_cast<int32_t*>(memory);
  luma_rows_ = ints;
  chroma_rows_ = luma_rows_ + crop_height + 1;
  luma_columns_.columns = chroma_rows_ + crop_height / 2 + 1;
  chroma_columns_.columns = luma_columns_.columns + width;
  luma_columns_.runs = reinterpret_cast<ColumnMap::Run*>(chroma_columns_.columns + pairs_);
  chroma_columns_.runs = luma_columns_.runs + width;
  band_rows_ = reinterpret_cast<uint8_t*>(chroma_columns_.runs + pairs_);
  fill_row_starts(luma_rows_, crop_height, height, sy);
  fill_row_starts(chroma_rows_, crop_height / 2, height / 2, sy);
  luma_columns_.fill(0, width, sx, crop_width - 1);
  chroma_columns_.fill(0, pairs_, sx, crop_width / 2 - 1);
}

void CropToFrame::luma_row(int32_t y, const uint8_t* row) const {
  const int32_t first = luma_rows_[y], end = luma_rows_[y + 1];
  if (first == end) return;
  uint8_t* dst = frame_ + static_cast<ptrdiff_t>(first) * width_;
  luma_columns_.copy(row, dst);
  for (int32_t i = first + 1; i < end; ++i) memcpy(frame_ + static_cast<ptrdiff_t>(i) * width_, dst, width_);
}

CropToFrame::ChromaRows CropToFrame::chroma_rows(int32_t band) const {
  uint8_t* u = band_rows_ + static_cast<ptrdiff_t>(band) * (2 * crop_pairs_ + width_);
  return ChromaRows{u, u + crop_pairs_, u + 2 * crop_pairs_};
}

void CropToFrame::chroma_row(int32_t r, int32_t band) const {
  const int32_t first = chroma_rows_[r], end = chroma_rows_[r + 1];
  if (first == end) return;
  const auto [u, v, scratch] = chroma_rows(band);
  if (pairs_layout_) {
    // Both planes' columns mapped, then merged into V,U pairs; a pair row
    // takes `width` bytes.
    chroma_columns_.copy(u, scratch);
    chroma_columns_.copy(v, scratch + pairs_);
    uint8_t* dst = frame_ + planes_.vu_plane + static_cast<ptrdiff_t>(first) * width_;
    merge_(scratch, scratch + pairs_, dst, pairs_);
    for (int32_t i = first + 1; i < end; ++i) memcpy(frame_ + planes_.vu_plane + static_cast<ptrdiff_t>(i) * width_, dst, width_);
    return;
  }
  for (const auto& [plane, src] : {std::pair{planes_.u_plane, u}, std::pair{planes_.v_plane, v}}) {
    uint8_t* dst = frame_ + plane + static_cast<ptrdiff_t>(first) * pairs_;
    chroma_columns_.copy(src, dst);
    for (int32_t i = first + 1; i < end; ++i) memcpy(frame_ + plane + static_cast<ptrdiff_t>(i) * pairs_, dst, pairs_);
  }
}

}  // namespace tavo
