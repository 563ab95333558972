#!/usr/bin/env python3
"""lzo_table.py - the LZO and LZSS tables of docs/benchmarks.md from zyrdc_bench JSON runs.

Usage:
    bench/lzo_table.py X86_64.json [I686.json]

Each file comes from a run with --benchmark_out=FILE --benchmark_out_format=json (see
bench/run_lzo.sh). With repetitions the median is used. LZO rows are ratios of throughputs
measured in the same run: our checked decoder against lzo1x_decompress_safe, our trusted
decoder against lzo1x_decompress, on the streams of lzo1x_1 and lzo1x_999; LZSS rows are
MB/s (10^6 decoded bytes per second) and the compression ratio.
"""
import json
import sys

FILES = ["alice29.txt", "lcet10.txt", "plrabn12.txt", "kennedy.xls", "ptt5", "bible.txt",
         "world192.txt", "elf_x86_64.tar", "elf_i386.tar", "cxx_bits.tar", "xml.tar", "images.rgb"]
TARGET = 1.5


def load(path):
    runs = {}
    for b in json.load(open(path))["benchmarks"]:
        name = b.get("run_name", b["name"])
        if b.get("run_type") == "aggregate" and b.get("aggregate_name") != "median":
            continue
        runs[name] = b
    return runs


def speed(runs, name):
    b = runs.get(name)
    return b["bytes_per_second"] if b and "bytes_per_second" in b else None


def lzo_table(builds):
    heads = []
    for label, _ in builds:
        for comp in ("1", "999"):
            heads += [f"{label} {comp} checked", f"{label} {comp} trusted"]
    print("| file | " + " | ".join(heads) + " |")
    print("|---|" + "---:|" * len(heads))
    misses = []
    for f in FILES:
        cells = []
        for label, runs in builds:
            for comp in ("1", "999"):
                for ours, theirs in (("zyrdc_safe", "lzo2_safe"), ("zyrdc", "lzo2")):
                    a = speed(runs, f"lzo1x_{comp}/{ours}/{f}")
                    b = speed(runs, f"lzo1x_{comp}/{theirs}/{f}")
                    if a is None or b is None:
                        cells.append("-")
                        continue
                    r = a / b
                    cells.append(f"{r:.2f}x")
                    if label == builds[0][0] and r < TARGET:
                        misses.append(f"{f} lzo1x_{comp} {'checked' if ours == 'zyrdc_safe' else 'trusted'} {r:.2f}x")
        print(f"| {f} | " + " | ".join(cells) + " |")
    print()
    print(f"Below {TARGET}x in the {builds[0][0]} build: " + (", ".join(misses) if misses else "none"))


def absolute_table(label, runs):
    print(f"| file ({label}, MB/s) | 1 checked | 1 lzo2_safe | 1 trusted | 1 lzo2 | 999 checked | 999 lzo2_safe | 999 trusted | 999 lzo2 |")
    print("|---|" + "---:|" * 8)
    for f in FILES:
        cells = []
        for comp in ("1", "999"):
            for impl in ("zyrdc_safe", "lzo2_safe", "zyrdc", "lzo2"):
                s = speed(runs, f"lzo1x_{comp}/{impl}/{f}")
                cells.append("-" if s is None else f"{s / 1e6:.0f}")
        print(f"| {f} | " + " | ".join(cells) + " |")


def lzss_table(builds):
    heads = []
    for label, _ in builds:
        heads += [f"{label} encode MB/s", f"{label} decode MB/s"]
    print("| file | ratio | " + " | ".join(heads) + " |")
    print("|---|---:|" + "---:|" * len(heads))
    for f in FILES:
        ratio = None
        cells = []
        for _, runs in builds:
            for kind in ("encode", "decode"):
                b = runs.get(f"lzss_{kind}/zyrdc/{f}")
                if b is None:
                    cells.append("-")
                    continue
                ratio = b.get("ratio", ratio)
                cells.append(f"{b['bytes_per_second'] / 1e6:.0f}")
        print(f"| {f} | " + ("-" if ratio is None else f"{ratio:.3f}") + " | " + " | ".join(cells) + " |")


def main():
    builds = [("x86-64", load(sys.argv[1]))]
    if len(sys.argv) > 2:
        builds.append(("i686", load(sys.argv[2])))
    lzo_table(builds)
    print()
    absolute_table(builds[0][0], builds[0][1])
    print()
    lzss_table(builds)


if __name__ == "__main__":
    main()
