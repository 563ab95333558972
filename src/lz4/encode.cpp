// encode.cpp - LZ4 block encoding: a greedy encoder (unbounded, or bounded by the
// destination with a block that always closes cleanly) and an accelerated encoder that
// probes sparser as it fails, both over a caller's hash table of source positions.
#include <emmintrin.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>

#include "core/bits.hpp"
#include "core/copy.hpp"
#include "core/match_copy.hpp"
#include "lz4/lz4.hpp"
#include "lz4/sequences.hpp"

namespace zyrdc::lz4 {

namespace {

constexpr uint32_t kMinMatch = 4;
constexpr uint32_t kRunNibble = 15;  // a nibble of 15 continues in 255-runs
// The first match of a block may extend to 5 bytes before the source end, later matches of
// the greedy encoder to 12 bytes before it; the accelerated encoder always uses 5. Either
// way the block ends with at least 5 literals once a match was found.
constexpr uint32_t kFirstMatchTail = 5;
constexpr uint32_t kLaterMatchTail = 12;
constexpr uint32_t kAcceleratedTail = 5;
// Probes stop this many bytes before the source end: every probed position has the five
// bytes of its hash and the eight of the first match test.
constexpr uint32_t kProbeTail = kLiteralOnlyMax;
static_assert(kProbeTail >= kLaterMatchTail + 8 + 1);
// The bounded encoder keeps this much of the destination for closing the block.
constexpr ptrdiff_t kClosingRoom = 8;
// After a sequence whose literals numbered fewer than this, the next positions are probed
// three at a time before the search thins out.
constexpr uint32_t kBatchAfterLiterals = 64;
constexpr int kBatches = 16;

// The encoders' steps are small functions that must melt into one loop per encoder, so that
// their state stays in registers; the compilers' size heuristics would keep some apart.
#define ZYRDC_INLINE [[gnu::always_inline]] inline

// Continuation bytes of a count whose nibble is 15.
constexpr uint32_t RunBytes(uint32_t count) {
    return count < kRunNibble ? 0 : (count - kRunNibble) / 255 + 1;
}

// ---- the hash table --------------------------------------------------------------------

// Entries hold positions as offsets from the source start, in 16 or 32 bits; entries are
// read and written through memcpy, so the caller's buffer needs no particular alignment.
template <class Entry, int kBits>
class Table {
public:
    static constexpr bool kWide = sizeof(Entry) == 4;
    static_assert((sizeof(Entry) << kBits) <= kHashTableBytes);

    explicit Table(uint8_t* base) : base_(base) {}
    static uint32_t Hash(const uint8_t* p) { return Hash5(p, kBits); }
    // Bits 24 to 24 + kBits - 1 of the product depend on the value's low 24 + kBits bits
    // alone, so shifting those to the top and keeping the product's top kBits gives the same
    // hash without a mask (the bytes of v above the fifth are ignored, as in Hash40).
    static uint32_t Hash(uint64_t v) {
        static_assert(24 + kBits <= 40);
        return static_cast<uint32_t>(((v << (40 - kBits)) * kHashMultiplier) >> (64 - kBits));
    }
    uint32_t Get(uint32_t h) const {
        Entry e;
        std::memcpy(&e, base_ + h * sizeof(Entry), sizeof e);
        return e;
    }
    void Put(uint32_t h, uint32_t pos) {
        const Entry e = static_cast<Entry>(pos);
        std::memcpy(base_ + h * sizeof(Entry), &e, sizeof e);
    }
    // A candidate the format can reach: only the wide layout holds positions more than
    // 65535 apart.
    static bool InReach(uint32_t pos, uint32_t cand) { return !kWide || pos - cand <= kMaxOffset; }

private:
    uint8_t* base_;
};

using NarrowTable = Table<uint16_t, 12>;
using WideTable = Table<uint32_t, 12>;
using AcceleratedNarrowTable = Table<uint16_t, 13>;

// ---- the block being written -----------------------------------------------------------

// Writes wide (16-byte literal blocks, one 8-byte store of 0xFF for short runs) only where
// the whole store fits the capacity, exactly otherwise.
class Output {
public:
    Output(uint8_t* dst, size_t capacity) : d_(dst), cap_(capacity) {}

    size_t pos() const { return pos_; }
    uint8_t* base() const { return d_; }
    size_t capacity() const { return cap_; }
    void Rewind(size_t pos) { pos_ = pos; }
    size_t Reserve() { return pos_++; }
    void Put(size_t at, uint8_t v) { d_[at] = v; }

