#!/usr/bin/env bash
# cli.sh - the zyrdc program seen from outside: checksums against check values and python3
# references, exit codes and one-line errors, the version line, and bench runs.
# usage: cli.sh ZYRDC PYTHON VERSION GROUP   (GROUP: sum | errors | info | bench | lzop | lzss;
# PYTHON may be empty, which skips the reference checksums and generated inputs)
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
lzop)
  # Files written by the lzop tool, the oracle: every level, both checksum kinds and none,
  # several blocks, standard input and output, two members back to back.
  command -v lzop >/dev/null || { echo "lzop not installed: group skipped"; exit 0; }
  head -c 700000 /dev/urandom | od -An -tx1 | head -c 900000 >"$T/text"   # several 256 KiB blocks
  printf 'a' >"$T/one"
  : >"$T/empty"
  inputs=("$T/text" "$T/one" "$T/empty" "$T/digits")
  if [ -n "$PY" ]; then
    # Incompressible bytes with one 3-byte repeat 2490 back, then text: the best level opens
    # the block with a 3000-byte run and a short match, which the library refuses alone.
    "$PY" -c 'import random,sys; r=random.Random(5); b=bytearray(r.randbytes(3000)); b[2990:2993]=b[500:503]; sys.stdout.buffer.write(bytes(b)+b"the cat sat on the mat "*900)' >"$T/opening"
    inputs+=("$T/opening")
  fi
  for input in "${inputs[@]}"; do
    for opts in "" "-1" "-9" "--crc32" "-F"; do
      rm -f "$T/z.lzo" "$T/back"
      lzop -q $opts -c "$input" >"$T/z.lzo" || { fail "lzop $opts $input"; continue; }
      "$ZYRDC" lzop -d "$T/z.lzo" "$T/back" && cmp -s "$input" "$T/back" ||
        fail "lzop -d of 'lzop $opts' on $(basename "$input")"
    done
  done
  lzop -q -c <"$T/text" >"$T/z.lzo"
  "$ZYRDC" lzop -d - - <"$T/z.lzo" >"$T/back" && cmp -s "$T/text" "$T/back" || fail "lzop -d - -"
  cat "$T/z.lzo" "$T/z.lzo" >"$T/two.lzo"
  "$ZYRDC" lzop -d -f "$T/two.lzo" "$T/back" && cmp -s <(cat "$T/text" "$T/text") "$T/back" ||
    fail "two members"
  # Damage: one line, exit 1, no output left behind.
  size=$(stat -c %s "$T/z.lzo")
  cp "$T/z.lzo" "$T/bad.lzo"; printf '\x55' | dd of="$T/bad.lzo" bs=1 seek=$((size / 2)) conv=notrunc 2>/dev/null
  head -c $((size - 9)) "$T/z.lzo" >"$T/short.lzo"
  cat "$T/z.lzo" "$T/digits" >"$T/trailing.lzo"
  for bad in bad short trailing; do
    rm -f "$T/out"
    OUT=/dev/null expect_error 1 lzop -d "$T/$bad.lzo" "$T/out"
    [ ! -e "$T/out" ] || fail "lzop -d $bad.lzo left an output file"
  done
  OUT=/dev/null expect_error 1 lzop -d "$T/digits" "$T/out"            # not an lzop file
  OUT=/dev/null expect_error 1 lzop -d "$T/z.lzo" "$T/back"             # exists, no -f
  "$ZYRDC" lzop -d -f "$T/z.lzo" "$T/back" || fail "lzop -d -f"
  OUT=/dev/null expect_error 2 lzop "$T/z.lzo" "$T/out"                 # no -d
  OUT=/dev/null expect_error 2 lzop -d "$T/z.lzo"
  ;;
lzss)
  head -c 300000 /dev/urandom | od -An -tx1 | head -c 400000 >"$T/text"
  # Any piece size codes and decodes, through files and pipes; the coded bytes depend on the
  # piece size when coding, not on the one used to decode.
  for piece in 1 7 4096 65536 1000000; do
    "$ZYRDC" lzss --piece "$piece" "$T/text" "$T/z$piece" || fail "lzss --piece $piece"
    "$ZYRDC" lzss -d -p 3 "$T/z$piece" "$T/back" -f && cmp -s "$T/text" "$T/back" ||
      fail "lzss round trip, piece $piece"
  done
  "$ZYRDC" lzss - - <"$T/text" | "$ZYRDC" lzss -d - - | cmp -s - "$T/text" || fail "lzss through pipes"
  cmp -s "$T/z65536" <("$ZYRDC" lzss - - <"$T/text") || fail "lzss: default piece is not 65536"
  [ "$(stat -c %s "$T/z65536")" -lt 300000 ] || fail "lzss did not compress text"
  : >"$T/empty"
  "$ZYRDC" lzss "$T/empty" "$T/ze" && [ -e "$T/ze" ] && [ ! -s "$T/ze" ] || fail "lzss of nothing"
  OUT=/dev/null expect_error 2 lzss --piece 0 "$T/text" "$T/out"
  OUT=/dev/null expect_error 2 lzss "$T/text"
  OUT=/dev/null expect_error 1 lzss "$T/text" "$T/back"                 # exists, no -f
  out=$("$ZYRDC" bench -t 0.01 -p lzss -p lzss-decode "$T/text") || fail "bench lzss rows"
  [ "$(grep -Ec '^lzss(-decode)? .* ok$' <<<"$out")" -eq 2 ] || fail "bench lzss rows: $out"
  ;;
*) fail "unknown group $GROUP" ;;
esac
exit $((fails > 0))
