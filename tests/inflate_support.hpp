// inflate_support.hpp - helpers of the Inflate tests: one-shot and split decoding through
// zyrsInflate_8u, and a bit writer for hand-made streams.
#pragma once

#include <algorithm>
#include <cstdint>
#include <random>
#include <vector>

#include "zyrdc.h"

namespace zyrdc::test {

struct Inflated {
    ZyrStatus status;
    std::vector<uint8_t> out;
    size_t consumed;      // source bytes
    uint32_t heldBits;    // held bit count at the end
};

// One call over the whole stream into a buffer of `cap` bytes (at least 1), after `dict`.
inline Inflated InflateOnce(const std::vector<uint8_t>& stream, size_t cap,
                            const std::vector<uint8_t>& dict = {}) {
    std::vector<uint8_t> buf(dict);
    buf.resize(dict.size() + std::max<size_t>(cap, 1));
    static const uint8_t kEmpty = 0;
    const uint8_t* src = stream.empty() ? &kEmpty : stream.data();
    int32_t srcLen = static_cast<int32_t>(stream.size()), dstIdx = static_cast<int32_t>(dict.size()), mode = 0;
    uint32_t code = 0, bits = 0;
    InflateHuffTable table;
    const ZyrStatus s = zyrsInflate_8u(&src, &srcLen, &code, &bits, buf.data(), static_cast<int32_t>(buf.size()),
                                       &dstIdx, 0, &mode, &table);
    return {s, std::vector<uint8_t>(buf.begin() + static_cast<long>(dict.size()), buf.begin() + dstIdx),
            stream.size() - static_cast<size_t>(srcLen), bits};
}

// Decodes with the source given in random pieces (0 = one byte at a time) and the room in
// random amounts (0 = one byte a call), sliding the history as a streaming caller does.
inline Inflated InflatePieces(const std::vector<uint8_t>& stream, std::mt19937& rng, size_t maxPiece,
                              size_t maxRoom) {
    constexpr size_t kHistory = 32768;
    std::vector<uint8_t> buf(kHistory + std::max<size_t>(maxRoom, 1) + 1), out;
    InflateHuffTable table;
    int32_t dstIdx = 0, mode = 0;
    uint32_t code = 0, bits = 0;
    size_t off = 0, fed = 0;
    auto more = [&] { return maxPiece == 0 ? 1 : 1 + rng() % maxPiece; };
    fed = std::min(stream.size(), more());
    for (;;) {
        static const uint8_t kEmpty = 0;
        const uint8_t* src = fed > off ? stream.data() + off : &kEmpty;
        int32_t srcLen = static_cast<int32_t>(fed - off);
        const size_t room = maxRoom == 0 ? 1 : 1 + rng() % maxRoom;
        const int32_t start = dstIdx;
        const ZyrStatus s = zyrsInflate_8u(&src, &srcLen, &code, &bits, buf.data(),
                                           dstIdx + static_cast<int32_t>(room), &dstIdx, 0, &mode, &table);
        out.insert(out.end(), buf.begin() + start, buf.begin() + dstIdx);
        if (s < 0 || s == StatusOk) return {s, out, s < 0 ? off : fed - static_cast<size_t>(srcLen), bits};
        off = fed - static_cast<size_t>(srcLen);
        if (s == StatusSrcExhausted) {
            if (fed == stream.size()) return {s, out, off, bits};
            fed = std::min(stream.size(), fed + more());
        }
        if (dstIdx > static_cast<int32_t>(kHistory)) {  // keep 32 KiB of history at the front
            std::copy(buf.begin() + dstIdx - static_cast<long>(kHistory), buf.begin() + dstIdx, buf.begin());
            dstIdx = static_cast<int32_t>(kHistory);
        }
    }
}

// Bits least significant first, as Deflate sends them.
struct BitWriter {
    std::vector<uint8_t> bytes;
    uint32_t n = 0;
    void Put(uint32_t v, uint32_t len) {
        for (uint32_t i = 0; i < len; ++i, ++n) {
            if (n % 8 == 0) bytes.push_back(0);
            bytes.back() |= static_cast<uint8_t>(((v >> i) & 1) << (n % 8));
        }
    }
    void Code(const HuffCodeEntry& e) { Put(e.code, e.len); }
    void Align() { n = static_cast<uint32_t>(bytes.size() * 8); }
};

}  // namespace zyrdc::test
