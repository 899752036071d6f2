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
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <functional>
#include <map>
#include <new>
#include <string>
#include <vector>

#include "tavo_lumo_hdr.h"
#include "tools/batch.h"
#include "tools/cli_args.h"
#include "tools/contact_sheet.h"
#include "tools/core_plan.h"
#include "tools/exit_codes.h"
#include "tools/dump_names.h"
#include "tools/exposure_order.h"
#include "tools/frame_diff.h"
#include "tools/image_io.h"
#include "tools/interrupt.h"
#include "tools/output_file.h"
#include "tools/photo_bracket.h"
#include "tools/printable_text.h"
#include "tools/progress_line.h"
#include "tools/replay.h"
#include "tools/raw_io.h"
#include "tools/scene/scene.h"
#include "tools/staged_capture.h"
#include "tools/stopwatch.h"
#include "tools/worker_processes.h"
#include "tools/yuv_convert.h"

namespace fs = std::filesystem;
using namespace tavo::tool;

namespace {


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
  // In a forked worker: a file of its own, which it removes with close().
  void reopen() {
    file_.disown();
    open_ = false;
    open(verbose_);
  }
  void close() { file_.remove(); }
  // The lines written since the last call.
  std::string take() {
    std::vector<uint8_t> text;
    std::string error;
    if (!open_ || !read_file(file_.path(), &text, &error) || truncate(file_.path().c_str(), 0) != 0) return "";
    return std::string(text.begin(), text.end());
  }
  // Lines taken, shown on stderr when they tell of a failure or when asked to.
  void show(const std::string& lines, bool failed) const {
    if (verbose_ || failed) fwrite(lines.data(), 1, lines.size(), stderr);
  }
  void show_new(bool failed) { show(take(), failed); }

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
  // `bindcore`, when not empty, is the pool's "persist.bindcore.hdr" unless
  // --prop gives one.
  bool apply(const Options& options, std::string* error, const std::string& bindcore = "") {
    if (!options.dump_dir.empty()) {
      if (!prepare_directory(options.dump_dir, "dump directory", error)) return false;
      setenv("TAVO_HDR_DUMP_DIR", options.dump_dir.c_str(), 1);
    }
    std::string text;
    bool bound = false;
    for (const auto& [key, value] : options.properties) {
      text += key + "=" + value + "\n";
      bound = bound || key == kBindCore;
    }
    if (!bindcore.empty() && !bound) text += std::string(kBindCore) + "=" + bindcore + "\n";
    if (text.empty()) return true;
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

  static constexpr const char* kBindCore = "persist.bindcore.hdr";

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
    g_log.show_new(!ok_);
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

// HDR_Function on the three frames, under the stop flag's watch: a signal
// stops it through the flag. Its log is taken.
Fused capture_here(const Frames& frames, std::vector<uint8_t>* out) {
  out->assign(raw_frame_bytes(frames.width, frames.height), 0);
  Fused fused;
  {
    DeferInterrupts defer;
    const Stopwatch watch;
    fused.result = HDR_Function(frames.data[0].data(), frames.data[1].data(), frames.data[2].data(), out->data(),
                                frames.height, frames.width, frames.layout.c_str());
    fused.ms = watch.ms();
  }
  fused.interrupted = interrupting_signal() != 0;
  fused.log = g_log.take();
  return fused;
}

// capture_here's exit code (kOk, kLibraryFailed or kStopped) with the error
// and the library's log printed, or kInterrupted without a word when a signal
// came. *ms: how long HDR_Function took.
int capture(const Frames& frames, std::vector<uint8_t>* out, double* ms) {
  const Fused fused = capture_here(frames, out);
  *ms = fused.ms;
  g_log.show(fused.log, fused.result == -1 && !fused.interrupted);
  if (fused.interrupted) return kInterrupted;
  if (fused.result == 0) return kOk;
  return fail(fused.result == 1 ? kStopped : kLibraryFailed, capture_failure(fused.result));
}

// Reads three raw frames of the given size; "" or why one cannot be read.
std::string read_raw_frames(const std::vector<std::string>& paths, Frames* frames) {
  std::string error;
  for (int k = 0; k < 3 && error.empty(); ++k) {
    read_raw_frame(paths[k], frames->width, frames->height, &frames->data[k], &error);
  }
  return error;
}

// ---- fuse ----------------------------------------------------------------

// Photographs: ordered, fused and written with the reference's metadata
// (photo_bracket.h).
int fuse_images(const Options& options, const std::vector<FileId>& inputs) {
  PhotoJob job;
  job.frames = options.inputs;
  job.by_exposure = options.order != "as-given";
  job.layout = options.layout;
  job.quality = options.quality;
  job.output = [&](const std::string&) { return options.output; };
  Pool pool;
  if (!pool.ok()) return fail(kLibraryFailed, "the library's worker pool did not start");
  const PhotoResult r = fuse_photographs(job, inputs, capture_here);
  if (!r.order.empty()) say("%s\n", printable(r.order).c_str());
  if (r.captured) {
    g_log.show(r.fused.log, r.fused.result == -1 && !r.fused.interrupted);
    if (r.fused.interrupted) return kInterrupted;
    print_time("capture", r.fused.ms);
  }
  if (r.failure != 0) return fail(r.failure, r.reason);
  say("wrote %s (%dx%d)\n", printable(options.output).c_str(), r.width, r.height);
  return kOk;
}

int fuse_command(const Options& options) {
  int images = 0;
  for (const std::string& in : options.inputs) images += image_format_of(in) != ImageFormat::kNone;
  const bool image_out = image_format_of(options.output) != ImageFormat::kNone;
  if (images != 0 && (images != 3 || !image_out)) {
    return fail(kUsageError, "give three image files and an image output, or three raw frames and a raw output");
  }
  if (images == 0 && image_out) return fail(kUsageError, "raw frames fuse into a raw output, not " + options.output);
  if (const std::string p = layout_problem(options.layout); !p.empty()) return fail(kUsageError, p);
  std::vector<FileId> inputs;
  for (const std::string& in : options.inputs) add_file_id(in, &inputs);
  if (const std::string p = output_problem(options.output, inputs); !p.empty()) return fail(kInputError, p);
  if (images != 0) return fuse_images(options, inputs);

  Frames frames;
  frames.layout = options.layout;
  if (options.width == 0) return fail(kUsageError, "raw frames need --size WxH");
  if (const std::string p = frame_size_problem(options.width, options.height); !p.empty()) {
    return fail(kUsageError, p);
  }
  frames.width = options.width;
  frames.height = options.height;
  if (const std::string p = read_raw_frames(options.inputs, &frames); !p.empty()) return fail(kInputError, p);
  if (options.order == "exposure") {  // raw frames have no EXIF: by mean luma
    std::vector<double> luma(3);
    for (int k = 0; k < 3; ++k) {
      luma[k] = mean_luma(frames.data[k].data(), static_cast<size_t>(frames.width) * frames.height);
    }
    BracketOrder order;
    std::string error;
    if (!order_bracket(options.inputs, std::vector<double>(3), luma, &order, &error)) return fail(kInputError, error);
    std::vector<uint8_t> given[3] = {std::move(frames.data[0]), std::move(frames.data[1]), std::move(frames.data[2])};
    for (int k = 0; k < 3; ++k) frames.data[k] = std::move(given[order.frame[k]]);
    say("%s\n", printable(order.line).c_str());
  }

  Pool pool;
  if (!pool.ok()) return fail(kLibraryFailed, "the library's worker pool did not start");
  std::vector<uint8_t> out;
  double ms = 0;
  const int code = capture(frames, &out, &ms);
  if (code != kInterrupted) print_time("capture", ms);
  if (code != kOk) return code;
  std::string error;
  if (!write_output(options.output, out.data(), out.size(), inputs, &error)) return fail(kInputError, error);
  say("wrote %s (%dx%d)\n", printable(options.output).c_str(), frames.width, frames.height);
  return kOk;
}

// ---- replay --------------------------------------------------------------

// The JSON Lines report of --report: written as every output is, to a new
// file renamed into place at the end (also after an interruption, then with
// what was replayed); a record whose capture is not finished never appears.
class Report {
 public:
  // Refused before any capture runs, as every output is (output_file.h).
  bool open(const std::string& path, const std::vector<FileId>& inputs, std::string* error) {
    if (path.empty()) return true;
    if (*error = output_problem(path, inputs); !error->empty()) return false;
    open_ = file_.open(path, inputs, error);
    return open_;
  }
  void add(const std::string& record) {
    if (!open_ || !error_.empty()) return;
    const std::string line = record + "\n";
    file_.write(reinterpret_cast<const uint8_t*>(line.data()), line.size(), &error_);
  }
  // "" or why the report could not be written.
  std::string finish() {
    if (open_ && error_.empty()) file_.commit(&error_);
    return error_;
  }

 private:
  OutputFile file_;
  bool open_ = false;
  std::string error_;
};

// Records that arrive in any order (from this process or from workers),
// handed on in the order of their index.
template <typename Record>
class InOrder {
 public:
  template <typename Print>
  void add(size_t i, Record record, const Print& print) {
    waiting_.emplace(i, std::move(record));
    for (auto next = waiting_.begin(); next != waiting_.end() && next->first == next_;
         next = waiting_.erase(next), ++next_) {
      print(next_, next->second);
    }
  }

 private:
  std::map<size_t, Record> waiting_;  // records that came before an earlier one's
  size_t next_ = 0;
};

// A replay's records, printed in capture order as they come: the capture's
// line, the library's log and the reason of a failure on stderr, the report
// record, the progress.
class ReplayPrinter {
 public:
  ReplayPrinter(size_t captures, Report* report, bool progress)
      : report_(report), progress_(captures, progress) {
    tally_.captures = captures;
  }
  void add(size_t i, ReplayRecord record) {
    records_.add(i, std::move(record), [&](size_t k, const ReplayRecord& r) {
      progress_.clear();
      const std::string base = fs::path(r.job.capture.prefix).filename().string();
      say("[%zu/%zu] %s: %s", k + 1, tally_.captures, printable(base).c_str(), replay_line(r).c_str());
      g_log.show(r.log, r.failure == kLibraryFailed);
      if (r.failure != 0) fail(r.failure, r.reason);
      tally_.add(r);
      if (r.status != ReplayStatus::kInterrupted) report_->add(report_line(r));
      progress_.update(k + 1);
    });
  }
  const ReplayTally& tally() const { return tally_; }
  void finish() { progress_.clear(); }

 private:
  InOrder<ReplayRecord> records_;
  ReplayTally tally_;
  Report* report_;
  ProgressLine progress_;
};

// Replays in this process, one capture after another; a signal ends the
// replay after the capture it stops.
void replay_here(const std::vector<ReplayJob>& jobs, const std::vector<FileId>& inputs, ReplayPrinter* printer) {
  DeferInterrupts defer;
  for (size_t i = 0; i < jobs.size() && interrupting_signal() == 0; ++i) {
    printer->add(i, replay_capture(jobs[i], inputs, capture_here));
  }
}

// Runs `jobs` in this process, its pool pinned as a single worker's: to the
// first four cores this process may use. kOk, or the code of the error printed.
int run_here(const Options& options, const std::function<void()>& jobs) {
  LibrarySettings settings;
  std::string error;
  if (!settings.apply(options, &error, bindcore_value(worker_cores(0, 1, allowed_cores())))) {
    return fail(kInputError, error);
  }
  Pool pool;
  if (!pool.ok()) return fail(kLibraryFailed, "the library's worker pool did not start");
  jobs();
  return kOk;
}

// Runs jobs 0 ... count - 1 on `workers` worker processes, each with its pool
// pinned to cores of its own (core_plan.h): work(i) runs job i in a worker
// and gives its answer (CBOR, which keeps names byte for byte), done() takes
// it here as the job ends. A signal stops the workers' captures and ends the
// run once they stop. The number of jobs handed out (those from it on had no
// worker left to take them), or kNoWorkers with the error printed.
constexpr size_t kNoWorkers = SIZE_MAX;
size_t run_on_workers(const Options& options, int workers, size_t count,
                      const std::function<std::string(size_t)>& work, const WorkerProcesses::Done& done) {
  const std::vector<int> allowed = allowed_cores();
  const auto worker_main = [&](int k, const WorkerProcesses::NextJob& next,
                               const WorkerProcesses::Answer& answer) -> int {
    const std::vector<int> cores = worker_cores(k, workers, allowed);
    pin_to_cores(cores);
    g_log.reopen();
    int code = kOk;
    {
      LibrarySettings settings;
      std::string error;
      if (!settings.apply(options, &error, bindcore_value(cores))) return kInputError;
      Pool pool;
      if (!pool.ok()) code = kLibraryFailed;
      DeferInterrupts defer;  // a signal stops the capture, then the worker
      size_t i = 0;
      while (code == kOk && interrupting_signal() == 0 && next(&i)) {
        if (!answer(work(i))) break;
      }
    }
    g_log.close();
    return code;
  };
  // A signal ends the run once the workers' captures stop, and the workers
  // are reaped before it ends the tool.
  DeferInterrupts defer;
  WorkerProcesses processes;
  std::string error;
  if (!processes.start(workers, worker_main, &error)) {
    fail(kLibraryFailed, error);
    return kNoWorkers;
  }
  return processes.run(count, done, [] { return interrupting_signal() != 0; });
}

// Replays on worker processes; the records are printed in capture order.
int replay_on_workers(const Options& options, int workers, const std::vector<ReplayJob>& jobs,
                      const std::vector<FileId>& inputs, ReplayPrinter* printer) {
  const auto work = [&](size_t i) { return worker_message(replay_capture(jobs[i], inputs, capture_here)); };
  const auto done = [&](size_t i, const std::string& answer, const std::string& lost) {
    ReplayRecord r;
    if (!lost.empty() || !record_from_message(answer, jobs[i], &r)) {
      r = replay_failure(jobs[i], kLibraryFailed,
                         (lost.empty() ? "a worker process answered nonsense" : lost) + " during this capture");
    }
    printer->add(i, std::move(r));
  };
  const size_t handed = run_on_workers(options, workers, jobs.size(), work, done);
  if (handed == kNoWorkers) return kLibraryFailed;
  // Captures no worker was left to take (every worker died).
  for (size_t i = handed; i < jobs.size() && interrupting_signal() == 0; ++i) {
    printer->add(i, replay_failure(jobs[i], kLibraryFailed, "no worker process is left to replay this capture"));
  }
  return kOk;
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
  std::vector<FileId> inputs;  // every file the replay reads; no result may replace one of them
  const std::vector<ReplayJob> jobs = plan_replay(captures, options.out_dir, &inputs);
  Report report;
  if (!report.open(options.report, inputs, &error)) return fail(kInputError, error);
  const int workers = std::min<int>(options.jobs != 0 ? options.jobs : default_jobs(), static_cast<int>(jobs.size()));

  const Stopwatch wall;
  ReplayPrinter printer(jobs.size(), &report, !options.quiet && isatty(STDERR_FILENO));
  if (workers == 1) {
    if (const int code = run_here(options, [&] { replay_here(jobs, inputs, &printer); }); code != kOk) return code;
  } else if (const int code = replay_on_workers(options, workers, jobs, inputs, &printer); code != kOk) {
    return code;
  }
  printer.finish();
  const ReplayTally& tally = printer.tally();
  const int sig = interrupting_signal();
  const char* stopped_by = sig == 0 ? nullptr : signal_name(sig);
  print_time("captures", tally.capture_ms);
  say("%s", tally.summary(stopped_by).c_str());
  report.add(summary_line(tally, stopped_by, wall.ms(), workers));
  if (const std::string e = report.finish(); !e.empty()) {
    fail(kInputError, e);
    if (sig == 0) return kInputError;
  }
  return tally.exit_code(sig);
}

// ---- batch ---------------------------------------------------------------

// A batch's groups, printed in order as their results come: the line, the
// library's log and the reason of a failure on stderr, the progress.
class BatchPrinter {
 public:
  BatchPrinter(const std::vector<BatchGroup>& groups, bool progress)
      : groups_(groups), progress_(groups.size(), progress) {
    tally_.groups = groups.size();
  }
  void add(size_t i, PhotoResult result) {
    results_.add(i, std::move(result), [&](size_t k, const PhotoResult& r) {
      if (r.captured && r.fused.interrupted) return;  // a signal stopped it: not done
      const BatchGroup& group = groups_[k];
      progress_.clear();
      say("[%zu/%zu] %s\n", k + 1, groups_.size(), printable(batch_line(group, r)).c_str());
      g_log.show(r.fused.log, r.captured && r.fused.result == -1);
      if (group.failure != 0 || (group.problem.empty() && r.failure != 0)) {
        fail(group.failure != 0 ? group.failure : r.failure, group.failure != 0 ? group.problem : r.reason);
      }
      tally_.add(group, r);
      progress_.update(tally_.done);
    });
  }
  const BatchTally& tally() const { return tally_; }
  void finish() { progress_.clear(); }

 private:
  const std::vector<BatchGroup>& groups_;
  InOrder<PhotoResult> results_;
  BatchTally tally_;
  ProgressLine progress_;
};

int batch_command(const Options& options) {
  const std::string& dir = options.inputs[0];
  std::string error;
  std::vector<BatchGroup> groups;
  if (!plan_batch(dir, options.group, &groups, &error)) return fail(kInputError, error);
  if (groups.empty()) return fail(kInputError, "no JPEG or PNG files in " + dir);
  std::error_code same;
  if (fs::equivalent(dir, options.out_dir, same)) {
    return fail(kUsageError, "--out-dir is the folder itself, where results would be taken for photographs");
  }
  if (!prepare_directory(options.out_dir, "output directory", &error)) return fail(kInputError, error);

  std::vector<size_t> brackets;  // the groups fused, by job number
  BatchPrinter printer(groups, !options.quiet && isatty(STDERR_FILENO));
  for (size_t i = 0; i < groups.size(); ++i) {
    if (groups[i].problem.empty()) {
      brackets.push_back(i);
    } else {
      printer.add(i, PhotoResult{});
    }
  }
  const auto fuse = [&](size_t job) {
    PhotoJob photos;
    photos.frames = groups[brackets[job]].frames;
    photos.by_exposure = options.order != "as-given";
    photos.quality = options.quality;
    photos.keep_existing = !options.force;
    photos.output = [&](const std::string& reference) { return batch_result(options.out_dir, reference); };
    return fuse_photographs(photos, {}, capture_here);
  };
  const int workers = std::min<int>(options.jobs != 0 ? options.jobs : default_jobs(), static_cast<int>(brackets.size()));
  if (workers == 1) {
    const int code = run_here(options, [&] {
      DeferInterrupts defer;  // a signal ends the batch after the bracket it stops
      for (size_t job = 0; job < brackets.size() && interrupting_signal() == 0; ++job) {
        printer.add(brackets[job], fuse(job));
      }
    });
    if (code != kOk) return code;
  } else if (workers > 1) {
    const auto failed = [&](size_t job, const std::string& reason) {
      PhotoResult r;
      r.failure = kLibraryFailed;
      r.reason = reason;
      printer.add(brackets[job], std::move(r));
    };
    const auto done = [&](size_t job, const std::string& answer, const std::string& lost) {
      PhotoResult r;
      if (lost.empty() && photo_from_message(answer, &r)) return printer.add(brackets[job], std::move(r));
      failed(job, (lost.empty() ? "a worker process answered nonsense" : lost) + " during this bracket");
    };
    const size_t handed =
        run_on_workers(options, workers, brackets.size(), [&](size_t job) { return photo_message(fuse(job)); }, done);
    if (handed == kNoWorkers) return kLibraryFailed;
    for (size_t job = handed; job < brackets.size() && interrupting_signal() == 0; ++job) {
      failed(job, "no worker process is left to fuse this bracket");
    }
  }
  printer.finish();
  const int sig = interrupting_signal();
  print_time("captures", printer.tally().capture_ms);
  say("%s", printer.tally().summary(sig == 0 ? nullptr : signal_name(sig)).c_str());
  return printer.tally().exit_code(sig);
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
  g_log.show_new(!fused_ok);
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
    if (options.help || options.version) {
      if (options.version) say("tavo-hdr %s\n", TAVO_HDR_VERSION_STRING);
      else say("%s%s", kUsage, kHelp);
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
    if (options.command == "batch") code = batch_command(options);
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
