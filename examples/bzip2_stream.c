/* bzip2_stream.c - a whole .bz2 stream with the public interface, block by block: compresses
 * a file with blocks of 100 kB (bzip2 -1), writes the stream to OUT if given (the bzip2 tool
 * reads it), then decompresses it again through a 64 KiB output buffer and compares.
 *   cc bzip2_stream.c $(pkg-config --cflags --libs zyrdc) -o bzip2_stream
 *   ./bzip2_stream FILE [OUT.bz2] */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <zyrdc.h>

#define CHECK(call) do { if ((call) < 0) { fprintf(stderr, "failed: %s\n", #call); return 1; } } while (0)

enum { kBlock = 100000, kMaxSymbols = kBlock + 100, kOut = 65536 };

/* Bits most significant first, in the accumulator the Huffman stage continues: code holds
 * `bits` pending bits, fewer than 8 between fields. */
typedef struct {
    uint8_t* p;
    uint32_t code, bits;
} BitWriter;

static void put(BitWriter* w, uint32_t value, uint32_t count) { /* count <= 24 */
    w->code = (w->code << count) | value;
    w->bits += count;
    while (w->bits >= 8) *w->p++ = (uint8_t)(w->code >> (w->bits -= 8));
    w->code &= (1u << w->bits) - 1;
}

/* Reads count <= 24 bits from the held bits and then whole bytes. */
static uint32_t get(const uint8_t** p, int32_t* left, uint32_t* code, uint32_t* bits, uint32_t count) {
    uint64_t v = *code;
    while (*bits < count) {
        v = (v << 8) | *(*p)++;
        --*left;
        *bits += 8;
    }
    *bits -= count;
    *code = (uint32_t)(v & ((1u << *bits) - 1));
    return (uint32_t)(v >> *bits);
}