    ZYRDC_INLINE void Run(uint32_t count) {
        if (count < kRunNibble) {
            return;
        }
        uint32_t rest = count - kRunNibble;
        if (rest < 8 * 255 && pos_ + 8 <= cap_) {
            store_u64le(d_ + pos_, ~uint64_t{0});
            pos_ += rest / 255;
            d_[pos_++] = static_cast<uint8_t>(rest % 255);
            return;
        }
        for (; rest >= 255; rest -= 255) d_[pos_++] = 255;
        d_[pos_++] = static_cast<uint8_t>(rest);
    }
    // Literals followed in the source by at least 15 more bytes when `wide_reads` is true.
    ZYRDC_INLINE void Literals(const uint8_t* s, size_t n, bool wide_reads) {
        if (wide_reads && pos_ + n + 16 <= cap_) {
            for (size_t i = 0; i < n; i += 16) Copy16(d_ + pos_ + i, s + i);
        } else {
            CopyBytesKernel(s, d_ + pos_, static_cast<int32_t>(n));
        }
        pos_ += n;
    }
    ZYRDC_INLINE void Offset(uint32_t off) {
        store_u16le(d_ + pos_, static_cast<uint16_t>(off));
        pos_ += 2;
    }

private:
    uint8_t* d_;
    size_t cap_;
    size_t pos_ = 0;
};

struct Match {
    uint32_t pos;
    uint32_t cand;
    uint32_t len;
};

// Bytes equal at pos and cand: 0 if the first words differ, 4..7 from the second words,
// else byte by byte from 8 up to `limit` (compared a machine word at a time).
ZYRDC_INLINE uint32_t MatchLength(const uint8_t* src, uint32_t pos, uint32_t cand, uint32_t limit) {
    const uint8_t* p = src + pos;
    const uint8_t* c = src + cand;
    uint32_t len = 8;
    if constexpr (sizeof(size_t) == 8) {
        const uint64_t first = load_u64le(p) ^ load_u64le(c);  // both words at once
        if (static_cast<uint32_t>(first) != 0) return 0;
        if (first != 0) return static_cast<uint32_t>(__builtin_ctzll(first)) / 8;
        for (; len + 16 <= limit; len += 16) {  // long matches: 16 bytes a step
            const __m128i eq = _mm_cmpeq_epi8(_mm_loadu_si128(reinterpret_cast<const __m128i*>(p + len)),
                                              _mm_loadu_si128(reinterpret_cast<const __m128i*>(c + len)));
            const uint32_t differ = static_cast<uint32_t>(_mm_movemask_epi8(eq)) ^ 0xFFFF;
            if (differ != 0) return len + static_cast<uint32_t>(__builtin_ctz(differ));
        }
        for (; len + 8 <= limit; len += 8) {
            const uint64_t x = load_u64le(p + len) ^ load_u64le(c + len);
            if (x != 0) return len + static_cast<uint32_t>(__builtin_ctzll(x)) / 8;
        }
    } else {
        if (load_u32le(p) != load_u32le(c)) return 0;
        const uint32_t second = load_u32le(p + 4) ^ load_u32le(c + 4);
        if (second != 0) return kMinMatch + static_cast<uint32_t>(__builtin_ctz(second)) / 8;
        for (; len + 4 <= limit; len += 4) {
            const uint32_t x = load_u32le(p + len) ^ load_u32le(c + len);
            if (x != 0) return len + static_cast<uint32_t>(__builtin_ctz(x)) / 8;
        }
    }
    while (len < limit && p[len] == c[len]) ++len;
    return len;
}

// CommonLength for the rest of a long match: 32 bytes a step (one mask test for two
// compares), which halves the loop's branches on the long runs of images and tables.
ZYRDC_INLINE uint32_t LongLength(const uint8_t* a, const uint8_t* b, uint32_t limit) {
    uint32_t len = 0;
    for (; len + 32 <= limit; len += 32) {
        const __m128i eq0 = _mm_cmpeq_epi8(_mm_loadu_si128(reinterpret_cast<const __m128i*>(a + len)),
                                           _mm_loadu_si128(reinterpret_cast<const __m128i*>(b + len)));
        const __m128i eq1 = _mm_cmpeq_epi8(_mm_loadu_si128(reinterpret_cast<const __m128i*>(a + len + 16)),
                                           _mm_loadu_si128(reinterpret_cast<const __m128i*>(b + len + 16)));
        if (_mm_movemask_epi8(_mm_and_si128(eq0, eq1)) != 0xFFFF) {
            const uint32_t differ = static_cast<uint32_t>(_mm_movemask_epi8(eq0)) |
                                    static_cast<uint32_t>(_mm_movemask_epi8(eq1)) << 16;
            return len + static_cast<uint32_t>(__builtin_ctz(~differ));
        }
    }
    return len + CommonLength(a + len, b + len, limit - len);
}

// MatchLength for a candidate whose first word is known to match, with a limit of at least
// 9 (and 20 bytes readable after pos): the common short matches are measured from one
// 16-byte compare without a branch of their own, so that only lengths of 20 or more take one.
ZYRDC_INLINE uint32_t LengthAfterWord(const uint8_t* src, uint32_t pos, uint32_t cand, uint32_t limit) {
    const uint8_t* p = src + pos;
    const uint8_t* c = src + cand;
    // Bytes 4 to 19 compared; the complement of the 16-bit mask has bit 16 set, which stops
    // the count at 20 without a further operation.
    const __m128i eq4 = _mm_cmpeq_epi8(_mm_loadu_si128(reinterpret_cast<const __m128i*>(p + 4)),
                                       _mm_loadu_si128(reinterpret_cast<const __m128i*>(c + 4)));
    const uint32_t differ4 = ~static_cast<uint32_t>(_mm_movemask_epi8(eq4));
    uint32_t len = kMinMatch + static_cast<uint32_t>(__builtin_ctz(differ4));
    if (limit > 20) {
        // Away from the source end the limit cannot cut the bytes compared: no select waits
        // for it.
        return len < 20 ? len : len + LongLength(p + len, c + len, limit - len);
    }
    return std::min(len, limit);
}

// Bytes equal just before pos and cand, at most `most` (at most pos - 1 and cand): the last
// eight compared at once, further ones byte by byte.
ZYRDC_INLINE uint32_t EqualBefore(const uint8_t* src, uint32_t pos, uint32_t cand, uint32_t most) {
    uint32_t back = 0;
    if (most == 0) {
        return 0;  // a branch, not a data dependency: the next search need not wait for loads
    }
    if (sizeof(size_t) == 8 && cand >= 8) {
        const uint64_t x = load_u64le(src + pos - 8) ^ load_u64le(src + cand - 8);
        const uint32_t eq = x != 0 ? static_cast<uint32_t>(__builtin_clzll(x)) / 8 : 8;
        back = std::min(eq, most);
        if (back < 8) return back;
    }
    while (back < most && src[pos - back - 1] == src[cand - back - 1]) ++back;
    return back;
}

// The source and the table, with the three steps of a probe. Search loops work on a local
// copy: stores into the table or the block (bytes, which may alias anything) then cannot
// force the source, length and table address to be reloaded from memory at every step.
template <class T>
struct Matcher {
    const uint8_t* src;
    uint32_t n;
    T table;

