// The shared library's log writer on a host. The environment variable
// TAVO_HDR_LOG, as the library's environment snapshot holds it (taken when
// tavo_hdr_pool_init runs, platform/environment.h), decides where the
// library's lines go:
//  - unset or empty: where they always went, Debian's android-liblog when the
//    build links it, else stderr as "hdr E <message>";
//  - "quiet": nowhere;
//  - anything else: a file path; each line is appended to it as
//    "hdr E <message>" (the file is created when missing).
// The Android build logs through the platform's liblog directly and has no
// such switch. Programs that link the library's objects instead of the shared
// library (tests, benchmarks) link this writer too and install a sink
// (platform/log.h) that receives every line before any of the above.
#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "platform/environment.h"
#include "platform/log.h"

#if defined(TAVO_HDR_WITH_LIBLOG)
extern "C" int __android_log_vprint(int prio, const char* tag, const char* fmt, va_list ap);
#endif

namespace {

std::atomic<tavo::platform::LogSink> g_sink{nullptr};

// "hdr E <message>", with a line break where the message has none.
int format_line(char* out, size_t size, int prio, const char* tag, const char* fmt, va_list ap) {
  char message[1024];
  if (vsnprintf(message, sizeof message, fmt, ap) < 0) return -1;
  const size_t len = strlen(message);
  const bool ends_line = len > 0 && message[len - 1] == '\n';
  const char level = prio >= tavo::platform::kLogPriorityError ? 'E' : 'I';
  return snprintf(out, size, "%s %c %s%s", tag ? tag : "", level, message, ends_line ? "" : "\n");
}

}  // namespace

void tavo::platform::set_log_sink_for_testing(LogSink sink) { g_sink.store(sink, std::memory_order_release); }

extern "C" int __android_log_print(int prio, const char* tag, const char* fmt, ...) {
  if (const tavo::platform::LogSink sink = g_sink.load(std::memory_order_acquire)) {
    char message[2048];
    va_list ap;
    va_start(ap, fmt);
    const int n = vsnprintf(message, sizeof message, fmt, ap);
    va_end(ap);
    if (n >= 0) sink(prio, tag, message);
    return n;
  }
  const char* destination = tavo::platform::environment().log_destination;
  const bool redirected = *destination != '\0';
  if (redirected && strcmp(destination, "quiet") == 0) return 0;

  va_list ap;
  va_start(ap, fmt);
#if defined(TAVO_HDR_WITH_LIBLOG)
  if (!redirected) {
    const int n = __android_log_vprint(prio, tag, fmt, ap);
    va_end(ap);
    return n;
  }
#endif
  char line[1100];
  const int n = format_line(line, sizeof line, prio, tag, fmt, ap);
  va_end(ap);
  if (n < 0) return n;
  const size_t len = strlen(line);
  if (!redirected) return static_cast<int>(fwrite(line, 1, len, stderr));
  // One write per line on a descriptor opened for appending, so that lines
  // from several threads or processes never interleave.
  const int fd = open(destination, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0644);
  if (fd < 0) return -1;
  const ssize_t written = write(fd, line, len);
  close(fd);
  return written < 0 ? -1 : static_cast<int>(written);
}
