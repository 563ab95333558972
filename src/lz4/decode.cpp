// decode.cpp - LZ4 block decoding: three cores that differ in how far back a reference may
// reach and in their end-of-block rules, each with a fast path of wide copies and a careful
// path that checks every sequence against both buffer ends.
#include <emmintrin.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>

#include "core/bits.hpp"
#include "core/copy.hpp"
#include "core/match_copy.hpp"
#include "lz4/lz4.hpp"

namespace zyrdc::lz4 {

namespace {

constexpr uint32_t kMinMatch = 4;
constexpr uint32_t kMaxLength = 0x7FFFFFFF;  // lengths are signed 32-bit totals

// Source bytes a sequence may still need once the careful path has copied its literals:
// literals that end closer than this to the source end, without ending exactly there,
// mean the source was cut inside a sequence.
constexpr ptrdiff_t kSrcTail = 8;
// The prefix core reports a full destination for literals that end this close to its end
// (but not exactly at it); the separate-dictionary core reports a cut source for literals
// that end this close to the destination end.
constexpr ptrdiff_t kPrefixDstTail = 8;
constexpr ptrdiff_t kSeparateDstTail = 12;

// The fast path's widest writes: a literal run below 15 as one 16-byte unit, longer runs in
// 16-byte units (up to 15 bytes beyond the run), a match below 19 bytes as three 8-byte
// units (up to 6 beyond), longer ones through the wide engine (up to 15 beyond). A sequence
// that starts inside the destination margin with at most 32 literals and a short match
// therefore writes nothing past the margin, and one whose run is below 15 reads at most 19
// bytes after its token: the common case needs no test of its own. Longer runs and matches
// are measured against the margins before they are copied; a long match then writes up to
// 63 bytes past its end (64-byte steps), still inside the destination margin.
constexpr ptrdiff_t kShortLiterals = 32;
constexpr uintptr_t kShortMatchRead = 18;  // the bytes the three moves of a short match read
static_assert(kShortLiterals + 24 <= kDstMargin);
static_assert(kShortLiterals + static_cast<ptrdiff_t>(kWideCopySlack) <= kDstMargin);
static_assert(kDstMargin >= 64);  // a long match writes up to 63 bytes past its end
// Literal reads run up to 15 bytes past the run, which must end before the source margin.
static_assert(static_cast<ptrdiff_t>(kWideCopySlack) - 1 < kSrcMarginDict &&
              kSrcMarginDict < kSrcMarginPlain);
static_assert(1 + 16 + 2 <= kSrcMarginDict);

inline __m128i Load16(const uint8_t* s) { return _mm_loadu_si128(reinterpret_cast<const __m128i*>(s)); }
inline void StoreAligned16(uint8_t* d, __m128i v) { _mm_store_si128(reinterpret_cast<__m128i*>(d), v); }

inline __m128i Broadcast(uint64_t w) { return _mm_set1_epi64x(static_cast<long long>(w)); }

// A match below 19 bytes whose source lies at least 8 bytes back (or apart, in a dictionary):
// two 8-byte moves and a 2-byte one, each reading bytes already final (the second and third
// may read what the moves before them stored); up to 6 bytes past the match.
inline void CopyShortMatch(uint8_t* d, const uint8_t* s) {
    Copy8(d, s);
    Copy8(d + 8, s + 8);
    store_u16le(d + 16, load_u16le(s + 16));
}

enum class RunEnd { Done, SourceEnd, Overflow };

// Adds a 255-run to `total`: bytes while they equal 255, then the first byte below 255.
inline RunEnd ReadRun(const uint8_t*& ip, const uint8_t* iend, uint32_t& total) {
    for (;;) {
        if (ip == iend) {
            return RunEnd::SourceEnd;
        }
        const uint32_t b = *ip++;
        total += b;
        if (total > kMaxLength) {
            return RunEnd::Overflow;
        }
        if (b != 255) {
            return RunEnd::Done;
        }
    }
}

inline bool Wraps(const void* p, uint32_t n) {
    const uintptr_t a = reinterpret_cast<uintptr_t>(p);
    return a + n < a;
}

// ---- the cores -------------------------------------------------------------------------------

template <Core C>
class Decoder {
public:
    explicit Decoder(const DecodeArgs& a)
        : src_(a.src), iend_(a.src + a.srcLen), out_(a.out), oend_(a.out + a.capacity),
          history_(C == Core::Plain ? 0 : C == Core::Prefix ? a.dictSize : a.dstIdx),
          dict_(a.dict), dictSize_(a.dictSize), oneByte_(a.srcLen == 1) {}