    // Hash of a position with at least 8 bytes after it (every position up to the last
    // probed one): on x86-64 from one 8-byte load, whose next bytes also give the hashes of
    // the next positions (Window, HashAhead).
    uint32_t Hash(uint32_t pos) const {
        if constexpr (sizeof(void*) == 8) {
            return T::Hash(load_u64le(src + pos));
        } else {
            return T::Hash(src + pos);
        }
    }
    uint64_t Window(uint32_t pos) const { return sizeof(void*) == 8 ? load_u64le(src + pos) : 0; }
    uint32_t HashAhead(uint64_t window, uint32_t pos, unsigned ahead) const {
        if constexpr (sizeof(void*) == 8) {
            return T::Hash(window >> (8 * ahead));
        } else {
            return T::Hash(src + pos + ahead);
        }
    }
    // The 32-bit word at pos + ahead, from the window where there is one.
    uint32_t WordAhead(uint64_t window, uint32_t pos, unsigned ahead) const {
        if constexpr (sizeof(void*) == 8) {
            return static_cast<uint32_t>(window >> (8 * ahead));
        } else {
            return load_u32le(src + pos + ahead);
        }
    }
    // The candidate can start a match for the position: in reach and its first word equal
    // to `word`, the position's.
    ZYRDC_INLINE bool Starts(uint32_t pos, uint32_t cand, uint32_t word) const {
        return T::InReach(pos, cand) && load_u32le(src + cand) == word;
    }
    // The same as one branch (a candidate out of reach still lies in the source): fewer
    // mispredictions where the probes are sparse, as in the accelerated encoder; the greedy
    // encoder's neighbouring probes measured faster with two.
    ZYRDC_INLINE bool StartsOneBranch(uint32_t pos, uint32_t cand, uint32_t word) const {
        return (static_cast<unsigned>(T::InReach(pos, cand)) & static_cast<unsigned>(load_u32le(src + cand) == word)) != 0;
    }
    // Read the candidate, store the position, compare: the match length, or 0.
    ZYRDC_INLINE uint32_t Probe(uint32_t pos, uint32_t h, uint32_t tail, uint32_t& cand) {
        cand = table.Get(h);
        table.Put(h, pos);
        return Length(pos, cand, tail);
    }
    ZYRDC_INLINE uint32_t Length(uint32_t pos, uint32_t cand, uint32_t tail) const {
        return T::InReach(pos, cand) ? MatchLength(src, pos, cand, n - pos - tail) : 0;
    }
};

// Probes from `p` (at most `last`) one position at a time, the step growing from
// (k0 >> shift) by one every (1 << shift) failed probes. The next position's hash and
// candidate are read before the current candidate is compared, so that the loads of one
// probe overlap the compare of the other; the table sees the same reads and stores in the
// same order as probing one position after the other.
template <class T, unsigned kShift>
ZYRDC_INLINE bool ProbeWithGrowingStep(Matcher<T>& mt, uint32_t p, uint32_t last, uint32_t k0, uint32_t tail,
                          Match& m) {
    uint32_t h = mt.Hash(p);
    uint32_t cand = mt.table.Get(h);
    for (uint32_t k = k0;; ++k) {
        mt.table.Put(h, p);
        const uint32_t next = p + (k >> kShift);
        uint32_t nextCand = 0;
        if (next <= last) {
            h = mt.Hash(next);
            nextCand = mt.table.Get(h);
        }
        if (const uint32_t len = mt.Length(p, cand, tail)) {
            m = {p, cand, len};
            return true;
        }
        if (next > last) return false;
        p = next;
        cand = nextCand;
    }
}

// What the encoders share: the source, the table, the block and the sequence writer.
template <class T>
class Encoder {
public:
    Encoder(const uint8_t* src, uint32_t n, uint8_t* dst, size_t capacity, uint8_t* table)
        : src_(src), n_(n), last_(n - kProbeTail), matcher_{src, n, T(table)}, out_(dst, capacity) {}

protected:
    // Takes in earlier bytes that match too, as long as they are still pending literals.
    ZYRDC_INLINE void ExtendBackwards(Match& m) const {
        const uint8_t* const src = src_;
        const uint32_t pos = m.pos;
        // Steps back at most this far: to the anchor, and while the candidate is above 0.
        const uint32_t most = std::min(pos - anchor_, m.cand);
        uint32_t back = 0;
        while (back < most && src[pos - back - 1] == src[m.cand - back - 1]) ++back;
        m.pos -= back;
        m.cand -= back;
        m.len += back;
    }
    // Token, literal run, literals, offset; the match length is completed by EndSequence.
    ZYRDC_INLINE size_t BeginSequence(const Match& m) {
        Output out = out_;
        const uint32_t lit = m.pos - anchor_;
        const size_t token = out.Reserve();
        out.Run(lit);
        out.Literals(src_ + anchor_, lit, true);  // literals end at a probed position
        out.Offset(m.pos - m.cand);
        out_ = out;
        return token;
    }
    ZYRDC_INLINE void EndSequence(size_t token, const Match& m, uint32_t len) {
        Output out = out_;
        const uint32_t lit = m.pos - anchor_;
        const uint32_t code = len - kMinMatch;
        out.Put(token, static_cast<uint8_t>(std::min(lit, kRunNibble) << 4 |
                                            std::min(code, kRunNibble)));
        out.Run(code);
        out_ = out;
        lastLiterals_ = lit;
        anchor_ = m.pos + len;
    }
    // The literal-only sequence that ends every block: `lit` pending bytes from the anchor.
    EncodeResult Finish(uint32_t lit) {
        out_.Put(out_.Reserve(), static_cast<uint8_t>(std::min(lit, kRunNibble) << 4));
        out_.Run(lit);
        out_.Literals(src_ + anchor_, lit, false);
        return {static_cast<int32_t>(anchor_ + lit), static_cast<int32_t>(out_.pos())};
    }

