// Registration of a capture and the final resize, on rendered HDR brackets.
#include <benchmark/benchmark.h>

#include <array>
#include <cstdint>
#include <map>
#include <utility>
#include <vector>

#include "align/registration.h"
#include "include/tavo_lumo_hdr.h"
#include "tools/scene/scene.h"

namespace {

// One bracket per size, rendered once: frames 0 and 2 moved by (6, -4) and (-8, 2).
const std::array<std::vector<uint8_t>, 3>& bracket(int32_t w, int32_t h) {
  static std::map<std::pair<int32_t, int32_t>, std::array<std::vector<uint8_t>, 3>> cache;
  auto it = cache.find({w, h});
  if (it == cache.end()) {
    tavo::scene::BracketSetup setup;
    setup.dx0 = 6;
    setup.dy0 = -4;
    setup.dx2 = -8;
    setup.dy2 = 2;
    it = cache.emplace(std::pair{w, h}, tavo::scene::render_bracket({w, h, 1}, setup)).first;
  }
  return it->second;
}

void BM_RegisterFrames(benchmark::State& state) {
  const auto w = static_cast<int32_t>(state.range(0)), h = static_cast<int32_t>(state.range(1));
  const auto& frames = bracket(w, h);
  const uint8_t* luma[3] = {frames[0].data(), frames[1].data(), frames[2].data()};
  tavo_hdr_pool_init();
  tavo::CropWindow window{};
  for (auto _ : state) {
    tavo::register_frames(luma, w, h, &window);
    benchmark::DoNotOptimize(window);
  }
  tavo_hdr_pool_destroy();
  if (window.shift0[0] != 6 || window.shift2[0] != -8) state.SkipWithError("wrong shift");
  state.SetItemsProcessed(state.iterations() * int64_t{w} * h);
}
BENCHMARK(BM_RegisterFrames)->Args({1920, 1080})->Args({4000, 3000})->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_ImageResize(benchmark::State& state) {
  const int32_t sw = 3994, sh = 2994, dw = 4000, dh = 3000;
  std::vector<uint8_t> src(static_cast<size_t>(sw) * sh * 3 / 2);
  for (size_t i = 0; i < src.size(); ++i) src[i] = static_cast<uint8_t>(i * 131 >> 3);
  std::vector<uint8_t> dst(static_cast<size_t>(dw) * dh * 3 / 2);
  const char* layout = state.range(0) != 0 ? "YVU420_SEMIPLANAR" : "YUV420_PLANAR";
  for (auto _ : state) {
    image_resize(src.data(), dst.data(), sw, sh, dw, dh, layout);
    benchmark::DoNotOptimize(dst.data());
  }
  state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(dst.size()));
}
BENCHMARK(BM_ImageResize)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);

}  // namespace
