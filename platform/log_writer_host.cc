// The shared library's log writer on a host. The environment variable
// TAVO_HDR_LOG, read at every line, decides where the library's lines go:
//  - unset or empty: where they always went, Debian's android-liblog when the
//    build links it, else stderr as "hdr E <message>";
//  - "quiet": nowhere;
//  - anything else: a file path; each line is appended to it as
//    "hdr E <message>" (the file is created when missing).
// The Android build logs through the platform's liblog directly and has no
// such switch. Programs that link the library's objects instead of the shared
// library supply their own writer.
#include <fcntl.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "platform/log.h"

#if defined(TAVO_HDR_WITH_LIBLOG)
extern "C" int __android_log_vprint(int prio, const char* tag, const char* fmt, va_list ap);
#endif

namespace {

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

extern "C" int __android_log_print(int prio, const char* tag, const char* fmt, ...) {
  const char* destination = getenv("TAVO_HDR_LOG");
  const bool redirected = destination != nullptr && *destination != '\0';
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