    const uint8_t* const src_;
    const uint32_t n_;
    const uint32_t last_;  // the last position that may be probed (when n_ > kProbeTail)
    Matcher<T> matcher_;
    Output out_;
    uint32_t anchor_ = 0;  // first byte not yet in the block
    uint32_t lastLiterals_ = 0;
};

// ---- sequences of the unbounded encoders ------------------------------------------------

// Continuation bytes of a literal count (`rest` = count - 15), which are followed by at
// least 15 literals: the 8-byte store of 255s is in bounds.
ZYRDC_INLINE uint8_t* LiteralRun(uint8_t* op, uint32_t rest) {
    if (rest < 255) {
        *op = static_cast<uint8_t>(rest);
        return op + 1;
    }
    if (rest < 8 * 255) {
        store_u64le(op, ~uint64_t{0});
        op += rest / 255;
    } else {
        for (; rest >= 255; rest -= 255) *op++ = 255;
    }
    *op++ = static_cast<uint8_t>(rest % 255);
    return op;
}
// Continuation bytes of a match code, exact where the 8-byte store would pass the end.
ZYRDC_INLINE uint8_t* MatchRun(uint8_t* op, uint32_t rest, uint8_t* end) {
    if (rest < 255) {
        *op = static_cast<uint8_t>(rest);
        return op + 1;
    }
    if (rest < 8 * 255 && op + 8 <= end) {
        store_u64le(op, ~uint64_t{0});
        op += rest / 255;
    } else {
        for (; rest >= 255; rest -= 255) *op++ = 255;
    }
    *op++ = static_cast<uint8_t>(rest % 255);
    return op;
}

// Token, literal run, literals, offset and match run of one sequence, for the encoders whose
// destination has room for the worst case. That room leaves at least 16 bytes free after
// the literals of any sequence with a match (those literals end at or before the search
// limit, 21 bytes before the source end, while the block runs at most one byte and one
// 255-run byte per 255 literals ahead of the source), so literals go in whole 16-byte units.
ZYRDC_INLINE uint8_t* WriteSequence(uint8_t* op, uint8_t* end, const uint8_t* lits, uint32_t lit, uint32_t offset,
                                    uint32_t len) {
    const uint32_t code = len - kMinMatch;
    uint8_t* const token = op++;
    if (lit >= kRunNibble) op = LiteralRun(op, lit - kRunNibble);
    uint8_t* d = op;
    do {
        _mm_storeu_si128(reinterpret_cast<__m128i*>(d), _mm_loadu_si128(reinterpret_cast<const __m128i*>(lits)));
        lits += 16;
        d += 16;
    } while (d < op + lit);
    op += lit;
    store_u16le(op, static_cast<uint16_t>(offset));
    op += 2;
    if (code >= kRunNibble) {
        *token = static_cast<uint8_t>(std::min(lit, kRunNibble) << 4 | kRunNibble);
        return MatchRun(op, code - kRunNibble, end);
    }
    *token = static_cast<uint8_t>(std::min(lit, kRunNibble) << 4 | code);
    return op;
}

// ---- the greedy encoder ----------------------------------------------------------------

template <class T, bool kBounded>
class Greedy : Encoder<T> {
    using Base = Encoder<T>;
    using Base::anchor_;
    using Base::last_;
    using Base::matcher_;
    using Base::n_;
    using Base::out_;

public:
    Greedy(const uint8_t* src, uint32_t n, uint8_t* dst, size_t capacity, uint8_t* table)
        : Base(src, n, dst, capacity, table), cap_(static_cast<ptrdiff_t>(capacity)),
          limit_(static_cast<ptrdiff_t>(capacity) - kClosingRoom) {}