    template <bool kFast>
    DecodeResult Run() {
        const uint8_t* ip = src_;
        uint8_t* op = out_;
        for (;;) {
            if constexpr (kFast) {
                FastLoop(ip, op);
            }
            DecodeResult r;
            if (!CarefulSequence(ip, op, r)) {
                return r;
            }
        }
    }

private:
    static constexpr ptrdiff_t kSrcMargin = C == Core::Plain ? kSrcMarginPlain : kSrcMarginDict;

    DecodeResult Stop(ZyrStatus status, const uint8_t* ip, const uint8_t* op) const {
        return {status, static_cast<int32_t>(ip - src_), static_cast<int32_t>(op - out_)};
    }

    // How far before op a reference may start.
    ptrdiff_t Reach(const uint8_t* op) const { return (op - out_) + history_; }

    // Writes the bytes of a match that come from the separate dictionary (a reference that
    // starts before dictSize in the destination's index space) and returns how many.
    size_t CopyFromDictionary(uint8_t* op, size_t off, size_t len) const {
        if constexpr (C != Core::Separate) {
            return 0;
        } else {
            const ptrdiff_t at = Reach(op) - static_cast<ptrdiff_t>(off);
            if (at >= dictSize_) {
                return 0;
            }
            const size_t n = std::min(len, static_cast<size_t>(dictSize_ - at));
            CopyExact(op, dict_ + at, n);  // the dictionary lies apart from the destination
            return n;
        }
    }

