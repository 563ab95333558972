// huff_decode.cpp - the decoder side of the bzip2 Huffman stage: reading a block's context
// (in-use bitmap, tables, selectors, delta-coded lengths) as one unit, then the symbols one
// unit each, resumable wherever the source ends. Codes are looked up 10 bits at a time, and
// longer ones found from the canonical limits of each length.
#include <algorithm>
#include <cstring>

#include "bzip2/huff.hpp"
#include "core/bits.hpp"

namespace zyrdc::bzip2 {

namespace {

// Most significant bit first over the caller's held bits and the source. `bits_` valid bits
// sit at the top of `buf_`; the bits below them are zero or the stream's next bits, so a
// refill may OR the same bytes in again.
class BitReader {
public:
    BitReader(const uint8_t* src, int32_t n, uint32_t code, uint32_t code_bits)
        : start_(src), p_(src), end_(src + n),
          buf_(code_bits == 0 ? 0 : uint64_t{code & ((1u << code_bits) - 1)} << (64 - code_bits)),
          bits_(code_bits) {}

    // At least 8 bytes of source left: a refill is one load.
    bool Wide() const { return end_ - p_ >= 8; }
    // Tops the buffer up to 56..63 bits from at least 8 bytes of source.
    void RefillWide() {
        buf_ |= __builtin_bswap64(load_u64le(p_)) >> bits_;
        p_ += (63 - bits_) >> 3;
        bits_ |= 56;
    }
    // Tops the buffer up as far as the source allows.
    void Refill() {
        if (Wide()) {
            RefillWide();
            return;
        }
        while (bits_ <= 56 && p_ < end_) {
            buf_ |= uint64_t{*p_++} << (56 - bits_);
            bits_ += 8;
        }
    }
    uint32_t Available() const { return bits_; }
    uint64_t Top() const { return buf_; }
    void Skip(uint32_t n) {
        buf_ <<= n;
        bits_ -= n;
    }
    // Reads n (1..32) bits; false, nothing taken, when the stream ends first.
    bool Get(uint32_t n, uint32_t* value) {
        if (bits_ < n) {
            Refill();
            if (bits_ < n) return false;
        }
        *value = static_cast<uint32_t>(buf_ >> (64 - n));
        Skip(n);
        return true;
    }

