// hc.hpp - internal interface of the high-compression LZ4 encoders (hash chains over a
// record of the caller's, greedy, lazy and optimal parsing) and of the dictionary encoders
// (the fast schedule over the 16384-byte table, with matches into a dictionary anywhere in
// memory).
#pragma once

#include <cstdint>

#include "lz4/lz4.hpp"

namespace zyrdc::lz4 {

// ---- high compression -----------------------------------------------------------------

// The record: 32-bit little-endian words at fixed offsets and no pointer, so it has the same
// size and bytes in both builds and may be copied between calls. Positions are virtual:
// index i of the current buffer is position base + i.
inline constexpr uint32_t kHcMagic = 0x7A344843;
inline constexpr int32_t kHcRecordBytes = 328512;
inline constexpr uint32_t kHcOffMagic = 0;
inline constexpr uint32_t kHcOffNextToUpdate = 4;  // first position not yet in the chains
inline constexpr uint32_t kHcOffBase = 8;          // position of index 0 of the buffer
inline constexpr uint32_t kHcOffEnd = 12;          // position after the last consumed byte
inline constexpr uint32_t kHcOffContinuable = 16;  // 1 after a linked block that completed
inline constexpr uint32_t kHcOffHead = 64;         // 32768 positions by hash (0: none)
inline constexpr uint32_t kHcOffChain = 131136;    // 65536 distances back (0: none)
inline constexpr uint32_t kHcOffWork = 262208;     // the optimal parser's cells
inline constexpr uint32_t kHcFirstPosition = 65536;
// Positions stay below this; a block that would pass it starts the record afresh.
inline constexpr uint32_t kHcPositionCeiling = 0x7FFF0000;

enum class Parser { Greedy, Lazy, Optimal };
struct HcLevel {
    Parser parser;
    uint32_t candidates;  // chain entries visited per search
    uint32_t nice;        // a match this long ends the search
    uint32_t lazySteps;
};
inline constexpr int kHcLevels = 12;
const HcLevel& HcLevelOf(int level);  // level 1..12

void HcInit(uint8_t* record);
bool HcHasMagic(const uint8_t* record);

// Codes buf[srcIdx, srcIdx + srcLen) into at most `capacity` bytes. `linked` (the
// DictLimit form): earlier bytes from dictLimit on are history and the chains carry over
// from a call that ended where this one starts; otherwise the block stands alone.
// `candidateByCandidate` walks runs one candidate at a time (the same blocks, slower; for
// tests of the shortcut).
EncodeResult EncodeHc(uint8_t* record, const uint8_t* buf, int32_t srcIdx, int32_t srcLen,
                      int32_t dictLimit, bool linked, uint8_t* dst, int32_t capacity, int level,
                      bool candidateByCandidate = false);

// ---- dictionary -------------------------------------------------------------------------

// The dictionary's last 64 KiB are positions 0 .. D - 1, source byte i is position D + i.
inline constexpr int32_t kDictWindow = 65536;

void DictTableClear(uint8_t* table);
// Clears the table and stores every dictionary position that has five bytes to hash.
void LoadDictionary(const uint8_t* dict, int32_t dictLen, uint8_t* table);
// `capacity` below 0: unbounded (the caller holds the worst case). `dict` null or
// `dictLen` 0: no dictionary.
EncodeResult EncodeWithDictionary(const uint8_t* src, int32_t srcLen, uint8_t* dst, int32_t capacity,
                                  uint8_t* table, const uint8_t* dict, int32_t dictLen);

}  // namespace zyrdc::lz4
