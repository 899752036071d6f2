// Chroma fusion of the three frames into the planar chroma of the fused crop,
// from planar (U plane, V plane) or semi-planar (V,U pairs) sources. Each frame
// is read through its own crop origin, halved to chroma resolution.
#include "chroma/chroma_fusion.h"

#include "align/crop_to_frame.h"
#include "chroma/chroma_rows.h"
#include "include/tavo_lumo_hdr.h"
#include "platform/log.h"
#include "platform/yuv420_frame.h"
#include "pool/band_jobs.h"

namespace tavo {

namespace {

// `rows` planar rows of `width` samples, frame f's row y at src[f] + y * src_stride.
// Source rows first ... first + rows - 1; out points at the first one's row.
void plane_rows(const uint8_t* const* src, int32_t frames, ptrdiff_t src_stride, uint8_t* out, int32_t width,
                int32_t rows, const ChromaWeights& weights, ChromaRowFn fuse, int32_t first = 0) {
  if (width < 1) return;
  for (int32_t y = 0; y < rows; ++y) {
    fuse(ChromaRowArgs{src, &weights, (first + y) * src_stride, frames}, out + static_cast<ptrdiff_t>(y) * width,
         width);
  }
}

// `rows` rows of `pairs` V,U pairs from the frames into out_u and out_v.
void pair_rows(const uint8_t* const* src, ptrdiff_t src_stride, uint8_t* out_u, uint8_t* out_v, int32_t pairs,
               int32_t rows, const ChromaWeights& weights, ChromaPairRowFn fuse, int32_t first = 0) {
  if (pairs < 1) return;
  for (int32_t y = 0; y < rows; ++y) {
    const ptrdiff_t at = static_cast<ptrdiff_t>(y) * pairs;
    fuse(ChromaRowArgs{src, &weights, (first + y) * src_stride, kChromaFrames}, out_u + at, out_v + at, pairs);
  }
}

}  // namespace

void fuse_chroma_plane(const uint8_t* const* src, int32_t frames, ptrdiff_t src_stride,
                       uint8_t* out, const uint16_t* lut, int32_t width, int32_t rows) {
  if (rows < 1 || width < 1) return;
  ChromaWeights weights;
  build_chroma_weights(lut, frames, &weights);
  plane_rows(src, frames, src_stride, out, width, rows, weights, GetChromaRows().plane);
}

namespace {

// The sources and outputs at chroma row 0; the bands of a batch take the
// rows in chunks.
struct PlaneBand {
  const uint8_t* u[kChromaFrames];
  const uint8_t* v[kChromaFrames];
  uint8_t* out_u;
  uint8_t* out_v;
  const ChromaWeights* weights;
  ChromaRowFn fuse;
  int32_t src_stride;
  int32_t width;
  RowChunks* chunks;
  const CropToFrame* frame;  // when set, rows go to the frame instead of out_u, out_v
};

struct PairBand {
  const uint8_t* src[kChromaFrames];
  uint8_t* out_u;
  uint8_t* out_v;
  const ChromaWeights* weights;
  ChromaPairRowFn fuse;
  int32_t src_stride;
  int32_t pairs;
  RowChunks* chunks;
  const CropToFrame* frame;  // when set, rows go to the frame instead of out_u, out_v
};

// Everything a band dereferences must exist; the message names what the
// caller gave.
bool frames_present(const uint8_t* const* frames, const int32_t* crop, const char* caller) {
  if (crop == nullptr) {
    HDR_LOG_AS(__LINE__, caller, "crop origins are NULL, chroma not fused\n");
    return false;
  }
  for (int f = 0; f < kChromaFrames; ++f) {
    if (frames[f] == nullptr) {
      HDR_LOG_AS(__LINE__, caller, "frame %d is NULL, chroma not fused\n", f);
      return false;
    }
  }
  return true;
}

}  // namespace
}  // namespace tavo

// One chroma plane of `rows` rows: three source planes of stride src_stride
// into out of stride width.
extern "C" TAVO_HDR_EXPORT uint32_t fusionUV_plane(const uint8_t** src, uint8_t* out,
                                                   const uint16_t* lut, int32_t src_stride,
                                                   int32_t width, int32_t rows) {
  tavo::fuse_chroma_plane(src, tavo::kChromaFrames, src_stride, out, lut, width, rows);
  return 0;
}

