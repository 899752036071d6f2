// A folder of photographs fused bracket by bracket: its JPEG and PNG files in
// the order they were taken (EXIF DateTimeOriginal, else the file's time;
// then the name) cut into groups of `group` frames, a group ending early at a
// gap of more than kBracketGap seconds or a change of size or orientation;
// each whole group is fused (photo_bracket.h) into OUT/<reference>_hdr.<ext>,
// groups of another size are reported and skipped.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "tools/photo_bracket.h"

namespace tavo::tool {

inline constexpr int kBracketGap = 2;

struct BatchGroup {
  std::vector<std::string> frames;
  // Why the group is not fused ("" when it is): not a whole bracket, or a
  // file whose header cannot be read; `failure` is the exit code of the latter.
  std::string problem;
  int failure = 0;
};

// The groups of `dir`, in the order taken; false with the reason when the
// folder cannot be read.
bool plan_batch(const std::string& dir, int group, std::vector<BatchGroup>* groups, std::string* error);

// Where a bracket's result goes: OUT/<reference's stem>_hdr<reference's extension>.
std::string batch_result(const std::string& out_dir, const std::string& reference);

// A bracket's result as a worker process sends it, and back.
std::string photo_message(const PhotoResult& result);
bool photo_from_message(const std::string& message, PhotoResult* result);

// What a group's line says after "[i/n] ": the result, or why there is none.
std::string batch_line(const BatchGroup& group, const PhotoResult& result);

// The totals of a batch, added group by group.
struct BatchTally {
  size_t groups = 0, done = 0;
  int written = 0, kept = 0, skipped = 0, failed = 0;
  int first_failure = 0;
  double capture_ms = 0;

  void add(const BatchGroup& group, const PhotoResult& result);
  std::string summary(const char* signal_name) const;
  int exit_code(int signal) const;
};

}  // namespace tavo::tool
