// lz77.cpp - Deflate LZ77 matching over caller-held hash tables: greedy hash-chain search,
// the chain-less single probe, lazy evaluation, index rebasing, hash update, dictionary.
//
// Positions are signed 32-bit indexes that run on across calls. The source of a call starts
// at srcIdx; a position below it is history, read at negative offsets from the window
// pointer. The window may be the source pointer itself (history and source contiguous) or
// a separate buffer; in that case a match that starts in history can run on into the source,
// and the comparisons below follow it across the seam.
#include <emmintrin.h>

#include <algorithm>
#include <cstdint>

#include "core/bits.hpp"
#include "core/copy.hpp"
#include "deflate/deflate.hpp"
#include "deflate/tables.hpp"

namespace zyrdc::deflate {

// maxChain, goodLength, niceLength, maxInsertLength per level. The rows that repeat others
// and the rows of zeros are part of the interface.
const LZ77Params kLevelParams[kNumLevels] = {
    {0, 0, 0, 0},       {4, 8, 8, 8},       {4, 16, 16, 9},     {4, 16, 16, 12},
    {48, 32, 32, 16},   {32, 8, 32, 16},    {128, 8, 256, 16},  {144, 8, 256, 16},
    {192, 32, 258, 128}, {256, 32, 258, 258},
    {0, 0, 0, 0},       {3, 7, 8, 258},     {3, 8, 16, 258},    {5, 8, 16, 258},
    {16, 32, 32, 258},  {24, 6, 32, 16},    {120, 7, 256, 16},  {140, 7, 256, 16},
    {192, 32, 258, 128}, {512, 32, 258, 258},
    {0, 0, 0, 0},       {4, 8, 8, 258},     {4, 16, 16, 258},   {4, 16, 16, 258},
    {16, 32, 32, 258},  {32, 8, 32, 16},    {128, 8, 256, 16},  {144, 8, 256, 16},
    {192, 32, 258, 128}, {512, 32, 258, 258},
};

uint32_t TabulationHash(const uint8_t* p, uint32_t mask) {
    const uint32_t v = load_u32le(p);
    return (kHashTables[0][v & 0xFF] ^ kHashTables[1][(v >> 8) & 0xFF] ^
            kHashTables[2][(v >> 16) & 0xFF] ^ kHashTables[3][v >> 24]) & mask;
}

namespace {

// Length of the common prefix of a and b, at most max bytes: 16-byte compares while 16
// bytes are left, then bytes.
inline int CommonPrefix(const uint8_t* a, const uint8_t* b, int max) {
    int i = 0;
    for (; i + 16 <= max; i += 16) {
        const __m128i x = _mm_loadu_si128(reinterpret_cast<const __m128i*>(a + i));
        const __m128i y = _mm_loadu_si128(reinterpret_cast<const __m128i*>(b + i));
        const unsigned diff = static_cast<unsigned>(_mm_movemask_epi8(_mm_cmpeq_epi8(x, y))) ^ 0xFFFFu;
        if (diff != 0) {
            return i + __builtin_ctz(diff);
        }
    }
    while (i < max && a[i] == b[i]) {
        ++i;
    }
    return i;
}

// The state of one matcher call. kSplit is true when history and source are separate
// buffers, so that candidate reads near the seam need care; with contiguous buffers every
// position is read straight from the source pointer.
template <bool kSplit>
class Matcher {
public:
    explicit Matcher(const MatchCall& c)
        : src_(c.src), win_(c.window), base_(c.srcIdx), head_(c.head), prev_(c.prev),
          wmask_(c.winSize - 1), hmask_(c.hashSize - 1), winSize_(static_cast<int32_t>(c.winSize)),
          litFreq_(c.litFreq), distFreq_(c.distFreq), lit_(c.lit), dist_(c.dist),
          cap_(c.capacity), prm_(c.params), flushAll_(c.flush >= kFlushAll) {
        // A source that would run past the largest index is cut short there (only reachable
        // with sources near 2 GiB that were not rebased).
        const int64_t end = int64_t{c.srcIdx} + std::max<int32_t>(c.srcLen, 0);
        end_ = static_cast<int32_t>(std::min<int64_t>(end, INT32_MAX - 1024));
    }

