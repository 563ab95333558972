// fuzz_fastest_roundtrip.cpp - the single-pass writer on arbitrary bytes and settings: sample
// statistics, codes of every symbol (or the fixed code), precomputed headers, the source in
// pieces with flush 0 between, blocks ending with flush 3 and the last with 4. zlib's raw
// inflate (where present) and zyrsInflate_8u must both give the input back.
#include <algorithm>
#include <vector>

#include "harness.hpp"
#include "zyrdc.h"

#if defined(ZYRDC_HAVE_ZLIB)
#include <zlib.h>
#endif

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 6) return 0;
    const uint32_t winSize = 256u << (data[0] % 8), hashSize = 256u << (data[1] % 9);
    const int mode = data[2] % 2 ? DeflateCodesAll : DeflateCodesFixed;
    const size_t block = 1 + (data[3] | data[4] << 8) % 8192;
    uint32_t seed = data[5];
    const uint8_t* in = data + 6;
    const size_t n = size - 6;
    auto next = [&] { return (seed = seed * 1103515245u + 12345u) >> 16; };

    // 15 bits a byte at most, a header of up to 287 bytes a block, and the room a token asks for.
    std::vector<uint8_t> out(2 * n + (n / block + 1) * 300 + 1024);
    std::vector<int32_t> head(hashSize, -32768), scratch(hashSize);
    uint16_t code = 0;
    uint32_t bits = 0, idx = 0;
    int32_t srcIdx = 0;
    static const uint8_t kNone = 0;
    size_t at = 0;
    do {
        const size_t end = std::min(n, at + block);
        uint32_t lit[286] = {}, dist[30] = {};
        if (end > at) {
            FuzzCheck(zyrsDeflateLZ77FastestGetStat_8u(in + at, static_cast<int32_t>(end - at), scratch.data(),
                                                       hashSize, lit, dist) == StatusOk);
        }
        HuffCodeEntry lc[286], dc[30];
        FuzzCheck(zyrsDeflateLZ77FastestGenHuffTable_8u(lit, dist, mode, lc, dc) == StatusOk);
        DeflateBlockHeader h;
        FuzzCheck(zyrsDeflateLZ77FastestPrecompHeader_8u(mode == DeflateCodesFixed ? 1 : 2, lc, dc, &h) == StatusOk);
        const bool last = end == n;
        FuzzCheck(zyrsDeflateLZ77FastestGenHeader_8u(&h, last, 0, &code, &bits, out.data(),
                                                     static_cast<uint32_t>(out.size()), &idx) == StatusOk);
        size_t pos = at, fed = at;
        for (ZyrStatus s = StatusOk;;) {
            if (s == StatusOk) fed = std::min(end, fed + 1 + next() % 600);
            const int32_t flush = fed < end ? 0 : last ? 4 : 3;
            const uint8_t* src = n ? in + pos : &kNone;
            int32_t len = static_cast<int32_t>(fed - pos);
            const uint32_t cap = std::min<uint32_t>(static_cast<uint32_t>(out.size()), idx + 1 + next() % 64);
            s = zyrsDeflateLZ77Fastest_8u(&src, &len, &srcIdx, src, winSize, head.data(), hashSize, lc, dc, &code,
                                          &bits, out.data(), cap, &idx, flush);
            FuzzCheck(s == StatusOk || s == StatusDstFull);
            pos = fed - static_cast<size_t>(len);
            if (s == StatusOk && fed == end) break;
        }
        at = end;
    } while (at < n);
    FuzzCheck(bits == 0);
    out.resize(idx);

    std::vector<uint8_t> back(n + 1);
    InflateHuffTable t;
    const uint8_t* src = out.data();
    int32_t srcLen = static_cast<int32_t>(out.size()), dstIdx = 0, m = 0;
    uint32_t c = 0, b = 0;
    FuzzCheck(zyrsInflate_8u(&src, &srcLen, &c, &b, back.data(), static_cast<int32_t>(back.size()), &dstIdx, 0, &m,
                             &t) == StatusOk);
    FuzzCheck(srcLen == 0 && static_cast<size_t>(dstIdx) == n && std::equal(in, in + n, back.begin()));
#if defined(ZYRDC_HAVE_ZLIB)
    z_stream z{};
    inflateInit2(&z, -15);
    z.next_in = out.data();
    z.avail_in = static_cast<uInt>(out.size());
    z.next_out = back.data();
    z.avail_out = static_cast<uInt>(back.size());
    FuzzCheck(inflate(&z, Z_FINISH) == Z_STREAM_END && z.total_out == n && std::equal(in, in + n, back.begin()));
    inflateEnd(&z);
#endif
    return 0;
}