// V,U pair rows of stride src_stride into the planes out_u and out_v, both of
// stride `pairs`.
extern "C" TAVO_HDR_EXPORT uint32_t fusionUV_semiplane(const uint8_t** src, uint8_t* out_u,
                                                       uint8_t* out_v, const uint16_t* lut,
                                                       int32_t src_stride, int32_t pairs,
                                                       int32_t rows) {
  if (rows < 1 || pairs < 1) return 0;
  tavo::ChromaWeights weights;
  tavo::build_chroma_weights(lut, tavo::kChromaFrames, &weights);
  tavo::pair_rows(src, src_stride, out_u, out_v, pairs, rows, weights, tavo::GetChromaRows().pairs);
  return 0;
}

extern "C" TAVO_HDR_EXPORT int32_t fusionUV_plane_parameter(void* record) {
  auto& a = tavo::band_payload<tavo::PlaneBand>(record);
  const int32_t band = static_cast<band_record*>(record)->band;
  int32_t first = 0, rows = 0;
  while (a.chunks->take(&first, &rows)) {
    const ptrdiff_t in_at = static_cast<ptrdiff_t>(first) * a.src_stride;
    const ptrdiff_t out_at = static_cast<ptrdiff_t>(first) * a.width;
    const uint8_t* u[tavo::kChromaFrames];
    const uint8_t* v[tavo::kChromaFrames];
    for (int f = 0; f < tavo::kChromaFrames; ++f) u[f] = a.u[f] + in_at, v[f] = a.v[f] + in_at;
    if (a.frame != nullptr) {
      const tavo::CropToFrame::ChromaRows to = a.frame->chroma_rows(band);
      for (int32_t y = 0; y < rows; ++y) {
        tavo::plane_rows(u, tavo::kChromaFrames, a.src_stride, to.u, a.width, 1, *a.weights, a.fuse, y);
        tavo::plane_rows(v, tavo::kChromaFrames, a.src_stride, to.v, a.width, 1, *a.weights, a.fuse, y);
        a.frame->chroma_row(first + y, band);
      }
      continue;
    }
    tavo::plane_rows(u, tavo::kChromaFrames, a.src_stride, a.out_u + out_at, a.width, rows, *a.weights, a.fuse);
    tavo::plane_rows(v, tavo::kChromaFrames, a.src_stride, a.out_v + out_at, a.width, rows, *a.weights, a.fuse);
  }
  tavo::band_done(record);
  return 0;
}

extern "C" TAVO_HDR_EXPORT int32_t fusionUV_semiplane_parameter(void* record) {
  auto& a = tavo::band_payload<tavo::PairBand>(record);
  const int32_t band = static_cast<band_record*>(record)->band;
  int32_t first = 0, rows = 0;
  while (a.chunks->take(&first, &rows)) {
    const ptrdiff_t in_at = static_cast<ptrdiff_t>(first) * a.src_stride;
    const ptrdiff_t out_at = static_cast<ptrdiff_t>(first) * a.pairs;
    const uint8_t* src[tavo::kChromaFrames];
    for (int f = 0; f < tavo::kChromaFrames; ++f) src[f] = a.src[f] + in_at;
    if (a.frame != nullptr) {
      const tavo::CropToFrame::ChromaRows to = a.frame->chroma_rows(band);
      for (int32_t y = 0; y < rows; ++y) {
        tavo::pair_rows(src, a.src_stride, to.u, to.v, a.pairs, 1, *a.weights, a.fuse, y);
        a.frame->chroma_row(first + y, band);
      }
      continue;
    }
    tavo::pair_rows(src, a.src_stride, a.out_u + out_at, a.out_v + out_at, a.pairs, rows, *a.weights, a.fuse);
  }
  tavo::band_done(record);
  return 0;
}

