#!/usr/bin/env bash
# Builds the library and tavo-hdr natively (nothing else: no tests, no
# benchmarks) and runs the demo: a synthetic three-exposure bracket fused into
# out/demo_result.png and out/demo_contact_sheet.png.
set -euo pipefail
cd "$(dirname "$0")/.."
cmake --preset host >/dev/null
cmake --build --preset host -j "$(nproc 2>/dev/null || echo 2)" --target tavo_lumo_hdr tavo-hdr
./build/host/tools/tavo-hdr demo --out-dir out "$@"
