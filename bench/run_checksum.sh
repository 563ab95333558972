#!/usr/bin/env bash
# run_checksum.sh - measure the checksum benchmarks of both builds the way docs/benchmarks.md
# was measured, and print its tables. Build both presets first.
#
#   bench/run_checksum.sh [OUTDIR] [extra zyrdc_bench flags...]
#
# Each build's run goes to OUTDIR/<preset>.json (default OUTDIR: bench-results). The load
# average is printed before each run: on a shared machine, wait for other jobs to finish
# (a build or a fuzzer on the other core moves the numbers by 5-15%).
set -euo pipefail

root=$(cd "$(dirname "$0")/.." && pwd)
# shellcheck source=bench/common.sh
. "$root/bench/common.sh"
out=${1:-bench-results}
shift || true
mkdir -p "$out"

for preset in x86_64-release i686-release; do
  exe=$(bench_program "$preset") || continue
  echo "== $preset, load: $(cut -d' ' -f1-3 /proc/loadavg)" >&2
  "$exe" --benchmark_filter='^(adler32|crc32|crc32c|crc32_bzip2|memcpy)/' \
         --benchmark_repetitions=5 --benchmark_report_aggregates_only=true \
         --benchmark_min_time=0.2 \
         --benchmark_out="$out/$preset.json" --benchmark_out_format=json "$@" >&2
  targets=""
  if [ "$preset" = x86_64-release ]; then targets="--targets"; fi
  python3 "$root/bench/ratios.py" "$out/$preset.json" $targets
  echo
done
