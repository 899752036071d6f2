// Blending of one 4000 x 3000 level of three frames, one row of it from cache,
// and chroma fusion of three 4000 x 3000 frames, with the portable rows
// (argument 0) and with the widest rows the processor runs (argument 1),
// labelled with the set of the module's rows.
#include <benchmark/benchmark.h>

#include <random>
#include <vector>

#include "chroma/chroma_rows.h"
#include "fusion/fusion_rows.h"
#include "fusion/fusion_weights.h"
#include "include/tavo_lumo_hdr.h"
#include "platform/cpu.h"

namespace {

constexpr int kWidth = 4000, kHeight = 3000, kFrames = 3;

struct Tables {
  std::vector<uint16_t> exposure = std::vector<uint16_t>(256), chroma = std::vector<uint16_t>(256);
  Tables() { tavo::build_fusion_weight_tables(exposure.data(), chroma.data()); }
};

const Tables& tables() {
  static const Tables t;
  return t;
}

// One pyramid level per frame, smooth enough that the contrast weights vary.
struct BlendLevel {
  std::vector<std::vector<uint16_t>> gauss;
  std::vector<std::vector<int16_t>> lap;
  std::vector<int16_t> out = std::vector<int16_t>(kWidth * kHeight);
  uint16_t* gauss_level[kFrames];
  int16_t* lap_level[kFrames];
  uint16_t** gauss_pyramids[kFrames];
  int16_t** lap_pyramids[kFrames];
  int16_t* out_level;
  BlendLevel() {
    std::mt19937 rng(1);
    for (int f = 0; f < kFrames; ++f) {
      gauss.emplace_back(kWidth * kHeight);
      lap.emplace_back(kWidth * kHeight);
      for (int i = 0; i < kWidth * kHeight; ++i) {
        gauss[f][i] = static_cast<uint16_t>((i % kWidth + i / kWidth + f * 700 + rng() % 64) % 4081);
        lap[f][i] = static_cast<int16_t>(static_cast<int>(rng() % 1024) - 512);
      }
      gauss_level[f] = gauss[f].data();
      lap_level[f] = lap[f].data();
      gauss_pyramids[f] = &gauss_level[f];
      lap_pyramids[f] = &lap_level[f];
    }
    out_level = out.data();
  }
};

struct ChromaFrames {
  std::vector<std::vector<uint8_t>> frames;
  const uint8_t* pointers[kFrames];
  std::vector<uint8_t> out = std::vector<uint8_t>(kWidth * kHeight / 2);
  ChromaFrames() {
    std::mt19937 rng(2);
    for (int f = 0; f < kFrames; ++f) {
      frames.emplace_back(kWidth * kHeight * 3 / 2);
      for (auto& v : frames[f]) v = static_cast<uint8_t>(rng());
      pointers[f] = frames[f].data();
    }
  }
};

// The rows of argument 0 or 1; the label names the set of the module's rows
// set_of() gives.
class PoolAndRows {
 public:
  PoolAndRows(benchmark::State& state, const char* (*set_of)()) {
    tavo::platform::MaskCpuFlags(state.range(0) == 0 ? 0 : -1);
    state.SetLabel(set_of());
    tavo_hdr_pool_init();
  }
  ~PoolAndRows() {
    tavo_hdr_pool_destroy();
    tavo::platform::MaskCpuFlags(-1);
  }
};

void BM_FusionPyramidLevel(benchmark::State& state) {
  static BlendLevel level;
  PoolAndRows setup(state, [] { return tavo::GetFusionRows().set; });
  const int32_t widths[1] = {kWidth}, heights[1] = {kHeight};
  for (auto _ : state) {
    fusion_pyramid_process(&level.out_level, tables().exposure.data(), level.lap_pyramids,
                           level.gauss_pyramids, widths, heights, 0, kFrames);
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(state.iterations() * kWidth * kHeight);
}
BENCHMARK(BM_FusionPyramidLevel)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->UseRealTime();

const int32_t kCrop[6] = {0, 0, 0, 0, 0, 0};

void BM_FusionUVPlane(benchmark::State& state) {
  static ChromaFrames chroma;
  PoolAndRows setup(state, [] { return tavo::GetChromaRows().set; });
  uint8_t* out_u = chroma.out.data();
  uint8_t* out_v = out_u + kWidth * kHeight / 4;
  for (auto _ : state) {
    fusionUV_plane_process(chroma.pointers, out_u, out_v, tables().chroma.data(), kWidth / 2,
                           kHeight / 2, kWidth / 2, kHeight / 2, kCrop);
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(state.iterations() * kWidth * kHeight / 2);
}
BENCHMARK(BM_FusionUVPlane)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_FusionUVSemiplane(benchmark::State& state) {
  static ChromaFrames chroma;
  PoolAndRows setup(state, [] { return tavo::GetChromaRows().set; });
  uint8_t* out_u = chroma.out.data();
  uint8_t* out_v = out_u + kWidth * kHeight / 4;
  for (auto _ : state) {
    fusionUV_semiplane_process(chroma.pointers, out_u, out_v, tables().chroma.data(), kWidth,
                               kHeight, kWidth, kHeight / 2, kCrop);
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(state.iterations() * kWidth * kHeight / 2);
}
BENCHMARK(BM_FusionUVSemiplane)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace

namespace {

// One interior row of 4000 samples of three frames, blended again and again
// from cache: the arithmetic of the grouped rule without memory traffic.
void BM_BlendInteriorRow(benchmark::State& state) {
  tavo::platform::MaskCpuFlags(state.range(0) == 0 ? 0 : -1);
  std::mt19937 rng(3);
  std::vector<uint16_t> gauss(3 * 3 * kWidth);
  std::vector<int16_t> lap(3 * kWidth), out(kWidth);
  for (auto& g : gauss) g = static_cast<uint16_t>(rng() % 4081);
  for (auto& l : lap) l = static_cast<int16_t>(static_cast<int>(rng() % 1024) - 512);
  const uint16_t* g[3] = {gauss.data() + kWidth, gauss.data() + 4 * kWidth, gauss.data() + 7 * kWidth};
  const int16_t* l[3] = {lap.data(), lap.data() + kWidth, lap.data() + 2 * kWidth};
  tavo::ExposureFactors factors;
  tavo::build_exposure_factors(tables().exposure.data(), &factors);
  const tavo::BlendRowArgs row{out.data(), l, g, &factors, 0, 0, kWidth, kWidth, 3, kWidth,
                                tavo::exposure_weights_positive(factors, 3)};
  const tavo::FusionRows rows = tavo::GetFusionRows();
  for (auto _ : state) {
    rows.blend_interior(row);
    benchmark::ClobberMemory();
  }
  tavo::platform::MaskCpuFlags(-1);
  state.SetItemsProcessed(state.iterations() * kWidth);
  state.SetLabel(rows.set);
}
BENCHMARK(BM_BlendInteriorRow)->Arg(0)->Arg(1);

}  // namespace
