// encode.hpp - internal interface of the LZO1X encoder: the state record's layout, the
// destination bounds and the three coders (used by the C entry points, tests, fuzz harnesses
// and benchmarks).
#pragma once

#include <cstddef>
#include <cstdint>

#include "zyrdc.h"

namespace zyrdc::lzo {

// ---- the state record ------------------------------------------------------------------
// 32-bit little-endian words at fixed offsets, then the tables; no pointers, so a record is
// the same in both builds and may be copied between calls.
inline constexpr uint32_t kEncoderMagic = 0x7A4C5A4F;
inline constexpr size_t kOffMagic = 0, kOffMethod = 4, kOffMaxInput = 8, kOffHashBits = 12;
inline constexpr size_t kStateHeaderBytes = 64;  // the words above, then reserved zeros

inline constexpr uint32_t kFastHashBitsMin = 10, kFastHashBitsMax = 14;
// The chained coder: 2^15 heads of positions (plus one, 0 = empty), then 65536 16-bit
// distances to the previous position of the same hash, indexed by position mod 65536.
inline constexpr uint32_t kHighHashBits = 15;
inline constexpr size_t kHighHeads = size_t{1} << kHighHashBits;
inline constexpr size_t kHighChainEntries = 65536;
inline constexpr size_t kHighStateBytes = kStateHeaderBytes + 4 * kHighHeads + 2 * kHighChainEntries;

// The farthest a match may reach: the far form's 15-bit distance above 16384.
inline constexpr uint32_t kMaxDistance = 49151;
inline constexpr uint32_t kMaxSourceLen = 0x7FFFFFFF;

// Table bits of the single-probe coders for inputs of up to maxInputLen (at least 1) bytes:
// ceil(log2(maxInputLen)) - 2, kept within 10..14.
uint32_t FastHashBits(uint32_t maxInputLen);
// Bytes of the record for a valid method and maxInputLen.
uint32_t StateBytes(int32_t method, uint32_t maxInputLen);
// The capacity Encode requires for n source bytes.
uint64_t EncodeBound(int32_t method, uint64_t n);

// One plain stream of src[0..n) by the single-probe coder, over a table of 2^hashBits
// 32-bit entries that it clears. dst holds at least EncodeBound(LzoMethodFast, n) bytes of
// the cap it is given (copies may use the rest of cap). Returns the bytes written.
size_t EncodeFast(const uint8_t* src, size_t n, uint8_t* dst, size_t cap, uint8_t* table,
                  uint32_t hashBits);
// The same from hash chains with lazy matching; `tables` is the record's area after its
// header (heads, then chain), which it clears.
size_t EncodeHigh(const uint8_t* src, size_t n, uint8_t* dst, size_t cap, uint8_t* tables);
// The segmented container: 2 to 32 single-probe streams behind the header.
size_t EncodeSegmented(const uint8_t* src, size_t n, uint8_t* dst, size_t cap, uint8_t* table,
                       uint32_t hashBits);
// Segments of the container for a source of n bytes.
uint32_t SegmentCount(uint64_t n);

}  // namespace zyrdc::lzo
