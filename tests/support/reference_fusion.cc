// The fusion as the exported kernels compose it, level by level, every level
// of every pyramid stored: the reference the streamed fusion must equal.
#include <cstring>
#include <vector>

#include "fusion/fusion_weights.h"
#include "include/tavo_lumo_hdr.h"
#include "support/test_support.h"

namespace tavo::test {
namespace {

// Every level of a pyramid, stored, and the table of their addresses.
template <class T>
struct Stored {
  std::vector<std::vector<T>> planes;
  std::vector<T*> table;
  Stored(const std::vector<int32_t>& ws, const std::vector<int32_t>& hs) {
    for (size_t l = 0; l < ws.size(); ++l) table.push_back(planes.emplace_back(static_cast<size_t>(ws[l]) * hs[l]).data());
  }
};

}  // namespace

void reference_fusion(const uint8_t* const* frames, uint32_t n, uint32_t stride, uint32_t frame_height,
                      int32_t width, int32_t height, const int32_t* offsets, const char* layout,
                      uint8_t* out) {
  uint16_t exposure[256], chroma[256];
  build_fusion_weight_tables(exposure, chroma);
  uint8_t levels = 0;
  pyramid_level(&levels, width, height);
  std::vector<int32_t> ws(levels), hs(levels);
  pyramid_size(ws.data(), hs.data(), width, height, levels);
  const uint32_t top = levels - 1u;
  auto size = [&](uint32_t l) { return static_cast<size_t>(ws[l]) * hs[l]; };

  std::vector<Stored<uint16_t>> gauss;
  std::vector<Stored<int16_t>> lap;
  gauss.reserve(n), lap.reserve(n);
  Stored<int16_t> fused(ws, hs);
  std::vector<uint16_t**> gauss_pyramids(n);
  std::vector<int16_t**> lap_pyramids(n);
  for (uint32_t i = 0; i < n; ++i) {
    gauss_pyramids[i] = gauss.emplace_back(ws, hs).table.data();
    lap_pyramids[i] = lap.emplace_back(ws, hs).table.data();
    imageAffine_process(frames[i], gauss_pyramids[i][0], stride, width, height, offsets[2 * i], offsets[2 * i + 1]);
    for (uint32_t l = 0; l < top; ++l) pyramid_gaussian_down_sample_uint8_process(gauss_pyramids[i], l, ws.data(), hs.data());
    for (uint32_t l = 0; l < top; ++l) {
      pyramid_laplacian_down_sample_process(lap_pyramids[i], gauss_pyramids[i], l, ws.data(), hs.data(), levels);
    }
    memcpy(lap_pyramids[i][top], gauss_pyramids[i][top], 2 * size(top));
  }
  for (uint32_t l = levels >= 2 ? 0 : top; l < levels; ++l) {
    fusion_pyramid_process(fused.table.data(), exposure, lap_pyramids.data(), gauss_pyramids.data(), ws.data(),
                           hs.data(), static_cast<int32_t>(l), n);
  }
  for (int32_t l = static_cast<int32_t>(levels) - 2; l >= 0; --l) {
    pyramid_reconstruct_y_process(out, fused.table.data(), ws.data(), hs.data(), l);
  }
  uint8_t* out_u = out + width * height;
  uint8_t* out_v = out + (width * height * 5) / 4;
  if (strcmp(layout, "YVU420_SEMIPLANAR") == 0) {
    fusionUV_semiplane_process(frames, out_u, out_v, chroma, stride, frame_height, width, height / 2, offsets);
  } else if (strcmp(layout, "YUV420_PLANAR") == 0) {
    fusionUV_plane_process(frames, out_u, out_v, chroma, stride / 2, frame_height / 2, width / 2, height / 2, offsets);
  }
}

}  // namespace tavo::test
