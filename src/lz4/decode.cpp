// decode.cpp - LZ4 block decoding: three cores that differ in how far back a reference may
// reach and in their end-of-block rules, each with a fast path of wide copies and a careful
// path that checks every sequence against both buffer ends.
#include <emmintrin.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>

#include "core/bits.hpp"
#include "core/copy.hpp"
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

// The fast path's widest writes: literals in 32-byte blocks (up to 31 bytes beyond the run)
// and matches in 16-byte stores (up to 15 beyond). The destination margin keeps a sequence
// that starts inside it, with at most 32 literals, clear of the end; longer runs and matches
// are measured against the margin before they are copied.
constexpr ptrdiff_t kLiteralBlock = 32;
constexpr ptrdiff_t kShortLiterals = 32;
static_assert(kShortLiterals + kLiteralBlock <= kDstMargin);
// Literal reads run up to 31 bytes past the run, which must end before the source margin.
static_assert(kLiteralBlock - 1 < kSrcMarginDict && kSrcMarginDict < kSrcMarginPlain);

inline void Copy16(uint8_t* d, const uint8_t* s) {
    _mm_storeu_si128(reinterpret_cast<__m128i*>(d),
                     _mm_loadu_si128(reinterpret_cast<const __m128i*>(s)));
}

// 16 bytes as two 8-byte moves, both loads first. Matches read output written moments
// before, still in the store queue; an 8-byte load lies within one earlier store more often
// than a 16-byte one does, and only then is it forwarded without waiting (measured: a few
// per cent on files with many short sequences).
inline void Copy8Pair(uint8_t* d, const uint8_t* s) {
    const uint64_t a = load_u64le(s), b = load_u64le(s + 8);
    store_u64le(d, a);
    store_u64le(d + 8, b);
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

// ---- match copies ------------------------------------------------------------------------

// Largest multiple of the offset that fits in 16 bytes, and 8 mod offset, for offsets 1..15.
constexpr auto kPatternStride = [] {
    std::array<uint8_t, 16> t{};
    for (unsigned o = 1; o < 16; ++o) t[o] = static_cast<uint8_t>(16 / o * o);
    return t;
}();
constexpr auto kEightModOffset = [] {
    std::array<uint8_t, 16> t{};
    for (unsigned o = 1; o < 16; ++o) t[o] = static_cast<uint8_t>(8 % o);
    return t;
}();
static_assert(kPatternStride[3] == 15 && kPatternStride[7] == 14 && kPatternStride[9] == 9);


// The 16 bytes that a match of offset 1..15 writes first: the `off` bytes before d repeated.
// Reads up to 8 bytes past d - off + 8, i.e. at most 8 bytes from d on, whose old content
// is masked away.
inline __m128i RepeatPattern(const uint8_t* d, size_t off) {
    const uint8_t* s = d - off;
    uint64_t lo, hi;
    if (off < 8) {
        // Double the period until it fills 8 bytes; the second 8 bytes are the first ones
        // rotated by 8 mod off (bytes that both halves cover agree, so OR joins them).
        uint64_t p = load_u64le(s) & ((uint64_t{1} << (8 * off)) - 1);
        p |= p << (8 * off);
        if (off < 4) p |= p << (16 * off);
        if (off < 2) p |= p << (32 * off);
        const unsigned r = kEightModOffset[off];
        lo = p;
        hi = (p >> (8 * r)) | (p << (8 * (off - r)));
    } else {
        lo = load_u64le(s);
        const unsigned extra = static_cast<unsigned>(off) - 8;  // bytes of s[8..] in the period
        const uint64_t mask = extra == 0 ? 0 : (uint64_t{1} << (8 * extra)) - 1;
        hi = (load_u64le(s + 8) & mask) | (lo << (8 * extra));
    }
    return _mm_set_epi64x(static_cast<long long>(hi), static_cast<long long>(lo));
}

// Match of `len` bytes at d from d - off, with byte-by-byte semantics (an offset below the
// length repeats the last `off` bytes; offset 0 leaves the bytes as they are). May write up
// to 15 bytes past the match.
inline void CopyMatchWide(uint8_t* d, size_t off, size_t len) {
    if (off >= 16) {
        // 16 bytes, then 16 or 32 a step (32 once both halves of a step come from before
        // it).
        Copy8Pair(d, d - off);
        if (len <= 16) return;
        Copy16(d + 16, d + 16 - off);
        if (len <= 32) return;
        if (off >= 32) {
            for (size_t i = 32; i < len; i += 32) {
                const __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i*>(d + i - off));
                const __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i*>(d + i + 16 - off));
                _mm_storeu_si128(reinterpret_cast<__m128i*>(d + i), a);
                _mm_storeu_si128(reinterpret_cast<__m128i*>(d + i + 16), b);
            }
        } else {
            for (size_t i = 32; i < len; i += 16) Copy16(d + i, d + i - off);
        }
    } else if (len <= off) {
        Copy16(d, d - off);  // one load before the store: the first `len` bytes are right
    } else if (off != 0) {
        const __m128i v = RepeatPattern(d, off);
        const size_t stride = kPatternStride[off];
        for (size_t i = 0; i < len; i += stride) {
            _mm_storeu_si128(reinterpret_cast<__m128i*>(d + i), v);
        }
    }
}

