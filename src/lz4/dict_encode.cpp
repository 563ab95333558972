// dict_encode.cpp - LZ4 block encoding with a dictionary: the fast greedy schedule over the
// 16384-byte table, whose entries are positions in one space that puts the dictionary's last
// 64 KiB right before the source, wherever the dictionary lies in memory. The table may hold
// anything: every candidate is range-checked before its bytes are compared.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "core/bits.hpp"
#include "lz4/hc.hpp"
#include "lz4/sequences.hpp"

namespace zyrdc::lz4 {

namespace {

constexpr int kTableBits = 12;
constexpr uint32_t kOneByOne = 64;           // first search: positions 0..63 one by one
constexpr uint32_t kBatchAfterLiterals = 64;  // after a short literal run, batches of three
constexpr int kBatches = 16;

class Table {
public:
    explicit Table(uint8_t* t) : t_(t) {}
    uint32_t Get(uint32_t h) const { return load_u32le(t_ + 4 * h); }
    void Put(uint32_t h, uint32_t v) { store_u32le(t_ + 4 * h, v); }

private:
    uint8_t* t_;
};

template <bool kBounded>
class DictEncoder {
public:
    DictEncoder(const uint8_t* src, uint32_t n, uint8_t* dst, size_t capacity, uint8_t* table,
                const uint8_t* dictEnd, uint32_t d)
        : src_(src), n_(n), dictEnd_(dictEnd), d_(d), table_(table), out_(dst, capacity, src + n) {}

    EncodeResult Run() {
        if (n_ >= kShortestMatchedBlock) {
            last_ = n_ - kMatchStartTail;
            uint32_t pos = 0, cand = 0, len = 0;
            bool found = FirstMatch(pos, cand, len);
            while (found) {
                const uint32_t lit = pos - anchor_;
                if (kBounded && !out_.Fits(lit, len)) break;
                out_.Sequence(src_ + anchor_, lit, d_ + pos - cand, len);
                anchor_ = pos + len;
                found = NextMatch(lit, pos, cand, len);
            }
        }
        const uint32_t lit = out_.Close(src_ + anchor_, n_ - anchor_, kBounded);
        return {static_cast<int32_t>(anchor_ + lit), static_cast<int32_t>(out_.pos())};
    }

private:
    // The byte at position v (below d_: the dictionary).
    uint8_t At(uint32_t v) const { return v < d_ ? dictEnd_[static_cast<ptrdiff_t>(v) - d_] : src_[v - d_]; }

    // Length of the match of source position i with position cand (0 below 4 bytes),
    // ending at or before n - 5; a dictionary candidate continues into the source.
    uint32_t Length(uint32_t i, uint32_t cand) const {
        const uint32_t limit = n_ - kMatchEndTail - i;
        const uint8_t* const ip = src_ + i;
        if (cand >= d_) {
            const uint8_t* const cp = src_ + (cand - d_);
            if (load_u32le(cp) != load_u32le(ip)) return 0;
            return kMinMatchLength + CommonLength(ip + 4, cp + 4, limit - 4);
        }
        const uint32_t inDict = d_ - cand;
        const uint8_t* const cp = dictEnd_ - inDict;
        if (inDict >= 4) {
            if (load_u32le(cp) != load_u32le(ip)) return 0;
        } else {
            for (uint32_t k = 0; k < 4; ++k) {
                if (At(cand + k) != ip[k]) return 0;
            }
        }
        const uint32_t head = std::min(inDict, limit);
        const uint32_t len = inDict >= 4 ? 4 + CommonLength(ip + 4, cp + 4, head - std::min(head, 4u))
                                         : head;
        if (len < inDict || len == limit) return len;
        return len + CommonLength(ip + len, src_ + (len - inDict), limit - len);
    }

    // Hash, read the candidate, store the position, compare.
    uint32_t Probe(uint32_t i, uint32_t& cand) {
        const uint32_t h = Hash5(src_ + i, kTableBits);
        cand = table_.Get(h);
        table_.Put(h, d_ + i);
        return Check(i, cand);
    }
    // The match with a candidate 1..65535 positions back, or 0. Positions stay below 2^31,
    // so a table entry from anywhere above the current position is refused.
    uint32_t Check(uint32_t i, uint32_t cand) const {
        const uint32_t pos = d_ + i;
        return cand < pos && pos - cand <= kFarthestOffset ? Length(i, cand) : 0;
    }

