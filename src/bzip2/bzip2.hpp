// bzip2.hpp - internal interface of the bzip2 block stages (run-length stage and symbol
// dictionary, Burrows-Wheeler transform, move-to-front, zero-run coding), used by the C entry
// points, tests and benchmarks.
#pragma once

#include <cstddef>
#include <cstdint>

#include "zyrdc.h"

namespace zyrdc::bzip2 {

// What a resumable stage did in one call: the status and how far it got on each side.
struct Progress {
    ZyrStatus status;
    int32_t consumed;  // source elements taken
    int32_t written;   // destination elements stored
};

// ---- run-length stage ----------------------------------------------------------------------

// Caller-held record: the in-use table, then the run's byte (-1 for none) and its length as
// two native 32-bit words. The same layout serves the encoder and the decoder.
inline constexpr int32_t kRleStateBytes = 264;
inline constexpr int32_t kRleLastOffset = 256;
inline constexpr int32_t kRleRunOffset = 260;
// Four literals open a run; the count byte that follows adds up to 255 more.
inline constexpr int32_t kRleRunOpen = 4;
inline constexpr int32_t kRleMaxRun = kRleRunOpen + 255;

void RleEncodeInit(uint8_t* state);
Progress RleEncode(const uint8_t* src, int32_t src_len, uint8_t* dst, int32_t dst_cap,
                   uint8_t* state);
// Writes a pending count byte (needs one byte of room); returns the bytes written, 0 or 1.
int32_t RleEncodeFlush(uint8_t* dst, uint8_t* state);
void RleDecodeInit(uint8_t* state);
Progress RleDecode(const uint8_t* src, int32_t src_len, uint8_t* dst, int32_t dst_room,
                   uint8_t* state);
Progress RleDecodeFlush(uint8_t* dst, int32_t dst_room, uint8_t* state);
void CopyInUseTable(uint8_t* in_use, const uint8_t* state);
// Maps every byte onto the sum of the in-use flags below it; returns the sum of all flags.
int32_t ReduceDictionary(const uint8_t* in_use, uint8_t* data, int32_t len);
// The inverse map; false, data untouched, when the flags do not add up to `size`.
bool ExpandDictionary(const uint8_t* in_use, uint8_t* data, int32_t len, int32_t size);

// ---- Burrows-Wheeler transform ---------------------------------------------------------------

enum class SortStrategy : int32_t {
    kBudgeted = 0,           // bucket sort; gives up when the budget runs out
    kUnbudgeted = 1,         // bucket sort without a budget
    kInduced = 2,            // induced sort only
    kBudgetedFallback = 3,   // bucket sort, induced sort when the budget runs out
};

// The multikey quicksort's keys read up to this many bytes past a rotation's start.
inline constexpr uint32_t kKeyReach = 17;
// Blocks below this many bytes are sorted whole by the multikey quicksort.
inline constexpr uint32_t kShortBlock = 100;
// Short-block budgets per byte: the default entry point allows a little more than the one
// with a chosen strategy.
inline constexpr int64_t kShortBudgetDefault = 110;
inline constexpr int64_t kShortBudgetSelect = 100;

// Working-buffer sizes (32-bit arithmetic, wrapping as the callers' unsigned sizes do).
constexpr uint32_t BucketSortBytes(uint32_t n) { return 6 * n + 524484u; }
constexpr uint32_t InducedSortBytes(uint32_t n) { return 18 * n + 80u; }

// Forward transform of n >= 1 bytes with the strategy's sort, `short_budget` per byte on the
// short-block path. Returns StatusOk or, for kBudgeted only, StatusBwtSortAbandoned (then
// dst and *index are not written).
ZyrStatus BwtForward(const uint8_t* src, uint8_t* dst, uint32_t n, int32_t* index,
                     uint8_t* buffer, SortStrategy strategy, int64_t short_budget);
// Inverse transform of n >= 2 bytes, 0 <= index < n; the buffer holds 4n + 1024 bytes.
void BwtInverse(const uint8_t* src, uint8_t* dst, uint32_t n, uint32_t index, uint8_t* buffer);

// The sorts, reachable for tests. `text` holds the block followed by enough of its cyclic
// continuation that every rotation reads as contiguous bytes (see the .cpp files).
//
// Multikey quicksort of the rotation starts s[first..last] from `depth` on; the budget is
// charged by the Shell-sort comparisons when it is non-negative at the start. Returns the
// budget left (negative: it ran out and the range is only partly sorted).
int64_t MultikeyQuicksort(const uint8_t* text, uint32_t n, uint32_t* s, uint32_t first,
                          uint32_t last, uint32_t depth, int64_t budget);
// Two-byte bucket sort of all rotations into sa (n entries); false when the budget ran out,
// or with give_up_early (and a budget) also when it is being spent so fast that it would.
bool BucketSort(const uint8_t* text, uint32_t n, uint32_t* sa, uint32_t* bucket_pos,
                uint32_t* pair_start, int64_t budget, bool give_up_early = false);
// Repeats in a sample of the block's 32-byte strings: per mille of them that occur earlier in
// it too, and the sum of the squared lengths of the repeats found, per byte of the block.
// `table` holds kRepeatTableSlots words of 64 bits. Reads text[0..2n).
struct RepeatStats {
    uint32_t share;
    uint64_t square_per_byte;
};
inline constexpr uint32_t kRepeatTableSlots = 32768;
RepeatStats ProbeRepeats(const uint8_t* text, uint32_t n, uint64_t* table);
// Induced sort of all rotations of a block that is not all one byte value into sa (n words);
// `scratch` holds 10n bytes (plus 4 per level for alignment) and needs no alignment. Only
// text[0..n) is read.
void InducedSort(const uint8_t* text, uint32_t n, uint32_t* sa, uint8_t* scratch);

// ---- move-to-front and zero-run coding -----------------------------------------------------

inline constexpr int32_t kMtfStateBytes = 256;

void MtfInit(uint8_t* table);
void MtfForward(const uint8_t* src, uint8_t* dst, int32_t len, uint8_t* table);
void MtfInverse(const uint8_t* src, uint8_t* dst, int32_t len, uint8_t* table);
// One-byte-at-a-time twins of the SSE2 table shifts.
void MtfForwardScalar(const uint8_t* src, uint8_t* dst, int32_t len, uint8_t* table);
void MtfInverseScalar(const uint8_t* src, uint8_t* dst, int32_t len, uint8_t* table);

inline constexpr uint16_t kRunA = 0;
inline constexpr uint16_t kRunB = 1;

// Longest zero run whose code fits in k symbols: 2^(k+1) - 2 (beyond any 32-bit run from
// k = 31 on).
constexpr uint32_t RunCapacity(uint32_t k) {
    return k >= 31 ? 0xFFFFFFFEu : static_cast<uint32_t>((uint64_t{2} << k) - 2);
}
static_assert(RunCapacity(0) == 0 && RunCapacity(1) == 2 && RunCapacity(2) == 6 &&
              RunCapacity(19) == 1048574 && RunCapacity(30) == 0x7FFFFFFEu);

Progress EncodeZeroRuns(const uint8_t* src, int32_t src_len, uint16_t* dst, int32_t dst_cap,
                        uint32_t* freq);
Progress DecodeZeroRuns(const uint16_t* src, int32_t src_len, uint8_t* dst, int32_t dst_cap);

}  // namespace zyrdc::bzip2
