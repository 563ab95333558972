// decode.cpp - LZSS decoder: tokens read most significant bit first through a 32-bit
// accumulator; matches copied from this call's output and, before it, from a circular
// 32 KB window of earlier output; a match that does not fit waits in the record.
#include <cstddef>
#include <cstdint>

#include "core/copy.hpp"
#include "lzss/lzss.hpp"

namespace zyrdc::lzss {

namespace {

struct Decoder {
    uint8_t* window;
    uint32_t windowPos;   // window index of the byte just before this call's output
    uint8_t* outStart;    // this call's output

    // Writes n bytes of a match at `dist` to op, in increasing order.
    uint8_t* CopyMatch(uint8_t* op, uint32_t dist, uint32_t n) const {
        const auto done = static_cast<uint32_t>(op - outStart);
        if (dist > done) {
            // The first dist - done bytes lie before this call: take them from the window.
            uint32_t from = (windowPos + done - dist) & kWindowMask;
            uint32_t early = dist - done < n ? dist - done : n;
            n -= early;
            while (early > 0) {
                const uint32_t run = early < kWindow - from ? early : kWindow - from;
                CopyBytesKernel(window + from, op, static_cast<int32_t>(run));
                op += run;
                early -= run;
                from = 0;
            }
        }
        if (n == 0) {
            return op;
        }
        // The rest from the output itself; an overlap repeats the pattern.
        const uint8_t* m = op - dist;
        if (dist >= n) {
            CopyBytesKernel(m, op, static_cast<int32_t>(n));
            return op + n;
        }
        for (uint32_t i = 0; i < n; ++i) {
            op[i] = m[i];
        }
        return op + n;
    }
};

// Appends the n bytes at out to the circular window, keeping the last kWindow of them.
void Remember(LzssDecoderFields& d, const uint8_t* out, uint32_t n) {
    const uint32_t keep = n < kWindow ? n : kWindow;
    uint32_t at = (d.windowPos + n - keep) & kWindowMask;
    const uint8_t* from = out + n - keep;
    uint32_t left = keep;
    while (left > 0) {
        const uint32_t run = left < kWindow - at ? left : kWindow - at;
        CopyBytesKernel(from, d.pWindow + at, static_cast<int32_t>(run));
        from += run;
        left -= run;
        at = 0;
    }
    d.windowPos = (d.windowPos + n) & kWindowMask;
    d.windowFill = d.windowFill + keep < kWindow ? d.windowFill + keep : kWindow;
    d.totalOut += n;
}

}  // namespace

void InitDecoder(LzssState* state) {
    LzssDecoderFields& d = state->fields.dec;
    d.windowPos = 0;
    d.windowFill = 0;
    d.totalOut = 0;
    d.pWindow = state->history;
    d.bitCount = 0;
    d.bitAcc = 0;
    d.pendingLength = 0;
    d.pendingDistance = 0;
}

ZyrStatus Decode(const uint8_t** ppSrc, int32_t* pSrcLen, uint8_t** ppDst, int32_t* pDstLen,
                 LzssState* state) {
    LzssDecoderFields& d = state->fields.dec;
    const uint8_t* src = *ppSrc;
    const uint8_t* const srcEnd = src + (*pSrcLen > 0 ? *pSrcLen : 0);
    uint8_t* const out = *ppDst;
    uint8_t* op = out;
    auto room = static_cast<uint32_t>(*pDstLen);
    const Decoder dec{d.pWindow, d.windowPos, out};
    uint32_t acc = d.bitAcc;
    int count = d.bitCount;
    ZyrStatus status = StatusOk;

    if (d.pendingLength > 0) {
        const auto pending = static_cast<uint32_t>(d.pendingLength);
        const uint32_t now = pending < room ? pending : room;
        op = dec.CopyMatch(op, static_cast<uint32_t>(d.pendingDistance), now);
        room -= now;
        d.pendingLength = static_cast<int32_t>(pending - now);
        if (room == 0) {
            status = StatusDstFull;
        }
    }
    while (status == StatusOk) {
        // At most 31 bits held: a refill stops once 24 are there.
        while (count < kMatchBits && src < srcEnd) {
            acc |= uint32_t{*src++} << (kMatchBits - count);
            count += 8;
        }
        if (acc >> 31) {
            if (count < kLiteralBits) {
                break;  // the source is used up
            }
            *op++ = static_cast<uint8_t>(acc >> 23);
            acc <<= kLiteralBits;
            count -= kLiteralBits;
            --room;
        } else {
            if (count < kMatchBits) {
                break;
            }
            const uint32_t dist = (acc >> 16) & kWindowMask;
            const uint32_t len = ((acc >> 8) & 0xFF) + kMinMatch;
            acc <<= kMatchBits;
            count -= kMatchBits;
            const uint32_t now = len < room ? len : room;
            op = dec.CopyMatch(op, dist, now);
            room -= now;
            if (now < len) {
                d.pendingLength = static_cast<int32_t>(len - now);
                d.pendingDistance = static_cast<int32_t>(dist);
            }
        }
        if (room == 0) {
            status = StatusDstFull;
        }
    }

    Remember(d, out, static_cast<uint32_t>(op - out));
    d.bitAcc = acc;
    d.bitCount = count;
    *pSrcLen -= static_cast<int32_t>(src - *ppSrc);
    *ppSrc = src;
    *ppDst = op;
    *pDstLen = static_cast<int32_t>(room);
    return status;
}

}  // namespace zyrdc::lzss
