#!/usr/bin/env python3
"""lzo_encode_table.py - the LZO1X encoder table of docs/benchmarks.md from a zyrdc_bench JSON run.

Usage:
    bench/lzo_encode_table.py RUN.json

RUN.json comes from a run with --benchmark_filter='^lzo_(encode|segments)/' and
--benchmark_out=RUN.json --benchmark_out_format=json (see bench/run_lzo.sh). With repetitions
the median is used. Speeds are ratios of throughputs measured in the same run; sizes are our
coded size over the peer's (below 1 is smaller). The last columns are the caller's decode of
a container of the file's first 512 KiB, 2 threads against 1.
"""
import json
import sys

FILES = ["alice29.txt", "lcet10.txt", "plrabn12.txt", "kennedy.xls", "ptt5", "bible.txt",
         "world192.txt", "elf_x86_64.tar", "elf_i386.tar", "cxx_bits.tar", "xml.tar", "images.rgb"]


def load(path):
    runs = {}
    for b in json.load(open(path))["benchmarks"]:
        if b.get("run_type") == "aggregate" and b.get("aggregate_name") != "median":
            continue
        runs[b.get("run_name", b["name"])] = b
    return runs


def main():
    runs = load(sys.argv[1])

    def get(kind, impl, f, key):
        b = runs.get(f"{kind}/{impl}/{f}") or runs.get(f"{kind}/{impl}/{f}/real_time")
        return b.get(key) if b else None

    print("| file | fast speed / lzo1x_1 | fast size / lzo1x_1 | high speed / lzo1x_999 | "
          "high size / lzo1x_999 | segmented speed / fast | segmented size / fast | "
          "segment decode, 2 threads / 1 | fast MB/s | high MB/s |")
    print("|---|" + "---:|" * 9)
    misses = []
    for f in FILES:
        s = {i: get("lzo_encode", i, f, "bytes_per_second") for i in
             ("zyrdc_fast", "lzo2_1", "zyrdc_high", "lzo2_999", "zyrdc_segmented")}
        r = {i: get("lzo_encode", i, f, "ratio") for i in
             ("zyrdc_fast", "lzo2_1", "zyrdc_high", "lzo2_999", "zyrdc_segmented")}
        t1 = get("lzo_segments", "threads1", f, "bytes_per_second")
        t2 = get("lzo_segments", "threads2", f, "bytes_per_second")
        if None in s.values() or None in r.values():
            continue
        cells = [s["zyrdc_fast"] / s["lzo2_1"], r["lzo2_1"] / r["zyrdc_fast"],
                 s["zyrdc_high"] / s["lzo2_999"], r["lzo2_999"] / r["zyrdc_high"],
                 s["zyrdc_segmented"] / s["zyrdc_fast"], r["zyrdc_fast"] / r["zyrdc_segmented"]]
        goals = [(">=", 1.0), ("<=", 1.02), (">=", 5.0), ("<=", 1.05), (">=", 0.95), ("<=", 1.01)]
        names = ["fast speed", "fast size", "high speed", "high size", "segmented speed", "segmented size"]
        for v, (op, goal), n in zip(cells, goals, names):
            if (op == ">=" and v < goal) or (op == "<=" and v > goal):
                misses.append(f"{f} {n} {v:.2f}x")
        text = [f"{c:.2f}x" for c in cells]
        text.append(f"{t2 / t1:.2f}x" if t1 and t2 else "-")
        text += [f"{s['zyrdc_fast'] / 1e6:.0f}", f"{s['zyrdc_high'] / 1e6:.0f}"]
        print(f"| {f} | " + " | ".join(text) + " |")
    print()
    print("Goals missed: " + (", ".join(misses) if misses else "none") + ".")


if __name__ == "__main__":
    main()
