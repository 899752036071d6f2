// Host log writer for builds without Android's liblog: prints each line to
// stderr as "hdr E <message>", adding a line break where the message has none.
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "platform/log.h"

extern "C" int __android_log_print(int prio, const char* tag, const char* fmt, ...) {
  char line[1024];
  va_list ap;
  va_start(ap, fmt);
  const int n = vsnprintf(line, sizeof line, fmt, ap);
  va_end(ap);
  if (n < 0) return n;
  const size_t len = strlen(line);
  const bool ends_line = len > 0 && line[len - 1] == '\n';
  const char level = prio >= tavo::platform::kLogPriorityError ? 'E' : 'I';
  return fprintf(stderr, "%s %c %s%s", tag ? tag : "", level, line, ends_line ? "" : "\n");
}
