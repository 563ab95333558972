// encode.cpp - LZO1X encoding: a single-probe coder, the segmented container built from it,
// and a chained coder with lazy matching for a better ratio.
//
// The coders write only the forms every LZO1X decoder reads alike: a stream opens with a
// literal run (never the byte 16, never 0x55, so that no plain stream passes the container
// test), every match is at least 4 bytes in one of the three ordinary forms (no 2- or 3-byte
// short match, which decoders read differently after a literal run), a distance of 16384
// always takes the near form (the far form reads it as the end) and every stream ends with
// the marker 0x11 0x00 0x00.
#include "lzo/encode.hpp"

#include <emmintrin.h>

#include <algorithm>
#include <cstring>

#include "core/bits.hpp"
#include "core/copy.hpp"
#include "lzo/lzo.hpp"

namespace zyrdc::lzo {

namespace {

#define ZYRDC_INLINE [[gnu::always_inline]] inline

constexpr uint32_t kHashMultiplier = 2654435761u;
constexpr uint32_t kMinMatch = 4;
// Sources up to this length are one literal run; longer ones are searched up to this many
// bytes before their end.
constexpr size_t kLiteralOnlyMax = 20;
// Instruction limits of the forms (Writer::Match).
constexpr uint32_t kM2MaxLen = 8, kM2MaxDistance = 2048;
constexpr uint32_t kM3MaxDistance = 16384, kM3MaxShortLen = 33;
constexpr uint32_t kM4MaxShortLen = 9;
// The first literal run's one-byte form holds 1..238 bytes as n + 17, except the run whose
// byte would be the container tag.
constexpr size_t kFirstRunByteMax = 238;
constexpr size_t kFirstRunAvoided = kContainerTag - 17;
// The chained coder's search effort.
constexpr int kHighCandidates = 32;
constexpr uint32_t kHighGoodEnough = 128;

ZYRDC_INLINE uint32_t Hash(const uint8_t* p, uint32_t shift) { return (load_u32le(p) * kHashMultiplier) >> shift; }

// Bytes equal at p and c, from p up to end: a machine word first, then 16 bytes a step.
ZYRDC_INLINE size_t MatchExtend(const uint8_t* p, const uint8_t* c, const uint8_t* end) {
    const uint8_t* const start = p;
    if constexpr (sizeof(void*) == 8) {
        if (p + 8 <= end) {
            const uint64_t x = load_u64le(p) ^ load_u64le(c);
            if (x != 0) return static_cast<size_t>(__builtin_ctzll(x)) / 8;
            p += 8;
            c += 8;
        }
    } else {
        if (p + 4 <= end) {
            const uint32_t x = load_u32le(p) ^ load_u32le(c);
            if (x != 0) return static_cast<size_t>(__builtin_ctz(x)) / 8;
            p += 4;
            c += 4;
        }
    }
    while (p + 16 <= end) {
        const __m128i eq = _mm_cmpeq_epi8(_mm_loadu_si128(reinterpret_cast<const __m128i*>(p)),
                                          _mm_loadu_si128(reinterpret_cast<const __m128i*>(c)));
        const auto differ = static_cast<uint32_t>(_mm_movemask_epi8(eq)) ^ 0xFFFFu;
        if (differ != 0) return static_cast<size_t>(p - start) + static_cast<size_t>(__builtin_ctz(differ));
        p += 16;
        c += 16;
    }
    while (p < end && *p == *c) {
        ++p;
        ++c;
    }
    return static_cast<size_t>(p - start);
}

// x >= 1 as z zero bytes and e, x = 255 z + e with 1 <= e <= 255.
ZYRDC_INLINE uint8_t* PutExtension(uint8_t* op, size_t x) {
    if (x > 255) {
        const size_t z = (x - 1) / 255;
        std::memset(op, 0, z);
        op += z;
        x -= 255 * z;
    }
    *op++ = static_cast<uint8_t>(x);
    return op;
}

// n literal bytes from s to op: in 16-byte units when both the destination (up to opEnd)
// and the source (up to srcEnd) have room for the last unit, exactly otherwise.
ZYRDC_INLINE uint8_t* PutBytes(uint8_t* op, const uint8_t* opEnd, const uint8_t* s, size_t n,
                               const uint8_t* srcEnd) {
    const size_t wide = (n + 15) & ~size_t{15};
    if (static_cast<size_t>(opEnd - op) >= wide && static_cast<size_t>(srcEnd - s) >= wide) {
        for (size_t i = 0; i < n; i += 16) {
            _mm_storeu_si128(reinterpret_cast<__m128i*>(op + i),
                             _mm_loadu_si128(reinterpret_cast<const __m128i*>(s + i)));
        }
    } else {
        std::memcpy(op, s, n);
    }
    return op + n;
}

// A literal run of n >= 1 bytes after a match: 1..3 counted in the low bits of the match's
// last byte but one (its first byte in the two-byte form, the low distance byte otherwise),
// more behind a run header of their own.
ZYRDC_INLINE uint8_t* PutLiteralsAfterMatch(uint8_t* op, const uint8_t* opEnd, const uint8_t* s, size_t n,
                                            const uint8_t* srcEnd) {
    if (n <= 3) {
        op[-2] = static_cast<uint8_t>(op[-2] | n);
    } else if (n <= 18) {
        *op++ = static_cast<uint8_t>(n - 3);
    } else {
        *op++ = 0;
        op = PutExtension(op, n - 18);
    }
    return PutBytes(op, opEnd, s, n, srcEnd);
}

// The stream's first literal run, n >= 1 bytes.
uint8_t* PutFirstLiterals(uint8_t* op, const uint8_t* opEnd, const uint8_t* s, size_t n, const uint8_t* srcEnd) {
    if (n <= kFirstRunByteMax && n != kFirstRunAvoided) {
        *op++ = static_cast<uint8_t>(n + 17);
    } else {
        *op++ = 0;
        op = PutExtension(op, n - 18);
    }
    return PutBytes(op, opEnd, s, n, srcEnd);
}

// A match of len >= 4 bytes at distance 1..49151, in the shortest form that holds it; its
// last byte but one takes the count of up to 3 literals that follow.
ZYRDC_INLINE uint8_t* PutMatch(uint8_t* op, uint32_t dist, size_t len) {
    if (len <= kM2MaxLen && dist <= kM2MaxDistance) {
        const uint32_t d = dist - 1;
        op[0] = static_cast<uint8_t>(((len - 1) << 5) | ((d & 7) << 2));
        op[1] = static_cast<uint8_t>(d >> 3);
        return op + 2;
    }
    uint32_t word;
    if (dist <= kM3MaxDistance) {
        if (len <= kM3MaxShortLen) {
            *op++ = static_cast<uint8_t>(32 | (len - 2));
        } else {
            *op++ = 32;
            op = PutExtension(op, len - kM3MaxShortLen);
        }
        word = (dist - 1) << 2;
    } else {
        const uint32_t far = dist - kM3MaxDistance;
        const auto high = static_cast<uint8_t>(16 | ((far >> 11) & 8));
        if (len <= kM4MaxShortLen) {
            *op++ = static_cast<uint8_t>(high | (len - 2));
        } else {
            *op++ = high;
            op = PutExtension(op, len - kM4MaxShortLen);
        }
        word = (far & 0x3FFF) << 2;
    }
    store_u16le(op, static_cast<uint16_t>(word));
    return op + 2;
}

// The stream being written, for the coders' less frequent steps. The destination always
// has room for the whole stream (the caller sized it by the bound); `cap` only decides
// where 16-byte copies may overshoot.
class Writer {
public:
    Writer(uint8_t* dst, size_t cap) : d_(dst), op_(dst), end_(dst + cap) {}

