// cpu.cpp - processor identification for the long-copy decision.
#include "core/cpu.hpp"

#include <cpuid.h>

#include <cstdint>

#include "core/copy.hpp"

namespace zyrdc {

namespace {

// Deterministic cache parameters (Intel leaf 4, AMD leaf 0x8000001D share the layout):
// ways x partitions x line size x sets of the highest-level data or unified cache.
size_t WalkCacheLeaf(unsigned leaf) {
    size_t best = 0;
    int best_level = 0;
    for (unsigned sub = 0; sub < 16; ++sub) {
        unsigned a = 0, b = 0, c = 0, d = 0;
        if (!__get_cpuid_count(leaf, sub, &a, &b, &c, &d)) {
            return 0;
        }
        const unsigned type = a & 0x1F;
        if (type == 0) {
            break;  // no more caches
        }
        if (type == 2) {
            continue;  // instruction cache
        }
        const int level = static_cast<int>((a >> 5) & 0x7);
        const size_t ways = ((b >> 22) & 0x3FF) + 1;
        const size_t parts = ((b >> 12) & 0x3FF) + 1;
        const size_t line = (b & 0xFFF) + 1;
        const size_t sets = static_cast<size_t>(c) + 1;
        if (level >= best_level) {
            best_level = level;
            best = ways * parts * line * sets;
        }
    }
    return best;
}

}  // namespace

size_t LastLevelCacheBytes() {
    unsigned max_leaf = 0, vendor_b = 0, vendor_c = 0, vendor_d = 0;
    if (!__get_cpuid(0, &max_leaf, &vendor_b, &vendor_c, &vendor_d)) {
        return 0;
    }
    // "GenuineIntel" reports its caches in leaf 4, "AuthenticAMD" (family 17h on) in
    // 0x8000001D; other vendors get the conservative answer.
    if (vendor_b == 0x756E6547u && max_leaf >= 4) {
        return WalkCacheLeaf(4);
    }
    if (vendor_b == 0x68747541u) {
        unsigned max_ext = __get_cpuid_max(0x80000000u, nullptr);
        if (max_ext >= 0x8000001Du) {
            return WalkCacheLeaf(0x8000001Du);
        }
    }
    return 0;
}

bool PreferStreamingStores(size_t len) {
    if (len <= static_cast<size_t>(kStreamingCopyBytes)) {
        return false;
    }
    const size_t llc = LastLevelCacheBytes();
    return llc != 0 && len >= llc / 2;
}

}  // namespace zyrdc
