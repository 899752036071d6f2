#include "api/lifecycle.h"

#include <atomic>
#include <cstring>

#include "include/tavo_lumo_hdr.h"
#include "platform/clock.h"
#include "platform/environment.h"
#include "platform/log.h"
#include "platform/properties.h"
#include "pool/library_lock.h"
#include "pool/thread_pool.h"

namespace tavo {
namespace {
// Written by the camera's thread, read by the capture's: an atomic word with
// relaxed order, the semantics of a plain store and load without the race.
std::atomic<int32_t> g_stop_flag{0};
}  // namespace

int32_t stop_flag_value() { return g_stop_flag.load(std::memory_order_relaxed); }

double endTime(const char* label, int64_t start_ns) {
  const double seconds = static_cast<double>(platform::monotonic_ns() - start_ns) / 1e9;
  HDR_LOG("Test: %s, %f s\n", label, seconds);
  record_stage_time(label, seconds);
  return seconds;
}

}  // namespace tavo

// The environment is read here, under the library lock (no capture runs), and
// kept until the next call: a capture never reads it.
extern "C" TAVO_HDR_EXPORT int32_t tavo_hdr_pool_init(void) {
  const tavo::LibraryLock hold;
  tavo::platform::read_environment();
  char value[tavo::platform::kPropertyValueMax];
  tavo::platform::property_get("buildtime", value, "yes");
  HDR_LOG("value0=%s\n", value);
  if (strcmp(value, "yes") == 0) {
    HDR_LOG("-----------hdr lib version is %s,build time is: date:%s , time:%s-----------",
            tavo::kLibraryVersion, __DATE__, __TIME__);
  }
  if (pool_init(tavo::kPoolWorkers) < 0) {
    HDR_LOG("pool_init fail\n");
    return -1;
  }
  return 0;
}

extern "C" TAVO_HDR_EXPORT int32_t tavo_hdr_pool_destroy(void) {
  if (pool_destroy() < 0) {
    HDR_LOG("pool_destroy fail\n");
    return -1;
  }
  return 0;
}

extern "C" TAVO_HDR_EXPORT void tavo_hdr_set_stop_flag(int32_t flag) {
  tavo::g_stop_flag.store(flag, std::memory_order_relaxed);
}
