#!/bin/bash
# zyrdc gzip -d, -t and -c against the standard gzip program: files of every gzip level,
# multi-member files and members with every optional header field decode to what gzip -d
# gives; zyrdc's -1..-9 files decode with gzip -d; damaged, truncated and foreign inputs give
# one error line, exit 1 and no output file. Usage: gunzip.sh ZYRDC PYTHON
set -u
ZYRDC=$1 PY=$2
command -v gzip >/dev/null || { echo "gzip is not installed: skipped"; exit 0; }
T=$(mktemp -d) && trap 'rm -rf "$T"' EXIT
fails=0
fail() { echo "FAIL: $*" >&2; fails=$((fails + 1)); }

for i in $(seq 1 3000); do echo "record $i: the history window, the tables and the stored bytes"; done >"$T/text"
head -c 150000 /dev/urandom >"$T/random"
cat "$T/text" "$T/random" "$T/text" >"$T/mixed"
: >"$T/empty"

for input in empty text mixed; do
  for level in 1 2 3 4 5 6 7 8 9; do
    gzip -"$level" -c "$T/$input" >"$T/in.gz"
    rm -f "$T/out"
    "$ZYRDC" gzip -dk -o "$T/out" "$T/in.gz" && cmp -s "$T/out" "$T/$input" ||
      fail "gzip -d of gzip -$level $input"
    "$ZYRDC" gzip -"$level" -fk -o "$T/mine.gz" "$T/$input" && gzip -dc "$T/mine.gz" | cmp -s - "$T/$input" ||
      fail "gzip -d does not read zyrdc gzip -$level $input"
  done
done

# Several members, standard input and output, test mode.
gzip -1 -c "$T/text" >"$T/multi.gz"; gzip -9 -c "$T/random" >>"$T/multi.gz"; gzip -c "$T/empty" >>"$T/multi.gz"
cat "$T/text" "$T/random" >"$T/multi"
"$ZYRDC" gzip -d -c - <"$T/multi.gz" | cmp -s - "$T/multi" || fail "multi-member file through -c and standard input"
"$ZYRDC" gzip -t "$T/multi.gz" || fail "-t refuses a good file"
"$ZYRDC" gzip -c -k "$T/mixed" | "$ZYRDC" gzip -d -c - | cmp -s - "$T/mixed" || fail "round trip through pipes"

# A member with an extra field, a name, a comment and a header CRC, made by hand.
if [ -n "$PY" ]; then
  "$PY" - "$T/text" "$T/fields.gz" <<'PYEOF'
import sys, zlib, struct
data = open(sys.argv[1], 'rb').read()
head = bytes([0x1F, 0x8B, 8, 2 | 4 | 8 | 16]) + struct.pack('<I', 0) + bytes([0, 3])
head += struct.pack('<H', 6) + b'Ab\x02\x00xy' + b'name.txt\x00' + b'a comment\x00'
head += struct.pack('<H', zlib.crc32(head) & 0xFFFF)
c = zlib.compressobj(6, zlib.DEFLATED, -15)
body = c.compress(data) + c.flush()
open(sys.argv[2], 'wb').write(head + body + struct.pack('<II', zlib.crc32(data), len(data)))
PYEOF
  gzip -t "$T/fields.gz" 2>/dev/null || fail "gzip refuses the hand-made member (test is wrong)"
  "$ZYRDC" gzip -d -c "$T/fields.gz" | cmp -s - "$T/text" || fail "member with every optional field"
  # A wrong header CRC is refused.
  "$PY" -c "import sys; b=bytearray(open(sys.argv[1],'rb').read()); i=b.index(b'a comment\x00')+10; b[i]^=1; open(sys.argv[2],'wb').write(b)" \
    "$T/fields.gz" "$T/badhcrc.gz"
fi

# Damaged inputs: one error line, exit 1, no output file.
gzip -6 -c "$T/text" >"$T/good.gz"
size=$(stat -c %s "$T/good.gz")
head -c $((size - 5)) "$T/good.gz" >"$T/truncated.gz"
head -c $((size / 2)) "$T/good.gz" >"$T/half.gz"
cp "$T/good.gz" "$T/badcrc.gz"; printf '\x00' | dd of="$T/badcrc.gz" bs=1 seek=$((size - 8)) conv=notrunc 2>/dev/null
cp "$T/good.gz" "$T/badsize.gz"; printf '\x01' | dd of="$T/badsize.gz" bs=1 seek=$((size - 4)) conv=notrunc 2>/dev/null
cp "$T/good.gz" "$T/baddata.gz"; printf '\xff\xff\xff' | dd of="$T/baddata.gz" bs=1 seek=40 conv=notrunc 2>/dev/null
cp "$T/good.gz" "$T/trailing.gz"; echo junk >>"$T/trailing.gz"
mkdir "$T/dir"
for bad in truncated half badcrc badsize baddata trailing text empty badhcrc; do
  [ -f "$T/$bad.gz" ] || [ -f "$T/$bad" ] || continue
  f="$T/$bad.gz"; [ -f "$f" ] || f="$T/$bad"
  "$ZYRDC" gzip -dk -o "$T/dir/out" "$f" 2>"$T/err"; rc=$?
  [ $rc -eq 1 ] || fail "$bad: exit $rc, wanted 1"
  [ "$(wc -l <"$T/err")" -eq 1 ] && grep -q '^zyrdc: ' "$T/err" || fail "$bad: not one error line: $(cat "$T/err")"
  "$ZYRDC" gzip -t "$f" 2>/dev/null && fail "$bad: -t accepts it"
done
[ -z "$(ls -A "$T/dir")" ] || fail "failed runs left files behind: $(ls -A "$T/dir")"

[ $fails -eq 0 ] || exit 1
echo "all gunzip checks passed"
