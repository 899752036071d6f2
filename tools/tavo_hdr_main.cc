// tavo-hdr: the library off the phone. Fuses raw frames or image files, replays
// captures the library dumped, and runs a built-in demo on a synthetic scene.
//
// The tool uses the shared library through its public header, as any program
// does. The library's log goes to a temporary file the tool names in
// TAVO_HDR_LOG; the tool shows it with --verbose, and anyway when a capture
// fails, so the user sees why.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <new>
#include <string>
#include <vector>

#include "tavo_lumo_hdr.h"
#include "tools/cli_args.h"
#include "tools/contact_sheet.h"
#include "tools/dump_names.h"
#include "tools/frame_diff.h"
#include "tools/image_io.h"
#include "tools/interrupt.h"
#include "tools/output_file.h"
#include "tools/printable_text.h"
#include "tools/raw_io.h"
#include "tools/scene/scene.h"
#include "tools/staged_capture.h"
#include "tools/stopwatch.h"
#include "tools/yuv_convert.h"

namespace fs = std::filesystem;
using namespace tavo::tool;

namespace {

enum Exit {
  kOk = 0,
  kUsageError = 2,
  kInputError = 3,
  kLibraryFailed = 4,
  kStopped = 5,
  kReplayDiffers = 6,
  kOutputLost = 7,
  kInterrupted = 128,  // exits with 128 + the signal
};

// One line on stderr; names in it are shown with their control characters
// escaped.
int fail(int code, const std::string& message) {
  fprintf(stderr, "tavo-hdr: %s\n", printable(message).c_str());
  return code;
}

// Thrown when standard output cannot be written (a closed pipe, a full disk):
// the command stops there rather than work on for nobody, and the tool exits
// with kOutputLost.
struct OutputLost {
  int error;
};

// printf to stdout, flushed at once; throws OutputLost when the write fails.
[[gnu::format(printf, 1, 2)]] void say(const char* format, ...) {
  va_list args;
  va_start(args, format);
  const int n = vprintf(format, args);
  va_end(args);
  if (n < 0 || fflush(stdout) != 0 || ferror(stdout)) throw OutputLost{errno};
}

// ---- Library log ---------------------------------------------------------

// The library appends its lines to the file TAVO_HDR_LOG names; the tool owns
// that file ($TMPDIR or /tmp), takes what has been written after each step and
// shows it on stderr when asked to or when the step failed. Without a file the
// lines go where the library sends them by default, stderr.
class LibraryLog {
 public:
  void open(bool verbose) {
    verbose_ = verbose;
    const char* tmp = getenv("TMPDIR");
    const std::string dir = tmp != nullptr && tmp[0] != '\0' ? tmp : "/tmp";
    std::string error;
    if (file_.create(dir, "tavo-hdr-log-", &error) && file_.close_file()) {
      setenv("TAVO_HDR_LOG", file_.path().c_str(), 1);
      open_ = true;
    }
  }
  // The lines written since the last call, shown when `failed` or verbose.
  void take(bool failed) {
    if (!open_) return;
    std::vector<uint8_t> text;
    std::string error;
    if (!read_file(file_.path(), &text, &error) || truncate(file_.path().c_str(), 0) != 0) return;
    if (verbose_ || failed) fwrite(text.data(), 1, text.size(), stderr);
  }

 private:
  TempFile file_;
  bool open_ = false, verbose_ = false;
} g_log;

void print_time(const char* name, double ms) { say("%-13s%9.1f ms\n", name, ms); }

// ---- Run-time settings of the library ------------------------------------

// --prop values go to a property file in $TMPDIR (or /tmp) named by
// TAVO_HDR_PROPERTIES, removed at exit; --dump-dir, created when missing, sets
// TAVO_HDR_DUMP_DIR. Both before the pool starts.
class LibrarySettings {
 public:
  bool apply(const Options& options, std::string* error) {
    if (!options.dump_dir.empty()) {
      if (!prepare_directory(options.dump_dir, "dump directory", error)) return false;
      setenv("TAVO_HDR_DUMP_DIR", options.dump_dir.c_str(), 1);
    }
    if (options.properties.empty()) return true;
    std::string text;
    for (const auto& [key, value] : options.properties) text += key + "=" + value + "\n";
    const char* tmp = getenv("TMPDIR");
    const std::string dir = tmp != nullptr && tmp[0] != '\0' ? tmp : "/tmp";
    if (!file_.create(dir, "tavo-hdr-props-", error)) {
      *error = "cannot create a property file in " + dir + ": " + *error;
      return false;
    }
    if (fchmod(file_.fd(), 0600) != 0 || !file_.write_all(reinterpret_cast<const uint8_t*>(text.data()), text.size()) ||
        !file_.close_file()) {
      *error = "cannot write the property file " + file_.path() + ": " + strerror(errno);
      return false;
    }
    setenv("TAVO_HDR_PROPERTIES", file_.path().c_str(), 1);
    return true;
  }

