// Whole-capture figures: the fusion of a crop (pyrFuse), and HDR_Function at
// 1920x1080, 4000x3000 and 8000x6000 in both layouts, with the pool running,
// and as the first capture of a fresh process.
#include <benchmark/benchmark.h>

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <vector>

#include "bench/process_stats.h"
#include "api/stage_times.h"
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

const char* layout_name(int64_t arg) { return arg == 0 ? "YUV420_PLANAR" : "YVU420_SEMIPLANAR"; }

// Captures back to back on a running pool. Counters per capture: the three
// stages, page faults, and the library's own peak memory (the peak resident
// set during the capture above the resident set before it, when the caller's
// frames and output buffer are already in memory), and the CPU time of all threads. Run it once more with
// GLIBC_TUNABLES=glibc.malloc.mmap_threshold=4294967295:glibc.malloc.trim_threshold=4294967295
// for a heap that keeps freed memory.
void BM_HdrFunction(benchmark::State& state) {
  const int w = static_cast<int>(state.range(0)), h = static_cast<int>(state.range(1));
  const char* layout = layout_name(state.range(2));
  const auto frames = make_bracket(w, h);
  std::vector<uint8_t> out(frames[0].size(), 0);
  tavo_hdr_pool_init();
  double align = 0, fusion = 0, resize = 0;
  int64_t peak = 0;
  const int64_t faults = tavo::bench::page_faults();
  double cpu = 0;
  for (auto _ : state) {
    state.PauseTiming();
    tavo::bench::reset_peak_rss();
    const int64_t before = tavo::bench::rss_bytes();
    const double cpu_before = tavo::bench::cpu_seconds();
    state.ResumeTiming();
    HDR_Function(frames[0].data(), frames[1].data(), frames[2].data(), out.data(), h, w, layout);
    benchmark::ClobberMemory();
    state.PauseTiming();
    cpu += tavo::bench::cpu_seconds() - cpu_before;
    const tavo::StageTimes stages = tavo::last_stage_times();
    align += stages.registration;
    fusion += stages.fusion;
    resize += stages.resize;
    peak = std::max(peak, tavo::bench::peak_rss_bytes() - before);
    state.ResumeTiming();
  }
  const double n = static_cast<double>(state.iterations());
  const double page_faults = static_cast<double>(tavo::bench::page_faults() - faults) / n;
  tavo_hdr_pool_destroy();
  state.counters["align_ms"] = 1e3 * align / n;
  state.counters["fusion_ms"] = 1e3 * fusion / n;
  state.counters["resize_ms"] = 1e3 * resize / n;
  state.counters["faults"] = page_faults;
  state.counters["cpu_ms"] = 1e3 * cpu / n;  // all threads: up to twice the time on two cores
  state.counters["peak_MB"] = static_cast<double>(peak) / (1 << 20);
  state.SetLabel(layout);
}
BENCHMARK(BM_HdrFunction)
    ->ArgsProduct({{1920}, {1080}, {0, 1}})
    ->ArgsProduct({{4000}, {3000}, {0, 1}})
    ->ArgsProduct({{8000}, {6000}, {0, 1}})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

// The first capture of a fresh process: each iteration forks a child that
// starts the pool and runs one capture, and reports the capture's time, the
// CPU time of all its threads and its page faults.
void BM_FirstCapture(benchmark::State& state) {
  const int w = static_cast<int>(state.range(0)), h = static_cast<int>(state.range(1));
  const char* layout = layout_name(state.range(2));
  const auto frames = make_bracket(w, h);
  struct Report {
    double seconds, cpu_seconds;
    int64_t faults;
  };
  double cpu = 0, faults = 0;
  for (auto _ : state) {
    int fds[2];
    if (pipe(fds) != 0) {
      state.SkipWithError("pipe failed");
      break;
    }
    const pid_t child = fork();
    if (child == 0) {
      close(fds[0]);
      std::vector<uint8_t> out(frames[0].size(), 0);
      tavo_hdr_pool_init();
      const int64_t faults_before = tavo::bench::page_faults();
      const double cpu_before = tavo::bench::cpu_seconds();
      const auto start = std::chrono::steady_clock::now();
      HDR_Function(frames[0].data(), frames[1].data(), frames[2].data(), out.data(), h, w, layout);
      const Report report{std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count(),
                          tavo::bench::cpu_seconds() - cpu_before, tavo::bench::page_faults() - faults_before};
      const ssize_t written = write(fds[1], &report, sizeof report);
      _exit(written == sizeof report ? 0 : 1);
    }
    close(fds[1]);
    Report report{};
    const bool got = read(fds[0], &report, sizeof report) == sizeof report;
    close(fds[0]);
    int status = 0;
    waitpid(child, &status, 0);
    if (!got) {
      state.SkipWithError("the child reported no time");
      break;
    }
    state.SetIterationTime(report.seconds);
    cpu += report.cpu_seconds;
    faults += static_cast<double>(report.faults);
  }
  const double n = static_cast<double>(std::max<int64_t>(state.iterations(), 1));
  state.counters["cpu_ms"] = 1e3 * cpu / n;
  state.counters["faults"] = faults / n;
  state.SetLabel(layout);
}
BENCHMARK(BM_FirstCapture)
    ->ArgsProduct({{4000}, {3000}, {0, 1}})
    ->Iterations(5)
    ->Unit(benchmark::kMillisecond)
    ->UseManualTime();

}  // namespace
