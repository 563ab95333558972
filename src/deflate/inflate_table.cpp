// inflate_table.cpp - Inflate decoding tables from the code lengths of a block: validation,
// then a single-level layout for codes of up to 11 (literal/length) and 10 (distance) bits,
// or a two-level layout for longer codes.
//
// Both layouts are indexed by the next bits of the stream taken least significant bit first,
// so a code of n bits with canonical value c sits at index reverse(c, n), repeated every 2^n
// entries.
//
// Single level (kind 2), from byte 40 of the record, with Lmax and Dmax the longest codes:
//   2^Lmax literal/length entries of 16 bits:
//     bits 0-3  code length n
//     literal   bits 4-7 = 0,   bits 8-15 = byte value
//     end       bits 4-7 = 0xF, bits 8-15 = 0
//     length    bit 7 set, bits 4-6 = extra bits (0..5), bits 8-15 = base length - 3
//     286, 287  bits 4-15 = 0 (they read as literal 0)
//   at 2^(Lmax+1) bytes: 2^Dmax distance bytes, extra bits << 4 | n, and 1024 bytes further
//   2^Dmax 16-bit base distances at the same indexes.
//
// Two level (kind 1): one cleared area of 6912 bytes from byte 40, in 16-bit entries:
//   entries    0..1023  literal/length root, indexed by the next 10 bits
//   entries 1024..2047  distance root, likewise
//   entries 2048..      second-level tables, each 2^w entries (w = 1..5) but at least 4,
//                       placed in root-index order, literal/length ones first
//   direct entry        as above for literal/length symbols; for distance symbols
//                       n | extra bits << 4 | symbol << 8 (the decoder knows the bases).
//                       In a second-level table n is the whole code length (11..15).
//   link entry          bits 0-3 = 0 (no code is 0 bits long), bits 4-6 = w,
//                       bits 7-15 = (table entry - 2048) / 4
//   zero                no code has this prefix (only an incomplete code leaves such)
// A decoder looks up the next 10 bits; a link sends it to the table at the given entry,
// indexed by the w stream bits after those 10, and then n bits are used in all.
//
// Why it fits: a root entry links to a table only if codes longer than 10 bits share its
// prefix, and in a canonical code those codes are sorted by length along the code space. A
// prefix whose codes all have one length m holds 2^(m-10) of them in 2^(m-10) entries (4 for
// m = 11); at most four prefixes mix lengths (one per step from 11 to 15), 32 entries each.
// So the literal/length tables take at most 2 x 288 + 128 entries and the distance ones
// 2 x 30 + 128, together 892 of the 1408 entries after the roots.
#include <algorithm>
#include <cstdint>

#include "core/bits.hpp"
#include "core/copy.hpp"
#include "deflate/deflate.hpp"
#include "deflate/tables.hpp"

