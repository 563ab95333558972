// hc.cpp - high-compression LZ4 encoding: hash chains over the caller's record, searched by
// greedy, lazy or optimal parsers, writing blocks bounded by the destination that always
// close validly. Linked blocks keep the chains from one call to the next; a block that does
// not continue the previous one rebuilds them from the history in reach, so the bytes of a
// block depend only on the bytes it can reach.
#include <emmintrin.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "core/bits.hpp"
#include "lz4/hc.hpp"
#include "lz4/sequences.hpp"

namespace zyrdc::lz4 {

namespace {

constexpr HcLevel kLevels[kHcLevels] = {
    {Parser::Greedy, 4, 32, 0},        {Parser::Greedy, 8, 32, 0},
    {Parser::Lazy, 4, 64, 1},          {Parser::Lazy, 8, 64, 1},
    {Parser::Lazy, 16, 128, 1},        {Parser::Lazy, 32, 128, 2},
    {Parser::Lazy, 64, 256, 2},        {Parser::Lazy, 128, 256, 2},
    {Parser::Lazy, 256, 512, 2},       {Parser::Optimal, 96, 64, 0},
    {Parser::Optimal, 512, 128, 0},    {Parser::Optimal, 16384, 4096, 0},
};

constexpr uint32_t kHashBits = 15;
constexpr uint32_t kChainMask = 0xFFFF;
// The optimal parser prices at most this many positions ahead of a window's start.
constexpr uint32_t kCells = 4096;

// Bytes equal to b from p[from] on, counting from `from`, at most up to p[most - 1]: the
// count of leading b's when p[0 .. from) are b already.
uint32_t RunForward(const uint8_t* p, uint8_t b, uint32_t from, uint32_t most) {
    const __m128i bb = _mm_set1_epi8(static_cast<char>(b));
    uint32_t n = from;
    for (; n + 16 <= most; n += 16) {
        const uint32_t differ = static_cast<uint32_t>(_mm_movemask_epi8(
                                    _mm_cmpeq_epi8(_mm_loadu_si128(reinterpret_cast<const __m128i*>(p + n)), bb))) ^ 0xFFFF;
        if (differ != 0) return n + static_cast<uint32_t>(__builtin_ctz(differ));
    }
    while (n < most && p[n] == b) ++n;
    return n;
}

// The k >= 1 with p[0], p[-1], ..., p[1 - k] equal to b (p[0] is) and p[-k] not, at most `most`.
uint32_t RunBackward(const uint8_t* p, uint8_t b, uint32_t most) {
    const __m128i bb = _mm_set1_epi8(static_cast<char>(b));
    uint32_t k = 1;
    for (; k + 16 <= most; k += 16) {  // p[-k - 15 .. -k]
        const uint32_t differ = static_cast<uint32_t>(_mm_movemask_epi8(_mm_cmpeq_epi8(
                                    _mm_loadu_si128(reinterpret_cast<const __m128i*>(p - k - 15)), bb))) ^ 0xFFFF;
        if (differ != 0) return k + static_cast<uint32_t>(__builtin_clz(differ) - 16);
    }
    while (k < most && p[-static_cast<ptrdiff_t>(k)] == b) ++k;
    return k;
}

uint32_t Get32(const uint8_t* rec, uint32_t off) { return load_u32le(rec + off); }
void Set32(uint8_t* rec, uint32_t off, uint32_t v) { store_u32le(rec + off, v); }

// Literal runs and sequences in output bytes.
constexpr uint32_t LiteralPrice(uint32_t n) { return n + RunLength(n); }
constexpr uint32_t MatchPrice(uint32_t m) { return 3 + RunLength(m - kMinMatchLength); }

// One cell of the optimal parser: the cheapest known way to reach a position of the window.
struct Cell {
    uint32_t price;
    uint32_t lits;   // literals pending at the position on that way
    uint16_t len;    // 0: reached by a literal, else by a match of this length
    uint16_t offset;
    uint32_t next;   // on the chosen path, the cell reached from this one
};
static_assert(sizeof(Cell) == 16 && 4112 * sizeof(Cell) <= 66304);

// The chains over one buffer: positions are inserted in increasing order and never beyond
// the position being searched.
class Chains {
public:
    Chains(uint8_t* rec, const uint8_t* buf, uint32_t base, uint32_t nextToUpdate)
        : head_(rec + kHcOffHead), chain_(rec + kHcOffChain), buf_(buf), base_(base), next_(nextToUpdate) {}