    size_t pos() const { return static_cast<size_t>(op_ - d_); }
    bool matched() const { return matched_; }
    uint8_t* op() const { return op_; }
    const uint8_t* end() const { return end_; }
    void Set(uint8_t* op) {
        op_ = op;
        matched_ = true;
    }

    // A literal run of n bytes (none for n = 0) from s, whose source ends at srcEnd.
    ZYRDC_INLINE void Literals(const uint8_t* s, size_t n, const uint8_t* srcEnd) {
        if (n == 0) return;
        op_ = matched_ ? PutLiteralsAfterMatch(op_, end_, s, n, srcEnd) : PutFirstLiterals(op_, end_, s, n, srcEnd);
    }
    ZYRDC_INLINE void Match(uint32_t dist, size_t len) {
        op_ = PutMatch(op_, dist, len);
        matched_ = true;
    }
    void End() {
        std::memcpy(op_, kEndMarker, sizeof kEndMarker);
        op_ += sizeof kEndMarker;
    }

private:
    uint8_t* d_;
    uint8_t* op_;
    const uint8_t* end_;
    bool matched_ = false;
};

// A source too short to search: one literal run and the end marker.
size_t LiteralsOnly(const uint8_t* src, size_t n, uint8_t* dst, size_t cap) {
    Writer w(dst, cap);
    w.Literals(src, n, src + n);
    w.End();
    return w.pos();
}

// ---- the chained coder's tables --------------------------------------------------------

class Chains {
public:
    Chains(const uint8_t* src, size_t n, uint8_t* tables)
        : src_(src), n_(n), heads_(tables), chain_(tables + 4 * kHighHeads) {}

