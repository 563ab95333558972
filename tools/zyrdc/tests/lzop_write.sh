#!/usr/bin/env bash
# lzop_write.sh ZYRDC - `zyrdc lzop` as a writer, against the lzop tool as the oracle: every
# level with each checksum choice is read by `lzop -d`, listed as `lzop -l` lists it, and read
# back by `zyrdc lzop -d`; the operand forms (IN OUT, IN alone, -c, standard input), -t, and
# `zyrdc lzo` containers of any segment count.
set -u
ZYRDC=$1
T=$(mktemp -d) && trap 'rm -rf "$T"' EXIT
fails=0
fail() { echo "FAIL: $*" >&2; fails=$((fails + 1)); }
command -v lzop >/dev/null || { echo "lzop not installed: skipped"; exit 0; }

head -c 400000 /dev/urandom | od -An -tx1 | head -c 600000 >"$T/text"   # three 256 KiB blocks
head -c 70000 /dev/urandom >"$T/random"                                 # stored blocks
printf 'a' >"$T/one"
: >"$T/empty"
for input in text random one empty; do
  for level in 1 3 6 7 9; do
    for sums in "" "--crc32" "-F" "-C" "--crc32 -C"; do
      what="-$level $sums on $input"
      rm -f "$T/z.lzo"
      "$ZYRDC" lzop -"$level" $sums -f -o "$T/z.lzo" "$T/$input" || { fail "zyrdc lzop $what"; continue; }
      lzop -t -q "$T/z.lzo" || fail "lzop -t of $what"
      lzop -d -c "$T/z.lzo" | cmp -s - "$T/$input" || fail "lzop -d of $what"
      "$ZYRDC" lzop -d -c "$T/z.lzo" | cmp -s - "$T/$input" || fail "zyrdc lzop -d of $what"
    done
    [ "$("$ZYRDC" lzop -l "$T/z.lzo")" = "$(lzop -l "$T/z.lzo")" ] || fail "zyrdc lzop -l differs from lzop -l, -$level $input"
  done
done

# Operand forms. A single IN writes IN.lzo and keeps IN; -d on it writes IN back beside it.
cp "$T/text" "$T/single"
"$ZYRDC" lzop "$T/single" && [ -e "$T/single" ] && [ -e "$T/single.lzo" ] || fail "lzop IN"
mv "$T/single" "$T/orig"
"$ZYRDC" lzop -d "$T/single.lzo" && cmp -s "$T/single" "$T/orig" || fail "lzop -d IN.lzo"
"$ZYRDC" lzop "$T/single" 2>/dev/null && fail "lzop IN over an existing IN.lzo without -f"
"$ZYRDC" lzop -f -k "$T/single" || fail "lzop -f -k IN"
"$ZYRDC" lzop -c "$T/text" "$T/one" | lzop -d -c 2>/dev/null | cmp -s - <(cat "$T/text" "$T/one") || fail "lzop -c, two members"
"$ZYRDC" lzop <"$T/text" | "$ZYRDC" lzop -d | cmp -s - "$T/text" || fail "standard input and output"
[ "$("$ZYRDC" lzop -t "$T/single.lzo" 2>&1 >/dev/null)" = "testing $T/single.lzo OK" ] || fail "lzop -t"
"$ZYRDC" lzop -c "$T/text" | head -c 5000 >"$T/short.lzo"
"$ZYRDC" lzop -t "$T/short.lzo" >/dev/null 2>&1; [ $? -eq 1 ] || fail "lzop -t of a truncated file"
"$ZYRDC" lzop -d "$T/text" 2>/dev/null; [ $? -eq 2 ] || fail "lzop -d of a name without .lzo"
"$ZYRDC" lzop -t -l "$T/single.lzo" 2>/dev/null; [ $? -eq 2 ] || fail "lzop -t -l"

# Raw containers: the library's own segment count and any asked for.
for segs in "" 2 7 32; do
  rm -f "$T/c" "$T/back"
  "$ZYRDC" lzo ${segs:+--segments $segs} "$T/text" "$T/c" && "$ZYRDC" lzo -d "$T/c" "$T/back" &&
    cmp -s "$T/back" "$T/text" || fail "lzo --segments '$segs'"
  [ -z "$segs" ] || [ "$(od -An -tu1 -j1 -N1 "$T/c" | tr -d ' ')" = "$segs" ] || fail "lzo --segments $segs count"
done
"$ZYRDC" lzo "$T/empty" "$T/ce" && "$ZYRDC" lzo -d "$T/ce" "$T/be" && [ ! -s "$T/be" ] || fail "lzo of nothing"
"$ZYRDC" lzo --segments 1 "$T/text" "$T/x" 2>/dev/null; [ $? -eq 2 ] || fail "lzo --segments 1"
"$ZYRDC" lzo -d "$T/text" "$T/x" 2>/dev/null; [ $? -eq 1 ] || fail "lzo -d of no container"
exit $((fails > 0))
