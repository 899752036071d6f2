// Reading input files. Only regular files are read, and their length is taken
// from the open descriptor before a byte is read: a FIFO, a device or a
// directory is refused at once instead of blocking or reading without end.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace tavo::tool {

// W*H*3/2: a YUV 4:2:0 frame.
size_t raw_frame_bytes(int32_t width, int32_t height);

// The file's bytes; false with a one-line reason in *error.
bool read_file(const std::string& path, std::vector<uint8_t>* bytes, std::string* error);

// A raw frame of the given size: the file must be exactly W*H*3/2 bytes.
// *error_number, when given, receives the system's error number of a failure
// (EISDIR for a directory, 0 for a refusal that is not the system's).
bool read_raw_frame(const std::string& path, int32_t width, int32_t height, std::vector<uint8_t>* bytes,
                    std::string* error, int* error_number = nullptr);

// read_raw_frame, telling a regular file of another size, which is not read
// (kOtherSize, its size in *size), from a refusal (kFailed, with a one-line
// reason in *error).
enum class FrameRead { kRead, kOtherSize, kFailed };
FrameRead read_frame_or_size(const std::string& path, int32_t width, int32_t height, std::vector<uint8_t>* bytes,
                             uint64_t* size, std::string* error);

}  // namespace tavo::tool