    static uint32_t Hash(uint32_t four) { return (four * 2654435761u) >> (32 - kHashBits); }

    uint32_t nextToUpdate() const { return next_; }

    void UpdateTo(uint32_t p) {
        for (uint32_t v = next_; v < p; ++v) {
            const uint32_t h = Hash(load_u32le(buf_ + (v - base_)));
            const uint32_t prev = load_u32le(head_ + 4 * h);
            const uint32_t d = v - prev;
            store_u16le(chain_ + 2 * (v & kChainMask), static_cast<uint16_t>(prev != 0 && d <= kFarthestOffset ? d : 0));
            store_u32le(head_ + 4 * h, v);
        }
        if (p > next_) next_ = p;
    }

    // The longest match at p of at most maxLen bytes (the nearest of equals) with a
    // candidate at or above `low`; 0 if none reaches 4 bytes. With kRuns, a stretch of
    // candidates inside one run of a byte (when p starts such a run too) is judged at once:
    // their lengths follow from the two run lengths, so the result is the one the walk
    // candidate by candidate would give, with each candidate counted.
    template <bool kRuns>
    uint32_t Search(uint32_t p, uint32_t low, uint32_t maxLen, const HcLevel& lv, uint32_t& offset) {
        UpdateTo(p);
        const uint8_t* const ip = buf_ + (p - base_);
        const uint32_t first = load_u32le(ip);
        uint32_t c = load_u32le(head_ + 4 * Hash(first));
        uint32_t best = kMinMatchLength - 1;
        const uint32_t span = p - low;  // candidates lie in [low, p)
        const uint8_t b = static_cast<uint8_t>(first);
        const bool run = kRuns && first == b * 0x01010101u;
        uint32_t r = 0;  // bytes equal to b from p, at most maxLen
        if (run) r = RunForward(ip, b, 4, maxLen);
        const uint32_t stopAt = std::min(lv.nice, maxLen);
        for (uint32_t left = lv.candidates; left != 0;) {
            if (c - low >= span) break;
            const uint8_t* const cp = buf_ + (c - base_);
            if (run && load_u32le(cp) == first) {
                Stretch st{c, c - low + 1, left};
                if (RunStretch(ip, cp, r, maxLen, stopAt, st, best, offset, p)) break;
                left -= st.count;
                if (!st.atRunStart || left == 0) break;
                c = st.next;
                const uint32_t d = load_u16le(chain_ + 2 * (c & kChainMask));
                if (d == 0) break;
                c -= d;
                continue;
            }
            --left;
            if (cp[best] == ip[best] && load_u32le(cp) == first) {
                const uint32_t len = kMinMatchLength + CommonLength(ip + 4, cp + 4, maxLen - 4);
                if (len > best) {
                    best = len;
                    offset = p - c;
                    if (len >= stopAt) break;
                }
            }
            const uint32_t d = load_u16le(chain_ + 2 * (c & kChainMask));
            if (d == 0) break;
            c -= d;
        }
        return best >= kMinMatchLength ? best : 0;
    }

private:
    struct Stretch {
        uint32_t c;          // in: the first candidate, in a run of the byte p starts with
        uint32_t room;       // in: candidates from c down to the lowest reachable position
        uint32_t left;       // in: candidates the walk may still visit
        uint32_t count = 0;  // out: candidates of the stretch visited
        bool atRunStart = false;  // out: the stretch ended at its run's first position
        uint32_t next = 0;   // out: that position (the walk goes on along its chain)
    };

