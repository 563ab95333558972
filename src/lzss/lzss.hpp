// lzss.hpp - internal interface of the LZSS codec (used by the C entry points, tests and
// benchmarks).
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "zyrdc.h"

namespace zyrdc::lzss {

inline constexpr uint32_t kWindow = 32768;          // distances 1..kWindow - 1
inline constexpr uint32_t kWindowMask = kWindow - 1;
inline constexpr int32_t kMinMatch = 3;
inline constexpr int32_t kMaxMatch = 258;           // 3 + 255: the 8-bit length field
inline constexpr int32_t kMaxCandidates = 16;       // chain entries tried per position
inline constexpr uint32_t kHistoryBytes = 65536;
// A head or chain entry that lies more than a window back from every position, so that it
// never yields a match.
inline constexpr int32_t kNoPosition = -32768;
inline constexpr int kLiteralBits = 9;
inline constexpr int kMatchBits = 24;

static_assert(sizeof(LzssState::chain) / sizeof(int32_t) == kWindow &&
              sizeof(LzssState::head) / sizeof(int32_t) == kWindow &&
              sizeof(LzssState::history) == kHistoryBytes);
// The decoder keeps its window at the start of the history buffer.
static_assert(sizeof(LzssState::history) >= kWindow);

// Tabulation hash of three bytes: T0[b0] ^ T1[b1] ^ T2[b2], 15 bits.
using HashTables = std::array<uint16_t, 3 * 256>;
extern const HashTables kHashTables;

inline uint32_t Hash3(const uint16_t* tables, const uint8_t* p) {
    return static_cast<uint32_t>(tables[p[0]] ^ tables[256 + p[1]] ^ tables[512 + p[2]]);
}

void InitEncoder(LzssState* state);
void InitDecoder(LzssState* state);

// The data calls behind the entry points, after their argument checks: all pointers are
// valid, *dstLen >= 1 and (encoder) *srcLen >= 1.
ZyrStatus Encode(const uint8_t** src, int32_t* srcLen, uint8_t** dst, int32_t* dstLen, LzssState* state);
ZyrStatus Flush(uint8_t** dst, int32_t* dstLen, LzssState* state);
ZyrStatus Decode(const uint8_t** src, int32_t* srcLen, uint8_t** dst, int32_t* dstLen, LzssState* state);

}  // namespace zyrdc::lzss
