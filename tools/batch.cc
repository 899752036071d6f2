#include "tools/batch.h"

#include <sys/stat.h>

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <filesystem>

#include "tools/exif_tags.h"
#include "tools/exit_codes.h"
#include "tools/printable_text.h"
#include "tools/replay_json.h"

namespace tavo::tool {

namespace fs = std::filesystem;

namespace {

struct Photo {
  std::string path;
  int64_t time = 0;  // seconds
  int32_t width = 0, height = 0;
  int orientation = 1;
  std::string unreadable;  // why its header cannot be read
};

// EXIF's "YYYY:MM:DD HH:MM:SS" as seconds (read as UTC: only differences
// count), else the file's modification time.
int64_t taken_at(const std::string& taken, const std::string& path) {
  tm t{};
  if (sscanf(taken.c_str(), "%d:%d:%d %d:%d:%d", &t.tm_year, &t.tm_mon, &t.tm_mday, &t.tm_hour, &t.tm_min,
             &t.tm_sec) == 6) {
    t.tm_year -= 1900;
    t.tm_mon -= 1;
    return timegm(&t);
  }
  struct stat st{};
  return stat(path.c_str(), &st) == 0 ? st.st_mtime : 0;
}

std::string names_of(const std::vector<std::string>& paths) {
  std::string text;
  for (const std::string& p : paths) text += (text.empty() ? "" : ", ") + fs::path(p).filename().string();
  return text;
}

}  // namespace

bool plan_batch(const std::string& dir, int group, std::vector<BatchGroup>* groups, std::string* error) {
  std::vector<Photo> photos;
  std::error_code ec;
  for (fs::directory_iterator it(dir, ec), end; !ec && it != end; it.increment(ec)) {
    Photo p;
    p.path = it->path().string();
    if (image_format_of(p.path) == ImageFormat::kNone) continue;
    RgbImage header;
    ImageMetadata metadata;
    if (!read_image_header(p.path, &header, &metadata, &p.unreadable)) {
      p.time = taken_at("", p.path);
    } else {
      const ExifFacts facts = read_exif(metadata.exif);
      p.time = taken_at(facts.taken, p.path);
      p.width = header.width;
      p.height = header.height;
      p.orientation = facts.orientation;
    }
    photos.push_back(std::move(p));
  }
  if (ec) {
    *error = "cannot read the folder " + dir + ": " + ec.message();
    return false;
  }
  std::sort(photos.begin(), photos.end(),
            [](const Photo& a, const Photo& b) { return std::tie(a.time, a.path) < std::tie(b.time, b.path); });
  std::vector<const Photo*> current;
  const auto close = [&] {
    if (current.empty()) return;
    BatchGroup g;
    for (const Photo* p : current) g.frames.push_back(p->path);
    if (static_cast<int>(current.size()) != group) {
      g.problem = std::to_string(current.size()) + " frame" + (current.size() == 1 ? "" : "s") + ", not a bracket of " +
                  std::to_string(group);
    }
    groups->push_back(std::move(g));
    current.clear();
  };
  for (const Photo& p : photos) {
    if (!p.unreadable.empty()) {
      close();
      groups->push_back({{p.path}, p.unreadable, kInputError});
      continue;
    }
    if (!current.empty()) {
      const Photo& last = *current.back();
      if (p.time - last.time > kBracketGap || p.width != last.width || p.height != last.height ||
          p.orientation != last.orientation) {
        close();
      }
    }
    current.push_back(&p);
    if (static_cast<int>(current.size()) == group) close();
  }
  close();
  return true;
}

std::string batch_result(const std::string& out_dir, const std::string& reference) {
  const fs::path r(reference);
  return (fs::path(out_dir) / (r.stem().string() + "_hdr" + r.extension().string())).string();
}

std::string photo_message(const PhotoResult& r) {
  const Json j = {{"failure", r.failure}, {"reason", r.reason},     {"kept", r.kept},
                  {"order", r.order},     {"output", r.output},     {"width", r.width},
                  {"height", r.height},   {"captured", r.captured}, {"result", r.fused.result},
                  {"ms", r.fused.ms},     {"log", r.fused.log},     {"interrupted", r.fused.interrupted}};
  const std::vector<uint8_t> bytes = Json::to_cbor(j);
  return std::string(bytes.begin(), bytes.end());
}

bool photo_from_message(const std::string& message, PhotoResult* r) {
  const Json j = Json::from_cbor(message, true, false);
  try {
    r->failure = j.at("failure");
    r->reason = j.at("reason");
    r->kept = j.at("kept");
    r->order = j.at("order");
    r->output = j.at("output");
    r->width = j.at("width");
    r->height = j.at("height");
    r->captured = j.at("captured");
    r->fused.result = j.at("result");
    r->fused.ms = j.at("ms");
    r->fused.log = j.at("log");
    r->fused.interrupted = j.at("interrupted");
    return true;
  } catch (const Json::exception&) {
    return false;
  }
}

std::string batch_line(const BatchGroup& group, const PhotoResult& r) {
  if (!group.problem.empty()) return names_of(group.frames) + ": " + (group.failure != 0 ? "failed" : group.problem + ", skipped");
  if (r.failure != 0) return names_of(group.frames) + ": failed";
  const std::string order = r.order.empty() ? "" : "; " + r.order;
  return fs::path(r.output).filename().string() + (r.kept ? ": exists, kept" : ": written") + order;
}

void BatchTally::add(const BatchGroup& group, const PhotoResult& r) {
  ++done;
  capture_ms += r.captured ? r.fused.ms : 0;
  const int failure = group.failure != 0 ? group.failure : group.problem.empty() ? r.failure : 0;
  if (failure != 0) {
    ++failed;
    if (first_failure == 0) first_failure = failure;
  } else if (!group.problem.empty()) {
    ++skipped;
  } else {
    ++(r.kept ? kept : written);
  }
}

std::string BatchTally::summary(const char* signal_name) const {
  const std::string of = signal_name == nullptr ? "" : " of " + std::to_string(groups);
  const std::string stopped = signal_name == nullptr ? "" : " (stopped by " + std::string(signal_name) + ")";
  return "batch of " + std::to_string(done) + of + " groups" + stopped + ": " + std::to_string(written) +
         " written, " + std::to_string(kept) + " kept (the result existed), " + std::to_string(skipped) +
         " skipped (not a bracket), " + std::to_string(failed) + " failed\n";
}

int BatchTally::exit_code(int signal) const {
  if (signal != 0) return kInterrupted;
  return first_failure;
}

}  // namespace tavo::tool