    // Inserts every position below `to` not yet inserted that has 4 bytes after it.
    ZYRDC_INLINE void InsertUpTo(size_t to) {
        to = std::min(to, n_ - kMinMatch + 1);
        for (; next_ < to; ++next_) {
            const uint32_t v = static_cast<uint32_t>(next_);
            uint8_t* const head = heads_ + 4 * Hash(src_ + v, 32 - kHighHashBits);
            const uint32_t e = load_u32le(head);
            const uint32_t d = e != 0 ? v - (e - 1) : 0;
            store_u16le(chain_ + 2 * (v & 0xFFFF), static_cast<uint16_t>(d <= kMaxDistance ? d : 0));
            store_u32le(head, v + 1);
        }
    }

    struct Found {
        size_t len;
        uint32_t dist;
    };

    // The longest match at p (nearest on ties) among at most 32 earlier positions of p's
    // chain within reach; len 0 when none reaches 4 bytes. Positions below p must be
    // inserted, p itself not yet.
    ZYRDC_INLINE Found Search(size_t p) const {
        Found best{0, 0};
        const uint32_t e = load_u32le(heads_ + 4 * Hash(src_ + p, 32 - kHighHashBits));
        if (e == 0) return best;
        const uint8_t* const end = src_ + n_;
        const uint8_t* const here = src_ + p;
        size_t c = e - 1;
        uint32_t dist = static_cast<uint32_t>(p - c);
        for (int i = 0; i < kHighCandidates && dist <= kMaxDistance; ++i) {
            const uint8_t* const cand = src_ + c;
            // A longer match must agree at the current best's end first.
            if ((best.len == 0 || (p + best.len < n_ && cand[best.len] == here[best.len])) &&
                load_u32le(cand) == load_u32le(here)) {
                const size_t len = kMinMatch + MatchExtend(here + kMinMatch, cand + kMinMatch, end);
                if (len > best.len) {
                    best = {len, dist};
                    if (len >= kHighGoodEnough) break;
                }
            }
            const uint32_t step = load_u16le(chain_ + 2 * (c & 0xFFFF));
            if (step == 0) break;
            c -= step;
            dist += step;
        }
        return best;
    }

private:
    const uint8_t* src_;
    size_t n_;
    uint8_t* heads_;
    uint8_t* chain_;
    size_t next_ = 0;
};

}  // namespace

uint32_t FastHashBits(uint32_t maxInputLen) {
    uint32_t log = 0;
    while (log < 32 && (uint64_t{1} << log) < maxInputLen) ++log;
    return std::clamp<uint32_t>(log >= 2 ? log - 2 : 0, kFastHashBitsMin, kFastHashBitsMax);
}

uint32_t StateBytes(int32_t method, uint32_t maxInputLen) {
    if (method == LzoMethodHigh) return static_cast<uint32_t>(kHighStateBytes);
    return static_cast<uint32_t>(kStateHeaderBytes + (size_t{4} << FastHashBits(maxInputLen)));
}

uint64_t EncodeBound(int32_t method, uint64_t n) {
    return method == LzoMethodSegmented ? ZYRDC_LZO_SEGMENTED_BOUND(n) : ZYRDC_LZO_BOUND(n);
}

uint32_t SegmentCount(uint64_t n) {
    return static_cast<uint32_t>(std::clamp<uint64_t>((n + 65535) >> 16, 2, kMaxSegments));
}

namespace {

// The single-probe coder for one table size, so that the hash's shift is a constant.
template <uint32_t kBits>
size_t EncodeFastBits(const uint8_t* src, size_t n, uint8_t* dst, size_t cap, uint8_t* table) {
    std::memset(table, 0, size_t{4} << kBits);
    constexpr uint32_t kShift = 32 - kBits;
    const uint8_t* const end = src + n;
    const size_t limit = n - kLiteralOnlyMax;
    Writer w(dst, cap);
    // Until the first match the stream's opening run is pending; after it the loop below
    // writes through op alone.
    uint8_t* op = dst;
    const uint8_t* const opEnd = w.end();
    size_t anchor = 0, p = 0;
    while (p < limit) {
        uint8_t* const slot = table + 4 * Hash(src + p, kShift);
        size_t c = load_u32le(slot);
        store_u32le(slot, static_cast<uint32_t>(p));
        // A candidate out of reach is not read: it may lie anywhere in a long source, far
        // outside the caches.
        if (p - c - 1 < kMaxDistance && load_u32le(src + c) == load_u32le(src + p)) {
            while (p > anchor && c > 0 && src[p - 1] == src[c - 1]) {
                --p;
                --c;
            }
            const size_t len = kMinMatch + MatchExtend(src + p + kMinMatch, src + c + kMinMatch, end);
            const size_t lits = p - anchor;
            if (!w.matched()) {
                op = PutFirstLiterals(op, opEnd, src + anchor, lits, end);
                w.Set(op);
            } else if (lits != 0) {
                op = PutLiteralsAfterMatch(op, opEnd, src + anchor, lits, end);
            }
            op = PutMatch(op, static_cast<uint32_t>(p - c), len);
            p += len;
            anchor = p;
        } else {
            p += 1 + ((p - anchor) >> 5);
        }
    }
    if (w.matched()) w.Set(op);
    w.Literals(src + anchor, n - anchor, end);
    w.End();
    return w.pos();
}

}  // namespace

size_t EncodeFast(const uint8_t* src, size_t n, uint8_t* dst, size_t cap, uint8_t* table,
                  uint32_t hashBits) {
    if (n <= kLiteralOnlyMax) return LiteralsOnly(src, n, dst, cap);
    switch (hashBits) {
    case 10: return EncodeFastBits<10>(src, n, dst, cap, table);
    case 11: return EncodeFastBits<11>(src, n, dst, cap, table);
    case 12: return EncodeFastBits<12>(src, n, dst, cap, table);
    case 13: return EncodeFastBits<13>(src, n, dst, cap, table);
    default: return EncodeFastBits<14>(src, n, dst, cap, table);
    }
}

size_t EncodeHigh(const uint8_t* src, size_t n, uint8_t* dst, size_t cap, uint8_t* tables) {
    if (n <= kLiteralOnlyMax) return LiteralsOnly(src, n, dst, cap);
    std::memset(tables, 0, 4 * kHighHeads + 2 * kHighChainEntries);
    const uint8_t* const end = src + n;
    const size_t limit = n - kLiteralOnlyMax;
    Chains chains(src, n, tables);
    Writer w(dst, cap);
    size_t anchor = 0, p = 0;
    while (p < limit) {
        chains.InsertUpTo(p);
        Chains::Found m = chains.Search(p);
        if (m.len == 0) {
            ++p;
            continue;
        }
        // One step of lazy evaluation: a longer match one byte on makes this byte a literal.
        while (p + 1 < limit) {
            chains.InsertUpTo(p + 1);
            const Chains::Found next = chains.Search(p + 1);
            if (next.len <= m.len) break;
            m = next;
            ++p;
        }
        size_t c = p - m.dist;
        size_t len = m.len;
        while (p > anchor && c > 0 && src[p - 1] == src[c - 1]) {
            --p;
            --c;
            ++len;
        }
        w.Literals(src + anchor, p - anchor, end);
        w.Match(m.dist, len);
        p += len;
        anchor = p;
    }
    w.Literals(src + anchor, n - anchor, end);
    w.End();
    return w.pos();
}

size_t EncodeSegmented(const uint8_t* src, size_t n, uint8_t* dst, size_t cap, uint8_t* table,
                       uint32_t hashBits) {
    const uint32_t segments = SegmentCount(n);
    dst[0] = kContainerTag;
    dst[1] = static_cast<uint8_t>(segments);
    dst[2] = static_cast<uint8_t>(segments ^ kContainerTag);
    store_u32le(dst + 3, static_cast<uint32_t>(n));
    size_t pos = kContainerFixedBytes + 4 * size_t{segments};
    const size_t share = n / segments;
    for (uint32_t i = 0; i < segments; ++i) {
        const bool last = i + 1 == segments;
        const size_t start = i * share;
        const size_t len = last ? n - start : share;
        const size_t coded = EncodeFast(src + start, len, dst + pos, cap - pos, table, hashBits);
        if (!last) store_u32le(dst + kContainerFixedBytes + 4 + 4 * size_t{i}, static_cast<uint32_t>(coded));
        pos += coded;
    }
    return pos;
}

}  // namespace zyrdc::lzo
