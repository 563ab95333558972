#!/usr/bin/env bash
# test.sh - sets up the machine, then builds and runs every test: the i686 build (the
# primary target), the x86-64 build, and the x86-64 build again under ASan + UBSan.
# Usage: scripts/test.sh [PRESET...]   (default: all three)
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/setup.sh

presets=("$@")
if [ ${#presets[@]} -eq 0 ]; then
  presets=(i686-release x86_64-release x86_64-asan)
fi
jobs=$(nproc 2>/dev/null || echo 2)

for preset in "${presets[@]}"; do
  echo "=== ${preset}: configure and build"
  cmake --preset "${preset}" >/dev/null
  cmake --build --preset "${preset}" -j "${jobs}"
  echo "=== ${preset}: test"
  ctest --preset "${preset}" -j "${jobs}"
done
echo "=== all test runs passed: ${presets[*]}"
