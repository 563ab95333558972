#!/usr/bin/env python3
"""lz4hc_table.py - the high-compression and dictionary LZ4 rows of zyrdc_bench JSON output as
the tables of docs/benchmarks.md: per corpus file and family, our speed over liblz4's measured
in the same run and our compressed size over liblz4's, then the totals.

Usage: bench/lz4hc_table.py RESULT.json
RESULT.json from --benchmark_filter='^lz4(hc|dict)' --benchmark_out=RESULT.json
--benchmark_out_format=json.
"""
import json
import sys

FAMILIES = ["lz4hc3", "lz4hc9", "lz4hc12", "lz4dict"]


def main():
    with open(sys.argv[1], encoding="utf-8") as f:
        doc = json.load(f)
    rows = {}
    for b in doc["benchmarks"]:
        parts = b.get("run_name", b["name"]).split("/")
        if len(parts) < 3 or parts[0] not in FAMILIES:
            continue
        rows[(parts[0], parts[1], parts[2])] = (b["bytes_per_second"], b.get("compressed", 0.0),
                                                b["bytes_per_second"] * b["cpu_time"] * 1e-9)
    files = []
    for (_, _, name) in rows:
        if name not in files:
            files.append(name)
    print("| File | " + " | ".join(f"{f} speed | {f} size" for f in FAMILIES) + " |")
    print("|---|" + "---:|" * (2 * len(FAMILIES)))
    totals = {f: [0.0, 0.0, 0.0, 0.0] for f in FAMILIES}  # our time, peer time, our size, peer size
    for name in files:
        cells = []
        for f in FAMILIES:
            ours, peer = rows.get((f, "zyrdc", name)), rows.get((f, "liblz4", name))
            if not ours or not peer:
                cells += ["-", "-"]
                continue
            cells += [f"{ours[0] / peer[0]:.2f}x", f"{ours[1] / peer[1]:.3f}"]
            # Bytes over speed: seconds for one pass, for the totals.
            totals[f][0] += ours[2] / ours[0]
            totals[f][1] += peer[2] / peer[0]
            totals[f][2] += ours[1]
            totals[f][3] += peer[1]
        print(f"| {name} | " + " | ".join(cells) + " |")
    cells = []
    for f in FAMILIES:
        t = totals[f]
        cells += [f"{t[1] / t[0]:.2f}x" if t[0] else "-", f"{t[2] / t[3]:.3f}" if t[3] else "-"]
    print("| **all files** | " + " | ".join(cells) + " |")


if __name__ == "__main__":
    main()
