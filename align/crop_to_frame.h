// The resize of a fused crop back to the full frame, a crop row at a time: a
// pass that makes the crop's rows hands each one over as soon as it is made,
// while it is still in cache, and it lands in every frame row that takes it.
// The frame gets the bytes image_resize gives from the whole crop, whatever
// order the rows come in.
#pragma once

#include <cstddef>
#include <cstdint>

#include "align/column_map.h"
#include "align/warp_rows.h"
#include "platform/yuv420_frame.h"

namespace tavo {

class CropToFrame {
 public:
  // Bytes of the maps of a crop and a frame (the source column of every frame
  // column and the frame rows of every crop row, for luma and chroma) and of
  // every band's chroma rows.
  static size_t bytes(int32_t crop_width, int32_t crop_height, int32_t width);

  // The maps of a crop (even sides) and a frame (W x H, W even, H at least 2)
  // laid out in `memory` (bytes(), aligned for int32_t); the frame's chroma
  // in `layout` (planar or V,U pairs).
  CropToFrame(void* memory, int32_t crop_width, int32_t crop_height, int32_t width, int32_t height,
              ChromaLayout layout, uint8_t* frame);

  // Crop luma row y (crop_width samples) into its frame rows.
  void luma_row(int32_t y, const uint8_t* row) const;

  // Band b's chroma rows: a U row and a V row of the crop, then room for the
  // frame's columns of both.
  struct ChromaRows {
    uint8_t *u, *v, *columns;
  };
  ChromaRows chroma_rows(int32_t band) const;

  // Crop chroma row r, in band b's U and V rows, into its frame rows.
  void chroma_row(int32_t r, int32_t band) const;

 private:
  int32_t width_, pairs_, crop_pairs_;
  uint8_t* frame_;
  uint8_t* band_rows_;  // kBandCount x (crop_width + width) bytes
  MergePairsRowFn merge_;
  Yuv420Planes planes_;
  bool pairs_layout_;
  ColumnMap luma_columns_{}, chroma_columns_{};
  int32_t* luma_rows_;    // crop row y: frame rows luma_rows_[y] ... luma_rows_[y + 1] - 1
  int32_t* chroma_rows_;  // the same for chroma rows
};

}  // namespace tavo
