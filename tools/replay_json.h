// The replay's records and comparisons as JSON objects, for the Python module,
// which hands them over as dicts (replay.h has them as text).
#pragma once

#include <nlohmann/json.hpp>

#include "tools/replay.h"

namespace tavo::tool {

// JSON objects keep their keys in the order they were written.
using Json = nlohmann::ordered_json;

Json record_json(const ReplayRecord& record);

// The figures of a comparison of two frames of one size: bytes differing, the
// first, and per plane Y, U, V samples, differing, largest, squared error and
// PSNR (null for equal planes).
Json comparison_json(const uint8_t* ours, const uint8_t* theirs, int32_t width, int32_t height, ChromaLayout layout);

}  // namespace tavo::tool
