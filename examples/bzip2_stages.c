/* bzip2_stages.c - the stages of a bzip2 block, forward and back, on the first 100 kB of a
 * file: run-length stage, dictionary, Burrows-Wheeler transform, move-to-front, zero-run
 * symbols; then the inverse stages in reverse order and the block CRC of both ends. (The
 * Huffman stage that would follow is left out: the symbols and their counts are its input.)
 *   cc bzip2_stages.c $(pkg-config --cflags --libs zyrdc) -o bzip2_stages && ./bzip2_stages FILE */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <zyrdc.h>

#define CHECK(call) do { if ((call) < 0) { fprintf(stderr, "failed: %s\n", #call); return 1; } } while (0)

int main(int argc, char** argv) {
    FILE* f = argc > 1 ? fopen(argv[1], "rb") : NULL;
    if (f == NULL) {
        fprintf(stderr, "usage: bzip2_stages FILE\n");
        return 2;
    }
    enum { kBlock = 100000 };
    uint8_t* in = malloc(kBlock);
    const int32_t n = (int32_t)fread(in, 1, kBlock, f);
    fclose(f);
    if (n == 0) return 0;
    uint32_t crcIn = 0, crcOut = 0;
    CHECK(zyrsCRC32_BZ2_8u(in, n, &crcIn));

    /* Run-length stage: at most 5/4 of the input plus one byte; the state records which
     * byte values the output uses. */
    uint8_t rle[256 + 8], inUse[256], mtf[256];
    const int32_t cap = n + n / 4 + 1;
    uint8_t *runs = malloc((size_t)cap), *bwt = malloc((size_t)cap), *idx = malloc((size_t)cap);
    const uint8_t* src = in;
    int32_t srcLen = n, runLen = cap, flushLen = 1, dict = 0, primary = 0, bufSize = 0;
    CHECK(zyrsEncodeRLEInit_BZ2_8u(rle));
    CHECK(zyrsEncodeRLE_BZ2_8u(&src, &srcLen, runs, &runLen, rle));
    CHECK(zyrsEncodeRLEFlush_BZ2_8u(runs + runLen, &flushLen, rle));
    runLen += flushLen;
    CHECK(zyrsRLEGetInUseTable_8u(inUse, rle));
    CHECK(zyrsReduceDictionary_8u_I(inUse, runs, runLen, &dict));

    /* Burrows-Wheeler transform in the caller's working buffer, then move-to-front indexes
     * and zero-run symbols (RUNA, RUNB, index v as v + 1) with their counts. */
    CHECK(zyrsBWTFwdGetSize_8u(runLen, &bufSize));
    uint8_t* work = malloc((size_t)bufSize);
    CHECK(zyrsBWTFwd_8u(runs, bwt, runLen, &primary, work));
    CHECK(zyrsMTFInit_8u(mtf));
    CHECK(zyrsMTFFwd_8u(bwt, idx, runLen, mtf));
    uint16_t* sym = malloc(sizeof(uint16_t) * (size_t)runLen);
    uint32_t freq[257] = {0};
    const uint8_t* pIdx = idx;
    int32_t idxLen = runLen, symLen = runLen;
    CHECK(zyrsEncodeZ1Z2_BZ2_8u16u(&pIdx, &idxLen, sym, &symLen, freq));
    printf("bzip2 stages: %d bytes -> %d after runs, %d values in use, primary index %d, %d symbols\n",
           (int)n, (int)runLen, (int)dict, (int)primary, (int)symLen);

    /* And back, stage by stage in reverse order. */
    const uint16_t* pSym = sym;
    uint8_t* pOut = idx;
    int32_t outLen = runLen;
    CHECK(zyrsDecodeZ1Z2_BZ2_16u8u(&pSym, &symLen, pOut, &outLen));
    CHECK(zyrsMTFInit_8u(mtf));
    CHECK(zyrsMTFInv_8u(idx, bwt, runLen, mtf));
    CHECK(zyrsBWTInvGetSize_8u(runLen, &bufSize));
    uint8_t* invWork = malloc((size_t)bufSize);
    CHECK(zyrsBWTInv_8u(bwt, runs, runLen, primary, invWork));
    CHECK(zyrsExpandDictionary_8u_I(inUse, runs, runLen, dict));
    uint8_t* back = malloc((size_t)n);
    const uint8_t* pRuns = runs;
    uint8_t* pBack = back;
    int32_t left = runLen, room = n;
    CHECK(zyrsDecodeRLEStateInit_BZ2_8u(rle));
    CHECK(zyrsDecodeRLEState_BZ2_8u(&pRuns, &left, &pBack, &room, rle));
    CHECK(zyrsDecodeRLEStateFlush_BZ2_8u(rle, &pBack, &room));
    CHECK(zyrsCRC32_BZ2_8u(back, n, &crcOut));
    const int ok = pBack - back == n && memcmp(in, back, (size_t)n) == 0 && crcIn == crcOut;
    printf("block CRC %08x, round trip %s\n", (unsigned)crcIn, ok ? "ok" : "FAILED");
    free(in), free(runs), free(bwt), free(idx), free(work), free(sym), free(invWork), free(back);
    return ok ? 0 : 1;
}
