#!/usr/bin/env python3
"""Tables of the bzip2 Huffman stage benchmarks (bench_bzip2_huff.cpp) from one JSON run:
per corpus file, the encoder's and decoder's symbols per second (medians), the decoder's
time against libbz2's whole decompression of the same file, and the size of the re-coded
blocks against the bzip2 -9 file's own."""
import json
import sys


def main(path):
    rows = {}
    for b in json.load(open(path))["benchmarks"]:
        if b.get("aggregate_name", "median") != "median":
            continue
        family, impl, name = b["run_name"].split("/", 2)
        r = rows.setdefault(name, {})
        r[family + "/" + impl] = b
    print("| file | symbols | encode Msym/s (MB/s) | decode Msym/s | decode time / libbz2 whole | bits vs bzip2 -9 | worst block |")
    print("|---|---|---|---|---|---|---|")
    for name, r in rows.items():
        enc, dec, lib = r["bzip2_huff_enc/zyrdc"], r["bzip2_huff_dec/zyrdc"], r["bzip2_huff_dec/libbz2_all"]
        symbols = enc["items_per_second"] * enc["cpu_time"] / 1e3  # cpu_time in ms
        print(f"| {name} | {symbols / 1e3:,.0f} k | {enc['items_per_second'] / 1e6:.0f} ({enc['bytes_per_second'] / 1e6:.0f}) "
              f"| {dec['items_per_second'] / 1e6:.0f} | {dec['cpu_time'] / lib['cpu_time']:.3f} "
              f"| {enc['bits_vs_bzip2']:.5f} | {enc['worst_block']:.5f} |")


if __name__ == "__main__":
    main(sys.argv[1])