namespace tavo {

void fuse_planar_chroma(const uint8_t* const* frames, uint8_t* out_u, uint8_t* out_v, const uint16_t* lut,
                        int32_t src_stride, int32_t src_rows, int32_t width, int32_t rows, const int32_t* crop,
                        const CropToFrame* frame) {
  const Yuv420Planes planes = yuv420_planes(2 * static_cast<int64_t>(src_stride), 2 * static_cast<int64_t>(src_rows));
  ChromaWeights weights;
  build_chroma_weights(lut, kChromaFrames, &weights);
  const ChromaRowFn fuse = GetChromaRows().plane;
  RowChunks chunks(rows);
  run_bands<PlaneBand>(kBandCount, fusionUV_plane_parameter, [&](int32_t, PlaneBand& a) {
    for (int f = 0; f < kChromaFrames; ++f) {
      const int64_t row_start = static_cast<int64_t>(crop[2 * f + 1] / 2) * src_stride + crop[2 * f] / 2;
      a.u[f] = frames[f] + planes.u_plane + row_start;
      a.v[f] = frames[f] + planes.v_plane + row_start;
    }
    a.out_u = out_u;
    a.out_v = out_v;
    a.weights = &weights;
    a.fuse = fuse;
    a.src_stride = src_stride;
    a.width = width;
    a.chunks = &chunks;
    a.frame = frame;
  });
}

void fuse_pair_chroma(const uint8_t* const* frames, uint8_t* out_u, uint8_t* out_v, const uint16_t* lut,
                      int32_t src_stride, int32_t src_height, int32_t out_width, int32_t rows, const int32_t* crop,
                      const CropToFrame* frame) {
  const int64_t pair_plane = yuv420_planes(src_stride, src_height).vu_plane;
  ChromaWeights weights;
  build_chroma_weights(lut, kChromaFrames, &weights);
  const ChromaPairRowFn fuse = GetChromaRows().pairs;
  RowChunks chunks(rows);
  run_bands<PairBand>(kBandCount, fusionUV_semiplane_parameter, [&](int32_t, PairBand& a) {
    for (int f = 0; f < kChromaFrames; ++f) {
      a.src[f] = frames[f] + pair_plane + static_cast<int64_t>(crop[2 * f + 1] / 2) * src_stride + crop[2 * f];
    }
    a.out_u = out_u;
    a.out_v = out_v;
    a.weights = &weights;
    a.fuse = fuse;
    a.src_stride = src_stride;
    a.pairs = out_width / 2;
    a.chunks = &chunks;
    a.frame = frame;
  });
}

}  // namespace tavo

// Planar sources of Ws x Hs = (2*src_stride) x (2*src_rows): U plane at byte
// Ws*Hs, V plane at Ws*Hs*5/4. Frame f's chroma row r starts at
// (r + yf/2) * src_stride + xf/2 in each plane. Four bands take the rows in
// chunks.
extern "C" TAVO_HDR_EXPORT uint32_t fusionUV_plane_process(const uint8_t* const* frames,
                                                           uint8_t* out_u, uint8_t* out_v,
                                                           const uint16_t* lut, int32_t src_stride,
                                                           int32_t src_rows, int32_t width,
                                                           int32_t rows, const int32_t* crop) {
  using tavo::platform::log_hex;
  if (frames == nullptr || out_u == nullptr || out_v == nullptr || lut == nullptr) {
    HDR_LOG_AS(930, "fusionUV_plane_process", "in_buffer is NULL,0x%x,0x%x,0x%x,0x%x\n",
               log_hex(frames), log_hex(out_u), log_hex(out_v), log_hex(lut));
    return 0;
  }
  if (!tavo::frames_present(frames, crop, "fusionUV_plane_process")) return 0;
  tavo::fuse_planar_chroma(frames, out_u, out_v, lut, src_stride, src_rows, width, rows, crop, nullptr);
  return 0;
}

// Semi-planar sources of Ws x Hs = src_stride x src_height: V,U pair rows of Ws
// bytes from byte Ws*Hs. Frame f's chroma row r starts at (r + yf/2) * Ws + xf
// (an odd xf starts inside a pair and swaps the bytes' roles for that frame).
// The output planes have out_width/2 samples per row.
extern "C" TAVO_HDR_EXPORT uint32_t fusionUV_semiplane_process(const uint8_t* const* frames,
                                                               uint8_t* out_u, uint8_t* out_v,
                                                               const uint16_t* lut,
                                                               int32_t src_stride,
                                                               int32_t src_height,
                                                               int32_t out_width, int32_t rows,
                                                               const int32_t* crop) {
  using tavo::platform::log_hex;
  if (frames == nullptr || out_u == nullptr || out_v == nullptr || lut == nullptr) {
    HDR_LOG_AS(992, "fusionUV_semiplane_process", "in_buffer is NULL,0x%x,0x%x,0x%x,0x%x\n",
               log_hex(frames), log_hex(out_u), log_hex(out_v), log_hex(lut));
    return 0;
  }
  if (!tavo::frames_present(frames, crop, "fusionUV_semiplane_process")) return 0;
  tavo::fuse_pair_chroma(frames, out_u, out_v, lut, src_stride, src_height, out_width, rows, crop, nullptr);
  return 0;
}
