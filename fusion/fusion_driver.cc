// The fusion of a capture: builds each frame's Gaussian pyramid from its crop,
// blends the top level, then streams the blend and collapse of every lower
// level down to the output luma (fusion/streamed_fusion.h), and fuses the
// chroma. Every stage runs in bands on the worker pool; the stages run one
// after another.
#include "chroma/chroma_fusion.h"
#include "fusion/fusion_weights.h"
#include "fusion/pyramid_geometry.h"
#include "fusion/pyramid_stages.h"
#include "fusion/streamed_fusion.h"
#include "include/tavo_lumo_hdr.h"
#include "platform/log.h"
#include "platform/memory.h"
#include "platform/yuv420_frame.h"
#include "pool/library_lock.h"

namespace tavo {
namespace {

// Level-pointer tables and levels carved out of the block.
struct FusionPyramids {
  uint16_t*** gauss;   // per frame: its Gaussian level table
  int16_t*** lap;      // per frame: its Laplacian level table
  uint8_t** scratch;   // 8-bit scratch levels 0 ... L-2 (reserved, unused)
  int16_t** fused;     // the fused pyramid's level table
  uint8_t* stored;     // the levels the streamed fusion writes, in one run
  size_t stored_bytes;
};

// Pointer tables first (aligned), then the levels the streamed fusion stores:
// every frame's Gaussian levels 1 and up (frame 0's level 1 at
// `frame0_level1` instead, when given), then the fused (collapsed) levels
// above those it makes on demand. Then the levels it never touches, whose
// pages are never mapped: the fused levels made on demand, every frame's
// Gaussian level 0 and Laplacian levels, the fused level 0, the 8-bit scratch
// levels.
FusionPyramids carve_block(void* block, uint32_t frames, uint32_t levels, uint32_t on_demand,
                           const int32_t* widths, const int32_t* heights, uint8_t* frame0_level1) {
  void** pointers = static_cast<void**>(block);
  FusionPyramids p{};
  p.gauss = reinterpret_cast<uint16_t***>(pointers);
  pointers += frames;
  p.lap = reinterpret_cast<int16_t***>(pointers);
  pointers += frames;
  p.scratch = reinterpret_cast<uint8_t**>(pointers);
  pointers += levels - 1;
  p.fused = reinterpret_cast<int16_t**>(pointers);
  pointers += levels;
  for (uint32_t i = 0; i < frames; ++i) {
    p.gauss[i] = reinterpret_cast<uint16_t**>(pointers);
    pointers += levels;
    p.lap[i] = reinterpret_cast<int16_t**>(pointers);
    pointers += levels;
  }
  auto* data = reinterpret_cast<uint8_t*>(pointers);
  auto level_bytes = [&](uint32_t l) {
    return static_cast<size_t>(widths[l]) * static_cast<size_t>(heights[l]);
  };
  auto take16 = [&](uint32_t l) {
    uint8_t* at = data;
    data += 2 * level_bytes(l);
    return at;
  };
  p.stored = data;
  for (uint32_t i = 0; i < frames; ++i) {
    for (uint32_t l = 1; l < levels; ++l) {
      const bool elsewhere = i == 0 && l == 1 && frame0_level1 != nullptr;
      p.gauss[i][l] = reinterpret_cast<uint16_t*>(elsewhere ? frame0_level1 : take16(l));
    }
  }
  for (uint32_t l = on_demand + 1; l < levels; ++l) p.fused[l] = reinterpret_cast<int16_t*>(take16(l));
  p.stored_bytes = static_cast<size_t>(data - p.stored);
  for (uint32_t l = 1; l <= on_demand; ++l) p.fused[l] = reinterpret_cast<int16_t*>(take16(l));
  for (uint32_t i = 0; i < frames; ++i) {
    p.gauss[i][0] = reinterpret_cast<uint16_t*>(take16(0));
    for (uint32_t l = 0; l < levels; ++l) p.lap[i][l] = reinterpret_cast<int16_t*>(take16(l));
  }
  p.fused[0] = reinterpret_cast<int16_t*>(take16(0));
  for (uint32_t l = 0; l + 1 < levels; ++l) {
    p.scratch[l] = data;
    data += level_bytes(l);
  }
  return p;
}

// The fusion logs under the name of its exported entry point.
constexpr const char* kLogName = "pyrFuse";

}  // namespace
}  // namespace tavo

