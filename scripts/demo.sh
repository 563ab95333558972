#!/usr/bin/env bash
# demo.sh - sets up the machine, builds the primary (i686) target and runs the main job:
# the zyrdc benchmark over the embedded sample data, verifying every primitive it runs.
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/setup.sh >/dev/null
cmake --preset i686-release >/dev/null
cmake --build --preset i686-release -j "$(nproc 2>/dev/null || echo 2)" --target zyrdc_tool >/dev/null
# build/<preset>/run runs the program natively, or under emulation where the kernel runs no
# i686 programs (the timings are then the emulator's, and zyrdc bench says so).
exec build/i686-release/run build/i686-release/tools/zyrdc/zyrdc bench "$@"
