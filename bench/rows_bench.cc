// Every row of every module's table under every instruction set this
// processor runs (through the tests' masks), the checkasm way: one row of
// kWidth samples from cache, called again and again on the row tests' inputs
// (tests/support/row_inputs.h). Named Rows/<module>/<row>/<set>, labelled with
// the set; the counter per_sample is the time of one sample (1.15ns).
//
//   ./build/host/bench/tavo_bench --benchmark_filter='^Rows/fusion/'
#include <benchmark/benchmark.h>

#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "fusion/fusion_weights.h"
#include "support/cpu_masks.h"
#include "support/row_inputs.h"

namespace {

using tavo::AlignRows;
using tavo::ChromaRows;
using tavo::FusionRows;

constexpr int32_t kWidth = 1920;  // samples a call: a luma row of 1920, a chroma row of 3840
constexpr int32_t kFrames = 3;
constexpr int32_t kStride = kWidth + 2;  // Gaussian rows of blending, with a column each side

// The inputs and outputs of every row, made once.
struct Inputs {
  std::mt19937 rng{1};
  std::vector<uint8_t> bytes = tavo::test::draw_bytes(rng, 2 * kFrames * kWidth);
  std::vector<uint8_t> maps = tavo::test::draw_bytes(rng, 4 * kWidth, {0, 1, 255});  // bitmaps and masks
  std::vector<uint16_t> level[5];  // rows of a pyramid level, 2 kWidth samples
  std::vector<int16_t> fused = tavo::test::make_row<int16_t>(0, kWidth, tavo::test::kLevelSamples, 6);
  std::vector<int16_t> lap = tavo::test::make_row<int16_t>(1, kFrames * kWidth, tavo::test::kLevelSamples, 7);
  std::vector<uint64_t> above = std::vector<uint64_t>(tavo::kThresholdLevels);
  std::vector<uint16_t> out16 = std::vector<uint16_t>(kWidth);
  std::vector<int16_t> out_s16 = std::vector<int16_t>(kStride);
  std::vector<uint8_t> out8 = std::vector<uint8_t>(3 * kWidth);
  const uint16_t* five[5];
  // Blending: three Gaussian rows a frame (the row and its neighbours), the
  // Laplacian rows, the capture's exposure factors.
  tavo::ExposureFactors factors;
  const uint16_t* gauss[kFrames];
  const int16_t* lap_rows[kFrames];
  tavo::BlendRowArgs blend;
  // Chroma: the frames' rows and the capture's chroma weights.
  tavo::ChromaWeights chroma_weights;
  const uint8_t* chroma[kFrames];
  tavo::ChromaRowArgs chroma_row;

