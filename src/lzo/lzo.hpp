// lzo.hpp - internal interface of the LZO1X decoders (used by the C entry points, tests and
// benchmarks).
#pragma once

#include <cstddef>
#include <cstdint>

#include "zyrdc.h"

namespace zyrdc::lzo {

// The three bytes that end every stream: a far match whose distance is exactly 16384.
inline constexpr uint8_t kEndMarker[3] = {0x11, 0x00, 0x00};

// Segmented container: "U", n, n ^ 0x55, the total length T, the coded sizes of segments
// 0 .. n-2, then the segments. Segment i decodes to offset i * (T / n).
inline constexpr uint8_t kContainerTag = 0x55;
inline constexpr uint32_t kMaxSegments = 32;
inline constexpr size_t kContainerFixedBytes = 3;  // tag, n, n ^ tag; then 4 bytes per segment

// How a plain-stream decoder copies. Every variant writes the same bytes below the decoded
// length; the wide ones may store up to kWideCopySlack - 1 bytes past the end of a copy while
// that much room is left in the destination.
enum class Copies {
    Wide,      // 16-byte units, overshooting where the destination has room
    Exact,     // wide units that never store past the end of a copy
    Bytewise,  // one byte at a time, the reference twin
};

// Decodes a plain stream (one or more concatenated streams) of srcLen bytes into dst, which
// holds cap bytes. Every read and write is checked: any violation returns
// StatusCorruptStream. On success stores the decoded length in *written.
template <Copies kCopies>
ZyrStatus DecodePlainChecked(const uint8_t* src, size_t srcLen, uint8_t* dst, size_t cap,
                             size_t* written);

// The same instruction set with no checks at all, for streams the caller trusts and a
// destination the caller knows to be large enough; never stores past the decoded length.
// Returns the decoded length.
size_t DecodePlainTrusted(const uint8_t* src, size_t srcLen, uint8_t* dst);

// The container test of the entry sequence: every header condition holds and segment 0
// ends with the end marker. A source that fails it is decoded as a plain stream.
bool IsContainer(const uint8_t* src, size_t srcLen);

// Decodes every segment of a source that passed IsContainer into its fixed place in dst
// (which must hold T bytes), with bounds checks. Returns the status of the last failing
// segment, or StatusOk with the sum of the segments' decoded lengths in *written.
ZyrStatus DecodeContainer(const uint8_t* src, size_t srcLen, uint8_t* dst, size_t* written);

}  // namespace zyrdc::lzo
