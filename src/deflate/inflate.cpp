// inflate.cpp - the resumable raw Deflate decoder.
//
// Decoding goes in units, each taken whole or not at all: a block header (for a dynamic
// block everything up to its last code length), a literal, the end-of-block code, a length
// with its distance and all their extra bits, a stored byte. Bits come from a 64-bit
// accumulator filled from the source; the bytes loaded but not used are given back on
// return, and the bits of the last byte that was partly used stay with the caller. A unit
// that does not complete leaves the accumulator as it was, so every split of source and
// destination ends in the same place as one call.
//
// Two paths share the unit decoders. The careful one loads the accumulator a byte at a time
// and tests before each unit that its bits are there. The quick one runs while at least 8
// source bytes lie beyond the read position and kQuickRoom bytes of room are left: it loads
// 8 bytes at once (so at least 56 bits are always there, more than the 52 of the longest
// unit), writes matches in 16-byte stores and tests nothing but the data.
#include <emmintrin.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>

#include "core/bits.hpp"
#include "deflate/deflate.hpp"
#include "deflate/tables.hpp"

namespace zyrdc::deflate {

namespace {

constexpr int32_t kQuickSrc = 8;                     // one 8-byte load
constexpr int32_t kQuickRoom = kMaxMatch + 16;       // a match and the widest store past it
constexpr uint32_t kFixedLitBits = 9, kFixedDistBits = 5;
constexpr uint32_t kCodeLenBits = 7;                 // longest code of the code-length code
constexpr int kNumCodeLenSymbols = 19;
constexpr uint8_t kCodeLenOrder[kNumCodeLenSymbols] = {16, 17, 18, 0, 8,  7, 9,  6, 10, 5,
                                                       11, 4,  12, 3, 13, 2, 14, 1, 15};
constexpr uint32_t kMaxStoredLen = 65535;
constexpr uint32_t kMaxDistance = 32768;

// ---- the fixed code --------------------------------------------------------------------

constexpr uint32_t FixedLength(uint32_t s) { return s < 144 ? 8 : s < 256 ? 9 : s < 280 ? 7 : 8; }

constexpr uint32_t ReverseConst(uint32_t v, uint32_t n) {
    uint32_t r = 0;
    for (uint32_t i = 0; i < n; ++i) r |= ((v >> i) & 1) << (n - 1 - i);
    return r;
}

constexpr uint16_t LitLenEntry(uint32_t s, uint32_t n) {
    if (s < 256) return static_cast<uint16_t>(n | s << 8);
    if (s == kEndOfBlock) return static_cast<uint16_t>(0xF0 | n);
    if (s < kEndOfBlock + 1 + kNumLengthCodes) {
        const CodeRange r = kLengthCodes[s - kEndOfBlock - 1];
        return static_cast<uint16_t>(0x80 | r.extra << 4 | n | r.base << 8);
    }
    return 0;  // 286 and 287 have codes but no meaning: invalid
}

// The fixed literal/length code in the single-level format, indexed by the next 9 bits.
constexpr std::array<uint16_t, 512> MakeFixedLit() {
    std::array<uint16_t, 512> t{};
    uint32_t count[16] = {}, next[16] = {};
    for (uint32_t s = 0; s < 288; ++s) ++count[FixedLength(s)];
    for (uint32_t n = 1, code = 0; n < 16; ++n) next[n] = code = (code + count[n - 1]) << 1;
    for (uint32_t s = 0; s < 288; ++s) {
        const uint32_t n = FixedLength(s), rev = ReverseConst(next[n]++, n);
        for (uint32_t i = rev; i < 512; i += 1u << n) t[i] = LitLenEntry(s, n);
    }
    return t;
}
constexpr auto kFixedLit = MakeFixedLit();
static_assert(kFixedLit[0] == (0xF0 | 7));  // 0000000: end of block

// The fixed distance code by the next 5 bits: extra bits << 4 | 5, and the base distance;
// codes 30 and 31 stay 0 (invalid).
struct FixedDist {
    std::array<uint8_t, 32> lenExtra{};
    std::array<uint16_t, 32> base{};
};
constexpr FixedDist MakeFixedDist() {
    FixedDist t{};
    for (uint32_t c = 0; c < kNumDist; ++c) {
        const uint32_t rev = ReverseConst(c, kFixedDistBits);
        t.lenExtra[rev] = static_cast<uint8_t>(kDistanceCodes[c].extra << 4 | kFixedDistBits);
        t.base[rev] = static_cast<uint16_t>(kDistanceCodes[c].base + 1);
    }
    return t;
}
constexpr FixedDist kFixedDist = MakeFixedDist();

// ---- units --------------------------------------------------------------------------------

enum class Unit { Literal, Match, End, Wait, Corrupt };

struct Token {
    uint32_t bits;    // bits the unit takes
    uint32_t value;   // literal byte, or match length
    uint32_t dist;    // match distance
};

enum class TableKind { Single, TwoLevel };

// The tables of the block being decoded. Single covers the fixed code and the single-level
// layout; TwoLevel the layout with 10-bit roots.
struct Tables {
    const uint16_t* lit;       // single: 2^litBits entries; two-level: the whole area
    uint32_t litMask;
    const uint8_t* distLenExtra;
    const uint16_t* distBase;
    uint32_t distMask;
    bool haveDist;
};

inline uint32_t LowBits(uint64_t v, uint32_t n) { return static_cast<uint32_t>(v & ((uint64_t{1} << n) - 1)); }

// Looks up a two-level code: the root at `root`, a link to a table inside the area.
// Returns the final entry and its code length in n, 0 on a code no symbol has.
inline uint32_t TwoLevelLookup(const uint16_t* area, uint32_t root, uint64_t acc, uint32_t& n) {
    uint32_t e = area[root + LowBits(acc, kRootBits)];
    n = e & 15;
    if (n != 0) return n <= static_cast<uint32_t>(kRootBits) ? e : (n = 0);
    const uint32_t w = (e >> 4) & 7;
    if (w == 0) return 0;
    const uint32_t sub = kSubtablesEntry + kSubtableAlign * (e >> 7);
    if (sub + (1u << w) > kTwoLevelEntries) return n = 0;
    e = area[sub + LowBits(acc >> kRootBits, w)];
    n = e & 15;
    if (n > kRootBits + w) n = 0;
    return n == 0 ? 0 : e;
}

// Decodes the next Huffman-coded unit from acc, which holds `avail` bits (with zeros above
// them): the careful path's unit.
template <TableKind kKind>
inline Unit DecodeUnit(const Tables& t, uint64_t acc, uint32_t avail, Token& tok) {
    uint32_t e, n;
    if constexpr (kKind == TableKind::Single) {
        e = t.lit[acc & t.litMask];
        n = e & 15;
        if (n == 0 || n > 15) return Unit::Corrupt;
        // An entry longer than the table is wide cannot come from the builder.
        if ((uint32_t{1} << n) > t.litMask + 1) return Unit::Corrupt;
    } else {
        e = TwoLevelLookup(t.lit, 0, acc, n);
        if (n == 0) return Unit::Corrupt;
    }
    if (n > avail) return Unit::Wait;
    const uint32_t kind = (e >> 4) & 0xF;
    if (kind == 0) {
        tok = {n, e >> 8, 0};
        return Unit::Literal;
    }
    if (kind == 0xF) {
        tok = {n, 0, 0};
        return Unit::End;
    }
    if ((kind & 8) == 0) return Unit::Corrupt;
    // A length and its extra bits.
    const uint32_t lenExtra = kind & 7;
    uint32_t used = n + lenExtra;
    if (used > avail) return Unit::Wait;
    const uint32_t length = (e >> 8) + kMinMatch + LowBits(acc >> n, lenExtra);
    if (length > kMaxMatch) return Unit::Corrupt;
    if (!t.haveDist) return Unit::Corrupt;
    // The distance code.
    const uint64_t rest = acc >> used;
    uint32_t dn, dExtra, base;
    if constexpr (kKind == TableKind::Single) {
        const uint32_t idx = static_cast<uint32_t>(rest & t.distMask);
        const uint32_t d = t.distLenExtra[idx];
        dn = d & 15;
        if (dn == 0 || (uint32_t{1} << dn) > t.distMask + 1) return Unit::Corrupt;
        dExtra = d >> 4;
        base = t.distBase[idx];
    } else {
        const uint32_t d = TwoLevelLookup(t.lit, kDistRootEntry, rest, dn);
        if (dn == 0) return Unit::Corrupt;
        if (used + dn > avail) return Unit::Wait;
        const uint32_t sym = d >> 8;
        if (sym >= static_cast<uint32_t>(kNumDist)) return Unit::Corrupt;
        dExtra = (d >> 4) & 15;
        base = kDistanceCodes[sym].base + 1u;
    }
    used += dn + dExtra;
    if (used > avail) return Unit::Wait;
    tok = {used, length, base + LowBits(rest >> dn, dExtra)};
    return Unit::Match;
}

// Copies a match of len bytes from dist back, in increasing order. With kQuick there is
// room for 16 bytes beyond the match.
template <bool kQuick>
inline void CopyMatch(uint8_t* d, uint32_t dist, uint32_t len) {
    const uint8_t* s = d - dist;
    if (kQuick && dist >= 16) {
        for (uint32_t i = 0; i < len; i += 16) {
            _mm_storeu_si128(reinterpret_cast<__m128i*>(d + i),
                             _mm_loadu_si128(reinterpret_cast<const __m128i*>(s + i)));
        }
        return;
    }
    if (kQuick && dist >= 8) {
        for (uint32_t i = 0; i < len; i += 8) store_u64le(d + i, load_u64le(s + i));
        return;
    }
    if (kQuick && dist == 1) {
        const __m128i v = _mm_set1_epi8(static_cast<char>(*s));
        for (uint32_t i = 0; i < len; i += 16) _mm_storeu_si128(reinterpret_cast<__m128i*>(d + i), v);
        return;
    }
    if (kQuick) {
        // Each 8-byte store is right in its first dist bytes, the pattern's period.
        for (uint32_t i = 0; i < len; i += dist) store_u64le(d + i, load_u64le(s + i));
        return;
    }
    for (uint32_t i = 0; i < len; ++i) d[i] = s[i];
}

// ---- the decoder -------------------------------------------------------------------------

class Inflater {
public:
    Inflater(const InflateArgs& a, InflateHuffTable* table)
        : src_(a.src), srcLen_(a.srcLen), acc_(a.code & ((1u << a.codeBits) - 1)), nbits_(a.codeBits),
          dst_(a.dst), dstLen_(a.dstLen), out_(a.dstIdx), win_(a.winIdx), mode_(a.mode),
          record_(table) {}

