/* hello.c - checksums a file with the installed library.
 *   cc hello.c $(pkg-config --cflags --libs zyrdc) -o hello && ./hello FILE */
#include <stdio.h>
#include <zyrdc.h>

int main(int argc, char** argv) {
    uint8_t buf[65536];
    uint32_t crc = 0, adler = 1; /* the starting values of a new CRC-32 and Adler-32 */
    size_t n;
    FILE* f = argc > 1 ? fopen(argv[1], "rb") : stdin;
    if (f == NULL) {
        perror(argv[1]);
        return 1;
    }
    while ((n = fread(buf, 1, sizeof buf, f)) > 0) {
        /* Running values carry over: any split of the input gives the same result. */
        if (zyrsCRC32_8u(buf, (int32_t)n, &crc) != StatusOk ||
            zyrsAdler32_8u(buf, (int32_t)n, &adler) != StatusOk) {
            return 1;
        }
    }
    printf("crc32 %08x  adler32 %08x  (%s)\n", (unsigned)crc, (unsigned)adler,
           zyrdcGetLibVersion()->version);
    return 0;
}
