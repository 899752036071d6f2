// Cost of one band batch on the worker pool: queue four jobs, wait for them.
#include <benchmark/benchmark.h>

#include "include/tavo_lumo_hdr.h"
#include "pool/band_jobs.h"

namespace {

int32_t empty_band(void* record) {
  tavo::band_done(record);
  return 0;
}

void BM_EmptyBatchOfFourBands(benchmark::State& state) {
  tavo_hdr_pool_init();
  for (auto _ : state) {
    tavo::run_bands<int>(4, empty_band, [](int32_t, int&) {});
  }
  tavo_hdr_pool_destroy();
}
BENCHMARK(BM_EmptyBatchOfFourBands);

}  // namespace