    // The candidates c, c - 1, ... down to the run's start (chained 1 apart, all holding the
    // run's byte b): candidate c - j matches t = t0 + j bytes of b before the run ends (t0 =
    // run end - c). With p's run of r bytes (r = maxLen: no end in reach) its length is
    // min(t, maxLen) while t < r, at t = r the run ends on both sides and the bytes after
    // them decide, beyond it is r. Returns true when a length reached stopAt (the walk ends).
    bool RunStretch(const uint8_t* ip, const uint8_t* cp, uint32_t r, uint32_t maxLen, uint32_t stopAt,
                    Stretch& st, uint32_t& best, uint32_t& offset, uint32_t p) const {
        const uint8_t b = ip[0];
        // Every t above r behaves alike, so the run ahead of c is measured up to r + 1.
        const uint32_t t0 = RunForward(cp, b, 4, r + 1);
        const uint32_t k = RunBackward(cp, b, std::min(st.room, st.left));
        st.count = k;
        st.atRunStart = k < std::min(st.room, st.left);
        st.next = st.c - (k - 1);
        auto take = [&](uint32_t j, uint32_t len) {
            best = len;
            offset = p - (st.c - j);
            return len >= stopAt;
        };
        const bool open = r >= maxLen;  // p's run covers the whole reach
        // Lengths rising one a candidate: t below r (all t when open), capped at maxLen.
        const uint32_t end1 = open ? k : std::min(k, r > t0 ? r - t0 : 0);
        const uint32_t first = best + 1 > t0 ? best + 1 - t0 : 0;
        if (first < end1) {
            const uint32_t brk = std::max(first, stopAt > t0 ? stopAt - t0 : 0);
            if (brk < end1) return take(brk, std::min(t0 + brk, maxLen));
            take(end1 - 1, t0 + end1 - 1);
        }
        if (open) return false;
        // t = r: both runs end together.
        if (t0 <= r && r - t0 < k) {
            const uint32_t j = r - t0;
            const uint32_t len = std::min(maxLen, r + CommonLength(cp + t0, ip + r, maxLen - r));
            if (len > best && take(j, len)) return true;
        }
        // Beyond: r bytes each; only the first can improve.
        const uint32_t j3 = r + 1 > t0 ? r + 1 - t0 : 0;
        if (j3 < k && r > best && take(j3, r)) return true;
        return false;
    }

    uint8_t* head_;
    uint8_t* chain_;
    const uint8_t* buf_;
    uint32_t base_;
    uint32_t next_;
};

template <bool kRuns>
class HcEncoder {
public:
    HcEncoder(uint8_t* rec, const uint8_t* buf, uint32_t base, uint32_t nextToUpdate, uint32_t srcIdx,
              uint32_t n, uint32_t lowIdx, uint8_t* dst, size_t capacity, const HcLevel& lv)
        : chains_(rec, buf, base, nextToUpdate), cells_(reinterpret_cast<Cell*>(rec + kHcOffWork)),
          blk_(buf + srcIdx), n_(n), vstart_(base + srcIdx), vlow_(base + lowIdx), lv_(lv),
          out_(dst, capacity, buf + srcIdx + n) {}

    uint32_t nextToUpdate() const { return chains_.nextToUpdate(); }

    EncodeResult Run() {
        if (n_ >= kShortestMatchedBlock) {
            last_ = n_ - kMatchStartTail;
            switch (lv_.parser) {
                case Parser::Greedy: Greedy(); break;
                case Parser::Lazy: Lazy(); break;
                case Parser::Optimal: Optimal(); break;
            }
        }
        const uint32_t lit = out_.Close(blk_ + anchor_, n_ - anchor_, true);
        return {static_cast<int32_t>(anchor_ + lit), static_cast<int32_t>(out_.pos())};
    }

private:
    // Match length at block position p (at most p <= last_), or 0.
    uint32_t Find(uint32_t p, uint32_t& offset) {
        if (p == cachedPos_) {
            offset = cachedOffset_;
            return cachedLen_;
        }
        const uint32_t vp = vstart_ + p;
        const uint32_t low = std::max(vlow_, vp - kFarthestOffset);
        cachedPos_ = p;
        cachedLen_ = chains_.template Search<kRuns>(vp, low, n_ - kMatchEndTail - p, lv_, cachedOffset_);
        offset = cachedOffset_;
        return cachedLen_;
    }

