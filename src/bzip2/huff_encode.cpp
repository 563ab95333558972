// huff_encode.cpp - the encoder side of the bzip2 Huffman stage: choosing the code tables
// and a table per group of 50 symbols, writing the block's context (in-use bitmap, table
// count, selectors, delta-coded lengths) and coding the symbols, most significant bit first.
#include <emmintrin.h>

#include <algorithm>
#include <cstring>

#include "bzip2/huff.hpp"
#include "core/huff_limit.hpp"

namespace zyrdc::bzip2 {

namespace {

// Cost in bits of a symbol under the initial tables of the first pass: 0 inside a table's
// range of symbols, this much outside it.
constexpr uint8_t kOutsideCost = 15;
// The table choice is refined this many times.
constexpr int kPasses = 4;

uint32_t TableCount(uint32_t n) {
    return n < 200 ? 2 : n < 600 ? 3 : n < 1200 ? 4 : n < 2400 ? 5 : 6;
}

// Initial tables: consecutive ranges of symbols holding about equal shares of the block, so
// that the first pass starts from tables that differ. Stored as costs in rec->lengths.
void InitialCosts(const uint32_t* freq, uint32_t alpha, uint32_t n, uint32_t groups,
                  HuffEncoderRecord* rec) {
    uint32_t remaining = n;
    int32_t gs = 0;
    for (uint32_t part = groups; part >= 1; --part) {
        const uint32_t target = remaining / part;
        int32_t ge = gs - 1;
        uint32_t acc = 0;
        while (acc < target && ge < static_cast<int32_t>(alpha) - 1) {
            ++ge;
            acc += freq[ge];
        }
        // Every other inner range gives its last symbol back to the next one.
        if (ge > gs && part != groups && part != 1 && (groups - part) % 2 == 1) {
            acc -= freq[ge];
            --ge;
        }
        uint8_t* len = rec->lengths[part - 1];
        for (int32_t s = 0; s < static_cast<int32_t>(alpha); ++s) {
            len[s] = (s >= gs && s <= ge) ? 0 : kOutsideCost;
        }
        gs = ge + 1;
        remaining -= acc;
    }
}

// One pass of the table choice: every group takes the table under which its symbols cost
// least (the lowest number on ties), and its symbols are counted into that table's `freq`.
// The lengths of all tables sit side by side in eight 16-bit lanes per symbol, so a group's
// cost under every table is one saturating add per symbol. Kept apart from the length
// builder so that the two frames never share the stack.
__attribute__((noinline)) void ChooseTables(const uint16_t* src, uint32_t n, uint32_t alpha,
                                            uint32_t groups, const HuffEncoderRecord* rec,
                                            uint8_t* selectors, uint32_t (*freq)[kMaxAlphabet]) {
    alignas(16) uint16_t cost[kMaxAlphabet][8];
    for (uint32_t s = 0; s < alpha; ++s) {
        for (uint32_t t = 0; t < 8; ++t) cost[s][t] = t < groups ? rec->lengths[t][s] : 0x7FFF;
    }
    for (uint32_t t = 0; t < groups; ++t) std::fill(freq[t], freq[t] + alpha, 0u);

    for (uint32_t start = 0, g = 0; start < n; start += kGroupSymbols, ++g) {
        const uint32_t end = std::min(start + kGroupSymbols, n);
        __m128i sum = _mm_setzero_si128();
        for (uint32_t i = start; i < end; ++i) {
            sum = _mm_adds_epi16(sum, _mm_load_si128(reinterpret_cast<const __m128i*>(cost[src[i]])));
        }
        alignas(16) uint16_t sums[8];
        _mm_store_si128(reinterpret_cast<__m128i*>(sums), sum);
        uint32_t best = 0;
        for (uint32_t t = 1; t < groups; ++t) {
            if (sums[t] < sums[best]) best = t;
        }
        selectors[g] = static_cast<uint8_t>(best);
        uint32_t* f = freq[best];
        for (uint32_t i = start; i < end; ++i) ++f[src[i]];
    }
}

// Rebuilds every table's lengths from the frequencies of the last pass; weights of at least
// 1 give every symbol a code, so every table is a complete code.
__attribute__((noinline)) void BuildLengths(uint32_t alpha, uint32_t groups,
                                            const uint32_t (*freq)[kMaxAlphabet],
                                            HuffEncoderRecord* rec) {
    uint32_t weights[kMaxAlphabet];
    for (uint32_t t = 0; t < groups; ++t) {
        for (uint32_t s = 0; s < alpha; ++s) weights[s] = std::max(freq[t][s], 1u);
        LimitedCodeLengths(weights, alpha, kEncodeMaxBits, rec->lengths[t]);
    }
}

// Canonical codes from lengths 1..kEncodeMaxBits: shorter codes first, then by symbol.
void CanonicalCodes(const uint8_t* len, uint32_t alpha, uint32_t* codes) {
    uint32_t count[kEncodeMaxBits + 1] = {};
    for (uint32_t s = 0; s < alpha; ++s) ++count[len[s]];
    uint32_t next[kEncodeMaxBits + 1] = {};
    for (uint32_t l = 2; l <= kEncodeMaxBits; ++l) next[l] = (next[l - 1] + count[l - 1]) << 1;
    for (uint32_t s = 0; s < alpha; ++s) codes[s] = next[len[s]]++ << 8 | len[s];
}

// Bits appended most significant first; whole bytes leave at once, so at most 7 + 32 bits
// are ever held.
class BitWriter {
public:
    BitWriter(uint8_t* dst, uint32_t code, uint32_t bits)
        : dst_(dst), acc_(bits == 0 ? 0 : code & (0xFFFFFFFFu >> (32 - bits))), bits_(bits) {
        Drain();
    }
    void Put(uint32_t value, uint32_t n) {
        acc_ = acc_ << n | value;
        bits_ += n;
        Drain();
    }
    int32_t written() const { return out_; }
    uint32_t bits() const { return bits_; }
    uint32_t code() const { return static_cast<uint32_t>(acc_) & ((1u << bits_) - 1); }

private:
    void Drain() {
        while (bits_ >= 8) {
            bits_ -= 8;
            dst_[out_++] = static_cast<uint8_t>(acc_ >> bits_);
        }
    }
    uint8_t* dst_;
    uint64_t acc_;
    uint32_t bits_;
    int32_t out_ = 0;
};

}  // namespace

ZyrStatus HuffAnalyse(int32_t max_symbols, const uint8_t* in_use, const uint16_t* src, int32_t n,
                      HuffEncoderRecord* rec) {
    uint32_t n_in_use = 0;
    for (int i = 0; i < 256; ++i) {
        if (in_use[i] > 1) return StatusError;
        n_in_use += in_use[i];
    }
    if (n_in_use == 0) return StatusError;
    const uint32_t eob = n_in_use + 1, alpha = n_in_use + 2;
    const auto count = static_cast<uint32_t>(n);

    // Frequencies, checking that EOB comes last and only there.
    uint32_t freq[kMaxAlphabet] = {};
    for (uint32_t i = 0; i + 1 < count; ++i) {
        const uint32_t s = src[i];
        if (s >= eob) return StatusError;
        ++freq[s];
    }
    if (src[count - 1] != eob) return StatusError;
    ++freq[eob];

    // The record is written from here on.
    std::memset(rec, 0, sizeof *rec);
    rec->magic = kHuffEncoderMagic;
    rec->capacity = static_cast<uint32_t>(SelectorCapacity(max_symbols));
    std::memcpy(rec->in_use, in_use, 256);
    const uint32_t groups = TableCount(count);
    const uint32_t n_selectors = static_cast<uint32_t>(SelectorCapacity(n));
    uint8_t* selectors = EncoderSelectors(rec);

    // The codes area holds the per-table frequencies until the codes are made.
    auto* table_freq = rec->codes;
    InitialCosts(freq, alpha, count, groups, rec);
    for (int pass = 0; pass < kPasses; ++pass) {
        ChooseTables(src, count, alpha, groups, rec, selectors, table_freq);
        BuildLengths(alpha, groups, table_freq, rec);
    }

    // Drop the tables no group chose, renumbering the rest in order; keep at least two.
    bool used[kMaxTables] = {};
    for (uint32_t g = 0; g < n_selectors; ++g) used[selectors[g]] = true;
    uint32_t n_used = 0;
    for (uint32_t t = 0; t < groups; ++t) n_used += used[t];
    if (n_used < static_cast<uint32_t>(kMinTables)) {
        for (uint32_t t = 0; t < groups; ++t) {
            if (!used[t]) {
                used[t] = true;
                break;
            }
        }
    }
    uint8_t renumber[kMaxTables] = {};
    uint32_t kept = 0;
    for (uint32_t t = 0; t < groups; ++t) {
        if (!used[t]) continue;
        renumber[t] = static_cast<uint8_t>(kept);
        if (kept != t) std::memcpy(rec->lengths[kept], rec->lengths[t], kMaxAlphabet);
        ++kept;
    }
    for (uint32_t g = 0; g < n_selectors; ++g) selectors[g] = renumber[selectors[g]];

    std::memset(rec->codes, 0, sizeof rec->codes);
    for (uint32_t t = 0; t < kept; ++t) {
        std::fill(rec->lengths[t] + alpha, rec->lengths[t] + kMaxAlphabet, uint8_t{0});
        CanonicalCodes(rec->lengths[t], alpha, rec->codes[t]);
    }
    for (uint32_t t = kept; t < static_cast<uint32_t>(kMaxTables); ++t) {
        std::memset(rec->lengths[t], 0, kMaxAlphabet);
    }

    rec->stage = kEncAnalysed;
    rec->n_in_use = n_in_use;
    rec->alpha_size = alpha;
    rec->n_groups = kept;
    rec->n_selectors = n_selectors;
    rec->n_symbols = count;
    rec->coded = 0;
    return StatusOk;
}

uint32_t HuffContextBits(const HuffEncoderRecord* rec) {
    uint32_t bits = 16 + 3 + 15;
    for (int r = 0; r < 16; ++r) {
        bool any = false;
        for (int i = 0; i < 16; ++i) any |= rec->in_use[16 * r + i] != 0;
        bits += any ? 16 : 0;
    }
    // Selectors: the move-to-front position j of each as j one-bits and a zero-bit.
    uint8_t order[kMaxTables] = {0, 1, 2, 3, 4, 5};
    const uint8_t* selectors = EncoderSelectors(rec);
    for (uint32_t g = 0; g < rec->n_selectors; ++g) {
        uint32_t j = 0;
        while (order[j] != selectors[g]) ++j;
        bits += j + 1;
        std::memmove(order + 1, order, j);
        order[0] = selectors[g];
    }
    for (uint32_t t = 0; t < rec->n_groups; ++t) {
        const uint8_t* len = rec->lengths[t];
        bits += 5;
        uint32_t prev = len[0];
        for (uint32_t s = 0; s < rec->alpha_size; ++s) {
            bits += 1 + 2 * (len[s] > prev ? len[s] - prev : prev - len[s]);
            prev = len[s];
        }
    }
    return bits;
}

BitProgress HuffPackContext(uint32_t code, uint32_t code_bits, uint8_t* dst, int32_t cap,
                            HuffEncoderRecord* rec) {
    const uint64_t whole = (uint64_t{code_bits} + HuffContextBits(rec)) / 8;
    if (whole > static_cast<uint64_t>(cap)) return {StatusDstFull, 0, 0, code, code_bits};

    BitWriter w(dst, code, code_bits);
    uint32_t ranges = 0;
    for (int r = 0; r < 16; ++r) {
        bool any = false;
        for (int i = 0; i < 16; ++i) any |= rec->in_use[16 * r + i] != 0;
        ranges = ranges << 1 | (any ? 1 : 0);
    }
    w.Put(ranges, 16);
    for (int r = 0; r < 16; ++r) {
        if ((ranges >> (15 - r) & 1) == 0) continue;
        uint32_t bits = 0;
        for (int i = 0; i < 16; ++i) bits = bits << 1 | rec->in_use[16 * r + i];
        w.Put(bits, 16);
    }
    w.Put(rec->n_groups, 3);
    w.Put(rec->n_selectors, 15);
    uint8_t order[kMaxTables] = {0, 1, 2, 3, 4, 5};
    const uint8_t* selectors = EncoderSelectors(rec);
    for (uint32_t g = 0; g < rec->n_selectors; ++g) {
        uint32_t j = 0;
        while (order[j] != selectors[g]) ++j;
        w.Put((2u << j) - 2, j + 1);
        std::memmove(order + 1, order, j);
        order[0] = selectors[g];
    }
    for (uint32_t t = 0; t < rec->n_groups; ++t) {
        const uint8_t* len = rec->lengths[t];
        uint32_t cur = len[0];
        w.Put(cur, 5);
        for (uint32_t s = 0; s < rec->alpha_size; ++s) {
            for (; cur < len[s]; ++cur) w.Put(2, 2);
            for (; cur > len[s]; --cur) w.Put(3, 2);
            w.Put(0, 1);
        }
    }
    rec->stage = kEncContextWritten;
    return {StatusOk, 0, w.written(), w.code(), w.bits()};
}

BitProgress HuffEncode(const uint16_t* src, int32_t n, uint32_t code, uint32_t code_bits,
                       uint8_t* dst, int32_t cap, HuffEncoderRecord* rec) {
    uint64_t acc = code_bits == 0 ? 0 : code & (0xFFFFFFFFu >> (32 - code_bits));
    uint32_t bits = code_bits;
    int32_t out = 0;
    ZyrStatus status = StatusOk;

    const uint32_t coded = rec->coded, alpha = rec->alpha_size;
    const auto todo = static_cast<int32_t>(
        std::min(static_cast<uint32_t>(n), rec->n_symbols - std::min(coded, rec->n_symbols)));
    const uint8_t* selectors = EncoderSelectors(rec);
    int32_t i = 0;
    while (i < todo) {
        const uint32_t at = coded + static_cast<uint32_t>(i);
        const uint32_t* table = rec->codes[selectors[at / kGroupSymbols]];
        const int32_t stop = std::min(todo, i + kGroupSymbols - static_cast<int32_t>(at % kGroupSymbols));
        for (; i < stop; ++i) {
            // Room for the bytes this symbol can complete (at most 3), with a byte to spare.
            if (cap - out - static_cast<int32_t>(bits >> 3) < 4) {
                status = StatusDstFull;
                goto done;
            }
            const uint32_t s = src[i];
            if (s >= alpha) return {StatusError, 0, 0, code, code_bits};
            const uint32_t e = table[s];
            const uint32_t len = e & 0xFF;
            acc = acc << len | e >> 8;
            bits += len;
            if (bits >= 32) {
                bits -= 32;
                const auto word = static_cast<uint32_t>(acc >> bits);
                dst[out] = static_cast<uint8_t>(word >> 24);
                dst[out + 1] = static_cast<uint8_t>(word >> 16);
                dst[out + 2] = static_cast<uint8_t>(word >> 8);
                dst[out + 3] = static_cast<uint8_t>(word);
                out += 4;
            }
        }
    }
done:
    rec->coded = coded + static_cast<uint32_t>(i);
    if (rec->coded >= rec->n_symbols) rec->stage = kEncBlockCoded;
    // Whole bytes leave now; bits pending on entry may not all fit a nearly full destination.
    while (bits >= 8) {
        if (out == cap) {
            status = StatusDstFull;
            break;
        }
        bits -= 8;
        dst[out++] = static_cast<uint8_t>(acc >> bits);
    }
    const uint32_t left = bits == 0 ? 0 : static_cast<uint32_t>(acc) & (0xFFFFFFFFu >> (32 - bits));
    return {status, i, out, left, bits};
}

}  // namespace zyrdc::bzip2
