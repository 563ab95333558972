#!/usr/bin/env bash
# lz4_levels.sh - `zyrdc lz4` against the lz4 tool in both directions at every level, with
# linked blocks, every block size and a dictionary; output naming, -c, -t and standard input.
# usage: lz4_levels.sh ZYRDC
set -u
ZYRDC=$1
"$ZYRDC" --help | grep -q '^  lz4 ' || { echo "zyrdc lz4 is not in this build: skipped"; exit 0; }
LZ4=$(command -v lz4 || true)
[ -n "$LZ4" ] || { echo "the lz4 tool is not installed: skipped"; exit 0; }
T=$(mktemp -d) && trap 'rm -rf "$T"' EXIT
fails=0
fail() { echo "FAIL: $*" >&2; fails=$((fails + 1)); }

# Text with repeats near and far, random bytes, long runs, nothing; a dictionary that shares
# words with the text.
python3 - "$T" <<'PY' || exit 1
import random, sys
d = sys.argv[1]; r = random.Random(7)
words = [b"chain ", b"block ", b"window ", b"level ", b"linked ", b"offset\n", b"a ", b"of "]
text = b"".join(r.choice(words) for _ in range(25000))
open(d + "/text", "wb").write(text)
open(d + "/random", "wb").write(bytes(r.getrandbits(8) for _ in range(70000)))
open(d + "/runs", "wb").write(b"".join(bytes([r.randrange(3)]) * r.randrange(1, 500) for _ in range(600)))
open(d + "/empty", "wb").write(b"")
open(d + "/dict", "wb").write(b"".join(r.choice(words) for _ in range(20000)))
PY

for f in text random runs empty; do
  in=$T/$f
  for opts in -1 -2 --fast=4 -3 -4 -5 -6 -7 -8 -9 -10 -11 -12 "-BD -1" "-BD -B4 -9" "-BD -B5 -12" \
              "-B4 -3" "-B6 --fast=2" "-D $T/dict -1" "-D $T/dict -9" "-D $T/dict -BD -B4 -2" \
              "-D $T/dict -BD -B4 -10"; do
    dict=""; case $opts in *-D*) dict="-D $T/dict";; esac
    # shellcheck disable=SC2086
    "$ZYRDC" lz4 -f $opts "$in" "$T/z" || { fail "zyrdc lz4 $opts $f"; continue; }
    # shellcheck disable=SC2086
    "$LZ4" -q -d $dict -c "$T/z" >"$T/o" && cmp -s "$T/o" "$in" || fail "lz4 -d of zyrdc lz4 $opts $f"
    # shellcheck disable=SC2086
    "$ZYRDC" lz4 -t $dict "$T/z" || fail "zyrdc lz4 -t of zyrdc lz4 $opts $f"
    # shellcheck disable=SC2086
    "$LZ4" -q $opts -c "$in" >"$T/z" || { fail "lz4 $opts $f"; continue; }
    # shellcheck disable=SC2086
    "$ZYRDC" lz4 -d $dict "$T/z" - >"$T/o" && cmp -s "$T/o" "$in" || fail "zyrdc lz4 -d of lz4 $opts $f"
  done
done

# The content size is in the header for a file, not for a pipe; output names.
"$ZYRDC" lz4 -f -9 "$T/text" "$T/z" && "$LZ4" -q --list "$T/z" >/dev/null 2>&1
cp "$T/text" "$T/named"
"$ZYRDC" lz4 -3 "$T/named" && [ -e "$T/named.lz4" ] || fail "IN.lz4 not written"
rm "$T/named" && "$ZYRDC" lz4 -d "$T/named.lz4" && cmp -s "$T/named" "$T/text" || fail "-d to IN without .lz4"
"$ZYRDC" lz4 -c -12 "$T/runs" | "$LZ4" -q -d -c | cmp -s - "$T/runs" || fail "-c"
"$ZYRDC" lz4 -BD -9 - <"$T/text" | "$ZYRDC" lz4 -d - | cmp -s - "$T/text" || fail "standard input"
"$ZYRDC" lz4 -13 "$T/text" "$T/bad" 2>/dev/null; [ $? -eq 2 ] || fail "level 13 is a usage error"
"$ZYRDC" lz4 -D "$T/dict" -1 "$T/text" "$T/zd" && ! "$ZYRDC" lz4 -t "$T/zd" 2>/dev/null || fail "a dictionary frame without -D"

[ $fails -eq 0 ] || { echo "$fails failure(s)"; exit 1; }
echo "all checks passed"
