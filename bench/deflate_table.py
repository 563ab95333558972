#!/usr/bin/env python3
"""deflate_table.py - turn a zyrdc_bench JSON run of the Deflate benchmarks into Markdown.

Usage:
    bench/deflate_table.py RESULT.json [--targets]

RESULT.json comes from a run such as
    zyrdc_bench --benchmark_filter='^(deflate|lz77|huff)/' --benchmark_repetitions=3 \
        --benchmark_report_aggregates_only=true --benchmark_out=RESULT.json \
        --benchmark_out_format=json
With repetitions the median is used. Prints, per corpus file, each compressor's speed (MB/s of
input, per CPU second) and compressed size / input size; then the matcher and Huffman coder
alone; with --targets, for each of zlib's levels 1, 6 and 9 the fastest of our levels that
compresses to at most 1% more than zlib, and whether it reaches 1.5x zlib's speed.
"""
import argparse
import json
import re

WRITERS = ["zyrdc_L0", "zyrdc_L1", "zyrdc_L5", "zyrdc_L6", "zyrdc_L9", "zyrdc_L19", "zyrdc_L29"]
PEERS = ["zlib_L1", "zlib_L6", "zlib_L9", "libdeflate_L1", "libdeflate_L6", "libdeflate_L9",
         "libdeflate_L12"]


def load(path):
    """Returns {(family, impl, file): {"bps": ..., "ratio": ..., "ips": ...}} and the context."""
    with open(path, encoding="utf-8") as f:
        doc = json.load(f)
    runs, singles = {}, {}
    for b in doc["benchmarks"]:
        name = b.get("run_name", b["name"])
        m = re.match(r"^(deflate|lz77|huff)/([^/]+)/(.+)$", name)
        if not m:
            continue
        key = (m.group(1), m.group(2), m.group(3))
        values = {"bps": b.get("bytes_per_second"), "ratio": b.get("ratio"),
                  "ips": b.get("items_per_second"), "input": b.get("input_bytes_per_second")}
        if b.get("run_type") == "aggregate":
            if b.get("aggregate_name") == "median":
                runs[key] = values
        else:
            singles[key] = values
    return (runs or singles), doc.get("context", {})


def files_of(runs):
    seen = []
    for (_, _, f) in runs:
        if f not in seen:
            seen.append(f)
    return seen


def cell(v):
    return "—" if v is None else f"{v['bps'] / 1e6:.1f} / {v['ratio']:.4f}"


def main():
    ap = argparse.ArgumentParser()
    ap.add_argument("json")
    ap.add_argument("--targets", action="store_true")
    args = ap.parse_args()
    runs, ctx = load(args.json)
    files = files_of(runs)
    print(f"build: {ctx.get('zyrdc_build', '?')}, zlib {ctx.get('zlib', '?')}, "
          f"libdeflate {ctx.get('libdeflate', '?')}\n")

    impls = [i for i in WRITERS + PEERS if any(runs.get(("deflate", i, f)) for f in files)]
    print("Whole pipeline, MB/s / compressed fraction:\n")
    print("| file | " + " | ".join(i.replace("_L", " ") for i in impls) + " |")
    print("|---|" + "---:|" * len(impls))
    for f in files:
        print(f"| {f} | " + " | ".join(cell(runs.get(("deflate", i, f))) for i in impls) + " |")

    print("\nMatcher alone (MB/s of input) and Huffman coder alone (M entries/s; GB/s of 3-byte "
          "entries; GB/s of input represented):\n")
    print("| file | lz77 L1 | lz77 L6 | lz77 L9 | huff vector | huff entrywise |")
    print("|---|---:|---:|---:|---:|---:|")
    for f in files:
        row = [runs.get(("lz77", f"zyrdc_L{l}", f)) for l in (1, 6, 9)]
        cells = ["—" if r is None else f"{r['bps'] / 1e6:.1f}" for r in row]
        for impl in ("zyrdc", "zyrdc_entrywise"):
            h = runs.get(("huff", impl, f))
            cells.append("—" if h is None else
                         f"{h['ips'] / 1e6:.0f}; {h['bps'] / 1e9:.2f}; {h['input'] / 1e9:.2f}")
        print(f"| {f} | " + " | ".join(cells) + " |")

    if not args.targets:
        return
    print("\nTargets: for each zlib level, the fastest of our levels within 1% of zlib's size, "
          "and its speed against zlib's (met at 1.5x):\n")
    print("| file | zlib 1 | zlib 6 | zlib 9 |")
    print("|---|---|---|---|")
    met = total = 0
    for f in files:
        cells = []
        for zl in (1, 6, 9):
            z = runs.get(("deflate", f"zlib_L{zl}", f))
            if z is None:
                cells.append("—")
                continue
            fits = [(runs[("deflate", w, f)], w) for w in WRITERS
                    if runs.get(("deflate", w, f)) and runs[("deflate", w, f)]["ratio"] <= 1.01 * z["ratio"]]
            total += 1
            if not fits:
                best = min((runs[("deflate", w, f)]["ratio"], w) for w in WRITERS if runs.get(("deflate", w, f)))
                cells.append(f"missed: best size {best[0] / z['ratio']:.3f}x ({best[1][6:]})")
                continue
            v, w = max(fits, key=lambda t: t[0]["bps"])
            speed = v["bps"] / z["bps"]
            ok = speed >= 1.5
            met += ok
            cells.append(f"{'met' if ok else 'missed'}: L{w[7:]} {speed:.2f}x, size {v['ratio'] / z['ratio']:.3f}x")
        print(f"| {f} | " + " | ".join(cells) + " |")
    print(f"\n{met} of {total} met.")


if __name__ == "__main__":
    main()
