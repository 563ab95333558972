// huff_limit.cpp - package-merge. The leaves are the weighted symbols sorted by (weight,
// symbol). The deepest list holds the leaves alone; each list above merges the leaves with
// the packages (consecutive pairs) of the list below, lighter first and a leaf first on equal
// weight, and keeps its first 2m - 2 items. Taking the first 2m - 2 items of the top list,
// and at each list below as many items as the packages taken above hold, a leaf of rank i
// gets one bit for every list in which it falls among the items taken.
//
// Only which items are leaves is kept per list (a bit each); the weights are needed for two
// lists at a time. Leaves appear in every list in rank order, so the leaves among the first
// t items of a list are exactly the ranks below their count.
#include "core/huff_limit.hpp"

#include <algorithm>

namespace zyrdc {

namespace {

constexpr uint32_t kMaxItems = 2 * kLimitedMaxSymbols - 2;
constexpr uint32_t kBitWords = (kMaxItems + 63) / 64;

uint32_t LeavesAmongFirst(const uint64_t* bits, uint32_t t) {
    uint32_t count = 0, w = 0;
    for (; (w + 1) * 64 <= t; ++w) count += static_cast<uint32_t>(__builtin_popcountll(bits[w]));
    if (t % 64 != 0) count += static_cast<uint32_t>(__builtin_popcountll(bits[w] & ((uint64_t{1} << (t % 64)) - 1)));
    return count;
}

}  // namespace

void LimitedCodeLengths(const uint32_t* weights, uint32_t n, uint32_t limit, uint8_t* lengths) {
    // Sorted leaves: weight above, symbol below, in one key.
    uint64_t keys[kLimitedMaxSymbols];
    uint32_t m = 0;
    for (uint32_t s = 0; s < n; ++s) {
        lengths[s] = 0;
        if (weights[s] != 0) keys[m++] = uint64_t{weights[s]} << 9 | s;
    }
    std::sort(keys, keys + m);
    const uint32_t keep = 2 * m - 2;

    uint64_t below[kMaxItems], current[kMaxItems];
    uint64_t leafBits[kLimitedMaxBits + 1][kBitWords] = {};
    for (uint32_t i = 0; i < m; ++i) below[i] = keys[i] >> 9;
    uint32_t belowSize = m;
    for (uint32_t i = 0; i < m; ++i) leafBits[limit][i / 64] |= uint64_t{1} << (i % 64);

    for (uint32_t d = limit - 1; d >= 1; --d) {
        uint32_t size = 0, leaf = 0, pair = 0;
        while (size < keep) {
            const bool havePackage = pair + 1 < belowSize;
            if (leaf < m && (!havePackage || (keys[leaf] >> 9) <= below[pair] + below[pair + 1])) {
                current[size] = keys[leaf++] >> 9;
                leafBits[d][size / 64] |= uint64_t{1} << (size % 64);
            } else if (havePackage) {
                current[size] = below[pair] + below[pair + 1];
                pair += 2;
            } else {
                break;
            }
            ++size;
        }
        std::copy(current, current + size, below);
        belowSize = size;
    }

    uint32_t taken = keep;
    for (uint32_t d = 1; d <= limit && taken > 0; ++d) {
        const uint32_t leaves = LeavesAmongFirst(leafBits[d], taken);
        for (uint32_t i = 0; i < leaves; ++i) ++lengths[keys[i] & 511];
        taken = 2 * (taken - leaves);
    }
}

}  // namespace zyrdc
