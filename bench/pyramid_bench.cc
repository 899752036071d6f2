// Pyramid stages of one frame through their dispatchers on the worker pool:
// Gaussian reduction of levels 0 ... L-2, band-pass levels 0 ... L-2, and the
// collapse of levels L-2 ... 0, for a 4000 x 3000 and a 1920 x 1080 level 0.
// Argument 2 selects the rows: 0 the fastest the processor runs, 1 portable;
// the label names their set.
#include <benchmark/benchmark.h>

#include <random>
#include <vector>

#include "fusion/fusion_rows.h"
#include "fusion/pyramid_geometry.h"
#include "include/tavo_lumo_hdr.h"
#include "platform/cpu.h"

namespace {

struct FramePyramids {
  int32_t levels;
  std::vector<int32_t> widths, heights;
  std::vector<std::vector<uint16_t>> gauss;
  std::vector<std::vector<int16_t>> lap;
  std::vector<uint16_t*> gauss_table;
  std::vector<int16_t*> lap_table;
  std::vector<uint8_t> luma;

  FramePyramids(int32_t w, int32_t h)
      : levels(tavo::pyramid_level_count(w, h)),
        widths(levels),
        heights(levels),
        gauss(levels),
        lap(levels),
        luma(static_cast<size_t>(w) * h) {
    tavo::fill_pyramid_sizes(widths.data(), heights.data(), w, h, levels);
    for (int32_t l = 0; l < levels; ++l) {
      gauss[l].resize(static_cast<size_t>(widths[l]) * heights[l]);
      lap[l].resize(gauss[l].size());
      gauss_table.push_back(gauss[l].data());
      lap_table.push_back(lap[l].data());
    }
    std::mt19937 rng(7);
    for (auto& s : gauss[0]) s = static_cast<uint16_t>((rng() & 255) * 16);
  }
  void reduce() {
    for (int32_t l = 0; l + 1 < levels; ++l)
      pyramid_gaussian_down_sample_uint8_process(gauss_table.data(), l, widths.data(),
                                                 heights.data());
  }
  void band_pass() {
    for (int32_t l = 0; l + 1 < levels; ++l)
      pyramid_laplacian_down_sample_process(lap_table.data(), gauss_table.data(), l, widths.data(),
                                            heights.data(), levels);
  }
  void collapse() {
    for (int32_t l = levels - 2; l >= 0; --l)
      pyramid_reconstruct_y_process(luma.data(), lap_table.data(), widths.data(), heights.data(),
                                    l);
  }
};

enum Stage { kGaussian, kLaplacian, kReconstruct };

template <Stage kStage>
void BM_Pyramid(benchmark::State& state) {
  tavo::platform::MaskCpuFlags(state.range(2) != 0 ? 0 : -1);
  state.SetLabel(tavo::GetFusionRows().set);
  tavo_hdr_pool_init();
  FramePyramids p(static_cast<int32_t>(state.range(0)), static_cast<int32_t>(state.range(1)));
  p.reduce();
  p.band_pass();
  for (auto _ : state) {
    if constexpr (kStage == kGaussian) p.reduce();
    if constexpr (kStage == kLaplacian) p.band_pass();
    if constexpr (kStage == kReconstruct) {
      state.PauseTiming();
      p.band_pass();  // the collapse overwrites the band-pass levels
      state.ResumeTiming();
      p.collapse();
    }
  }
  state.SetItemsProcessed(state.iterations() * state.range(0) * state.range(1));
  tavo_hdr_pool_destroy();
  tavo::platform::MaskCpuFlags(-1);
}

void Sizes(benchmark::internal::Benchmark* b) {
  for (int portable : {0, 1}) {
    b->Args({4000, 3000, portable});
    b->Args({1920, 1080, portable});
  }
  b->ArgNames({"w", "h", "portable"})->Unit(benchmark::kMillisecond)->UseRealTime();
}

BENCHMARK(BM_Pyramid<kGaussian>)->Name("PyramidGaussian")->Apply(Sizes);
BENCHMARK(BM_Pyramid<kLaplacian>)->Name("PyramidLaplacian")->Apply(Sizes);
BENCHMARK(BM_Pyramid<kReconstruct>)->Name("PyramidReconstruct")->Apply(Sizes);

}  // namespace