 private:
  TempFile file_;
};

// The workers start with SIGINT and SIGTERM blocked, so the handler runs on
// the main thread.
class Pool {
 public:
  Pool() {
    {
      BlockInterrupts block;
      ok_ = tavo_hdr_pool_init() == 0;
    }
    g_log.take(!ok_);
  }
  ~Pool() {
    if (ok_) tavo_hdr_pool_destroy();
  }
  bool ok() const { return ok_; }

 private:
  bool ok_ = false;
};

void raise_stop_flag() { tavo_hdr_set_stop_flag(1); }

// ---- One capture ---------------------------------------------------------

struct Frames {
  int32_t width = 0, height = 0;
  std::string layout;
  std::vector<uint8_t> data[3];
};

// HDR_Function on the three frames; the result's exit code (kOk, kLibraryFailed
// or kStopped) with the error printed, or kInterrupted without a word when a
// signal came. *ms: how long HDR_Function took.
int capture(const Frames& frames, std::vector<uint8_t>* out, double* ms) {
  out->assign(raw_frame_bytes(frames.width, frames.height), 0);
  int32_t result = 0;
  {
    DeferInterrupts defer;  // a signal stops the capture through the stop flag
    const Stopwatch watch;
    result = HDR_Function(frames.data[0].data(), frames.data[1].data(), frames.data[2].data(), out->data(),
                          frames.height, frames.width, frames.layout.c_str());
    *ms = watch.ms();
  }
  g_log.take(result == -1 && interrupting_signal() == 0);
  if (interrupting_signal() != 0) return kInterrupted;
  if (result == 0) return kOk;
  if (result == 1) return fail(kStopped, "the capture was stopped before it finished (result 1)");
  return fail(kLibraryFailed, "the library could not fuse the frames (result " + std::to_string(result) +
                                  "; its log is above)");
}

// Reads three raw frames of the given size; "" or why one cannot be read.
std::string read_raw_frames(const std::vector<std::string>& paths, Frames* frames) {
  std::string error;
  for (int k = 0; k < 3 && error.empty(); ++k) {
    read_raw_frame(paths[k], frames->width, frames->height, &frames->data[k], &error);
  }
  return error;
}

std::string layout_problem(const std::string& layout) {
  return tavo::parse_layout(layout.c_str()) != tavo::ChromaLayout::kOther
             ? ""
             : "unknown layout '" + layout + "' (YUV420_PLANAR or YVU420_SEMIPLANAR)";
}

// ---- fuse ----------------------------------------------------------------

int fuse_command(const Options& options) {
  int images = 0;
  for (const std::string& in : options.inputs) images += image_format_of(in) != ImageFormat::kNone;
  const bool image_out = image_format_of(options.output) != ImageFormat::kNone;
  if (images != 0 && (images != 3 || !image_out)) {
    return fail(kUsageError, "give three image files and an image output, or three raw frames and a raw output");
  }
  if (images == 0 && image_out) return fail(kUsageError, "raw frames fuse into a raw output, not " + options.output);
  if (const std::string p = layout_problem(options.layout); !p.empty()) return fail(kUsageError, p);
  const tavo::ChromaLayout layout = tavo::parse_layout(options.layout.c_str());
  std::vector<FileId> inputs;
  for (const std::string& in : options.inputs) add_file_id(in, &inputs);
  if (const std::string p = output_problem(options.output, inputs); !p.empty()) return fail(kInputError, p);

  Frames frames;
  frames.layout = options.layout;
  RgbImage rgb[3];
  if (images == 0) {
    if (options.width == 0) return fail(kUsageError, "raw frames need --size WxH");
    if (const std::string p = frame_size_problem(options.width, options.height); !p.empty()) {
      return fail(kUsageError, p);
    }
    frames.width = options.width;
    frames.height = options.height;
    if (const std::string p = read_raw_frames(options.inputs, &frames); !p.empty()) return fail(kInputError, p);
  } else {
    for (int k = 0; k < 3; ++k) {
      std::string error;
      if (!read_image(options.inputs[k], &rgb[k], &error, frame_size_problem)) return fail(kInputError, error);
      if (rgb[k].width != rgb[0].width || rgb[k].height != rgb[0].height) {
        return fail(kInputError, "images of different sizes: " + options.inputs[0] + " is " +
                                     std::to_string(rgb[0].width) + "x" + std::to_string(rgb[0].height) + ", " +
                                     options.inputs[k] + " is " + std::to_string(rgb[k].width) + "x" +
                                     std::to_string(rgb[k].height));
      }
    }
    frames.width = rgb[0].width;
    frames.height = rgb[0].height;
    for (int k = 0; k < 3; ++k) {
      frames.data[k].resize(raw_frame_bytes(frames.width, frames.height));
      rgb_to_yuv420(rgb[k].pixels.data(), frames.width, frames.height, layout, frames.data[k].data());
    }
  }

  Pool pool;
  if (!pool.ok()) return fail(kLibraryFailed, "the library's worker pool did not start");
  std::vector<uint8_t> out;
  double ms = 0;
  const int code = capture(frames, &out, &ms);
  if (code != kInterrupted) print_time("capture", ms);
  if (code != kOk) return code;

  std::string error;
  if (images == 0) {
    if (!write_output(options.output, out.data(), out.size(), inputs, &error)) return fail(kInputError, error);
  } else {
    RgbImage result{frames.width, frames.height, std::vector<uint8_t>(rgb[0].pixels.size())};
    yuv420_to_rgb(out.data(), frames.width, frames.height, layout, result.pixels.data());
    if (!write_image(options.output, result, &error, inputs)) return fail(kInputError, error);
  }
  say("wrote %s (%dx%d)\n", printable(options.output).c_str(), frames.width, frames.height);
  return kOk;
}

// ---- replay --------------------------------------------------------------

// The first line of a comparison of two frames of one size: "identical", or
// how many bytes differ and where the first one is.
std::string compare(const std::vector<uint8_t>& ours, const std::vector<uint8_t>& theirs) {
  size_t differ = 0, first = 0;
  for (size_t i = 0; i < ours.size(); ++i) {
    if (ours[i] != theirs[i] && differ++ == 0) first = i;
  }
  if (differ == 0) return "identical";
  return std::to_string(differ) + " bytes differ, first at byte " + std::to_string(first);
}

// Why the size and layout a capture's name gives cannot be fused, every
// reason, separated by "; " ("" when they can). A size over the library's
// limits is quoted as the name writes it, every digit.
std::string capture_name_problem(const DumpName& name) {
  const bool too_large = name.width == INT32_MAX || name.height == INT32_MAX ||
                         static_cast<uint64_t>(name.width) * static_cast<uint64_t>(name.height) > TAVO_HDR_MAX_PIXELS;
  const std::string size = too_large ? name.size + " is more than the library's " +
                                           std::to_string(TAVO_HDR_MAX_PIXELS) + " pixels"
                                     : frame_size_problem(name.width, name.height);
  const std::string layout = layout_problem(name.layout);
  return layout + (layout.empty() || size.empty() ? "" : "; ") + size;
}

// The difference picture of the result "<stem>.yuv": "<stem>_diff.png" beside it.
std::string diff_picture_path(const std::string& result) {
  return result.substr(0, result.size() - 4) + "_diff.png";
}

// The worst capture of a replay: the one with the most differing samples (Y,
// U and V together), the earlier one on a tie. A dumped output of another size
// is not ranked.
struct Worst {
  std::string base;
  FrameDiff diff;
  void consider(const std::string& capture, const FrameDiff& d) {
    if (base.empty() || d.differing() > diff.differing()) {
      base = capture;
      diff = d;
    }
  }
  void print() const {
    if (base.empty()) return;
    say("worst capture: %s, %zu samples differ (Y %zu, U %zu, V %zu), luma PSNR %s\n", printable(base).c_str(),
        diff.differing(), diff.plane[0].differing, diff.plane[1].differing, diff.plane[2].differing,
        psnr_text(diff.plane[0].psnr()).c_str());
  }
};

// Where a capture's result goes: "<base>_replay.yuv" beside it or in
// --out-dir. When an earlier capture of this run wrote that file (two
// directories with captures of one name), the result is kept beside it as
// "<base>_replay.2.yuv", ".3" and so on.
std::string result_path(const Options& options, const Capture& c, const std::vector<FileId>& written) {
  const std::string stem = options.out_dir.empty()
                               ? c.prefix + "_replay"
                               : (fs::path(options.out_dir) / fs::path(c.prefix).filename()).string() + "_replay";
  std::string path = stem + ".yuv";
  for (int k = 2; contains_file(written, path); ++k) path = stem + "." + std::to_string(k) + ".yuv";
  return path;
}

int replay_command(const Options& options) {
  std::vector<Capture> captures;
  std::string error;
  switch (collect_captures(options.inputs, &captures, &error)) {
    case Collected::kCollected: break;
    case Collected::kNotACaptureName: return fail(kUsageError, error);
    default: return fail(kInputError, error);
  }
  if (captures.empty()) return fail(kInputError, "no captures (IMG_..._0.yuv with _1 and _2) found");
  if (!options.out_dir.empty() && !prepare_directory(options.out_dir, "output directory", &error)) {
    return fail(kInputError, error);
  }
  // Every file the replay reads; no result may replace one of them.
  const size_t n = captures.size();
  std::vector<std::string> dumped(n);
  std::vector<FileId> inputs, written;
  DumpedOutputs outputs;
  for (size_t i = 0; i < n; ++i) {
    dumped[i] = outputs.find(captures[i]);
    for (const char* suffix : {"_0.yuv", "_1.yuv", "_2.yuv"}) add_file_id(captures[i].prefix + suffix, &inputs);
    add_file_id(dumped[i], &inputs);
  }

  Pool pool;
  if (!pool.ok()) return fail(kLibraryFailed, "the library's worker pool did not start");
  int identical = 0, different = 0, without = 0, failed = 0, first_failure = kOk;
  Worst worst;
  double capture_ms = 0;
  size_t replayed = 0;
  DeferInterrupts defer;  // a signal ends the replay after its current capture
  for (; replayed < n && interrupting_signal() == 0; ++replayed) {
    const Capture& c = captures[replayed];
    const std::string base = fs::path(c.prefix).filename().string();
    say("[%zu/%zu] %s: ", replayed + 1, n, printable(base).c_str());
    std::string refusal;  // why the capture failed, on stderr below its line
    const auto end_line = [&](const std::string& verdict, const std::string& details, int code) {
      say("%s\n%s", verdict.c_str(), details.c_str());
      if (code == kOk) return;
      ++failed;
      if (first_failure == kOk) first_failure = code;
      if (!refusal.empty()) fail(code, refusal);
    };
    Frames frames;
    frames.width = c.name.width;
    frames.height = c.name.height;
    frames.layout = c.name.layout;
    if (const std::string p = capture_name_problem(c.name); !p.empty()) {
      refusal = base + ": " + p;
    } else {
      refusal = read_raw_frames({c.prefix + "_0.yuv", c.prefix + "_1.yuv", c.prefix + "_2.yuv"}, &frames);
    }
    int code = refusal.empty() ? kOk : kInputError;
    std::vector<uint8_t> out;
    double ms = 0;
    if (code == kOk) code = capture(frames, &out, &ms);
    if (code == kInterrupted) {
      say("interrupted\n");
      break;
    }
    capture_ms += ms;
    const std::string target = result_path(options, c, written);
    if (code == kOk && !write_output(target, out.data(), out.size(), inputs, &refusal)) code = kInputError;
    if (code != kOk) {
      end_line("failed", "", code);
      continue;
    }
    add_file_id(target, &written);
    std::string verdict, details;  // the rest of the capture's line; per-plane lines of a difference
    std::vector<uint8_t> theirs;
    uint64_t their_size = 0;  // of a dumped output of another size, which is not read
    if (dumped[replayed].empty()) {
      ++without;
      verdict = "replayed, no dumped output to compare";
    } else if (const FrameRead read = read_frame_or_size(dumped[replayed], frames.width, frames.height, &theirs,
                                                         &their_size, &refusal);
               read == FrameRead::kFailed) {
      verdict = "failed";
    } else if (read == FrameRead::kOtherSize) {
      ++different;
      verdict = "dumped output is " + std::to_string(their_size) + " bytes, not " + std::to_string(out.size());
    } else if (verdict = compare(out, theirs); verdict == "identical") {
      ++identical;
    } else {
      const tavo::ChromaLayout layout = tavo::parse_layout(frames.layout.c_str());
      const FrameDiff diff = diff_frames(out.data(), theirs.data(), frames.width, frames.height, layout);
      details = diff_report(diff, "    ");
      const std::string picture = diff_picture_path(target);
      if (write_image(picture, diff_picture(out.data(), theirs.data(), frames.width, frames.height, layout),
                      &refusal, inputs)) {
        details += "    difference picture " + printable(picture) + "\n";
        ++different;
        worst.consider(base, diff);
      } else {
        details += "    no difference picture\n";
      }
    }
    if (!target.ends_with("_replay.yuv")) {
      verdict += " (an earlier capture has this name; result in " + printable(target) + ")";
    }
    end_line(verdict, details, refusal.empty() ? kOk : kInputError);
  }
  print_time("captures", capture_ms);
  const int sig = interrupting_signal();
  const std::string stopped = sig == 0 ? "" : " (stopped by " + std::string(signal_name(sig)) + ")";
  say("replayed %zu%s captures%s: %d identical, %d different, %d without output, %d failed\n", replayed,
      sig == 0 ? "" : (" of " + std::to_string(n)).c_str(), stopped.c_str(), identical, different, without, failed);
  worst.print();
  if (sig != 0) return kInterrupted;
  if (first_failure != kOk) return first_failure;
  return different > 0 ? kReplayDiffers : kOk;
}

// ---- demo ----------------------------------------------------------------

RgbImage to_rgb(const std::vector<uint8_t>& yuv, int32_t width, int32_t height) {
  RgbImage image{width, height, std::vector<uint8_t>(static_cast<size_t>(width) * height * 3)};
  yuv420_to_rgb(yuv.data(), width, height, tavo::ChromaLayout::kPlanar, image.pixels.data());
  return image;
}

int demo_command(const Options& options) {
  const int32_t w = options.width ? options.width : 1920;
  const int32_t h = options.height ? options.height : 1080;
  if (const std::string p = frame_size_problem(w, h); !p.empty()) return fail(kUsageError, p);
  if (w < 64 || h < 48) return fail(kUsageError, "the demo needs at least 64x48");
  const fs::path dir = options.out_dir.empty() ? fs::path(".") : fs::path(options.out_dir);
  std::string error;
  if (!prepare_directory(dir.string(), "output directory", &error)) return fail(kInputError, error);
  const std::string result_path = (dir / "demo_result.png").string();
  const std::string sheet_path = (dir / "demo_contact_sheet.png").string();
  for (const std::string& path : {result_path, sheet_path}) {
    if (const std::string p = output_problem(path, {}); !p.empty()) return fail(kInputError, p);
  }

  // A hand-held bracket: the outer frames moved by a few pixels (even, as the
  // registration works on half-resolution levels).
  tavo::scene::BracketSetup setup;
  setup.dx0 = 6;
  setup.dy0 = -4;
  setup.dx2 = -4;
  setup.dy2 = 2;
  const tavo::scene::Scene scene{w, h, 3};
  say("scene: %dx%d room with a sunlit window, exposures 1/4x, 1x, 4x (the 1x frame is the reference)\n", w, h);
  Stopwatch watch;
  auto bracket = tavo::scene::render_bracket(scene, setup);
  say("rendered the bracket with sensor noise in %.1f ms\n", watch.ms());

  Pool pool;
  if (!pool.ok()) return fail(kLibraryFailed, "the library's worker pool did not start");
  const uint8_t* frames[3] = {bracket[0].data(), bracket[1].data(), bracket[2].data()};
  std::vector<uint8_t> out(raw_frame_bytes(w, h));
  StagedCapture staged;
  const bool fused_ok = run_staged_capture(frames, w, h, "YUV420_PLANAR", out.data(), &staged);
  g_log.take(!fused_ok);
  if (!fused_ok) return fail(kLibraryFailed, "the library could not fuse the frames (its log is above)");
  // The scene's shot (dx, dy) means: the frame's pixel (x, y) shows what the
  // reference shows at (x + dx, y + dy). The registration's shift s means: the
  // common window starts at reference origin - s in that frame. Both say the
  // same thing, so a correct registration finds s = (dx, dy).
  const auto report = [](const char* name, int32_t dx, int32_t dy, const int16_t* s) {
    say("shift of %-18s applied dx=%+d dy=%+d, found x=%+d y=%+d: %s\n", name, dx, dy, s[0], s[1],
        s[0] == dx && s[1] == dy ? "agree" : "DIFFER");
  };
  report("frame 0 (dark):", setup.dx0, setup.dy0, staged.shift0);
  report("frame 2 (bright):", setup.dx2, setup.dy2, staged.shift2);
  say("  (applied: frame pixel (x,y) shows the reference's (x+dx,y+dy); found: the crop window\n"
      "   starts at the reference's origin minus the shift in that frame)\n");
  say("common window %dx%d, origins dark (%d,%d) normal (%d,%d) bright (%d,%d)\n", staged.crop_width,
      staged.crop_height, staged.origins[0], staged.origins[1], staged.origins[2], staged.origins[3],
      staged.origins[4], staged.origins[5]);
  print_time("registration", staged.registration_ms);
  print_time("fusion", staged.fusion_ms);
  print_time("resize", staged.resize_ms);
  print_time("total", staged.registration_ms + staged.fusion_ms + staged.resize_ms);

  // The same capture through HDR_Function, as the camera runs it (dumps, time
  // limit, stop flag): the same bytes, in about the same time.
  Frames whole;
  whole.width = w;
  whole.height = h;
  whole.layout = "YUV420_PLANAR";
  for (int k = 0; k < 3; ++k) whole.data[k] = bracket[k];
  std::vector<uint8_t> captured;
  double ms = 0;
  if (const int code = capture(whole, &captured, &ms); code != kOk) return code;
  if (captured != out) return fail(kLibraryFailed, "HDR_Function and the staged capture gave different bytes");
  say("%-13s%9.1f ms, the same bytes\n", "HDR_Function", ms);

  watch = Stopwatch();
  const RgbImage dark = to_rgb(bracket[0], w, h), normal = to_rgb(bracket[1], w, h),
                 bright = to_rgb(bracket[2], w, h), fused = to_rgb(out, w, h);
  const RgbImage sheet = contact_sheet(
      {{&dark, "DARK"}, {&normal, "NORMAL (REFERENCE)"}, {&bright, "BRIGHT"}, {&fused, "FUSED"}}, 480);
  if (!write_image(result_path, fused, &error) || !write_image(sheet_path, sheet, &error)) {
    return fail(kInputError, error);
  }
  say("wrote %s (%dx%d) and %s (%dx%d) in %.1f ms\n", printable(result_path).c_str(), w, h,
      printable(sheet_path).c_str(), sheet.width, sheet.height, watch.ms());
  return kOk;
}

// A standard stream that was closed keeps its number taken, by /dev/null open
// for reading: no file the tool opens becomes its stdout, and writes to it
// fail (EBADF) as they should.
void hold_closed_standard_streams() {
  for (int fd = 0; fd < 3; ++fd) {
    if (fcntl(fd, F_GETFD) < 0 && errno == EBADF) open("/dev/null", O_RDONLY);
  }
}

}  // namespace

