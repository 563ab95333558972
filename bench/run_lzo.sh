#!/usr/bin/env bash
# run_lzo.sh - measure the LZO and LZSS benchmarks of both builds (the LZO encoder: x86-64) the way docs/benchmarks.md
# was measured, and print its tables. Build both presets first; the corpus is read from
# $ZYRDC_CORPUS (default: the shared corpus folder beside the source tree).
#
#   bench/run_lzo.sh [OUTDIR] [extra zyrdc_bench flags...]
#
# Each build's run goes to OUTDIR/lzo-<preset>.json (default OUTDIR: bench-results). The
# load average is printed before each run: on a shared machine, wait for other jobs first.
set -euo pipefail

root=$(cd "$(dirname "$0")/.." && pwd)
# shellcheck source=bench/common.sh
. "$root/bench/common.sh"
out=${1:-bench-results}
shift || true
mkdir -p "$out"

files=()
for preset in x86_64-release i686-release; do
  exe=$(bench_program "$preset") || continue
  echo "== $preset, load: $(cut -d' ' -f1-3 /proc/loadavg)" >&2
  "$exe" --benchmark_filter='^(lzo1x_1|lzo1x_999|lzss_encode|lzss_decode)/' \
         --benchmark_repetitions=5 --benchmark_report_aggregates_only=true \
         --benchmark_min_time=0.1 \
         --benchmark_out="$out/lzo-$preset.json" --benchmark_out_format=json "$@" >&2
  files+=("$out/lzo-$preset.json")
done
python3 "$root/bench/lzo_table.py" "${files[@]}"

# The encoder: one run per file (lzo1x_999 takes seconds on the larger files), x86-64 only.
exe="$root/build/x86_64-release/bench/zyrdc_bench"
if [ -x "$exe" ]; then
  echo "== encoder, x86_64-release, load: $(cut -d' ' -f1-3 /proc/loadavg)" >&2
  "$exe" --benchmark_filter='^lzo_(encode|segments)/' --benchmark_min_time=0.1 \
         --benchmark_out="$out/lzo-encode-x86_64-release.json" --benchmark_out_format=json "$@" >&2
  python3 "$root/bench/lzo_encode_table.py" "$out/lzo-encode-x86_64-release.json"
fi