    // Runs on a copy in a local variable: its state can then live in registers, which
    // stores into the block (bytes, which may alias anything) would otherwise force back
    // to memory.
    EncodeResult Run() const {
        Greedy local = *this;
        return local.Encode();
    }

private:
    EncodeResult Encode() {
        Match m;
        if (n_ <= kProbeTail || !FirstMatch(m)) {
            return Close();
        }
        if constexpr (!kBounded) {
            return Unbounded(m);
        } else {
            while (Emit(m)) {
                if (!NextMatch(m)) break;
            }
            return Close();
        }
    }

    // Positions one by one at first, then a step that grows by one every 16 failed probes
    // (narrow layout) or every 64 (wide layout, whose sources are long enough to afford a
    // longer close look).
    ZYRDC_INLINE bool FirstMatch(Match& m) {
        constexpr uint32_t kOneByOne = T::kWide ? 63 : 16;
        constexpr unsigned kShift = T::kWide ? 6 : 4;
        Matcher<T> mt = matcher_;
        const uint32_t last = last_;
        uint32_t p = 1;
        for (; p <= kOneByOne; ++p) {
            if (p > last) return false;
            uint32_t cand;
            if (const uint32_t len = mt.Probe(p, mt.Hash(p), kFirstMatchTail, cand)) {
                m = {p, cand, len};
                return true;
            }
        }
        return p <= last && ProbeWithGrowingStep<T, kShift>(mt, p, last, 1u << kShift, kFirstMatchTail, m);
    }

