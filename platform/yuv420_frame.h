// A YUV 4:2:0 frame of W x H 8-bit samples as the library reads and writes it:
// the luma plane (W x H bytes, stride W) followed by W x H / 2 chroma bytes,
// arranged as the layout name says. The name is parsed once where it enters
// the library; inner code passes the parsed layout on.
#pragma once

#include <cstdint>
#include <cstring>

namespace tavo {

enum class ChromaLayout {
  kPlanar,      // "YUV420_PLANAR": a U plane, then a V plane, each W/2 x H/2
  kSemiPlanar,  // "YVU420_SEMIPLANAR": one plane of interleaved V,U pairs
  kOther,       // any other name, or none
};

// The layout a name stands for: exact, case-sensitive matches only.
inline ChromaLayout parse_layout(const char* name) {
  if (name == nullptr) return ChromaLayout::kOther;
  if (strcmp(name, "YUV420_PLANAR") == 0) return ChromaLayout::kPlanar;
  if (strcmp(name, "YVU420_SEMIPLANAR") == 0) return ChromaLayout::kSemiPlanar;
  return ChromaLayout::kOther;
}

// The name of a parsed layout ("" for kOther).
inline const char* layout_name(ChromaLayout layout) {
  return layout == ChromaLayout::kPlanar ? "YUV420_PLANAR" : layout == ChromaLayout::kSemiPlanar ? "YVU420_SEMIPLANAR" : "";
}

// Byte offsets and sizes within a W x H frame.
struct Yuv420Planes {
  int64_t luma_bytes;   // W x H: the luma plane, after which the chroma starts
  int64_t u_plane;      // planar: the U plane, at W x H
  int64_t v_plane;      // planar: the V plane, at (W x H x 5) / 4
  int64_t vu_plane;     // semi-planar: the V,U pairs, at W x H
  int64_t frame_bytes;  // (W x H x 3) / 2
};

constexpr Yuv420Planes yuv420_planes(int64_t width, int64_t height) {
  const int64_t luma = width * height;
  return Yuv420Planes{luma, luma, (luma * 5) / 4, luma, (luma * 3) / 2};
}

}  // namespace tavo
