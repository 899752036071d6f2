// A contact sheet: several RGB images of one size side by side, each reduced
// by an integer factor and captioned in a bar above it, on a dark background.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace tavo::tool {

struct RgbImage {
  int32_t width = 0;
  int32_t height = 0;
  std::vector<uint8_t> pixels;  // width*height*3, rows top to bottom, R,G,B
};

struct Panel {
  const RgbImage* image;
  std::string label;  // upper-case letters, digits, blanks and ( ) - . : x /
};

// Panels are reduced by the smallest integer factor that makes each at most
// `max_panel_width` wide (2x2... box average), then laid out left to right
// with a margin and a caption bar.
RgbImage contact_sheet(const std::vector<Panel>& panels, int32_t max_panel_width);

// Draws `text` with the built-in 5x7 font, each font pixel a scale x scale
// square, top-left corner at (x, y); characters outside the image are clipped.
// Returns the width drawn. Characters without a glyph are drawn as blanks.
int32_t draw_text(RgbImage* image, int32_t x, int32_t y, const std::string& text, int32_t scale,
                  const uint8_t colour[3]);
// Width in pixels that draw_text takes for `text` at `scale`.
int32_t text_width(const std::string& text, int32_t scale);

}  // namespace tavo::tool