    bool FirstMatch(uint32_t& pos, uint32_t& cand, uint32_t& len) {
        uint32_t p = 0;
        for (; p < kOneByOne; ++p) {
            if (p > last_) return false;
            if ((len = Probe(p, cand)) != 0) {
                pos = p;
                return true;
            }
        }
        return Grow(p, 64, pos, cand, len);
    }

    // Probes from p with a step of k >> 6, k growing by one every probe.
    bool Grow(uint32_t p, uint32_t k, uint32_t& pos, uint32_t& cand, uint32_t& len) {
        for (;; ++k) {
            if (p > last_) return false;
            if ((len = Probe(p, cand)) != 0) {
                pos = p;
                return true;
            }
            p += k >> 6;
        }
    }

    bool NextMatch(uint32_t lastLiterals, uint32_t& pos, uint32_t& cand, uint32_t& len) {
        uint32_t p = anchor_;
        bool found = false;
        if (lastLiterals < kBatchAfterLiterals) {
            for (int b = 0; b < kBatches && !found; ++b, p += 3) {
                if (p + 2 > last_) return false;
                const uint32_t h0 = Hash5(src_ + p, kTableBits), h1 = Hash5(src_ + p + 1, kTableBits),
                               h2 = Hash5(src_ + p + 2, kTableBits);
                const uint32_t c0 = table_.Get(h0), c1 = table_.Get(h1), c2 = table_.Get(h2);
                table_.Put(h0, d_ + p);
                table_.Put(h1, d_ + p + 1);
                table_.Put(h2, d_ + p + 2);
                if ((len = Check(p, c0)) != 0) {
                    pos = p, cand = c0, found = true;
                } else if ((len = Check(p + 1, c1)) != 0) {
                    pos = p + 1, cand = c1, found = true;
                } else if ((len = Check(p + 2, c2)) != 0) {
                    pos = p + 2, cand = c2, found = true;
                }
            }
        }
        if (!found && !Grow(p, 128, pos, cand, len)) return false;
        // Take in earlier bytes that match too, back to the last match, the source start and
        // the first position.
        while (pos > anchor_ && cand > 0 && At(cand - 1) == src_[pos - 1]) {
            --pos;
            --cand;
            ++len;
        }
        return true;
    }

    const uint8_t* const src_;
    const uint32_t n_;
    const uint8_t* const dictEnd_;
    const uint32_t d_;
    Table table_;
    SequenceWriter out_;
    uint32_t last_ = 0;
    uint32_t anchor_ = 0;
};

}  // namespace

void DictTableClear(uint8_t* table) { std::memset(table, 0, kHashTableBytes); }

void LoadDictionary(const uint8_t* dict, int32_t dictLen, uint8_t* table) {
    DictTableClear(table);
    const auto d = static_cast<uint32_t>(std::min(dictLen, kDictWindow));
    const uint8_t* const start = dict + (dictLen - static_cast<int32_t>(d));
    Table t(table);
    for (uint32_t v = 0; v + 5 <= d; ++v) t.Put(Hash5(start + v, kTableBits), v);
}

EncodeResult EncodeWithDictionary(const uint8_t* src, int32_t srcLen, uint8_t* dst, int32_t capacity,
                                  uint8_t* table, const uint8_t* dict, int32_t dictLen) {
    const bool none = dict == nullptr || dictLen == 0;
    const auto d = none ? 0u : static_cast<uint32_t>(std::min(dictLen, kDictWindow));
    const uint8_t* const dictEnd = none ? src : dict + dictLen;
    const auto n = static_cast<uint32_t>(srcLen);
    if (capacity < 0) {
        const auto worst = static_cast<size_t>(WorstCaseBlockSize(srcLen));
        return DictEncoder<false>(src, n, dst, worst, table, dictEnd, d).Run();
    }
    return DictEncoder<true>(src, n, dst, static_cast<size_t>(capacity), table, dictEnd, d).Run();
}

}  // namespace zyrdc::lz4