    // Bounded, from the end of the last match: after a short literal run, up to 16 batches
    // of three neighbours (all hashes and candidates read before the stores, the stores
    // before the compares), then a step that starts at 2 and grows by one every 64 failed
    // probes; the search also stops once the pending literals could not be written.
    ZYRDC_INLINE bool NextMatch(Match& m) {
        Matcher<T> mt = matcher_;
        const uint32_t last = last_;
        uint32_t p = anchor_;
        bool found = false;
        if (this->lastLiterals_ < kBatchAfterLiterals) {
            for (int b = 0; b < kBatches; ++b, p += 3) {
                if (p + 2 > last || LiteralsReachLimit(p)) return false;
                const uint64_t w = mt.Window(p);
                const uint32_t h0 = mt.HashAhead(w, p, 0), h1 = mt.HashAhead(w, p, 1), h2 = mt.HashAhead(w, p, 2);
                const uint32_t c0 = mt.table.Get(h0), c1 = mt.table.Get(h1), c2 = mt.table.Get(h2);
                mt.table.Put(h0, p);
                mt.table.Put(h1, p + 1);
                mt.table.Put(h2, p + 2);
                uint32_t len;
                if ((len = mt.Length(p, c0, kLaterMatchTail)) != 0) {
                    m = {p, c0, len};
                } else if ((len = mt.Length(p + 1, c1, kLaterMatchTail)) != 0) {
                    m = {p + 1, c1, len};
                } else if ((len = mt.Length(p + 2, c2, kLaterMatchTail)) != 0) {
                    m = {p + 2, c2, len};
                } else {
                    continue;
                }
                found = true;
                break;
            }
        }
        if (!found) {
            uint32_t cand;
            for (uint32_t k = 128;; ++k, p += (k - 1) >> 6) {
                if (p > last || LiteralsReachLimit(p)) return false;
                if (const uint32_t len = mt.Probe(p, mt.Hash(p), kLaterMatchTail, cand)) {
                    m = {p, cand, len};
                    break;
                }
            }
        }
        this->ExtendBackwards(m);
        return true;
    }

    // The unbounded encoder after its first match: one loop over the sequences with the
    // source, table, anchor and write position in registers.
    ZYRDC_INLINE EncodeResult Unbounded(Match first) {
        const uint8_t* const src = this->src_;
        const uint32_t last = last_;
        T table = matcher_.table;
        uint8_t* const dst = out_.base();
        uint8_t* const dstEnd = dst + out_.capacity();
        uint8_t* op = dst;
        uint32_t anchor = 0;
        uint32_t pos = first.pos, cand = first.cand, len = first.len;
        uint32_t end = pos + len;
        for (;;) {
            const uint32_t lit = pos - anchor;
            op = WriteSequence(op, dstEnd, src + anchor, lit, pos - cand, len);
            anchor = end;

            // The next match: batches of three after a short literal run, then a growing step.
            uint32_t p = anchor;
            if (lit < kBatchAfterLiterals) {
                for (int b = 0; b < kBatches; ++b, p += 3) {
                    if (p + 2 > last) goto close;
                    const uint64_t w = matcher_.Window(p);
                    const uint32_t h0 = matcher_.HashAhead(w, p, 0), h1 = matcher_.HashAhead(w, p, 1),
                                   h2 = matcher_.HashAhead(w, p, 2);
                    const uint32_t c0 = table.Get(h0), c1 = table.Get(h1), c2 = table.Get(h2);
                    table.Put(h0, p);
                    table.Put(h1, p + 1);
                    table.Put(h2, p + 2);
                    if (matcher_.Starts(p, c0, matcher_.WordAhead(w, p, 0))) {
                        pos = p;
                        cand = c0;
                        goto found;
                    }
                    if (matcher_.Starts(p + 1, c1, matcher_.WordAhead(w, p, 1))) {
                        pos = p + 1;
                        cand = c1;
                        goto found;
                    }
                    if (matcher_.Starts(p + 2, c2, matcher_.WordAhead(w, p, 2))) {
                        pos = p + 2;
                        cand = c2;
                        goto found;
                    }
                }
            }
            if (p > last) goto close;
            {
                // The next position's hash and candidate are read before the current one is
                // compared; the table sees the reads and stores of one probe after another.
                uint32_t h = matcher_.Hash(p);
                uint32_t c = table.Get(h);
                for (uint32_t k = 128;; ++k) {
                    table.Put(h, p);
                    const uint32_t next = p + (k >> 6);
                    uint32_t nextCand = 0;
                    if (next <= last) {
                        h = matcher_.Hash(next);
                        nextCand = table.Get(h);
                    }
                    if (matcher_.Starts(p, c, load_u32le(src + p))) {
                        pos = p;
                        cand = c;
                        goto found;
                    }
                    if (next > last) goto close;
                    p = next;
                    c = nextCand;
                }
            }
        found:
            len = LengthAfterWord(src, pos, cand, this->n_ - pos - kLaterMatchTail);
            // The match's end does not move when it grows backwards: taken before, the next
            // search's start does not wait for the backward compare.
            end = pos + len;
            {
                // Backwards over pending literals while the candidate has bytes before it.
                const uint32_t back = EqualBefore(src, pos, cand, std::min(pos - anchor, cand));
                pos -= back;
                cand -= back;
                len += back;
            }
        }
    close:
        out_.Rewind(static_cast<size_t>(op - dst));
        anchor_ = anchor;
        return Close();
    }

