#!/usr/bin/env bash
# run_zfp.sh - measure the ZFP benchmarks of both builds the way docs/benchmarks.md was
# measured, and print its tables. Build both presets first.
#
#   bench/run_zfp.sh [OUTDIR] [extra zyrdc_bench flags...]
#
# Each build's run goes to OUTDIR/zfp-<preset>.json (default OUTDIR: bench-results). The load
# average is printed before each run: on a shared machine, wait for other jobs to finish.
set -euo pipefail

root=$(cd "$(dirname "$0")/.." && pwd)
out=${1:-bench-results}
shift || true
mkdir -p "$out"

for preset in x86_64-release i686-release; do
  exe="$root/build/$preset/bench/zyrdc_bench"
  if [ ! -x "$exe" ]; then
    echo "run_zfp: $exe not built, skipped" >&2
    continue
  fi
  echo "== $preset, load: $(cut -d' ' -f1-3 /proc/loadavg)" >&2
  "$exe" --benchmark_filter='^zfp_' \
         --benchmark_repetitions=5 --benchmark_report_aggregates_only=true \
         --benchmark_min_time=0.5 \
         --benchmark_out="$out/zfp-$preset.json" --benchmark_out_format=json "$@" >&2
  targets=""
  if [ "$preset" = x86_64-release ]; then targets="--targets"; fi
  python3 "$root/bench/zfp_tables.py" "$out/zfp-$preset.json" $targets
  echo
done
