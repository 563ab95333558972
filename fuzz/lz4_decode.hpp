// lz4_decode.hpp - the body of the three LZ4 decoding harnesses, one per core. The input's
// first four bytes choose the capacity and the history size; the rest is the block, which
// ends where the input's allocation ends, and the destination ends where its own does, so
// that any read or write past either is caught. Checks: the status and count invariants,
// the exported (fast) path against the careful path, nothing written past the count by the
// careful path, and no byte read that is not history.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "lz4/lz4.hpp"
#include "zyrdc.h"

namespace lz4_fuzz {

using zyrdc::lz4::Core;

inline void Check(bool ok) {
    if (!ok) __builtin_trap();
}

struct Run {
    zyrdc::lz4::DecodeResult r;
    std::vector<uint8_t> buf;  // the whole destination buffer after the call
};

inline int DecodeOneCore(Core core, const uint8_t* data, size_t size) {
    if (size < 5) return 0;
    // Sizes up to a few KiB reach every path (the margins are 64 bytes) and keep runs fast.
    const int32_t capacity = 1 + (data[0] | data[1] << 8) % 8192;
    // At least one byte of history for the dictionary cores: without any, the exported
    // function runs the plain core instead.
    const int32_t history = (data[2] | data[3] << 8) % 4096 + (core != Core::Plain ? 1 : 0);
    const uint8_t* src = data + 4;
    const auto srcLen = static_cast<int32_t>(size - 4);
    // Separate: the buffer holds `history` placeholder bytes (never read), then 17 bytes of
    // earlier output, then the write start. Otherwise `history` bytes then the write start;
    // they are history only for the prefix core.
    const int32_t earlier = core == Core::Separate ? 17 : 0;
    const int32_t dstIdx = history + earlier;
    std::vector<uint8_t> dict(static_cast<size_t>(history));
    for (size_t i = 0; i < dict.size(); ++i) dict[i] = static_cast<uint8_t>(i * 31 + 7);

    // unread: fill of the bytes that must never be read; fill: of the bytes to be written.
    auto run = [&](bool fast, uint8_t unread, uint8_t fill) {
        Run out;
        out.buf.assign(static_cast<size_t>(dstIdx + capacity), fill);
        uint8_t* dst = out.buf.data();
        const bool prefix = core == Core::Prefix;
        std::fill(dst, dst + history, prefix ? 0 : unread);
        if (prefix) std::copy(dict.begin(), dict.end(), dst);
        std::fill(dst + history, dst + dstIdx, 0x5A);
        if (fast) {
            int32_t consumed = srcLen, written = capacity;
            const uint8_t* d = core == Core::Plain ? nullptr : core == Core::Prefix ? dst : dict.data();
            out.r.status = zyrsDecodeLZ4Dict_8u(src, &consumed, dst, dstIdx, &written, d, history);
            out.r.consumed = consumed;
            out.r.written = written;
        } else {
            const int32_t idx = core == Core::Separate ? dstIdx : 0;
            out.r = zyrdc::lz4::Decode(core, {src, srcLen, dst + dstIdx, capacity, idx, dict.data(), history}, false);
        }
        return out;
    };
    const Run careful = run(false, 0x00, 0x00);
    const Run fast = run(true, 0x00, 0x00);
    const ZyrStatus s = careful.r.status;
    Check(s == StatusOk || s == StatusSrcExhausted || s == StatusDstFull || s == StatusError ||
          s == StatusBadSize);
    Check(fast.r.status == s);
    const bool counted = s >= 0;
    if (counted) {
        Check(careful.r.consumed >= 0 && careful.r.consumed <= srcLen);
        Check(careful.r.written >= 0 && careful.r.written <= capacity);
        Check(fast.r.consumed == careful.r.consumed && fast.r.written == careful.r.written);
    }
    // The careful path writes nothing past the count.
    const size_t end = static_cast<size_t>(dstIdx) + static_cast<size_t>(counted ? careful.r.written : 0);
    if (counted) {
        Check(std::all_of(careful.buf.begin() + static_cast<ptrdiff_t>(end), careful.buf.end(),
                          [](uint8_t b) { return b == 0; }));
    }
    // Bytes that are no history change nothing in the result.
    const Run other = run(false, 0xFF, 0x00);
    Check(other.r.status == s && std::equal(careful.buf.begin() + dstIdx, careful.buf.end(),
                                            other.buf.begin() + dstIdx));
    // A differently filled destination gives the same output unless a match of offset 0 kept
    // the old bytes; then the fast path may differ too (its wide copies leave bytes there).
    const Run refill = run(false, 0x00, 0xFF);
    if (counted && std::equal(careful.buf.begin() + dstIdx, careful.buf.begin() + static_cast<ptrdiff_t>(end),
                              refill.buf.begin() + dstIdx)) {
        Check(std::equal(careful.buf.begin(), careful.buf.begin() + static_cast<ptrdiff_t>(end), fast.buf.begin()));
    }
    return 0;
}

}  // namespace lz4_fuzz
