#!/bin/bash
# zyrdc bzip2 against the bzip2 tool: bzip2 -d reads zyrdc's -1..-9 files (empty, one block,
# many blocks) and zyrdc bzip2 -d reads bzip2's and their concatenations; every thread count
# writes the same bytes; damaged, truncated, randomised and foreign inputs give one error line
# naming the block, exit 1 and no output file. Usage: bzip2.sh ZYRDC
set -u
ZYRDC=$1
command -v bzip2 >/dev/null || { echo "bzip2 is not installed: skipped"; exit 0; }
T=$(mktemp -d) && trap 'rm -rf "$T"' EXIT
fails=0
fail() { echo "FAIL: $*" >&2; fails=$((fails + 1)); }
# expect_error PATTERN ARGS... : exit 1, one 'zyrdc: ' line on stderr matching PATTERN.
expect_error() {
  local pattern=$1; shift
  "$ZYRDC" "$@" >"$T/stdout" 2>"$T/err" </dev/null; local rc=$?
  [ $rc -eq 1 ] || fail "zyrdc $*: exit $rc, wanted 1"
  [ "$(wc -l <"$T/err")" -eq 1 ] && grep -q "^zyrdc: .*$pattern" "$T/err" ||
    fail "zyrdc $*: stderr is not one line with '$pattern': $(cat "$T/err")"
}

: >"$T/empty"
for i in $(seq 1 2000); do echo "line $i of the block sorting test, with some words repeated"; done >"$T/text"
{ cat "$T/text"; head -c 300000 /dev/urandom; head -c 700000 /dev/zero; cat "$T/text" "$T/text"; \
  head -c 200000 /dev/urandom | od -An -tx1; } >"$T/many"   # two blocks at -9, many at -1

while read -r input levels; do
  for level in $levels; do
    bzip2 -"$level" -c "$T/$input" >"$T/theirs.bz2"
    "$ZYRDC" bzip2 -d -c "$T/theirs.bz2" | cmp -s - "$T/$input" || fail "zyrdc -d of bzip2 -$level $input"
    "$ZYRDC" bzip2 -"$level" -c "$T/$input" >"$T/mine.bz2" && bzip2 -dc "$T/mine.bz2" | cmp -s - "$T/$input" ||
      fail "bzip2 -d of zyrdc bzip2 -$level $input"
  done
done <<'TABLE'
empty 1 9
text  1 2 3 4 5 6 7 8 9
many  1 2 3 4 5 6 7 8 9
TABLE

# Concatenated streams of different levels, an empty one among them.
{ bzip2 -1 -c "$T/text"; bzip2 -9 -c "$T/empty"; bzip2 -3 -c "$T/many"; } >"$T/cat.bz2"
cat "$T/text" "$T/many" >"$T/cat"
"$ZYRDC" bzip2 -d -c - <"$T/cat.bz2" | cmp -s - "$T/cat" || fail "concatenated streams through standard input"

# The same bytes for every thread count, both ways.
"$ZYRDC" bzip2 -1 -T1 -c "$T/many" >"$T/t1.bz2"
for n in 2 3 8; do
  "$ZYRDC" bzip2 -1 -T"$n" -c "$T/many" | cmp -s - "$T/t1.bz2" || fail "-T$n writes other bytes than -T1"
  "$ZYRDC" bzip2 -d -T"$n" -c "$T/cat.bz2" | cmp -s - "$T/cat" || fail "-d -T$n"
done

# Names: IN.bz2 beside IN, kept with -k, removed without; no overwrite without -f; -d strips
# .bz2; -t writes nothing.
cp "$T/text" "$T/named"
"$ZYRDC" bzip2 -k "$T/named" && [ -f "$T/named" ] && bzip2 -dc "$T/named.bz2" | cmp -s - "$T/text" ||
  fail "IN writes IN.bz2 and keeps IN"
"$ZYRDC" bzip2 -k "$T/named" 2>"$T/err"; [ $? -eq 2 ] && grep -q exists "$T/err" ||
  fail "an existing output is skipped with exit 2, as gzip does"
"$ZYRDC" bzip2 -f "$T/named" && [ ! -e "$T/named" ] || fail "-f overwrites and removes IN, as bzip2 does"
"$ZYRDC" bzip2 -d "$T/named.bz2" && cmp -s "$T/named" "$T/text" || fail "-d IN.bz2 writes IN"
"$ZYRDC" bzip2 -t "$T/cat.bz2" >"$T/stdout" && [ ! -s "$T/stdout" ] || fail "-t of a good file"

# Damaged inputs, each with the block its error names.
bzip2 -1 -c "$T/many" >"$T/good.bz2"
size=$(stat -c %s "$T/good.bz2")
head -c $((size / 2)) "$T/good.bz2" >"$T/half.bz2"
head -c $((size - 6)) "$T/good.bz2" >"$T/short.bz2"
cp "$T/good.bz2" "$T/flipped.bz2"
printf '\x55' | dd of="$T/flipped.bz2" bs=1 seek=$((size / 3)) conv=notrunc 2>/dev/null
cp "$T/good.bz2" "$T/random.bz2"  # the randomised bit of block 1: the top bit of byte 14
printf "\\x$(printf %x $(( $(od -An -tu1 -j14 -N1 "$T/good.bz2") | 128 )))" |
  dd of="$T/random.bz2" bs=1 seek=14 conv=notrunc 2>/dev/null
printf 'BZh9not a stream at all' >"$T/foreign.bz2"
while read -r file pattern; do
  rm -f "$T/out"
  expect_error "$pattern" bzip2 -d -o "$T/out" "$T/$file"
  [ -e "$T/out" ] && fail "$file left an output file"
  expect_error "$pattern" bzip2 -t "$T/$file"
done <<'TABLE'
half.bz2     block [0-9]*: the file ends inside the block
short.bz2    block [0-9]*: the file ends inside the block
flipped.bz2  block [0-9]*:
random.bz2   block 1: randomised
foreign.bz2  block 1: no block marker
empty        not a bzip2 file
TABLE

[ $fails -eq 0 ] && echo "all bzip2 checks passed"
exit $((fails > 0))
