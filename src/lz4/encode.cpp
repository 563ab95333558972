// encode.cpp - LZ4 block encoding: a greedy encoder (unbounded, or bounded by the
// destination with a block that always closes cleanly) and an accelerated encoder that
// probes sparser as it fails, both over a caller's hash table of source positions.
#include <emmintrin.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>

#include "core/bits.hpp"
#include "core/copy.hpp"
#include "lz4/lz4.hpp"

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

inline void Copy16(uint8_t* d, const uint8_t* s) {
    _mm_storeu_si128(reinterpret_cast<__m128i*>(d),
                     _mm_loadu_si128(reinterpret_cast<const __m128i*>(s)));
}

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
    void Rewind(size_t pos) { pos_ = pos; }
    size_t Reserve() { return pos_++; }
    void Put(size_t at, uint8_t v) { d_[at] = v; }

    void Run(uint32_t count) {
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
    void Literals(const uint8_t* s, size_t n, bool wide_reads) {
        if (wide_reads && pos_ + n + 16 <= cap_) {
            for (size_t i = 0; i < n; i += 16) Copy16(d_ + pos_ + i, s + i);
        } else {
            CopyBytesKernel(s, d_ + pos_, static_cast<int32_t>(n));
        }
        pos_ += n;
    }
    void Offset(uint32_t off) {
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
inline uint32_t MatchLength(const uint8_t* src, uint32_t pos, uint32_t cand, uint32_t limit) {
    const uint8_t* p = src + pos;
    const uint8_t* c = src + cand;
    if (load_u32le(p) != load_u32le(c)) {
        return 0;
    }
    const uint32_t second = load_u32le(p + 4) ^ load_u32le(c + 4);
    if (second != 0) {
        return kMinMatch + static_cast<uint32_t>(__builtin_ctz(second)) / 8;
    }
    uint32_t len = 8;
    if constexpr (sizeof(size_t) == 8) {
        for (; len + 8 <= limit; len += 8) {
            const uint64_t x = load_u64le(p + len) ^ load_u64le(c + len);
            if (x != 0) return len + static_cast<uint32_t>(__builtin_ctzll(x)) / 8;
        }
    } else {
        for (; len + 4 <= limit; len += 4) {
            const uint32_t x = load_u32le(p + len) ^ load_u32le(c + len);
            if (x != 0) return len + static_cast<uint32_t>(__builtin_ctz(x)) / 8;
        }
    }
    while (len < limit && p[len] == c[len]) ++len;
    return len;
}

// What the encoders share: the source, the table, the block and the sequence writer.
template <class T>
class Encoder {
public:
    Encoder(const uint8_t* src, uint32_t n, uint8_t* dst, size_t capacity, uint8_t* table)
        : src_(src), n_(n), last_(n - kProbeTail), table_(table), out_(dst, capacity) {}

protected:
    // Hash, read the candidate, store the position, compare.
    bool Probe(uint32_t pos, uint32_t tail, Match& m) {
        const uint32_t h = T::Hash(src_ + pos);
        const uint32_t cand = table_.Get(h);
        table_.Put(h, pos);
        return Check(pos, cand, tail, m);
    }
    bool Check(uint32_t pos, uint32_t cand, uint32_t tail, Match& m) const {
        if (!T::InReach(pos, cand)) {
            return false;
        }
        const uint32_t len = MatchLength(src_, pos, cand, n_ - pos - tail);
        m = {pos, cand, len};
        return len >= kMinMatch;
    }
    // Takes in earlier bytes that match too, as long as they are still pending literals.
    void ExtendBackwards(Match& m) const {
        while (m.cand > 0 && m.pos > anchor_ && src_[m.pos - 1] == src_[m.cand - 1]) {
            --m.pos;
            --m.cand;
            ++m.len;
        }
    }
    // Token, literal run, literals, offset; the match length is completed by EndSequence.
    size_t BeginSequence(const Match& m) {
        const uint32_t lit = m.pos - anchor_;
        const size_t token = out_.Reserve();
        out_.Run(lit);
        out_.Literals(src_ + anchor_, lit, true);  // literals end at a probed position
        out_.Offset(m.pos - m.cand);
        return token;
    }
    void EndSequence(size_t token, const Match& m, uint32_t len) {
        const uint32_t lit = m.pos - anchor_;
        const uint32_t code = len - kMinMatch;
        out_.Put(token, static_cast<uint8_t>(std::min(lit, kRunNibble) << 4 |
                                             std::min(code, kRunNibble)));
        out_.Run(code);
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
    T table_;
    Output out_;
    uint32_t anchor_ = 0;  // first byte not yet in the block
    uint32_t lastLiterals_ = 0;
};

// ---- the greedy encoder ----------------------------------------------------------------

template <class T, bool kBounded>
class Greedy : Encoder<T> {
    using Base = Encoder<T>;
    using Base::anchor_;
    using Base::last_;
    using Base::n_;
    using Base::out_;
    using Base::src_;
    using Base::table_;

public:
    Greedy(const uint8_t* src, uint32_t n, uint8_t* dst, size_t capacity, uint8_t* table)
        : Base(src, n, dst, capacity, table), cap_(static_cast<ptrdiff_t>(capacity)),
          limit_(static_cast<ptrdiff_t>(capacity) - kClosingRoom) {}

    EncodeResult Run() {
        Match m;
        if (n_ <= kProbeTail || !FirstMatch(m)) {
            return Close();
        }
        while (Emit(m)) {
            if (!NextMatch(m)) break;
        }
        return Close();
    }

private:
    // Positions one by one at first, then a step that grows by one every 16 failed probes
    // (narrow layout) or every 64 (wide layout, whose sources are long enough to afford a
    // longer close look).
    bool FirstMatch(Match& m) {
        constexpr uint32_t kOneByOne = T::kWide ? 63 : 16;
        constexpr unsigned kShift = T::kWide ? 6 : 4;
        uint32_t p = 1;
        for (; p <= kOneByOne; ++p) {
            if (p > last_) return false;
            if (this->Probe(p, kFirstMatchTail, m)) return true;
        }
        for (uint32_t k = 1u << kShift;; ++k) {
            if (p > last_) return false;
            if (this->Probe(p, kFirstMatchTail, m)) return true;
            p += k >> kShift;
        }
    }

    // From the end of the last match: after a short literal run, up to 16 batches of three
    // neighbours (all hashes and candidates read before the stores, the stores before the
    // compares), then a step that starts at 2 and grows by one every 64 failed probes.
    bool NextMatch(Match& m) {
        uint32_t p = anchor_;
        bool found = false;
        if (this->lastLiterals_ < kBatchAfterLiterals) {
            for (int b = 0; b < kBatches && !found; ++b, p += 3) {
                if (p + 2 > last_ || LiteralsReachLimit(p)) return false;
                const uint32_t h0 = T::Hash(src_ + p);
                const uint32_t h1 = T::Hash(src_ + p + 1);
                const uint32_t h2 = T::Hash(src_ + p + 2);
                const uint32_t c0 = table_.Get(h0), c1 = table_.Get(h1), c2 = table_.Get(h2);
                table_.Put(h0, p);
                table_.Put(h1, p + 1);
                table_.Put(h2, p + 2);
                found = this->Check(p, c0, kLaterMatchTail, m) ||
                        this->Check(p + 1, c1, kLaterMatchTail, m) ||
                        this->Check(p + 2, c2, kLaterMatchTail, m);
            }
        }
        for (uint32_t k = 128; !found; ++k) {
            if (p > last_ || LiteralsReachLimit(p)) return false;
            found = this->Probe(p, kLaterMatchTail, m);
            p += k >> 6;
        }
        this->ExtendBackwards(m);
        return true;
    }

    // Bounded: the pending literals up to p could no longer be written before the limit.
    bool LiteralsReachLimit(uint32_t p) const {
        if constexpr (!kBounded) {
            return false;
        } else {
            const ptrdiff_t lit = p - anchor_;
            return static_cast<ptrdiff_t>(out_.pos()) + lit + lit / 255 + 1 >= limit_;
        }
    }

    // Writes the sequence; false if the bounded encoder abandoned it (the block is then
    // closed from the same anchor).
    bool Emit(const Match& m) {
        uint32_t len = m.len;
        if constexpr (kBounded) {
            const ptrdiff_t lit = m.pos - anchor_;
            if (static_cast<ptrdiff_t>(out_.pos()) + lit + lit / 255 + 1 > limit_) {
                return false;
            }
        }
        const size_t token = this->BeginSequence(m);
        if constexpr (kBounded) {
            // The match's run would end past the limit: drop the sequence if not even a
            // one-byte run fits, else shorten the match to the run that ends 2 bytes past
            // the limit (S 255s and a 254, for S bytes to the limit).
            const ptrdiff_t at = static_cast<ptrdiff_t>(out_.pos());
            if (at + static_cast<ptrdiff_t>((len + 236) / 255) - 2 > limit_) {
                const ptrdiff_t room = limit_ - at;
                if (room < -1) {
                    out_.Rewind(token);
                    return false;
                }
                len = static_cast<uint32_t>(255 * room + 524) + kMinMatch;
            }
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
    using Base::n_;
    using Base::src_;
    using Base::table_;

public:
    Accelerated(const uint8_t* src, uint32_t n, uint8_t* dst, uint8_t* table, uint32_t acceleration)
        : Base(src, n, dst, static_cast<size_t>(WorstCaseBlockSize(n)), table),
          accel_(acceleration) {}

    EncodeResult Run() {
        if (n_ <= kProbeTail) {
            return this->Finish(n_);
        }
        // Position 1 against position 0: a run starting the block is found at once.
        Match m;
        table_.Put(T::Hash(src_ + 1), 1);
        bool first = true;
        if (!this->Check(1, 0, kAcceleratedTail, m) && !Search(2, m)) {
            return this->Finish(n_);
        }
        for (;;) {
            if (!first) this->ExtendBackwards(m);
            first = false;
            this->EndSequence(this->BeginSequence(m), m, m.len);
            // Seed the table near the match end and look right there before thinning out.
            const uint32_t end = anchor_;
            table_.Put(T::Hash(src_ + end - 2), end - 2);
            if (end > last_) break;
            if (this->Probe(end, kAcceleratedTail, m)) continue;
            if (end + 1 > last_) break;
            if (this->Probe(end + 1, kAcceleratedTail, m)) continue;
            if (!Search(end + 2, m)) break;
        }
        return this->Finish(n_ - anchor_);
    }

private:
    // Batches of four positions `step` apart (hashes first, then each candidate read, the
    // position stored and compared in turn); the step grows by one every 16 batches. Near
    // the end, single positions with a step that grows by one every 64 probes.
    bool Search(uint32_t start, Match& m) {
        uint64_t p = start;
        uint64_t counter = uint64_t{64} * accel_;
        uint64_t step = accel_;
        for (;;) {
            if (p + 3 * step <= last_) {
                uint32_t pos[4], h[4];
                for (int j = 0; j < 4; ++j) {
                    pos[j] = static_cast<uint32_t>(p + j * step);
                    h[j] = T::Hash(src_ + pos[j]);
                }
                for (int j = 0; j < 4; ++j) {
                    const uint32_t cand = table_.Get(h[j]);
                    table_.Put(h[j], pos[j]);
                    if (this->Check(pos[j], cand, kAcceleratedTail, m)) return true;
                }
                p += 4 * step;
                counter += 4;
            } else {
                if (p > last_) return false;
                if (this->Probe(static_cast<uint32_t>(p), kAcceleratedTail, m)) return true;
                p += step;
                counter += 1;
            }
            step = counter >> 6;
        }
    }

    const uint32_t accel_;
};

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
