// Whole-file reads and all-or-nothing writes. A write goes to a temporary file
// beside the destination and is renamed over it only once every byte is on
// disk, so a failed or interrupted run never leaves a partial output.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace tavo::tool {

// The file's bytes; false with a one-line reason in *error when it cannot be
// opened or read.
bool read_file(const std::string& path, std::vector<uint8_t>* bytes, std::string* error);

// Writes `size` bytes to "<dir>/.<name>.<pid>.tmp", then renames it to `path`.
// On failure the temporary file is removed and `path` is untouched.
bool write_file_atomic(const std::string& path, const uint8_t* data, size_t size,
                       std::string* error);

}  // namespace tavo::tool
