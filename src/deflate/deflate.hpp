// deflate.hpp - internal interface of the Deflate family (used by the C entry points, tests
// and benchmarks): LZ77 matchers over caller-held hash tables, the Huffman coder of their
// output, and the Inflate decoding-table builder.
#pragma once

#include <cstdint>

#include "zyrdc.h"

namespace zyrdc::deflate {

// ---- LZ77 matching -------------------------------------------------------------------------

inline constexpr uint32_t kMinWindow = 256, kMaxWindow = 32768;
inline constexpr uint32_t kMinHash = 256, kMaxHash = 65536;
// A table entry that stands for no position: far enough below any position of a fresh
// stream that no window reaches it, and the floor that rebasing clamps to.
inline constexpr int32_t kNoPosition = -32768;
// Bytes a search needs ahead of its position: the longest match plus the 3 bytes that the
// 4-byte check at offset best (up to 257) reads past it. Below flush 2 a call stops this far
// from the end of its source, so that the unchecked main loops never read past it.
inline constexpr int32_t kChainedLookahead = 261;
inline constexpr int32_t kProbeLookahead = 260;  // single probe: no 4-byte check
inline constexpr int kFlushAll = 2;              // flush values from here on consume everything

// The level table of zyrsDeflateLZ77_8u: levels whose last digit is above 4 run the lazy
// matcher, the others the greedy one (single probe where maxChain is 0).
inline constexpr int kNumLevels = 30;
extern const LZ77Params kLevelParams[kNumLevels];
inline constexpr bool LevelIsLazy(uint32_t level) { return level % 10 > 4; }

// One matcher call, its arguments checked and the index rebased.
struct MatchCall {
    const uint8_t* src;      // the source byte at position srcIdx
    int32_t srcLen;
    int32_t srcIdx;
    const uint8_t* window;   // history: position p < srcIdx at window + (p - srcIdx)
    uint32_t winSize;
    int32_t* head;
    int32_t* prev;
    uint32_t hashSize;
    HuffCodeEntry* litFreq;
    HuffCodeEntry* distFreq;
    uint8_t* lit;
    uint16_t* dist;
    int32_t capacity;        // entries pLit / pDist can take
    LZ77Params params;
    int32_t flush;
};

struct MatchResult {
    int32_t consumed;        // source bytes
    int32_t written;         // output entries
};

// The three matchers. Each runs the whole call; none checks its arguments.
MatchResult MatchGreedy(const MatchCall& call);       // maxChain >= 1
MatchResult MatchSingleProbe(const MatchCall& call);  // maxChain == 0
MatchResult MatchLazy(const MatchCall& call);

// Moves every position of the head and chain tables, and srcIdx, down when the indexes of
// this call could come near overflow; no change otherwise.
void RebaseIfNeeded(int32_t& srcIdx, int32_t srcLen, int32_t* head, uint32_t hashSize,
                    int32_t* prev, uint32_t winSize);
// The 16-byte-step kernel of the rebase and its scalar twin: every entry e becomes
// max(max(e, kNoPosition) - d, kNoPosition).
void RebaseEntries(int32_t* entries, uint32_t count, int32_t d);
void RebaseEntriesScalar(int32_t* entries, uint32_t count, int32_t d);

// Hash functions of the two modes: the rolling 3-byte hash (single probe) and the 4-byte
// tabulation hash (chained modes).
inline uint32_t RollHash(uint32_t h, uint8_t next, uint32_t mask) { return ((h << 5) ^ next) & mask; }
uint32_t TabulationHash(const uint8_t* p, uint32_t mask);

// zyrsDeflateUpdateHash_8u and zyrsDeflateDictionarySet_8u after their checks.
void UpdateHash(const uint8_t* src, uint32_t srcIdx, uint32_t srcLen, int32_t* head,
                uint32_t hashSize, int32_t* prev, uint32_t winSize, bool tabulation);
void SetDictionary(const uint8_t* dict, uint32_t dictLen, int32_t* head, uint32_t hashSize,
                   int32_t* prev, uint8_t* window, uint32_t winSize, bool tabulation);

// ---- Huffman coding ------------------------------------------------------------------------

// The caller's bit accumulator: pending bits (next bit to send in bit 0), their count, and
// the byte index in the destination at which writing continues.
struct BitState {
    uint32_t bits;
    uint32_t count;
    uint32_t index;
};

// From this many entries on, zyrsDeflateHuff_8u takes the table-driven vector path.
inline constexpr uint32_t kVectorHuffMin = 2048;

// Entry-by-entry coder with the 32-bit accumulator, and the vector path; both leave the same
// bytes, pending bits and index. The caller provides room for 48 bits an entry.
void HuffEncodeScalar(const uint8_t* lit, const uint16_t* dist, uint32_t n, BitState& state,
                      const HuffCodeEntry* litCodes, const HuffCodeEntry* distCodes, uint8_t* dst);
void HuffEncodeVector(const uint8_t* lit, const uint16_t* dist, uint32_t n, BitState& state,
                      const HuffCodeEntry* litCodes, const HuffCodeEntry* distCodes, uint8_t* dst);

// ---- Inflate tables ------------------------------------------------------------------------

inline constexpr uint32_t kMaxLitLenLengths = 288;
inline constexpr uint32_t kMaxDistLengths = 30;
// Header words the builder writes.
inline constexpr int kWordKind = 2, kWordMaxLitLen = 8, kWordMaxDist = 9;
inline constexpr uint32_t kKindTwoLevel = 1, kKindSingleLevel = 2;
// Single level: the longest codes that fit, and where the distance entries lie.
inline constexpr int kSingleMaxLitLen = 11, kSingleMaxDist = 10;
inline constexpr uint32_t kTablesOffset = 40;        // bytes from the record's start
inline constexpr uint32_t kDistBaseOffset = 1024;    // from the distance byte entries
// Two level: both roots take 10 bits; every table lives in one cleared area of this size.
inline constexpr int kRootBits = 10;
inline constexpr uint32_t kTwoLevelBytes = 6912;
inline constexpr uint32_t kTwoLevelEntries = kTwoLevelBytes / 2;
inline constexpr uint32_t kDistRootEntry = 1u << kRootBits;      // entry index in the area
inline constexpr uint32_t kSubtablesEntry = 2u << kRootBits;
inline constexpr uint32_t kSubtableAlign = 4;                    // entries; see inflate_table.cpp

// zyrsInflateBuildHuffTable after the pointer and size checks.
ZyrStatus BuildInflateTable(const uint16_t* lens, uint32_t nLitLen, uint32_t nDist,
                            InflateHuffTable* table);

// The validation walk of the builder: true for a complete set and for a single code of
// length 1; an all-zero set only when emptyAllowed. A length above 15 is never a code.
bool LengthsFormCode(const uint16_t* lens, uint32_t n, bool emptyAllowed);

// ---- Inflate -------------------------------------------------------------------------------

// The in/out values of one zyrsInflate_8u call, after its checks.
struct InflateArgs {
    const uint8_t* src;
    int32_t srcLen;
    uint32_t code;       // held bits, next in bit 0
    uint32_t codeBits;   // 0..7
    uint8_t* dst;
    int32_t dstLen;
    int32_t dstIdx;
    int32_t winIdx;
    int32_t mode;
};

// The record words a mode relies on are consistent (the decoder's stand-in for a magic word).
bool InflateContextOk(int32_t mode, uint32_t codeBits, const InflateHuffTable* table);
// Decodes as far as source, room and stream allow. On StatusOk and the two warnings args
// holds the new values; on an error it is unchanged.
ZyrStatus Inflate(InflateArgs& args, InflateHuffTable* table);

// ---- fastest single-pass mode --------------------------------------------------------------

inline constexpr int32_t kFastestLookahead = 261;
inline constexpr uint32_t kFastestDstMargin = 16;   // room a token needs
inline constexpr int32_t kFastestInsertMax = 16;    // longest match whose positions are hashed
inline constexpr uint32_t kBlockHeaderMagic = 0x7A444248;
inline constexpr uint32_t kMaxHeaderBits = 2286;

// zyrsDeflateLZ77FastestGetStat_8u after its checks.
void FastestGetStat(const uint8_t* src, int32_t srcLen, int32_t* head, uint32_t hashSize,
                    uint32_t* litStat, uint32_t* distStat);
// zyrsDeflateLZ77FastestGenHuffTable_8u after its checks.
void FastestGenHuffTable(const uint32_t* litStat, const uint32_t* distStat, int32_t mode,
                         HuffCodeEntry* litCodes, HuffCodeEntry* distCodes);
// zyrsDeflateLZ77FastestPrecompHeader_8u after its pointer and type checks.
ZyrStatus FastestPrecompHeader(int32_t blockType, const HuffCodeEntry* litCodes,
                               const HuffCodeEntry* distCodes, DeflateBlockHeader* header);
// zyrsDeflateLZ77FastestGenHeader_8u after its checks.
ZyrStatus FastestGenHeader(const DeflateBlockHeader* header, int32_t final, int32_t storedLen,
                           uint16_t* code, uint32_t* codeBits, uint8_t* dst, uint32_t dstLen,
                           uint32_t* dstIdx);

struct FastestCall {
    const uint8_t* src;
    int32_t srcLen;
    int32_t srcIdx;          // already rebased
    const uint8_t* window;
    uint32_t winSize;
    int32_t* head;
    uint32_t hashSize;
    const HuffCodeEntry* litCodes;
    const HuffCodeEntry* distCodes;
    uint32_t code;
    uint32_t codeBits;
    uint8_t* dst;
    uint32_t dstLen;
    uint32_t dstIdx;
    int32_t flush;
};
// One zyrsDeflateLZ77Fastest_8u call after its checks; returns StatusOk or StatusDstFull
// and the bytes consumed, with code, codeBits and dstIdx updated in the call record.
ZyrStatus Fastest(FastestCall& call, int32_t& consumed);
// Moves the head entries and srcIdx down when the indexes could come near overflow.
void RebaseHeadIfNeeded(int32_t& srcIdx, int32_t srcLen, int32_t* head, uint32_t hashSize,
                        uint32_t winSize);

}  // namespace zyrdc::deflate
