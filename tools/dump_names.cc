#include "tools/dump_names.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <filesystem>

namespace tavo::tool {

namespace fs = std::filesystem;

namespace {

bool is_digit(char c) { return std::isdigit(static_cast<unsigned char>(c)) != 0; }

bool digits(const std::string& s, size_t pos, size_t n) {
  if (pos + n > s.size()) return false;
  return std::all_of(s.begin() + static_cast<std::ptrdiff_t>(pos),
                     s.begin() + static_cast<std::ptrdiff_t>(pos + n), is_digit);
}

// The whole run of digits at s[*pos], its value saturated at INT32_MAX;
// advances *pos.
bool number(const std::string& s, size_t* pos, int32_t* value) {
  int64_t v = 0;
  size_t end = *pos;
  for (; end < s.size() && is_digit(s[end]); ++end) v = std::min<int64_t>(v * 10 + (s[end] - '0'), INT32_MAX);
  if (end == *pos) return false;
  *value = static_cast<int32_t>(v);
  *pos = end;
  return true;
}

std::string strip_suffix(std::string s, const std::string& suffix) {
  if (s.size() >= suffix.size() && s.compare(s.size() - suffix.size(), suffix.size(), suffix) == 0) {
    s.resize(s.size() - suffix.size());
  }
  return s;
}

// The capture's base name when `filename` is "<base><suffix>" of a dump.
bool dump_of_file(const std::string& filename, const std::string& suffix, std::string* base, DumpName* name) {
  if (filename.size() <= suffix.size() || !filename.ends_with(suffix)) return false;
  *base = filename.substr(0, filename.size() - suffix.size());
  return parse_dump_name(*base, name);
}

// The names in `dir`; false with *ec set when it cannot be listed.
bool list_directory(const std::string& dir, std::vector<std::string>* names, std::error_code* ec) {
  for (fs::directory_iterator it(dir, *ec); !*ec && it != fs::directory_iterator(); it.increment(*ec)) {
    names->push_back(it->path().filename().string());
  }
  return !*ec;
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
  parsed.size = base.substr(4, pos - 4);
  parsed.layout = base.substr(pos, tail - pos);
  parsed.stamp = base.substr(tail + 1);
  *name = parsed;
  return true;
}

Collected collect_captures(const std::vector<std::string>& args, std::vector<Capture>* captures,
                           std::string* error, int* error_number) {
  int ignored = 0;
  int& number = error_number != nullptr ? *error_number : ignored;
  captures->clear();
  for (const std::string& arg : args) {
    std::error_code ec;
    if (fs::is_directory(arg, ec)) {
      std::vector<std::string> names;
      if (!list_directory(arg, &names, &ec)) {
        number = ec.value();
        *error = "cannot list " + arg + ": " + ec.message();
        return Collected::kUnlistable;
      }
      std::sort(names.begin(), names.end());
      const auto listed = [&](const std::string& name) { return std::binary_search(names.begin(), names.end(), name); };
      std::vector<Capture> found;
      for (const std::string& filename : names) {
        std::string base;
        Capture capture;
        if (dump_of_file(filename, "_0.yuv", &base, &capture.name) && listed(base + "_1.yuv") &&
            listed(base + "_2.yuv")) {
          capture.prefix = (fs::path(arg) / base).string();
          found.push_back(capture);
        }
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
        number = ENOENT;
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

DumpIndex::DumpIndex(const std::vector<std::string>& names) {
  for (const std::string& filename : names) {
    std::string base;
    DumpName name;
    if (dump_of_file(filename, "_0.yuv", &base, &name)) {
      kinds_[{name.width, name.height, name.layout}].input_stamps.push_back(name.stamp);
    } else if (dump_of_file(filename, "_hdr.yuv", &base, &name)) {
      kinds_[{name.width, name.height, name.layout}].outputs.emplace_back(name.stamp, filename);
    }
  }
  for (auto& [key, kind] : kinds_) {
    std::sort(kind.input_stamps.begin(), kind.input_stamps.end());
    std::sort(kind.outputs.begin(), kind.outputs.end());
  }
}

std::string DumpIndex::output_of(const DumpName& capture) const {
  const auto found = kinds_.find({capture.width, capture.height, capture.layout});
  if (found == kinds_.end()) return "";
  const Kind& kind = found->second;
  const auto next = std::upper_bound(kind.input_stamps.begin(), kind.input_stamps.end(), capture.stamp);
  const auto output =
      std::lower_bound(kind.outputs.begin(), kind.outputs.end(), std::pair(capture.stamp, std::string()));
  if (output == kind.outputs.end() || (next != kind.input_stamps.end() && output->first >= *next)) return "";
  return output->second;
}

std::string DumpedOutputs::find(const Capture& capture) {
  const std::string exact = capture.prefix + "_hdr.yuv";
  std::error_code ec;
  if (fs::exists(fs::symlink_status(exact, ec))) return exact;
  std::string dir = fs::path(capture.prefix).parent_path().string();
  if (dir.empty()) dir = ".";
  auto indexed = directories_.find(dir);
  if (indexed == directories_.end()) {
    std::vector<std::string> names;
    list_directory(dir, &names, &ec);  // an unlistable directory has no outputs to find
    indexed = directories_.emplace(dir, DumpIndex(names)).first;
  }
  const std::string name = indexed->second.output_of(capture.name);
  return name.empty() ? "" : (fs::path(dir) / name).string();
}

std::string find_dumped_output(const Capture& capture) { return DumpedOutputs().find(capture); }

}  // namespace tavo::tool
