// The library's settings from the process environment. A host program may
// change its environment from any thread at any time (setenv, os.environ), and
// reading it meanwhile can crash, so the library reads it only at well-defined
// moments: when tavo_hdr_pool_init runs, and, before the first of those, at
// the first use of a setting. A capture only ever reads the snapshot taken then.
//
//   TAVO_HDR_PROPERTIES   the host property file (platform/properties.h)
//   TAVO_HDR_DUMP_DIR     the dump directory of a desktop build (api/)
//   TAVO_HDR_LOG          where the host log writer sends its lines
//   TAVO_HDR_DISABLE_SSE41, TAVO_HDR_DISABLE_AVX2, TAVO_HDR_DISABLE_AVX512,
//   TAVO_HDR_DISABLE_NEON,
//   TAVO_HDR_PORTABLE     instruction sets switched off (platform/cpu.h)
//
// The phone build reads none of them but the instruction-set switches.
#pragma once

namespace tavo::platform {

struct Environment {
  const char* property_file;    // "" when unset
  const char* dump_dir;         // "" when unset
  const char* log_destination;  // "" when unset
  int cpu_sets_off;             // the kCpuHas* flags the switches take away
};

// The snapshot in force; the first call takes one. Never changes under a
// caller: a new snapshot replaces it as a whole, and the old one stays valid.
const Environment& environment();

// Takes a new snapshot (tavo_hdr_pool_init, and tests that change the
// environment). Must not run beside a capture.
void read_environment();

}  // namespace tavo::platform
