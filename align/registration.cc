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

// Levels of the largest frame a capture takes (a smaller side of 2^31 - 1).
constexpr int32_t kMaxRegistrationLevels = 32;

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
  // from 0; nothing reads or writes them as such. The moving planes of levels
  // 1 and up serve frame 0; frame 2's, searched beside it, are carved out of
  // the room of level 0's planes, which holds them three times over.
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
  uint8_t* frame2_planes[3][kMaxRegistrationLevels] = {};  // approximation, bitmap, mask
  uint8_t* carved = tables[0][0];
  for (int32_t k = 1; k < levels; ++k) {
    const size_t area = static_cast<size_t>(widths[k]) * static_cast<size_t>(heights[k]);
    for (auto& plane : frame2_planes) {
      plane[k] = carved;
      carved += area;
    }
  }
  // Levels 1 and up and frame 2's planes are filled at once; the rest of
  // level 0 is never touched.
  platform::advise_huge_pages(tables[0][0], static_cast<size_t>(carved - tables[0][0]));
  if (levels > 1) platform::advise_huge_pages(tables[0][1], static_cast<size_t>(next - tables[0][1]));

  uint8_t thresholds[3] = {0, 0, 0};
  frame_thresholds(frames, width, height, thresholds);

  // Every frame's levels, each thresholded at its own value, one batch a
  // level: the reference's, frame 0's in the moving planes, frame 2's in its
  // own. Then both moving frames searched together.
  for (int32_t k = 0; k + 1 < levels; ++k) {
    const WaveletTarget targets[3] = {
        {k == 0 ? frames[1] : tables[kRefApprox][k], tables[kRefApprox][k + 1], tables[kRefBitmap][k + 1],
         tables[kRefMask][k + 1], thresholds[1]},
        {k == 0 ? frames[0] : tables[kMovingApprox][k], tables[kMovingApprox][k + 1],
         tables[kMovingBitmap][k + 1], tables[kMovingMask][k + 1], thresholds[0]},
        {k == 0 ? frames[2] : frame2_planes[0][k], frame2_planes[0][k + 1], frame2_planes[1][k + 1],
         frame2_planes[2][k + 1], thresholds[2]}};
    decompose_level(targets, 3, widths[k], heights[k]);
  }
  const MovingLevels moving[kSearchedFrames] = {{tables[kMovingBitmap], tables[kMovingMask]},
                                                {frame2_planes[1], frame2_planes[2]}};
  int16_t shifts[2][2] = {};
  search_shifts(moving, kSearchedFrames, tables[kRefBitmap], tables[kRefMask],
                static_cast<uint32_t>(levels), widths, heights, shifts);

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
