// encode.cpp - LZSS encoder: hash chains over a 32 KB window, greedy matching, tokens packed
// most significant bit first through a 64-bit accumulator, history kept across calls.
//
// Positions count input bytes from the start of the stream, modulo 2^32 (the record keeps
// them as signed 32-bit values). A position's bytes are read from the current call's source
// when it lies in this call, and from the history buffer otherwise; the history also holds a
// copy of the first bytes of the call's source right behind the older bytes, so that a
// match starting before the call may run on into it.
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "core/bits.hpp"
#include "core/copy.hpp"
#include "lzss/lzss.hpp"

namespace zyrdc::lzss {

namespace {

// How far past a call's start a match from before the call can reach.
constexpr uint32_t kLookahead = kMaxMatch;
// Room the history keeps behind the current call's start for that copy.
constexpr uint32_t kHistoryLimit = kHistoryBytes - kLookahead;  // 65278
static_assert(kWindow + kLookahead < kHistoryLimit);

// Pending output bits, left-aligned in 64 bits; a token adds at most 24 of them.
struct BitWriter {
    uint64_t acc;
    int count;

    void Put(uint32_t value, int bits) {
        acc |= uint64_t{value} << (64 - count - bits);
        count += bits;
    }
};

// Length of the common prefix of a and b, at most limit: four bytes at a time, then bytes.
inline int32_t MatchLength(const uint8_t* a, const uint8_t* b, int32_t limit) {
    int32_t n = 0;
    while (n + 4 <= limit) {
        const uint32_t diff = load_u32le(a + n) ^ load_u32le(b + n);
        if (diff != 0) {
            return n + std::countr_zero(diff) / 8;
        }
        n += 4;
    }
    while (n < limit && a[n] == b[n]) {
        ++n;
    }
    return n;
}

struct Encoder {
    const uint16_t* tables;
    int32_t* chain;
    int32_t* head;
    const uint8_t* src;    // this call's input
    const uint8_t* older;  // the history byte of the call's first position
    uint32_t start;        // position of src[0]

    void Insert(uint32_t offset) {
        const uint32_t h = Hash3(tables, src + offset);
        const uint32_t pos = start + offset;
        chain[pos & kWindowMask] = head[h];
        head[h] = static_cast<int32_t>(pos);
    }

    // The bytes of the position `dist` before src + offset.
    const uint8_t* Back(uint32_t offset, uint32_t dist) const {
        return dist <= offset ? src + (offset - dist) : older - (dist - offset);
    }