int32_t tavo::fuse_crop(const uint8_t* const* frames, uint32_t frame_count, uint32_t stride, uint32_t frame_height,
                        int32_t width, int32_t height, const int32_t* offsets, uint8_t* out, const char* layout,
                        const CropToFrame* frame) {
  using tavo::platform::mem_alloc;
  using tavo::platform::mem_free;

  const tavo::LibraryLock hold;
  const uint8_t levels = tavo::pyramid_level_count(width, height);
  if (frames == nullptr || offsets == nullptr || out == nullptr || layout == nullptr ||
      frame_count < 1 || levels < 1) {
    HDR_LOG_AS(__LINE__, kLogName, "pyrFuse input error: %u frames, crop %dx%d\n", frame_count, width, height);
    return -1;
  }
  // The chroma of the two known layouts is fused from exactly three frames.
  const tavo::ChromaLayout chroma_layout = tavo::parse_layout(layout);
  if (chroma_layout != tavo::ChromaLayout::kOther && frame_count < tavo::kChromaFrames) {
    HDR_LOG_AS(__LINE__, kLogName, "pyrFuse input error: the chroma of %s is fused from %d frames, %u given\n", layout,
            tavo::kChromaFrames, frame_count);
    return -1;
  }
  for (uint32_t i = 0; i < frame_count; ++i) {
    if (frames[i] == nullptr) {
      HDR_LOG_AS(__LINE__, kLogName, "pyrFuse input error: frame %u is NULL\n", i);
      return -1;
    }
  }

  uint16_t exposure_weight_lut[tavo::kWeightTableSize];
  uint16_t chroma_weight_lut[tavo::kWeightTableSize];
  tavo::build_fusion_weight_tables(exposure_weight_lut, chroma_weight_lut);

  auto* w_pyramid_y = static_cast<int32_t*>(mem_alloc(sizeof(int32_t) * levels));
  auto* h_pyramid_y = static_cast<int32_t*>(mem_alloc(sizeof(int32_t) * levels));
  if (w_pyramid_y == nullptr || h_pyramid_y == nullptr) {
    HDR_LOG_AS(106, kLogName, "w_pyramid_y||h_pyramid_y malloc error");
    mem_free(w_pyramid_y);
    mem_free(h_pyramid_y);
    return -1;
  }
  tavo::fill_pyramid_sizes(w_pyramid_y, h_pyramid_y, width, height, levels);

  const tavo::PyramidBlockGeometry geometry =
      tavo::pyramid_block_geometry(frame_count, w_pyramid_y, h_pyramid_y, levels);
  void* block = nullptr;
  if (tavo::pyramid_block_bytes_32(geometry) <= UINT32_MAX) {
    block = mem_alloc(tavo::pyramid_block_bytes(geometry, sizeof(void*)));
  }
  auto release = [&]() {
    mem_free(w_pyramid_y);
    mem_free(h_pyramid_y);
    mem_free(block);
  };
  if (block == nullptr) {
    HDR_LOG_AS(137, kLogName, "mem malloc fail.\n");
    release();
    return -1;
  }
  // The chroma of an even crop takes W x H / 2 bytes of `out`, as many as one
  // frame's Gaussian level 1, and is written only after the last read of that
  // level: frame 0's level 1 lives there instead of in the block.
  const tavo::Yuv420Planes planes = tavo::yuv420_planes(width, height);
  const bool level1_in_chroma = levels >= 2 && chroma_layout != tavo::ChromaLayout::kOther && width % 2 == 0 &&
                                height % 2 == 0;
  const int32_t on_demand = tavo::collapsed_levels_on_demand(levels);
  const tavo::FusionPyramids pyr =
      tavo::carve_block(block, frame_count, levels, static_cast<uint32_t>(on_demand), w_pyramid_y, h_pyramid_y,
                        level1_in_chroma ? out + planes.u_plane : nullptr);
  const uint32_t top = levels - 1u;
  tavo::platform::advise_huge_pages(pyr.stored, pyr.stored_bytes);

  // A crop of fewer than two levels has no collapse: its luma is left as it
  // was, only its chroma is fused.
  if (levels >= 2) {
    const auto count = static_cast<int32_t>(frame_count);
    int32_t status = tavo::gaussian_level1_from_crops(frames, count, stride, offsets, pyr.gauss,
                                                      w_pyramid_y, h_pyramid_y);
    for (uint32_t l = 1; l < top && status == 0; ++l) {
      status = tavo::gaussian_reduce_level(pyr.gauss, count, l, w_pyramid_y, h_pyramid_y, true);
    }
    if (status != 0) {
      HDR_LOG_AS(251, kLogName, "pyramid_gaussian_down_sample_uint8_process malloc error and return -1\n");
      release();
      return -1;
    }
    // The top band-pass level of each frame is its Gaussian top itself.
    for (uint32_t i = 0; i < frame_count; ++i) pyr.lap[i][top] = reinterpret_cast<int16_t*>(pyr.gauss[i][top]);
    if (tavo::blend_level(pyr.fused, exposure_weight_lut, pyr.lap, pyr.gauss, w_pyramid_y, h_pyramid_y,
                          static_cast<int32_t>(top), frame_count) != 0) {
      HDR_LOG_AS(__LINE__, kLogName, "fusion_pyramid_process could not blend level %u, fusion stopped\n", top);
      release();
      return -1;
    }
    for (int32_t l = static_cast<int32_t>(top) - 1; l >= 0; --l) {
      if (l >= 1 && l <= on_demand) continue;  // made within the pass of level 0
      const tavo::StreamedLevel level{static_cast<int32_t>(frame_count), frames, stride, offsets,
                                      pyr.gauss, pyr.fused, exposure_weight_lut, w_pyramid_y,
                                      h_pyramid_y, l, out, frame, l == 0 ? on_demand : 0};
      const int32_t status = tavo::fuse_and_collapse_level(level);
      if (status == tavo::kBandPassFailed) {
        HDR_LOG_AS(269, kLogName, "pyramid_laplacian_down_sample_process malloc error and return -1\n");
      } else if (status == tavo::kBlendFailed) {
        HDR_LOG_AS(__LINE__, kLogName, "fusion_pyramid_process could not blend level %d, fusion stopped\n", l);
      } else if (status != 0) {
        HDR_LOG_AS(385, kLogName, "pyramid_reconstruct_y_process malloc error and return -1\n");
      }
      if (status != 0) {
        release();
        return -1;
      }
    }
  }

  // Chroma, always written as planes: U after the luma, V after U.
  uint8_t* out_u = out + planes.u_plane;
  uint8_t* out_v = out + planes.v_plane;
  if (chroma_layout == tavo::ChromaLayout::kSemiPlanar) {
    tavo::fuse_pair_chroma(frames, out_u, out_v, chroma_weight_lut, static_cast<int32_t>(stride),
                           static_cast<int32_t>(frame_height), width, height / 2, offsets, frame);
  } else if (chroma_layout == tavo::ChromaLayout::kPlanar) {
    tavo::fuse_planar_chroma(frames, out_u, out_v, chroma_weight_lut, static_cast<int32_t>(stride) / 2,
                             static_cast<int32_t>(frame_height) / 2, width / 2, height / 2, offsets, frame);
  } else {
    HDR_LOG_AS(__LINE__, kLogName, "layout %s is neither YUV420_PLANAR nor YVU420_SEMIPLANAR, chroma not fused\n", layout);
  }

  release();
  return 0;
}

extern "C" TAVO_HDR_EXPORT int32_t pyrFuse(const uint8_t* const* frames, uint32_t frame_count,
                                           uint32_t stride, uint32_t frame_height, int32_t width,
                                           int32_t height, const int32_t* offsets, uint8_t* out,
                                           const char* layout) {
  return tavo::fuse_crop(frames, frame_count, stride, frame_height, width, height, offsets, out, layout, nullptr);
}
