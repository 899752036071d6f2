// Names of the raw frames the library dumps for one capture:
// "IMG_<W>x<H><layout>_<yyyymmdd>_<hhmmss>" followed by "_0.yuv", "_1.yuv",
// "_2.yuv" for the inputs and, for the output, "_hdr.yuv" under the time stamp
// taken after the fusion (often a second or more later than the inputs').
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace tavo::tool {

struct DumpName {
  int32_t width = 0;
  int32_t height = 0;
  std::string layout;  // the text between the size and the time stamp
  std::string stamp;   // "yyyymmdd_hhmmss"
};

// Parses a capture's base name (no directory, no suffix); false when it does
// not have the dump form.
bool parse_dump_name(const std::string& base, DumpName* name);

struct Capture {
  std::string prefix;  // directory and base name, e.g. "dumps/IMG_64x48YUV420_PLANAR_20180823_090812"
  DumpName name;
};

// Turns the replay arguments into captures: a directory stands for every
// "*_0.yuv" in it that has its "_1.yuv" and "_2.yuv"; any other argument is a
// prefix (a trailing "_0.yuv" or "_" is dropped). Captures of a directory are in
// time order. Anything but kCollected comes with a one-line reason in *error.
enum class Collected { kCollected, kNotACaptureName, kMissing, kUnlistable };
Collected collect_captures(const std::vector<std::string>& args, std::vector<Capture>* captures,
                           std::string* error);

// The output the library dumped for `capture`: "<prefix>_hdr.yuv" when it
// exists, else the earliest "_hdr.yuv" of the same size and layout in the same
// directory stamped at or after the inputs and before the next capture's
// inputs. Empty when there is none.
std::string find_dumped_output(const Capture& capture);

}  // namespace tavo::tool