int main(int argc, char** argv) {
  hold_closed_standard_streams();
  Options options;
  std::string error;
  if (!parse_args(argc, argv, &options, &error)) {
    fprintf(stderr, "tavo-hdr: %s\n%s", printable(error).c_str(), kUsage);
    return kUsageError;
  }
  int code = kOk;
  try {
    if (options.help) {
      say("%s", kUsage);
      return kOk;
    }
    install_interrupt_handlers(raise_stop_flag);
    g_log.open(options.verbose);
    if (options.stop) tavo_hdr_set_stop_flag(1);
    const Stopwatch watch;
    LibrarySettings settings;
    if (!settings.apply(options, &error)) return fail(kInputError, error);
    if (options.command == "fuse") code = fuse_command(options);
    if (options.command == "replay") code = replay_command(options);
    if (options.command == "demo") code = demo_command(options);
    if (code == kOk) say("done in %.1f ms\n", watch.ms());
  } catch (const std::bad_alloc&) {
    code = fail(kLibraryFailed, "out of memory in " + options.command);
  } catch (const OutputLost& lost) {
    code = fail(kOutputLost, std::string("cannot write to standard output: ") + strerror(lost.error));
  } catch (const fs::filesystem_error& e) {  // the last resort: every call the tool makes reports its errors
    code = fail(kInputError, e.what());
  }
  if (const int sig = interrupting_signal(); sig != 0) {
    return fail(kInterrupted + sig, std::string("interrupted by ") + signal_name(sig));
  }
  // A failed write to stderr (the library's log, --verbose) is no success either.
  return code == kOk && ferror(stderr) ? kOutputLost : code;
}