    // Inserts the position at `offset` and looks for the longest match of at most `limit`
    // bytes among the last kMaxCandidates positions of its chain; returns its length (below
    // kMinMatch for none) and distance.
    int32_t Search(uint32_t offset, int32_t limit, uint32_t* distance) {
        const uint32_t h = Hash3(tables, src + offset);
        const uint32_t pos = start + offset;
        int32_t candidate = head[h];
        chain[pos & kWindowMask] = candidate;
        head[h] = static_cast<int32_t>(pos);
        const uint8_t* cur = src + offset;
        int32_t best = kMinMatch - 1;
        if (limit < kMinMatch) {
            return best;
        }
        for (int tries = 0; tries < kMaxCandidates; ++tries) {
            // Modulo 2^32 a distance is right for any position within the window; the
            // initial entries and anything older come out at kWindow or more.
            const uint32_t dist = pos - static_cast<uint32_t>(candidate);
            if (dist - 1 >= kWindow - 1) {
                break;
            }
            const uint8_t* c = Back(offset, dist);
            // Only a match longer than `best` counts, so the two bytes ending just past
            // it decide most candidates at once.
            if (c[best] == cur[best] && c[best - 1] == cur[best - 1]) {
                const int32_t len = MatchLength(c, cur, limit);
                if (len > best) {
                    best = len;
                    *distance = dist;
                    if (best >= limit) {
                        break;
                    }
                }
            }
            candidate = chain[static_cast<uint32_t>(candidate) & kWindowMask];
        }
        return best;
    }
};

// Keeps the history right for the next call: the bytes just consumed go behind the older
// ones, or, when that would crowd the room kept for the next call's lookahead copy, the last
// kWindow positions move to the front of the buffer.
void KeepHistory(LzssEncoderFields& e, const uint8_t* src, uint32_t consumed, uint32_t copied) {
    uint8_t* const hist = e.pHistory;
    const uint32_t start = static_cast<uint32_t>(e.position);
    const uint32_t at = start + static_cast<uint32_t>(e.historyDisp);  // index of `start`
    const uint32_t next = start + consumed;
    if (at + consumed <= kHistoryLimit) {
        if (consumed > copied) {
            CopyBytesKernel(src + copied, hist + at + copied, static_cast<int32_t>(consumed - copied));
        }
    } else if (consumed >= kWindow) {
        CopyBytesKernel(src + consumed - kWindow, hist, static_cast<int32_t>(kWindow));
    } else {
        // at > kHistoryLimit - consumed > kWindow - consumed: enough older bytes exist.
        // Source and destination may overlap here, hence memmove.
        const uint32_t keep = kWindow - consumed;
        std::memmove(hist, hist + at - keep, keep);
        CopyBytesKernel(src, hist + keep, static_cast<int32_t>(consumed));
    }
    if (at + consumed > kHistoryLimit) {
        e.historyDisp = static_cast<int32_t>(kWindow - next);
    }
    e.position = static_cast<int32_t>(next);
}

}  // namespace

void InitEncoder(LzssState* state) {
    LzssEncoderFields& e = state->fields.enc;
    e.pHashTables = kHashTables.data();
    e.pChain = state->chain;
    e.pHead = state->head;
    e.pHistory = state->history;
    e.historyDisp = 0;
    e.position = 0;
    e.bitCount = 0;
    e.bitAcc[0] = 0;
    e.bitAcc[1] = 0;
    for (uint32_t i = 0; i < kWindow; ++i) {
        state->chain[i] = kNoPosition;
        state->head[i] = kNoPosition;
    }
}

ZyrStatus Encode(const uint8_t** ppSrc, int32_t* pSrcLen, uint8_t** ppDst, int32_t* pDstLen,
                 LzssState* state) {
    LzssEncoderFields& e = state->fields.enc;
    const uint8_t* const src = *ppSrc;
    const auto end = static_cast<uint32_t>(*pSrcLen);
    uint8_t* dst = *ppDst;
    int32_t room = *pDstLen;

    const uint32_t start = static_cast<uint32_t>(e.position);
    uint8_t* const older = e.pHistory + (start + static_cast<uint32_t>(e.historyDisp));
    const uint32_t copied = end < kLookahead ? end : kLookahead;
    CopyBytesKernel(src, older, static_cast<int32_t>(copied));

    Encoder enc{e.pHashTables, e.pChain, e.pHead, src, older, start};
    BitWriter bits{(uint64_t{e.bitAcc[0]} << 32) | e.bitAcc[1], e.bitCount};
    ZyrStatus status = StatusOk;
    uint32_t p = 0;
    while (p < end) {
        // Bits left by earlier calls that ended on a full destination may still be pending;
        // make room for the longest token first.
        while (bits.count > 64 - kMatchBits && room > 0) {
            *dst++ = static_cast<uint8_t>(bits.acc >> 56);
            bits.acc <<= 8;
            bits.count -= 8;
            --room;
        }
        if (room == 0) {
            status = StatusDstFull;
            break;
        }
        uint32_t dist = 0;
        int32_t len = 0;
        if (p + 2 < end) {
            const int32_t left = static_cast<int32_t>(end - 2 - p < kMaxMatch ? end - 2 - p : kMaxMatch);
            len = enc.Search(p, left, &dist);
        }
        if (len >= kMinMatch) {
            bits.Put((dist << 8) | static_cast<uint32_t>(len - kMinMatch), kMatchBits);
            for (uint32_t q = p + 1; q < p + static_cast<uint32_t>(len); ++q) {
                enc.Insert(q);
            }
            p += static_cast<uint32_t>(len);
        } else {
            bits.Put(0x100u | src[p], kLiteralBits);
            ++p;
        }
        while (bits.count >= 8) {
            *dst++ = static_cast<uint8_t>(bits.acc >> 56);
            bits.acc <<= 8;
            bits.count -= 8;
            if (--room == 0) {
                break;
            }
        }
        if (room == 0) {
            status = StatusDstFull;  // the token that filled it counts as consumed
            break;
        }
    }

    KeepHistory(e, src, p, copied);
    e.bitCount = bits.count;
    e.bitAcc[0] = static_cast<uint32_t>(bits.acc >> 32);
    e.bitAcc[1] = static_cast<uint32_t>(bits.acc);
    *ppSrc = src + p;
    *pSrcLen -= static_cast<int32_t>(p);
    *ppDst = dst;
    *pDstLen = room;
    return status;
}

ZyrStatus Flush(uint8_t** ppDst, int32_t* pDstLen, LzssState* state) {
    LzssEncoderFields& e = state->fields.enc;
    if (e.bitCount < 1) {
        return StatusOk;
    }
    uint64_t acc = (uint64_t{e.bitAcc[0]} << 32) | e.bitAcc[1];
    int count = e.bitCount;
    uint8_t* dst = *ppDst;
    int32_t room = *pDstLen;
    ZyrStatus status = StatusOk;
    while (count > 0) {
        *dst++ = static_cast<uint8_t>(acc >> 56);
        acc <<= 8;
        count -= 8;
        if (--room == 0) {
            status = StatusDstFull;
            break;
        }
    }
    if (status == StatusDstFull) {
        // Only what was not written stays; after an Ok the bits stay as they were.
        e.bitCount = count > 0 ? count : 0;
        e.bitAcc[0] = static_cast<uint32_t>(acc >> 32);
        e.bitAcc[1] = static_cast<uint32_t>(acc);
    }
    *ppDst = dst;
    *pDstLen = room;
    return status;
}

}  // namespace zyrdc::lzss
