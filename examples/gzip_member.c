/* gzip_member.c - compresses a file into one gzip member with the single-pass Deflate
 * functions (codes from a sample of the input, one dynamic block), checks it by inflating it
 * again, and writes it to OUT if one is given.
 *
 *   cc examples/gzip_member.c $(pkg-config --cflags --libs zyrdc) -o gzip_member
 *   ./gzip_member README.md README.md.gz && gzip -dc README.md.gz | cmp - README.md
 */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <zyrdc.h>

enum { kMaxInput = 64 << 20, kHashSize = 65536, kWindow = 32768, kSample = 16384 };

static int fail(const char* what, ZyrStatus status) {
    fprintf(stderr, "gzip_member: %s: status %d\n", what, (int)status);
    return 1;
}

static void put_le32(uint8_t* p, uint32_t v) {
    p[0] = (uint8_t)v, p[1] = (uint8_t)(v >> 8), p[2] = (uint8_t)(v >> 16), p[3] = (uint8_t)(v >> 24);
}

int main(int argc, char** argv) {
    static int32_t head[kHashSize];
    static uint32_t lit_stat[286], dist_stat[30];
    static HuffCodeEntry lit[286], dist[30];
    static DeflateBlockHeader header;
    static InflateHuffTable table;
    FILE* f;
    uint8_t *in, *out, *back;
    int32_t n, i;
    ZyrStatus st;
    if (argc < 2 || (f = fopen(argv[1], "rb")) == NULL) {
        fprintf(stderr, "usage: gzip_member IN [OUT]\n");
        return 2;
    }
    in = malloc(kMaxInput);
    n = (int32_t)fread(in, 1, kMaxInput, f);
    fclose(f);
    if (n < 1) {
        fprintf(stderr, "gzip_member: IN is empty or larger than 64 MiB\n");
        return 2;
    }
    /* A code for every symbol lets the single pass code whatever the sample did not show;
     * a dynamic block carries them. Worst case: every byte a 15-bit code. */
    out = malloc((size_t)n * 2 + 4096);
    back = malloc((size_t)n);
    if ((st = zyrsDeflateLZ77FastestGetStat_8u(in, n < kSample ? n : kSample, head, kHashSize, lit_stat,
                                                dist_stat)) != StatusOk)
        return fail("statistics", st);
    if ((st = zyrsDeflateLZ77FastestGenHuffTable_8u(lit_stat, dist_stat, DeflateCodesAll, lit, dist)) != StatusOk)
        return fail("codes", st);
    if ((st = zyrsDeflateLZ77FastestPrecompHeader_8u(DeflateBlockDynamic, lit, dist, &header)) != StatusOk)
        return fail("block header", st);

    {
        /* gzip header: deflate, no flags, no time, unknown system. */
        static const uint8_t gz[10] = {0x1f, 0x8b, 8, 0, 0, 0, 0, 0, 0, 255};
        const uint8_t* src = in;
        int32_t src_len = n, src_idx = 0;
        uint16_t code = 0;
        uint32_t code_bits = 0, crc = 0, at = 10;
        uint32_t cap = (uint32_t)n * 2 + 4096 - 8;
        memcpy(out, gz, 10);
        if ((st = zyrsDeflateLZ77FastestGenHeader_8u(&header, 1, 0, &code, &code_bits, out, cap, &at)) != StatusOk)
            return fail("writing the block header", st);
        for (i = 0; i < kHashSize; ++i) head[i] = -32768; /* no position seen yet */
        /* The source is its own history: the window pointer is the source pointer. */
        st = zyrsDeflateLZ77Fastest_8u(&src, &src_len, &src_idx, in, kWindow, head, kHashSize, lit, dist, &code,
                                       &code_bits, out, cap, &at, FastestFlushFinish);
        if (st != StatusOk || src_len != 0) return fail("coding", st);
        if ((st = zyrsCRC32_8u(in, n, &crc)) != StatusOk) return fail("crc", st);
        put_le32(out + at, crc);
        put_le32(out + at + 4, (uint32_t)n);
        at += 8;

        {
            /* Check: inflate the member's Deflate stream and compare. */
            const uint8_t* s = out + 10;
            int32_t s_len = (int32_t)(at - 18), dst_idx = 0, mode = InflateModeBlockStart;
            uint32_t held = 0, held_bits = 0;
            st = zyrsInflate_8u(&s, &s_len, &held, &held_bits, back, n, &dst_idx, 0, &mode, &table);
            if (st != StatusOk || dst_idx != n || memcmp(back, in, (size_t)n) != 0)
                return fail("the member does not inflate to the input", st);
        }
        printf("%s: %ld bytes -> %lu bytes (gzip member, CRC-32 %08lx)\n", argv[1], (long)n, (unsigned long)at,
               (unsigned long)crc);
        if (argc > 2) {
            FILE* o = fopen(argv[2], "wb");
            if (o == NULL || fwrite(out, 1, at, o) != at || fclose(o) != 0) {
                fprintf(stderr, "gzip_member: cannot write %s\n", argv[2]);
                return 1;
            }
        }
    }
    free(in);
    free(out);
    free(back);
    return 0;
}
