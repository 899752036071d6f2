#!/usr/bin/env bash
# Builds the library natively and runs the main job.
set -euo pipefail
cd "$(dirname "$0")/.."
cmake --preset host >/dev/null
cmake --build --preset host -j "$(nproc 2>/dev/null || echo 2)"
./build/host/tools/tavo-hdr-smoke
