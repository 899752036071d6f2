// Band jobs: every parallel image operation X is cut into at most four
// horizontal bands. Its dispatcher X_process describes the bands with
// run_bands(); its job body X_parameter reads its band with band_payload(),
// runs the kernel and reports with band_done(), passing on the kernel's result.
// Queueing and waiting live here only.
#pragma once

#include <atomic>
#include <cstdint>
#include <new>
#include <type_traits>

#include "include/tavo_lumo_hdr.h"
#include "pool/library_lock.h"

namespace tavo {
// Bands of a batch, one record each in `arg`.
inline constexpr int32_t kBandCount = 4;
}  // namespace tavo

// One band of the batch being run. The payload holds the kernel's arguments for
// the band, laid out by the kernel's own record type.
struct band_record {
  int32_t band;               // band index, 0 first
  int32_t bands;              // number of bands of the batch
  int32_t (*body)(void*);     // job body that runs this band
  int32_t status;             // 0 once the band's rows are written, negative if it could not run
  alignas(16) unsigned char payload[224];
};

extern "C" {
TAVO_HDR_EXPORT extern band_record arg[tavo::kBandCount];
TAVO_HDR_EXPORT extern int32_t count;  // bands of the current batch that have finished
TAVO_HDR_EXPORT extern unsigned char p[300];
}

namespace tavo {

// How a dispatcher cuts `total` rows.
enum class SplitRule {
  kFour,         // four bands of total/4 rows, the last band takes the rest
  kFourEven,     // four bands of (total/4) rounded down to even rows
  kPyramid,      // as kFour, but one band when total/4 < 2
  kPyramidEven,  // as kFourEven, but one band when that row count is < 2
};

struct BandSplit {
  int32_t bands;  // 1 or 4
  int32_t step;   // rows of every band but the last
  int32_t total;
  int32_t first(int32_t band) const { return band * step; }
  int32_t rows(int32_t band) const { return band == bands - 1 ? total - band * step : step; }
  // The rows of the half-size level (half_total rows) that pair with a split
  // of even steps: half the rows each, the last band the rest.
  int32_t half_first(int32_t band) const { return first(band) / 2; }
  int32_t half_rows(int32_t band, int32_t half_total) const {
    return band == bands - 1 ? half_total - half_first(band) : step / 2;
  }
};

BandSplit split_rows(int32_t total, SplitRule rule);

namespace detail {
void queue_band(band_record* record);
void wait_bands(int32_t bands);
}  // namespace detail

// The kernel arguments of a band record, as the job body reads them.
template <class Payload>
Payload& band_payload(void* record) {
  return *std::launder(reinterpret_cast<Payload*>(static_cast<band_record*>(record)->payload));
}

// Reported by each job body once its band has run: status 0 when the kernel
// wrote the band's rows, negative when it could not (its scratch was not
// allocated; the value says which).
void band_done(void* record, int32_t status = 0);

// Waking the workers for a batch costs tens of microseconds; a batch of less
// work than this many samples runs its bands one after another on the calling
// thread instead. The bands are independent, so the bytes are the same.
// Rows of one batch handed out in chunks: each band of the batch takes chunk
// after chunk until none is left, so that a band whose thread shares a core
// with another takes fewer and the batch ends when the cores' work does.
// Which band computes a chunk depends on timing; what a chunk computes does
// not. Chunks start on even rows.
class RowChunks {
 public:
  // About kChunksPerBatch chunks of `rows` rows.
  explicit RowChunks(int32_t rows);
  // The next chunk's first row and row count; false when none is left.
  bool take(int32_t* first, int32_t* count);

 private:
  static constexpr int32_t kChunksPerBatch = 24;
  std::atomic<int32_t> next_{0};
  int32_t rows_;
  int32_t chunk_rows_;
};

inline constexpr int64_t kInlineWork = 1 << 17;
// The limit in force: kInlineWork, or what a test set (0 sends every batch to
// the workers).
int64_t inline_work_limit();
void set_inline_work_limit_for_testing(int64_t samples);

// Runs one batch: for every band b, fill(b, payload) writes the band's kernel
// arguments, and the job `body` is queued on the pool (or, for less than
// inline_work_limit() samples of `work`, run at once on this thread); returns
// when all bands have reported: 0 when every band wrote its rows, else the
// status of the first band that could not. The batch holds the library lock, so two
// threads never share the band records.
template <class Payload, class Fill>
int32_t run_bands(int32_t bands, int32_t (*body)(void*), Fill&& fill, int64_t work = kInlineWork) {
  static_assert(sizeof(Payload) <= sizeof(band_record::payload), "band payload too large");
  static_assert(std::is_trivially_copyable_v<Payload>, "band payload must be plain data");
  const LibraryLock hold;
  const bool on_caller = work < inline_work_limit();
  __atomic_store_n(&count, 0, __ATOMIC_RELAXED);
  for (int32_t b = 0; b < bands; ++b) {
    band_record& record = arg[b];
    record.band = b;
    record.bands = bands;
    record.body = body;
    record.status = 0;
    fill(b, *::new (static_cast<void*>(record.payload)) Payload{});
    if (on_caller) {
      body(&record);
    } else {
      detail::queue_band(&record);
    }
  }
  if (!on_caller) detail::wait_bands(bands);
  for (int32_t b = 0; b < bands; ++b) {
    if (arg[b].status != 0) return arg[b].status;
  }
  return 0;
}

}  // namespace tavo
