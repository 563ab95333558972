/* lz4_block.c - one LZ4 block each way: compresses a file (at most 16 MiB) into a single
 * block of the LZ4 block format and decodes it again, checking the round trip.
 *   cc lz4_block.c $(pkg-config --cflags --libs zyrdc) -o lz4_block && ./lz4_block FILE */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <zyrdc.h>

int main(int argc, char** argv) {
    FILE* f = argc > 1 ? fopen(argv[1], "rb") : NULL;
    if (f == NULL) {
        fprintf(stderr, "usage: lz4_block FILE\n");
        return 2;
    }
    const int32_t cap = 16 << 20;
    uint8_t* in = malloc((size_t)cap);
    int32_t n = (int32_t)fread(in, 1, (size_t)cap, f);
    fclose(f);

    /* The encoders need room for the worst case and a 16384-byte table they clear themselves. */
    int32_t tableSize = 0;
    zyrsEncodeLZ4HashTableGetSize_8u(&tableSize);
    uint8_t* table = malloc((size_t)tableSize);
    int32_t packedLen = n + n / 255 + 16;
    uint8_t* packed = malloc((size_t)packedLen);
    uint8_t* back = malloc((size_t)n + 1);
    if (zyrsEncodeLZ4_8u(in, n, packed, &packedLen, table) != StatusOk) {
        return 1;
    }
    /* The decoder is told the exact decoded size: a hostile block can then never make it
     * read or write outside the two buffers. */
    int32_t backLen = n;
    ZyrStatus st = zyrsDecodeLZ4_8u(packed, packedLen, back, &backLen);
    int ok = st == StatusOk && backLen == n && memcmp(in, back, (size_t)n) == 0;
    printf("lz4 block: %d -> %d bytes, round trip %s\n", (int)n, (int)packedLen, ok ? "ok" : "FAILED");
    free(in), free(table), free(packed), free(back);
    return ok ? 0 : 1;
}
