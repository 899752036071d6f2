#include "tools/fd_io.h"

#include <unistd.h>

#include <cerrno>
#include <cstdint>

namespace tavo::tool {

namespace {

template <class Bytes, class Transfer>
bool transfer_all(int fd, Bytes* p, size_t size, Transfer transfer) {
  while (size > 0) {
    const ssize_t n = transfer(fd, p, size);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    p += n;
    size -= static_cast<size_t>(n);
  }
  return true;
}

}  // namespace

bool write_all(int fd, const void* data, size_t size) {
  return transfer_all(fd, static_cast<const uint8_t*>(data), size, write);
}

bool read_all(int fd, void* data, size_t size) { return transfer_all(fd, static_cast<uint8_t*>(data), size, read); }

}  // namespace tavo::tool
