#!/usr/bin/env bash
# Builds and runs the whole test suite natively (with whole captures under
# valgrind, and once more under qemu-user on a processor without AVX),
# cross-built for aarch64 under qemu-user, natively under AddressSanitizer,
# LeakSanitizer and UndefinedBehaviorSanitizer, and under ThreadSanitizer. All
# four must pass. Last, the phone build's compile check (the library alone,
# built with clang for aarch64-linux-android29; nothing of it runs).
set -euo pipefail
cd "$(dirname "$0")/.."

jobs=$(nproc 2>/dev/null || echo 2)
status=0
for preset in host aarch64 asan tsan; do
  echo "=== ${preset}: configure and build"
  cmake --preset "$preset" >/dev/null
  cmake --build --preset "$preset" -j "$jobs"
  echo "=== ${preset}: test"
  if ! ctest --preset "$preset" -j "$jobs"; then status=1; fi
done
echo "=== android: configure and build (compile check)"
cmake --preset android >/dev/null
if ! cmake --build --preset android -j "$jobs"; then status=1; fi
exit $status
