// huff.cpp - Huffman coding of the matcher's literal/length and distance streams: the
// entry-by-entry coder with the caller's 32-bit accumulator, and the table-driven vector path
// for long inputs, which leaves exactly the same bytes, pending bits and index.
#include <emmintrin.h>

#include <algorithm>
#include <cstdint>

#include "core/bits.hpp"
#include "deflate/deflate.hpp"
#include "deflate/tables.hpp"

namespace zyrdc::deflate {

namespace {

// Code lengths run 0..15; the mask keeps a corrupt table from shifting by more than a word.
inline uint32_t CodeLen(const HuffCodeEntry& e) { return e.len & 15u; }

// Distance code of a distance minus 1. Distances above 32768 cannot be coded; they take the
// low byte of the coarse index so that every input stays inside the table.
inline uint32_t DistanceCodeOfAny(uint32_t dm1) {
    return kDistanceCodeOf[dm1 < 256 ? dm1 : 256 + ((dm1 >> 7) & 0xFF)];
}

// The 32-bit accumulator. A value that no longer fits completes the word with its low bits;
// the word is stored and the rest of the value starts the next one. A value that exactly
// fills the word stays until the next append or the final flush.
struct Accumulator {
    uint32_t bits;
    uint32_t count;  // 0..32
    uint32_t index;
    uint8_t* dst;

    void Put(uint32_t v, uint32_t n) {  // n <= 28 (a code with its extra bits)
        const uint64_t t = bits | (uint64_t{v} << count);
        if (count + n > 32) {
            store_u32le(dst + index, static_cast<uint32_t>(t));
            index += 4;
            bits = static_cast<uint32_t>(t >> 32);
            count = count + n - 32;
        } else {
            bits = static_cast<uint32_t>(t);
            count += n;
        }
    }
};

// Whole bytes of the accumulator to the output, two at a time then one, leaving 0..7 bits.
void FlushBytes(Accumulator& acc, BitState& state) {
    while (acc.count >= 16) {
        store_u16le(acc.dst + acc.index, static_cast<uint16_t>(acc.bits));
        acc.index += 2;
        acc.bits >>= 16;
        acc.count -= 16;
    }
    if (acc.count >= 8) {
        acc.dst[acc.index++] = static_cast<uint8_t>(acc.bits);
        acc.bits >>= 8;
        acc.count -= 8;
    }
    state = {acc.bits, acc.count, acc.index};
}

}  // namespace

void HuffEncodeScalar(const uint8_t* lit, const uint16_t* dist, uint32_t n, BitState& state,
                      const HuffCodeEntry* litCodes, const HuffCodeEntry* distCodes, uint8_t* dst) {
    // The accumulator holds 32 bits; a larger incoming count cannot be meant.
    Accumulator acc{state.bits, std::min<uint32_t>(state.count, 32), state.index, dst};
    for (uint32_t i = 0; i < n; ++i) {
        const uint32_t b = lit[i], d = dist[i];
        if (d == 0) {
            acc.Put(litCodes[b].code, CodeLen(litCodes[b]));
            continue;
        }
        const uint32_t c = kLengthCodeOf[b];
        const HuffCodeEntry& lc = litCodes[kEndOfBlock + 1 + c];
        acc.Put(lc.code | ((b - kLengthCodes[c].base) << CodeLen(lc)), CodeLen(lc) + kLengthCodes[c].extra);
        const uint32_t dm1 = d - 1, dc = DistanceCodeOfAny(dm1);
        const uint32_t extra = kDistanceCodes[dc].extra;
        const HuffCodeEntry& e = distCodes[dc];
        const uint32_t extraValue = (dm1 - kDistanceCodes[dc].base) & ((1u << extra) - 1);
        acc.Put(e.code | (extraValue << CodeLen(e)), CodeLen(e) + extra);
    }
    FlushBytes(acc, state);
}

// ---- the vector path ---------------------------------------------------------------------
//
// Per call, two tables join each Huffman code with its extra bits:
//  - symbol part, by literal byte (0..255) or by 256 + length byte: the code, followed for a
//    length by its extra bits, and the total bit count;
//  - distance part, by distance minus 1 below 256 (fully joined, like the lengths), by
//    256 + ((distance - 1) >> 7) above (the code, with the extra bits added per entry), and
//    one empty entry (512) that literals use.
// Every distance code from 4 on starts on a multiple of 2^extra, so its extra bits are the
// low bits of distance - 1 itself: a mask, no base to subtract.
//
// SSE2 computes both table indexes for 8 entries at a time; each entry then becomes one value
// of up to 48 bits, packed with 8-byte stores. Such a store also writes bytes that are not
// complete yet; later stores rewrite them as long as at least 64 more bits follow. The entries
// at the end of the call that have fewer bits after them are packed byte by byte, so nothing is
// ever written past the final index, exactly as the entry-by-entry coder leaves the
// destination.

namespace {

struct DistPart {
    uint32_t val;     // code (joined with its extra bits when emask is 0)
    uint16_t emask;   // extra-bit mask when they are added per entry, else 0
    uint8_t clen;     // code bits, where the per-entry extra bits go
    uint8_t len;      // total bits, extra bits included
};

constexpr uint32_t kDistCoarse = 256, kDistNone = 512;
constexpr uint32_t kSafeTailBits = 64;  // bits that must follow an 8-byte store

static_assert([] {
    for (const CodeRange& r : kDistanceCodes) {
        if (r.base % (1u << r.extra) != 0) return false;
    }
    return true;
}(), "extra bits of a distance are its low bits");

struct CombinedTables {
    uint32_t sym[512];               // value | bit count << 24
    DistPart dist[kDistNone + 1];