namespace zyrdc::deflate {

namespace {

struct LengthCounts {
    uint32_t count[kMaxCodeBits + 1] = {};
    int longest = 0;
    int shortest = kMaxCodeBits + 1;
    bool tooLong = false;  // a length above 15 is never a valid code
};

LengthCounts CountLengths(const uint16_t* lens, uint32_t n) {
    LengthCounts c;
    for (uint32_t i = 0; i < n; ++i) {
        const uint32_t len = lens[i];
        if (len == 0) continue;
        if (len > kMaxCodeBits) {
            c.tooLong = true;
            continue;
        }
        ++c.count[len];
        c.longest = std::max(c.longest, static_cast<int>(len));
        c.shortest = std::min(c.shortest, static_cast<int>(len));
    }
    return c;
}

// The Kraft walk: at each length the codes in use double (one more bit) and the codes of that
// length join them; more than 2^n in use means over-subscribed. Complete codes pass, as does
// the one-code set of length 1 that a block with a single distance (or symbol) may carry.
bool CodeIsUsable(const LengthCounts& c, bool emptyAllowed) {
    if (c.tooLong) return false;
    if (c.longest == 0) return emptyAllowed;
    uint32_t used = 0;
    for (int n = c.shortest; n <= c.longest; ++n) {
        used = 2 * used + c.count[n];
        if (used > (1u << n)) return false;
    }
    return used == (1u << c.longest) || (used == 1 && c.longest == 1);
}

}  // namespace

bool LengthsFormCode(const uint16_t* lens, uint32_t n, bool emptyAllowed) {
    return CodeIsUsable(CountLengths(lens, n), emptyAllowed);
}

namespace {

// Canonical codes, reversed into stream order, for the n used symbols.
void StreamOrderCodes(const uint16_t* lens, uint32_t n, const LengthCounts& c, uint16_t* rev) {
    uint32_t next[kMaxCodeBits + 1] = {};
    uint32_t code = 0;
    for (int len = 1; len <= kMaxCodeBits; ++len) {
        code = (code + c.count[len - 1]) << 1;
        next[len] = code;
    }
    for (uint32_t s = 0; s < n; ++s) {
        const uint32_t len = lens[s];
        rev[s] = len == 0 || len > kMaxCodeBits
                     ? 0
                     : static_cast<uint16_t>(ReverseBits(next[len]++, static_cast<int>(len)));
    }
}

uint16_t LitLenEntry(uint32_t symbol, uint32_t n) {
    if (symbol < 256) return static_cast<uint16_t>(n | symbol << 8);
    if (symbol == kEndOfBlock) return static_cast<uint16_t>(0xF0 | n);
    if (symbol <= kEndOfBlock + kNumLengthCodes) {
        const CodeRange& r = kLengthCodes[symbol - kEndOfBlock - 1];
        return static_cast<uint16_t>(0x80 | r.extra << 4 | n | r.base << 8);
    }
    return static_cast<uint16_t>(n);  // 286 and 287
}
static_assert(kLengthCodes[0].base == 0 && kLengthCodes[8].base == 8 && kLengthCodes[28].base == 255);

uint16_t TwoLevelDistEntry(uint32_t symbol, uint32_t n) {
    return static_cast<uint16_t>(n | kDistanceCodes[symbol].extra << 4 | symbol << 8);
}

// Writes entry at index rev and every 2^n entries after it, below size (16-bit entries).
void Spread(uint8_t* table, uint32_t rev, uint32_t n, uint32_t size, uint16_t entry) {
    for (uint32_t i = rev; i < size; i += 1u << n) {
        store_u16le(table + 2 * i, entry);
    }
}

void FillSingleLevel(const uint16_t* lens, uint32_t nLitLen, uint32_t nDist, const LengthCounts& lit,
                     const LengthCounts& dist, uint8_t* tables) {
    uint16_t rev[kMaxLitLenLengths];
    StreamOrderCodes(lens, nLitLen, lit, rev);
    const uint32_t litSize = 1u << lit.longest;
    for (uint32_t s = 0; s < nLitLen; ++s) {
        if (lens[s] != 0) Spread(tables, rev[s], lens[s], litSize, LitLenEntry(s, lens[s]));
    }
    StreamOrderCodes(lens + nLitLen, nDist, dist, rev);
    uint8_t* extraLen = tables + 2 * litSize;
    uint8_t* bases = extraLen + kDistBaseOffset;
    const uint32_t distSize = 1u << dist.longest;
    for (uint32_t s = 0; s < nDist; ++s) {
        const uint32_t n = lens[nLitLen + s];
        if (n == 0) continue;
        const uint8_t entry = static_cast<uint8_t>(kDistanceCodes[s].extra << 4 | n);
        for (uint32_t i = rev[s]; i < distSize; i += 1u << n) {
            extraLen[i] = entry;
            store_u16le(bases + 2 * i, static_cast<uint16_t>(kDistanceCodes[s].base + 1));
        }
    }
}

// One root (at entry `root` of the area) and its second-level tables, allocated from *next.
bool FillTwoLevelPart(const uint16_t* lens, uint32_t n, const LengthCounts& c, bool distance,
                      uint8_t* area, uint32_t root, uint32_t* next) {
    constexpr uint32_t kRootSize = 1u << kRootBits, kRootMask = kRootSize - 1;
    uint16_t rev[kMaxLitLenLengths];
    StreamOrderCodes(lens, n, c, rev);
    uint8_t longest[kRootSize] = {};  // longest code under each root prefix
    for (uint32_t s = 0; s < n; ++s) {
        if (lens[s] > kRootBits) {
            uint8_t& m = longest[rev[s] & kRootMask];
            m = std::max(m, static_cast<uint8_t>(lens[s]));
        }
    }
    for (uint32_t r = 0; r < kRootSize; ++r) {
        if (longest[r] == 0) continue;
        const uint32_t w = longest[r] - kRootBits;
        const uint32_t size = std::max(kSubtableAlign, 1u << w);
        if (*next + size > kTwoLevelEntries) return false;  // cannot happen for a usable code
        const uint32_t link = (*next - kSubtablesEntry) / kSubtableAlign << 7 | w << 4;
        store_u16le(area + 2 * (root + r), static_cast<uint16_t>(link));
        *next += size;
    }
    for (uint32_t s = 0; s < n; ++s) {
        const uint32_t len = lens[s];
        if (len == 0) continue;
        const uint16_t entry = distance ? TwoLevelDistEntry(s, len) : LitLenEntry(s, len);
        if (len <= kRootBits) {
            Spread(area + 2 * root, rev[s], len, kRootSize, entry);
            continue;
        }
        const uint32_t link = load_u16le(area + 2 * (root + (rev[s] & kRootMask)));
        const uint32_t sub = kSubtablesEntry + (link >> 7) * kSubtableAlign;
        Spread(area + 2 * sub, rev[s] >> kRootBits, len - kRootBits, 1u << ((link >> 4) & 7), entry);
    }
    return true;
}

}  // namespace

ZyrStatus BuildInflateTable(const uint16_t* lens, uint32_t nLitLen, uint32_t nDist,
                            InflateHuffTable* table) {
    const LengthCounts lit = CountLengths(lens, nLitLen);
    if (!CodeIsUsable(lit, false)) return StatusBadHuffmanCode;
    const LengthCounts dist = CountLengths(lens + nLitLen, nDist);
    if (!CodeIsUsable(dist, true)) return StatusBadHuffmanCode;

    const bool single = lit.longest <= kSingleMaxLitLen && dist.longest <= kSingleMaxDist;
    table->header[kWordKind] = single ? kKindSingleLevel : kKindTwoLevel;
    table->header[kWordMaxLitLen] = static_cast<uint32_t>(lit.longest);
    table->header[kWordMaxDist] = static_cast<uint32_t>(dist.longest);
    uint8_t* tables = reinterpret_cast<uint8_t*>(table) + kTablesOffset;
    if (single) {
        // The single-level decoder finds the end of a block only through symbol 256.
        if (nLitLen <= kEndOfBlock || lens[kEndOfBlock] == 0) return StatusBadHuffmanCode;
        FillSingleLevel(lens, nLitLen, nDist, lit, dist, tables);
        return StatusOk;
    }
    ZeroBytesKernel(tables, static_cast<int32_t>(kTwoLevelBytes));
    uint32_t next = kSubtablesEntry;
    if (!FillTwoLevelPart(lens, nLitLen, lit, false, tables, 0, &next) ||
        !FillTwoLevelPart(lens + nLitLen, nDist, dist, true, tables, kDistRootEntry, &next)) {
        return StatusBadHuffmanCode;
    }
    return StatusOk;
}

static_assert(sizeof(InflateHuffTable) == kTablesOffset + 4096 + kDistBaseOffset + 2048,
              "the largest single-level record");
static_assert(kTwoLevelBytes <= sizeof(InflateHuffTable) - kTablesOffset);
static_assert(kSubtablesEntry + 2 * 288 + 2 * 30 + 8 * 32 <= kTwoLevelEntries,
              "the second-level bound above");

}  // namespace zyrdc::deflate
