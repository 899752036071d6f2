// The shift search's inner step, shared with its tests.
#pragma once

#include <cstdint>

namespace tavo {

// Candidate shifts of one level of the search: x over 2sx - 1 ... 2sx + 1
// (outer), y over 2sy - 1 ... 2sy + 1 (inner).
inline constexpr int kCandidates = 9;

// Scores of the shifts (x[k], y[k]), k < kCandidates, of moving against
// reference planes of width x height (planes: moving mask, moving bitmap,
// reference bitmap, reference mask), each what imageAffine_xor_and_process
// gives for it, from one batch of bands.
void score_candidates(const uint8_t* const* planes, int32_t width, int32_t height, const int8_t* x,
                      const int8_t* y, uint32_t* counts);

}  // namespace tavo