    CombinedTables(const HuffCodeEntry* litCodes, const HuffCodeEntry* distCodes) {
        for (uint32_t s = 0; s < 256; ++s) {
            sym[s] = litCodes[s].code | CodeLen(litCodes[s]) << 24;
        }
        for (uint32_t b = 0; b < 256; ++b) {
            const uint32_t c = kLengthCodeOf[b];
            const HuffCodeEntry& e = litCodes[kEndOfBlock + 1 + c];
            sym[256 + b] = (e.code | ((b - kLengthCodes[c].base) << CodeLen(e))) |
                           (CodeLen(e) + kLengthCodes[c].extra) << 24;
        }
        for (uint32_t i = 0; i < kDistNone; ++i) {
            const uint32_t dc = kDistanceCodeOf[i];
            const HuffCodeEntry& e = distCodes[dc];
            const uint32_t extra = kDistanceCodes[dc].extra, mask = (1u << extra) - 1;
            DistPart& p = dist[i];
            p.len = static_cast<uint8_t>(CodeLen(e) + extra);
            if (i < kDistCoarse) {  // the whole distance is known: join the extra bits now
                p.val = e.code | ((i & mask) << CodeLen(e));
                p.emask = 0;
                p.clen = 0;
            } else {
                p.val = e.code;
                p.emask = static_cast<uint16_t>(mask);
                p.clen = static_cast<uint8_t>(CodeLen(e));
            }
        }
        dist[kDistNone] = {0, 0, 0, 0};
    }

