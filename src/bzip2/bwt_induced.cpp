// bwt_induced.cpp - induced sorting of a block's rotations: the sort that takes over when the
// bucket sort's budget runs out, and strategy 2. Its cost is linear in the block's length
// whatever the data, so long repeats and runs cost no more than text.
//
// The method is that of induced suffix sorting, carried over to rotations: the types and the
// leftmost-smaller positions are defined cyclically (position n - 1 is followed by position
// 0), and the reduced problem is again a cyclic string, whose rotations are sorted by the same
// method. Rotation i of a block is smaller than rotation i + 1 (type S) or larger (type L);
// they are never equal unless all bytes are, which the caller excludes. Equal rotations of a
// periodic block stay adjacent and come out in an order fixed by the data, which is all the
// transform needs.
//
// Memory: the rotation starts (n words), then `scratch`: one type byte per position of each
// level, and at the reduced levels the symbol counts and bucket cursors (two words per name).
// Each level has at most half the positions of the one above it, so all levels together take
// fewer than 10n scratch bytes, and the recursion is at most 32 levels deep, each frame a few
// words.
#include <cstring>

#include "bzip2/bzip2.hpp"
#include "core/bits.hpp"

namespace zyrdc::bzip2 {

namespace {

constexpr uint32_t kEmpty = 0xFFFFFFFFu;
constexpr uint8_t kTypeL = 0;
constexpr uint8_t kTypeS = 1;

// One level's string and its classification; positions wrap at n.
template <class Char>
struct Level {
    const Char* s;
    uint8_t* type;
    uint32_t n;

