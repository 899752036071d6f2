// Library-wide state of the entry points: the camera's stop request and the
// stage timer shared by the capture entry and the pipeline driver.
#pragma once

#include <cstdint>

#include "api/stage_times.h"
#include "tavo_lumo_hdr.h"

namespace tavo {

// Value of the stop flag; a capture stops when it reads exactly 1.
int32_t stop_flag_value();

// Logs "Test: <label>, <seconds> s" under the function name endTime, keeps the
// seconds in the stage record (api/stage_times.h) and returns them: the time
// elapsed on the monotonic clock since start_ns.
double endTime(const char* label, int64_t start_ns);

// The banner's version text: "v" and the version of tavo_lumo_hdr.h.
inline constexpr const char* kLibraryVersion = "v" TAVO_HDR_VERSION_STRING;

}  // namespace tavo
