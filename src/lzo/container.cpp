// container.cpp - the segmented LZO container: up to 32 independently coded streams behind
// a small header, each decoded into its own fixed place of the destination.
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "core/bits.hpp"
#include "lzo/lzo.hpp"

namespace zyrdc::lzo {

namespace {

// Offset of the total length T, and of the first segment size after it.
constexpr size_t kTotalOffset = 3;
constexpr size_t kSizesOffset = 7;

size_t HeaderBytes(uint32_t segments) { return kContainerFixedBytes + 4 * size_t{segments}; }

bool EndsWithMarker(const uint8_t* p) { return std::memcmp(p, kEndMarker, sizeof kEndMarker) == 0; }

// One segment, with the same shortcuts as a whole source: nothing, or a lone end marker,
// decodes to nothing.
ZyrStatus DecodeSegment(const uint8_t* src, size_t srcLen, uint8_t* dst, size_t room, size_t* written) {
    if (srcLen == 0 || (srcLen >= sizeof kEndMarker && EndsWithMarker(src))) {
        *written = 0;
        return StatusOk;
    }
    return DecodePlainChecked<Copies::Wide>(src, srcLen, dst, room, written);
}

}  // namespace

bool IsContainer(const uint8_t* src, size_t srcLen) {
    if (srcLen <= 3 || src[0] != kContainerTag) {
        return false;
    }
    const uint32_t n = src[1];
    if (n < 1 || n > kMaxSegments || src[2] != (n ^ kContainerTag)) {
        return false;
    }
    // The size of segment 0 is read even for n = 1, where those four bytes are already
    // segment data. A source too short to hold them, or whose segment 0 would end past
    // its end, is no container (the test never reads outside the source).
    if (srcLen < kSizesOffset + 4) {
        return false;
    }
    const uint64_t size0 = load_u32le(src + kSizesOffset);
    const uint64_t markerAt = 4 * uint64_t{n} + size0;
    if (srcLen < size0 + kSizesOffset || markerAt + sizeof kEndMarker > srcLen) {
        return false;
    }
    return EndsWithMarker(src + markerAt);
}

ZyrStatus DecodeContainer(const uint8_t* src, size_t srcLen, uint8_t* dst, size_t* written) {
    const uint32_t n = src[1];
    const uint32_t total = load_u32le(src + kTotalOffset);
    const size_t share = total / n;
    uint64_t at = HeaderBytes(n);
    size_t sum = 0;
    ZyrStatus status = StatusOk;
    for (uint32_t i = 0; i < n; ++i) {
        const bool last = i + 1 == n;
        const size_t room = share + (last ? total % n : 0);
        // The last segment is whatever follows the others.
        const uint64_t size = last ? (at <= srcLen ? srcLen - at : 0)
                                   : load_u32le(src + kSizesOffset + 4 * size_t{i});
        size_t got = 0;
        ZyrStatus s = StatusCorruptStream;  // unless the segment lies inside the source
        if (at <= srcLen && size <= srcLen - at) {
            s = DecodeSegment(src + at, static_cast<size_t>(size), dst + i * share, room, &got);
        }
        if (s == StatusOk) {
            sum += got;
        } else {
            status = s;  // the last failure wins; later segments are still decoded
        }
        at += size;
    }
    if (status != StatusOk) {
        return status;
    }
    *written = sum;
    return StatusOk;
}

}  // namespace zyrdc::lzo
