// Replaying captures the library dumped: each capture's three frames read,
// fused by the caller's capture function, the result written, and compared
// with the output the phone dumped. The tool's replay (in-process or on worker
// processes) and the Python module's replay() and compare() share this code,
// and so its lines, report records and figures are the same everywhere.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "tools/dump_names.h"
#include "tools/frame_diff.h"
#include "tools/output_file.h"

namespace tavo::tool {

// The three frames of one capture.
struct Frames {
  int32_t width = 0, height = 0;
  std::string layout;
  std::vector<uint8_t> data[3];
};

// What a capture function did: HDR_Function's result (0 fused, 1 stopped,
// -1 failed) and how long it took, or that a signal ended it.
struct Fused {
  int32_t result = -1;
  bool interrupted = false;
  double ms = 0;
  std::string log;  // the library's lines, kept for a failure
};
// Fuses `frames` into *out (resized by the function).
using CaptureFunction = std::function<Fused(const Frames& frames, std::vector<uint8_t>* out)>;

// One capture of a replay and the files it involves.
struct ReplayJob {
  Capture capture;
  std::string dumped;  // the output the phone dumped, "" when there is none
  std::string target;  // where the result goes
};

// The jobs of a replay of `captures`, in their order: each capture's dumped
// output (through one index per directory), and its result
// "<base>_replay.yuv" beside it or in `out_dir` ("" for beside), the k-th
// capture of one result name in this replay taking "<base>_replay.<k>.yuv".
// *inputs: every file the replay reads, which no result may replace.
std::vector<ReplayJob> plan_replay(const std::vector<Capture>& captures, const std::string& out_dir,
                                   std::vector<FileId>* inputs);

enum class ReplayStatus { kIdentical, kDifferent, kOtherSize, kNoOutput, kFailed, kInterrupted };

// How one capture's replay ended.
struct ReplayRecord {
  ReplayJob job;
  ReplayStatus status = ReplayStatus::kFailed;
  std::optional<int32_t> result;  // HDR_Function's, when it ran
  double ms = 0;
  // A failure: its exit code (kInputError, kLibraryFailed, kStopped) and the
  // one-line reason; the library's log when the capture failed.
  int failure = 0;
  std::string reason, log;
  bool written = false;  // the result is in job.target
  // The comparison, when the dumped output was read (kIdentical, kDifferent).
  bool compared = false;
  uint64_t bytes_differing = 0, first_difference = 0;
  FrameDiff diff;
  uint64_t dumped_bytes = 0;  // of a dumped output of another size
  std::string picture;        // the difference picture written, "" when none
};

// Replays one capture (see the top); a name whose size or layout the library
// does not take, a frame or dumped output that cannot be read, and a result or
// difference picture that cannot be written (never over one of `inputs`) are
// failures with kInputError.
ReplayRecord replay_capture(const ReplayJob& job, const std::vector<FileId>& inputs, const CaptureFunction& capture);

// A capture that failed before it was compared.
ReplayRecord replay_failure(const ReplayJob& job, int failure, const std::string& reason);

// Why a capture did not fuse: HDR_Function's result 1 or -1.
std::string capture_failure(int32_t result);

// What follows "[i/n] <base>: " on the capture's line, and its detail lines.
std::string replay_line(const ReplayRecord& record);

// The totals of a replay, added capture by capture in capture order.
struct ReplayTally {
  size_t captures = 0, replayed = 0;
  int identical = 0, different = 0, without = 0, failed = 0;
  int first_failure = 0;  // the exit code of the first failed capture
  double capture_ms = 0;
  // The worst capture: the most differing samples, Y, U and V together (the
  // earlier one on a tie); a dumped output of another size is not ranked.
  std::string worst;
  FrameDiff worst_diff;

  void add(const ReplayRecord& record);
  // "replayed ..." and "worst capture: ..." lines; `signal_name` when a signal
  // stopped the replay.
  std::string summary(const char* signal_name) const;
  // The exit code: an interrupting signal's, the first failure's, or whether
  // some output differs.
  int exit_code(int signal) const;
};

// Report lines (README: one JSON object a line, no line break): a capture's,
// as it ended, and the summary after the last. Names that are not UTF-8 show
// U+FFFD.
std::string report_line(const ReplayRecord& record);
std::string summary_line(const ReplayTally& tally, const char* signal_name, double wall_ms, int jobs);

// A record as a worker process sends it (CBOR, which keeps names byte for
// byte, with its failure and log), and back for the job it came from; false
// when the message is not one.
std::string worker_message(const ReplayRecord& record);
bool record_from_message(const std::string& message, const ReplayJob& job, ReplayRecord* record);

}  // namespace tavo::tool
