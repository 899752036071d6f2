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
// effect on the reads of a regular file. The size is checked before a byte is
// read (or memory taken for it).
FrameRead read_regular(const std::string& path, size_t expected, std::vector<uint8_t>* bytes, uint64_t* size,
                       std::string* error, int* error_number = nullptr) {
  int number = 0;
  const int fd = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  if (fd < 0) {
    number = errno;
    *error = "cannot open " + path + ": " + strerror(number);
    if (error_number != nullptr) *error_number = number;
    return FrameRead::kFailed;
  }
  struct stat st;
  FrameRead result = FrameRead::kRead;
  if (fstat(fd, &st) != 0) {
    number = errno;
    *error = "cannot read " + path + ": " + strerror(number);
    result = FrameRead::kFailed;
  } else if (!S_ISREG(st.st_mode)) {
    number = S_ISDIR(st.st_mode) ? EISDIR : 0;
    *error = path + " is not a regular file";
    result = FrameRead::kFailed;
  } else if (expected != kAnySize && static_cast<size_t>(st.st_size) != expected) {
    *size = static_cast<uint64_t>(st.st_size);
    result = FrameRead::kOtherSize;
  }
  if (result == FrameRead::kRead) bytes->resize(static_cast<size_t>(st.st_size));
  for (size_t done = 0; result == FrameRead::kRead && done < bytes->size();) {
    const ssize_t n = read(fd, bytes->data() + done, bytes->size() - done);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) {
      number = n < 0 ? errno : 0;
      *error = "cannot read " + path + ": " + (n < 0 ? strerror(number) : "it shrank while being read");
      result = FrameRead::kFailed;
    }
    done += n > 0 ? static_cast<size_t>(n) : 0;
  }
  close(fd);
  if (error_number != nullptr) *error_number = number;
  return result;
}

}  // namespace

size_t raw_frame_bytes(int32_t width, int32_t height) {
  return static_cast<size_t>(yuv420_planes(width, height).frame_bytes);
}

bool read_file(const std::string& path, std::vector<uint8_t>* bytes, std::string* error) {
  uint64_t size = 0;
  return read_regular(path, kAnySize, bytes, &size, error) == FrameRead::kRead;
}

FrameRead read_frame_or_size(const std::string& path, int32_t width, int32_t height, std::vector<uint8_t>* bytes,
                             uint64_t* size, std::string* error) {
  return read_regular(path, raw_frame_bytes(width, height), bytes, size, error);
}

bool read_raw_frame(const std::string& path, int32_t width, int32_t height, std::vector<uint8_t>* bytes,
                    std::string* error, int* error_number) {
  uint64_t size = 0;
  const FrameRead read = read_regular(path, raw_frame_bytes(width, height), bytes, &size, error, error_number);
  if (read == FrameRead::kOtherSize) {
    *error = path + " is " + std::to_string(size) + " bytes, a " + std::to_string(width) + "x" +
             std::to_string(height) + " frame is " + std::to_string(raw_frame_bytes(width, height)) + " (W*H*3/2)";
  }
  return read == FrameRead::kRead;
}

}  // namespace tavo::tool
