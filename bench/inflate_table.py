#!/usr/bin/env python3
"""inflate_table.py - the Inflate and single-pass writer tables of docs/benchmarks.md from one
zyrdc_bench JSON run (bench/bench_inflate.cpp): per corpus file, ratios of speeds measured in
the same run (above 1: zyrDC is faster) and of compressed sizes."""
import json
import sys
from collections import defaultdict


def main(path):
    runs = json.load(open(path))["benchmarks"]
    speed, ratio = {}, {}
    for b in runs:
        if b.get("run_type") == "aggregate" and b.get("aggregate_name") != "median":
            continue
        name = b.get("run_name", b["name"])
        speed[name] = b["bytes_per_second"]
        ratio[name] = b.get("ratio")
    files = []
    for n in speed:
        f = n.rsplit("/", 1)[1]
        if f not in files:
            files.append(f)
    streams = ["zlib1", "zlib6", "zlib9", "ld12"]
    print("| file | " + " | ".join(f"{s}: /zlib, /libdeflate, 64K/one-shot" for s in streams) + " |")
    print("|---|" + "---|" * len(streams))
    for f in files:
        cells = []
        for s in streams:
            ours = speed.get(f"inflate/zyrdc/{s}/{f}")
            if not ours:
                cells.append("-")
                continue
            z = speed.get(f"inflate/zlib/{s}/{f}")
            l = speed.get(f"inflate/libdeflate/{s}/{f}")
            st = speed.get(f"inflate/zyrdc_stream64k/{s}/{f}")
            cells.append(f"{ours / z:.2f}, {ours / l:.2f}, {st / ours:.2f}")
        print(f"| {f} | " + " | ".join(cells) + " |")
    print()
    print("| file | speed / zlib -1 | speed / libdeflate -1 | size / zlib -1 | MB/s |")
    print("|---|---|---|---|---|")
    for f in files:
        ours = speed.get(f"fastest/zyrdc/{f}")
        if not ours:
            continue
        z, l = speed[f"fastest/zlib_L1/{f}"], speed[f"fastest/libdeflate_L1/{f}"]
        size = ratio[f"fastest/zyrdc/{f}"] / ratio[f"fastest/zlib_L1/{f}"]
        print(f"| {f} | {ours / z:.2f} | {ours / l:.2f} | {size:.3f} | {ours / 1e6:.0f} |")


if __name__ == "__main__":
    main(sys.argv[1])
