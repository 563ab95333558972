// cpu.cpp - processor identification for the long-copy decision.
#include "core/cpu.hpp"

#include <cpuid.h>

#include <cstdint>

#include "core/copy.hpp"

namespace zyrdc {

// One identification instruction, the one that states cache sizes outright: extended leaf
// 0x80000006 gives the L2 size in KiB (ECX bits 31..16) on every SSE2 processor, and the L3
// size in 512 KiB units (EDX bits 31..18) where the processor reports it. Walking the
// per-level leaves instead costs an instruction per cache level, and in a virtual machine
// each one traps to the hypervisor: more than the copy it decides for. A processor that
// reports no L3 here gets its L2 as the last level, which only makes streaming stores start
// sooner.
size_t LastLevelCacheBytes() {
    unsigned a = 0, b = 0, c = 0, d = 0;
    __cpuid(0x80000006u, a, b, c, d);
    const size_t l3 = static_cast<size_t>(d >> 18) * 512 * 1024;
    const size_t l2 = static_cast<size_t>(c >> 16) * 1024;
    return l3 != 0 ? l3 : l2;
}

bool PreferStreamingStores(size_t len) {
    if (len <= static_cast<size_t>(kStreamingCopyBytes)) {
        return false;
    }
    const size_t llc = LastLevelCacheBytes();
    return llc != 0 && len >= llc / 2;
}

}  // namespace zyrdc
