#include "tools/frame_diff.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <limits>

namespace tavo::tool {

namespace {

void add_sample(PlaneDiff* p, uint8_t a, uint8_t b) {
  const int d = std::abs(int{a} - int{b});
  ++p->samples;
  if (d == 0) return;
  ++p->differing;
  p->squared += static_cast<uint64_t>(d * d);
  if (d > p->largest) p->largest = d;
}

// visit(r, c, u, v) for every chroma block (row r, column c), with the offsets
// of its U and V samples from the start of the chroma data.
template <class Visit>
void for_each_chroma(size_t w, size_t h, ChromaLayout layout, Visit visit) {
  for (size_t r = 0; r < h / 2; ++r) {
    for (size_t c = 0; c < w / 2; ++c) {
      if (layout == ChromaLayout::kPlanar) {
        const size_t u = r * (w / 2) + c;
        visit(r, c, u, (w / 2) * (h / 2) + u);
      } else {
        const size_t v = r * w + 2 * c;
        visit(r, c, v + 1, v);
      }
    }
  }
}

}  // namespace

double PlaneDiff::psnr() const {
  if (squared == 0) return std::numeric_limits<double>::infinity();
  const double mse = static_cast<double>(squared) / static_cast<double>(samples);
  return 10.0 * std::log10(255.0 * 255.0 / mse);
}

FrameDiff diff_frames(const uint8_t* ours, const uint8_t* theirs, int32_t width, int32_t height,
                      ChromaLayout layout) {
  const size_t w = static_cast<size_t>(width), h = static_cast<size_t>(height);
  FrameDiff diff;
  for (size_t i = 0; i < w * h; ++i) add_sample(&diff.plane[0], ours[i], theirs[i]);
  const uint8_t* a = ours + w * h;
  const uint8_t* b = theirs + w * h;
  for_each_chroma(w, h, layout, [&](size_t, size_t, size_t u, size_t v) {
    add_sample(&diff.plane[1], a[u], b[u]);
    add_sample(&diff.plane[2], a[v], b[v]);
  });
  return diff;
}

std::string psnr_text(double psnr) {
  if (std::isinf(psnr)) return "inf";
  char text[32];
  snprintf(text, sizeof text, "%.2f dB", psnr);
  return text;
}

std::string diff_report(const FrameDiff& diff, const std::string& indent) {
  std::string report;
  for (int k = 0; k < 3; ++k) {
    const PlaneDiff& p = diff.plane[k];
    char line[160];
    snprintf(line, sizeof line, "%c  %zu of %zu samples differ, largest %d, PSNR %s\n", "YUV"[k], p.differing,
             p.samples, p.largest, psnr_text(p.psnr()).c_str());
    report += indent + line;
  }
  return report;
}

RgbImage diff_picture(const uint8_t* ours, const uint8_t* theirs, int32_t width, int32_t height,
                      ChromaLayout layout) {
  const size_t w = static_cast<size_t>(width), h = static_cast<size_t>(height);
  RgbImage image{width, height, std::vector<uint8_t>(w * h * 3)};
  const auto paint = [&](size_t i, const uint8_t* colour) {
    for (int k = 0; k < 3; ++k) image.pixels[3 * i + k] = colour[k];
  };
  for (size_t i = 0; i < w * h; ++i) {
    const uint8_t grey[3] = {static_cast<uint8_t>(theirs[i] / 2), static_cast<uint8_t>(theirs[i] / 2),
                             static_cast<uint8_t>(theirs[i] / 2)};
    paint(i, ours[i] != theirs[i] ? kLumaDiffers : grey);
  }
  const uint8_t* a = ours + w * h;
  const uint8_t* b = theirs + w * h;
  for_each_chroma(w, h, layout, [&](size_t r, size_t c, size_t u, size_t v) {
    if (a[u] == b[u] && a[v] == b[v]) return;
    const size_t top = 2 * r * w + 2 * c;
    for (size_t i : {top, top + 1, top + w, top + w + 1}) {
      if (ours[i] == theirs[i]) paint(i, kChromaDiffers);
    }
  });
  return image;
}

}  // namespace tavo::tool
