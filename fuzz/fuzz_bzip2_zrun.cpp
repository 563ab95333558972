// fuzz_bzip2_zrun.cpp - the zero-run decoder on any symbols (two input bytes each): repeated
// after DstFull into exact-size destinations until it stops making progress; then the
// encoder over the decoded indexes must give back a stream that decodes to them again.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

#include "harness.hpp"
#include "zyrdc.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 3) return 0;
    const int32_t room = 1 + data[0] * 8;
    std::vector<uint16_t> symbols((size - 1) / 2);
    std::memcpy(symbols.data(), data + 1, symbols.size() * 2);
    for (auto& s : symbols) s = static_cast<uint16_t>(s % 300);  // mostly in range, some above
    const uint16_t* p = symbols.data();
    auto left = static_cast<int32_t>(symbols.size());
    std::vector<uint8_t> decoded;
    while (left > 0) {
        std::vector<uint8_t> dst(static_cast<size_t>(room));
        int32_t len = room;
        const uint16_t* before = p;
        const ZyrStatus st = zyrsDecodeZ1Z2_BZ2_16u8u(&p, &left, dst.data(), &len);
        FuzzCheck(st == StatusOk || st == StatusDstFull);
        FuzzCheck(len >= 0 && len <= room && p >= before);
        decoded.insert(decoded.end(), dst.begin(), dst.begin() + len);
        if (st == StatusOk || len == 0) break;  // a run longer than the room ends the test
    }
    if (decoded.empty()) return 0;
    // Indexes -> symbols -> indexes.
    std::vector<uint16_t> coded(decoded.size() + 1);
    std::vector<uint32_t> freq(258, 0);
    const uint8_t* q = decoded.data();
    auto n = static_cast<int32_t>(decoded.size());
    int32_t cap = static_cast<int32_t>(coded.size());
    FuzzCheck(zyrsEncodeZ1Z2_BZ2_8u16u(&q, &n, coded.data(), &cap, freq.data()) == StatusOk);
    std::vector<uint8_t> again(decoded.size());
    const uint16_t* c = coded.data();
    int32_t got = static_cast<int32_t>(again.size());
    FuzzCheck(zyrsDecodeZ1Z2_BZ2_16u8u(&c, &cap, again.data(), &got) == StatusOk);
    FuzzCheck(again == decoded);
    return 0;
}
