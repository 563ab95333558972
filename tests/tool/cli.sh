#!/usr/bin/env bash
# cli.sh - the zyrdc program seen from outside: checksums against check values and python3
# references, exit codes and one-line errors, the version line, and bench runs.
# usage: cli.sh ZYRDC PYTHON VERSION GROUP   (GROUP: sum | errors | info | bench | gzip; PYTHON
# may be empty, which skips the reference checksums)
set -u
ZYRDC=$1 PY=$2 VERSION=$3 GROUP=$4
T=$(mktemp -d) && trap 'rm -rf "$T"' EXIT
fails=0
fail() { echo "FAIL: $*" >&2; fails=$((fails + 1)); }

# expect WANTED ARGS... : zyrdc ARGS prints exactly WANTED on stdout and exits 0.
expect() {
  local want=$1; shift
  local got; got=$("$ZYRDC" "$@" 2>"$T/err"); local rc=$?
  [ $rc -eq 0 ] && [ "$got" = "$want" ] ||
    fail "zyrdc $*: exit $rc, got '$got', wanted '$want' $(cat "$T/err")"
}
# expect_error CODE ARGS... : zyrdc ARGS exits CODE with one 'zyrdc: ' line on stderr
# (stdout goes to $OUT if set).
expect_error() {
  local code=$1; shift
  "$ZYRDC" "$@" >"${OUT:-$T/out}" 2>"$T/err" </dev/null; local rc=$?
  [ $rc -eq "$code" ] || fail "zyrdc $*: exit $rc, wanted $code"
  [ "$(wc -l <"$T/err")" -eq 1 ] && grep -q '^zyrdc: ' "$T/err" ||
    fail "zyrdc $*: stderr is not one 'zyrdc: ' line: $(cat "$T/err")"
}

printf 123456789 >"$T/digits"
case $GROUP in
sum)
  while read -r alg value; do
    expect "$value  $T/digits" sum -a "$alg" "$T/digits"
  done <<'TABLE'
adler32 091e01de
crc32   cbf43926
crc32c  e3069283
bzip2   fc891918
TABLE
  expect "cbf43926  -" sum <"$T/digits"                    # crc32 and stdin by default
  expect "e3069283  -" sum --algorithm=crc32c - <"$T/digits"
  expect "$(printf '091e01de  %s\n00000001  %s' "$T/digits" /dev/null)" \
    sum -a adler32 "$T/digits" /dev/null
  expect "00000000  /dev/null" sum -a bzip2 /dev/null     # no bytes: no call, start value
  [ -n "$PY" ] || { echo "python3 not given: reference checksums skipped"; exit $((fails > 0)); }
  # A few MiB, not a multiple of the 64 KiB read size, against references written here.
  "$PY" - "$T/big" >"$T/refs" <<'PY' || fail "python3 reference failed"
import random, sys, zlib
data = random.Random(7).randbytes(3 * 2**20 + 12345)
open(sys.argv[1], "wb").write(data)
def crc(poly, reflected):
    table = []
    for i in range(256):
        r = i if reflected else i << 24
        for _ in range(8):
            if reflected:
                r = (r >> 1) ^ (poly if r & 1 else 0)
            else:
                r = ((r << 1) ^ (poly if r >> 31 else 0)) & 0xFFFFFFFF
        table.append(r)
    reg = 0xFFFFFFFF
    for b in data:
        if reflected:
            reg = table[(reg ^ b) & 0xFF] ^ (reg >> 8)
        else:
            reg = ((reg << 8) & 0xFFFFFFFF) ^ table[(reg >> 24) ^ b]
    return reg ^ 0xFFFFFFFF
for name, value in (("adler32", zlib.adler32(data)), ("crc32", zlib.crc32(data)),
                    ("crc32c", crc(0x82F63B78, True)), ("bzip2", crc(0x04C11DB7, False))):
    print(name, "%08x" % value)
PY
  while read -r alg value; do
    expect "$value  $T/big" sum -a "$alg" "$T/big"
    expect "$value  -" sum -a "$alg" < <(cat "$T/big")     # through a pipe
  done <"$T/refs"
  [ -s "$T/refs" ] || fail "no reference checksums"
  ;;
errors)
  while read -r code args; do
    eval "expect_error $code $args"
  done <<'TABLE'
1 sum "$T/missing"
1 sum "$T"
1 bench "$T/missing"
2 sum -x "$T/digits"
2 sum -a md5 "$T/digits"
2 sum -a
2 frobnicate
2 --frobnicate
2 bench -t 0
2 bench -p nosuch
2 version extra
TABLE
  # A bad file among good ones is reported and the others are still summed.
  got=$("$ZYRDC" sum "$T/missing" "$T/digits" 2>/dev/null); rc=$?
  [ $rc -eq 1 ] && [ "$got" = "cbf43926  $T/digits" ] ||
    fail "sum past a missing file: exit $rc, '$got'"
  if [ -w /dev/full ]; then OUT=/dev/full expect_error 1 sum "$T/digits"; fi
  "$ZYRDC" >"$T/out" 2>"$T/err"; rc=$?
  [ $rc -eq 2 ] && [ ! -s "$T/out" ] && grep -q '^usage: zyrdc' "$T/err" ||
    fail "no arguments: exit $rc"
  ;;
