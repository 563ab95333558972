#!/usr/bin/env bash
# run_bzip2_wall.sh - wall time of `zyrdc bzip2` against the bzip2 program on a file of about
# 100 MB made of the corpus files: compression at -9 and decompression of bzip2 -9's file,
# with one and two threads (-T1, -T2); each output is checked by the other program. Prints
# one markdown row per job.
#
#   bench/run_bzip2_wall.sh [ZYRDC] [WORKDIR]
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
zyrdc=${1:-$root/build/x86_64-release/tools/zyrdc/zyrdc}
work=${2:-$(mktemp -d)}
mkdir -p "$work"
source "$root/bench/common.sh"
big="$work/big"
big_corpus_file "$big"
echo "| job | zyrdc s | bzip2 s | bzip2 / zyrdc |"
echo "|---|---|---|---|"
b=$(wall sh -c "bzip2 -9 -c '$big' >'$work/theirs.bz2'")
for t in 1 2; do
  a=$(wall "$zyrdc" bzip2 -9 -T"$t" -kf -o "$work/mine.bz2" "$big")
  bzip2 -dc "$work/mine.bz2" | cmp -s - "$big" || { echo "bzip2 -d does not read zyrdc bzip2 -9" >&2; exit 1; }
  printf '| -9 -T%s (size %d vs %d) | %.2f | %.2f | %.2f |\n' "$t" "$(stat -c %s "$work/mine.bz2")" \
    "$(stat -c %s "$work/theirs.bz2")" "$a" "$b" "$(echo "$b / $a" | bc -l)"
done
b=$(wall sh -c "bzip2 -dc '$work/theirs.bz2' >'$work/out2'")
for t in 1 2; do
  a=$(wall "$zyrdc" bzip2 -d -T"$t" -kf -o "$work/out1" "$work/theirs.bz2")
  cmp -s "$work/out1" "$big" || { echo "zyrdc bzip2 -d gave different bytes" >&2; exit 1; }
  printf '| -d -T%s (bzip2 -9 file) | %.2f | %.2f | %.2f |\n' "$t" "$a" "$b" "$(echo "$b / $a" | bc -l)"
done
