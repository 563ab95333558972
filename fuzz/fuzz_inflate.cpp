// fuzz_inflate.cpp - zyrsInflate_8u on arbitrary streams. The source ends at a guard page and
// is read-only during each call; the destination ends at a guard page. The stream is decoded
// once in one call and again with source and room given in pieces (the history sliding as a
// streaming caller keeps it); both must agree on status, output, end position and held bits.
#include <algorithm>
#include <vector>

#include "guarded.hpp"
#include "harness.hpp"
#include "zyrdc.h"

namespace {

constexpr size_t kMaxStream = 1 << 16;
constexpr int32_t kHistory = 32768;

struct Result {
    ZyrStatus status;
    std::vector<uint8_t> out;
    size_t consumed;
    uint32_t bits;
};

GuardedRegion& Source() {
    static GuardedRegion r(kMaxStream);
    return r;
}

ZyrStatus Call(const uint8_t* piece, int32_t n, size_t& consumed, uint32_t& code, uint32_t& bits, uint8_t* dst,
               int32_t dstLen, int32_t& dstIdx, int32_t& mode, InflateHuffTable& t) {
    GuardedRegion& src = Source();
    const uint8_t* p = src.Place(piece, static_cast<size_t>(n));
    src.ReadOnly(true);
    int32_t len = n;
    const ZyrStatus s = zyrsInflate_8u(&p, &len, &code, &bits, dst, dstLen, &dstIdx, 0, &mode, &t);
    src.ReadOnly(false);
    if (s >= 0) {
        FuzzCheck(len >= 0 && len <= n && bits <= 7 && dstIdx <= dstLen);
        consumed = static_cast<size_t>(n - len);
    }
    return s;
}

Result OneShot(const uint8_t* stream, size_t n, int32_t cap) {
    static GuardedRegion dst(kHistory + 65536);
    uint8_t* d = dst.End(static_cast<size_t>(cap));
    InflateHuffTable t;
    uint32_t code = 0, bits = 0;
    int32_t idx = 0, mode = 0;
    size_t consumed = 0;
    const ZyrStatus s = Call(stream, static_cast<int32_t>(n), consumed, code, bits, d, cap, idx, mode, t);
    return {s, std::vector<uint8_t>(d, d + (s >= 0 ? idx : 0)), consumed, bits};
}

Result Pieces(const uint8_t* stream, size_t n, int32_t cap, uint32_t seed) {
    static GuardedRegion dst(kHistory + 65536);
    Result r{StatusOk, {}, 0, 0};
    InflateHuffTable t;
    uint32_t code = 0, bits = 0;
    int32_t idx = 0, mode = 0;
    size_t off = 0, fed = 0;
    auto next = [&] { return (seed = seed * 1103515245u + 12345u) >> 16; };
    fed = std::min(n, size_t{1} + next() % 300);
    const int32_t total = kHistory + 1024;
    uint8_t* d = dst.End(static_cast<size_t>(total));
    for (;;) {
        const int32_t room = std::min<int32_t>(1 + static_cast<int32_t>(next() % 1024), total - idx);
        const int32_t start = idx;
        size_t used = 0;
        const ZyrStatus s = Call(stream + off, static_cast<int32_t>(fed - off), used, code, bits, d, idx + room,
                                 idx, mode, t);
        if (s < 0) return {s, r.out, off, 0};
        r.out.insert(r.out.end(), d + start, d + idx);
        off += used;
        if (static_cast<int32_t>(r.out.size()) > cap) return {StatusDstFull, r.out, off, bits};
        if (s == StatusOk) return {s, r.out, off, bits};
        if (s == StatusSrcExhausted) {
            if (fed == n) return {s, r.out, off, bits};
            fed = std::min(n, fed + 1 + next() % 300);
        }
        if (idx > kHistory) {
            std::memmove(d, d + idx - kHistory, kHistory);
            idx = kHistory;
        }
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 4 || size > kMaxStream + 4) return 0;
    const int32_t cap = 1 + (data[0] | data[1] << 8) % 65536;
    const uint32_t seed = data[2] | data[3] << 8;
    const Result once = OneShot(data + 4, size - 4, cap);
    if (once.status == StatusDstFull) return 0;  // the pieces would go on past the capacity
    const Result split = Pieces(data + 4, size - 4, cap, seed);
    FuzzCheck(split.status == once.status);
    if (once.status >= 0) {
        FuzzCheck(split.out == once.out);
        FuzzCheck(split.consumed == once.consumed);
        FuzzCheck(split.bits == once.bits);
    }
    return 0;
}