  Inputs() {
    for (int i = 0; i < 5; ++i) {
      level[i] = tavo::test::make_row(0, 3 * kStride, tavo::test::kLevelSamples, 1 + i);
      five[i] = level[i].data();
    }
    std::vector<uint16_t> exposure(256), chroma_lut(256);
    tavo::build_fusion_weight_tables(exposure.data(), chroma_lut.data());
    tavo::build_exposure_factors(exposure.data(), &factors);
    tavo::build_chroma_weights(chroma_lut.data(), kFrames, &chroma_weights);
    for (int f = 0; f < kFrames; ++f) {
      gauss[f] = level[f].data() + kStride;
      lap_rows[f] = lap.data() + f * kWidth;
      chroma[f] = bytes.data() + 2 * f * kWidth;
    }
    blend = {out_s16.data(), lap_rows, gauss, &factors, 0, 0, kStride, kStride, kFrames, kStride,
             tavo::exposure_weights_positive(factors, kFrames)};
    chroma_row = {chroma, &chroma_weights, 0, kFrames};
  }
};

Inputs& inputs() {
  static Inputs in;
  return in;
}

// A benchmark of every variant of a table's row: run(row, inputs) processes
// kWidth samples.
template <class Table, class Row>
void add(const char* module, const char* name, Table (*get)(), Row Table::*entry, void (*run)(Row, Inputs&)) {
  for (const auto& [set, row] : tavo::test::RowVariants(get, entry)) {
    const std::string title = std::string("Rows/") + module + "/" + name + "/" + set;
    benchmark::RegisterBenchmark(title.c_str(), [row = row, set = set, run](benchmark::State& state) {
      Inputs& in = inputs();
      for (auto _ : state) {
        run(row, in);
        benchmark::ClobberMemory();
      }
      state.SetLabel(set);
      state.counters["per_sample"] =
          benchmark::Counter(kWidth, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
    });
  }
}

// The table of rows, one entry a row.
const bool kRegistered = [] {
  using In = Inputs&;
  add("align", "mismatch", tavo::GetAlignRows, &AlignRows::mismatch, +[](tavo::MismatchRowsFn r, In in) {
    const uint8_t* m = in.maps.data();
    benchmark::DoNotOptimize(r(m, m + kWidth, m + 2 * kWidth, m + 3 * kWidth, kWidth, 1, 0));
  });
  add("align", "widen_x16", tavo::GetAlignRows, &AlignRows::widen_x16,
      +[](tavo::WidenX16RowFn r, In in) { r(in.bytes.data(), in.out16.data(), kWidth); });
  add("align", "split_pairs", tavo::GetAlignRows, &AlignRows::split_pairs,
      +[](tavo::SplitPairsRowFn r, In in) { r(in.bytes.data(), in.out8.data(), in.out8.data() + kWidth, kWidth); });
  add("align", "merge_pairs", tavo::GetAlignRows, &AlignRows::merge_pairs,
      +[](tavo::MergePairsRowFn r, In in) { r(in.bytes.data(), in.bytes.data() + kWidth, in.out8.data(), kWidth); });
  add("align", "wavelet_main", tavo::GetAlignRows, &AlignRows::wavelet_main, +[](tavo::WaveletMainRowFn r, In in) {
    uint8_t* o = in.out8.data();
    r(in.bytes.data(), in.bytes.data() + 2 * kWidth, o, o + kWidth, o + 2 * kWidth, kWidth / 8, 128);
  });
  add("align", "count_above", tavo::GetAlignRows, &AlignRows::count_above,
      +[](tavo::CountAboveRowFn r, In in) { r(in.bytes.data(), kWidth, 100, in.above.data()); });

  add("fusion", "reduce_h", tavo::GetFusionRows, &FusionRows::reduce_h,
      +[](tavo::ReduceHRow<uint16_t>* r, In in) { r(in.level[0].data(), 2 * kWidth, in.out16.data(), kWidth); });
  add("fusion", "reduce_h_luma", tavo::GetFusionRows, &FusionRows::reduce_h_luma,
      +[](tavo::ReduceHRow<uint8_t>* r, In in) { r(in.bytes.data(), 2 * kWidth, in.out16.data(), kWidth); });
  add("fusion", "reduce_v", tavo::GetFusionRows, &FusionRows::reduce_v,
      +[](tavo::ReduceVRow* r, In in) { r(in.five, in.out16.data(), kWidth); });
  add("fusion", "reduce_h_pyramid", tavo::GetFusionRows, &FusionRows::reduce_h_pyramid,
      +[](tavo::ReduceHRow<uint16_t>* r, In in) { r(in.level[0].data(), 2 * kWidth, in.out16.data(), kWidth); });
  add("fusion", "reduce_v_pyramid", tavo::GetFusionRows, &FusionRows::reduce_v_pyramid,
      +[](tavo::ReduceVRow* r, In in) { r(in.five, in.out16.data(), kWidth); });
  add("fusion", "expand_h_unsigned", tavo::GetFusionRows, &FusionRows::expand_h_unsigned,
      +[](tavo::ExpandHRow<uint16_t>* r, In in) { r(in.level[0].data(), kWidth / 2, in.out16.data(), kWidth); });
  add("fusion", "expand_h_signed", tavo::GetFusionRows, &FusionRows::expand_h_signed,
      +[](tavo::ExpandHRow<int16_t>* r, In in) { r(in.fused.data(), kWidth / 2, in.out16.data(), kWidth); });
  add("fusion", "laplacian_even", tavo::GetFusionRows, &FusionRows::laplacian_even,
      +[](tavo::LaplacianEvenRow* r, In in) {
        r(in.five[0], in.five[1], in.five[2], in.five[3], in.out_s16.data(), kWidth);
      });
  add("fusion", "laplacian_odd", tavo::GetFusionRows, &FusionRows::laplacian_odd,
      +[](tavo::LaplacianOddRow* r, In in) { r(in.five[0], in.five[1], in.five[2], in.out_s16.data(), kWidth); });
  add("fusion", "collapse_even", tavo::GetFusionRows, &FusionRows::collapse_even, +[](tavo::CollapseEvenRow* r, In in) {
    r(in.fused.data(), in.five[1], in.five[2], in.five[3], in.out8.data(), kWidth);
  });
  add("fusion", "collapse_odd", tavo::GetFusionRows, &FusionRows::collapse_odd,
      +[](tavo::CollapseOddRow* r, In in) { r(in.fused.data(), in.five[1], in.five[2], nullptr, kWidth); });
  add("fusion", "blend_border", tavo::GetFusionRows, &FusionRows::blend_border,
      +[](tavo::BlendRowFn r, In in) { r(in.blend); });
  add("fusion", "blend_interior", tavo::GetFusionRows, &FusionRows::blend_interior,
      +[](tavo::BlendRowFn r, In in) { r(in.blend); });

  add("chroma", "plane", tavo::GetChromaRows, &ChromaRows::plane,
      +[](tavo::ChromaRowFn r, In in) { r(in.chroma_row, in.out8.data(), kWidth); });
  add("chroma", "pairs", tavo::GetChromaRows, &ChromaRows::pairs, +[](tavo::ChromaPairRowFn r, In in) {
    r(in.chroma_row, in.out8.data(), in.out8.data() + kWidth, kWidth / 2);
  });
  return true;
}();

}  // namespace
