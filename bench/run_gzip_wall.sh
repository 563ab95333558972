#!/usr/bin/env bash
# run_gzip_wall.sh - wall time of `zyrdc gzip` against the gzip program on a file of about
# 100 MB made of the corpus files: decompression of gzip -6's file, and compression at -1,
# -6 and -9 (each output checked by the other program). Prints one markdown row per job.
#
#   bench/run_gzip_wall.sh [ZYRDC] [WORKDIR]
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
zyrdc=${1:-$root/build/x86_64-release/tools/zyrdc/zyrdc}
work=${2:-$(mktemp -d)}
source "$root/bench/common.sh"
big="$work/big"
big_corpus_file "$big"
gzip -6 -c "$big" >"$work/big.gz"
echo "| job | zyrdc s | gzip s | gzip / zyrdc |"
echo "|---|---|---|---|"
a=$(wall "$zyrdc" gzip -dkf -o "$work/out1" "$work/big.gz"); b=$(wall sh -c "gzip -dc '$work/big.gz' >'$work/out2'")
cmp -s "$work/out1" "$big" || { echo "zyrdc gzip -d gave different bytes" >&2; exit 1; }
printf '| -d (gzip -6 file) | %.2f | %.2f | %.2f |\n' "$a" "$b" "$(echo "$b / $a" | bc -l)"
for level in 1 6 9; do
  a=$(wall "$zyrdc" gzip -"$level" -kf -o "$work/z.gz" "$big"); b=$(wall sh -c "gzip -$level -c '$big' >'$work/g.gz'")
  gzip -dc "$work/z.gz" | cmp -s - "$big" || { echo "gzip -d does not read zyrdc gzip -$level" >&2; exit 1; }
  printf '| -%s (size %d vs %d) | %.2f | %.2f | %.2f |\n' "$level" "$(stat -c %s "$work/z.gz")" \
    "$(stat -c %s "$work/g.gz")" "$a" "$b" "$(echo "$b / $a" | bc -l)"
done