    MatchResult Greedy();
    MatchResult SingleProbe();
    MatchResult Lazy();

private:
    const uint8_t* Cur(int32_t p) const { return src_ + (p - base_); }
    const uint8_t* At(int32_t p) const {
        const int32_t rel = p - base_;
        return (!kSplit || rel >= 0) ? src_ + rel : win_ + rel;
    }
    // A candidate is usable when it lies in the window behind p: 1 <= p - cand < winSize.
    // (A candidate at or after p can only come from tables not reset for a new stream.)
    bool InWindow(int32_t p, int32_t cand) const {
        return static_cast<uint32_t>(p) - static_cast<uint32_t>(cand) - 1u < wmask_;
    }
    // The 4 bytes at position q (q + 4 <= end), across the seam if need be.
    uint32_t Load4(int32_t q) const {
        if (!kSplit || q >= base_ || q + 4 <= base_) {
            return load_u32le(At(q));
        }
        uint32_t v = 0;
        for (int i = 0; i < 4; ++i) v |= uint32_t{*At(q + i)} << (8 * i);
        return v;
    }
    int MatchLength(int32_t cand, const uint8_t* cur, int maxLen) const {
        if (kSplit && cand < base_ && base_ - cand < maxLen) {
            const int before = base_ - cand;  // candidate bytes on the history side
            const int n = CommonPrefix(At(cand), cur, before);
            return n < before ? n : before + CommonPrefix(src_, cur + before, maxLen - before);
        }
        return CommonPrefix(At(cand), cur, maxLen);
    }

    // Hashes position p into head and chain; returns the previous head of its hash.
    int32_t Insert(int32_t p) { return InsertHashed(p, TabulationHash(Cur(p), hmask_)); }
    int32_t InsertHashed(int32_t p, uint32_t h) {
        const int32_t cand = head_[h];
        prev_[static_cast<uint32_t>(p) & wmask_] = cand;
        head_[h] = p;
        return cand;
    }
    // The hash of the next position, its head entry requested ahead of need: positions are
    // mostly visited in order, and the table load is what a search waits for first.
    uint32_t HashAhead(const uint8_t* next) const {
        const uint32_t h = TabulationHash(next, hmask_);
        __builtin_prefetch(head_ + h);
        return h;
    }
    bool Hashable(int32_t q) const { return q <= end_ - 4; }

    template <bool kGoodCutsBudget, bool kPrefetchFollowing>
    int Search(int32_t p, const uint8_t* cur, int32_t cand, int best, int maxLen, int budget,
               int32_t& matchPos) const;
    void InsertInsideGreedy(int32_t p, int len, int32_t dist);
    void FixFinalChains();

    void EmitLiteral(uint8_t b) {
        lit_[n_] = b;
        dist_[n_] = 0;
        ++litFreq_[b].code;
        ++n_;
    }
    void EmitMatch(int len, int32_t dist) {
        lit_[n_] = static_cast<uint8_t>(len - kMinMatch);
        dist_[n_] = static_cast<uint16_t>(dist);
        ++litFreq_[kEndOfBlock + 1 + kLengthCodeOf[len - kMinMatch]].code;
        ++distFreq_[DistanceCode(static_cast<uint32_t>(dist - 1))].code;
        ++n_;
    }
    MatchResult Result(int32_t p) const { return {p - base_, n_}; }

