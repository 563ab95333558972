// lz4.hpp - internal interface of the LZ4 block family: the three decoding cores with their
// fast and careful paths, the block encoders and their hash (used by the C entry points,
// tests, fuzz harnesses and benchmarks).
#pragma once

#include <cstddef>
#include <cstdint>

#include "core/bits.hpp"
#include "zyrdc.h"

namespace zyrdc::lz4 {

// ---- decoding --------------------------------------------------------------------------

// Where a back-reference may reach and how the end of a block is judged:
//   Plain     no history before the write start;
//   Prefix    `dictSize` bytes of history lie in memory right before the write start;
//   Separate  the dictionary lies elsewhere and stands in for the first `dictSize` bytes
//             of the destination buffer `dstBase`.
enum class Core { Plain, Prefix, Separate };

struct DecodeArgs {
    const uint8_t* src;
    int32_t srcLen;        // at least 1
    uint8_t* out;          // write start
    int32_t capacity;      // bytes writable from `out`, at least 1
    int32_t dstIdx;        // Separate: index of `out` in the buffer the dictionary stands in for
    const uint8_t* dict;   // Separate: the dictionary
    int32_t dictSize;      // Prefix and Separate
};

struct DecodeResult {
    ZyrStatus status;
    int32_t consumed;  // valid for StatusOk, StatusSrcExhausted and StatusDstFull
    int32_t written;
};

// The fast path runs while a sequence starts at least this many bytes before the source end
// and the write position is at least kDstMargin bytes before the destination end. The
// plain core keeps one source byte more.
inline constexpr int32_t kSrcMarginPlain = 33;
inline constexpr int32_t kSrcMarginDict = 32;
inline constexpr int32_t kDstMargin = 64;

// Decodes one block; `fast` false runs the careful path alone (tests compare the two).
// Arguments are not checked here: the entry points do that.
DecodeResult Decode(Core core, const DecodeArgs& args, bool fast = true);

// ---- encoding --------------------------------------------------------------------------

inline constexpr int32_t kHashTableBytes = 16384;
// Sources of this length or more use 32-bit table entries; shorter ones 16-bit entries,
// since every position then fits.
inline constexpr int32_t kWideTableFrom = 65536;
inline constexpr uint32_t kMaxOffset = 65535;
// Sources up to this length are one literal-only sequence: no position can be probed.
inline constexpr int32_t kLiteralOnlyMax = 21;

inline constexpr uint64_t kHashMultiplier = 0xCA1BACDCBBull;  // 40 bits: 0xCA, then 0x1BACDCBB

// The hash of the 40-bit value in the low five bytes of v (the bytes above are ignored):
// bits 24.. of v times the multiplier, taken as bits 48.. of (v << 24) times it.
inline uint32_t Hash40(uint64_t v, int bits) {
    return static_cast<uint32_t>(((v << 24) * kHashMultiplier) >> 48) & ((1u << bits) - 1);
}

// Hash of the five bytes at p (a 40-bit little-endian value) into `bits` bits (12 or 13).
inline uint32_t Hash5(const uint8_t* p, int bits) {
    const uint32_t lo = load_u32le(p), hi = p[4];
    const uint32_t mask = (1u << bits) - 1;
    if constexpr (sizeof(void*) == 8) {
        return Hash40(lo | static_cast<uint64_t>(hi) << 32, bits);
    } else {
        // The same bits from one 32-bit product: with v = lo + hi 2^32 and M = ml + mh 2^32,
        // v M = lo ml + (lo mh + hi ml) 2^32 modulo 2^64, so bits 24.. of the product are
        // (lo ml >> 24) + ((lo mh + hi ml) << 8). At most 13 bits are kept, so only the low
        // 5 bits of the second term count, and the multipliers reduce modulo 32 to small
        // constants that need no multiply instruction.
        constexpr uint32_t ml = static_cast<uint32_t>(kHashMultiplier);
        constexpr uint32_t mh = static_cast<uint32_t>(kHashMultiplier >> 32);
        const uint32_t low = static_cast<uint32_t>((static_cast<uint64_t>(lo) * ml) >> 24);
        return (low + ((lo * (mh & 31) + hi * (ml & 31)) << 8)) & mask;
    }
}
static_assert(sizeof(void*) == 8 || sizeof(void*) == 4);
static_assert((kHashMultiplier >> 32 & 31) == 10 && (kHashMultiplier & 31) == 27);

// The block size of an incompressible source: one token, the 255-run of the literal count
// and every byte as a literal. No block of these encoders is longer.
constexpr int64_t WorstCaseBlockSize(int64_t srcLen) {
    return srcLen + 1 + (srcLen >= 15 ? (srcLen - 15) / 255 + 1 : 0);
}

// Clears the table in the layout the greedy encoders use for a source of srcLen bytes;
// returns the zero-fill routine's status.
[[nodiscard]] ZyrStatus ClearTable(uint8_t* table, int32_t srcLen);
// The same for the accelerated encoder (acceleration above 1).
[[nodiscard]] ZyrStatus ClearTableAccelerated(uint8_t* table, int32_t srcLen);

struct EncodeResult {
    int32_t consumed;
    int32_t written;
};

// Greedy encoder over a cleared table; `capacity` below 0 means unbounded (the caller
// provides WorstCaseBlockSize bytes), otherwise the destination-bounded rules apply.
EncodeResult EncodeGreedy(const uint8_t* src, int32_t srcLen, uint8_t* dst, int32_t capacity,
                          uint8_t* table);
// Accelerated encoder (acceleration at least 2) over a cleared table; unbounded.
EncodeResult EncodeAccelerated(const uint8_t* src, int32_t srcLen, uint8_t* dst, uint8_t* table,
                               int32_t acceleration);

}  // namespace zyrdc::lz4
