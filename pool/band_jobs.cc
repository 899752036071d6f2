#include "pool/band_jobs.h"

#include <atomic>

#include "pool/thread_pool.h"

extern "C" {
TAVO_HDR_EXPORT band_record arg[tavo::kBandCount];
TAVO_HDR_EXPORT int32_t count = 0;
// Exported and never used.
TAVO_HDR_EXPORT unsigned char p[300] = {0};
}

namespace tavo {
namespace {

std::atomic<int64_t> g_inline_work{kInlineWork};

void* run_band_job(void* record) {
  auto* band = static_cast<band_record*>(record);
  band->body(band);
  return nullptr;
}

}  // namespace

int64_t inline_work_limit() { return g_inline_work.load(std::memory_order_relaxed); }
void set_inline_work_limit_for_testing(int64_t samples) {
  g_inline_work.store(samples, std::memory_order_relaxed);
}

RowChunks::RowChunks(int32_t rows)
    : rows_(rows), chunk_rows_(rows / kChunksPerBatch < 2 ? 2 : (rows / kChunksPerBatch) & ~1) {}

bool RowChunks::take(int32_t* first, int32_t* count) {
  const int32_t chunk = next_.fetch_add(1, std::memory_order_relaxed);
  if (chunk >= (rows_ + chunk_rows_ - 1) / chunk_rows_) return false;
  *first = chunk * chunk_rows_;
  *count = rows_ - *first < chunk_rows_ ? rows_ - *first : chunk_rows_;
  return true;
}

BandSplit split_rows(int32_t total, SplitRule rule) {
  int32_t step = total / kBandCount;
  if (rule == SplitRule::kFourEven || rule == SplitRule::kPyramidEven) step &= ~1;
  const bool pyramid = rule == SplitRule::kPyramid || rule == SplitRule::kPyramidEven;
  if (pyramid && step < 2) return BandSplit{1, total, total};
  return BandSplit{kBandCount, step, total};
}

namespace detail {

void queue_band(band_record* record) { pool_add_worker(run_band_job, record); }

void wait_bands(int32_t bands) {
  thread_pool* tp = pool;
  if (tp == nullptr) return;  // without a pool the bands ran on this thread
  struct Batch {
    int32_t bands;
  } batch{bands};
  const auto done = [](const void* b) {
    return __atomic_load_n(&count, __ATOMIC_ACQUIRE) == static_cast<const Batch*>(b)->bands;
  };
  if (spin_until_ready(done, &batch)) return;
  pthread_mutex_lock(&tp->pro_lock);
  while (count != bands) pthread_cond_wait(&tp->pro_ready, &tp->pro_lock);
  pthread_mutex_unlock(&tp->pro_lock);
}

}  // namespace detail

void band_done(void* record, int32_t status) {
  // Written before the count moves on: the dispatcher reads it after its wait.
  static_cast<band_record*>(record)->status = status;
  thread_pool* tp = pool;
  if (tp == nullptr) {
    __atomic_add_fetch(&count, 1, __ATOMIC_RELAXED);
    return;
  }
  pthread_mutex_lock(&tp->pro_lock);
  __atomic_store_n(&count, count + 1, __ATOMIC_RELEASE);  // also read without the lock
  pthread_mutex_unlock(&tp->pro_lock);
  pthread_cond_signal(&tp->pro_ready);
}

}  // namespace tavo
