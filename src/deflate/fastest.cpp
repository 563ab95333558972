// fastest.cpp - the single-pass Deflate writer: a one-probe match search with the 4-byte
// tabulation hash that codes every literal and match the moment it is found, with codes fixed
// before the pass; the statistics of that parse on a sample; length-limited codes from counts;
// block headers precomputed once per code set and appended with their final bit.
#include <algorithm>
#include <cstdint>
#include <cstring>

#include "core/bits.hpp"
#include "core/huff_limit.hpp"
#include "deflate/deflate.hpp"
#include "deflate/tables.hpp"

namespace zyrdc::deflate {

namespace {

constexpr int kNumCodeLenSymbols = 19;
constexpr uint32_t kCodeLenLimit = 7;
constexpr uint8_t kCodeLenOrder[kNumCodeLenSymbols] = {16, 17, 18, 0, 8,  7, 9,  6, 10, 5,
                                                       11, 4,  12, 3, 13, 2, 14, 1, 15};
constexpr uint8_t kCodeLenExtra[kNumCodeLenSymbols] = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0,
                                                       0, 0, 0, 0, 0, 0, 2, 3, 7};

// ---- the parse -----------------------------------------------------------------------------

// Common length of a and b, at most max bytes.
inline int CommonLength(const uint8_t* a, const uint8_t* b, int max) {
    int i = 0;
    for (; i + 8 <= max; i += 8) {
        const uint64_t x = load_u64le(a + i) ^ load_u64le(b + i);
        if (x != 0) return i + (__builtin_ctzll(x) >> 3);
    }
    while (i < max && a[i] == b[i]) ++i;
    return i;
}

// Positions, history and the head table of one parse. A position below base is history,
// read at negative offsets from the window pointer; a match may start there and run on into
// the source.
struct Parse {
    const uint8_t* src;
    const uint8_t* window;
    int32_t base;
    int32_t end;
    int32_t* head;
    uint32_t hmask;
    uint32_t winSize;

    const uint8_t* At(int32_t q) const { return q >= base ? src + (q - base) : window + (q - base); }
    uint32_t Load4(int32_t q) const {
        if (q >= base || q + 4 <= base) return load_u32le(At(q));
        uint32_t v = 0;
        for (int i = 0; i < 4; ++i) v |= uint32_t{*At(q + i)} << (8 * i);
        return v;
    }
    int MatchLength(int32_t cand, const uint8_t* cur, int maxLen) const {
        if (cand < base && base - cand < maxLen) {
            const int before = base - cand;
            const int n = CommonLength(At(cand), cur, before);
            return n < before ? n : before + CommonLength(src, cur + before, maxLen - before);
        }
        return CommonLength(At(cand), cur, maxLen);
    }
    void Insert(int32_t q) { head[TabulationHash(At(q), hmask)] = q; }
};

// Runs the parse from base while the sink has room; returns the position reached.
template <class Sink>
int32_t RunParse(Parse& ps, int32_t flush, Sink& sink) {
    const int32_t limit = flush < kFlushAll ? ps.end - kFastestLookahead : ps.end - 3;
    int32_t p = ps.base;
    while (p < limit) {
        if (!sink.Room()) return p;
        const uint8_t* cur = ps.src + (p - ps.base);
        const uint32_t h = TabulationHash(cur, ps.hmask);
        const int32_t cand = ps.head[h];
        ps.head[h] = p;
        const uint32_t delta = static_cast<uint32_t>(p) - static_cast<uint32_t>(cand);
        if (delta - 1u < ps.winSize - 1u && ps.Load4(cand) == load_u32le(cur)) {
            const int maxLen = std::min(kMaxMatch, ps.end - p);
            const int len = 4 + ps.MatchLength(cand + 4, cur + 4, maxLen - 4);
            sink.Match(len, delta);
            if (len <= kFastestInsertMax) {
                const int32_t last = std::min(p + len - 1, ps.end - 4);
                for (int32_t q = p + 1; q <= last; ++q) ps.Insert(q);
            }
            p += len;
        } else {
            sink.Literal(*cur);
            ++p;
        }
    }
    if (flush >= kFlushAll) {
        for (; p < ps.end; ++p) {
            if (!sink.Room()) return p;
            sink.Literal(ps.src[p - ps.base]);
        }
    }
    return p;
}

struct Counter {
    uint32_t* lit;
    uint32_t* dist;
    bool Room() const { return true; }
    void Literal(uint8_t b) { ++lit[b]; }
    void Match(int len, uint32_t dist1) {
        ++lit[kEndOfBlock + 1 + kLengthCodeOf[len - kMinMatch]];
        ++dist[DistanceCode(dist1 - 1)];
    }
};

// Codes tokens through a 64-bit accumulator. A token is at most 48 bits and at most 7 are
// pending between tokens (15 on entry), so one 8-byte store after each token writes them out;
// the 16 bytes of room asked for before each token cover it.
struct Coder {
    const HuffCodeEntry* lit;
    const HuffCodeEntry* dist;
    uint8_t* dst;
    uint32_t dstLen;
    uint32_t idx;
    uint64_t bits;
    uint32_t count;
    // Length code and extra bits joined, by length - 3; the distance codes by symbol.
    uint32_t lenBits[256];
    uint8_t lenCount[256];

