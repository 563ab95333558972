#!/usr/bin/env python3
"""lz4_ratios.py - turn the LZ4 rows of zyrdc_bench JSON output into the tables of
docs/benchmarks.md: per input, our speed against liblz4's measured in the same run, and the
block sizes of both encoders.

Usage:
    bench/lz4_ratios.py RUN1.json [RUN2.json ...] [--targets]

Each RUN.json comes from one run with --benchmark_filter='^lz4_(decode|prefix|extdict|encode|fast4)/'
--benchmark_out=RUN.json --benchmark_out_format=json. The benchmark program runs input by
input, ours and liblz4's one after the other, so separate runs are interleaved repetitions:
every ratio is formed within one run, and the table gives the median over the runs (within
a run, the median of its own repetitions if it had any). "overall" is the mean time per byte
over the corpus files (the built-in sample left out), each file weighted alike. --targets adds the pass/fail lines for
the x86-64 goals: every decoding core at least 1.1x liblz4 on every file, the greedy encoder
at least 1.0x LZ4_compress_default overall and 0.9x on every file, the accelerated encoder
(4) at least 1.0x LZ4_compress_fast (4) overall.
"""
import argparse
import json
import statistics
from collections import OrderedDict

DECODERS = ["lz4_decode", "lz4_prefix", "lz4_extdict"]
FAMILIES = DECODERS + ["lz4_encode", "lz4_fast4"]
TITLES = {
    "lz4_decode": "decode / LZ4_decompress_safe",
    "lz4_prefix": "prefix / ..._usingDict in place",
    "lz4_extdict": "separate dictionary / ..._usingDict",
    "lz4_encode": "encode / LZ4_compress_default",
    "lz4_fast4": "fast 4 / LZ4_compress_fast 4",
}


def load(path):
    """Returns {(family, impl, input): (bytes_per_second, compressed)} and the context."""
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
            singles.setdefault(tuple(parts), []).append(value)
    for key, values in singles.items():
        runs.setdefault(key, (statistics.median(v[0] for v in values), values[0][1]))
    return runs, doc.get("context", {})


def main():
    ap = argparse.ArgumentParser()
    ap.add_argument("results", nargs="+")
    ap.add_argument("--targets", action="store_true")
    args = ap.parse_args()
    loaded = [load(p) for p in args.results]
    context = loaded[0][1]
    inputs = list(OrderedDict.fromkeys(k[2] for runs, _ in loaded for k in runs))
    ratio = {}  # (family, input) -> [ratio per run]
    overall = {f: [] for f in FAMILIES}
    size_ratio = {}
    for runs, _ in loaded:
        for family in FAMILIES:
            ours_time = peer_time = 0.0
            for label in inputs:
                ours = runs.get((family, "zyrdc", label))
                peer = runs.get((family, "liblz4", label))
                if ours is None or peer is None:
                    continue
                ratio.setdefault((family, label), []).append(ours[0] / peer[0])
                if family in ("lz4_encode", "lz4_fast4") and peer[1]:
                    size_ratio[(family, label)] = ours[1] / peer[1]
                if label != "sample":
                    # Time per byte, every file weighted alike.
                    ours_time += 1.0 / ours[0]
                    peer_time += 1.0 / peer[0]
            if peer_time:
                overall[family].append(peer_time / ours_time)
    med = {k: statistics.median(v) for k, v in ratio.items()}
    build = context.get("zyrdc_build", "?")
    print(f"Build: {build}; liblz4 {context.get('liblz4', '?')}; {len(loaded)} interleaved runs, "
          f"medians of the per-run ratios (speed, ours / liblz4's).\n")
    print("| input | " + " | ".join(TITLES[f] for f in FAMILIES) + " | encoded size / liblz4's (default, fast 4) |")
    print("|---|" + "---:|" * (len(FAMILIES) + 1))
    for label in inputs:
        cells = [f"{med[(f, label)]:.2f}x" if (f, label) in med else "-" for f in FAMILIES]
        sz = [f"{size_ratio[(f, label)]:.3f}" if (f, label) in size_ratio else "-" for f in ("lz4_encode", "lz4_fast4")]
        print(f"| {label} | " + " | ".join(cells) + f" | {sz[0]}, {sz[1]} |")
    cells = [f"{statistics.median(overall[f]):.2f}x" if overall[f] else "-" for f in FAMILIES]
    print("| overall (mean time per byte over the corpus files) | " + " | ".join(cells) + " | |")
    if args.targets:
        print()
        corpus = [l for l in inputs if l != "sample"]

        def worst(f):
            """The lowest per-file ratio of a family, or None where the runs have no rows for it."""
            rows = [(med[(f, l)], l) for l in corpus if (f, l) in med]
            return min(rows) if rows else None

        def verdict(ok):
            return "met" if ok else "missed"

        for f in DECODERS:
            w = worst(f)
            if w is None:
                print(f"- {f} >= 1.1x on every file: not measured in these runs")
                continue
            print(f"- {f} >= 1.1x on every file: worst {w[0]:.2f}x ({w[1]}) ({verdict(w[0] >= 1.1)})")
        w = worst("lz4_encode")
        if w is None:
            print("- greedy encoder: not measured in these runs")
        else:
            ov = statistics.median(overall["lz4_encode"])
            print(f"- greedy encoder >= 1.0x overall: {ov:.2f}x ({verdict(ov >= 1.0)}); "
                  f">= 0.9x per file: worst {w[0]:.2f}x ({w[1]}) ({verdict(w[0] >= 0.9)})")
        if not overall["lz4_fast4"]:
            print("- accelerated encoder (4): not measured in these runs")
        else:
            ov = statistics.median(overall["lz4_fast4"])
            print(f"- accelerated encoder (4) >= 1.0x overall: {ov:.2f}x ({verdict(ov >= 1.0)})")

if __name__ == "__main__":
    main()
