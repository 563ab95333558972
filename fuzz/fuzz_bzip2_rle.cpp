// fuzz_bzip2_rle.cpp - the run-length decoder on any input: the first byte picks the room of
// each destination and where the source is cut; every call must stay inside its destination
// (an exact-size heap buffer), and Flush must drain what is pending.
#include <cstddef>
#include <cstdint>
#include <vector>

#include "harness.hpp"
#include "zyrdc.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 2) return 0;
    const uint8_t knob = data[0];
    const uint8_t* src = data + 1;
    const auto n = static_cast<int32_t>(size - 1);
    const int32_t room = 1 + knob % 64 * (knob & 0x80 ? 40 : 1);
    const int32_t cut = 1 + static_cast<int32_t>((knob * 2654435761u) % static_cast<uint32_t>(n));
    uint8_t state[264];
    FuzzCheck(zyrsDecodeRLEStateInit_BZ2_8u(state) == StatusOk);
    size_t total = 0;
    for (int32_t at = 0; at < n;) {
        const uint8_t* p = src + at;
        int32_t left = (at < cut ? cut : n) - at;
        const int32_t piece = left;
        while (left > 0) {
            std::vector<uint8_t> dst(static_cast<size_t>(room));
            uint8_t* d = dst.data();
            int32_t free = room;
            const ZyrStatus st = zyrsDecodeRLEState_BZ2_8u(&p, &left, &d, &free, state);
            FuzzCheck(st == StatusOk || st == StatusDstFull);
            FuzzCheck(free >= 0 && d == dst.data() + (room - free) && p == src + at + (piece - left));
            total += static_cast<size_t>(room - free);
            if (st == StatusOk) break;
        }
        FuzzCheck(left == 0);
        at += piece;
    }
    for (ZyrStatus st = StatusDstFull; st == StatusDstFull;) {
        std::vector<uint8_t> dst(static_cast<size_t>(room));
        uint8_t* d = dst.data();
        int32_t free = room;
        st = zyrsDecodeRLEStateFlush_BZ2_8u(state, &d, &free);
        FuzzCheck(free >= 0 && free <= room);
        total += static_cast<size_t>(room - free);
    }
    // Every source byte stands for at most 259 / 5 output bytes on average, plus literals.
    FuzzCheck(total <= size * 64 + 300);
    return 0;
}
