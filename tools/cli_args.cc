#include "tools/cli_args.h"

#include <cctype>
#include <cstdlib>

#include "platform/yuv420_frame.h"
#include "tavo_lumo_hdr.h"

namespace tavo::tool {

const char kUsage[] =
    "Usage: tavo-hdr [demo] [--size WxH] [--out-dir DIR]\n"
    "  or:  tavo-hdr fuse FRAME FRAME FRAME -o OUT [--order exposure|as-given] [--quality Q] [--size WxH --layout NAME]\n"
    "  or:  tavo-hdr replay PREFIX|DIR... [--out-dir DIR] [--jobs N] [--report FILE] [--quiet]\n"
    "  or:  tavo-hdr batch DIR --out-dir OUT [--group N] [--jobs N] [--force] [--order ...] [--quality Q] [--quiet]\n"
    "  or:  tavo-hdr --version\n"
    "\n"
    "Options for every command: --prop key=value (repeatable), --dump-dir DIR, --verbose.\n"
    "Raw frames (.yuv or any other name) need --size; layouts: YUV420_PLANAR (default),\n"
    "YVU420_SEMIPLANAR. Image files (.jpg, .jpeg, .png) carry their size; alpha is\n"
    "composited over black; they are ordered dark, normal, bright by their exposure\n"
    "(EXIF, else mean luma), raw frames taken as given (--order switches either).\n"
    "Ctrl-C stops a capture and exits with 130 (SIGTERM: 143, SIGHUP: 129); standard\n"
    "output that cannot be written ends it with 7.\n";

const char kHelp[] =
    "\n"
    "Fuses three differently exposed frames of one scene into one high-dynamic-range\n"
    "frame with libtavo_lumo_hdr, as a camera service does on the phone.\n"
    "\n"
    "Commands:\n"
    "  demo      fuse a synthetic bracket; writes demo_result.png and demo_contact_sheet.png\n"
    "  fuse      fuse three raw YUV 4:2:0 frames, or three JPEG or PNG photographs\n"
    "  replay    fuse captures the library dumped and compare them with its output\n"
    "  batch     fuse every bracket of photographs in a folder\n"
    "\n"
    "Options:\n"
    "  -o, --out FILE         fuse: the result (raw, or .jpg, .jpeg, .png)\n"
    "  --out-dir DIR          demo, replay, batch: where the results go\n"
    "  --size WxH             raw frames' size; demo: the scene's (1920x1080)\n"
    "  --layout NAME          raw frames' layout: YUV420_PLANAR or YVU420_SEMIPLANAR\n"
    "  --order exposure|as-given\n"
    "                         fuse, batch: order the frames by exposure or take them as given\n"
    "  --quality Q            JPEG outputs' quality, 1 to 100 (95)\n"
    "  --group N              batch: frames of a bracket (3); of more, the darkest,\n"
    "                         the middle and the brightest are fused\n"
    "  --force                batch: fuse brackets whose result exists too\n"
    "  -j, --jobs N           replay, batch: worker processes (one per core)\n"
    "  --report FILE          replay: a JSON Lines report\n"
    "  -q, --quiet            no progress line on a terminal\n"
    "  --prop key=value       a library property for this run (repeatable)\n"
    "  --dump-dir DIR         where the library's dumps go\n"
    "  --stop                 raise the library's stop flag before the capture\n"
    "  -v, --verbose          show the library's log\n"
    "  -h, --help             show this text\n"
    "  --version              show the library's version\n"
    "\n"
    "Exit status:\n"
    "  0 done, 2 bad arguments, 3 input or output files (batch: a bracket could not\n"
    "  be read or ordered), 4 the library failed or memory ran out, 5 stopped by\n"
    "  --stop, 6 replay: an output differs, 7 standard output lost, 128 + the signal\n"
    "  that stopped it.\n";

namespace {

bool positive_number(const std::string& s, int32_t* value) {
  if (s.empty() || s.size() > 6) return false;
  for (char c : s) {
    if (!std::isdigit(static_cast<unsigned char>(c))) return false;
  }
  *value = std::atoi(s.c_str());
  return *value > 0;
}

}  // namespace

bool parse_size(const std::string& text, int32_t* width, int32_t* height) {
  const size_t x = text.find('x');
  return x != std::string::npos && positive_number(text.substr(0, x), width) &&
         positive_number(text.substr(x + 1), height);
}

std::string frame_size_problem(int32_t width, int32_t height) {
  if (width < TAVO_HDR_MIN_WIDTH || width % 8 != 0) {
    return "width " + std::to_string(width) + " is not a multiple of 8";
  }
  if (height < TAVO_HDR_MIN_HEIGHT || height % 2 != 0) return "height " + std::to_string(height) + " is odd";
  if (static_cast<uint64_t>(width) * static_cast<uint64_t>(height) > TAVO_HDR_MAX_PIXELS) {
    return std::to_string(width) + "x" + std::to_string(height) + " is more than the library's " +
           std::to_string(TAVO_HDR_MAX_PIXELS) + " pixels";
  }
  return "";
}

std::string layout_problem(const std::string& layout) {
  return tavo::parse_layout(layout.c_str()) != tavo::ChromaLayout::kOther
             ? ""
             : "unknown layout '" + layout + "' (YUV420_PLANAR or YVU420_SEMIPLANAR)";
}

bool parse_args(int argc, const char* const* argv, Options* options, std::string* error) {
  int i = 1;
  if (i < argc && argv[i][0] != '-') options->command = argv[i++];
  if (options->command != "demo" && options->command != "fuse" && options->command != "replay" &&
      options->command != "batch" && options->command != "help") {
    *error = "unknown command '" + options->command + "' (demo, fuse, replay, batch)";
    return false;
  }
  options->help = options->command == "help";
  for (; i < argc; ++i) {
    const std::string arg = argv[i];
    auto value = [&](std::string* out) {
      if (i + 1 >= argc) {
        *error = "option " + arg + " needs a value";
        return false;
      }
      *out = argv[++i];
      return true;
    };
    std::string v;
    if (arg == "-h" || arg == "--help") {
      options->help = true;
    } else if (arg == "--version") {
      options->version = true;
    } else if (arg == "--quality") {
      if (!value(&v)) return false;
      if (!positive_number(v, &options->quality) || options->quality > 100) {
        *error = "bad quality '" + v + "' (1 to 100)";
        return false;
      }
    } else if (arg == "--verbose" || arg == "-v") {
      options->verbose = true;
    } else if (arg == "--quiet" || arg == "-q") {
      options->quiet = true;
    } else if (arg == "--report") {
      if (!value(&options->report)) return false;
    } else if (arg == "--jobs" || arg == "-j") {
      if (!value(&v)) return false;
      if (!positive_number(v, &options->jobs) || options->jobs > kMaxJobs) {
        *error = "bad job count '" + v + "' (1 to " + std::to_string(kMaxJobs) + ")";
        return false;
      }
    } else if (arg == "--group") {
      if (!value(&v)) return false;
      if (!positive_number(v, &options->group) || options->group < 3 || options->group > kMaxGroup) {
        *error = "bad group '" + v + "' (3 to " + std::to_string(kMaxGroup) + " frames)";
        return false;
      }
    } else if (arg == "--force") {
      options->force = true;
    } else if (arg == "--stop") {
      options->stop = true;
    } else if (arg == "-o" || arg == "--out") {
      if (!value(&options->output)) return false;
    } else if (arg == "--out-dir") {
      if (!value(&options->out_dir)) return false;
    } else if (arg == "--dump-dir") {
      if (!value(&options->dump_dir)) return false;
    } else if (arg == "--order") {
      if (!value(&options->order)) return false;
      if (options->order != "exposure" && options->order != "as-given") {
        *error = "bad order '" + options->order + "' (exposure or as-given)";
        return false;
      }
    } else if (arg == "--layout") {
      if (!value(&options->layout)) return false;
    } else if (arg == "--size") {
      if (!value(&v)) return false;
      if (!parse_size(v, &options->width, &options->height)) {
        *error = "bad size '" + v + "' (expected WxH, e.g. 1920x1080)";
        return false;
      }
    } else if (arg == "--prop") {
      if (!value(&v)) return false;
      const size_t eq = v.find('=');
      if (eq == std::string::npos || eq == 0 || v.find('\n') != std::string::npos) {
        *error = "bad property '" + v + "' (expected key=value)";
        return false;
      }
      options->properties.emplace_back(v.substr(0, eq), v.substr(eq + 1));
    } else if (arg.size() > 1 && arg[0] == '-') {
      *error = "unknown option " + arg;
      return false;
    } else {
      options->inputs.push_back(arg);
    }
  }
  if (options->help || options->version) return true;
  if (options->command == "fuse" && (options->inputs.size() != 3 || options->output.empty())) {
    *error = "fuse takes three input files and -o OUTPUT";
    return false;
  }
  if (options->command == "replay" && options->inputs.empty()) {
    *error = "replay takes at least one capture prefix or directory";
    return false;
  }
  if (options->command == "batch" && (options->inputs.size() != 1 || options->out_dir.empty())) {
    *error = "batch takes one folder and --out-dir OUT";
    return false;
  }
  if (options->command == "demo" && !options->inputs.empty()) {
    *error = "demo takes no files";
    return false;
  }
  return true;
}

}  // namespace tavo::tool
