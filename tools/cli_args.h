// Command line of tavo-hdr: a command, its files and the options.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace tavo::tool {

struct Options {
  std::string command = "demo";
  std::vector<std::string> inputs;  // fuse: three frames; replay: prefixes or directories; batch: a folder
  std::string output;               // fuse: -o
  std::string out_dir;              // demo, replay, batch
  int32_t width = 0, height = 0;    // --size
  std::string layout = "YUV420_PLANAR";
  // fuse: "exposure" (the tool orders the frames) or "as-given"; "" for the
  // default, exposure for images and as given for raw frames.
  std::string order;
  std::vector<std::pair<std::string, std::string>> properties;  // --prop key=value
  std::string dump_dir;
  int jobs = 0;         // replay, batch: worker processes (0: as many as suit the machine)
  std::string report;   // replay: JSON Lines report
  bool quiet = false;   // no progress display
  bool verbose = false;
  int quality = 95;     // JPEG outputs
  int group = 3;        // batch: frames of a bracket
  bool force = false;   // batch: fuse brackets whose result exists too
  bool stop = false;  // raise the stop request before the capture
  bool help = false, version = false;
};

inline constexpr int kMaxJobs = 256;
inline constexpr int kMaxGroup = 99;

// Parses argv; false with a one-line reason in *error.
bool parse_args(int argc, const char* const* argv, Options* options, std::string* error);

// "WxH" with positive decimal numbers.
bool parse_size(const std::string& text, int32_t* width, int32_t* height);

// Why a frame size cannot be fused ("" when it can): the limits of
// tavo_lumo_hdr.h.
std::string frame_size_problem(int32_t width, int32_t height);

// Why the library cannot fuse frames of this layout name ("" when it can).
std::string layout_problem(const std::string& layout);

// The usage, shown with a bad command line; --help adds kHelp, from which
// the man page is made.
extern const char kUsage[];
extern const char kHelp[];

}  // namespace tavo::tool