    ZyrStatus Run();
    void Finish(InflateArgs& a) const {
        const int32_t consumed = pos_ - static_cast<int32_t>(nbits_ >> 3);
        a.src += consumed;
        a.srcLen -= consumed;
        a.codeBits = nbits_ & 7;
        a.code = LowBits(acc_, a.codeBits);
        a.dstIdx = out_;
        a.mode = mode_;
    }

private:
    uint32_t* Words() { return record_->header; }
    void Refill() {
        while (nbits_ <= 56 && pos_ < srcLen_) {
            acc_ |= uint64_t{src_[pos_++]} << nbits_;
            nbits_ += 8;
        }
    }
    // Needs pos_ + 8 <= srcLen_. Bits above nbits_ are the stream's next bits, never junk.
    void RefillQuick() {
        acc_ |= load_u64le(src_ + pos_) << nbits_;
        pos_ += static_cast<int32_t>((63 - nbits_) >> 3);
        nbits_ |= 56;
    }
    void Use(uint32_t n) {
        acc_ >>= n;
        nbits_ -= n;
    }
    bool Need(uint32_t n) {
        if (nbits_ < n) Refill();
        return nbits_ >= n;
    }

    ZyrStatus BlockHeader();
    ZyrStatus DynamicHeader();
    ZyrStatus Stored();
    ZyrStatus Body();
    template <TableKind kKind>
    ZyrStatus BodyLoop(const Tables& t);
    template <TableKind kKind>
    ZyrStatus Quick(const Tables& t, bool& ended);
    ZyrStatus EndOfBlock() {
        if (Words()[0] != 0) {
            mode_ = InflateModeDone;
            return StatusOk;
        }
        mode_ = InflateModeBlockStart;
        return kContinue;
    }
    void StartBlock(uint32_t final, uint32_t type, uint32_t len) {
        uint32_t* w = Words();
        w[0] = final;
        w[1] = type;
        w[4] = len;
        w[5] = w[6] = w[7] = 0;
    }

