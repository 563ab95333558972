/* The public header as a C99 translation unit: it must compile under -std=c99 -pedantic. */
#include "zyrdc.h"

#include <stddef.h>

/* C99 has no _Static_assert: a negative array size fails the build instead. */
#define ZYRDC_C_ASSERT(name, cond) typedef char zyrdc_assert_##name[(cond) ? 1 : -1]

ZYRDC_C_ASSERT(huff_entry, sizeof(HuffCodeEntry) == 4);
ZYRDC_C_ASSERT(inflate_table, sizeof(InflateHuffTable) == 7208);
ZYRDC_C_ASSERT(zfp_state, sizeof(ZfpState) == (sizeof(void*) == 4 ? 560 : 576));
ZYRDC_C_ASSERT(zfp_block, offsetof(ZfpState, block) == (sizeof(void*) == 4 ? 48 : 64));

int zyrdc_c99_version_major(void);
int zyrdc_c99_version_major(void) { return zyrdcGetLibVersion()->major; }