int main(int argc, char** argv) {
    FILE* f = argc > 1 ? fopen(argv[1], "rb") : NULL;
    if (f == NULL) {
        fprintf(stderr, "usage: bzip2_stream FILE [OUT.bz2]\n");
        return 2;
    }
    fseek(f, 0, SEEK_END);
    const long size = ftell(f);
    fseek(f, 0, SEEK_SET);
    uint8_t* in = malloc((size_t)size + 1);
    if (fread(in, 1, (size_t)size, f) != (size_t)size) return 1;
    fclose(f);

    int32_t bwtSize = 0, encSize = 0, decSize = 0, blockSize = 0;
    CHECK(zyrsBWTFwdGetSize_8u(kBlock, &bwtSize));
    CHECK(zyrsEncodeHuffGetSize_BZ2_16u8u(kMaxSymbols, &encSize));
    CHECK(zyrsDecodeHuffGetSize_BZ2_8u16u(kMaxSymbols, &decSize));
    CHECK(zyrsDecodeBlockGetSize_BZ2_8u(kBlock, &blockSize));
    uint8_t *runs = malloc(kBlock), *last = malloc(kBlock), *idx = malloc(kBlock);
    uint8_t *work = malloc((size_t)bwtSize), *enc = malloc((size_t)encSize), *dec = malloc((size_t)decSize);
    uint8_t *blockBuf = malloc((size_t)blockSize), *out = malloc(kOut), *back = malloc((size_t)size + 1);
    uint16_t* symbols = malloc(sizeof(uint16_t) * kMaxSymbols);
    /* Codes of at most 17 bits a symbol and at most 19930 bytes of tables a block: three
     * bytes a byte and 20000 bytes a block of 100 kB are plenty. */
    const size_t streamCap = (size_t)size * 3 + 20000 * ((size_t)size / 50000 + 1);
    uint8_t* stream = malloc(streamCap);
    BitWriter w = {stream, 0, 0};

    /* ---- compression: "BZh1", blocks, end marker and combined CRC ---- */
    put(&w, 0x425A68, 24);
    put(&w, '1', 8);
    uint32_t combined = 0;
    const uint8_t* src = in;
    int32_t left = (int32_t)size;
    while (left > 0) {
        uint8_t rle[264], inUse[256], mtf[256];
        uint32_t freq[258] = {0}, crc = 0;
        const uint8_t* start = src;
        int32_t n = kBlock - 20, one = 1, dict = 0, primary = 0, count = kMaxSymbols - 1;
        CHECK(zyrsEncodeRLEInit_BZ2_8u(rle)); /* the run-length stage fills the block */
        CHECK(zyrsEncodeRLE_BZ2_8u(&src, &left, runs, &n, rle));
        CHECK(zyrsEncodeRLEFlush_BZ2_8u(runs + n, &one, rle));
        n += one;
        CHECK(zyrsCRC32_BZ2_8u(start, (int32_t)(src - start), &crc));
        combined = ((combined << 1) | (combined >> 31)) ^ crc;
        CHECK(zyrsRLEGetInUseTable_8u(inUse, rle));
        CHECK(zyrsReduceDictionary_8u_I(inUse, runs, n, &dict));
        CHECK(zyrsBWTFwd_8u(runs, last, n, &primary, work));
        CHECK(zyrsMTFInit_8u(mtf));
        CHECK(zyrsMTFFwd_8u(last, idx, n, mtf));
        const uint8_t* ip = idx;
        CHECK(zyrsEncodeZ1Z2_BZ2_8u16u(&ip, &n, symbols, &count, freq));
        symbols[count++] = (uint16_t)(dict + 1); /* end of block */

        put(&w, 0x314159, 24); /* block marker, CRC, not randomised, origPtr */
        put(&w, 0x265359, 24);
        put(&w, crc >> 16, 16);
        put(&w, crc & 0xFFFF, 16);
        put(&w, 0, 1);
        put(&w, (uint32_t)primary, 24);
        CHECK(zyrsEncodeHuffInit_BZ2_16u8u(kMaxSymbols, inUse, symbols, count, enc));
        int32_t room = (int32_t)(stream + streamCap - w.p);
        CHECK(zyrsPackHuffContext_BZ2_16u8u(&w.code, &w.bits, w.p, &room, enc));
        w.p += room;
        const uint16_t* sp = symbols;
        room = (int32_t)(stream + streamCap - w.p);
        CHECK(zyrsEncodeHuff_BZ2_16u8u(&sp, &count, &w.code, &w.bits, w.p, &room, enc));
        w.p += room;
    }
    put(&w, 0x177245, 24);
    put(&w, 0x385090, 24);
    put(&w, combined >> 16, 16);
    put(&w, combined & 0xFFFF, 16);
    if (w.bits > 0) put(&w, 0, 8 - w.bits);
    const int32_t streamLen = (int32_t)(w.p - stream);
    printf("%ld bytes -> %d bytes\n", size, (int)streamLen);
    if (argc > 2) {
        FILE* o = fopen(argv[2], "wb");
        if (o == NULL || fwrite(stream, 1, (size_t)streamLen, o) != (size_t)streamLen || fclose(o) != 0) return 1;
    }

    /* ---- decompression, block by block, through a 64 KiB buffer ---- */
    const uint8_t* p = stream + 4;
    int32_t srcLen = streamLen - 4;
    uint32_t code = 0, bits = 0, combinedBack = 0;
    size_t backLen = 0;
    CHECK(zyrsDecodeHuffInit_BZ2_8u16u(kMaxSymbols, dec));
    for (;;) {
        const uint32_t m1 = get(&p, &srcLen, &code, &bits, 24), m2 = get(&p, &srcLen, &code, &bits, 24);
        const uint32_t crc = get(&p, &srcLen, &code, &bits, 16) << 16 | get(&p, &srcLen, &code, &bits, 16);
        if (m1 == 0x177245 && m2 == 0x385090) {
            if (crc != combinedBack) return 1;
            break;
        }
        if (get(&p, &srcLen, &code, &bits, 1) != 0) return 1; /* randomised: not supported */
        const int32_t primary = (int32_t)get(&p, &srcLen, &code, &bits, 24);
        uint8_t inUse[256];
        int32_t count = kMaxSymbols;
        CHECK(zyrsUnpackHuffContext_BZ2_8u16u(&p, &srcLen, &code, &bits, inUse, dec));
        CHECK(zyrsDecodeHuff_BZ2_8u16u(&p, &srcLen, &code, &bits, symbols, &count, dec));
        uint32_t crcBack = 0;
        /* The first call starts the block, later ones (no symbols) continue its output. */
        for (ZyrStatus st = StatusDstFull; st == StatusDstFull; count = 0) {
            int32_t got = kOut;
            st = zyrsDecodeBlock_BZ2_16u8u(symbols, count, inUse, primary, kBlock, out, &got, blockBuf);
            CHECK(st);
            if (got > 0) CHECK(zyrsCRC32_BZ2_8u(out, got, &crcBack));
            memcpy(back + backLen, out, (size_t)got);
            backLen += (size_t)got;
        }
        if (crcBack != crc) return 1;
        combinedBack = ((combinedBack << 1) | (combinedBack >> 31)) ^ crcBack;
    }
    const int same = backLen == (size_t)size && memcmp(back, in, (size_t)size) == 0;
    printf("decompressed %lu bytes: %s\n", (unsigned long)backLen, same ? "identical" : "DIFFERENT");
    return same ? 0 : 1;
}