    // Bounded: the pending literals up to p could no longer be written before the limit.
    ZYRDC_INLINE bool LiteralsReachLimit(uint32_t p) const {
        const ptrdiff_t lit = p - anchor_;
        return static_cast<ptrdiff_t>(out_.pos()) + lit + lit / 255 + 1 >= limit_;
    }

    // Writes the sequence; false if it was abandoned (the block is then closed from the
    // same anchor).
    ZYRDC_INLINE bool Emit(const Match& m) {
        uint32_t len = m.len;
        const ptrdiff_t lit = m.pos - anchor_;
        if (static_cast<ptrdiff_t>(out_.pos()) + lit + lit / 255 + 1 > limit_) {
            return false;
        }
        const size_t token = this->BeginSequence(m);
        // The match's run would end past the limit: drop the sequence if not even a
        // one-byte run fits, else shorten the match to the run that ends 2 bytes past the
        // limit (S 255s and a 254, for S bytes to the limit).
        const ptrdiff_t at = static_cast<ptrdiff_t>(out_.pos());
        if (at + static_cast<ptrdiff_t>((len + 236) / 255) - 2 > limit_) {
            const ptrdiff_t room = limit_ - at;
            if (room < -1) {
                out_.Rewind(token);
                return false;
            }
            len = static_cast<uint32_t>(255 * room + 524) + kMinMatch;
        }
        this->EndSequence(token, m, len);
        return true;
    }

    // The literal-only sequence: every pending byte, or as many as fit with their token and
    // run when bounded.
    EncodeResult Close() {
        const uint32_t pending = n_ - anchor_;
        uint32_t lit = pending;
        if constexpr (kBounded) {
            const ptrdiff_t room = cap_ - static_cast<ptrdiff_t>(out_.pos());
            lit = static_cast<ptrdiff_t>(pending) < room ? pending : static_cast<uint32_t>(room - 1);
            while (1 + RunBytes(lit) + lit > static_cast<size_t>(room)) --lit;
        }
        return this->Finish(lit);
    }

    const ptrdiff_t cap_;
    const ptrdiff_t limit_;
};

// ---- the accelerated encoder -------------------------------------------------------------

template <class T>
class Accelerated : Encoder<T> {
    using Base = Encoder<T>;
    using Base::anchor_;
    using Base::last_;
    using Base::matcher_;
    using Base::n_;

public:
    Accelerated(const uint8_t* src, uint32_t n, uint8_t* dst, uint8_t* table, uint32_t acceleration)
        : Base(src, n, dst, static_cast<size_t>(WorstCaseBlockSize(n)), table),
          accel_(acceleration) {}