    void Prepare() {
        for (uint32_t v = 0; v < 256; ++v) {
            const uint32_t c = kLengthCodeOf[v];
            const HuffCodeEntry& e = lit[kEndOfBlock + 1 + c];
            lenBits[v] = e.code | (v - kLengthCodes[c].base) << e.len;
            lenCount[v] = static_cast<uint8_t>(e.len + kLengthCodes[c].extra);
        }
    }
    bool Room() const { return dstLen - idx >= kFastestDstMargin; }
    void Put(uint32_t v, uint32_t n) {
        bits |= uint64_t{v} << count;
        count += n;
    }
    void Drain() {
        store_u64le(dst + idx, bits);
        idx += count >> 3;
        bits = (count & ~7u) == 64 ? 0 : bits >> (count & ~7u);
        count &= 7;
    }
    void Literal(uint8_t b) {
        Put(lit[b].code, lit[b].len);
        Drain();
    }
    void Match(int len, uint32_t distance) {
        Put(lenBits[len - kMinMatch], lenCount[len - kMinMatch]);
        const uint32_t d = distance - 1, c = DistanceCode(d);
        Put(dist[c].code | (d - kDistanceCodes[c].base) << dist[c].len, dist[c].len + kDistanceCodes[c].extra);
        Drain();
    }
};

// ---- headers -------------------------------------------------------------------------------

struct HeaderWriter {
    uint8_t* bytes;
    uint32_t n = 0;
    void Put(uint32_t v, uint32_t len) {
        for (uint32_t i = 0; i < len; ++i, ++n) bytes[n >> 3] |= static_cast<uint8_t>(((v >> i) & 1) << (n & 7));
    }
};

// Canonical codes over lens[0..n), bit-reversed into transmission order.
void CodesFromLengths(const uint8_t* lens, uint32_t n, HuffCodeEntry* codes) {
    uint32_t count[kMaxCodeBits + 1] = {}, next[kMaxCodeBits + 1] = {};
    for (uint32_t s = 0; s < n; ++s) ++count[lens[s]];
    count[0] = 0;
    for (uint32_t b = 1, code = 0; b <= static_cast<uint32_t>(kMaxCodeBits); ++b) {
        next[b] = code = (code + count[b - 1]) << 1;
    }
    for (uint32_t s = 0; s < n; ++s) {
        const uint32_t len = lens[s];
        codes[s].len = static_cast<uint16_t>(len);
        codes[s].code = static_cast<uint16_t>(len != 0 ? ReverseBits(next[len]++, static_cast<int>(len)) : 0);
    }
}

// The weights of mode 0: the counts, and where fewer than two symbols have one, weight 1
// for the lowest-numbered symbols without.
void AtLeastTwo(uint32_t* w, uint32_t n) {
    uint32_t used = 0;
    for (uint32_t s = 0; s < n; ++s) used += w[s] != 0;
    for (uint32_t s = 0; s < n && used < 2; ++s) {
        if (w[s] == 0) {
            w[s] = 1;
            ++used;
        }
    }
}

}  // namespace

void FastestGetStat(const uint8_t* src, int32_t srcLen, int32_t* head, uint32_t hashSize,
                    uint32_t* litStat, uint32_t* distStat) {
    std::fill(head, head + hashSize, kNoPosition);
    Parse ps{src, src, 0, srcLen, head, hashSize - 1, kMaxWindow};
    Counter counter{litStat, distStat};
    RunParse(ps, kFlushAll, counter);
}

