// Exit codes of tavo-hdr (README's table).
#pragma once

namespace tavo::tool {

enum Exit {
  kOk = 0,
  kUsageError = 2,
  kInputError = 3,
  kLibraryFailed = 4,
  kStopped = 5,
  kReplayDiffers = 6,
  kOutputLost = 7,
  kInterrupted = 128,  // exits with 128 + the signal
};

}  // namespace tavo::tool
