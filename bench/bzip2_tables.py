#!/usr/bin/env python3
"""bzip2_tables.py - the bzip2 tables of docs/benchmarks.md from zyrdc_bench JSON output.

Usage:
    bench/bzip2_tables.py X86_64.json[,MORE.json] I686.json[,MORE.json]
    bench/bzip2_tables.py --fwd X86_64.json[,MORE.json]    (forward transform only)

Each file comes from a run with --benchmark_filter='^(bwt|mtf|zrun)' and repetitions; the
median of the repetitions is used. Ratios compare throughputs measured in the same run.
"""
import json
import statistics
import sys

FILES = ["alice29.txt", "lcet10.txt", "plrabn12.txt", "kennedy.xls", "ptt5", "bible.txt",
         "world192.txt", "elf_x86_64.tar", "elf_i386.tar", "cxx_bits.tar", "xml.tar", "images.rgb"]
# Built-in blocks of 900000 bytes that are hard for a comparison sort of rotations.
HARD = ["hard_one_value", "hard_period2", "hard_period1000", "hard_records", "hard_halves",
        "hard_fibonacci", "hard_random", "hard_text"]
BLOCKS = [100000, 900000]


def load(paths):
    """{(family, impl, file, block): median row} over comma-separated files (later ones win)."""
    benchmarks = []
    for path in paths.split(","):
        with open(path, encoding="utf-8") as f:
            benchmarks += json.load(f)["benchmarks"]
    rows = {}
    for b in benchmarks:
        if b.get("aggregate_name") != "median":
            continue
        family, impl, name, block = b["run_name"].split("/")
        rows[(family, impl, name, int(block))] = b
    return rows


def rate(rows, family, impl, name, block):
    row = rows.get((family, impl, name, block))
    return row["bytes_per_second"] if row else None


def overall(rows, num, den, b):
    """Ratio of the processor times summed over the corpus files (the whole corpus's rate)."""
    tn = td = 0.0
    for name in FILES:
        rn, rd = rows.get((*num, name, b)), rows.get((*den, name, b))
        if not rn or not rd:
            continue
        tn += rn["cpu_time"]
        td += rd["cpu_time"]
    return td / tn if tn else None


def ratio_table(title, runs, num, den, names=FILES):
    print(f"\n{title}\n")
    head = " | ".join(f"{label} {b // 1000} kB" for label, _ in runs for b in BLOCKS)
    print(f"| file | {head} |")
    print("|---|" + "---:|" * (len(runs) * len(BLOCKS)))
    for name in names:
        cells = []
        for _, rows in runs:
            for b in BLOCKS:
                n, d = rate(rows, *num, name, b), rate(rows, *den, name, b)
                cells.append(f"{n / d:.2f}" if n and d else "-")
        if any(c != "-" for c in cells):
            print(f"| {name} | " + " | ".join(cells) + " |")
    cells = []
    for _, rows in runs:
        for b in BLOCKS:
            r = overall(rows, num, den, b)
            cells.append(f"{r:.2f}" if r else "-")
    print("| whole corpus | " + " | ".join(cells) + " |")


def spread_table(runs):
    print("\nForward transform, every block of every file and hard case (processor time, fastest"
          " pass of each block): slowest block against the median block\n")
    print("| build | block | median block MB/s | slowest block MB/s | file of the slowest |"
          " median / slowest |")
    print("|---|---:|---:|---:|---|---:|")
    for label, rows in runs:
        for b in BLOCKS:
            meds, mins = [], []
            for name in FILES + HARD:
                row = rows.get(("bwt_fwd", "zyrdc", name, b))
                if row:
                    meds.append(row["block_median_MBps"])
                    mins.append((row["block_min_MBps"], name))
            if not meds:
                continue
            median = statistics.median(meds)
            slowest, where = min(mins)
            print(f"| {label} | {b // 1000} kB | {median:.1f} | {slowest:.1f} | {where} |"
                  f" {median / slowest:.1f} |")


def speed_table(runs):
    print("\nThe other stages, MB/s of the original data (median over the files; slowest file)\n")
    stages = [("bwt_inv", "inverse transform"), ("mtf_fwd", "move-to-front"),
              ("mtf_inv", "inverse move-to-front"), ("zrun_enc", "zero-run coding"),
              ("zrun_dec", "zero-run decoding")]
    head = " | ".join(f"{label} {b // 1000} kB" for label, _ in runs for b in BLOCKS)
    print(f"| stage | {head} |")
    print("|---|" + "---:|" * (len(runs) * len(BLOCKS)))
    for family, title in stages:
        cells = []
        for _, rows in runs:
            for b in BLOCKS:
                rates = [(rate(rows, family, "zyrdc", n, b) or 0) / 1e6 for n in FILES]
                rates = [r for r in rates if r > 0]
                cells.append(f"{statistics.median(rates):.0f} ({min(rates):.0f})" if rates else "-")
        print(f"| {title} | " + " | ".join(cells) + " |")


def main():
    if "--fwd" in sys.argv:  # the forward transform's tables only
        runs = [("x86-64", load(next(a for a in sys.argv[1:] if a != "--fwd")))]
        ratio_table("Forward transform, zyrsBWTFwd_8u / divbwt (throughput ratio, above 1 is"
                    " faster)", runs, ("bwt_fwd", "zyrdc"), ("bwt_fwd", "divbwt"), FILES + HARD)
        spread_table(runs)
        return
    runs = [(label, load(path)) for label, path in zip(["x86-64", "i686"], sys.argv[1:3])]
    ratio_table("Forward transform, zyrsBWTFwd_8u / divbwt (throughput ratio, above 1 is faster)",
                runs, ("bwt_fwd", "zyrdc"), ("bwt_fwd", "divbwt"), FILES + HARD)
    ratio_table("Inverse transform, zyrsBWTInv_8u / libdivsufsort's inverse_bw_transform",
                runs, ("bwt_inv", "zyrdc"), ("bwt_inv", "divsufsort"))
    ratio_table("Forward stage chain (run-length, dictionary, transform, move-to-front, zero runs)"
                " / BZ2_bzBuffToBuffCompress at level 9 on the same blocks", runs,
                ("bwt_chain", "zyrdc"), ("bwt_chain", "bzip2_9"))
    spread_table(runs)
    speed_table(runs)


if __name__ == "__main__":
    main()
