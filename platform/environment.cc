#include "platform/environment.h"

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <new>

#include "platform/cpu.h"
#include "platform/properties.h"

namespace tavo::platform {
namespace {

// A snapshot is one block, the record followed by its strings. None is ever
// freed once published: a log line on another thread may still be reading
// the one a newer snapshot replaced. A new one is made only when a value
// changed, so they do not pile up.
struct Snapshot {
  Environment env;
  const Snapshot* previous;
};

const Snapshot kEmpty = {{"", "", "", 0}, nullptr};
std::atomic<const Snapshot*> g_current{nullptr};

const char* value_of(const char* name) {
  const char* value = getenv(name);
  return value != nullptr ? value : "";
}

bool switched_on(const char* name) {
  const char* value = value_of(name);
  return *value != '\0' && strcmp(value, "0") != 0;
}

int cpu_sets_off() {
  if (switched_on("TAVO_HDR_PORTABLE")) return ~0;
  constexpr struct {
    const char* name;
    int flag;
  } kSwitches[] = {{"TAVO_HDR_DISABLE_SSE41", kCpuHasSSE41},
                   {"TAVO_HDR_DISABLE_AVX2", kCpuHasAVX2},
                   {"TAVO_HDR_DISABLE_AVX512", kCpuHasAVX512},
                   {"TAVO_HDR_DISABLE_NEON", kCpuHasNEON}};
  int off = 0;
  for (const auto& s : kSwitches) {
    if (switched_on(s.name)) off |= s.flag;
  }
  return off;
}

// The environment now, or `previous` itself when nothing changed (or when
// there is no memory for a new snapshot).
const Snapshot* take(const Snapshot* previous) {
  // Local time reads TZ on its first use only: let that be now, not while a
  // capture names its dumps.
  tzset();
  const char* values[] = {value_of(kPropertyFileVariable), value_of("TAVO_HDR_DUMP_DIR"),
                          value_of("TAVO_HDR_LOG")};
  const int off = cpu_sets_off();
  const Snapshot* base = previous != nullptr ? previous : &kEmpty;
  const char* const kept[] = {base->env.property_file, base->env.dump_dir, base->env.log_destination};
  bool same = previous != nullptr && off == previous->env.cpu_sets_off;
  size_t bytes = sizeof(Snapshot);
  for (size_t i = 0; i < 3; ++i) {
    same = same && strcmp(values[i], kept[i]) == 0;
    bytes += strlen(values[i]) + 1;
  }
  if (same) return previous;
  auto* block = static_cast<char*>(malloc(bytes));
  if (block == nullptr) return base;
  char* text = block + sizeof(Snapshot);
  const char* copies[3];
  for (size_t i = 0; i < 3; ++i) {
    const size_t n = strlen(values[i]) + 1;
    memcpy(text, values[i], n);
    copies[i] = text;
    text += n;
  }
  return new (block) Snapshot{{copies[0], copies[1], copies[2], off}, previous};
}

// Publishes a snapshot taken over `seen`; false when another thread
// published one first (the new one is then dropped, never having been seen).
bool publish(const Snapshot* seen, const Snapshot* next) {
  if (next == seen) return true;
  if (g_current.compare_exchange_strong(seen, next, std::memory_order_acq_rel)) return true;
  if (next != &kEmpty) free(const_cast<Snapshot*>(next));
  return false;
}

}  // namespace

const Environment& environment() {
  const Snapshot* current = g_current.load(std::memory_order_acquire);
  if (current == nullptr) {
    publish(nullptr, take(nullptr));
    current = g_current.load(std::memory_order_acquire);
  }
  return current->env;
}

void read_environment() {
  const Snapshot* seen = g_current.load(std::memory_order_acquire);
  while (!publish(seen, take(seen))) seen = g_current.load(std::memory_order_acquire);
  const Snapshot* now = g_current.load(std::memory_order_acquire);
  if (seen == nullptr || now->env.cpu_sets_off != seen->env.cpu_sets_off) MaskCpuFlags(-1);
}

}  // namespace tavo::platform
