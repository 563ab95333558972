#!/usr/bin/env python3
"""zfp_tables.py - turn the zfp_encode / zfp_decode results of zyrdc_bench JSON output into
the Markdown tables of docs/benchmarks.md.

Usage:
    bench/zfp_tables.py RESULT.json [--label NAME] [--targets]

With repetitions the median is used; without, the single run. MB/s counts float data
(10^6 bytes of floats per second). The ratio and max_error counters are those of each
implementation's own round trip. --targets adds the pass/fail lines for the x86-64 goal:
at least 2x libzfp's speed in every mode, encoding and decoding.
"""
import argparse
import json
import sys

MODES = ["r8", "r16", "p16", "a1e-3"]
MODE_NAMES = {"r8": "rate 8", "r16": "rate 16", "p16": "precision 16", "a1e-3": "accuracy 1e-3"}
IMPLS = ["zyrdc", "zyrdc_scalar", "libzfp"]
TARGET = 2.0


def load(path):
    """Returns {name: (bytes_per_second, ratio, max_error)}, {name: cv}, context."""
    with open(path, encoding="utf-8") as f:
        doc = json.load(f)
    medians, cvs, singles = {}, {}, {}
    for b in doc["benchmarks"]:
        name = b.get("run_name", b["name"])
        if not name.startswith("zfp_"):
            continue
        row = (b.get("bytes_per_second"), b.get("ratio"), b.get("max_error"))
        if b.get("run_type") == "aggregate":
            if b.get("aggregate_name") == "median":
                medians[name] = row
            elif b.get("aggregate_name") == "cv":
                cvs[name] = b.get("bytes_per_second")
        else:
            singles[name] = row
    return (medians or singles), cvs, doc.get("context", {})


def mbs(results, direction, impl, mode):
    r = results.get(f"zfp_{direction}/{impl}/{mode}")
    return None if r is None or r[0] is None else r[0] / 1e6


def cell(v, fmt):
    return "—" if v is None else fmt.format(v)


def main():
    ap = argparse.ArgumentParser()
    ap.add_argument("json")
    ap.add_argument("--label", default=None)
    ap.add_argument("--targets", action="store_true")
    args = ap.parse_args()
    results, cvs, ctx = load(args.json)
    label = args.label or ctx.get("zyrdc_build", args.json)

    print(f"#### {label}: MB/s of float data (medians), and zyrDC / libzfp\n")
    print("| mode | encode zyrDC | encode libzfp | encode ratio | decode zyrDC | decode libzfp "
          "| decode ratio | encode scalar twin | decode scalar twin |")
    print("|---|---:|---:|---:|---:|---:|---:|---:|---:|")
    for m in MODES:
        e = [mbs(results, "encode", i, m) for i in IMPLS]
        d = [mbs(results, "decode", i, m) for i in IMPLS]
        er = None if e[0] is None or e[2] is None else e[0] / e[2]
        dr = None if d[0] is None or d[2] is None else d[0] / d[2]
        print(f"| {MODE_NAMES[m]} | {cell(e[0], '{:,.0f}')} | {cell(e[2], '{:,.0f}')} | "
              f"{cell(er, '{:.2f}x')} | {cell(d[0], '{:,.0f}')} | {cell(d[2], '{:,.0f}')} | "
              f"{cell(dr, '{:.2f}x')} | {cell(e[1], '{:,.0f}')} | {cell(d[1], '{:,.0f}')} |")

    print(f"\n#### {label}: compression ratio and largest absolute error of a round trip\n")
    print("| mode | ratio zyrDC | ratio libzfp | max error zyrDC | max error libzfp |")
    print("|---|---:|---:|---:|---:|")
    for m in MODES:
        ours = results.get(f"zfp_encode/zyrdc/{m}")
        theirs = results.get(f"zfp_encode/libzfp/{m}")
        print(f"| {MODE_NAMES[m]} | {cell(ours and ours[1], '{:.3f}')} | "
              f"{cell(theirs and theirs[1], '{:.3f}')} | {cell(ours and ours[2], '{:.3g}')} | "
              f"{cell(theirs and theirs[2], '{:.3g}')} |")
    if cvs:
        worst = max(cvs.items(), key=lambda kv: kv[1])
        print(f"\nLargest coefficient of variation over the repetitions: "
              f"{worst[1] * 100:.1f}% ({worst[0]}).")

    if args.targets:
        print(f"\n#### {label}: target, at least {TARGET:g}x libzfp\n")
        print("| mode | direction | ratio | result |")
        print("|---|---|---:|---|")
        for m in MODES:
            for direction in ("encode", "decode"):
                a, b = mbs(results, direction, "zyrdc", m), mbs(results, direction, "libzfp", m)
                r = None if a is None or b is None else a / b
                if r is None:
                    res = "not measured (libzfp missing)"
                elif r >= TARGET:
                    res = "met"
                else:
                    res = f"missed: {(TARGET - r) / TARGET * 100:.0f}% short"
                print(f"| {MODE_NAMES[m]} | {direction} | {cell(r, '{:.2f}x')} | {res} |")
    return 0


if __name__ == "__main__":
    sys.exit(main())
