// bwt_sort.cpp - the comparison sorts of a block's rotations: the multikey quicksort with its
// Shell-sort finish and work budget, and the two-byte bucket sort built on it (the induced
// sort that takes over when the budget runs out is in bwt_induced.cpp).
//
// Every rotation is read as contiguous bytes: `text` holds the block followed by its cyclic
// continuation (the block again), so rotation i is text[i .. i+n). The quicksort's word keys
// read up to kKeyReach bytes past the start of a rotation; blocks shorter than that are
// continued further by the caller (see bwt.cpp).
#include <algorithm>
#include <array>
#include <cstring>

#include <emmintrin.h>

#include "bzip2/bzip2.hpp"
#include "core/bits.hpp"

namespace zyrdc::bzip2 {

namespace {

// ---- multikey quicksort ------------------------------------------------------------------

// Shell-sort gaps: Ciura's measured sequence up to 701 (it has no closed form), then each gap
// three times the one before, and INT32_MAX as the end mark.
constexpr std::array<uint32_t, 22> MakeShellGaps() {
    std::array<uint32_t, 22> g{1, 4, 10, 23, 57, 132, 301, 701, 1750};
    for (size_t i = 9; i + 1 < g.size(); ++i) g[i] = 3 * g[i - 1];
    g[g.size() - 1] = 2147483647u;
    return g;
}
constexpr std::array<uint32_t, 22> kShellGaps = MakeShellGaps();
static_assert(kShellGaps[9] == 5250 && kShellGaps[15] == 3827250 && kShellGaps[20] == 930021750);

// A range whose last - first is below this, or whose depth reached kShellDepth, goes to the
// Shell sort.
constexpr uint32_t kShellRange = 11;
constexpr uint32_t kShellDepth = 14;
// Below this depth the partition key is one byte, from it on a big-endian 32-bit word.
constexpr uint32_t kWordKeyDepth = 6;
// No key is read at kShellDepth or deeper, so a word key ends within kKeyReach bytes.
static_assert(kShellDepth - 1 + 4 <= kKeyReach);

// The pending ranges of one quicksort. Each split pushes at most three parts, the smallest
// on top; the range worked on next is then at most half of the one split, so the stack grows
// by at most two entries each time the working range halves: 2 * 32 + 3 entries cover any
// 32-bit count.
constexpr int kStackEntries = 72;

struct Range {
    uint32_t first, last, depth;
};

uint32_t WordAt(const uint8_t* p) { return byte_swap32(load_u32le(p)); }

// Compares two rotations over len bytes from a and b; `matched` gets the number of equal
// bytes before the deciding one (len when the two are equal).
int CompareRotations(const uint8_t* a, const uint8_t* b, uint32_t len, uint32_t& matched) {
    uint32_t i = 0;
    // Sixteen bytes a step while they lie within the rotations, then words, then bytes.
    for (; i + 16 <= len; i += 16) {
        const __m128i x = _mm_loadu_si128(reinterpret_cast<const __m128i*>(a + i));
        const __m128i y = _mm_loadu_si128(reinterpret_cast<const __m128i*>(b + i));
        const auto differ = static_cast<uint32_t>(_mm_movemask_epi8(_mm_cmpeq_epi8(x, y))) ^ 0xFFFFu;
        if (differ != 0) {
            const uint32_t k = i + static_cast<uint32_t>(__builtin_ctz(differ));
            matched = k;
            return a[k] < b[k] ? -1 : 1;
        }
    }
    for (; i + 4 <= len; i += 4) {
        const uint32_t x = WordAt(a + i), y = WordAt(b + i);
        if (x != y) {
            matched = i + static_cast<uint32_t>(__builtin_clz(x ^ y)) / 8;
            return x < y ? -1 : 1;
        }
    }
    for (; i < len; ++i) {
        if (a[i] != b[i]) {
            matched = i;
            return a[i] < b[i] ? -1 : 1;
        }
    }
    matched = len;
    return 0;
}

// Shell sort of s[first..last] comparing whole rotations from `depth`. With a budget, every
// comparison costs the bytes it found equal; false as soon as the budget drops below zero
// (the element being inserted is put back, so s stays a permutation).
bool ShellSort(const uint8_t* text, uint32_t n, uint32_t* s, uint32_t first, uint32_t last,
               uint32_t depth, bool budgeted, int64_t& budget) {
    const uint32_t size = last - first + 1;
    const uint32_t len = depth < n ? n - depth : 0;
    const uint8_t* t = text + depth;
    int g = 0;
    while (kShellGaps[static_cast<size_t>(g) + 1] < size) ++g;
    for (; g >= 0; --g) {
        const uint32_t h = kShellGaps[static_cast<size_t>(g)];
        if (h >= size) continue;
        for (uint32_t i = first + h; i <= last; ++i) {
            const uint32_t v = s[i];
            uint32_t j = i;
            while (j >= first + h) {
                uint32_t matched;
                const int c = CompareRotations(t + s[j - h], t + v, len, matched);
                if (budgeted) {
                    budget -= matched;
                    if (budget < 0) {
                        s[j] = v;
                        return false;
                    }
                }
                if (c <= 0) break;
                s[j] = s[j - h];
                j -= h;
            }
            s[j] = v;
        }
    }
    return true;
}

template <bool kWord>
uint32_t KeyAt(const uint8_t* t) {
    if constexpr (kWord) {
        return WordAt(t);
    } else {
        return t[0];
    }
}

uint32_t Median3(uint32_t a, uint32_t b, uint32_t c) {
    if (a > b) std::swap(a, b);
    if (b > c) b = c;
    return a > b ? a : b;
}

// Splits s[r.first..r.last] three ways around the median of the first, middle and last key;
// returns the bounds [lt, gt] of the equal part.
template <bool kWord>
void Partition(const uint8_t* text, uint32_t* s, const Range& r, uint32_t& lt, uint32_t& gt) {
    const uint8_t* t = text + r.depth;
    const uint32_t pivot = Median3(KeyAt<kWord>(t + s[r.first]),
                                   KeyAt<kWord>(t + s[r.first + (r.last - r.first) / 2]),
                                   KeyAt<kWord>(t + s[r.last]));
    // Invariant: [first, lo) below the pivot, [lo, i) equal, (hi, last] above. The pivot is
    // one of the keys, so the equal part never empties and hi never drops below first.
    uint32_t lo = r.first, i = r.first, hi = r.last;
    while (i <= hi) {
        const uint32_t k = KeyAt<kWord>(t + s[i]);
        if (k < pivot) {
            std::swap(s[lo++], s[i++]);
        } else if (k > pivot) {
            std::swap(s[i], s[hi--]);
        } else {
            ++i;
        }
    }
    lt = lo;
    gt = hi;
}

}  // namespace

int64_t MultikeyQuicksort(const uint8_t* text, uint32_t n, uint32_t* s, uint32_t first,
                          uint32_t last, uint32_t depth, int64_t budget) {
    const bool budgeted = budget >= 0;
    Range stack[kStackEntries];
    int top = 0;
    stack[top++] = {first, last, depth};
    while (top > 0) {
        const Range r = stack[--top];
        if (r.last - r.first < kShellRange || r.depth >= kShellDepth) {
            if (!ShellSort(text, n, s, r.first, r.last, r.depth, budgeted, budget)) return budget;
            continue;
        }
        uint32_t lt, gt;
        const bool word = r.depth >= kWordKeyDepth;
        if (word) {
            Partition<true>(text, s, r, lt, gt);
        } else {
            Partition<false>(text, s, r, lt, gt);
        }
        // Less and greater stay at this depth; the equal part is one key further on. Parts of
        // fewer than two starts are sorted already. The largest is pushed first, so the
        // smallest is worked on next.
        Range parts[3];
        int count = 0;
        if (lt - r.first >= 2) parts[count++] = {r.first, lt - 1, r.depth};
        if (gt - lt >= 1) parts[count++] = {lt, gt, r.depth + (word ? 4u : 1u)};
        if (r.last - gt >= 2) parts[count++] = {gt + 1, r.last, r.depth};
        std::sort(parts, parts + count, [](const Range& a, const Range& b) {
            return a.last - a.first > b.last - b.first;
        });
        for (int i = 0; i < count; ++i) stack[top++] = parts[i];
    }
    return budget;
}

// ---- two-byte bucket sort ------------------------------------------------------------------
//
// Rotations compare like suffixes of an endless repetition of the block, so the two-stage
// method of suffix sorting carries over. Position i is ascending when rotation i is smaller
// than rotation i + 1: its byte is below the next differing byte after it. In a bucket of
// first byte c, every descending rotation sorts before every ascending one. The selected
// starts are the ascending positions followed by a descending one (s[i] < s[i+1] there);
// only they are sorted by comparison, inside their pair bucket (a, b), a < b, where they come
// before the bucket's other (ascending) rotations. Every other ascending rotation i then
// follows from rotation i + 1 by a scan from the largest rotation down, and every descending
// one from rotation i + 1 by a scan from the smallest up.

namespace {

constexpr uint32_t kPairs = 65536;

uint32_t PairAt(const uint8_t* t) { return static_cast<uint32_t>(t[0]) << 8 | t[1]; }

}  // namespace

bool BucketSort(const uint8_t* text, uint32_t n, uint32_t* sa, uint32_t* bucket_pos,
                uint32_t* pair_start, int64_t budget, bool give_up_early) {
    // Pair counts (the pair at n - 1 wraps to the block's first byte), two positions a step,
    // then exclusive running starts; pair_start[kPairs] ends the last bucket.
    std::memset(pair_start, 0, (kPairs + 1) * sizeof(uint32_t));
    uint32_t i = 0;
    for (; i + 2 <= n; i += 2) {
        ++pair_start[PairAt(text + i)];
        ++pair_start[PairAt(text + i + 1)];
    }
    if (i < n) ++pair_start[PairAt(text + i)];
    uint32_t first_pair = 0;
    while (pair_start[first_pair] == 0) ++first_pair;
    uint32_t total = 0, last_pair = first_pair;
    for (uint32_t k = first_pair; k <= kPairs; ++k) {
        const uint32_t c = pair_start[k];
        pair_start[k] = total;
        total += c;
        if (c != 0) last_pair = k;
    }
    const uint32_t lo = first_pair >> 8, hi = last_pair >> 8;

    // Classify from the end towards the start. The class of position n - 1 comes from the
    // first byte change at or after position 0 (the block is not all one byte).
    uint32_t j = 0;
    while (text[j] == text[j + 1]) ++j;
    bool next_ascending = text[j] < text[j + 1];  // class of position n, that is of 0
    for (uint32_t k = lo; k <= hi; ++k) {
        for (uint32_t b = k + 1; b <= hi; ++b) bucket_pos[k << 8 | b] = pair_start[k << 8 | b];
    }
    for (uint32_t p = n; p-- > 0;) {
        const uint8_t c = text[p], d = text[p + 1];
        const bool ascending = c < d || (c == d && next_ascending);
        if (ascending && !next_ascending) sa[bucket_pos[PairAt(text + p)]++] = p;
        next_ascending = ascending;
    }

    // Sort the selected starts of every bucket; the first two bytes are known to be equal.
    // Giving up early: once an eighth of the budget is spent, a pace that would spend more
    // than one and a half budgets over all selected starts ends the sort as if the budget had
    // run out, and so does, once half is spent, a pace of more than 0.9 budgets (on the corpus,
    // blocks that run out pass 1.5 early on or keep near 1, blocks that complete stay lower).
    uint64_t selected = 0, sorted = 0;
    if (give_up_early) {
        for (uint32_t a = lo; a <= hi; ++a) {
            for (uint32_t b = a + 1; b <= hi; ++b) {
                selected += bucket_pos[a << 8 | b] - pair_start[a << 8 | b];
            }
        }
    }
    const int64_t full_budget = budget;
    for (uint32_t a = lo; a <= hi; ++a) {
        for (uint32_t b = a + 1; b <= hi; ++b) {
            const uint32_t k = a << 8 | b;
            const uint32_t first = pair_start[k], end = bucket_pos[k];
            sorted += end - first;
            if (end - first < 2) continue;
            const bool had_budget = budget >= 0;
            budget = MultikeyQuicksort(text, n, sa, first, end - 1, 2, budget);
            if (had_budget && budget < 0) return false;
            if (give_up_early && had_budget) {
                const auto spent = static_cast<uint64_t>(full_budget - budget);
                const auto whole = static_cast<uint64_t>(full_budget);
                if ((8 * spent > whole && 2 * spent * selected > 3 * sorted * whole) ||
                    (2 * spent > whole && 10 * spent * selected > 9 * sorted * whole)) {
                    return false;
                }
            }
        }
    }

    // Ascending rotations, from the largest down: each bucket (a, b), b >= a, fills from its
    // end. In (a, a) the ascending rotations take only the upper part, so its scan stops at
    // the lowest one placed.
    for (uint32_t a = lo; a <= hi; ++a) {
        for (uint32_t b = a; b <= hi; ++b) bucket_pos[a << 8 | b] = pair_start[(a << 8 | b) + 1];
    }
    const auto induce_ascending = [&](uint32_t p) {
        const uint32_t r = sa[p];
        const uint32_t q = r == 0 ? n - 1 : r - 1;
        if (text[q] <= text[r]) sa[--bucket_pos[PairAt(text + q)]] = q;
    };
    for (uint32_t a = hi + 1; a-- > lo;) {
        for (uint32_t b = hi; b > a; --b) {
            const uint32_t k = a << 8 | b;
            for (uint32_t p = pair_start[k + 1]; p-- > pair_start[k];) induce_ascending(p);
        }
        const uint32_t k = a << 8 | a;
        for (uint32_t p = pair_start[k + 1]; p > bucket_pos[k];) induce_ascending(--p);
    }

    // Descending rotations, from the smallest up: each first-byte bucket fills from its start.
    // A rotation is descending exactly while its position is below its bucket's fill point.
    uint32_t* head = bucket_pos;  // 256 fill points; the pair cursors are no longer needed
    for (uint32_t c = 0; c < 256; ++c) head[c] = pair_start[c << 8];
    for (uint32_t p = 0; p < n; ++p) {
        const uint32_t r = sa[p];
        const uint32_t q = r == 0 ? n - 1 : r - 1;
        const uint8_t c = text[r], d = text[q];
        if (d > c || (d == c && p < head[c])) sa[head[d]++] = q;
    }
    return true;
}

// ---- long repeats ----------------------------------------------------------------------------
//
// The bucket sort's cost grows with the length of the prefixes that its selected starts share,
// so a block where most 32-byte strings occur more than once, or where some strings repeat
// over thousands of bytes, runs out of budget (or comes close to it) and is better given to
// the induced sort at once. The estimate looks at a sample: positions that are multiples of
// 256, and positions whose four bytes hash into one value of 64 (so that a string repeated at
// any distance is sampled at both places; runs of zero bytes never hash there), except strings
// of one byte value. Each sampled string's hash goes into an open-addressed table with its
// position. A hash found already is checked and extended against the earlier place, eight
// bytes at a time; the samples inside the repeat are then skipped but counted as repeats, so
// that every byte is extended at most once and the probe stays linear.

namespace {

constexpr uint32_t kProbeWindow = 32;

// Bit k set when position i + k (k < 16) is sampled by its content. Its four bytes are two
// 16-bit pairs, mixed by 16-bit multiplies: positions i, i+2, .. from the loads at i and i + 2,
// the odd ones from the loads at i + 1 and i + 3. Reads text[i .. i + 19).
uint32_t SampledByContent(const uint8_t* t) {
    const __m128i k1 = _mm_set1_epi16(static_cast<int16_t>(0x9E37));
    const __m128i k2 = _mm_set1_epi16(static_cast<int16_t>(0x79B9));
    const __m128i pick = _mm_set1_epi16(0x15);  // the mix of a zero word is zero
    const auto hit = [&](const uint8_t* q) {
        const __m128i lo = _mm_loadu_si128(reinterpret_cast<const __m128i*>(q));
        const __m128i hi = _mm_loadu_si128(reinterpret_cast<const __m128i*>(q + 2));
        const __m128i h = _mm_add_epi16(_mm_mullo_epi16(lo, k1), _mm_mullo_epi16(hi, k2));
        return static_cast<uint32_t>(_mm_movemask_epi8(_mm_cmpeq_epi16(_mm_srli_epi16(h, 10), pick)));
    };
    return (hit(t) & 0x5555u) | (hit(t + 1) & 0xAAAAu);
}

uint32_t EqualPrefix8(const uint8_t* a, const uint8_t* b, uint32_t limit) {
    uint32_t len = 0;
    while (len + 8 <= limit && load_u64le(a + len) == load_u64le(b + len)) len += 8;
    return len;
}

}  // namespace

RepeatStats ProbeRepeats(const uint8_t* text, uint32_t n, uint64_t* table) {
    constexpr uint32_t kSlots = kRepeatTableSlots, kProbes = 4;
    std::memset(table, 0, kSlots * sizeof(uint64_t));
    uint64_t sampled = 0, repeats = 0, square_sum = 0;
    // Samples the string at `at`; returns where the probe goes on when it lies in a repeat
    // found now, 0 otherwise.
    const auto sample = [&](uint32_t at) -> uint32_t {
        uint64_t w[kProbeWindow / 8];
        for (uint32_t k = 0; k < kProbeWindow / 8; ++k) w[k] = load_u64le(text + at + 8 * k);
        // Runs of one byte value cost the bucket sort little (one selected start a run).
        const bool one_value = w[0] == (w[0] & 0xFF) * 0x0101010101010101ull;
        if (one_value && w[0] == w[1] && w[1] == w[2] && w[2] == w[3]) return 0;
        uint64_t h = 0;
        for (uint64_t x : w) h = (h ^ x) * 0x9E3779B97F4A7C15ull;
        const uint64_t tag = (h | 1) << 32;  // 0 marks a free slot
        ++sampled;
        uint32_t slot = static_cast<uint32_t>(h >> 40) & (kSlots - 1);
        for (uint32_t probe = 0; probe < kProbes; ++probe, slot = (slot + 1) & (kSlots - 1)) {
            if (table[slot] == 0) {
                table[slot] = tag | at;
                return 0;
            }
            if ((table[slot] & ~uint64_t{0xFFFFFFFF}) != tag) continue;
            // Rotations compare over n bytes; both places lie in the first copy of the block,
            // so n - 8 more bytes are readable after either.
            const auto earlier = static_cast<uint32_t>(table[slot]);
            table[slot] = tag | at;
            const uint32_t len = EqualPrefix8(text + earlier, text + at, n - 8);
            if (len < kProbeWindow) return 0;  // two strings with one hash
            square_sum += uint64_t{len} * len;
            // The samples further inside the repeat would find it again: they count as
            // repeats at the sampling rate, and the probe goes on after it.
            const uint32_t skipped = (len - kProbeWindow) / 64;
            sampled += skipped;
            repeats += 1 + skipped;
            return at + len - kProbeWindow + 1;
        }
        return 0;
    };
    for (uint32_t i = 0; i + kProbeWindow <= n;) {
        uint32_t mask = SampledByContent(text + i);
        const uint32_t grid = (0u - i) & 255;
        if (grid < 16) mask |= 1u << grid;
        if (i + 16 + kProbeWindow > n) mask &= (1u << (n - kProbeWindow - i + 1)) - 1;
        uint32_t next = i + 16;
        while (mask != 0) {
            const uint32_t at = i + static_cast<uint32_t>(__builtin_ctz(mask));
            mask &= mask - 1;
            const uint32_t after = sample(at);
            if (after > next) {
                next = after;
                break;
            }
        }
        i = next;
    }
    RepeatStats r;
    r.share = sampled == 0 ? 0 : static_cast<uint32_t>(repeats * 1000 / sampled);
    r.square_per_byte = square_sum / n;
    return r;
}

}  // namespace zyrdc::bzip2
