// Whole-capture figures: the fusion of a crop (pyrFuse) and a full
// HDR_Function, at 1920x1080 and 4000x3000, with the pool running.
#include <benchmark/benchmark.h>

#include <cstring>
#include <vector>

#include "bench/stage_log.h"
#include "include/tavo_lumo_hdr.h"
#include "platform/cpu.h"

namespace {

// Three exposures of a smooth scene with texture and a bright window.
std::vector<std::vector<uint8_t>> make_bracket(int w, int h) {
  std::vector<std::vector<uint8_t>> frames(3, std::vector<uint8_t>(static_cast<size_t>(w) * h * 3 / 2));
  uint32_t state = 1;
  for (int f = 0; f < 3; ++f) {
    uint8_t* y = frames[f].data();
    for (int r = 0; r < h; ++r) {
      for (int c = 0; c < w; ++c) {
        state = state * 1664525u + 1013904223u;
        int v = (c * 600) / w + (r * 300) / h + ((c > w / 2 && r < h / 2) ? 500 : 0) + (((c / 3 + r / 3) & 1) ? 40 : 0);
        v = v * (1 << f) / 4 + static_cast<int>((state >> 29)) - 3;
        y[static_cast<size_t>(r) * w + c] = static_cast<uint8_t>(v < 0 ? 0 : v > 255 ? 255 : v);
      }
    }
    for (size_t i = static_cast<size_t>(w) * h; i < frames[f].size(); ++i) {
      state = state * 1664525u + 1013904223u;
      frames[f][i] = static_cast<uint8_t>(100 + (state >> 26) + f * 10);
    }
  }
  return frames;
}

void BM_PyrFuse(benchmark::State& state) {
  const int w = static_cast<int>(state.range(0)), h = static_cast<int>(state.range(1));
  const auto frames = make_bracket(w, h);
  const uint8_t* ptrs[3] = {frames[0].data(), frames[1].data(), frames[2].data()};
  std::vector<uint8_t> out(frames[0].size());
  const int32_t offsets[6] = {0, 0, 0, 0, 0, 0};
  tavo_hdr_pool_init();
  for (auto _ : state) {
    pyrFuse(ptrs, 3, w, h, w, h, offsets, out.data(), "YUV420_PLANAR");
    benchmark::ClobberMemory();
  }
  tavo_hdr_pool_destroy();
  state.SetLabel("crop " + std::to_string(w) + "x" + std::to_string(h));
}
BENCHMARK(BM_PyrFuse)->Args({1920, 1080})->Args({4000, 3000})->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_HdrFunction(benchmark::State& state) {
  const int w = static_cast<int>(state.range(0)), h = static_cast<int>(state.range(1));
  const auto frames = make_bracket(w, h);
  std::vector<uint8_t> out(frames[0].size());
  tavo_hdr_pool_init();
  tavo::bench::reset_stage_seconds();
  for (auto _ : state) {
    HDR_Function(frames[0].data(), frames[1].data(), frames[2].data(), out.data(), h, w, "YVU420_SEMIPLANAR");
    benchmark::ClobberMemory();
  }
  tavo_hdr_pool_destroy();
  // The stages are timed from the pipeline's start: align, then align+fusion, then all three.
  const double n = static_cast<double>(state.iterations());
  const double align = tavo::bench::stage_seconds("align") / n;
  const double fused = tavo::bench::stage_seconds("pyrFuse") / n;
  const double resized = tavo::bench::stage_seconds("resize") / n;
  state.counters["align_ms"] = 1e3 * align;
  state.counters["fusion_ms"] = 1e3 * (fused - align);
  state.counters["resize_ms"] = 1e3 * (resized - fused);
}
BENCHMARK(BM_HdrFunction)->Args({1920, 1080})->Args({4000, 3000})->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
