// One HDR capture, as the camera service calls it: serialised on the pool's
// capture lock, arguments checked, inputs and output optionally dumped as raw
// frames, the pipeline run, the whole capture timed.
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "api/capture_limits.h"
#include "api/lifecycle.h"
#include "include/tavo_lumo_hdr.h"
#include "platform/clock.h"
#include "platform/environment.h"
#include "platform/log.h"
#include "platform/properties.h"
#include "platform/yuv420_frame.h"
#include "pool/library_lock.h"
#include "pool/thread_pool.h"

#ifndef TAVO_HDR_DUMP_DIR
#define TAVO_HDR_DUMP_DIR "/data/misc/cameraserver"
#endif

namespace {

int64_t hdr_start_ns = 0;
// Dump names may be as long as the system allows a path to be.
constexpr size_t kDumpNameMax = PATH_MAX;

// The dump directory. A desktop build lets TAVO_HDR_DUMP_DIR in the environment
// (as read when the pool started) override the configured directory, so a
// replay tool can choose where a run dumps; the phone build always uses the
// configured one.
const char* dump_directory() {
#if !defined(__ANDROID__)
  if (const char* dir = tavo::platform::environment().dump_dir; dir[0] != '\0') return dir;
#endif
  return TAVO_HDR_DUMP_DIR;
}

// "<dir>/IMG_<W>x<H><layout>_<date>_<time><suffix>" from the local time. Empty,
// with the reason logged, when the layout would lead the name out of the dump
// directory or the name would not fit.
void dump_name(char (&name)[kDumpNameMax], int32_t width, int32_t height, const char* layout,
               const char* suffix) {
  name[0] = '\0';
  if (strchr(layout, '/') != nullptr) {
    HDR_LOG_AS(__LINE__, "HDR_Function", "layout %s holds a path separator, no dump is written\n", layout);
    return;
  }
  const struct tm t = tavo::platform::local_time();
  const int n = snprintf(name, kDumpNameMax, "%s/IMG_%dx%d%s_%04d%02d%02d_%02d%02d%02d%s",
                         dump_directory(), width, height, layout, t.tm_year + 1900, t.tm_mon + 1,
                         t.tm_mday, t.tm_hour, t.tm_min, t.tm_sec, suffix);
  if (n < 0 || static_cast<size_t>(n) >= kDumpNameMax) {
    HDR_LOG_AS(__LINE__, "HDR_Function", "dump name under %s is longer than %zu bytes\n", dump_directory(),
               kDumpNameMax - 1);
    name[0] = '\0';
  }
}

// The four messages of one dump file: open failed, opened, write failed, written.
struct DumpMessages {
  const char* open_fail;
  const char* open_ok;
  const char* write_fail;
  const char* write_ok;
};

// Writes one dump file whole; false after a failure, which has been logged
// with its fixed message and a line naming the path and the system's reason.
// The file counts as written only once it is flushed and closed: a dump cut
// short (disk full, file size limit) is a write failure and is removed.
bool dump_file(const char* path, const uint8_t* data, size_t bytes, const DumpMessages& m) {
  FILE* file = path[0] != '\0' ? fopen(path, "wb") : nullptr;
  if (file == nullptr) {
    const int err = errno;
    HDR_LOG_AS(__LINE__, "HDR_Function", "%s", m.open_fail);
    if (path[0] != '\0') HDR_LOG_AS(__LINE__, "HDR_Function", "cannot open %s: %s\n", path, strerror(err));
    return false;
  }
  HDR_LOG_AS(__LINE__, "HDR_Function", "%s", m.open_ok);
  bool ok = fwrite(data, 1, bytes, file) == bytes;
  int err = errno;
  if (ok && fflush(file) != 0) {
    ok = false;
    err = errno;
  }
  if (fclose(file) != 0 && ok) {
    ok = false;
    err = errno;
  }
  if (!ok) {
    HDR_LOG_AS(__LINE__, "HDR_Function", "%s", m.write_fail);
    HDR_LOG_AS(__LINE__, "HDR_Function", "cannot write %s: %s\n", path, strerror(err));
    unlink(path);
    return false;
  }
  HDR_LOG_AS(__LINE__, "HDR_Function", "%s", m.write_ok);
  return true;
}

size_t frame_bytes(int32_t width, int32_t height) {
  return static_cast<size_t>(tavo::yuv420_planes(width, height).frame_bytes);
}

// Dumps the three inputs under one time stamp; false after a failure.
bool dump_inputs(const uint8_t* const* frames, int32_t width, int32_t height, const char* layout) {
  static constexpr DumpMessages kMessages[] = {
      {"fopen img0 fail!\n", "fopen img0 success!\n", "fwrite img0 error!\n", "fwrite img0 success!\n"},
      {"fopen img1 fail!\n", "fopen img1 success!\n", "fwrite img1 error!\n", "fwrite img1  success!\n"},
      {"fopen img2 fail!\n", "fopen img2 success!\n", "fwrite img2 error!\n", "fwrite img2 success!\n"},
  };
  char base[kDumpNameMax];
  dump_name(base, width, height, layout, "");
  for (int k = 0; k < 3; ++k) {
    char name[kDumpNameMax] = "";
    if (base[0] != '\0') {
      const int n = snprintf(name, sizeof name, "%s_%d.yuv", base, k);
      if (n < 0 || static_cast<size_t>(n) >= sizeof name) name[0] = '\0';
    }
    if (!dump_file(name, frames[k], frame_bytes(width, height), kMessages[k])) return false;
  }
  HDR_LOG_AS(__LINE__, "HDR_Function", "save input\n");
  return true;
}

bool dump_output(const uint8_t* out, int32_t width, int32_t height, const char* layout) {
  static constexpr DumpMessages kMessages = {"fopen img fail!\n", "fopen img success!\n",
                                             "fwrite img error!\n", "fwrite img success!\n"};
  char name[kDumpNameMax];
  dump_name(name, width, height, layout, "_hdr.yuv");
  if (!dump_file(name, out, frame_bytes(width, height), kMessages)) return false;
  HDR_LOG_AS(__LINE__, "HDR_Function", "save output\n");
  return true;
}

}  // namespace

