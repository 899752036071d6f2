// SIGHUP, SIGINT and SIGTERM. A signal ends the tool at once: the handler
// removes the temporary files registered below, prints one line and exits with
// 128 + the signal. Inside a DeferInterrupts scope (a capture, a replay) the handler only
// records the signal and calls the notify function, which raises the library's
// stop flag; the code of the scope polls interrupting_signal() and winds down
// itself. A second signal ends the tool at once even there.
//
// SIGPIPE and SIGXFSZ are ignored: a write to a closed pipe or past the file
// size limit fails (EPIPE, EFBIG) and the tool's ordinary error paths run,
// which leave no temporary file either.
#pragma once

#include <signal.h>

namespace tavo::tool {

// `notify` must be async-signal-safe.
void install_interrupt_handlers(void (*notify)());

// The signal that arrived, 0 when none did.
int interrupting_signal();

// "SIGHUP", "SIGINT" or "SIGTERM".
const char* signal_name(int sig);

class DeferInterrupts {
 public:
  DeferInterrupts();
  ~DeferInterrupts();
  DeferInterrupts(const DeferInterrupts&) = delete;
  DeferInterrupts& operator=(const DeferInterrupts&) = delete;
};

// Keeps the signals away from the threads started in its scope (they inherit
// the mask), so that the handler runs on the main thread.
class BlockInterrupts {
 public:
  BlockInterrupts();
  ~BlockInterrupts();
  BlockInterrupts(const BlockInterrupts&) = delete;
  BlockInterrupts& operator=(const BlockInterrupts&) = delete;

 private:
  sigset_t saved_;
};

// Registers the temporary file `name` in the directory open as `dir_fd` for
// removal by the handler; the slot, or -1 when the name is too long or every
// slot is taken. Release the slot before closing dir_fd.
int track_temp_file(int dir_fd, const char* name);
void untrack_temp_file(int slot);

// In a forked child: the files registered so far are its parent's, which the
// child's handler must not remove.
void forget_temp_files();

}  // namespace tavo::tool
