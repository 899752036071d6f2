// Error log of the library. Every line goes to the Android log at priority 6
// (error) under the tag "hdr" and begins with the source line and the calling
// function: "L %d, %s: ".
#pragma once

#include <cstdint>

#if defined(__ANDROID__)
#include <android/log.h>
#else
extern "C" int __android_log_print(int prio, const char* tag, const char* fmt, ...)
    __attribute__((format(printf, 3, 4)));
#endif

namespace tavo::platform {
inline constexpr int kLogPriorityError = 6;
inline constexpr const char* kLogTag = "hdr";

// Pointers appear in the log as 32-bit hexadecimal words.
inline unsigned log_hex(const void* ptr) {
  return static_cast<unsigned>(reinterpret_cast<uintptr_t>(ptr));
}

#if !defined(__ANDROID__)
// The host writer (platform/log_writer_host.cc) hands every line to the sink,
// when one is installed, instead of sending it where TAVO_HDR_LOG says: the
// programs that link the library's objects (tests, benchmarks) read the log
// this way. The message is formatted, without tag and level. nullptr restores
// the usual destination. The shared library never installs one.
using LogSink = void (*)(int prio, const char* tag, const char* message);
void set_log_sink_for_testing(LogSink sink);
#endif
}  // namespace tavo::platform

// HDR_LOG_AS: a line attributed to a given source line and function name, for the
// messages whose line and function are part of the log's contract.
#define HDR_LOG_AS(line, func, fmt, ...)                                              \
  __android_log_print(::tavo::platform::kLogPriorityError, ::tavo::platform::kLogTag, \
                      "L %d, %s: " fmt, static_cast<int>(line),                       \
                      func __VA_OPT__(, ) __VA_ARGS__)
#define HDR_LOG_AT(line, fmt, ...) HDR_LOG_AS(line, __func__, fmt __VA_OPT__(, ) __VA_ARGS__)
#define HDR_LOG(fmt, ...) HDR_LOG_AS(__LINE__, __func__, fmt __VA_OPT__(, ) __VA_ARGS__)
