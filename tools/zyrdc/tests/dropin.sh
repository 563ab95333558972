#!/usr/bin/env bash
# dropin.sh - zyrdc as a drop-in for the standard compressors, as tables:
#   grammar  every codec command through the option matrix (names, pipes, -c -k -o -S -t -l
#            -v --, removal of the input, unknown suffixes)
#   twins    each standard command line beside its zyrdc twin on the same files (the rows of
#            the README's table), and the standard tools as oracles in both directions
#   safe     outputs that are devices or FIFOs, the same file twice, signals, mode and times
#   exits    exit codes and one-line errors
#   install  the installed program from a private prefix, and its manual page
#   manual   the manual page formats without a warning (man -l, or groff where man is missing)
# usage: dropin.sh ZYRDC GROUP [BUILD_DIR | MANUAL_PAGE]
set -u
ZYRDC=$1 GROUP=$2 BUILD=${3:-}
T=$(mktemp -d) && trap 'rm -rf "$T"' EXIT
fails=0
fail() { echo "FAIL: $*" >&2; fails=$((fails + 1)); }
have() { command -v "$1" >/dev/null; }

# Test data: text, a run, random bytes, and floats for zfp (zeros code exactly).
seq 1 30000 | sed 's/$/ the quick brown fox/' >"$T/text"
head -c 70000 /dev/zero | tr '\0' a >"$T/run"
head -c 50000 /dev/urandom >"$T/random"
head -c 65536 /dev/zero >"$T/floats"

case $GROUP in
grammar)
  # CMD | compression options | suffix | input kept by default | input
  while IFS='|' read -r cmd opts suf keeps input; do
    what="$cmd $opts"
    d=$T/g; rm -rf "$d"; mkdir "$d"; cp "$T/$input" "$d/f"; cp "$T/$input" "$d/orig"
    # FILE -> FILE.SUF and back, the input removed as the standard tool does.
    (cd "$d" && "$ZYRDC" $cmd $opts f) || { fail "$what f"; continue; }
    [ -e "$d/f$suf" ] || fail "$what: no f$suf"
    if [ "$keeps" = 1 ]; then [ -e "$d/f" ] || fail "$what removed its input"; rm "$d/f"
    else [ ! -e "$d/f" ] || fail "$what kept its input"; fi
    (cd "$d" && "$ZYRDC" $cmd -d "f$suf") && cmp -s "$d/f" "$d/orig" || fail "$what: -d f$suf"
    [ "$keeps" = 1 ] || [ ! -e "$d/f$suf" ] || fail "$what -d kept f$suf"
    # Standard input to standard output, combined flags, -c keeps the input.
    "$ZYRDC" $cmd $opts <"$d/orig" | "$ZYRDC" $cmd -d | cmp -s - "$d/orig" || fail "$what: pipes"
    "$ZYRDC" $cmd -kc $opts "$d/orig" | "$ZYRDC" $cmd -dc - | cmp -s - "$d/orig" || fail "$what: -kc"
    [ -e "$d/orig" ] || fail "$what -c removed its input"
    # -S and -o; -t and --list (lz4's -l is its legacy format); an unknown suffix is skipped (2) and the file left alone.
    "$ZYRDC" $cmd $opts -k -S .x "$d/orig" && [ -e "$d/orig.x" ] || fail "$what -S .x"
    "$ZYRDC" $cmd -dk -S .x -o "$d/back" "$d/orig.x" && cmp -s "$d/back" "$d/orig" || fail "$what -d -S -o"
    "$ZYRDC" $cmd -t "$d/orig.x" 2>/dev/null || fail "$what -t"
    "$ZYRDC" $cmd --list "$d/orig.x" | grep -q "orig.x\$" || fail "$what --list"
    head -c 40 "$d/orig.x" >"$d/cut.x"
    "$ZYRDC" $cmd -tq "$d/cut.x" 2>/dev/null; [ $? -eq 1 ] || fail "$what -t of a cut file"
    "$ZYRDC" $cmd -d "$d/orig" 2>/dev/null; [ $? -eq 2 ] && cmp -s "$d/orig" "$T/$input" ||
      fail "$what -d of a name without $suf"
    # '--' ends the options; -v reports on stderr, -q is silent.
    cp "$d/orig" "$d/-n" && (cd "$d" && "$ZYRDC" $cmd $opts -k -- -n) && [ -e "$d/-n$suf" ] || fail "$what -- -n"
    "$ZYRDC" $cmd $opts -kfv "$d/orig" 2>&1 | grep -q "orig" || fail "$what -v says nothing"
    [ -z "$("$ZYRDC" $cmd $opts -kq "$d/orig" 2>&1)" ] || fail "$what -q is not quiet"
  done <<'TABLE'
