#include "tools/replay.h"

#include "tools/replay_json.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <filesystem>
#include <map>

#include "tavo_lumo_hdr.h"
#include "tools/cli_args.h"
#include "tools/exit_codes.h"
#include "tools/image_io.h"
#include "tools/printable_text.h"
#include "tools/raw_io.h"

namespace tavo::tool {

namespace fs = std::filesystem;

namespace {

std::string base_of(const Capture& c) { return fs::path(c.prefix).filename().string(); }

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

constexpr const char* kPlaneNames[3] = {"Y", "U", "V"};

constexpr struct {
  ReplayStatus status;
  const char* name;
} kStatusNames[] = {{ReplayStatus::kIdentical, "identical"}, {ReplayStatus::kDifferent, "different"},
                    {ReplayStatus::kOtherSize, "other_size"}, {ReplayStatus::kNoOutput, "no_output"},
                    {ReplayStatus::kFailed, "failed"},        {ReplayStatus::kInterrupted, "interrupted"}};

Json optional_number(bool present, uint64_t value) { return present ? Json(value) : Json(nullptr); }
Json optional_text(const std::string& text) { return text.empty() ? Json(nullptr) : Json(text); }

Json planes_json(const FrameDiff& diff) {
  Json planes = Json::object();
  for (int p = 0; p < 3; ++p) {
    const PlaneDiff& d = diff.plane[p];
    const double psnr = d.psnr();
    planes[kPlaneNames[p]] = {{"samples", d.samples},
                              {"differing", d.differing},
                              {"largest", d.largest},
                              {"squared_error", d.squared},
                              {"psnr", std::isinf(psnr) ? Json(nullptr) : Json(psnr)}};
  }
  return planes;
}

// The bytes that differ and the first of them.
void count_bytes(const uint8_t* ours, const uint8_t* theirs, size_t n, uint64_t* differing, uint64_t* first) {
  *differing = 0;
  for (size_t i = 0; i < n; ++i) {
    if (ours[i] != theirs[i] && (*differing)++ == 0) *first = i;
  }
}

}  // namespace

std::vector<ReplayJob> plan_replay(const std::vector<Capture>& captures, const std::string& out_dir,
                                   std::vector<FileId>* inputs) {
  DumpedOutputs outputs;
  std::map<std::string, int> taken;  // result names given so far, by their stem
  std::vector<ReplayJob> jobs;
  jobs.reserve(captures.size());
  for (const Capture& c : captures) {
    ReplayJob job{c, outputs.find(c), ""};
    const std::string stem =
        (out_dir.empty() ? c.prefix : (fs::path(out_dir) / base_of(c)).string()) + "_replay";
    std::error_code ec;
    const int k = ++taken[fs::absolute(stem, ec).lexically_normal().string()];
    job.target = stem + (k == 1 ? "" : "." + std::to_string(k)) + ".yuv";
    for (const char* suffix : {"_0.yuv", "_1.yuv", "_2.yuv"}) add_file_id(c.prefix + suffix, inputs);
    add_file_id(job.dumped, inputs);
    jobs.push_back(std::move(job));
  }
  return jobs;
}

ReplayRecord replay_failure(const ReplayJob& job, int failure, const std::string& reason) {
  ReplayRecord r;
  r.job = job;
  r.status = ReplayStatus::kFailed;
  r.failure = failure;
  r.reason = reason;
  return r;
}

ReplayRecord replay_capture(const ReplayJob& job, const std::vector<FileId>& inputs, const CaptureFunction& capture) {
  ReplayRecord r;
  r.job = job;
  const Capture& c = job.capture;
  const auto failed = [&r](int code, const std::string& reason) {
    r.status = ReplayStatus::kFailed;
    r.failure = code;
    r.reason = reason;
    return r;
  };
  if (const std::string p = capture_name_problem(c.name); !p.empty()) return failed(kInputError, base_of(c) + ": " + p);
  Frames frames{c.name.width, c.name.height, c.name.layout, {}};
  std::string error;
  for (int k = 0; k < 3; ++k) {
    const std::string path = c.prefix + "_" + std::to_string(k) + ".yuv";
    if (!read_raw_frame(path, frames.width, frames.height, &frames.data[k], &error)) return failed(kInputError, error);
  }

  std::vector<uint8_t> out;
  const Fused fused = capture(frames, &out);
  r.ms = fused.ms;
  r.log = fused.log;
  if (fused.interrupted) {
    r.status = ReplayStatus::kInterrupted;
    return r;
  }
  r.result = fused.result;
  if (fused.result != 0) {
    return failed(fused.result == 1 ? kStopped : kLibraryFailed, capture_failure(fused.result));
  }
  if (!write_output(job.target, out.data(), out.size(), inputs, &error)) return failed(kInputError, error);
  r.written = true;

  if (job.dumped.empty()) {
    r.status = ReplayStatus::kNoOutput;
    return r;
  }
  std::vector<uint8_t> theirs;
  const FrameRead read =
      read_frame_or_size(job.dumped, frames.width, frames.height, &theirs, &r.dumped_bytes, &error);
  if (read == FrameRead::kFailed) return failed(kInputError, error);
  if (read == FrameRead::kOtherSize) {
    r.status = ReplayStatus::kOtherSize;
    return r;
  }
  r.compared = true;
  count_bytes(out.data(), theirs.data(), out.size(), &r.bytes_differing, &r.first_difference);
  const ChromaLayout layout = parse_layout(frames.layout.c_str());
  r.diff = diff_frames(out.data(), theirs.data(), frames.width, frames.height, layout);
  if (r.bytes_differing == 0) {
    r.status = ReplayStatus::kIdentical;
    return r;
  }
  r.status = ReplayStatus::kDifferent;
  const std::string picture = diff_picture_path(job.target);
  if (!write_image(picture, diff_picture(out.data(), theirs.data(), frames.width, frames.height, layout), &error,
                   inputs)) {
    r.failure = kInputError;  // the comparison stands; the capture counts as failed
    r.reason = error;
    return r;
  }
  r.picture = picture;
  return r;
}

std::string capture_failure(int32_t result) {
  if (result == 1) return "the capture was stopped before it finished (result 1)";
  return "the library could not fuse the frames (result " + std::to_string(result) + "; its log is above)";
}

std::string replay_line(const ReplayRecord& r) {
  std::string verdict, details;
  switch (r.status) {
    case ReplayStatus::kInterrupted: return "interrupted\n";
    case ReplayStatus::kFailed: verdict = "failed"; break;
    case ReplayStatus::kNoOutput: verdict = "replayed, no dumped output to compare"; break;
    case ReplayStatus::kOtherSize:
      verdict = "dumped output is " + std::to_string(r.dumped_bytes) + " bytes, not " +
                std::to_string(static_cast<uint64_t>(r.job.capture.name.width) * r.job.capture.name.height * 3 / 2);
      break;
    case ReplayStatus::kIdentical: verdict = "identical"; break;
    case ReplayStatus::kDifferent:
      verdict = std::to_string(r.bytes_differing) + " bytes differ, first at byte " + std::to_string(r.first_difference);
      details = diff_report(r.diff, "    ") +
                (r.picture.empty() ? "    no difference picture\n" : "    difference picture " + printable(r.picture) + "\n");
      break;
  }
  if (r.written && !r.job.target.ends_with("_replay.yuv")) {
    verdict += " (an earlier capture has this name; result in " + printable(r.job.target) + ")";
  }
  return verdict + "\n" + details;
}

void ReplayTally::add(const ReplayRecord& r) {
  if (r.status == ReplayStatus::kInterrupted) return;
  ++replayed;
  capture_ms += r.ms;
  if (r.failure != 0) {
    ++failed;
    if (first_failure == 0) first_failure = r.failure;
    return;
  }
  switch (r.status) {
    case ReplayStatus::kIdentical: ++identical; break;
    case ReplayStatus::kNoOutput: ++without; break;
    default: ++different; break;
  }
  if (r.status == ReplayStatus::kDifferent && (worst.empty() || r.diff.differing() > worst_diff.differing())) {
    worst = base_of(r.job.capture);
    worst_diff = r.diff;
  }
}

std::string ReplayTally::summary(const char* signal_name) const {
  char line[512];
  const std::string of = signal_name == nullptr ? "" : " of " + std::to_string(captures);
  const std::string stopped = signal_name == nullptr ? "" : " (stopped by " + std::string(signal_name) + ")";
  snprintf(line, sizeof line, "replayed %zu%s captures%s: %d identical, %d different, %d without output, %d failed\n",
           replayed, of.c_str(), stopped.c_str(), identical, different, without, failed);
  std::string text = line;
  if (!worst.empty()) {
    snprintf(line, sizeof line, "%zu samples differ (Y %zu, U %zu, V %zu), luma PSNR %s\n", worst_diff.differing(),
             worst_diff.plane[0].differing, worst_diff.plane[1].differing, worst_diff.plane[2].differing,
             psnr_text(worst_diff.plane[0].psnr()).c_str());
    text += "worst capture: " + printable(worst) + ", " + line;
  }
  return text;
}

int ReplayTally::exit_code(int signal) const {
  if (signal != 0) return kInterrupted;
  if (first_failure != 0) return first_failure;
  return different > 0 ? kReplayDiffers : kOk;
}

Json record_json(const ReplayRecord& r) {
  const Capture& c = r.job.capture;
  const char* status = "failed";
  for (const auto& s : kStatusNames) {
    if (s.status == r.status) status = s.name;
  }
  if (r.failure != 0) status = "failed";
  return {{"record", "capture"},
          {"capture", base_of(c)},
          {"path", c.prefix},
          {"width", c.name.width},
          {"height", c.name.height},
          {"layout", c.name.layout},
          {"status", status},
          {"result", r.result ? Json(*r.result) : Json(nullptr)},
          {"ms", r.ms},
          {"bytes_differing", optional_number(r.compared, r.bytes_differing)},
          {"first_difference", optional_number(r.compared && r.bytes_differing != 0, r.first_difference)},
          {"planes", r.compared ? planes_json(r.diff) : Json(nullptr)},
          {"dumped_output_bytes", optional_number(r.status == ReplayStatus::kOtherSize, r.dumped_bytes)},
          {"result_file", r.written ? Json(r.job.target) : Json(nullptr)},
          {"difference_picture", optional_text(r.picture)},
          {"dumped_output", optional_text(r.job.dumped)},
          {"reason", optional_text(r.reason)}};
}

bool record_from_message(const std::string& message, const ReplayJob& job, ReplayRecord* r) {
  const Json j = Json::from_cbor(message, true, false);
  try {
    *r = ReplayRecord{};
    r->job = job;
    const std::string status = j.at("status");
    for (const auto& s : kStatusNames) {
      if (status == s.name) r->status = s.status;
    }
    if (!j.at("result").is_null()) r->result = j.at("result").get<int32_t>();
    r->ms = j.at("ms");
    r->failure = j.value("failure", 0);
    r->reason = j.at("reason").is_null() ? "" : j.at("reason").get<std::string>();
    r->log = j.value("log", "");
    r->written = !j.at("result_file").is_null();
    r->picture = j.at("difference_picture").is_null() ? "" : j.at("difference_picture").get<std::string>();
    r->compared = !j.at("bytes_differing").is_null();
    if (r->compared) {
      r->bytes_differing = j.at("bytes_differing");
      r->first_difference = j.at("first_difference").is_null() ? 0 : j.at("first_difference").get<uint64_t>();
      for (int p = 0; p < 3; ++p) {
        const Json& plane = j.at("planes").at(kPlaneNames[p]);
        r->diff.plane[p] = {plane.at("samples"), plane.at("differing"), plane.at("largest"),
                            plane.at("squared_error")};
      }
    }
    if (!j.at("dumped_output_bytes").is_null()) r->dumped_bytes = j.at("dumped_output_bytes");
    // A failure's status is reported as "failed"; a difference picture that
    // could not be written leaves a comparison behind it.
    if (r->failure != 0 && r->compared && r->bytes_differing != 0) r->status = ReplayStatus::kDifferent;
    return true;
  } catch (const Json::exception&) {
    return false;
  }
}


Json comparison_json(const uint8_t* ours, const uint8_t* theirs, int32_t width, int32_t height, ChromaLayout layout) {
  uint64_t differing = 0, first = 0;
  count_bytes(ours, theirs, static_cast<size_t>(width) * height * 3 / 2, &differing, &first);
  return {{"bytes_differing", differing},
          {"first_difference", optional_number(differing != 0, first)},
          {"planes", planes_json(diff_frames(ours, theirs, width, height, layout))}};
}

namespace {

std::string json_line(const Json& j) { return j.dump(-1, ' ', false, Json::error_handler_t::replace); }

Json summary_json(const ReplayTally& t, const char* signal_name, double wall_ms, int jobs) {
  Json worst = nullptr;
  if (!t.worst.empty()) {
    worst = {{"capture", t.worst}, {"differing", t.worst_diff.differing()}, {"planes", planes_json(t.worst_diff)}};
  }
  return {{"record", "summary"},
          {"captures", t.captures},
          {"replayed", t.replayed},
          {"identical", t.identical},
          {"different", t.different},
          {"without_output", t.without},
          {"failed", t.failed},
          {"stopped_by", signal_name == nullptr ? Json(nullptr) : Json(signal_name)},
          {"capture_ms", t.capture_ms},
          {"wall_ms", wall_ms},
          {"jobs", jobs},
          {"worst", worst}};
}

}  // namespace

std::string report_line(const ReplayRecord& record) { return json_line(record_json(record)); }

std::string summary_line(const ReplayTally& tally, const char* signal_name, double wall_ms, int jobs) {
  return json_line(summary_json(tally, signal_name, wall_ms, jobs));
}

std::string worker_message(const ReplayRecord& record) {
  Json j = record_json(record);
  j["failure"] = record.failure;
  j["log"] = record.log;
  const std::vector<uint8_t> bytes = Json::to_cbor(j);
  return std::string(bytes.begin(), bytes.end());
}

}  // namespace tavo::tool
