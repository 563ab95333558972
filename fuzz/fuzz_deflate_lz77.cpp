// fuzz_deflate_lz77.cpp - round trip of the LZ77 matchers: a level or a parameter record, window
// and hash sizes, history contiguous or in a buffer of its own, and the calls' source lengths,
// capacities and flush values all come from the input. The emitted streams must re-expand to
// the source, with every distance inside the window, the shortest match of the mode, and
// frequency counts that equal the symbols emitted.
//
// Input: 8 control bytes, then the data (the data's own bytes also drive the call splits).
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

#include "../tests/deflate_support.hpp"
#include "harness.hpp"
#include "zyrdc.h"

namespace {

void Check(bool ok) {
    if (!ok) __builtin_trap();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* input, size_t size) {
    if (size < 8) return 0;
    const uint8_t* ctl = input;
    const std::vector<uint8_t> data(input + 8, input + size);
    const uint32_t winSize = 256u << (ctl[0] % 8), hashSize = 256u << (ctl[0] / 8 % 9);
    const bool apart = ctl[1] & 1;
    const int kind = ctl[1] / 2 % 3;  // 0: a level, 1: Fast, 2: Slow
    LZ77Params params{ctl[2] % 40, 4 + ctl[3] % 60, 4 + ctl[4] % 260, 4 + ctl[5] % 260};
    if (kind == 2 && params.maxChain == 0) params.maxChain = 1;
    const uint32_t level = ctl[2] % 30;
    const bool probe = kind == 0 ? level % 10 == 0 : kind == 1 && params.maxChain == 0;
    uint32_t rng = ctl[6] | ctl[7] << 8 | 1u << 16;
    auto next = [&rng](uint32_t n) {
        rng = rng * 1103515245u + 12345u;
        return (rng >> 8) % n;
    };

    std::vector<int32_t> head(hashSize, -32768), prev(winSize, -32768);
    std::vector<uint8_t> history(winSize), out, lit(3000);
    std::vector<uint16_t> dist(3000);
    size_t done = 0;
    for (int calls = 0; done < data.size() || calls == 0; ++calls) {
        const bool last = calls > 60 || next(8) == 0;
        const size_t len = last ? data.size() - done : std::min<size_t>(data.size() - done, next(2000));
        // Exact-size buffers, so that the sanitizer sees any read past the source or before
        // the history; an empty source still gets a pointer.
        const std::vector<uint8_t> piece(data.begin() + static_cast<ptrdiff_t>(done),
                                         data.begin() + static_cast<ptrdiff_t>(done + len));
        const size_t kept = std::min<size_t>(done, winSize);
        if (kept) std::memcpy(history.data() + winSize - kept, data.data() + done - kept, kept);
        static const uint8_t kNothing = 0;
        const uint8_t* src = len == 0 ? &kNothing : apart ? piece.data() : data.data() + done;
        const uint8_t* const start = src;
        const uint8_t* window = apart ? history.data() + winSize : src;
        if (len == 0 && !apart) window = done ? data.data() + done : &kNothing;
        int32_t srcLen = static_cast<int32_t>(len), srcIdx = static_cast<int32_t>(done);
        int32_t room = 2 + static_cast<int32_t>(next(2998));
        const int32_t capacity = room;
        const int32_t flush = last ? 2 : static_cast<int32_t>(next(2));
        HuffCodeEntry lf[286] = {}, df[30] = {};
        ZyrStatus status;
        if (kind == 0) {
            status = zyrsDeflateLZ77_8u(&src, &srcLen, &srcIdx, window, winSize, head.data(), prev.data(),
                                        hashSize, lf, df, lit.data(), dist.data(), &room, level, flush);
        } else if (kind == 1) {
            status = zyrsDeflateLZ77Fast_8u(&src, &srcLen, &srcIdx, window, winSize, head.data(), prev.data(),
                                            hashSize, lf, df, lit.data(), dist.data(), &room, &params, flush);
        } else {
            status = zyrsDeflateLZ77Slow_8u(&src, &srcLen, &srcIdx, window, winSize, head.data(), prev.data(),
                                            hashSize, lf, df, lit.data(), dist.data(), &room, &params, flush);
        }
        Check(status == StatusOk);
        const size_t consumed = static_cast<size_t>(src - start);
        Check(consumed <= len && srcLen == static_cast<int32_t>(len - consumed));
        Check(srcIdx == static_cast<int32_t>(done + consumed));
        const size_t n = static_cast<size_t>(capacity - room);
        uint32_t litCount[286] = {}, distCount[30] = {};
        for (size_t i = 0; i < n; ++i) {
            if (dist[i] == 0) {
                ++litCount[lit[i]];
                continue;
            }
            Check(dist[i] < winSize && lit[i] + 3 >= (probe ? 3 : 4));
            ++litCount[257 + zyrdc::test::LengthCode(lit[i] + 3u)];
            ++distCount[zyrdc::test::DistanceCode(dist[i])];
        }
        for (int s = 0; s < 286; ++s) Check(lf[s].code == litCount[s] && lf[s].len == 0);
        for (int s = 0; s < 30; ++s) Check(df[s].code == distCount[s]);
        Check(zyrdc::test::Expand(lit.data(), dist.data(), n, out));
        Check(out.size() == done + consumed &&
              std::equal(out.begin() + static_cast<ptrdiff_t>(done), out.end(),
                         data.begin() + static_cast<ptrdiff_t>(done)));
        done += consumed;
        if (last && flush >= 2 && n < static_cast<size_t>(capacity) - 1) Check(done == data.size());
    }
    return 0;
}