extern "C" TAVO_HDR_EXPORT int32_t HDR_Function(const uint8_t* frame0, const uint8_t* frame1,
                                                const uint8_t* frame2, uint8_t* out,
                                                int32_t height, int32_t width,
                                                const char* layout) {
  // Held for the whole capture: the pool cannot be destroyed under it, and
  // nothing else runs band jobs meanwhile.
  const tavo::LibraryLock hold;
  thread_pool* tp = pool;
  if (tp == nullptr) {
    HDR_LOG("HDR_Function called without a thread pool, call tavo_hdr_pool_init first.\n");
    return -1;
  }
  pthread_mutex_lock(&tp->t_lock);
  struct Unlock {
    pthread_mutex_t* lock;
    ~Unlock() { pthread_mutex_unlock(lock); }
  } unlock{&tp->t_lock};

  hdr_start_ns = tavo::platform::monotonic_ns();
  if (((width & 7) | (height & 1)) != 0 || frame0 == nullptr || frame1 == nullptr ||
      frame2 == nullptr || out == nullptr || layout == nullptr ||
      !tavo::capture_size_supported(width, height)) {
    HDR_LOG("HDR_Function input error.");
    return -1;
  }

  const uint8_t* const frames[3] = {frame0, frame1, frame2};
  char value[tavo::platform::kPropertyValueMax];
  tavo::platform::property_get("saveinput", value, "no");
  HDR_LOG("value0=%s\n", value);
  if (strcmp(value, "yes") == 0) {
    if (!dump_inputs(frames, width, height, layout)) return -1;
  } else if (strcmp(value, "no") == 0) {
    HDR_LOG("no save input\n");
  }
  HDR_LOG("HDR_Function START.");

  const int32_t result = GetAlignImg(frames, width, height, 3, out, layout);
  if (result == -1) HDR_LOG("GetAlignImg error!");
  HDR_LOG("HDR_Function END.");
  tavo::endTime("hdr_function", hdr_start_ns);

  tavo::platform::property_get("saveoutput", value, "no");
  HDR_LOG("value1=%s\n", value);
  if (strcmp(value, "yes") == 0) {
    if (!dump_output(out, width, height, layout)) return -1;
  } else if (strcmp(value, "no") == 0) {
    HDR_LOG("no save output\n");
  }
  return result;
}