info)
  v=$("$ZYRDC" --version) || fail "--version failed"
  pattern="^zyrDC .+ ${VERSION//./\\.} \\(r0x[0-9a-f]{8}\\), built [A-Z][a-z]{2} [ 0-9][0-9] [0-9]{4}$"
  [[ $v =~ $pattern ]] || fail "--version printed '$v'"
  expect "$v" version
  help=$("$ZYRDC" --help) || fail "--help failed"
  for word in sum bench version; do
    grep -q "^  $word " <<<"$help" || fail "--help lacks $word"
  done
  help=$("$ZYRDC" sum --help) || fail "sum --help failed"
  for word in adler32 crc32 crc32c bzip2; do
    grep -qw "$word" <<<"$help" || fail "sum --help lacks $word"
  done
  ;;
bench)
  head -c 100000 /dev/urandom >"$T/random"
  "$ZYRDC" bench -t 0.01 "$T/digits" "$T/random" >"$T/out" 2>"$T/err" ||
    fail "bench on files failed"
  [ ! -s "$T/err" ] || fail "bench wrote to a stderr that is no terminal: $(cat "$T/err")"
  for alg in adler32 crc32 crc32c bzip2; do
    for input in "$T/digits" "$T/random"; do
      grep -Eq "^$alg +$input +[0-9]+ +[0-9.]+ +ok$" "$T/out" ||
        fail "bench: no passing $alg row for $input"
    done
  done
  out=$("$ZYRDC" bench -t 0.01 -p crc32c) || fail "bench on the sample failed"
  grep -q "^$("$ZYRDC" --version)$" <<<"$out" || fail "bench header lacks the version line"
  [ "$(grep -Ec ' ok$' <<<"$out")" -eq 1 ] && grep -Eq '^crc32c +sample +1048576 ' <<<"$out" ||
    fail "bench -p crc32c on the sample printed: $out"
  ;;
gzip)
  # The standard gzip program is the oracle: it must give back every input at every level.
  command -v gzip >/dev/null || { echo "gzip is not installed: the gzip group is skipped"; exit 0; }
  : >"$T/empty"
  head -c 200000 /dev/urandom >"$T/random"
  for i in $(seq 1 4000); do echo "line $i: the window, the hash chain and the lazy match"; done >"$T/text"
  head -c 100000 /dev/zero | tr '\0' a >"$T/run"
  cat "$T/text" "$T/random" "$T/run" "$T/text" >"$T/mixed"
  for input in empty digits text random run mixed; do
    for level in default 0 1 5 6 9 10 14 19 20 25 29; do
      rm -f "$T/out.gz"
      opts=(); [ $level = default ] || opts=(-l "$level")
      "$ZYRDC" gzip "${opts[@]}" "$T/$input" "$T/out.gz" 2>"$T/err" ||
        fail "gzip -l $level $input: $(cat "$T/err")"
      gzip -dc "$T/out.gz" 2>/dev/null | cmp -s - "$T/$input" ||
        fail "gzip -d does not give back $input written at level $level"
    done
  done
  "$ZYRDC" gzip - "$T/stdin.gz" <"$T/mixed" && gzip -dc "$T/stdin.gz" | cmp -s - "$T/mixed" ||
    fail "gzip from standard input"
  "$ZYRDC" gzip -l 1 "$T/mixed" - | gzip -dc | cmp -s - "$T/mixed" || fail "gzip to standard output"
  # An existing output stays unless -f; failures leave neither output nor temporary file.
  echo keep >"$T/exists.gz"
  expect_error 1 gzip "$T/text" "$T/exists.gz"
  [ "$(cat "$T/exists.gz")" = keep ] || fail "an existing output was overwritten without -f"
  "$ZYRDC" gzip -f "$T/text" "$T/exists.gz" && gzip -dc "$T/exists.gz" | cmp -s - "$T/text" ||
    fail "-f did not overwrite"
  mkdir "$T/dir"
  while read -r code args; do
    eval "expect_error $code $args"
  done <<'TABLE'
1 gzip "$T/missing" "$T/dir/a.gz"
1 gzip "$T/dir" "$T/dir/b.gz"
1 gzip "$T/text" "$T/nodir/c.gz"
2 gzip -l 30 "$T/text" "$T/dir/d.gz"
2 gzip -l -1 "$T/text" "$T/dir/e.gz"
2 gzip -l six "$T/text" "$T/dir/f.gz"
2 gzip "$T/text"
2 gzip "$T/text" "$T/dir/g.gz" "$T/dir/h.gz"
2 gzip -x "$T/text" "$T/dir/i.gz"
TABLE
  [ -z "$(ls -A "$T/dir")" ] || fail "failed runs left files behind: $(ls -A "$T/dir")"
  help=$("$ZYRDC" --help) && grep -q '^  gzip ' <<<"$help" || fail "--help lacks gzip"
  "$ZYRDC" bench -t 0.01 -p gzip-1 -p gzip-6 -p gzip-9 "$T/mixed" >"$T/out" ||
    fail "bench of the gzip rows failed"
  for level in 1 6 9; do
    grep -Eq "^gzip-$level +$T/mixed +[0-9]+ +[0-9.]+ +[0-9.]+ +ok$" "$T/out" ||
      fail "bench: no passing gzip-$level row: $(cat "$T/out")"
  done
  ;;
*) fail "unknown group $GROUP" ;;
esac
exit $((fails > 0))
