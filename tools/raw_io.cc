#include "tools/raw_io.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "platform/yuv420_frame.h"

namespace tavo::tool {

namespace {

constexpr size_t kAnySize = SIZE_MAX;

// O_NONBLOCK so that opening a FIFO does not wait for a writer; it has no
// effect on the reads of a regular file.
bool read_regular(const std::string& path, size_t expected, const std::string& expected_note,
                  std::vector<uint8_t>* bytes, std::string* error) {
  const int fd = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  if (fd < 0) {
    *error = "cannot open " + path + ": " + strerror(errno);
    return false;
  }
  struct stat st;
  bool ok = fstat(fd, &st) == 0;
  if (!ok) {
    *error = "cannot read " + path + ": " + strerror(errno);
  } else if (!S_ISREG(st.st_mode)) {
    *error = path + " is not a regular file";
    ok = false;
  } else if (expected != kAnySize && static_cast<size_t>(st.st_size) != expected) {
    *error = path + " is " + std::to_string(st.st_size) + " bytes, " + expected_note;
    ok = false;
  }
  if (ok) bytes->resize(static_cast<size_t>(st.st_size));
  for (size_t done = 0; ok && done < bytes->size();) {
    const ssize_t n = read(fd, bytes->data() + done, bytes->size() - done);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) {
      *error = "cannot read " + path + ": " + (n < 0 ? strerror(errno) : "it shrank while being read");
      ok = false;
    }
    done += n > 0 ? static_cast<size_t>(n) : 0;
  }
  close(fd);
  return ok;
}

}  // namespace

size_t raw_frame_bytes(int32_t width, int32_t height) {
  return static_cast<size_t>(yuv420_planes(width, height).frame_bytes);
}

bool read_file(const std::string& path, std::vector<uint8_t>* bytes, std::string* error) {
  return read_regular(path, kAnySize, "", bytes, error);
}

bool read_raw_frame(const std::string& path, int32_t width, int32_t height, std::vector<uint8_t>* bytes,
                    std::string* error) {
  const size_t expected = raw_frame_bytes(width, height);
  return read_regular(path, expected,
                      "a " + std::to_string(width) + "x" + std::to_string(height) + " frame is " +
                          std::to_string(expected) + " (W*H*3/2)",
                      bytes, error);
}

}  // namespace tavo::tool