    // False when the sequence does not fit: parsing stops there.
    bool Emit(uint32_t p, uint32_t len, uint32_t offset) {
        const uint32_t lit = p - anchor_;
        if (!out_.Fits(lit, len)) {
            stopped_ = true;
            return false;
        }
        out_.Sequence(blk_ + anchor_, lit, offset, len);
        anchor_ = p + len;
        return true;
    }

    void Greedy() {
        uint32_t p = 0, offset = 0;
        while (p <= last_) {
            const uint32_t len = Find(p, offset);
            if (len != 0) {
                if (!Emit(p, len, offset)) return;
                p = anchor_;
            } else {
                p += 1 + (p - anchor_) / 64;
            }
        }
    }

    // A match is taken unless one of the next few positions offers a longer one (by more
    // than the literals it costs to get there).
    void Lazy() {
        uint32_t p = 0, offset = 0;
        while (p <= last_) {
            uint32_t len = Find(p, offset);
            if (len == 0) {
                ++p;
                continue;
            }
            for (uint32_t k = 1; k <= lv_.lazySteps;) {
                const uint32_t q = p + k;
                if (q > last_) break;
                uint32_t qOffset = 0;
                const uint32_t qLen = Find(q, qOffset);
                if (qLen > len + k - 1) {
                    p = q;
                    len = qLen;
                    offset = qOffset;
                    k = 1;
                } else {
                    ++k;
                }
            }
            if (!Emit(p, len, offset)) return;
            p = anchor_;
        }
    }

    // Windows of at most 4096 positions priced in output bytes; the cheapest parse of each
    // window is written (a cell changes only for a strictly lower price, literal steps before
    // matches, matches by increasing length).
    void Optimal() {
        uint32_t s = 0, offset = 0;
        while (s <= last_ && !stopped_) {
            const uint32_t len = Find(s, offset);
            if (len == 0) {
                ++s;
                continue;
            }
            if (len >= lv_.nice) {
                if (!Emit(s, len, offset)) return;
                s = anchor_;
                continue;
            }
            s = Window(s, len, offset);
        }
    }

    // Prices the window from s (whose match is len, offset), writes its parse and returns
    // the position to go on from.
    uint32_t Window(uint32_t s, uint32_t len0, uint32_t offset0) {
        Cell* const cell = cells_;
        const uint32_t lits0 = s - anchor_;
        cell[0] = {LiteralPrice(lits0), lits0, 0, 0, 0};
        uint32_t last = 0, filled = 0;
        uint32_t end = 0, tailLen = 0, tailOffset = 0;
        bool tail = false;
        for (uint32_t i = 0; i <= last && i < kCells; ++i) {
            const Cell c = cell[i];
            // A literal step.
            const uint32_t litPrice = c.price - LiteralPrice(c.lits) + LiteralPrice(c.lits + 1);
            if (i + 1 > filled) {
                cell[++filled].price = UINT32_MAX;
            }
            if (litPrice < cell[i + 1].price) cell[i + 1] = {litPrice, c.lits + 1, 0, 0, 0};
            // The match here.
            uint32_t len = 0, offset = 0;
            if (i == 0) {
                len = len0;
                offset = offset0;
            } else if (s + i <= last_) {
                len = Find(s + i, offset);
            }
            if (len == 0) continue;
            if (len >= lv_.nice || i + len > kCells - 1) {
                end = i;
                tail = true;
                tailLen = len;
                tailOffset = offset;
                break;
            }
            while (filled < i + len) cell[++filled].price = UINT32_MAX;
            for (uint32_t m = kMinMatchLength; m <= len; ++m) {
                const uint32_t price = c.price + MatchPrice(m);
                if (price < cell[i + m].price) {
                    cell[i + m] = {price, 0, static_cast<uint16_t>(m), static_cast<uint16_t>(offset), 0};
                }
            }
            last = std::max(last, i + len);
        }
        if (!tail) end = last;
        // Link the chosen path forwards, then write its matches.
        for (uint32_t j = end; j != 0;) {
            const uint32_t prev = cell[j].len == 0 ? j - 1 : j - cell[j].len;
            cell[prev].next = j;
            j = prev;
        }
        for (uint32_t j = 0; j != end;) {
            j = cell[j].next;
            if (cell[j].len != 0 && !Emit(s + j - cell[j].len, cell[j].len, cell[j].offset)) return s + end;
        }
        if (tail) {
            if (!Emit(s + end, tailLen, tailOffset)) return s + end;
            return anchor_;
        }
        return s + end;
    }

