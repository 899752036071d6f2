// Names of the raw frames the library dumps for one capture:
// "IMG_<W>x<H><layout>_<yyyymmdd>_<hhmmss>" followed by "_0.yuv", "_1.yuv",
// "_2.yuv" for the inputs and, for the output, "_hdr.yuv" under the time stamp
// taken after the fusion (often a second or more later than the inputs').
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

namespace tavo::tool {

struct DumpName {
  int32_t width = 0;   // INT32_MAX when the name's number is larger
  int32_t height = 0;
  std::string size;    // "<W>x<H>" as the name writes it, every digit
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
// *error_number, when given, receives the system's error number of
// kMissing (ENOENT) and kUnlistable.
Collected collect_captures(const std::vector<std::string>& args, std::vector<Capture>* captures,
                           std::string* error, int* error_number = nullptr);

// The dumps of one directory, from its file names, by kind (size and layout):
// the time stamps of the captures' inputs and the outputs in time order.
class DumpIndex {
 public:
  explicit DumpIndex(const std::vector<std::string>& names);
  // The name of the earliest "_hdr.yuv" of the capture's kind stamped at or
  // after its inputs and before the next capture's inputs of that kind; ""
  // when there is none.
  std::string output_of(const DumpName& capture) const;

 private:
  struct Kind {
    std::vector<std::string> input_stamps;
    std::vector<std::pair<std::string, std::string>> outputs;  // (stamp, name)
  };
  std::map<std::tuple<int32_t, int32_t, std::string>, Kind> kinds_;
};

// The output the library dumped for a capture: "<prefix>_hdr.yuv" when it
// exists, else DumpIndex::output_of in the capture's directory. Empty when
// there is none. Each directory is listed once, however many captures it holds.
class DumpedOutputs {
 public:
  std::string find(const Capture& capture);

 private:
  std::map<std::string, DumpIndex> directories_;
};

// DumpedOutputs().find(capture), for one capture.
std::string find_dumped_output(const Capture& capture);

}  // namespace tavo::tool
