#include "tools/progress_line.h"

#include <unistd.h>

#include <cmath>
#include <cstdio>

namespace tavo::tool {

namespace {

std::string duration(double seconds) {
  const long s = std::lround(seconds);
  char text[32];
  if (s >= 3600) {
    snprintf(text, sizeof text, "%ldh%02ldm", s / 3600, s / 60 % 60);
  } else if (s >= 60) {
    snprintf(text, sizeof text, "%ldm%02lds", s / 60, s % 60);
  } else {
    snprintf(text, sizeof text, "%lds", s);
  }
  return text;
}

// Errors are ignored: the line is a courtesy, and stderr's failure shows
// where it counts (the tool's error lines).
void put(const std::string& text) { [[maybe_unused]] const ssize_t n = write(STDERR_FILENO, text.data(), text.size()); }

}  // namespace

std::string ProgressLine::text(size_t done, size_t total, double seconds) {
  std::string line = "[" + std::to_string(done) + "/" + std::to_string(total) + "]";
  if (done == 0 || seconds <= 0) return line;
  const double rate = static_cast<double>(done) / seconds;
  char figures[64];
  snprintf(figures, sizeof figures, " %.1f captures/s", rate);
  line += figures;
  if (done < total) line += ", about " + duration(static_cast<double>(total - done) / rate) + " left";
  return line;
}

void ProgressLine::update(size_t done) {
  if (!shown_ || (drawn_ && since_drawn_.ms() < 100 && done < total_)) return;
  put("\r\033[K" + text(done, total_, since_start_.ms() / 1000));
  since_drawn_ = Stopwatch();
  drawn_ = true;
}

void ProgressLine::clear() {
  if (!drawn_) return;
  put("\r\033[K");
  drawn_ = false;
}

}  // namespace tavo::tool
