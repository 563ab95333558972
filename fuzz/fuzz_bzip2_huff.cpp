// fuzz_bzip2_huff.cpp - zyrsUnpackHuffContext_BZ2_8u16u and zyrsDecodeHuff_BZ2_8u16u on
// arbitrary block contexts and symbols. The input is: 2 bytes choosing maxSymbols, 2 bytes
// seeding the split, the held bit count (low 3 bits) and the held bits, then the stream.
// The source ends at a guard page and is read-only during each call; the symbols, the in-use
// table and the record (its selectors last) end at guard pages. The block is decoded once
// with everything at hand and again with source and room in random pieces (what a call
// leaves unconsumed passed again with more); both must agree on status, symbols, end
// position and held bits, and every symbol must lie in the block's alphabet.
#include <algorithm>
#include <vector>

#include "guarded.hpp"
#include "harness.hpp"
#include "zyrdc.h"

namespace {

constexpr size_t kMaxStream = 1 << 16;
constexpr int32_t kMaxSymbols = 100000;

struct Result {
    ZyrStatus status;
    std::vector<uint16_t> out;
    size_t consumed;
    uint32_t code, bits;
    bool past_full = false;  // a fault met by the probe past the one-shot's full destination
};

struct Buffers {
    GuardedRegion src{kMaxStream}, dst{2 * kMaxSymbols}, in_use{256}, record{1 << 16};
};
Buffers& Guarded() {
    static Buffers b;
    return b;
}

// One call of either function on source[0..n), read-only while the call runs.
ZyrStatus Call(bool context, const uint8_t* source, int32_t n, size_t& consumed, uint32_t& code,
               uint32_t& bits, uint16_t* dst, int32_t& room, uint8_t* rec) {
    Buffers& g = Guarded();
    const uint8_t* p = g.src.Place(source, static_cast<size_t>(n));
    g.src.ReadOnly(true);
    int32_t len = n;
    const ZyrStatus s = context ? zyrsUnpackHuffContext_BZ2_8u16u(&p, &len, &code, &bits, g.in_use.End(256), rec)
                                : zyrsDecodeHuff_BZ2_8u16u(&p, &len, &code, &bits, dst, &room, rec);
    g.src.ReadOnly(false);
    if (s >= 0) {
        FuzzCheck(len >= 0 && len <= n && bits <= 7 && code < (1u << bits));
        consumed = static_cast<size_t>(n - len);
    }
    return s;
}

uint8_t* Record(int32_t max_symbols) {
    int32_t size = 0;
    zyrsDecodeHuffGetSize_BZ2_8u16u(max_symbols, &size);
    uint8_t* rec = Guarded().record.End(static_cast<size_t>(size));
    FuzzCheck(zyrsDecodeHuffInit_BZ2_8u16u(max_symbols, rec) == StatusOk);
    return rec;
}

// Symbols must lie below EOB = (values in use) + 1.
void CheckAlphabet(const std::vector<uint16_t>& out) {
    const uint8_t* in_use = Guarded().in_use.End(256);
    int32_t used = 0;
    for (int i = 0; i < 256; ++i) used += in_use[i];
    for (uint16_t v : out) FuzzCheck(v <= used);
}

Result OneShot(const uint8_t* stream, size_t n, int32_t max_symbols, uint32_t code, uint32_t bits) {
    uint8_t* rec = Record(max_symbols);
    uint16_t* dst = reinterpret_cast<uint16_t*>(Guarded().dst.End(2 * static_cast<size_t>(max_symbols)));
    size_t used = 0, more = 0;
    int32_t room = max_symbols;
    ZyrStatus s = Call(true, stream, static_cast<int32_t>(n), used, code, bits, dst, room, rec);
    if (s != StatusOk) return {s, {}, s >= 0 ? used : 0, code, bits};
    s = Call(false, stream + used, static_cast<int32_t>(n - used), more, code, bits, dst, room, rec);
    if (s < 0) return {s, {}, 0, 0, 0};
    return {s, std::vector<uint16_t>(dst, dst + room), used + more, code, bits};
}

Result Pieces(const uint8_t* stream, size_t n, int32_t max_symbols, uint32_t code, uint32_t bits, uint32_t seed) {
    uint8_t* rec = Record(max_symbols);
    auto next = [&] { return (seed = seed * 1103515245u + 12345u) >> 16; };
    Result r{StatusOk, {}, 0, code, bits};
    size_t fed = std::min(n, size_t{next() % 64});
    for (bool context = true;;) {
        // With the one-shot capacity used up, one slot more tells EOB (Ok) from a symbol
        // that would not have fitted there (DstFull, taken back).
        const int32_t left = max_symbols - static_cast<int32_t>(r.out.size());
        int32_t room = std::max(1, std::min<int32_t>(1 + static_cast<int32_t>(next() % 300), left));
        uint16_t* dst = reinterpret_cast<uint16_t*>(Guarded().dst.End(2 * static_cast<size_t>(room)));
        size_t used = 0;
        const Result before = {StatusDstFull, r.out, r.consumed, r.code, r.bits};
        const ZyrStatus s = Call(context, stream + r.consumed, static_cast<int32_t>(fed - r.consumed), used,
                                 r.code, r.bits, dst, room, rec);
        if (s < 0) return {s, {}, 0, 0, 0, !context && left == 0};
        if (!context && left == 0 && room > 0) return before;
        r.consumed += used;
        if (!context) r.out.insert(r.out.end(), dst, dst + room);
        if (s == StatusOk && !context) return r;
        if (s == StatusSrcExhausted) {
            if (fed == n) {
                r.status = s;
                return r;
            }
            fed = std::min(n, fed + 1 + next() % 700);
        }
        context = context && s != StatusOk;
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 6 || size > kMaxStream + 6) return 0;
    const int32_t max_symbols = 1 + (data[0] | data[1] << 8) % kMaxSymbols;
    const uint32_t seed = data[2] | data[3] << 8, bits = data[4] & 7u, code = data[5] & ((1u << bits) - 1);
    const Result once = OneShot(data + 6, size - 6, max_symbols, code, bits);
    const Result split = Pieces(data + 6, size - 6, max_symbols, code, bits, seed);
    // The probe for a slot beyond the one-shot's capacity decodes the symbol that did not fit
    // there and may then meet a fault in the next one, which the one-shot never reached.
    if (split.past_full && once.status == StatusDstFull) return 0;
    FuzzCheck(split.status == once.status);
    if (once.status >= 0) {
        FuzzCheck(split.out == once.out && split.consumed == once.consumed);
        FuzzCheck(split.code == once.code && split.bits == once.bits);
        CheckAlphabet(once.out);
    }
    return 0;
}
