// Whole transfers on a file descriptor: every byte, going on after a signal.
#pragma once

#include <cstddef>

namespace tavo::tool {

// False at an error (errno set) or, when reading, at the end of the data.
bool write_all(int fd, const void* data, size_t size);
bool read_all(int fd, void* data, size_t size);

}  // namespace tavo::tool
