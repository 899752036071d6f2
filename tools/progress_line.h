// A progress line on a terminal: "[120/1000] 8.4 captures/s, about 1m45s
// left", redrawn in place on stderr at most ten times a second, and cleared
// before any other line is printed, so that it never mixes with them.
#pragma once

#include <cstddef>
#include <string>

#include "tools/stopwatch.h"

namespace tavo::tool {

class ProgressLine {
 public:
  // Shown only when `shown` (stderr a terminal, no --quiet).
  ProgressLine(size_t total, bool shown) : total_(total), shown_(shown) {}
  ~ProgressLine() { clear(); }
  ProgressLine(const ProgressLine&) = delete;
  ProgressLine& operator=(const ProgressLine&) = delete;

  // `done` of the total have ended.
  void update(size_t done);
  // Takes the line off the terminal; the next update draws it again.
  void clear();

  // The text of the line after `done` of `total` in `seconds`.
  static std::string text(size_t done, size_t total, double seconds);

 private:
  size_t total_;
  bool shown_, drawn_ = false;
  Stopwatch since_start_, since_drawn_;
};

}  // namespace tavo::tool