    const uint8_t* src_;
    const uint8_t* win_;
    int32_t base_;
    int32_t end_;
    int32_t* head_;
    int32_t* prev_;
    uint32_t wmask_, hmask_;
    int32_t winSize_;
    HuffCodeEntry* litFreq_;
    HuffCodeEntry* distFreq_;
    uint8_t* lit_;
    uint16_t* dist_;
    int32_t cap_;
    int32_t n_ = 0;
    LZ77Params prm_;
    bool flushAll_;
};

// Walks the chain from cand for a match longer than best (at most maxLen), examining at most
// budget candidates. Each candidate is first tried with one 4-byte compare at offset best,
// where a longer match must differ from the current best; ties keep the nearer candidate.
// The greedy matcher cuts the budget to a quarter of maxChain the first time the best reaches
// goodLength; both stop at niceLength.
//
// The lazy matcher searches the very next position too, whose chain mostly runs one position
// behind each candidate of this one: with kPrefetchFollowing those chain entries are requested
// on the way, so that the next walk finds them in the first-level cache.
template <bool kSplit>
template <bool kGoodCutsBudget, bool kPrefetchFollowing>
int Matcher<kSplit>::Search(int32_t p, const uint8_t* cur, int32_t cand, int best, int maxLen,
                            int budget, int32_t& matchPos) const {
    if (best >= maxLen) {
        return best;  // nothing can be longer (and the check would read past maxLen)
    }
    const int nice = std::min(prm_.niceLength, maxLen);
    bool cut = false;
    for (int examined = 0; examined < budget && InWindow(p, cand); ++examined) {
        // The next link is read first, so that its load is under way while this candidate is
        // compared (the comparison's branch is the one that mispredicts).
        const int32_t next = prev_[static_cast<uint32_t>(cand) & wmask_];
        if (kPrefetchFollowing) __builtin_prefetch(prev_ + (static_cast<uint32_t>(cand + 1) & wmask_));
        if (Load4(cand + best - 3) == load_u32le(cur + best - 3)) {
            const int len = MatchLength(cand, cur, maxLen);
            if (len > best) {
                best = len;
                matchPos = cand;
                if (kGoodCutsBudget && !cut && best >= prm_.goodLength) {
                    budget = prm_.maxChain >> 2;
                    cut = true;
                }
                if (best >= nice) {
                    break;
                }
            }
        }
        cand = next;
    }
    return best;
}

// Hashes the positions inside a greedy match at p. Where the match overlaps itself, the
// positions from one distance on repeat the match's own bytes: they are chained straight to
// their counterparts one distance back instead of being hashed (runs stay cheap).
template <bool kSplit>
void Matcher<kSplit>::InsertInsideGreedy(int32_t p, int len, int32_t dist) {
    const int hashed = dist < len ? static_cast<int>(dist) : len;
    for (int k = 1; k < hashed; ++k) {
        if (Hashable(p + k)) Insert(p + k);
    }
    for (int k = hashed; k < len; ++k) {
        prev_[static_cast<uint32_t>(p + k) & wmask_] = p + k - dist;
    }
}

// After a flush, the last positions (fewer than 4 bytes left) are never hashed; their chain
// slots must not lead to a position not yet written or one from before this call.
template <bool kSplit>
void Matcher<kSplit>::FixFinalChains() {
    for (int32_t q = std::max(base_, end_ - 3); q < end_; ++q) {
        int32_t& e = prev_[static_cast<uint32_t>(q) & wmask_];
        if (e >= q || e < base_) {
            e = -winSize_;
        }
    }
}

template <bool kSplit>
MatchResult Matcher<kSplit>::Greedy() {
    int32_t p = base_;
    // The unchecked region, then (flush 2) the capped one while 4 bytes are left to hash.
    for (int pass = 0; pass < (flushAll_ ? 2 : 1); ++pass) {
        const int32_t stop = pass == 0 ? end_ - kChainedLookahead : end_ - 3;
        uint32_t h = p < stop ? TabulationHash(Cur(p), hmask_) : 0;
        while (p < stop && n_ < cap_) {
            const uint8_t* cur = Cur(p);
            const int32_t cand = InsertHashed(p, h);
            // Below the stop of the first pass, the next position can always be hashed.
            h = pass == 0 ? HashAhead(cur + 1) : 0;
            const int maxLen = pass == 0 ? kMaxMatch : std::min(kMaxMatch, end_ - p);
            int32_t matchPos = 0;
            const int best = Search<true, false>(p, cur, cand, kMinMatch, maxLen, prm_.maxChain, matchPos);
            if (best > kMinMatch) {
                EmitMatch(best, p - matchPos);
                // The position after the match is hashed first, so that its head entry is on its
                // way while the positions inside are inserted.
                if (p + best < stop) h = HashAhead(Cur(p + best));
                if (best <= prm_.maxInsertLength) {
                    InsertInsideGreedy(p, best, p - matchPos);
                }
                p += best;
            } else {
                EmitLiteral(*cur);
                ++p;
                if (pass != 0 && p < stop) h = TabulationHash(Cur(p), hmask_);
            }
        }
    }
    if (flushAll_) {
        for (; p < end_ && n_ < cap_; ++p) EmitLiteral(*Cur(p));
        if (p == end_) FixFinalChains();
    }
    return Result(p);
}

template <bool kSplit>
MatchResult Matcher<kSplit>::SingleProbe() {
    int32_t p = base_;
    if (end_ - p >= 3) {
        const uint8_t* cur = Cur(p);
        uint32_t h = (uint32_t{cur[0]} << 5) ^ cur[1];
        for (int pass = 0; pass < (flushAll_ ? 2 : 1); ++pass) {
            const int32_t stop = pass == 0 ? end_ - kProbeLookahead : end_ - 2;
            while (p < stop && n_ < cap_) {
                cur = Cur(p);
                h = RollHash(h, cur[2], hmask_);
                const int32_t cand = head_[h];
                head_[h] = p;
                if (InWindow(p, cand)) {
                    const int maxLen = pass == 0 ? kMaxMatch : std::min(kMaxMatch, end_ - p);
                    const int len = MatchLength(cand, cur, maxLen);
                    if (len >= kMinMatch) {
                        EmitMatch(len, p - cand);
                        // The rolling hash must pass every position to stay in step.
                        for (int k = 1; k < len && p + k < end_ - 2; ++k) {
                            h = RollHash(h, cur[k + 2], hmask_);
                            head_[h] = p + k;
                        }
                        p += len;
                        continue;
                    }
                }
                EmitLiteral(cur[0]);
                ++p;
            }
        }
    }
    if (flushAll_) {
        for (; p < end_ && n_ < cap_; ++p) EmitLiteral(*Cur(p));
    }
    return Result(p);
}

// Lazy evaluation: the match found at a position is held back until the next position has
// been searched, and given up for a literal when the next one finds a longer match. A held
// length of 3 means "no match" (the shortest emitted match is 4); 0 means nothing is held.
// One output entry is kept in reserve, so that a held item can always be written out when
// the call stops: the next call then starts with nothing held.
template <bool kSplit>
MatchResult Matcher<kSplit>::Lazy() {
    int32_t p = base_;
    int prevLen = 0;
    int32_t prevDist = 0;
    uint8_t prevByte = 0;
    auto emitHeldMatch = [&](int32_t firstUninserted) {
        EmitMatch(prevLen, prevDist);
        const int32_t matchEnd = p - 1 + prevLen;
        for (int32_t q = firstUninserted; q < matchEnd; ++q) {
            if (Hashable(q)) Insert(q);
        }
        return matchEnd;
    };
    for (int pass = 0; pass < (flushAll_ ? 2 : 1); ++pass) {
        const int32_t stop = pass == 0 ? end_ - kChainedLookahead : end_;
        uint32_t h = pass == 0 && p < stop ? TabulationHash(Cur(p), hmask_) : 0;
        while (p < stop && n_ < cap_ - 1) {
            const uint8_t* cur = Cur(p);
            const bool hashable = Hashable(p);
            int32_t cand = kNoPosition;
            if (pass == 0) {  // below the first stop, this position and the next can be hashed
                cand = InsertHashed(p, h);
                h = HashAhead(cur + 1);
            } else if (hashable) {
                cand = Insert(p);
            }
            int curLen = prevLen;
            int32_t curDist = 0;
            if (prevLen < prm_.maxInsertLength) {
                const int start = std::max(prevLen, kMinMatch);
                curLen = start;
                if (hashable) {
                    const int maxLen = pass == 0 ? kMaxMatch : std::min(kMaxMatch, end_ - p);
                    const int budget = prevLen < prm_.goodLength ? prm_.maxChain : prm_.maxChain >> 2;
                    int32_t matchPos = 0;
                    curLen = Search<false, true>(p, cur, cand, start, maxLen, budget, matchPos);
                    if (curLen > start) curDist = p - matchPos;
                }
            }
            if (prevLen > 1) {
                if (prevLen < curLen || prevLen <= kMinMatch) {
                    EmitLiteral(prevByte);
                } else {
                    // As in the greedy loop, the position after the match is hashed first.
                    const int32_t matchEnd = p - 1 + prevLen;
                    if (pass == 0 && matchEnd < stop) h = HashAhead(Cur(matchEnd));
                    p = emitHeldMatch(p + 1) - 1;  // on to the match's last position
                    curLen = 0;
                }
            }
            prevByte = cur[0];
            prevLen = curLen;
            prevDist = curDist;
            ++p;
        }
    }
    if (prevLen > 1) {  // the reserved entry
        if (prevLen <= kMinMatch) {
            EmitLiteral(prevByte);
        } else {
            p = emitHeldMatch(p);
        }
    }
    if (flushAll_ && p == end_) FixFinalChains();
    return Result(p);
}

}  // namespace

// Each matcher object lives in one function, with every method inlined, so that its fields
// stay in registers: stores through the table and output pointers cannot reach them.
MatchResult MatchGreedy(const MatchCall& c) {
    if (c.window == c.src) return Matcher<false>(c).Greedy();
    return Matcher<true>(c).Greedy();
}
MatchResult MatchSingleProbe(const MatchCall& c) {
    if (c.window == c.src) return Matcher<false>(c).SingleProbe();
    return Matcher<true>(c).SingleProbe();
}
MatchResult MatchLazy(const MatchCall& c) {
    if (c.window == c.src) return Matcher<false>(c).Lazy();
    return Matcher<true>(c).Lazy();
}

// ---- rebasing --------------------------------------------------------------------------

// e > d + kNoPosition keeps e - d, anything else falls to the floor. Written this way the
// subtraction cannot overflow, whatever d is.
void RebaseEntriesScalar(int32_t* e, uint32_t count, int32_t d) {
    const int32_t threshold = d + kNoPosition;
    for (uint32_t i = 0; i < count; ++i) {
        e[i] = e[i] > threshold ? e[i] - d : kNoPosition;
    }
}

void RebaseEntries(int32_t* e, uint32_t count, int32_t d) {
    const __m128i threshold = _mm_set1_epi32(d + kNoPosition);
    const __m128i delta = _mm_set1_epi32(d);
    const __m128i floor = _mm_set1_epi32(kNoPosition);
    uint32_t i = 0;
    for (; i + 4 <= count; i += 4) {
        __m128i* p = reinterpret_cast<__m128i*>(e + i);
        const __m128i v = _mm_loadu_si128(p);
        const __m128i keep = _mm_cmpgt_epi32(v, threshold);
        _mm_storeu_si128(p, _mm_or_si128(_mm_and_si128(keep, _mm_sub_epi32(v, delta)),
                                         _mm_andnot_si128(keep, floor)));
    }
    RebaseEntriesScalar(e + i, count - i, d);
}

void RebaseIfNeeded(int32_t& srcIdx, int32_t srcLen, int32_t* head, uint32_t hashSize,
                    int32_t* prev, uint32_t winSize) {
    const uint32_t len = static_cast<uint32_t>(srcLen);
    const uint32_t reach = static_cast<uint32_t>(srcIdx) + winSize + len;
    if (reach < 0x7FFFFFFFu - len || srcIdx <= static_cast<int32_t>(winSize)) {
        return;
    }
    const int32_t d = srcIdx - static_cast<int32_t>(winSize);
    RebaseEntries(head, hashSize, d);
    RebaseEntries(prev, winSize, d);
    srcIdx -= d;
}

// ---- hash update and dictionary ----------------------------------------------------------

namespace {

// Inserts positions first + i for i in [0, count) of the bytes at p, numbered from first.
void InsertRange(const uint8_t* p, uint32_t first, uint32_t count, int32_t* head, uint32_t hmask,
                 int32_t* prev, uint32_t wmask, bool tabulation) {
    if (count == 0) return;
    if (tabulation) {
        for (uint32_t i = 0; i < count; ++i) {
            const uint32_t h = TabulationHash(p + i, hmask);
            const uint32_t pos = first + i;
            prev[pos & wmask] = head[h];
            head[h] = static_cast<int32_t>(pos);
        }
    } else {
        uint32_t h = (uint32_t{p[0]} << 5) ^ p[1];
        for (uint32_t i = 0; i < count; ++i) {
            h = RollHash(h, p[i + 2], hmask);
            head[h] = static_cast<int32_t>(first + i);
        }
    }
}

}  // namespace

void UpdateHash(const uint8_t* src, uint32_t srcIdx, uint32_t srcLen, int32_t* head,
                uint32_t hashSize, int32_t* prev, uint32_t winSize, bool tabulation) {
    const uint32_t width = tabulation ? 4 : 3;
    if (srcLen < width) return;
    InsertRange(src, srcIdx, srcLen - width + 1, head, hashSize - 1, prev, winSize - 1, tabulation);
}

void SetDictionary(const uint8_t* dict, uint32_t dictLen, int32_t* head, uint32_t hashSize,
                   int32_t* prev, uint8_t* window, uint32_t winSize, bool tabulation) {
    const uint32_t width = tabulation ? 4 : 3;
    if (dictLen < width) return;
    const uint32_t n = std::min(dictLen, winSize);
    CopyBytesKernel(dict + (dictLen - n), window, static_cast<int32_t>(n));
    // The last 257 positions stay out, as a matcher call would leave them at its tail; a
    // dictionary shorter than 258 bytes is therefore copied but not hashed.
    constexpr uint32_t kUnhashedTail = kMaxMatch - 1;
    if (n <= kUnhashedTail) return;
    InsertRange(window, 0, n - kUnhashedTail, head, hashSize - 1, prev, winSize - 1, tabulation);
}

}  // namespace zyrdc::deflate
