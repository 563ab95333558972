/* lz4_linked.c - streams a file through linked LZ4 blocks and back, with the public API.
 *
 * Each block of up to 64 KiB is coded with zyrsEncodeLZ4HCDictLimit_8u over one buffer that
 * keeps the last 64 KiB of input before the block, so matches reach into earlier blocks.
 * The high-compression record carries its hash chains from one block to the next; when the
 * buffer slides, the record notices and rebuilds them from the history, giving the same
 * bytes. The decoder keeps the same history in place before its write position and decodes
 * each block with zyrsDecodeLZ4Dict_8u. The program checks that the round trip gives the
 * input back and prints the sizes.
 *
 *   cc examples/lz4_linked.c $(pkg-config --cflags --libs zyrdc) -o lz4_linked
 *   ./lz4_linked FILE [LEVEL]
 */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <zyrdc.h>

enum { WINDOW = 65536, BLOCK = 65536, BOUND = BLOCK + BLOCK / 255 + 16 };

static uint8_t in[WINDOW + BLOCK], out[WINDOW + BLOCK + 16], coded[BOUND];

/* Keeps the last WINDOW bytes of buf[0, end) at its start; returns the new end. */
static int32_t slide(uint8_t* buf, int32_t end) {
    if (end <= WINDOW) return end;
    memmove(buf, buf + end - WINDOW, WINDOW);
    return WINDOW;
}

int main(int argc, char** argv) {
    FILE* f;
    int level = argc > 2 ? atoi(argv[2]) : 9;
    int32_t recordSize = 0, inEnd = 0, outEnd = 0;
    long total = 0, packed = 0;
    size_t n;
    uint8_t* record;
    if (argc < 2 || (f = fopen(argv[1], "rb")) == NULL) return 2;
    if (zyrsEncodeLZ4HCHashTableGetSize_8u(&recordSize) != StatusOk) return 1;
    record = malloc((size_t)recordSize);
    if (record == NULL || zyrsEncodeLZ4HCHashTableInit_8u(record) != StatusOk) return 1;

    while ((n = fread(in + inEnd, 1, BLOCK, f)) > 0) {
        int32_t srcLen = (int32_t)n, dstLen = BOUND, used, got;
        /* Code the block; every earlier byte still in the buffer is history. */
        if (zyrsEncodeLZ4HCDictLimit_8u(in, inEnd, &srcLen, coded, &dstLen, record, level, 0) != StatusOk)
            return 1;
        /* Decode it after the same history, in place before the write position. */
        used = dstLen;
        got = BLOCK + 16;
        if (zyrsDecodeLZ4Dict_8u(coded, &used, out, outEnd, &got, outEnd ? out : NULL, outEnd) != StatusOk ||
            got != (int32_t)n || memcmp(out + outEnd, in + inEnd, n) != 0) {
            fprintf(stderr, "round trip failed\n");
            return 1;
        }
        total += (long)n;
        packed += 4 + dstLen; /* a 4-byte block size in front of each block */
        inEnd = slide(in, inEnd + (int32_t)n);
        outEnd = slide(out, outEnd + got);
    }
    fclose(f);
    free(record);
    printf("%ld bytes in %ld bytes of linked blocks at level %d\n", total, packed, level);
    return 0;
}
