#!/usr/bin/env python3
"""ratios.py - turn zyrdc_bench JSON output into the Markdown tables of docs/benchmarks.md.

Usage:
    bench/ratios.py RESULT.json [--label NAME] [--targets]

RESULT.json comes from a run with --benchmark_out=RESULT.json --benchmark_out_format=json.
With repetitions the median is used; without, the single run. Ratios compare throughputs
(bytes per second) measured in the same run, so the machine largely cancels out of them;
the absolute table is only meaningful together with the machine it was measured on.
--targets adds the pass/fail lines for the throughput goals (meant for the x86-64 build).
"""
import argparse
import json
import sys

SIZES = [4096, 65536, 1 << 20, 64 << 20]
SIZE_NAMES = {4096: "4 KiB", 65536: "64 KiB", 1 << 20: "1 MiB", 64 << 20: "64 MiB"}

# (label, numerator family/impl, denominator family/impl)
RATIOS = [
    ("Adler-32 / zlib adler32", "adler32/zyrdc", "adler32/zlib"),
    ("Adler-32 / libdeflate adler32", "adler32/zyrdc", "adler32/libdeflate"),
    ("Adler-32 / memcpy", "adler32/zyrdc", "memcpy/libc"),
    ("Adler-32 scalar twin / zlib adler32", "adler32/zyrdc_scalar", "adler32/zlib"),
    ("CRC-32 / zlib crc32", "crc32/zyrdc", "crc32/zlib"),
    ("CRC-32 / libdeflate crc32", "crc32/zyrdc", "crc32/libdeflate"),
    ("CRC-32 / memcpy", "crc32/zyrdc", "memcpy/libc"),
    ("CRC-32C / zlib crc32", "crc32c/zyrdc", "crc32/zlib"),
    ("CRC-32C / libdeflate crc32", "crc32c/zyrdc", "crc32/libdeflate"),
    ("CRC-32C / memcpy", "crc32c/zyrdc", "memcpy/libc"),
    ("bzip2 CRC / zlib crc32", "crc32_bzip2/zyrdc", "crc32/zlib"),
    ("bzip2 CRC / libdeflate crc32", "crc32_bzip2/zyrdc", "crc32/libdeflate"),
    ("bzip2 CRC / memcpy", "crc32_bzip2/zyrdc", "memcpy/libc"),
    ("CRC-32 sliced twin / zlib crc32", "crc32/zyrdc_sliced", "crc32/zlib"),
    ("CRC-32 / CRC-32 sliced twin", "crc32/zyrdc", "crc32/zyrdc_sliced"),
]

# (label, numerator, denominator, minimum ratio, sizes)
TARGETS = [
    ("Adler-32 >= 6x zlib adler32", "adler32/zyrdc", "adler32/zlib", 6.0, [65536, 1 << 20]),
    ("Adler-32 >= 0.6x libdeflate adler32", "adler32/zyrdc", "adler32/libdeflate", 0.6,
     [65536, 1 << 20]),
    ("CRC-32 >= 1.3x zlib crc32", "crc32/zyrdc", "crc32/zlib", 1.3, [65536, 1 << 20]),
    ("CRC-32C >= 1.3x zlib crc32", "crc32c/zyrdc", "crc32/zlib", 1.3, [65536, 1 << 20]),
    ("bzip2 CRC >= 1.3x zlib crc32", "crc32_bzip2/zyrdc", "crc32/zlib", 1.3, [65536, 1 << 20]),
]


FAMILY_ORDER = ["adler32", "crc32", "crc32c", "crc32_bzip2", "memcpy"]
IMPL_ORDER = ["zyrdc", "zyrdc_scalar", "zyrdc_sliced", "zyrdc_bytewise", "zlib", "libdeflate", "libc"]


def order(family_impl):
    """Sort key: families and implementations in a fixed order, unknown names last."""
    fam, _, impl = family_impl.partition("/")
    return (FAMILY_ORDER.index(fam) if fam in FAMILY_ORDER else len(FAMILY_ORDER), fam,
            IMPL_ORDER.index(impl) if impl in IMPL_ORDER else len(IMPL_ORDER), impl)


def load(path):
    """Returns ({run_name: bytes_per_second}, {run_name: cv}, context)."""
    with open(path, encoding="utf-8") as f:
        doc = json.load(f)
    medians, cvs, singles = {}, {}, {}
    for b in doc["benchmarks"]:
        name = b.get("run_name", b["name"])
        if b.get("run_type") == "aggregate":
            if b.get("aggregate_name") == "median":
                medians[name] = b["bytes_per_second"]
            elif b.get("aggregate_name") == "cv":
                cvs[name] = b["bytes_per_second"]
        elif "bytes_per_second" in b:
            singles[name] = b["bytes_per_second"]
    return (medians or singles), cvs, doc.get("context", {})


def cell(v, fmt):
    return "—" if v is None else fmt.format(v)


def ratio(bps, num, den, size):
    a = bps.get(f"{num}/{size}")
    b = bps.get(f"{den}/{size}")
    return None if a is None or b is None else a / b


def main():
    ap = argparse.ArgumentParser()
    ap.add_argument("json")
    ap.add_argument("--label", default=None)
    ap.add_argument("--targets", action="store_true")
    args = ap.parse_args()
    bps, cvs, ctx = load(args.json)
    label = args.label or ctx.get("zyrdc_build", args.json)
    head = "| | " + " | ".join(SIZE_NAMES[s] for s in SIZES) + " |"
    rule = "|---|" + "---:|" * len(SIZES)

    print(f"#### {label}: ratios (same run, medians)\n")
    print(head)
    print(rule)
    for text, num, den in RATIOS:
        vals = [ratio(bps, num, den, s) for s in SIZES]
        if all(v is None for v in vals):
            continue
        print(f"| {text} | " + " | ".join(cell(v, "{:.2f}") for v in vals) + " |")

    print(f"\n#### {label}: absolute throughput, MB/s (10^6 bytes/s; medians)\n")
    print(head.replace("| |", "| benchmark |", 1))
    print(rule)
    families = sorted({key.rsplit("/", 1)[0] for key in bps}, key=order)
    for fam in families:
        vals = [bps.get(f"{fam}/{s}") for s in SIZES]
        print(f"| {fam} | " + " | ".join(cell(None if v is None else v / 1e6, "{:,.0f}")
                                         for v in vals) + " |")
    if cvs:
        worst = max(cvs.items(), key=lambda kv: kv[1])
        print(f"\nLargest coefficient of variation over the repetitions: "
              f"{worst[1] * 100:.1f}% ({worst[0]}).")

    if args.targets:
        print(f"\n#### {label}: targets\n")
        print("| target | size | ratio | result |")
        print("|---|---:|---:|---|")
        for text, num, den, need, sizes in TARGETS:
            for s in sizes:
                r = ratio(bps, num, den, s)
                if r is None:
                    res = "not measured (peer missing)"
                elif r >= need:
                    res = "met"
                else:
                    res = f"missed: {(need - r) / need * 100:.0f}% short ({need / r:.2f}x needed)"
                print(f"| {text} | {SIZE_NAMES[s]} | {cell(r, '{:.2f}')} | {res} |")
    return 0


if __name__ == "__main__":
    sys.exit(main())
