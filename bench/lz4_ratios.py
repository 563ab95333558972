#!/usr/bin/env python3
"""lz4_ratios.py - turn the LZ4 rows of zyrdc_bench JSON output into the tables of
docs/benchmarks.md: per input, our speed against liblz4's measured in the same run, and the
block sizes of both encoders.

Usage:
    bench/lz4_ratios.py RESULT.json [--targets]

RESULT.json comes from a run with --benchmark_filter='^lz4_' --benchmark_out=RESULT.json
--benchmark_out_format=json, best with repetitions (the median is used). --targets adds the
pass/fail lines for the x86-64 goals: decoding at least 1.0x liblz4 on every file, the greedy
encoder at least 1.0x LZ4_compress_default's speed with a total block size within 3%.
"""
import argparse
import json
from collections import OrderedDict

FAMILIES = ["lz4_decode", "lz4_encode", "lz4_fast4"]


def load(path):
    """Returns {(family, impl, input): (bytes_per_second, compressed)} from medians."""
    with open(path, encoding="utf-8") as f:
        doc = json.load(f)
    runs, singles = {}, {}
    for b in doc["benchmarks"]:
        name = b.get("run_name", b["name"])
        parts = name.split("/", 2)
        if len(parts) != 3 or parts[0] not in FAMILIES:
            continue
        value = (b["bytes_per_second"], b.get("compressed", 0.0))
        if b.get("run_type") == "aggregate":
            if b.get("aggregate_name") == "median":
                runs[tuple(parts)] = value
        else:
            singles[tuple(parts)] = value
    for key, value in singles.items():
        runs.setdefault(key, value)
    return runs, doc.get("context", {})


def main():
    ap = argparse.ArgumentParser()
    ap.add_argument("result")
    ap.add_argument("--targets", action="store_true")
    args = ap.parse_args()
    runs, context = load(args.result)
    inputs = list(OrderedDict.fromkeys(k[2] for k in runs))
    build = context.get("zyrdc_build", "?")
    print(f"Build: {build}; liblz4 {context.get('liblz4', '?')}; medians of the repetitions.\n")
    print("| input | decode / LZ4_decompress_safe | encode / LZ4_compress_default | "
          "encoded size / LZ4_compress_default's | fast 4 / LZ4_compress_fast 4 | "
          "fast 4 size / liblz4's |")
    print("|---|---:|---:|---:|---:|---:|")
    total = {"ours": 0.0, "peer": 0.0}
    worst_decode = None
    worst_encode = None
    for label in inputs:
        cells = []
        for family in FAMILIES:
            ours = runs.get((family, "zyrdc", label))
            peer = runs.get((family, "liblz4", label))
            if ours is None or peer is None:
                cells += ["-"] * (1 if family == "lz4_decode" else 2)
                continue
            speed = ours[0] / peer[0]
            cells.append(f"{speed:.2f}x")
            if family == "lz4_decode":
                worst_decode = speed if worst_decode is None else min(worst_decode, speed)
            else:
                cells.append(f"{ours[1] / peer[1]:.3f}" if peer[1] else "-")
            if family == "lz4_encode":
                worst_encode = speed if worst_encode is None else min(worst_encode, speed)
                if label != "sample":
                    total["ours"] += ours[1]
                    total["peer"] += peer[1]
        print(f"| {label} | " + " | ".join(cells) + " |")
    if total["peer"]:
        print(f"\nCorpus total encoded size, ours / LZ4_compress_default: "
              f"{total['ours'] / total['peer']:.4f}")
    if args.targets and worst_decode is not None:
        size = total["ours"] / total["peer"] if total["peer"] else float("nan")
        print()
        print(f"- decoding >= 1.0x liblz4 on every input: worst {worst_decode:.2f}x "
              f"({'met' if worst_decode >= 1.0 else 'missed'})")
        print(f"- greedy encoding >= 1.0x LZ4_compress_default: worst {worst_encode:.2f}x "
              f"({'met' if worst_encode >= 1.0 else 'missed'})")
        print(f"- total encoded size within 3% of LZ4_compress_default: {size:.4f} "
              f"({'met' if abs(size - 1) <= 0.03 else 'missed'})")


if __name__ == "__main__":
    main()