    static constexpr ZyrStatus kContinue = 1;  // internal: the next block follows

    const uint8_t* src_;
    int32_t srcLen_;
    int32_t pos_ = 0;       // source bytes loaded into the accumulator
    uint64_t acc_;
    uint32_t nbits_;
    uint8_t* dst_;
    int32_t dstLen_;
    int32_t out_;
    int32_t win_;
    int32_t mode_;
    InflateHuffTable* record_;
};

ZyrStatus Inflater::Run() {
    for (;;) {
        ZyrStatus s;
        switch (mode_) {
        case InflateModeBlockStart: s = BlockHeader(); break;
        case InflateModeBody: s = Body(); break;
        case InflateModeStored: s = Stored(); break;
        default: return StatusOk;  // done: nothing more to read
        }
        if (s != kContinue) return s;
    }
}

ZyrStatus Inflater::BlockHeader() {
    if (!Need(3)) return StatusSrcExhausted;
    const uint32_t final = acc_ & 1, type = (acc_ >> 1) & 3;
    switch (type) {
    case 0: {
        // Up to the byte boundary, then LEN and NLEN.
        const uint32_t pad = (nbits_ - 3) & 7;
        if (!Need(3 + pad + 32)) return StatusSrcExhausted;
        const uint32_t len = LowBits(acc_ >> (3 + pad), 16), nlen = LowBits(acc_ >> (19 + pad), 16);
        if (nlen != (len ^ 0xFFFF)) return StatusCorruptStream;
        Use(3 + pad + 32);
        StartBlock(final, 0, len);
        mode_ = InflateModeStored;
        return kContinue;
    }
    case 1:
        Use(3);
        StartBlock(final, 1, 0);
        mode_ = InflateModeBody;
        return kContinue;
    case 2: {
        const uint64_t acc = acc_;
        const uint32_t nbits = nbits_;
        const int32_t pos = pos_;
        const ZyrStatus s = DynamicHeader();
        if (s == StatusSrcExhausted) {
            acc_ = acc;
            nbits_ = nbits;
            pos_ = pos;
        }
        return s;
    }
    default:
        return StatusCorruptStream;
    }
}

// Everything from BFINAL to the last code length is one unit; the caller restores the
// accumulator when it waits.
ZyrStatus Inflater::DynamicHeader() {
    const uint32_t final = acc_ & 1;
    Use(3);
    if (!Need(14)) return StatusSrcExhausted;
    const uint32_t nLit = LowBits(acc_, 5) + 257, nDist = LowBits(acc_ >> 5, 5) + 1;
    const uint32_t nCl = LowBits(acc_ >> 10, 4) + 4;
    if (nLit > static_cast<uint32_t>(kNumLitLen) || nDist > static_cast<uint32_t>(kNumDist)) {
        return StatusCorruptStream;
    }
    Use(14);
    if (!Need(3 * nCl)) return StatusSrcExhausted;
    uint8_t clLens[kNumCodeLenSymbols] = {};
    for (uint32_t i = 0; i < nCl; ++i) {
        clLens[kCodeLenOrder[i]] = static_cast<uint8_t>(acc_ & 7);
        Use(3);
    }
    // The code-length code must be complete: its Kraft sum in units of 2^-7 is 128.
    uint32_t count[8] = {}, kraft = 0;
    for (uint8_t l : clLens) {
        if (l != 0) {
            ++count[l];
            kraft += 1u << (kCodeLenBits - l);
        }
    }
    if (kraft != 1u << kCodeLenBits) return StatusBadHuffmanCode;
    uint16_t clTable[1u << kCodeLenBits];
    uint32_t next[8] = {};
    for (uint32_t n = 1, code = 0; n < 8; ++n) next[n] = code = (code + count[n - 1]) << 1;
    for (uint32_t s = 0; s < static_cast<uint32_t>(kNumCodeLenSymbols); ++s) {
        const uint32_t n = clLens[s];
        if (n == 0) continue;
        for (uint32_t i = ReverseBits(next[n]++, static_cast<int>(n)); i < (1u << kCodeLenBits); i += 1u << n) {
            clTable[i] = static_cast<uint16_t>(n << 8 | s);
        }
    }

    uint16_t lens[kNumLitLen + kNumDist];
    const uint32_t total = nLit + nDist;
    for (uint32_t i = 0; i < total;) {
        Refill();
        const uint32_t e = clTable[acc_ & ((1u << kCodeLenBits) - 1)];
        const uint32_t n = e >> 8, sym = e & 0xFF;
        if (n > nbits_) return StatusSrcExhausted;
        if (sym < 16) {
            Use(n);
            lens[i++] = static_cast<uint16_t>(sym);
            continue;
        }
        const uint32_t extra = sym == 16 ? 2 : sym == 17 ? 3 : 7;
        if (n + extra > nbits_) return StatusSrcExhausted;
        const uint32_t value = LowBits(acc_ >> n, extra);
        uint32_t repeat, len = 0;
        if (sym == 16) {
            if (i == 0) return StatusCorruptStream;
            repeat = 3 + value;
            len = lens[i - 1];
        } else {
            repeat = (sym == 17 ? 3 : 11) + value;
        }
        if (i + repeat > total) return StatusCorruptStream;
        Use(n + extra);
        for (uint32_t k = 0; k < repeat; ++k) lens[i++] = static_cast<uint16_t>(len);
    }
    if (lens[kEndOfBlock] == 0) return StatusCorruptStream;

    const ZyrStatus built = BuildInflateTable(lens, nLit, nDist, record_);
    if (built != StatusOk) return built;
    uint32_t* w = Words();
    if (w[kWordKind] == kKindSingleLevel) {
        // A one-code set leaves the other half of its table unwritten: mark it invalid.
        auto singleLengthOne = [](const uint16_t* l, uint32_t n) {
            uint32_t used = 0, one = 0;
            for (uint32_t i = 0; i < n; ++i) {
                used += l[i] != 0;
                one += l[i] == 1;
            }
            return used == 1 && one == 1;
        };
        if (singleLengthOne(lens, nLit)) record_->tables[1] = 0;
        if (singleLengthOne(lens + nLit, nDist)) {
            reinterpret_cast<uint8_t*>(record_->tables)[(2u << w[kWordMaxLitLen]) + 1] = 0;
        }
    } else {
        uint32_t maxLit = 0, maxDist = 0;
        for (uint32_t i = 0; i < nLit; ++i) maxLit = std::max<uint32_t>(maxLit, lens[i]);
        for (uint32_t i = 0; i < nDist; ++i) maxDist = std::max<uint32_t>(maxDist, lens[nLit + i]);
        w[kWordMaxLitLen] = maxLit;
        w[kWordMaxDist] = maxDist;
    }
    StartBlock(final, 2, 0);
    mode_ = InflateModeBody;
    return kContinue;
}

ZyrStatus Inflater::Stored() {
    // Stored bytes start on a byte boundary: whole bytes still in the accumulator go back
    // to the source side.
    pos_ -= static_cast<int32_t>(nbits_ >> 3);
    acc_ = 0;
    nbits_ = 0;
    uint32_t& left = Words()[4];
    while (left > 0) {
        if (pos_ == srcLen_) return StatusSrcExhausted;
        if (out_ == dstLen_) return StatusDstFull;
        const int32_t n = std::min({static_cast<int32_t>(left), srcLen_ - pos_, dstLen_ - out_});
        std::memcpy(dst_ + out_, src_ + pos_, static_cast<size_t>(n));
        pos_ += n;
        out_ += n;
        left -= static_cast<uint32_t>(n);
    }
    return EndOfBlock();
}

ZyrStatus Inflater::Body() {
    uint32_t* w = Words();
    // A match cut short by a full destination goes on first.
    if (w[4] > 0) {
        if (w[5] > static_cast<uint32_t>(out_ - win_)) return StatusCorruptStream;
        if (out_ == dstLen_) return StatusDstFull;
        const uint32_t n = std::min(w[4], static_cast<uint32_t>(dstLen_ - out_));
        CopyMatch<false>(dst_ + out_, w[5], n);
        out_ += static_cast<int32_t>(n);
        w[4] -= n;
        if (w[4] > 0) return StatusDstFull;
        w[5] = 0;
    }
    if (w[1] == 1) {
        const Tables t{kFixedLit.data(), (1u << kFixedLitBits) - 1, kFixedDist.lenExtra.data(),
                       kFixedDist.base.data(), (1u << kFixedDistBits) - 1, true};
        return BodyLoop<TableKind::Single>(t);
    }
    if (w[kWordKind] == kKindSingleLevel) {
        const uint32_t litBits = w[kWordMaxLitLen], distBits = w[kWordMaxDist];
        const uint8_t* bytes = reinterpret_cast<const uint8_t*>(record_->tables);
        const uint8_t* dist = bytes + (2u << litBits);
        const Tables t{record_->tables, (1u << litBits) - 1, dist,
                       reinterpret_cast<const uint16_t*>(dist + kDistBaseOffset), (1u << distBits) - 1,
                       distBits != 0};
        return BodyLoop<TableKind::Single>(t);
    }
    const Tables t{record_->tables, (1u << kRootBits) - 1, nullptr, nullptr, (1u << kRootBits) - 1,
                   w[kWordMaxDist] != 0};
    return BodyLoop<TableKind::TwoLevel>(t);
}

// The literal/length entry for the next bits, or 0 for a code no symbol has.
template <TableKind kKind>
inline uint32_t LitEntry(const Tables& t, uint64_t acc, uint32_t litBits) {
    if constexpr (kKind == TableKind::Single) {
        const uint32_t e = t.lit[acc & t.litMask];
        return (e & 15) - 1 < litBits ? e : 0;
    } else {
        uint32_t n;
        return TwoLevelLookup(t.lit, 0, acc, n);
    }
}

// The distance code for the next bits: its length, extra bits and base; false for a code no
// symbol has.
template <TableKind kKind>
inline bool DistEntry(const Tables& t, uint64_t acc, uint32_t distBits, uint32_t& n, uint32_t& extra,
                      uint32_t& base) {
    if constexpr (kKind == TableKind::Single) {
        const uint32_t idx = static_cast<uint32_t>(acc & t.distMask), d = t.distLenExtra[idx];
        n = d & 15;
        extra = d >> 4;
        base = t.distBase[idx];
        return n - 1 < distBits;
    } else {
        const uint32_t d = TwoLevelLookup(t.lit, kDistRootEntry, acc, n), sym = d >> 8;
        if (n == 0 || sym >= static_cast<uint32_t>(kNumDist)) return false;
        extra = (d >> 4) & 15;
        base = kDistanceCodes[sym].base + 1u;
        return true;
    }
}

// The quick path, its state in locals (stores to the output could otherwise alias the
// members). Literals go on while the next code's bits are surely there; a match refills
// first when fewer than its 52 bits may remain. Returns kContinue when a margin runs out,
// with ended set when the end-of-block code was taken.
template <TableKind kKind>
ZyrStatus Inflater::Quick(const Tables& t, bool& ended) {
    const uint8_t* const src = src_;
    uint8_t* const dst = dst_;
    const int32_t srcStop = srcLen_ - kQuickSrc, dstStop = dstLen_ - kQuickRoom, win = win_;
    const uint32_t litBits = static_cast<uint32_t>(__builtin_ctz(t.litMask + 1));
    const uint32_t distBits = static_cast<uint32_t>(__builtin_ctz(t.distMask + 1));
    uint64_t acc = acc_;
    uint32_t nbits = nbits_;
    int32_t pos = pos_, out = out_;
    ZyrStatus status = kContinue;
    ended = false;
    while (pos <= srcStop && out <= dstStop) {
        acc |= load_u64le(src + pos) << nbits;
        pos += static_cast<int32_t>((63 - nbits) >> 3);
        nbits |= 56;
        uint32_t e = LitEntry<kKind>(t, acc, litBits);
        while ((e & 0xF0) == 0) {
            if (e == 0) return StatusCorruptStream;
            const uint32_t n = e & 15;
            dst[out++] = static_cast<uint8_t>(e >> 8);
            acc >>= n;
            nbits -= n;
            if (nbits < kMaxCodeBits || out > dstStop) break;
            e = LitEntry<kKind>(t, acc, litBits);
        }
        if ((e & 0xF0) == 0) continue;  // refill (or leave) before the next code
        const uint32_t n = e & 15;
        if ((e & 0xF0) == 0xF0) {
            acc >>= n;
            nbits -= n;
            ended = true;
            break;
        }
        if ((e & 0x80) == 0 || !t.haveDist) {
            status = StatusCorruptStream;
            break;
        }
        if (nbits < 52) {
            if (pos > srcStop || out > dstStop) break;  // the careful path takes this match
            acc |= load_u64le(src + pos) << nbits;
            pos += static_cast<int32_t>((63 - nbits) >> 3);
            nbits |= 56;
        } else if (out > dstStop) {
            break;
        }
        const uint32_t lenExtra = (e >> 4) & 7;
        const uint32_t length = (e >> 8) + kMinMatch + LowBits(acc >> n, lenExtra);
        acc >>= n + lenExtra;
        nbits -= n + lenExtra;
        uint32_t dn, dExtra, base;
        if (length > kMaxMatch || !DistEntry<kKind>(t, acc, distBits, dn, dExtra, base)) {
            status = StatusCorruptStream;
            break;
        }
        const uint32_t dist = base + LowBits(acc >> dn, dExtra);
        if (dist > static_cast<uint32_t>(out - win)) {
            status = StatusCorruptStream;
            break;
        }
        acc >>= dn + dExtra;
        nbits -= dn + dExtra;
        CopyMatch<true>(dst + out, dist, length);
        out += static_cast<int32_t>(length);
    }
    // A failed unit leaves nothing to write back: the call ends with its error.
    acc_ = acc;
    nbits_ = nbits;
    pos_ = pos;
    out_ = out;
    return status;
}

template <TableKind kKind>
ZyrStatus Inflater::BodyLoop(const Tables& t) {
    Token tok{};
    for (;;) {
        bool ended = false;
        const ZyrStatus quick = Quick<kKind>(t, ended);
        if (quick != kContinue) return quick;
        if (ended) return EndOfBlock();
        // The careful path, one unit, then back to the top.
        Refill();
        const Unit u = DecodeUnit<kKind>(t, acc_, nbits_, tok);
        switch (u) {
        case Unit::Literal:
            if (out_ == dstLen_) return StatusDstFull;
            dst_[out_++] = static_cast<uint8_t>(tok.value);
            Use(tok.bits);
            break;
        case Unit::Match: {
            if (tok.dist > static_cast<uint32_t>(out_ - win_)) return StatusCorruptStream;
            if (out_ == dstLen_) return StatusDstFull;
            Use(tok.bits);
            const uint32_t n = std::min(tok.value, static_cast<uint32_t>(dstLen_ - out_));
            CopyMatch<false>(dst_ + out_, tok.dist, n);
            out_ += static_cast<int32_t>(n);
            if (n < tok.value) {
                Words()[4] = tok.value - n;
                Words()[5] = tok.dist;
                return StatusDstFull;
            }
            break;
        }
        case Unit::End:
            Use(tok.bits);
            return EndOfBlock();
        case Unit::Wait:
            return StatusSrcExhausted;
        case Unit::Corrupt:
            return StatusCorruptStream;
        }
    }
}

}  // namespace

bool InflateContextOk(int32_t mode, uint32_t codeBits, const InflateHuffTable* table) {
    const uint32_t* w = table->header;
    switch (mode) {
    case InflateModeBlockStart:
    case InflateModeDone:
        return true;
    case InflateModeBody:
        if (w[0] > 1 || (w[1] != 1 && w[1] != 2) || w[4] > static_cast<uint32_t>(kMaxMatch)) return false;
        if (w[4] > 0 && (w[5] < 1 || w[5] > kMaxDistance)) return false;
        if (w[1] == 2) {
            if (w[kWordKind] == kKindSingleLevel) {
                return w[kWordMaxLitLen] >= 1 && w[kWordMaxLitLen] <= static_cast<uint32_t>(kSingleMaxLitLen) &&
                       w[kWordMaxDist] <= static_cast<uint32_t>(kSingleMaxDist);
            }
            if (w[kWordKind] == kKindTwoLevel) {
                return w[kWordMaxLitLen] >= 1 && w[kWordMaxLitLen] <= static_cast<uint32_t>(kMaxCodeBits) &&
                       w[kWordMaxDist] <= static_cast<uint32_t>(kMaxCodeBits);
            }
            return false;
        }
        return true;
    case InflateModeStored:
        return w[0] <= 1 && w[4] <= kMaxStoredLen && codeBits == 0;
    default:
        return false;
    }
}

ZyrStatus Inflate(InflateArgs& args, InflateHuffTable* table) {
    Inflater inf(args, table);
    const ZyrStatus s = inf.Run();
    if (s == StatusOk || s == StatusSrcExhausted || s == StatusDstFull) inf.Finish(args);
    return s;
}

}  // namespace zyrdc::deflate
