#include "tools/dump_names.h"

#include <algorithm>
#include <cctype>
#include <filesystem>

namespace tavo::tool {

namespace fs = std::filesystem;

namespace {

bool digits(const std::string& s, size_t pos, size_t n) {
  if (pos + n > s.size()) return false;
  return std::all_of(s.begin() + static_cast<std::ptrdiff_t>(pos),
                     s.begin() + static_cast<std::ptrdiff_t>(pos + n),
                     [](char c) { return std::isdigit(static_cast<unsigned char>(c)) != 0; });
}

// Leading decimal number of at most 9 digits at s[*pos]; advances *pos.
bool number(const std::string& s, size_t* pos, int32_t* value) {
  size_t end = *pos;
  while (end < s.size() && end - *pos < 9 && std::isdigit(static_cast<unsigned char>(s[end]))) ++end;
  if (end == *pos) return false;
  *value = std::stoi(s.substr(*pos, end - *pos));
  *pos = end;
  return true;
}

std::string strip_suffix(std::string s, const std::string& suffix) {
  if (s.size() >= suffix.size() && s.compare(s.size() - suffix.size(), suffix.size(), suffix) == 0) {
    s.resize(s.size() - suffix.size());
  }
  return s;
}

// The capture behind "<dir>/<base><suffix>" when the file name has that form.
bool capture_of_file(const fs::path& file, const std::string& suffix, Capture* capture) {
  const std::string filename = file.filename().string();
  if (filename.size() <= suffix.size() || !filename.ends_with(suffix)) return false;
  const std::string base = filename.substr(0, filename.size() - suffix.size());
  if (!parse_dump_name(base, &capture->name)) return false;
  capture->prefix = (file.parent_path() / base).string();
  return true;
}

bool same_kind(const DumpName& a, const DumpName& b) {
  return a.width == b.width && a.height == b.height && a.layout == b.layout;
}

}  // namespace

bool parse_dump_name(const std::string& base, DumpName* name) {
  // The time stamp is the fixed-width tail "_yyyymmdd_hhmmss".
  constexpr size_t kTail = 16;
  if (base.rfind("IMG_", 0) != 0 || base.size() < 4 + 3 + kTail) return false;
  const size_t tail = base.size() - kTail;
  if (base[tail] != '_' || !digits(base, tail + 1, 8) || base[tail + 9] != '_' ||
      !digits(base, tail + 10, 6)) {
    return false;
  }
  size_t pos = 4;
  DumpName parsed;
  if (!number(base, &pos, &parsed.width) || pos >= tail || base[pos] != 'x') return false;
  ++pos;
  if (!number(base, &pos, &parsed.height) || pos > tail) return false;
  parsed.layout = base.substr(pos, tail - pos);
  parsed.stamp = base.substr(tail + 1);
  *name = parsed;
  return true;
}

Collected collect_captures(const std::vector<std::string>& args, std::vector<Capture>* captures,
                           std::string* error) {
  captures->clear();
  for (const std::string& arg : args) {
    std::error_code ec;
    if (fs::is_directory(arg, ec)) {
      std::vector<Capture> found;
      for (const auto& entry : fs::directory_iterator(arg, ec)) {
        Capture capture;
        if (!capture_of_file(entry.path(), "_0.yuv", &capture)) continue;
        if (fs::exists(capture.prefix + "_1.yuv") && fs::exists(capture.prefix + "_2.yuv")) {
          found.push_back(capture);
        }
      }
      if (ec) {
        *error = "cannot list " + arg + ": " + ec.message();
        return Collected::kUnlistable;
      }
      std::sort(found.begin(), found.end(), [](const Capture& a, const Capture& b) {
        return a.name.stamp != b.name.stamp ? a.name.stamp < b.name.stamp : a.prefix < b.prefix;
      });
      captures->insert(captures->end(), found.begin(), found.end());
      continue;
    }
    const std::string prefix = strip_suffix(strip_suffix(arg, "_0.yuv"), "_");
    Capture capture;
    if (!parse_dump_name(fs::path(prefix).filename().string(), &capture.name)) {
      if (!fs::exists(fs::symlink_status(arg, ec))) {
        *error = arg + " does not exist";
        return Collected::kMissing;
      }
      *error = "not a capture name (IMG_<W>x<H><layout>_<yyyymmdd>_<hhmmss>): " + arg;
      return Collected::kNotACaptureName;
    }
    capture.prefix = prefix;
    captures->push_back(capture);
  }
  return Collected::kCollected;
}

std::string find_dumped_output(const Capture& capture) {
  const std::string exact = capture.prefix + "_hdr.yuv";
  std::error_code ec;
  if (fs::exists(exact, ec)) return exact;
  fs::path dir = fs::path(capture.prefix).parent_path();
  if (dir.empty()) dir = ".";
  // The next capture of the same kind bounds the search.
  std::string next_inputs = "99999999_999999";
  std::string best, best_stamp;
  for (const auto& entry : fs::directory_iterator(dir, ec)) {
    Capture other;
    if (capture_of_file(entry.path(), "_0.yuv", &other) && same_kind(other.name, capture.name) &&
        other.name.stamp > capture.name.stamp && other.name.stamp < next_inputs) {
      next_inputs = other.name.stamp;
    }
  }
  for (const auto& entry : fs::directory_iterator(dir, ec)) {
    Capture output;
    if (!capture_of_file(entry.path(), "_hdr.yuv", &output) || !same_kind(output.name, capture.name)) continue;
    const std::string& stamp = output.name.stamp;
    if (stamp >= capture.name.stamp && stamp < next_inputs && (best.empty() || stamp < best_stamp)) {
      best = entry.path().string();
      best_stamp = stamp;
    }
  }
  return best;
}

}  // namespace tavo::tool
