#include "tools/interrupt.h"

#include <fcntl.h>
#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <cstring>

namespace tavo::tool {

namespace {

// A slot is free (0), being filled (1) or names a live file (2); the handler
// reads only slots in state 2.
struct TempSlot {
  std::atomic<int> state{0};
  int dir_fd = -1;
  char name[64] = {};
};

TempSlot g_temps[8];
std::atomic<int> g_signal{0};
std::atomic<int> g_deferred{0};
void (*g_notify)() = nullptr;

static_assert(std::atomic<int>::is_always_lock_free, "the handler needs lock-free flags");

// The signals that end the tool, each with its line.
constexpr struct {
  int sig;
  const char* name;
  const char* line;
} kSignals[] = {
    {SIGHUP, "SIGHUP", "tavo-hdr: interrupted by SIGHUP\n"},
    {SIGINT, "SIGINT", "tavo-hdr: interrupted by SIGINT\n"},
    {SIGTERM, "SIGTERM", "tavo-hdr: interrupted by SIGTERM\n"},
};

void on_signal(int sig) {
  const int earlier = g_signal.exchange(sig);
  if (g_notify != nullptr) g_notify();
  if (g_deferred.load() > 0 && earlier == 0) return;
  // Only async-signal-safe calls from here on.
  for (TempSlot& slot : g_temps) {
    if (slot.state.load(std::memory_order_acquire) == 2) unlinkat(slot.dir_fd, slot.name, 0);
  }
  for (const auto& s : kSignals) {
    if (s.sig != sig) continue;
    [[maybe_unused]] const ssize_t n = write(STDERR_FILENO, s.line, strlen(s.line));
  }
  _exit(128 + sig);
}

sigset_t interrupt_set() {
  sigset_t set;
  sigemptyset(&set);
  for (const auto& s : kSignals) sigaddset(&set, s.sig);
  return set;
}

}  // namespace

void install_interrupt_handlers(void (*notify)()) {
  g_notify = notify;
  struct sigaction action {};
  action.sa_handler = on_signal;
  action.sa_mask = interrupt_set();
  action.sa_flags = SA_RESTART;
  for (const auto& s : kSignals) sigaction(s.sig, &action, nullptr);
  signal(SIGPIPE, SIG_IGN);
  signal(SIGXFSZ, SIG_IGN);
}

int interrupting_signal() { return g_signal.load(); }

const char* signal_name(int sig) {
  for (const auto& s : kSignals) {
    if (s.sig == sig) return s.name;
  }
  return "a signal";
}

DeferInterrupts::DeferInterrupts() { g_deferred.fetch_add(1); }
DeferInterrupts::~DeferInterrupts() { g_deferred.fetch_sub(1); }

BlockInterrupts::BlockInterrupts() {
  const sigset_t set = interrupt_set();
  pthread_sigmask(SIG_BLOCK, &set, &saved_);
}
BlockInterrupts::~BlockInterrupts() { pthread_sigmask(SIG_SETMASK, &saved_, nullptr); }

int track_temp_file(int dir_fd, const char* name) {
  if (strlen(name) >= sizeof g_temps[0].name) return -1;
  for (int i = 0; i < static_cast<int>(sizeof g_temps / sizeof g_temps[0]); ++i) {
    int expected = 0;
    if (!g_temps[i].state.compare_exchange_strong(expected, 1)) continue;
    g_temps[i].dir_fd = dir_fd;
    strcpy(g_temps[i].name, name);
    g_temps[i].state.store(2, std::memory_order_release);
    return i;
  }
  return -1;
}

void forget_temp_files() {
  for (TempSlot& slot : g_temps) slot.state.store(0, std::memory_order_release);
}

void untrack_temp_file(int slot) {
  if (slot >= 0) g_temps[slot].state.store(0, std::memory_order_release);
}

}  // namespace tavo::tool