void FastestGenHuffTable(const uint32_t* litStat, const uint32_t* distStat, int32_t mode,
                         HuffCodeEntry* litCodes, HuffCodeEntry* distCodes) {
    uint8_t litLens[288], distLens[32];
    if (mode == DeflateCodesFixed) {
        for (uint32_t s = 0; s < 288; ++s) litLens[s] = static_cast<uint8_t>(s < 144 ? 8 : s < 256 ? 9 : s < 280 ? 7 : 8);
        std::fill(distLens, distLens + 32, uint8_t{5});
        HuffCodeEntry all[288];
        CodesFromLengths(litLens, 288, all);
        std::copy(all, all + kNumLitLen, litCodes);
        CodesFromLengths(distLens, kNumDist, distCodes);
        return;
    }
    uint32_t litW[kNumLitLen], distW[kNumDist];
    for (int s = 0; s < kNumLitLen; ++s) litW[s] = mode == DeflateCodesAll ? std::max(litStat[s], 1u) : litStat[s];
    for (int s = 0; s < kNumDist; ++s) distW[s] = mode == DeflateCodesAll ? std::max(distStat[s], 1u) : distStat[s];
    if (mode == DeflateCodesUsed) {
        if (litW[kEndOfBlock] == 0) litW[kEndOfBlock] = 1;
        AtLeastTwo(litW, kNumLitLen);
        AtLeastTwo(distW, kNumDist);
    }
    LimitedCodeLengths(litW, kNumLitLen, kMaxCodeBits, litLens);
    LimitedCodeLengths(distW, kNumDist, kMaxCodeBits, distLens);
    CodesFromLengths(litLens, kNumLitLen, litCodes);
    CodesFromLengths(distLens, kNumDist, distCodes);
}

ZyrStatus FastestPrecompHeader(int32_t blockType, const HuffCodeEntry* litCodes,
                               const HuffCodeEntry* distCodes, DeflateBlockHeader* header) {
    if (blockType != DeflateBlockDynamic) {
        std::memset(header, 0, sizeof *header);
        header->magic = kBlockHeaderMagic;
        header->blockType = static_cast<uint32_t>(blockType);
        header->bitLen = 3;
        header->bits[0] = static_cast<uint8_t>(blockType << 1);
        return StatusOk;
    }
    uint16_t lens[kNumLitLen + kNumDist];
    for (int s = 0; s < kNumLitLen; ++s) lens[s] = litCodes[s].len;
    for (int s = 0; s < kNumDist; ++s) lens[kNumLitLen + s] = distCodes[s].len;
    if (!LengthsFormCode(lens, kNumLitLen, false) || lens[kEndOfBlock] == 0 ||
        !LengthsFormCode(lens + kNumLitLen, kNumDist, true)) {
        return StatusBadHuffmanCode;
    }
    uint32_t nLit = kNumLitLen, nDist = kNumDist;
    while (lens[nLit - 1] == 0) --nLit;  // symbol 256 has a code
    while (nDist > 1 && lens[kNumLitLen + nDist - 1] == 0) --nDist;
    // The sequence: nLit literal/length lengths, then nDist distance lengths.
    uint8_t seq[kNumLitLen + kNumDist];
    const uint32_t total = nLit + nDist;
    for (uint32_t i = 0; i < nLit; ++i) seq[i] = static_cast<uint8_t>(lens[i]);
    for (uint32_t i = 0; i < nDist; ++i) seq[nLit + i] = static_cast<uint8_t>(lens[kNumLitLen + i]);

    // Run-length code it, run by run of equal values.
    uint8_t sym[kNumLitLen + kNumDist], extra[kNumLitLen + kNumDist];
    uint32_t nSym = 0;
    auto emit = [&](uint32_t s, uint32_t e) {
        sym[nSym] = static_cast<uint8_t>(s);
        extra[nSym++] = static_cast<uint8_t>(e);
    };
    for (uint32_t i = 0; i < total;) {
        const uint32_t v = seq[i];
        uint32_t r = 1;
        while (i + r < total && seq[i + r] == v) ++r;
        i += r;
        if (v == 0) {
            for (; r >= 11; r -= std::min(r, 138u)) emit(18, std::min(r, 138u) - 11);
            if (r >= 3) {
                emit(17, r - 3);
                r = 0;
            }
        } else {
            emit(v, 0);
            --r;
            for (; r >= 3; r -= std::min(r, 6u)) emit(16, std::min(r, 6u) - 3);
        }
        for (; r > 0; --r) emit(v, 0);
    }
    uint32_t clW[kNumCodeLenSymbols] = {};
    for (uint32_t i = 0; i < nSym; ++i) ++clW[sym[i]];
    AtLeastTwo(clW, kNumCodeLenSymbols);
    uint8_t clLens[kNumCodeLenSymbols];
    LimitedCodeLengths(clW, kNumCodeLenSymbols, kCodeLenLimit, clLens);
    HuffCodeEntry clCodes[kNumCodeLenSymbols];
    CodesFromLengths(clLens, kNumCodeLenSymbols, clCodes);
    uint32_t hclen = kNumCodeLenSymbols;
    while (hclen > 4 && clLens[kCodeLenOrder[hclen - 1]] == 0) --hclen;

    std::memset(header, 0, sizeof *header);
    HeaderWriter w{header->bits};
    w.Put(0, 1);
    w.Put(DeflateBlockDynamic, 2);
    w.Put(nLit - 257, 5);
    w.Put(nDist - 1, 5);
    w.Put(hclen - 4, 4);
    for (uint32_t i = 0; i < hclen; ++i) w.Put(clLens[kCodeLenOrder[i]], 3);
    for (uint32_t i = 0; i < nSym; ++i) {
        w.Put(clCodes[sym[i]].code, clCodes[sym[i]].len);
        w.Put(extra[i], kCodeLenExtra[sym[i]]);
    }
    header->magic = kBlockHeaderMagic;
    header->blockType = DeflateBlockDynamic;
    header->bitLen = w.n;
    return StatusOk;
}

