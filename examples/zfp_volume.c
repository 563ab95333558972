/* zfp_volume.c - a 3-D float volume through the ZFP block coder: a smooth 64 x 48 x 32 field
 * coded at 12 bits per value block by block, then decoded, with the largest error.
 *   cc zfp_volume.c $(pkg-config --cflags --libs zyrdc) -lm -o zfp_volume && ./zfp_volume */
#include <math.h>
#include <stdio.h>
#include <stdlib.h>
#include <zyrdc.h>

enum { NX = 64, NY = 48, NZ = 32 }; /* multiples of 4: every block is whole */

int main(void) {
    float* field = malloc(sizeof(float) * NX * NY * NZ);
    float* back = malloc(sizeof(float) * NX * NY * NZ);
    for (int z = 0; z < NZ; ++z)
        for (int y = 0; y < NY; ++y)
            for (int x = 0; x < NX; ++x)
                field[x + NX * (y + NY * z)] = (float)(sin(0.1 * x) * cos(0.07 * y) + 0.01 * z);

    /* A fixed rate of 12 bits a value is 768 bits a block; the state record lives over the
     * caller's stream buffer, and the steps are in bytes. */
    const int32_t blockBits = 12 * 64, blocks = (NX / 4) * (NY / 4) * (NZ / 4);
    const int32_t cap = blocks * blockBits / 8 + 64;
    uint8_t* stream = malloc((size_t)cap);
    ZfpState s;
    const int32_t row = 4 * NX, plane = 4 * NX * NY;
    if (zyrsEncodeZfpInit_32f(stream, cap, &s) != StatusOk ||
        zyrsEncodeZfpSet_32f(blockBits, blockBits, 64, -1074, &s) != StatusOk) {
        return 1;
    }
    for (int z = 0; z < NZ; z += 4)
        for (int y = 0; y < NY; y += 4)
            for (int x = 0; x < NX; x += 4)
                if (zyrsEncodeZfp444_32f(&field[x + NX * (y + NY * z)], row, plane, &s) != StatusOk) return 1;
    int32_t size = 0;
    if (zyrsEncodeZfpFlush_32f(&s) != StatusOk || zyrsEncodeZfpGetCompressedSize_32f(&s, &size) != StatusOk) {
        return 1;
    }

    /* The decoder mirrors it with the same parameters, in the same block order. */
    if (zyrsDecodeZfpInit_32f(stream, size, &s) != StatusOk ||
        zyrsDecodeZfpSet_32f(blockBits, blockBits, 64, -1074, &s) != StatusOk) {
        return 1;
    }
    for (int z = 0; z < NZ; z += 4)
        for (int y = 0; y < NY; y += 4)
            for (int x = 0; x < NX; x += 4)
                if (zyrsDecodeZfp444_32f(&s, &back[x + NX * (y + NY * z)], row, plane) != StatusOk) return 1;
    double err = 0;
    for (int i = 0; i < NX * NY * NZ; ++i) {
        double d = fabs((double)field[i] - back[i]);
        err = d > err ? d : err;
    }
    printf("zfp volume: %d floats -> %d bytes (%.1fx), max error %.2e\n", NX * NY * NZ, (int)size,
           4.0 * NX * NY * NZ / size, err);
    free(field), free(back), free(stream);
    return err < 1e-2 ? 0 : 1;
}
