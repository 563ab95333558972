// bwt.cpp - forward Burrows-Wheeler transform (working areas carved from the caller's buffer,
// the strategy's sort, the last column and primary index) and the inverse transform.
#include <cstring>

#include "bzip2/bzip2.hpp"
#include "core/bits.hpp"
#include "core/copy.hpp"

namespace zyrdc::bzip2 {

namespace {

constexpr size_t kAreaAlign = 64;
// Strategy 3 takes blocks of at least kRepeatProbeMin bytes to the induced sort at once when at
// least kRepeatShareInduced per mille of sampled 32-byte strings repeat, or when the squared
// lengths of the repeats found add up to kLongRepeatInduced per byte (a few repeats thousands of
// bytes long). Measured on the corpus's blocks of 100 and 900 kB (tar files, images, a fax
// scan, text): the blocks that run out of budget mostly lie above either line, text below both
// (world192.txt, the most repetitive text, at 90-120 per mille); the blocks that complete
// above them are sorted by the induced sort in about the same time.
constexpr uint32_t kRepeatProbeMin = 32768;
constexpr uint32_t kRepeatShareInduced = 140;
constexpr uint64_t kLongRepeatInduced = 128;
static_assert(kRepeatTableSlots * sizeof(uint64_t) <= 65536 * sizeof(uint32_t));

uint8_t* AlignUp(uint8_t* p, size_t align) { return p + bytes_to_boundary(p, align); }
uint32_t* Words(uint8_t* p) { return reinterpret_cast<uint32_t*>(p); }

// Copies the block twice, back to back, and continues it cyclically up to n + kKeyReach
// bytes when 2n is shorter (the quicksort's keys read that far past a rotation's start).
// Returns the bytes the text occupies.
uint32_t LayOutText(const uint8_t* src, uint8_t* text, uint32_t n) {
    CopyBytesKernel(src, text, static_cast<int32_t>(n));
    CopyBytesKernel(src, text + n, static_cast<int32_t>(n));
    uint32_t len = 2 * n;
    for (; len < n + kKeyReach; ++len) text[len] = text[len - n];
    return len;
}

// Row j holds the byte before its rotation's start: text[r + n - 1] is s[(r - 1) mod n]. The
// primary index is the row of rotation 0.
int32_t EmitLastColumn(const uint8_t* text, uint32_t n, const uint32_t* sa, uint8_t* dst) {
    int32_t index = 0;
    for (uint32_t j = 0; j < n; ++j) {
        dst[j] = text[sa[j] + n - 1];
        if (sa[j] == 0) index = static_cast<int32_t>(j);
    }
    return index;
}

bool SingleByteValue(const uint8_t* src, uint32_t n) {
    for (uint32_t i = 1; i < n; ++i) {
        if (src[i] != src[0]) return false;
    }
    return true;
}

// Induced-sort layout: the doubled block, the rotation starts, then the sort's scratch bytes
// (the 18n + 80 bytes leave 12n after the starts).
const uint32_t* RunInduced(uint8_t* text, uint32_t text_len, uint32_t n) {
    uint32_t* sa = Words(AlignUp(text + text_len, alignof(uint32_t)));
    InducedSort(text, n, sa, reinterpret_cast<uint8_t*>(sa + n));
    return sa;
}

}  // namespace

ZyrStatus BwtForward(const uint8_t* src, uint8_t* dst, uint32_t n, int32_t* index,
                     uint8_t* buffer, SortStrategy strategy, int64_t short_budget) {
    uint8_t* text = AlignUp(buffer, kAreaAlign);
    if (n >= kShortBlock && static_cast<uint32_t>(strategy) > 3) return StatusOk;
    const uint32_t text_len = LayOutText(src, text, n);

    if (n < kShortBlock) {
        // The whole block by the quicksort; what the budget leaves is emitted as it stands.
        uint32_t* sa = Words(AlignUp(text + text_len, alignof(uint32_t)));
        for (uint32_t i = 0; i < n; ++i) sa[i] = i;
        MultikeyQuicksort(text, n, sa, 0, n - 1, 0, short_budget * n);
        *index = EmitLastColumn(text, n, sa, dst);
        return StatusOk;
    }
    if (SingleByteValue(src, n)) {
        // Every rotation is the same: the last column is the block, and row 0 is as good as
        // any for the primary index.
        CopyBytesKernel(src, dst, static_cast<int32_t>(n));
        *index = 0;
        return StatusOk;
    }
    if (strategy == SortStrategy::kInduced) {
        *index = EmitLastColumn(text, n, RunInduced(text, text_len, n), dst);
        return StatusOk;
    }

    // Bucket-sort layout: bucket positions and pair counters on 64-byte boundaries, the
    // rotation starts after them.
    uint32_t* bucket_pos = Words(AlignUp(text + text_len, kAreaAlign));
    uint32_t* pair_start = bucket_pos + 65536;
    uint32_t* sa = Words(AlignUp(reinterpret_cast<uint8_t*>(pair_start + 65537), kAreaAlign));
    const int64_t budget = strategy == SortStrategy::kUnbudgeted ? -1
                           : n < 99900                            ? int64_t{100} * n
                                                                  : int64_t{25} * n;
    // Where most long strings repeat, the budgeted bucket sort would mostly spend its budget
    // and then give up: the fallback goes straight to the induced sort, which gives the same
    // rows. The bucket positions' table is free until the bucket sort fills it.
    if (strategy == SortStrategy::kBudgetedFallback && n >= kRepeatProbeMin) {
        const RepeatStats repeats = ProbeRepeats(text, n, reinterpret_cast<uint64_t*>(bucket_pos));
        if (repeats.share >= kRepeatShareInduced || repeats.square_per_byte >= kLongRepeatInduced) {
            *index = EmitLastColumn(text, n, RunInduced(text, text_len, n), dst);
            return StatusOk;
        }
    }
    if (!BucketSort(text, n, sa, bucket_pos, pair_start, budget,
                    strategy == SortStrategy::kBudgetedFallback)) {
        if (strategy == SortStrategy::kBudgeted) return StatusBwtSortAbandoned;
        *index = EmitLastColumn(text, n, RunInduced(text, text_len, n), dst);
        return StatusOk;
    }
    *index = EmitLastColumn(text, n, sa, dst);
    return StatusOk;
}

void BwtInverse(const uint8_t* src, uint8_t* dst, uint32_t n, uint32_t index, uint8_t* buffer) {
    // Counters, then their exclusive running sums: the first row that begins with each value.
    uint32_t start[256] = {};
    for (uint32_t i = 0; i < n; ++i) ++start[src[i]];
    for (uint32_t v = 0, sum = 0; v < 256; ++v) {
        const uint32_t c = start[v];
        start[v] = sum;
        sum += c;
    }
    // Successor table after the 1024 counter bytes, in a buffer with no alignment promise.
    uint8_t* next = buffer + 1024;
    if (n < (1u << 24)) {
        // Each entry also carries the byte it leads to, so the walk touches one word a step.
        for (uint32_t i = 0; i < n; ++i) {
            store_u32le(next + 4 * static_cast<size_t>(start[src[i]]++), i << 8 | src[i]);
        }
        uint32_t p = index;
        for (uint32_t j = 0; j < n; ++j) {
            const uint32_t v = load_u32le(next + 4 * static_cast<size_t>(p));
            dst[j] = static_cast<uint8_t>(v);
            p = v >> 8;
        }
        return;
    }
    for (uint32_t i = 0; i < n; ++i) store_u32le(next + 4 * static_cast<size_t>(start[src[i]]++), i);
    uint32_t p = index;
    for (uint32_t j = 0; j < n; ++j) {
        p = load_u32le(next + 4 * static_cast<size_t>(p));
        dst[j] = src[p];
    }
}

}  // namespace zyrdc::bzip2
