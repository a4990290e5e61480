#!/usr/bin/env bash
# Builds and runs every test, in the normal build and in the AddressSanitizer + UBSan build.
# Usage: scripts/test.sh [preset ...]   (default: default asan)
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/setup.sh

presets=("$@")
[ ${#presets[@]} -gt 0 ] || presets=(default asan)
jobs=$(nproc)

for preset in "${presets[@]}"; do
  echo "==== build: $preset"
  cmake --preset "$preset" >/dev/null
  cmake --build --preset "$preset" -j "$jobs"
  echo "==== test: $preset"
  ctest --preset "$preset" -j "$jobs" --timeout 300
done