    // One entry's bits: the symbol part, then the distance part.
    uint64_t Code(uint32_t symIndex, uint32_t distIndex, uint32_t dm1, uint32_t& len) const {
        const uint32_t s = sym[symIndex];
        const DistPart& d = dist[distIndex];
        len = (s >> 24) + d.len;
        return (s & 0xFFFFFF) | uint64_t{d.val | ((dm1 & d.emask) << d.clen)} << (s >> 24);
    }
    uint64_t Code(uint8_t literal, uint16_t distance, uint32_t& len) const {
        const uint32_t dm1 = (distance - 1u) & 0xFFFF;
        const uint32_t distIndex = distance == 0 ? kDistNone
                                   : dm1 < 256   ? dm1
                                                 : kDistCoarse + ((dm1 >> 7) & 0xFF);
        return Code(literal | (distance != 0 ? 256u : 0u), distIndex, dm1, len);
    }
};

// 8 entries' table indexes and distances minus 1, at once.
inline void Indexes8(const uint8_t* lit, const uint16_t* dist, uint16_t* symIdx, uint16_t* distIdx,
                     uint16_t* dm1) {
    const __m128i zero = _mm_setzero_si128();
    const __m128i d = _mm_loadu_si128(reinterpret_cast<const __m128i*>(dist));
    const __m128i b = _mm_unpacklo_epi8(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(lit)), zero);
    const __m128i isLit = _mm_cmpeq_epi16(d, zero);
    const __m128i m1 = _mm_sub_epi16(d, _mm_set1_epi16(1));
    const __m128i small = _mm_cmpeq_epi16(_mm_srli_epi16(m1, 8), zero);
    const __m128i far = _mm_add_epi16(_mm_and_si128(_mm_srli_epi16(m1, 7), _mm_set1_epi16(0xFF)),
                                      _mm_set1_epi16(kDistCoarse));
    const __m128i match = _mm_or_si128(_mm_and_si128(small, m1), _mm_andnot_si128(small, far));
    _mm_store_si128(reinterpret_cast<__m128i*>(symIdx),
                    _mm_or_si128(b, _mm_andnot_si128(isLit, _mm_set1_epi16(256))));
    _mm_store_si128(
        reinterpret_cast<__m128i*>(distIdx),
        _mm_or_si128(_mm_and_si128(isLit, _mm_set1_epi16(kDistNone)), _mm_andnot_si128(isLit, match)));
    _mm_store_si128(reinterpret_cast<__m128i*>(dm1), m1);
}

}  // namespace

void HuffEncodeVector(const uint8_t* lit, const uint16_t* dist, uint32_t n, BitState& state,
                      const HuffCodeEntry* litCodes, const HuffCodeEntry* distCodes, uint8_t* dst) {
    const CombinedTables t(litCodes, distCodes);
    uint64_t acc = state.bits;
    uint32_t nb = std::min<uint32_t>(state.count, 32);
    uint32_t idx = state.index;
    // Whole pending bytes go out first: the packing below starts with at most 7 bits.
    for (; nb >= 8; nb -= 8) {
        dst[idx++] = static_cast<uint8_t>(acc);
        acc >>= 8;
    }
    // Entries [0, fast) are followed by at least kSafeTailBits.
    uint32_t fast = n, tail = 0;
    while (fast > 0 && tail < kSafeTailBits) {
        uint32_t len;
        --fast;
        t.Code(lit[fast], dist[fast], len);
        tail += len;
    }
    // Whole groups of 8 below the boundary take the fast stores; the rest, fewer than 8 more
    // entries and the tail, are packed byte by byte.
    alignas(16) uint16_t symIdx[8], distIdx[8], dm1[8];
    uint32_t i = 0;
    for (; i + 8 <= fast; i += 8) {
        Indexes8(lit + i, dist + i, symIdx, distIdx, dm1);
        for (uint32_t k = 0; k < 8; ++k) {
            uint32_t len;
            acc |= t.Code(symIdx[k], distIdx[k], dm1[k], len) << nb;  // nb <= 7, value < 2^48
            nb += len;
            store_u64le(dst + idx, acc);
            const uint32_t whole = nb >> 3;
            idx += whole;
            acc >>= whole * 8;
            nb &= 7;
        }
    }
    for (; i < n; ++i) {
        uint32_t len;
        acc |= t.Code(lit[i], dist[i], len) << nb;
        for (nb += len; nb >= 8; nb -= 8) {
            dst[idx++] = static_cast<uint8_t>(acc);
            acc >>= 8;
        }
    }
    state = {static_cast<uint32_t>(acc), nb, idx};
}

}  // namespace zyrdc::deflate
