#!/usr/bin/env bash
# coverage.sh - line coverage of src/ by everything CTest runs on the x86-64 build: the unit
# suite, the fuzz corpora replayed without libFuzzer and the tool's tests. Prints one line per
# folder of src/ and the total; writes per-line detail to build/coverage/lines.json.
# Usage: scripts/coverage.sh [CTEST_REGEX]   (default: every test)
set -euo pipefail
cd "$(dirname "$0")/.."

command -v gcovr >/dev/null || { sudo apt-get install -y gcovr >/dev/null 2>&1 || apt-get install -y gcovr; }
jobs=$(nproc 2>/dev/null || echo 2)
cmake --preset coverage >/dev/null
cmake --build --preset coverage -j "${jobs}"
find build/coverage -name '*.gcda' -delete
# Failures do not stop the count: a coverage build runs a few binary checks (symbol lists,
# library dependencies) that gcov's runtime changes on purpose.
ctest --preset coverage -j "${jobs}" ${1:+-R "$1"} >build/coverage/ctest.log 2>&1 ||
  echo "coverage: some tests failed in the coverage build (see build/coverage/ctest.log)"
gcovr -r . build/coverage --filter 'src/' --gcov-ignore-parse-errors --json build/coverage/lines.json >/dev/null
gcovr -r . --add-tracefile build/coverage/lines.json --sort-uncovered \
  --txt build/coverage/files.txt >/dev/null
python3 - <<'PY'
import json, collections
data = json.load(open("build/coverage/lines.json"))
tot = collections.defaultdict(lambda: [0, 0])
for f in data["files"]:
    folder = "/".join(f["file"].split("/")[:2])
    for line in f["lines"]:
        if line.get("gcovr/noncode"):
            continue
        for key in (folder, "total"):
            tot[key][1] += 1
            tot[key][0] += line["count"] > 0
for key in sorted(tot, key=lambda k: (k == "total", k)):
    hit, all_ = tot[key]
    print(f"{key:14} {hit:6d} / {all_:6d} lines  {100.0 * hit / all_:6.2f}%")
PY
