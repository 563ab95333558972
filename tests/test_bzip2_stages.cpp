// bzip2 stages around the transform: run-length coding and its in-use table, zero-run coding,
// in pieces and small destinations. (Move-to-front: its scalar twin in
// test_frame.cpp; exact zero-run codes: the libbz2 interop; both builds: the pinned stream.)
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include "support.hpp"
#include "zyrdc.h"

namespace {

using Bytes = std::vector<uint8_t>;
using Symbols = std::vector<uint16_t>;

// The run-length stage over src in the pieces `cuts` gives, with `room` bytes of destination
// a call (ending at a guard page; repeated while DstFull), then the flush. Encoding also
// returns the in-use table.
Bytes Rle(bool encode, const Bytes& src, const std::vector<size_t>& cuts, int32_t room,
          Bytes* in_use = nullptr) {
    uint8_t state[264];
    EXPECT_EQ(encode ? zyrsEncodeRLEInit_BZ2_8u(state) : zyrsDecodeRLEStateInit_BZ2_8u(state), StatusOk);
    Bytes out;
    zyrdc::test::GuardedBuffer dst(static_cast<size_t>(room));
    size_t at = 0;
    for (size_t cut : cuts) {
        const uint8_t* p = src.data() + at;
        for (auto left = static_cast<int32_t>(cut - at); left > 0;) {
            uint8_t* d = dst.data();
            int32_t len = room;
            const ZyrStatus st = encode ? zyrsEncodeRLE_BZ2_8u(&p, &left, d, &len, state)
                                        : zyrsDecodeRLEState_BZ2_8u(&p, &left, &d, &len, state);
            // The decoder may also fill up after its last source byte, with a run pending.
            EXPECT_EQ(st, left > 0 || (!encode && st == StatusDstFull) ? StatusDstFull : StatusOk);
            out.insert(out.end(), dst.data(), dst.data() + (encode ? len : room - len));
        }
        at = cut;
    }
    for (ZyrStatus st = StatusDstFull; st == StatusDstFull;) {
        uint8_t* d = dst.data();
        int32_t len = room;
        st = encode ? zyrsEncodeRLEFlush_BZ2_8u(d, &len, state)
                    : zyrsDecodeRLEStateFlush_BZ2_8u(state, &d, &len);
        out.insert(out.end(), dst.data(), dst.data() + (encode ? len : room - len));
    }
    if (in_use != nullptr) {
        in_use->resize(256);
        EXPECT_EQ(zyrsRLEGetInUseTable_8u(in_use->data(), state), StatusOk);
    }
    return out;
}

// Counts 255 and above, a count written by the flush or by the next call, a run carried
// across calls, three equal bytes that are no run, all into destinations of four bytes; the
// in-use table holds what was written. The decoder gives the bytes back with a run's first
// byte in an earlier call, into destinations that fill up in mid-run. (The dictionary maps:
// the round-trip fuzz harness and the program's transform files.)
TEST(Rle, EdgeCasesOfTheRunRule) {
    const std::string x4 = "xxxx", t = "yzwvu";
    const struct {
        const char* what;
        std::string in;
        std::vector<size_t> cuts;
        std::string out;
    } rows[] = {
        {"259 equal bytes: four and 255", std::string(259, 'x') + t, {264}, x4 + "\xff" + t},
        {"260: four, 255, one literal", std::string(260, 'x') + t, {265}, x4 + "\xffx" + t},
        {"262: four, 255, three literals", std::string(262, 'x') + t, {267}, x4 + "\xffxxx" + t},
        {"four at the end: the flush writes 0", x4, {4}, x4 + '\0'},
        {"count written by the next call", x4 + 'y', {4, 5}, x4 + '\0' + 'y'},
        {"a run carried across calls", std::string(300, 'x'), {2, 5, 7, 300}, x4 + "\xff" + x4 + '\x25'},
        {"three equal, no run; flush writes nothing", "xxxy", {4}, "xxxy"},
    };
    for (const auto& r : rows) {
        SCOPED_TRACE(r.what);
        const Bytes in(r.in.begin(), r.in.end()), out(r.out.begin(), r.out.end());
        Bytes in_use, want(256);
        for (uint8_t v : out) want[v] = 1;
        EXPECT_EQ(Rle(true, in, r.cuts, 4, &in_use), out);
        EXPECT_EQ(in_use, want);
        EXPECT_EQ(Rle(false, out, {1, out.size()}, 7), in);
    }
}

// Zero-run coding with small destinations on both sides: the encoder never passes its
// capacity, ends every call with a complete run code (its output decodes on its own) and
// leaves the zeros it could not code in the source; its frequencies count what it wrote. The
// decoder, repeated after DstFull into destinations that end at a guard page and hold the
// longest run, loses nothing.
TEST(ZeroRun, SmallDestinationsLoseNothing) {
    const auto decode = [](const Symbols& symbols, int32_t room) {
        Bytes out;
        const uint16_t* p = symbols.data();
        for (auto left = static_cast<int32_t>(symbols.size()); left > 0;) {
            zyrdc::test::GuardedBuffer dst(static_cast<size_t>(room));
            int32_t len = room;
            const ZyrStatus st = zyrsDecodeZ1Z2_BZ2_16u8u(&p, &left, dst.data(), &len);
            out.insert(out.end(), dst.data(), dst.data() + len);
            if (st == StatusOk || len == 0) break;
        }
        return out;
    };
    std::mt19937 rng(5);
    for (uint32_t seed = 0; seed < 200; ++seed) {
        Bytes idx(1 + rng() % 400);
        for (auto& v : idx) v = rng() % 3 ? 0 : static_cast<uint8_t>(rng());
        if (seed % 4 == 0) std::fill(idx.begin(), idx.end() - 1, 0);  // one long run
        const auto cap = static_cast<int32_t>(1 + rng() % 30);
        size_t longest = 0, run = 0;
        for (uint8_t v : idx) longest = std::max(longest, run = v ? 0 : run + 1);
        uint32_t freq[258] = {}, want[258] = {};
        for (const uint8_t *p = idx.data(), *end = p + idx.size(); p != end;) {
            zyrdc::test::GuardedBuffer dst(static_cast<size_t>(cap) * 2);
            auto* d = reinterpret_cast<uint16_t*>(dst.data());
            const uint8_t* from = p;
            int32_t left = static_cast<int32_t>(end - p), n = cap;
            const ZyrStatus st = zyrsEncodeZ1Z2_BZ2_8u16u(&p, &left, d, &n, freq);
            ASSERT_TRUE(p + left == end && p > from && n <= cap) << seed;
            ASSERT_EQ(st, left > 0 ? StatusDstFull : StatusOk);
            const auto room = static_cast<int32_t>(longest + 1 + rng() % 8);
            ASSERT_EQ(decode(Symbols(d, d + n), room), Bytes(from, p)) << seed;
            for (int32_t i = 0; i < n; ++i) ++want[d[i]];
        }
        ASSERT_TRUE(std::equal(freq, freq + 258, want)) << seed;
    }
}

}  // namespace
