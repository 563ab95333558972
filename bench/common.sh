# common.sh - sourced by the run_*.sh scripts: finds a build's benchmark program and refuses
# one that could only run under emulation.
#
# bench_program PRESET  prints the path of build/PRESET/bench/zyrdc_bench and returns 0, or
# says on standard error why that build is not timed and returns 1. An i686 build on a kernel
# without 32-bit support runs its programs under a user-mode emulator: its timings measure
# the emulator, not the library, so it is refused (time it on a machine that runs i686
# programs natively).
bench_program() {
  local preset=$1 dir exe
  dir="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)/build/$preset"
  exe="$dir/bench/zyrdc_bench"
  if [ ! -x "$exe" ]; then
    echo "bench: $exe not built, skipped" >&2
    return 1
  fi
  if grep -q '^ZYRDC_I686_EMULATED:INTERNAL=ON$' "$dir/CMakeCache.txt" 2>/dev/null; then
    echo "bench: $preset runs under emulation on this machine (its kernel runs no i686" \
         "programs): timings would measure the emulator, not the library; skipped" >&2
    return 1
  fi
  echo "$exe"
}

# big_corpus_file PATH  writes 100 MB of the corpus's text, tar, spreadsheet and image files
# (repeated) to PATH, the input of the wall-time comparisons with the standard tools.
big_corpus_file() {
  local big=$1 corpus=${ZYRDC_CORPUS:-$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)/../shared/corpus}
  : >"$big"
  while [ "$(stat -c %s "$big")" -lt 100000000 ]; do
    cat "$corpus"/*.txt "$corpus"/*.tar "$corpus"/kennedy.xls "$corpus"/ptt5 >>"$big"
  done
  head -c 100000000 "$big" >"$big.tmp" && mv "$big.tmp" "$big"
}

# wall COMMAND...  runs COMMAND and prints its wall time in seconds.
wall() { local t0 t1; t0=$(date +%s.%N); "$@"; t1=$(date +%s.%N); echo "$t1 - $t0" | bc; }