    Chains chains_;
    Cell* const cells_;
    const uint8_t* const blk_;
    const uint32_t n_;
    const uint32_t vstart_;  // position of the block's first byte
    const uint32_t vlow_;    // the lowest position a match may reach
    const HcLevel& lv_;
    SequenceWriter out_;
    uint32_t last_ = 0;  // the last block position a match may start at
    uint32_t anchor_ = 0;
    bool stopped_ = false;
    uint32_t cachedPos_ = UINT32_MAX, cachedLen_ = 0, cachedOffset_ = 0;
};

}  // namespace

const HcLevel& HcLevelOf(int level) { return kLevels[level - 1]; }

void HcInit(uint8_t* record) {
    std::memset(record, 0, kHcOffWork);
    Set32(record, kHcOffMagic, kHcMagic);
    Set32(record, kHcOffNextToUpdate, kHcFirstPosition);
    Set32(record, kHcOffBase, kHcFirstPosition);
    Set32(record, kHcOffEnd, kHcFirstPosition);
    Set32(record, kHcOffContinuable, 0);
}

bool HcHasMagic(const uint8_t* record) { return Get32(record, kHcOffMagic) == kHcMagic; }

EncodeResult EncodeHc(uint8_t* rec, const uint8_t* buf, int32_t srcIdx, int32_t srcLen,
                      int32_t dictLimit, bool linked, uint8_t* dst, int32_t capacity, int level,
                      bool candidateByCandidate) {
    const auto idx = static_cast<uint32_t>(srcIdx);
    const auto n = static_cast<uint32_t>(srcLen);
    // History starts at h0: nothing older than 65535 bytes before the block can match.
    const uint32_t h0 = linked ? std::max<uint32_t>(static_cast<uint32_t>(dictLimit),
                                                    idx > kFarthestOffset ? idx - kFarthestOffset : 0)
                               : idx;
    uint32_t base = 0, nextToUpdate = 0;
    bool chosen = false;
    for (int attempt = 0; attempt < 2 && !chosen; ++attempt) {
        const uint32_t end = Get32(rec, kHcOffEnd);
        base = Get32(rec, kHcOffBase);
        nextToUpdate = Get32(rec, kHcOffNextToUpdate);
        // Continue the chains only where this block starts where the last one ended, with
        // the next position to insert inside the buffer and not beyond the block.
        const bool continues = linked && Get32(rec, kHcOffContinuable) == 1 && base + idx == end &&
                               nextToUpdate - base <= idx;
        if (!continues) {
            base = end - h0;
            nextToUpdate = end;
        } else if (nextToUpdate - base < h0) {
            nextToUpdate = base + h0;  // older positions are out of reach anyway
        }
        if (uint64_t{base + h0} + (idx - h0) + n > kHcPositionCeiling || end < kHcFirstPosition) {
            HcInit(rec);
        } else {
            chosen = true;
        }
    }
    const uint32_t lowIdx = std::max(h0, static_cast<uint32_t>(dictLimit));
    const auto cap = static_cast<size_t>(capacity);
    EncodeResult r;
    uint32_t next;
    if (candidateByCandidate) {
        HcEncoder<false> enc(rec, buf, base, nextToUpdate, idx, n, lowIdx, dst, cap, HcLevelOf(level));
        r = enc.Run();
        next = enc.nextToUpdate();
    } else {
        HcEncoder<true> enc(rec, buf, base, nextToUpdate, idx, n, lowIdx, dst, cap, HcLevelOf(level));
        r = enc.Run();
        next = enc.nextToUpdate();
    }
    Set32(rec, kHcOffNextToUpdate, next);
    Set32(rec, kHcOffBase, base);
    Set32(rec, kHcOffEnd, base + idx + static_cast<uint32_t>(r.consumed));
    Set32(rec, kHcOffContinuable, linked && r.consumed == srcLen ? 1 : 0);
    return r;
}

}  // namespace zyrdc::lz4