    // Sequences with wide copies while every byte they touch lies inside the margins. A
    // sequence that does not (long runs near an end, a bad offset, a length overflow) is
    // left untouched for the careful path, so that both paths give the same result. A
    // function of its own with all state in local variables: the loop then keeps it in
    // registers (stores into the destination could alias the members, and the careful
    // path's code would compete for registers). Its start on a 64-byte line and the common
    // sequence's code on a 16-byte boundary (below) fix where the hot loop falls: moved by a
    // few bytes, with a branch across a line end, it ran up to a quarter slower.
    [[gnu::noinline, gnu::aligned(64)]] void FastLoop(const uint8_t*& ipInOut,
                                                      uint8_t*& opInOut) const {
        if (iend_ - src_ < kSrcMargin || oend_ - out_ < kDstMargin) {
            return;
        }
        const uint8_t* ip = ipInOut;
        uint8_t* op = opInOut;
        const uint8_t* const iend = iend_;
        const uint8_t* const ilimit = iend_ - kSrcMargin;
        uint8_t* const olimit = oend_ - kDstMargin;
        const uint8_t* const lowest = out_ - history_;  // the history's first byte
        // The first byte a match may read in memory: the separate dictionary's bytes are
        // elsewhere, so a match that reaches before this one takes the long way.
        const ptrdiff_t inMemory = C == Core::Separate ? history_ - dictSize_ : history_;
        const uintptr_t lowMem = reinterpret_cast<uintptr_t>(out_) - static_cast<uintptr_t>(inMemory);
        // Separate dictionary: a match that starts `back` bytes before lowMem (1 <= back <=
        // dictSize) reads its first `back` bytes from dictEnd - back, the rest with the same
        // offset from lowMem on. The two parts lie in different memory: the dictionary part
        // never overlaps the bytes it writes.
        const uintptr_t dictShift =
            C == Core::Separate ? reinterpret_cast<uintptr_t>(dict_ + dictSize_) - lowMem : 0;
        const uintptr_t dictSize = static_cast<uintptr_t>(dictSize_);
        // A short match reads kShortMatchRead bytes: from a back of that many up to dictSize.
        const uintptr_t shortDictRoom = dictSize >= kShortMatchRead ? dictSize - (kShortMatchRead - 1) : 0;
        // The token of the next sequence is loaded as soon as its place is known, at the end
        // of the sequence before (in the common case from the literal count alone).
        uint32_t token = ip <= ilimit && op <= olimit ? *ip : 0;
        while (ip <= ilimit && op <= olimit) {
            size_t lit = token >> 4;
            const uint8_t* after = ip + 3;  // the next token's place with no literals (offset in between)
            if (__builtin_expect(lit != 15, 1)) {
                // Reached only by the loop's branch back, whose target the compiler places
                // before this padding: a 64-byte boundary here cost up to five executed no-ops
                // a sequence in one core's layout; the compiler's own alignment of the branch
                // target leaves at most one.
                asm(".p2align 4");
                Copy16(op, ip + 1);
            } else {
                const uint8_t* p = ip + 1;
                const uint32_t b = *p++;
                uint32_t run = 15 + b;
                if (b == 255 && ReadRun(p, iend, run) != RunEnd::Done) break;
                lit = run;
                // One test for both ends, no branch between them: a run above kShortLiterals
                // must also end before the destination margin.
                const ptrdiff_t outRoom = std::max<ptrdiff_t>(kShortLiterals, olimit - op);
                if ((static_cast<ptrdiff_t>(lit) > ilimit - p) | (static_cast<ptrdiff_t>(lit) > outRoom)) {
                    break;
                }
                // In 32-byte steps, reading and writing up to 31 bytes past the run: inside
                // both margins (a run above kShortLiterals ends before the destination's).
                size_t i = 0;
                do {
                    Copy16(op + i, p + i);
                    Copy16(op + i + 16, p + i + 16);
                    i += 32;
                } while (i < lit);
                after = p + 2;
            }
            const uint8_t* p = after + lit;
            // p is the next token's place unless the match is long. The token is loaded with
            // `after` and the count as the address (no addition before the load); the compiler
            // would reuse p, one addition later, without a copy of `after` it cannot see through.
            const uint8_t* nextToken = after;
            asm("" : "+r"(nextToken));
            uint8_t* const m = op + lit;
            const size_t off = load_u16le(p - 2);
            size_t mlen = token & 15;
            const uintptr_t from = reinterpret_cast<uintptr_t>(m) - off;
            if (__builtin_expect(mlen != 15, 1)) {
                if (__builtin_expect(off >= 8, 1) && __builtin_expect(from >= lowMem, 1)) {
                    // One test for every offset from 8: a wider first unit for offsets from 16
                    // cost a branch that offsets 8 to 15 miss.
                    CopyShortMatch(m, m - off);
                    token = nextToken[lit];
                    ip = p;
                    op = m + mlen + kMinMatch;
                    continue;
                }
                if constexpr (C == Core::Separate) {
                    // Inside the dictionary with 18 bytes to read before its end: the same
                    // three moves (one unsigned test: lowMem - from wraps above dictSize for a
                    // match in memory).
                    if (__builtin_expect(lowMem - from - kShortMatchRead < shortDictRoom, 1)) {
                        CopyShortMatch(m, reinterpret_cast<const uint8_t*>(from + dictShift));
                        token = nextToken[lit];
                        ip = p;
                        op = m + mlen + kMinMatch;
                        continue;
                    }
                }
                if (off != 0 && from >= lowMem) {
                    // A period of 1 to 7: its 16-byte pattern twice, the second at the largest
                    // multiple of the period in 16 bytes (at least 12, so 18 bytes are covered).
                    using match_copy_detail::kOffsetTables;
                    const __m128i v = match_copy_detail::RepeatPattern(m, off);
                    _mm_storeu_si128(reinterpret_cast<__m128i*>(m), v);
                    _mm_storeu_si128(reinterpret_cast<__m128i*>(m + kOffsetTables.stride[off]), v);
                    token = nextToken[lit];
                    ip = p;
                    op = m + mlen + kMinMatch;
                    continue;
                }
            } else {
                const uint32_t b = *p++;  // still inside the source margin
                uint32_t run = 15 + b;
                if (b == 255 && ReadRun(p, iend, run) != RunEnd::Done) break;
                mlen = run + kMinMatch;
                if (__builtin_expect(from >= lowMem, 1) &&
                    __builtin_expect(static_cast<ptrdiff_t>(mlen) <= olimit - m, 1) &&
                    __builtin_expect(off != 0, 1)) {
                    const uint8_t* const match = m - off;
                    // Up to 63 bytes past the match: inside the destination margin.
                    if (__builtin_expect(off >= 16, 1)) {
                        Copy16(m, match);
                        Copy16(m + 16, match + 16);
                        Copy16(m + 32, match + 32);
                        Copy16(m + 48, match + 48);
                        if (__builtin_expect(mlen > 64, 0)) {
                            if (off >= 64) {
                                // Every step reads only bytes from before it: 64 bytes a step,
                                // the stores aligned to 16 (one that crosses a 64-byte line
                                // costs two), from the first aligned place after 48 on.
                                size_t i = 64 - (reinterpret_cast<uintptr_t>(m) & 15);
                                do {
                                    const __m128i u0 = Load16(match + i), u1 = Load16(match + i + 16);
                                    const __m128i u2 = Load16(match + i + 32), u3 = Load16(match + i + 48);
                                    StoreAligned16(m + i, u0);
                                    StoreAligned16(m + i + 16, u1);
                                    StoreAligned16(m + i + 32, u2);
                                    StoreAligned16(m + i + 48, u3);
                                    i += 64;
                                } while (i < mlen);
                            } else if (off >= 32) {
                                // Both halves of a step come from before it.
                                for (size_t i = 64; i < mlen; i += 32) {
                                    const __m128i lo = Load16(match + i);
                                    const __m128i hi = Load16(match + i + 16);
                                    _mm_storeu_si128(reinterpret_cast<__m128i*>(m + i), lo);
                                    _mm_storeu_si128(reinterpret_cast<__m128i*>(m + i + 16), hi);
                                }
                            } else {
                                for (size_t i = 64; i < mlen; i += 16) Copy16(m + i, match + i);
                            }
                        }
                    } else if ((off & (off - 1)) == 0) {
                        // A period of 1, 2, 4 or 8 over at least 19 bytes: every 16 bytes hold
                        // the same pattern, so one unaligned head and then 64 bytes a step in
                        // aligned stores of the pattern rotated to the first aligned place.
                        uint64_t word = load_u64le(m - off);  // a period of 8 as it stands
                        if (off < 8) word = match_copy_detail::RepeatPeriod(word, off);
                        _mm_storeu_si128(reinterpret_cast<__m128i*>(m), Broadcast(word));
                        const size_t head = 16 - (reinterpret_cast<uintptr_t>(m) & 15);
                        const unsigned rot = 8 * static_cast<unsigned>(head & (off - 1));
                        const __m128i v = Broadcast(rot == 0 ? word : word >> rot | word << (64 - rot));
                        size_t i = head;
                        do {
                            StoreAligned16(m + i, v);
                            StoreAligned16(m + i + 16, v);
                            StoreAligned16(m + i + 32, v);
                            StoreAligned16(m + i + 48, v);
                            i += 64;
                        } while (i < mlen);
                    } else {
                        // Any other period below 16 over at least 19 bytes: its pattern stored
                        // at multiples of the period, four units a step (up to 60 bytes past
                        // the match: inside the destination margin).
                        const __m128i v = match_copy_detail::RepeatPattern(m, off);
                        const size_t stride = match_copy_detail::kOffsetTables.stride[off];
                        for (size_t i = 0; i < mlen; i += 4 * stride) {
                            _mm_storeu_si128(reinterpret_cast<__m128i*>(m + i), v);
                            _mm_storeu_si128(reinterpret_cast<__m128i*>(m + i + stride), v);
                            _mm_storeu_si128(reinterpret_cast<__m128i*>(m + i + 2 * stride), v);
                            _mm_storeu_si128(reinterpret_cast<__m128i*>(m + i + 3 * stride), v);
                        }
                    }
                    ip = p;
                    op = m + mlen;
                    token = ip <= ilimit ? *ip : 0;
                    continue;
                }
                if constexpr (C == Core::Separate) {
                    const uintptr_t back = lowMem - from;
                    if (back - 1 < dictSize && static_cast<ptrdiff_t>(mlen) <= olimit - m) {
                        // Exact units from the dictionary (nothing read past its end), then
                        // the part from lowMem on, which may overlap itself.
                        const uint8_t* const match = reinterpret_cast<const uint8_t*>(from + dictShift);
                        if (back >= mlen) {
                            for (size_t i = 0; i + 16 < mlen; i += 16) Copy16(m + i, match + i);
                            Copy16(m + mlen - 16, match + mlen - 16);
                        } else {
                            CopyExact(m, match, back);
                            MatchCopyWide(m + back, off, mlen - back);
                        }
                        ip = p;
                        op = m + mlen;
                        token = ip <= ilimit ? *ip : 0;
                        continue;
                    }
                }
                mlen -= kMinMatch;
            }
            mlen += kMinMatch;
            if (static_cast<ptrdiff_t>(mlen) > olimit - m || static_cast<ptrdiff_t>(off) > m - lowest) {
                break;
            }
            size_t fromDict = 0;
            if constexpr (C == Core::Separate) {
                fromDict = CopyFromDictionary(m, off, mlen);
            }
            if (fromDict < mlen) {
                MatchCopyWide(m + fromDict, off, mlen - fromDict);
            }
            ip = p;
            op = m + mlen;
            token = ip <= ilimit ? *ip : 0;
        }
        ipInOut = ip;
        opInOut = op;
    }

