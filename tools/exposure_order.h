// Which frames of a bracket are the dark, the normal and the bright one: by
// their EXIF exposure (exposure time x ISO / f-number squared) when all state
// it, else by their mean luma; of more than three, the darkest, the middle and
// the brightest. These must lie a sixth of a stop apart (EXIF; half a
// bracket's smallest step, which cameras round) or 2 levels of 255 (mean
// luma), else the bracket cannot be told apart.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace tavo::tool {

struct BracketOrder {
  int frame[3] = {0, 1, 2};  // the inputs taken as dark, normal and bright
  std::string line;          // "dark A, normal B, bright C (by EXIF exposure 0.0025, 0.01, 0.04)"
};

// `exposure`: each frame's EXIF exposure, 0 when unknown; `luma`: its mean
// luma. False with the reason, naming the two frames too close to order.
bool order_bracket(const std::vector<std::string>& names, const std::vector<double>& exposure,
                   const std::vector<double>& luma, BracketOrder* order, std::string* error);

// The mean of `count` luma samples.
double mean_luma(const uint8_t* y, size_t count);

}  // namespace tavo::tool