    uint32_t Before(uint32_t i) const { return (i == 0 ? n : i) - 1; }
    bool IsLms(uint32_t i) const { return type[i] == kTypeS && type[Before(i)] == kTypeL; }
};

// Types from the end towards the start. Equal neighbours share the type of the first change
// after them, cyclically; the class of position 0 is found first so that position n - 1 can
// take it.
template <class Char>
void Classify(const Level<Char>& lv) {
    const Char* s = lv.s;
    const uint32_t n = lv.n;
    uint32_t j = 0;
    while (s[j] == s[j + 1 == n ? 0 : j + 1]) ++j;
    uint8_t next = s[j] < s[j + 1 == n ? 0 : j + 1] ? kTypeS : kTypeL;  // type of position 0
    Char after = s[0];
    for (uint32_t i = n; i-- > 0;) {
        const Char c = s[i];
        if (c != after) next = c < after ? kTypeS : kTypeL;
        lv.type[i] = next;
        after = c;
    }
}

// Bucket starts (ends false) or ends (ends true) from the symbol counts.
void Buckets(const uint32_t* count, uint32_t k, uint32_t* bucket, bool ends) {
    uint32_t sum = 0;
    for (uint32_t c = 0; c < k; ++c) {
        sum += count[c];
        bucket[c] = ends ? sum : sum - count[c];
    }
}

// Each placed start carries in its top bit whether the rotation before it is of type S, found
// when it is placed from the two symbols before it, so that the scans read no types: before a
// start of type L the rotation is of type L exactly when its symbol is not smaller, before one
// of type S exactly when it is not larger. The leftmost-smaller starts are placed without the
// bit (a rotation of type L precedes each). Starts are below 2^31; kEmpty has the bit too.
constexpr uint32_t kBeforeS = 0x80000000u;

// L-type rotations from the smallest up: the one before each placed rotation, if it is of
// type L, goes to the next free head of its bucket. A rotation of type L is larger than its
// successor, so it always lands ahead of the scan.
template <class Char>
void InduceL(const Level<Char>& lv, uint32_t* sa, const uint32_t* count, uint32_t k,
             uint32_t* bucket) {
    Buckets(count, k, bucket, false);
    const Char* s = lv.s;
    for (uint32_t i = 0, n = lv.n; i < n; ++i) {
        const uint32_t v = sa[i];
        if (v & kBeforeS) continue;  // empty, or an S-type rotation before it
        const uint32_t p = lv.Before(v);
        const Char c = s[p];
        sa[bucket[c]++] = p | (s[lv.Before(p)] < c ? kBeforeS : 0);
    }
}

// S-type rotations from the largest down, into the tails of their buckets; `bucket` ends as
// the start of each bucket's S part. Every slot of an S part is written before the scan
// reaches it, so what the slots held before (the leftmost-smaller starts of the first pass) is
// never read. With kClear the top bits are cleared on the way; without, they stay, and a start
// in an S part without the bit is a leftmost-smaller one.
template <bool kClear, class Char>
void InduceS(const Level<Char>& lv, uint32_t* sa, const uint32_t* count, uint32_t k,
             uint32_t* bucket) {
    Buckets(count, k, bucket, true);
    const Char* s = lv.s;
    for (uint32_t i = lv.n; i-- > 0;) {
        const uint32_t v = sa[i];
        if (!(v & kBeforeS) || v == kEmpty) continue;
        const uint32_t j = v & ~kBeforeS;
        const uint32_t p = lv.Before(j);
        const Char c = s[p];
        sa[--bucket[c]] = p | (s[lv.Before(p)] <= c ? kBeforeS : 0);
        if constexpr (kClear) sa[i] = j;
    }
}

// Whether the len symbols at p and q are equal, cyclically.
template <class Char>
bool EqualSymbols(const Char* s, uint32_t n, uint32_t p, uint32_t q, uint32_t len) {
    if (p + len <= n && q + len <= n) return std::memcmp(s + p, s + q, len * sizeof(Char)) == 0;
    for (uint32_t d = 0; d < len; ++d) {
        if (s[p] != s[q]) return false;
        if (++p == n) p = 0;
        if (++q == n) q = 0;
    }
    return true;
}

uint8_t* AlignWords(uint8_t* p) { return p + bytes_to_boundary(p, alignof(uint32_t)); }

// Sorts the rotations of s (n symbols below k, not all equal) into sa. `count` holds the
// symbol counts, `bucket` k free words, `type` n free bytes; `scratch` is free for the levels
// below.
template <class Char>
void SortLevel(const Char* s, uint32_t n, uint32_t k, uint32_t* sa, uint8_t* type,
               const uint32_t* count, uint32_t* bucket, uint8_t* scratch) {
    const Level<Char> lv{s, type, n};
    Classify(lv);

    // First pass: the leftmost-smaller starts at their bucket ends in any order; inducing from
    // them sorts them by their substrings up to the next such start.
    for (uint32_t i = 0; i < n; ++i) sa[i] = kEmpty;
    Buckets(count, k, bucket, true);
    for (uint32_t i = 0; i < n; ++i) {
        if (lv.IsLms(i)) sa[--bucket[s[i]]] = i;
    }
    InduceL(lv, sa, count, k, bucket);
    InduceS<false>(lv, sa, count, k, bucket);

    // Gather them in that order from the S parts of the buckets and name the substrings; a
    // name goes to slot m + p / 2 (no two such starts are neighbours, and there are at most
    // n / 2 of them).
    uint32_t m = 0;
    for (uint32_t c = 0, end = 0; c < k; ++c) {
        end += count[c];
        for (uint32_t i = bucket[c]; i < end; ++i) {
            if (!(sa[i] & kBeforeS)) sa[m++] = sa[i];
        }
    }
    // Each substring's length (through the next start, cyclically) goes to its name slot
    // first. Two substrings of equal length and symbols are equal in types too: both end at a
    // start of type S, and the types before it follow from the symbols.
    for (uint32_t i = m; i < n; ++i) sa[i] = kEmpty;
    {
        uint32_t first = 0;
        while (!lv.IsLms(first)) ++first;
        for (uint32_t p = first, q = first + 1;; ++q) {
            if (q == first + n || lv.IsLms(q < n ? q : q - n)) {
                sa[m + (p >> 1)] = q - p + 1;
                if (q == first + n) break;
                p = q;
            }
        }
    }
    uint32_t names = 0;
    for (uint32_t i = 0, prev = 0, prev_len = 0; i < m; ++i) {
        const uint32_t p = sa[i], len = sa[m + (p >> 1)];
        if (i == 0 || len != prev_len || !EqualSymbols(s, n, prev, p, len)) ++names;
        sa[m + (p >> 1)] = names - 1;
        prev = p;
        prev_len = len;
    }
    // The reduced string, the names in the order of their starts, at the end of sa.
    uint32_t* reduced = sa + n - m;
    for (uint32_t i = n, j = n; i-- > m;) {
        if (sa[i] != kEmpty) sa[--j] = sa[i];
    }

    // Order of the reduced rotations, which is the order of the rotations at the starts.
    if (names == m) {
        for (uint32_t i = 0; i < m; ++i) sa[reduced[i]] = i;
    } else if (names == 1) {
        // All reduced rotations are equal: any order is sorted.
        for (uint32_t i = 0; i < m; ++i) sa[i] = i;
    } else {
        uint8_t* sub_type = scratch;
        auto* sub_count = reinterpret_cast<uint32_t*>(AlignWords(sub_type + m));
        uint32_t* sub_bucket = sub_count + names;
        std::memset(sub_count, 0, names * sizeof(uint32_t));
        for (uint32_t i = 0; i < m; ++i) ++sub_count[reduced[i]];
        SortLevel<uint32_t>(reduced, m, names, sa, sub_type, sub_count, sub_bucket,
                            reinterpret_cast<uint8_t*>(sub_bucket + names));
    }

    // Back to positions of this level: the starts in text order replace the reduced string.
    for (uint32_t i = 0, j = 0; i < n; ++i) {
        if (lv.IsLms(i)) reduced[j++] = i;
    }
    for (uint32_t i = 0; i < m; ++i) sa[i] = reduced[sa[i]];
    for (uint32_t i = m; i < n; ++i) sa[i] = kEmpty;

    // Final pass: the sorted starts at their bucket ends, largest last, then induce.
    Buckets(count, k, bucket, true);
    for (uint32_t i = m; i-- > 0;) {
        const uint32_t p = sa[i];
        sa[i] = kEmpty;
        sa[--bucket[s[p]]] = p;
    }
    InduceL(lv, sa, count, k, bucket);
    InduceS<true>(lv, sa, count, k, bucket);
}

}  // namespace

void InducedSort(const uint8_t* text, uint32_t n, uint32_t* sa, uint8_t* scratch) {
    uint32_t count[256] = {};
    uint32_t bucket[256];
    for (uint32_t i = 0; i < n; ++i) ++count[text[i]];
    SortLevel<uint8_t>(text, n, 256, sa, scratch, count, bucket, scratch + n);
}

}  // namespace zyrdc::bzip2