gzip||.gz|0|text
gzip|-9|.gz|0|run
gzip|--level=25|.gz|0|random
gzip|--fast|.gz|0|text
bzip2||.bz2|0|text
bzip2|-1 -T2|.bz2|0|run
lz4||.lz4|1|text
lz4|-12 -BD|.lz4|1|run
lz4|--fast=5 -B4|.lz4|1|random
lzop||.lzo|1|text
lzop|-9 --crc32|.lzo|1|run
lzss||.lzs|1|text
lzss|-p 1000|.lzs|1|random
bwt||.bwt|1|text
bwt|-1|.bwt|1|run
zfp|-r 16 --dims 64 64 4|.zfp|1|floats
TABLE
  ;;
twins)
  # STANDARD | ZYRDC TWIN | what to compare: files (the directory's names, decoded alike),
  # out (standard output, byte for byte) or zout:TOOL (standard output after TOOL -dc).
  # The files: f and g (text), and h.gz, h.lz4, h.lzo and h.bz2 of f written by the standard
  # tools.
  while IFS='|' read -r std twin check; do
    [ -z "$std" ] && continue
    tool=${std%% *}
    have "$tool" || { echo "$tool not installed: '$std' skipped"; continue; }
    for side in A B; do
      d=$T/$side; rm -rf "$d"; mkdir "$d"
      cp "$T/text" "$d/f"; cp "$T/run" "$d/g"
      gzip -c "$d/f" >"$d/h.gz"; lz4 -q -c "$d/f" >"$d/h.lz4"; lzop -c "$d/f" >"$d/h.lzo"
      bzip2 -c "$d/f" >"$d/h.bz2"
    done
    (cd "$T/A" && eval "$std") >"$T/A.out" 2>/dev/null; rcA=$?
    (cd "$T/B" && zyrdc() { "$ZYRDC" "$@"; } && eval "$twin") >"$T/B.out" 2>/dev/null; rcB=$?
    [ $rcA -eq $rcB ] || fail "'$std' exits $rcA, '$twin' $rcB"
    case $check in
    files)
      [ "$(ls "$T/A")" = "$(ls "$T/B")" ] || fail "'$std' left $(ls "$T/A" | xargs), '$twin' $(ls "$T/B" | xargs)"
      for f in $(ls "$T/A"); do
        [ -e "$T/B/$f" ] || continue
        case $f in
        *.gz) gzip -dc "$T/B/$f" | cmp -s - <(gzip -dc "$T/A/$f") ;;
        *.lz4) lz4 -dc "$T/B/$f" | cmp -s - <(lz4 -dc "$T/A/$f") ;;
        *.lzo) lzop -dc "$T/B/$f" | cmp -s - <(lzop -dc "$T/A/$f") ;;
        *.bz2) bzip2 -dc "$T/B/$f" | cmp -s - <(bzip2 -dc "$T/A/$f") ;;
        *) cmp -s "$T/A/$f" "$T/B/$f" ;;
        esac || fail "'$std' and '$twin' differ in $f"
      done ;;
    out) cmp -s "$T/A.out" "$T/B.out" || fail "'$std' and '$twin' print differently" ;;
    zout:*) ${check#zout:} -dc <"$T/B.out" | cmp -s - <(${check#zout:} -dc <"$T/A.out") ||
              fail "'$twin' does not give what '$std' gives" ;;
    esac
  done <<'TABLE'
gzip f|zyrdc gzip f|files
gzip -9 -k f g|zyrdc gzip -9 -k f g|files
gzip -d h.gz|zyrdc gzip -d h.gz|files
gunzip -k h.gz|zyrdc gzip -dk h.gz|files
gzip -dc h.gz|zyrdc gzip -dc h.gz|out
zcat h.gz|zyrdc gzip -dc h.gz|out
gzip -c f|zyrdc gzip -c f|zout:gzip
gzip <f|zyrdc gzip <f|zout:gzip
gzip -t h.gz|zyrdc gzip -t h.gz|out
gzip -l h.gz|zyrdc gzip -l h.gz|out
gzip -d f|zyrdc gzip -d f|files
bzip2 f|zyrdc bzip2 f|files
bzip2 -9 -k f g|zyrdc bzip2 -9 -k f g|files
bzip2 -d h.bz2|zyrdc bzip2 -d h.bz2|files
bunzip2 -k h.bz2|zyrdc bzip2 -dk h.bz2|files
bzip2 -dc h.bz2|zyrdc bzip2 -dc h.bz2|out
bzcat h.bz2|zyrdc bzip2 -dc h.bz2|out
bzip2 -c f|zyrdc bzip2 -c f|zout:bzip2
bzip2 <f|zyrdc bzip2 <f|zout:bzip2
bzip2 -t h.bz2|zyrdc bzip2 -t h.bz2|out
lz4 -m f g|zyrdc lz4 -m f g|files
lz4 -9 f out.lz4|zyrdc lz4 -9 f out.lz4|files
lz4 -d h.lz4 out|zyrdc lz4 -d h.lz4 out|files
lz4 -m --rm f|zyrdc lz4 -m --rm f|files
lz4 -dc h.lz4|zyrdc lz4 -dc h.lz4|out
lz4 -c -BD -12 f|zyrdc lz4 -c -BD -12 f|zout:lz4
lz4 -t h.lz4|zyrdc lz4 -t h.lz4|out
lzop f|zyrdc lzop f|files
lzop -U -9 f g|zyrdc lzop -U -9 f g|files
lzop -d h.lzo|zyrdc lzop -d h.lzo|files
lzop -dc h.lzo|zyrdc lzop -dc h.lzo|out
lzop -c f|zyrdc lzop -c f|zout:lzop
lzop -t h.lzo|zyrdc lzop -t h.lzo|out
lzop -l h.lzo|zyrdc lzop -l h.lzo|out
lzop -o out.lzo f|zyrdc lzop -o out.lzo f|files
TABLE
  ;;
safe)
  d=$T/s; mkdir "$d"; cp "$T/text" "$d/f"
  # Mode and times go with the data, both ways.
  chmod 640 "$d/f"; touch -d '2001-02-03 04:05:06' "$d/f"
  "$ZYRDC" gzip "$d/f" && [ "$(stat -c '%a %Y' "$d/f.gz")" = "640 $(date -d '2001-02-03 04:05:06' +%s)" ] ||
    fail "gzip did not keep mode and time: $(stat -c '%a %y' "$d/f.gz")"
  "$ZYRDC" gzip -d "$d/f.gz" && [ "$(stat -c '%a %Y' "$d/f")" = "640 $(date -d '2001-02-03 04:05:06' +%s)" ] ||
    fail "gzip -d did not keep mode and time"
  # A FIFO and a character device as outputs are written to and stay what they are.
  mkfifo "$d/fifo"
  cat "$d/fifo" >"$d/from-fifo" &
  "$ZYRDC" gzip -kf -o "$d/fifo" "$d/f" && wait && [ -p "$d/fifo" ] && gzip -dc "$d/from-fifo" | cmp -s - "$d/f" ||
    fail "a FIFO as output"
  if mknod "$d/null" c 1 3 2>/dev/null; then
    "$ZYRDC" lz4 -kf -o "$d/null" "$d/f" && [ -c "$d/null" ] || fail "a device as output was replaced"
  else
    "$ZYRDC" lz4 -kf -o /dev/null "$d/f" && [ -c /dev/null ] || fail "/dev/null as output"
  fi
  # The same file as input and output, under one name or two, is refused and left whole.
  ln "$d/f" "$d/link"
  for out in f link; do
    "$ZYRDC" gzip -kf -o "$d/$out" "$d/f" 2>/dev/null; rc=$?
    [ $rc -eq 1 ] && cmp -s "$d/f" "$T/text" || fail "same file as $out: exit $rc"
  done
  "$ZYRDC" gzip -c "$d/f" >>"$d/f" 2>/dev/null; [ $? -eq 1 ] && cmp -s "$d/f" "$T/text" || fail "-c onto the input"
  # A signal in a long run leaves neither output nor temporary file, and the input stays.
  head -c 100000000 /dev/urandom >"$d/big" 2>/dev/null
  for sig in INT TERM HUP; do
    # timeout runs it in the foreground: a background job of a script would ignore SIGINT.
    timeout --preserve-status -s $sig 1 "$ZYRDC" bwt "$d/big"; rc=$?
    [ $rc -gt 128 ] || fail "SIG$sig: exit $rc (the run ended before the signal?)"
    [ -z "$(ls -A "$d" | grep -v -x -e f -e f.gz -e fifo -e from-fifo -e null -e link -e big)" ] ||
      fail "SIG$sig left: $(ls -A "$d" | xargs)"
    [ "$(stat -c %s "$d/big")" -eq 100000000 ] || fail "SIG$sig: the input changed"
  done
  # Damaged data: the input stays, no output appears.
  cp "$d/f" "$d/h" && "$ZYRDC" gzip "$d/h" && printf 'xxxx' | dd of="$d/h.gz" bs=1 seek=1000 conv=notrunc 2>/dev/null
  "$ZYRDC" gzip -d "$d/h.gz" 2>/dev/null; [ $? -eq 1 ] && [ -e "$d/h.gz" ] && [ ! -e "$d/h" ] ||
    fail "a damaged file lost its input or left an output"
  # No compressed data to a terminal, nor read from one, without -f.
  if have script; then
    script -qec "$ZYRDC gzip" /dev/null </dev/null >"$T/tty" 2>&1; rc=$?
    [ $rc -eq 1 ] && grep -q 'terminal' "$T/tty" || fail "gzip to a terminal: exit $rc"
  fi
  ;;