ZyrStatus FastestGenHeader(const DeflateBlockHeader* header, int32_t final, int32_t storedLen,
                           uint16_t* code, uint32_t* codeBits, uint8_t* dst, uint32_t dstLen,
                           uint32_t* dstIdx) {
    uint32_t pending = *codeBits, idx = *dstIdx;
    uint64_t bits = *code & ((1u << pending) - 1);
    const uint32_t room = dstLen - idx;
    if (header->blockType == DeflateBlockStored) {
        const uint32_t need = (pending + 3 + 7) / 8 + 4;
        if (need > room) return StatusDstFull;
        bits |= uint64_t(static_cast<uint32_t>(final)) << pending;
        pending += 3;
        const uint32_t len = static_cast<uint32_t>(storedLen);
        bits |= uint64_t{len | (len ^ 0xFFFFu) << 16} << ((pending + 7) & ~7u);
        const uint32_t total = ((pending + 7) & ~7u) + 32;
        for (uint32_t i = 0; i < total / 8; ++i) dst[idx + i] = static_cast<uint8_t>(bits >> (8 * i));
        *dstIdx = idx + total / 8;
        *code = 0;
        *codeBits = 0;
        return StatusOk;
    }
    const uint32_t bitLen = header->bitLen;
    if ((pending + bitLen) / 8 > room) return StatusDstFull;
    // The first bit is BFINAL; the record's bit 0 is a placeholder.
    bits |= uint64_t(static_cast<uint32_t>(final)) << pending;
    ++pending;
    for (uint32_t i = 1; i < bitLen;) {
        // Up to 8 bits at a time, from the byte that holds bit i.
        const uint32_t take = std::min(8 - (i & 7), bitLen - i);
        bits |= uint64_t{(header->bits[i >> 3] >> (i & 7)) & ((1u << take) - 1)} << pending;
        pending += take;
        i += take;
        while (pending >= 8) {
            dst[idx++] = static_cast<uint8_t>(bits);
            bits >>= 8;
            pending -= 8;
        }
    }
    *dstIdx = idx;
    *code = static_cast<uint16_t>(bits);
    *codeBits = pending;
    return StatusOk;
}

void RebaseHeadIfNeeded(int32_t& srcIdx, int32_t srcLen, int32_t* head, uint32_t hashSize,
                        uint32_t winSize) {
    const uint32_t len = static_cast<uint32_t>(srcLen);
    const uint32_t reach = static_cast<uint32_t>(srcIdx) + winSize + len;
    if (reach < 0x7FFFFFFFu - len || srcIdx <= static_cast<int32_t>(winSize)) return;
    const int32_t d = srcIdx - static_cast<int32_t>(winSize);
    RebaseEntries(head, hashSize, d);
    srcIdx -= d;
}

ZyrStatus Fastest(FastestCall& c, int32_t& consumed) {
    Coder coder{c.litCodes, c.distCodes, c.dst, c.dstLen, c.dstIdx, c.code & ((1u << c.codeBits) - 1),
                c.codeBits, {}, {}};
    coder.Prepare();
    Parse ps{c.src, c.window, c.srcIdx, c.srcIdx + c.srcLen, c.head, c.hashSize - 1, c.winSize};
    const int32_t p = RunParse(ps, c.flush, coder);
    consumed = p - c.srcIdx;
    const int32_t limit = c.flush < kFlushAll ? ps.end - kFastestLookahead : ps.end;
    ZyrStatus status = StatusOk;
    if (p < limit) {
        status = StatusDstFull;
    } else if (c.flush > kFlushAll) {
        if (!coder.Room()) {
            status = StatusDstFull;
        } else {
            coder.Put(c.litCodes[kEndOfBlock].code, c.litCodes[kEndOfBlock].len);
            if (c.flush == FastestFlushFinish) coder.count = (coder.count + 7) & ~7u;
            coder.Drain();
        }
    }
    // Whole bytes left in the accumulator (only from pending bits on entry) go out as room allows.
    while (coder.count >= 8 && coder.idx < coder.dstLen) {
        c.dst[coder.idx++] = static_cast<uint8_t>(coder.bits);
        coder.bits >>= 8;
        coder.count -= 8;
    }
    c.code = static_cast<uint32_t>(coder.bits);
    c.codeBits = coder.count;
    c.dstIdx = coder.idx;
    return status;
}

}  // namespace zyrdc::deflate