    // One sequence with every end rule of the core. Returns false with the result set when
    // decoding stops.
    bool CarefulSequence(const uint8_t*& ip, uint8_t*& op, DecodeResult& r) const {
        if (iend_ - ip < 2) {
            r = Stop(oneByte_ ? StatusSrcExhausted : StatusOk, ip, op);
            return false;
        }
        const uint32_t token = *ip++;
        uint32_t lit = token >> 4;
        if ((lit == 15 && ReadRun(ip, iend_, lit) == RunEnd::Overflow) || Wraps(ip, lit) ||
            Wraps(op, lit)) {
            r = {StatusBadSize, 0, 0};
            return false;
        }
        const ptrdiff_t n = lit;
        const ptrdiff_t srcLeft = iend_ - ip;
        const ptrdiff_t dstLeft = oend_ - op;
        // The end rules of the literals, in the order each core applies them.
        ZyrStatus cut = StatusOk;
        ptrdiff_t take = n;
        if (C == Core::Plain && n > dstLeft) {
            cut = StatusDstFull;
            take = std::min(dstLeft, srcLeft);
        } else if (C == Core::Prefix && n != dstLeft && n > dstLeft - kPrefixDstTail) {
            cut = StatusDstFull;
            take = std::min({n, dstLeft, srcLeft});
        } else if (C == Core::Separate && n > dstLeft) {
            r = Stop(StatusDstFull, ip, op);
            return false;
        } else if (C == Core::Separate && n > dstLeft - kSeparateDstTail && n != srcLeft) {
            cut = StatusSrcExhausted;
            take = std::min(n, srcLeft);
        } else if (n != srcLeft && n > srcLeft - kSrcTail) {
            cut = StatusSrcExhausted;
            take = std::min(n, srcLeft);
        }
        CopyBytesKernel(ip, op, static_cast<int32_t>(take));
        ip += take;
        op += take;
        if (cut != StatusOk || ip == iend_ || op == oend_) {
            r = Stop(cut, ip, op);
            return false;
        }

        // At least kSrcTail source bytes are left: the offset is there.
        const size_t off = load_u16le(ip);
        ip += 2;
        if (static_cast<ptrdiff_t>(off) > Reach(op)) {
            r = {StatusError, 0, 0};
            return false;
        }
        uint32_t mlen = token & 15;
        if (mlen == 15) {
            const RunEnd run = ReadRun(ip, iend_, mlen);
            if (run == RunEnd::SourceEnd) {
                r = Stop(StatusSrcExhausted, ip, op);
                return false;
            }
            if (run == RunEnd::Overflow) {
                r = {StatusBadSize, 0, 0};
                return false;
            }
        }
        if (mlen > kMaxLength - kMinMatch || Wraps(op, mlen + kMinMatch)) {
            r = {StatusBadSize, 0, 0};
            return false;
        }
        mlen += kMinMatch;
        size_t len = mlen;
        const bool full = static_cast<ptrdiff_t>(len) > oend_ - op;
        if (full) {
            if (C == Core::Separate) {
                r = Stop(StatusDstFull, ip, op);
                return false;
            }
            len = static_cast<size_t>(oend_ - op);
        }
        const size_t fromDict = CopyFromDictionary(op, off, len);
        MatchCopyExact(op + fromDict, off, len - fromDict);
        op += len;
        if (full) {
            r = Stop(StatusDstFull, ip, op);
            return false;
        }
        return true;
    }

    const uint8_t* const src_;
    const uint8_t* const iend_;
    uint8_t* const out_;
    uint8_t* const oend_;
    const ptrdiff_t history_;
    const uint8_t* const dict_;
    const ptrdiff_t dictSize_;
    const bool oneByte_;
};

template <Core C>
DecodeResult RunCore(const DecodeArgs& args, bool fast) {
    Decoder<C> decoder(args);
    return fast ? decoder.template Run<true>() : decoder.template Run<false>();
}

}  // namespace

DecodeResult Decode(Core core, const DecodeArgs& args, bool fast) {
    switch (core) {
        case Core::Plain: return RunCore<Core::Plain>(args, fast);
        case Core::Prefix: return RunCore<Core::Prefix>(args, fast);
        case Core::Separate: return RunCore<Core::Separate>(args, fast);
    }
    return {StatusError, 0, 0};
}

}  // namespace zyrdc::lz4