exits)
  d=$T/e; mkdir "$d"; cp "$T/text" "$d/f"; "$ZYRDC" gzip -k "$d/f"; printf 'not gzip' >"$d/bad.gz"
  "$ZYRDC" lz4 -q "$d/f"; mkdir "$d/dir"
  # CODE | ARGUMENTS: every failure is one 'zyrdc: ' line on stderr.
  while IFS='|' read -r code args; do
    eval "set -- $args"
    "$ZYRDC" "$@" >/dev/null 2>"$T/err" </dev/null; rc=$?
    [ $rc -eq "$code" ] || fail "zyrdc $args: exit $rc, wanted $code"
    [ "$code" -eq 0 ] || { [ "$(wc -l <"$T/err")" -eq 1 ] && grep -q '^zyrdc: ' "$T/err"; } ||
      fail "zyrdc $args: stderr is not one line: $(cat "$T/err")"
  done <<'TABLE'
0|gzip -t "$d/f.gz"
0|gzip -kf "$d/f"
0|lz4 -t "$d/f.lz4"
1|gzip -d "$d/bad.gz"
1|gzip "$d/missing"
1|lz4 -d -c "$d/f.gz"
1|lzop -t "$d/f.gz"
2|gzip -x "$d/f"
2|gzip --level=30 "$d/f"
2|gzip -d "$d/f"
2|gzip "$d/f.gz"
2|gzip -k "$d/f"
2|gzip "$d/dir"
2|gzip -o "$d/out" "$d/f" "$d/f.gz"
2|lz4 -13 "$d/f"
2|lzop -t -l "$d/f.gz"
2|zfp -9 "$d/f"
2|bwt -0 "$d/f"
TABLE
  # A skipped file does not stop the others; a failure outranks a skip.
  rm -f "$d/f.lz4"
  "$ZYRDC" lz4 -qm "$d/f.gz" "$d/f" "$d/dir"; [ $? -eq 2 ] && [ -e "$d/f.lz4" ] || fail "skip, then go on"
  "$ZYRDC" gzip -qk "$d/dir" "$d/missing" 2>/dev/null; [ $? -eq 1 ] || fail "a failure outranks a skip"
  ;;
install)
  [ -n "$BUILD" ] || { echo "no build directory given: skipped"; exit 0; }
  cmake --install "$BUILD" --prefix "$T/prefix" >/dev/null || { fail "cmake --install"; exit 1; }
  Z=$T/prefix/bin/zyrdc
  cp "$T/text" "$T/f" && env -u LD_LIBRARY_PATH "$Z" gzip "$T/f" && gzip -dc "$T/f.gz" | cmp -s - "$T/text" ||
    fail "the installed zyrdc gzip"
  man=$(find "$T/prefix" -name zyrdc.1)
  [ -n "$man" ] || fail "no installed manual page"
  ;;
manual)
  if have man; then
    warnings=$(man --warnings -l "$BUILD" 2>&1 >/dev/null)
  elif have groff; then
    warnings=$(groff -man -Tutf8 -ww "$BUILD" 2>&1 >/dev/null)
  else
    echo "neither man nor groff is installed: skipped"; exit 0
  fi
  [ -z "$warnings" ] || fail "the manual page: $warnings"
  ;;
*) fail "unknown group $GROUP" ;;
esac
[ $fails -eq 0 ] && echo "all $GROUP checks passed"
exit $((fails > 0))
