#include "platform/properties.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>

#include "platform/environment.h"
#include "platform/log.h"

#if defined(__ANDROID__)
#include <sys/system_properties.h>
#endif

namespace tavo::platform {
namespace {

int copy_value(char* value, const char* text, size_t len) {
  if (len >= kPropertyValueMax) len = kPropertyValueMax - 1;
  memcpy(value, text, len);
  value[len] = '\0';
  return static_cast<int>(len);
}

#if !defined(__ANDROID__)
// Finds the value of one key in a stream of "key=value" lines fed in pieces,
// so that lines of any length are read as the lines they are: a comment stays
// a comment however long it is, and a long value keeps its first bytes. Blank
// lines and lines whose first non-blank character is '#' are skipped; blanks
// around the key, the '=' and the value are not part of them; a carriage
// return ends the line's text. The last line that sets the key wins.
class PropertyScanner {
 public:
  explicit PropertyScanner(const char* key) : key_(key), key_len_(strlen(key)) {}

  void feed(const char* bytes, size_t n) {
    for (size_t i = 0; i < n; ++i) step(bytes[i]);
  }
  // End of the text: a last line without a newline still counts.
  void finish() { step('\n'); }
  // The text was cut short: its last, partial line is dropped.
  void drop_partial_line() { state_ = State::kLineStart; }

  bool found() const { return found_; }
  const char* value() const { return value_; }

 private:
  enum class State { kLineStart, kKey, kBeforeEquals, kBeforeValue, kValue, kSkip };

  void step(char c) {
    if (c == '\n') {
      if (state_ == State::kBeforeValue || state_ == State::kValue) take_value();
      state_ = State::kLineStart;
      return;
    }
    if (c == '\r') c = '\0';  // the text of the line ends here
    const bool blank = c == ' ' || c == '\t';
    switch (state_) {
      case State::kLineStart:
        if (blank) return;
        matched_ = 0;
        state_ = c == '#' || c == '\0' ? State::kSkip : State::kKey;
        if (state_ == State::kKey) key_char(c);
        return;
      case State::kKey:
        key_char(c);
        return;
      case State::kBeforeEquals:
        if (!blank) state_ = c == '=' ? State::kBeforeValue : State::kSkip;
        return;
      case State::kBeforeValue:
        if (blank) return;
        value_end_ = 0;
        length_ = 0;
        state_ = State::kValue;
        [[fallthrough]];
      case State::kValue:
        if (c == '\0') {
          take_value();
          state_ = State::kSkip;
          return;
        }
        if (length_ < kPropertyValueMax - 1) buffer_[length_] = c;
        ++length_;
        if (!blank) value_end_ = length_;
        return;
      case State::kSkip:
        return;
    }
  }

  // The key must match whole, and be followed by blanks or '='.
  void key_char(char c) {
    if (matched_ < key_len_) {
      if (c == key_[matched_]) {
        ++matched_;
      } else {
        state_ = State::kSkip;
      }
      return;
    }
    state_ = State::kBeforeEquals;
    step(c);
  }

  // A value of only blanks is empty; trailing blanks are dropped before the
  // value is cut to the property length.
  void take_value() {
    size_t n = state_ == State::kValue ? value_end_ : 0;
    if (n > kPropertyValueMax - 1) n = kPropertyValueMax - 1;
    memcpy(value_, buffer_, n);
    value_[n] = '\0';
    found_ = true;
  }

  const char* key_;
  size_t key_len_;
  State state_ = State::kLineStart;
  size_t matched_ = 0;
  char buffer_[kPropertyValueMax];
  size_t value_end_ = 0, length_ = 0;  // after the last non-blank, and all of the value
  char value_[kPropertyValueMax] = {0};
  bool found_ = false;
};

// Reads the property file named by TAVO_HDR_PROPERTIES (as the environment
// snapshot holds it), at most
// kPropertyFileMax bytes of it: a property file is small, and a device or a
// pipe given by mistake must neither block nor be read forever. Anything
// other than a regular file is read without waiting for more data.
bool read_property_file(const char* key, char* value) {
  const char* path = environment().property_file;
  if (*path == '\0') return false;
  const int fd = open(path, O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  if (fd < 0) return false;
  struct stat st{};
  const bool regular = fstat(fd, &st) == 0 && S_ISREG(st.st_mode);
  if (!regular) {
    HDR_LOG("property file %s is not a regular file, at most %zu bytes of it are read\n", path,
            kPropertyFileMax);
  } else if (static_cast<uint64_t>(st.st_size) > kPropertyFileMax) {
    HDR_LOG("property file %s is %lld bytes, only the first %zu are read\n", path,
            static_cast<long long>(st.st_size), kPropertyFileMax);
  }
  PropertyScanner scanner(key);
  char chunk[4096];
  size_t total = 0;
  while (total < kPropertyFileMax) {
    const ssize_t n = read(fd, chunk, std::min(sizeof chunk, kPropertyFileMax - total));
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) break;  // end, or nothing more to read without waiting
    scanner.feed(chunk, static_cast<size_t>(n));
    total += static_cast<size_t>(n);
  }
  close(fd);
  // Stopped at the bound with more to come: the last line read is partial.
  const bool cut =
      total == kPropertyFileMax && (!regular || static_cast<uint64_t>(st.st_size) > kPropertyFileMax);
  if (cut) {
    scanner.drop_partial_line();
  } else {
    scanner.finish();
  }
  if (!scanner.found()) return false;
  copy_value(value, scanner.value(), strlen(scanner.value()));
  return true;
}
#endif

}  // namespace

int property_get(const char* key, char* value, const char* default_value) {
  value[0] = '\0';
#if defined(__ANDROID__)
  char found[PROP_VALUE_MAX] = {0};
  if (__system_property_get(key, found) > 0) return copy_value(value, found, strlen(found));
#else
  if (read_property_file(key, value) && value[0] != '\0') return static_cast<int>(strlen(value));
#endif
  if (default_value == nullptr) return 0;
  return copy_value(value, default_value, strlen(default_value));
}

}  // namespace tavo::platform