// The same, writing exactly `len` bytes.
inline void CopyMatchExact(uint8_t* d, size_t off, size_t len) {
    if (off >= len) {
        CopyBytesKernel(d - off, d, static_cast<int32_t>(len));
        return;
    }
    if (off == 0) {
        return;
    }
    size_t i = 0;
    if (len >= 16) {
        if (off >= 16) {
            for (; i + 16 <= len; i += 16) Copy16(d + i, d + i - off);
            Copy16(d + len - 16, d + len - 16 - off);  // rewrites finished bytes with themselves
            return;
        }
        const __m128i v = RepeatPattern(d, off);
        const size_t stride = kPatternStride[off];
        for (; i + 16 <= len; i += stride) {
            _mm_storeu_si128(reinterpret_cast<__m128i*>(d + i), v);
        }
    }
    for (; i < len; ++i) d[i] = *(d + i - off);
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
            for (size_t i = 0; i < n; ++i) op[i] = dict_[at + static_cast<ptrdiff_t>(i)];
            return n;
        }
    }

    // Sequences with wide copies while every byte they touch lies inside the margins. A
    // sequence that does not (long runs near an end, a bad offset, a length overflow) is
    // left untouched for the careful path, so that both paths give the same result. A
    // function of its own with all state in local variables: the loop then keeps it in
    // registers (stores into the destination could alias the members, and the careful
    // path's code would compete for registers).
    [[gnu::noinline]] void FastLoop(const uint8_t*& ipInOut, uint8_t*& opInOut) const {
        if (iend_ - src_ < kSrcMargin || oend_ - out_ < kDstMargin) {
            return;
        }
        const uint8_t* ip = ipInOut;
        uint8_t* op = opInOut;
        const uint8_t* const iend = iend_;
        const uint8_t* const ilimit = iend_ - kSrcMargin;
        uint8_t* const olimit = oend_ - kDstMargin;
        const uint8_t* const lowest = out_ - history_;  // the history's first byte
        while (ip <= ilimit && op <= olimit) {
            const uint8_t* p = ip;
            const uint32_t token = *p++;
            uint32_t lit = token >> 4;
            if (lit == 15 && ReadRun(p, iend, lit) != RunEnd::Done) break;
            if (static_cast<ptrdiff_t>(lit) > ilimit - p ||
                (lit > kShortLiterals && static_cast<ptrdiff_t>(lit) > olimit - op)) {
                break;
            }
            const uint8_t* const lits = p;
            p += lit;
            const size_t off = load_u16le(p);
            p += 2;
            uint32_t mlen = token & 15;
            if (mlen == 15 && ReadRun(p, iend, mlen) != RunEnd::Done) break;
            mlen += kMinMatch;
            uint8_t* const m = op + lit;
            if (static_cast<ptrdiff_t>(mlen) > olimit - m || static_cast<ptrdiff_t>(off) > m - lowest) {
                break;
            }
            Copy8Pair(op, lits);
            if (lit > 16) {
                Copy16(op + 16, lits + 16);
                for (uint32_t i = 32; i < lit; i += kLiteralBlock) {
                    Copy16(op + i, lits + i);
                    Copy16(op + i + 16, lits + i + 16);
                }
            }
            size_t fromDict = 0;
            if constexpr (C == Core::Separate) {
                fromDict = CopyFromDictionary(m, off, mlen);
            }
            if (fromDict < mlen) {
                CopyMatchWide(m + fromDict, off, mlen - fromDict);
            }
            ip = p;
            op = m + mlen;
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
        CopyMatchExact(op + fromDict, off, len - fromDict);
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
