/* A C99 program linked against the shared library: the header, the export and the calling
 * convention work from C. Exit status 0 when the check value comes out right. */
#include "zyrdc.h"

#include <stdio.h>
#include <string.h>

int zyrdc_c99_version_major(void);

int main(void) {
    const uint8_t digits[9] = {'1', '2', '3', '4', '5', '6', '7', '8', '9'};
    uint32_t crc = 0;
    if (zyrsCRC32_8u(digits, 9, &crc) != StatusOk || crc != 0xCBF43926u) {
        fprintf(stderr, "crc32 check value wrong: %08x\n", (unsigned)crc);
        return 1;
    }
    if (zyrdc_c99_version_major() != 2021 || strcmp(zyrdcGetLibVersion()->name, "zyrDC SSE2 (q4)") != 0) {
        fprintf(stderr, "version record wrong\n");
        return 1;
    }
    return 0;
}
