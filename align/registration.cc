#include "align/registration.h"

#include <cstddef>
#include <cstdint>
#include <limits>

#include "align/crop_window.h"
#include "align/exposure_shift.h"
#include "include/tavo_lumo_hdr.h"
#include "platform/log.h"
#include "platform/memory.h"

namespace tavo {
namespace {

// The six planes of every level, in their order inside a level.
enum Plane { kRefApprox, kMovingApprox, kRefMask, kRefBitmap, kMovingBitmap, kMovingMask, kPlanes };

// Frees what it holds when the registration returns, whichever way.
struct HeapBlock {
  void* ptr = nullptr;
  HeapBlock() = default;
  HeapBlock(const HeapBlock&) = delete;
  HeapBlock& operator=(const HeapBlock&) = delete;
  ~HeapBlock() { platform::mem_free(ptr); }
};

// Bytes of the work block: six tables of `levels` plane pointers, then six
// planes per level, level 0 included. 0 when the size does not fit a size_t.
size_t work_block_size(const int32_t* widths, const int32_t* heights, int32_t levels) {
  constexpr size_t kMax = std::numeric_limits<size_t>::max();
  size_t planes = 0;
  for (int32_t k = 0; k < levels; ++k) {
    if (widths[k] < 0 || heights[k] < 0) return 0;
    const auto w = static_cast<size_t>(widths[k]), h = static_cast<size_t>(heights[k]);
    if (h != 0 && w > kMax / h) return 0;
    const size_t area = w * h;
    if (area > (kMax - planes) / kPlanes) return 0;
    planes += kPlanes * area;
  }
  const size_t tables = kPlanes * static_cast<size_t>(levels) * sizeof(uint8_t*);
  if (planes > kMax - tables) return 0;
  return tables + planes;
}

// A frame's source and its level planes, indexed by level.
struct WaveletPlanes {
  const uint8_t* luma;
  uint8_t* const* approx;
  uint8_t* const* bitmap;
  uint8_t* const* mask;
  int32_t threshold;
};

// Levels 1 ... levels - 1 of `count` frames, one batch a level, levels 1 and 2
// in one batch whose scratch rows are the first rows of `scratch`, a level-1
// plane (with three levels or more, level 1 has at least 33 rows).
void decompose_levels(const WaveletPlanes* frames, int32_t count, int32_t levels, const int32_t* widths,
                      const int32_t* heights, uint8_t* scratch) {
  WaveletTarget upper[kMaxDecompositions], lower[kMaxDecompositions];
  auto target = [&](const WaveletPlanes& p, int32_t k) {
    return WaveletTarget{k == 0 ? p.luma : p.approx[k], p.approx[k + 1], p.bitmap[k + 1], p.mask[k + 1],
                         p.threshold};
  };
  int32_t k = 0;
  if (levels > 2) {
    for (int32_t f = 0; f < count; ++f) {
      upper[f] = target(frames[f], 0);
      lower[f] = target(frames[f], 1);
    }
    decompose_two_levels(upper, lower, count, widths[0], heights[0], scratch);
    k = 2;
  }
  for (; k + 1 < levels; ++k) {
    for (int32_t f = 0; f < count; ++f) upper[f] = target(frames[f], k);
    decompose_level(upper, count, widths[k], heights[k]);
  }
}

}  // namespace

int32_t register_frames(const uint8_t* const* frames, int32_t width, int32_t height,
                        CropWindow* window) {
  const int32_t levels = registration_level_count(width, height);

  HeapBlock widths_block, heights_block;
  widths_block.ptr = platform::mem_alloc(sizeof(int32_t) * levels);
  heights_block.ptr = platform::mem_alloc(sizeof(int32_t) * levels);
  auto* widths = static_cast<int32_t*>(widths_block.ptr);
  auto* heights = static_cast<int32_t*>(heights_block.ptr);
  if (widths == nullptr || heights == nullptr) {
    HDR_LOG_AS(__LINE__, "GetAlignImg", "lyerW||lyerH malloc error");
    return -1;
  }
  widths[0] = width;
  heights[0] = height;
  for (int32_t k = 1; k < levels; ++k) {
    widths[k] = half_up(widths[k - 1]);
    heights[k] = half_up(heights[k - 1]);
  }

  // One block: the six pointer tables, then level after level its six planes.
  // Level 0's planes are laid out too, so that every table is indexed by level
  // from 0; nothing touches them. Nor are the approximations of level 1
  // stored: they pass from level 0 to level 2 through a few rows of scratch,
  // the first rows of the reference's level-1 approximation plane. Pages never
  // touched are never mapped.
  const size_t block_size = work_block_size(widths, heights, levels);
  HeapBlock work;
  if (block_size != 0) work.ptr = platform::mem_alloc(block_size);
  if (work.ptr == nullptr) {
    HDR_LOG_AS(__LINE__, "GetAlignImg", "mem malloc fail.\n");
    return -1;
  }
  uint8_t** tables[kPlanes];
  for (int32_t t = 0; t < kPlanes; ++t) tables[t] = static_cast<uint8_t**>(work.ptr) + t * levels;
  uint8_t* next = reinterpret_cast<uint8_t*>(tables[kPlanes - 1] + levels);
  for (int32_t k = 0; k < levels; ++k) {
    const size_t area = static_cast<size_t>(widths[k]) * static_cast<size_t>(heights[k]);
    for (int32_t t = 0; t < kPlanes; ++t, next += area) tables[t][k] = next;
  }
  if (levels > 1) {
    uint8_t* first_filled = levels > 2 ? tables[kRefMask][1] : tables[kRefApprox][1];
    platform::advise_huge_pages(first_filled, static_cast<size_t>(next - first_filled));
  }

  uint8_t thresholds[3] = {0, 0, 0};
  frame_thresholds(frames, width, height, thresholds);

  // The reference's levels and frame 0's in the moving planes, frame 0
  // searched; then frame 2's levels in the same moving planes, frame 2
  // searched. Each frame is thresholded at its own value.
  int16_t shifts[2][2] = {};
  const MovingLevels moving{tables[kMovingBitmap], tables[kMovingMask]};
  const WaveletPlanes ref_planes{frames[1], tables[kRefApprox], tables[kRefBitmap], tables[kRefMask], thresholds[1]};
  for (int32_t f = 0; f < 2; ++f) {
    const int32_t frame = f == 0 ? 0 : 2;
    const WaveletPlanes planes[2] = {
        {frames[frame], tables[kMovingApprox], tables[kMovingBitmap], tables[kMovingMask], thresholds[frame]},
        ref_planes};
    decompose_levels(planes, f == 0 ? 2 : 1, levels, widths, heights, tables[kRefApprox][1]);
    search_shifts(&moving, 1, tables[kRefBitmap], tables[kRefMask], static_cast<uint32_t>(levels), widths,
                  heights, &shifts[f]);
  }

  // Level-1 pixels to full resolution, kept in 16 bits.
  for (auto& shift : shifts) {
    shift[0] = static_cast<int16_t>(2 * shift[0]);
    shift[1] = static_cast<int16_t>(2 * shift[1]);
  }
  const CropRect rect =
      crop_window_from_shifts(width, height, shifts[0][0], shifts[0][1], shifts[1][0], shifts[1][1]);
  window->width = rect.width;
  window->height = rect.height;
  for (int32_t i = 0; i < 6; ++i) window->origins[i] = rect.origins[i];
  window->shift0[0] = shifts[0][0];
  window->shift0[1] = shifts[0][1];
  window->shift2[0] = shifts[1][0];
  window->shift2[1] = shifts[1][1];
  return 0;
}

}  // namespace tavo