    EncodeResult Run() const {
        Accelerated local = *this;
        return local.Encode();
    }

private:
    // One loop over the sequences with the source, table, anchor and write position in
    // registers.
    EncodeResult Encode() {
        if (n_ <= kProbeTail) {
            return this->Finish(n_);
        }
        const uint8_t* const src = this->src_;
        const uint32_t n = n_;
        const uint32_t last = last_;
        const Matcher<T> mt = matcher_;
        T table = matcher_.table;
        uint8_t* const dst = this->out_.base();
        uint8_t* const dstEnd = dst + this->out_.capacity();
        uint8_t* op = dst;
        uint32_t anchor = 0;
        uint32_t pos = 1, cand = 0;
        uint32_t back;
        uint32_t backMask = 0;  // the first match of the block does not extend backwards
        uint64_t p;

        // Position 1 against position 0: a run starting the block is found at once.
        table.Put(mt.Hash(1), 1);
        if (load_u32le(src + 1) == load_u32le(src)) goto foundAtAnchor;
        p = 2;
        for (;;) {
            {
                // Batches of four positions `step` apart (hashes first, then each candidate
                // read, the position stored and compared in turn); the step grows by one
                // every 16 batches. Near the end, single positions with a step that grows by
                // one every 64 probes.
                uint64_t counter = uint64_t{64} * accel_;
                uint64_t step = accel_;
                for (;;) {
                    if (p + 3 * step <= last) {
                        const auto p0 = static_cast<uint32_t>(p), p1 = static_cast<uint32_t>(p + step),
                                   p2 = static_cast<uint32_t>(p + 2 * step), p3 = static_cast<uint32_t>(p + 3 * step);
                        const uint32_t h0 = mt.Hash(p0), h1 = mt.Hash(p1), h2 = mt.Hash(p2), h3 = mt.Hash(p3);
                        cand = table.Get(h0);
                        table.Put(h0, p0);
                        if (mt.StartsOneBranch(p0, cand, load_u32le(src + p0))) {
                            pos = p0;
                            goto found;
                        }
                        cand = table.Get(h1);
                        table.Put(h1, p1);
                        if (mt.StartsOneBranch(p1, cand, load_u32le(src + p1))) {
                            pos = p1;
                            goto found;
                        }
                        cand = table.Get(h2);
                        table.Put(h2, p2);
                        if (mt.StartsOneBranch(p2, cand, load_u32le(src + p2))) {
                            pos = p2;
                            goto found;
                        }
                        cand = table.Get(h3);
                        table.Put(h3, p3);
                        if (mt.StartsOneBranch(p3, cand, load_u32le(src + p3))) {
                            pos = p3;
                            goto found;
                        }
                        p += 4 * step;
                        counter += 4;
                    } else {
                        if (p > last) goto close;
                        const auto q = static_cast<uint32_t>(p);
                        const uint32_t h = mt.Hash(q);
                        cand = table.Get(h);
                        table.Put(h, q);
                        if (mt.StartsOneBranch(q, cand, load_u32le(src + q))) {
                            pos = q;
                            goto found;
                        }
                        p += step;
                        counter += 1;
                    }
                    step = counter >> 6;
                }
            }
        found:
            // Matches found past the anchor extend backwards over pending literals; those at
            // the anchor cannot, and the first match of the block does not.
            back = EqualBefore(src, pos, cand, std::min(pos - anchor, cand) & backMask);
            goto measure;
        foundAtAnchor:
            back = 0;
        measure : {
            uint32_t len = LengthAfterWord(src, pos, cand, n - pos - kAcceleratedTail);
            const uint32_t end = pos + len;
            pos -= back;
            cand -= back;
            len += back;
            op = WriteSequence(op, dstEnd, src + anchor, pos - anchor, pos - cand, len);
            anchor = end;
            backMask = ~0u;

            // Seed the table near the match end and look right there before thinning out.
            // The hash of end - 2 (5 bytes, which end at most at the source end) from the
            // 8 bytes before it.
            table.Put(T::Hash(load_u64le(src + end - 3) >> 8), end - 2);
            if (end > last) goto close;
            uint32_t h = mt.Hash(end);
            cand = table.Get(h);
            table.Put(h, end);
            if (mt.StartsOneBranch(end, cand, load_u32le(src + end))) {
                pos = end;
                goto foundAtAnchor;
            }
            if (end + 1 > last) goto close;
            h = mt.Hash(end + 1);
            cand = table.Get(h);
            table.Put(h, end + 1);
            if (mt.StartsOneBranch(end + 1, cand, load_u32le(src + end + 1))) {
                pos = end + 1;
                goto found;
            }
            p = end + 2;
        }
        }
    close:
        this->out_.Rewind(static_cast<size_t>(op - dst));
        anchor_ = anchor;
        return this->Finish(n - anchor);
    }

    const uint32_t accel_;
};

#undef ZYRDC_INLINE

}  // namespace

ZyrStatus ClearTable(uint8_t* table, int32_t srcLen) {
    constexpr int32_t kEntries = 4096;
    if (srcLen < kWideTableFrom) {
        return ZeroFill_16u(reinterpret_cast<uint16_t*>(table), kEntries);
    }
    return ZeroFill_32u(reinterpret_cast<uint32_t*>(table), kEntries);
}

ZyrStatus ClearTableAccelerated(uint8_t* table, int32_t srcLen) {
    if (srcLen < kWideTableFrom) {
        return ZeroFill_16u(reinterpret_cast<uint16_t*>(table), 8192);
    }
    return ZeroFill_32u(reinterpret_cast<uint32_t*>(table), 4096);
}

EncodeResult EncodeGreedy(const uint8_t* src, int32_t srcLen, uint8_t* dst, int32_t capacity,
                          uint8_t* table) {
    const auto n = static_cast<uint32_t>(srcLen);
    if (capacity < 0) {
        const auto worst = static_cast<size_t>(WorstCaseBlockSize(srcLen));
        if (srcLen < kWideTableFrom) {
            return Greedy<NarrowTable, false>(src, n, dst, worst, table).Run();
        }
        return Greedy<WideTable, false>(src, n, dst, worst, table).Run();
    }
    const auto cap = static_cast<size_t>(capacity);
    if (srcLen < kWideTableFrom) {
        return Greedy<NarrowTable, true>(src, n, dst, cap, table).Run();
    }
    return Greedy<WideTable, true>(src, n, dst, cap, table).Run();
}

EncodeResult EncodeAccelerated(const uint8_t* src, int32_t srcLen, uint8_t* dst, uint8_t* table,
                               int32_t acceleration) {
    const auto n = static_cast<uint32_t>(srcLen);
    const auto a = static_cast<uint32_t>(acceleration);
    if (srcLen < kWideTableFrom) {
        return Accelerated<AcceleratedNarrowTable>(src, n, dst, table, a).Run();
    }
    return Accelerated<WideTable>(src, n, dst, table, a).Run();
}

}  // namespace zyrdc::lz4