    // The whole bytes after the last bit taken go back to the caller; the unused bits of the
    // last byte taken become the held bits.
    BitProgress Finish(ZyrStatus status, int32_t written) const {
        const auto consumed = static_cast<int32_t>(p_ - start_) - static_cast<int32_t>(bits_ / 8);
        const uint32_t held = bits_ % 8;
        const uint32_t code = held == 0 ? 0 : static_cast<uint32_t>(buf_ >> (64 - held));
        return {status, consumed, written, code, held};
    }

private:
    const uint8_t* start_;
    const uint8_t* p_;
    const uint8_t* end_;
    uint64_t buf_;
    uint32_t bits_;
};

enum class Read { kOk, kShort, kCorrupt };

// A selector's move-to-front position: j one-bits and a zero-bit, j below `groups`.
Read GetSelector(BitReader& r, uint32_t groups, uint32_t* j) {
    if (r.Available() < kMaxTables) r.Refill();
    const uint64_t ones = ~r.Top();
    const uint32_t lead = ones == 0 ? 64 : static_cast<uint32_t>(__builtin_clzll(ones));
    if (lead >= groups) return r.Available() >= groups ? Read::kCorrupt : Read::kShort;
    if (r.Available() < lead + 1) return Read::kShort;
    r.Skip(lead + 1);
    *j = lead;
    return Read::kOk;
}

// One table's code lengths: a 5-bit start, then per symbol steps of +1 (10) and -1 (11)
// ended by a 0; the running length must lie in 1..20 whenever a bit is read for it.
Read GetLengths(BitReader& r, uint32_t alpha, uint8_t* len) {
    uint32_t cur = 0;
    if (!r.Get(5, &cur)) return Read::kShort;
    for (uint32_t s = 0; s < alpha; ++s) {
        for (;;) {
            if (cur < 1 || cur > kDecodeMaxBits) return Read::kCorrupt;
            uint32_t bit = 0;
            if (!r.Get(1, &bit)) return Read::kShort;
            if (bit == 0) break;
            if (!r.Get(1, &bit)) return Read::kShort;
            cur = bit == 0 ? cur + 1 : cur - 1;
        }
        len[s] = static_cast<uint8_t>(cur);
    }
    return Read::kOk;
}

bool OverSubscribed(const uint8_t* len, uint32_t alpha) {
    uint32_t kraft = 0;
    for (uint32_t s = 0; s < alpha; ++s) kraft += 1u << (kDecodeMaxBits - len[s]);
    return kraft > (1u << kDecodeMaxBits);
}

// Decoding tables for lengths 1..20 that are not over-subscribed (an incomplete set leaves
// the values no code has to fail when met).
void BuildTable(const uint8_t* len, uint32_t alpha, uint32_t eob, HuffDecodeTable* t) {
    uint32_t count[kDecodeMaxBits + 1] = {};
    for (uint32_t s = 0; s < alpha; ++s) ++count[len[s]];
    uint32_t first[kDecodeMaxBits + 1] = {}, pos[kDecodeMaxBits + 1] = {};
    t->max_len = 0;
    t->limit[0] = 0;
    t->offset[0] = 0;
    for (uint32_t l = 1, code = 0, at = 0; l <= kDecodeMaxBits; ++l) {
        code = (code + count[l - 1]) << 1;
        first[l] = code;
        pos[l] = at;
        at += count[l];
        t->limit[l] = (code + count[l]) << (kDecodeMaxBits - l);
        t->offset[l] = static_cast<int32_t>(pos[l]) - static_cast<int32_t>(code);
        if (count[l] != 0) t->max_len = l;
    }
    std::fill(t->fast, t->fast + (1u << kFastBits), kFastSlow);
    for (uint32_t s = 0; s < alpha; ++s) {
        const uint32_t l = len[s];
        t->sorted[pos[l]++] = static_cast<uint16_t>(s);
        const uint32_t code = first[l]++;
        if (l > kFastBits) continue;
        const auto entry = static_cast<uint16_t>(s << 5 | l | (s == eob ? kFastSlow : 0));
        const uint32_t lo = code << (kFastBits - l), hi = (code + 1) << (kFastBits - l);
        std::fill(t->fast + lo, t->fast + hi, entry);
    }
    std::fill(t->sorted + alpha, t->sorted + kMaxAlphabet, uint16_t{0});
    std::memset(t->pad, 0, sizeof t->pad);
}

}  // namespace

void HuffDecoderInit(int32_t max_symbols, HuffDecoderRecord* rec) {
    rec->magic = kHuffDecoderMagic;
    rec->capacity = static_cast<uint32_t>(SelectorCapacity(max_symbols));
    rec->stage = kDecNoContext;
}

BitProgress HuffUnpackContext(const uint8_t* src, int32_t n, uint32_t code, uint32_t code_bits,
                              uint8_t* in_use, HuffDecoderRecord* rec) {
    const BitProgress short_source = {StatusSrcExhausted, 0, 0, code, code_bits};
    const BitProgress corrupt = {StatusCorruptStream, 0, 0, code, code_bits};
    BitReader r(src, n, code, code_bits);

    uint32_t ranges = 0;
    if (!r.Get(16, &ranges)) return short_source;
    uint8_t used[256] = {};
    uint32_t n_in_use = 0;
    for (int k = 0; k < 16; ++k) {
        if ((ranges >> (15 - k) & 1) == 0) continue;
        uint32_t bits = 0;
        if (!r.Get(16, &bits)) return short_source;
        for (int i = 0; i < 16; ++i) {
            used[16 * k + i] = static_cast<uint8_t>(bits >> (15 - i) & 1);
            n_in_use += used[16 * k + i];
        }
    }
    if (n_in_use == 0) return corrupt;
    uint32_t groups = 0, n_selectors = 0;
    if (!r.Get(3, &groups)) return short_source;
    if (groups < static_cast<uint32_t>(kMinTables) || groups > static_cast<uint32_t>(kMaxTables)) {
        return corrupt;
    }
    if (!r.Get(15, &n_selectors)) return short_source;
    if (n_selectors == 0) return corrupt;

    // The selectors are checked here and read again into the record once the whole context
    // has arrived, so that a short source leaves the record as it was.
    const BitReader selectors_at = r;
    for (uint32_t k = 0; k < n_selectors; ++k) {
        uint32_t j = 0;
        const Read got = GetSelector(r, groups, &j);
        if (got != Read::kOk) return got == Read::kShort ? short_source : corrupt;
    }
    const uint32_t alpha = n_in_use + 2;
    uint8_t lengths[kMaxTables][kMaxAlphabet];
    for (uint32_t t = 0; t < groups; ++t) {
        const Read got = GetLengths(r, alpha, lengths[t]);
        if (got != Read::kOk) return got == Read::kShort ? short_source : corrupt;
        if (OverSubscribed(lengths[t], alpha)) return {StatusBadHuffmanCode, 0, 0, code, code_bits};
    }

    // The whole context is here: the record is set for the block.
    const uint32_t kept = std::min(n_selectors, rec->capacity);
    uint8_t* selectors = DecoderSelectors(rec);
    uint8_t order[kMaxTables] = {0, 1, 2, 3, 4, 5};
    BitReader again = selectors_at;
    for (uint32_t k = 0; k < kept; ++k) {
        uint32_t j = 0;
        GetSelector(again, groups, &j);
        const uint8_t table = order[j];
        std::memmove(order + 1, order, j);
        order[0] = table;
        selectors[k] = table;
    }
    for (uint32_t t = 0; t < groups; ++t) BuildTable(lengths[t], alpha, alpha - 1, &rec->tables[t]);
    std::memcpy(rec->in_use, used, 256);
    std::memcpy(in_use, used, 256);
    rec->stage = kDecDecoding;
    rec->n_in_use = n_in_use;
    rec->alpha_size = alpha;
    rec->n_groups = groups;
    rec->n_selectors = n_selectors;
    rec->kept = kept;
    rec->decoded = 0;
    return r.Finish(StatusOk, 0);
}

BitProgress HuffDecode(const uint8_t* src, int32_t n, uint32_t code, uint32_t code_bits,
                       uint16_t* dst, int32_t cap, HuffDecoderRecord* rec) {
    if (rec->stage == kDecBlockDone) return {StatusOk, 0, 0, code, code_bits};
    BitReader r(src, n, code, code_bits);
    const uint32_t eob = rec->alpha_size - 1, kept = rec->kept;
    const uint8_t* selectors = DecoderSelectors(rec);
    uint32_t decoded = rec->decoded;
    int32_t w = 0;
    ZyrStatus status = StatusOk;

    for (;;) {
        const uint32_t group = decoded / kGroupSymbols;
        if (group >= kept) return {StatusCorruptStream, 0, 0, code, code_bits};
        const HuffDecodeTable& t = rec->tables[selectors[group]];
        const uint32_t group_end = (group + 1) * kGroupSymbols;

        // The common case: a code of up to 10 bits, room, and at least 8 bytes of source.
        while (decoded < group_end && w < cap && r.Wide()) {
            r.RefillWide();
            const uint16_t e = t.fast[r.Top() >> (64 - kFastBits)];
            if (e & kFastSlow) break;
            r.Skip(e & 31);
            dst[w++] = static_cast<uint16_t>(e >> 5);
            ++decoded;
        }
        if (decoded == group_end) continue;

        // One symbol with every check: a long code, EOB, the end of the source or of room.
        r.Refill();
        const uint16_t e = t.fast[r.Top() >> (64 - kFastBits)];
        uint32_t len = e & 31, sym = (e >> 5) & 0x1FF;
        if (len == 0) {
            const auto v = static_cast<uint32_t>(r.Top() >> (64 - kDecodeMaxBits));
            for (uint32_t l = kFastBits + 1; l <= t.max_len; ++l) {
                if (v < t.limit[l]) {
                    len = l;
                    sym = t.sorted[static_cast<int32_t>(v >> (kDecodeMaxBits - l)) + t.offset[l]];
                    break;
                }
            }
            if (len == 0) {
                if (r.Available() >= t.max_len) return {StatusCorruptStream, 0, 0, code, code_bits};
                status = StatusSrcExhausted;
                break;
            }
        }
        if (len > r.Available()) {
            status = StatusSrcExhausted;
            break;
        }
        if (sym == eob) {
            r.Skip(len);
            rec->stage = kDecBlockDone;
            break;
        }
        if (w == cap) {
            status = StatusDstFull;
            break;
        }
        r.Skip(len);
        dst[w++] = static_cast<uint16_t>(sym);
        ++decoded;
    }
    rec->decoded = decoded;
    return r.Finish(status, w);
}

}  // namespace zyrdc::bzip2
