// bzip2 block stages around the transform: the run-length stage and its in-use table, the
// dictionary maps, move-to-front and zero-run coding; resumable calls split at random points
// against one call; the same encoder bytes in both builds. (The block CRC against the bzip2
// program's own: `zyrdc bwt` in the program's tests.)
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "bzip2/bzip2.hpp"
#include "data.hpp"
#include "support.hpp"
#include "zyrdc.h"

namespace {

using Bytes = std::vector<uint8_t>;
using Symbols = std::vector<uint16_t>;
using zyrdc::test::DataKind;
using zyrdc::test::MakeData;

Bytes Cat(std::initializer_list<Bytes> parts) {
    Bytes out;
    for (const Bytes& p : parts) out.insert(out.end(), p.begin(), p.end());
    return out;
}

// The run-length stage over src in the pieces `cuts` gives, with `room` bytes of destination
// a call (repeated while DstFull), then the flush. Encoding also returns the in-use table.
Bytes Rle(bool encode, const Bytes& src, const std::vector<size_t>& cuts, int32_t room,
          Bytes* in_use = nullptr) {
    uint8_t state[264];
    EXPECT_EQ(encode ? zyrsEncodeRLEInit_BZ2_8u(state) : zyrsDecodeRLEStateInit_BZ2_8u(state), StatusOk);
    Bytes out, dst(static_cast<size_t>(room));
    size_t at = 0;
    for (size_t cut : cuts) {
        const uint8_t* p = src.data() + at;
        for (auto left = static_cast<int32_t>(cut - at); left > 0;) {
            uint8_t* d = dst.data();
            int32_t len = room;
            const ZyrStatus st = encode ? zyrsEncodeRLE_BZ2_8u(&p, &left, d, &len, state)
                                        : zyrsDecodeRLEState_BZ2_8u(&p, &left, &d, &len, state);
            const int32_t written = encode ? len : room - len;
            // The decoder may also fill up after its last source byte, with a run pending.
            EXPECT_EQ(st, left > 0 || (!encode && st == StatusDstFull) ? StatusDstFull : StatusOk);
            out.insert(out.end(), dst.begin(), dst.begin() + written);
        }
        at = cut;
    }
    for (ZyrStatus st = StatusDstFull; st == StatusDstFull;) {
        uint8_t* d = dst.data();
        int32_t len = room;
        st = encode ? zyrsEncodeRLEFlush_BZ2_8u(d, &len, state)
                    : zyrsDecodeRLEStateFlush_BZ2_8u(state, &d, &len);
        out.insert(out.end(), dst.begin(), dst.begin() + (encode ? len : room - len));
    }
    if (in_use != nullptr) {
        in_use->resize(256);
        EXPECT_EQ(zyrsRLEGetInUseTable_8u(in_use->data(), state), StatusOk);
    }
    return out;
}

// Cut points of a coded stream outside every run's four bytes and count byte.
std::vector<size_t> SafeCuts(const Bytes& coded, std::mt19937& rng) {
    std::vector<bool> safe(coded.size() + 1, true);
    for (size_t i = 0, run = 0; i < coded.size(); ++i) {
        run = i > 0 && run > 0 && coded[i] == coded[i - 1] ? run + 1 : 1;
        if (run == 4 && i + 1 < coded.size()) {
            const auto at = safe.begin() + static_cast<std::ptrdiff_t>(i);
            std::fill(at - 2, at + 2, false);
            ++i;  // the count byte; the next byte opens a fresh run
            run = 0;
        }
    }
    std::vector<size_t> cuts;
    for (size_t c : zyrdc::test::RandomCuts(coded.size(), 6, rng)) {
        if (safe[c]) cuts.push_back(c);
    }
    cuts.push_back(coded.size());
    return cuts;
}

TEST(Rle, EdgeCasesOfTheRunRule) {
    const Bytes x4(4, 'x'), t = {'y', 'z', 'w', 'v', 'u'};
    const struct {
        const char* what;
        Bytes in;
        std::vector<size_t> cuts;
        Bytes out;
    } rows[] = {
        {"259 equal bytes: four and 255", Cat({Bytes(259, 'x'), t}), {264}, Cat({x4, {255}, t})},
        {"260: four, 255, one literal", Cat({Bytes(260, 'x'), t}), {265}, Cat({x4, {255, 'x'}, t})},
        {"261: four, 255, two literals", Cat({Bytes(261, 'x'), t}), {266}, Cat({x4, {255, 'x', 'x'}, t})},
        {"262: four, 255, three literals", Cat({Bytes(262, 'x'), t}), {267},
         Cat({x4, {255, 'x', 'x', 'x'}, t})},
        {"four at the end: the flush writes 0", x4, {4}, Cat({x4, {0}})},
        {"count written by the next call", Cat({x4, {'y'}}), {4, 5}, Cat({x4, {0, 'y'}})},
        {"a run carried across calls", Bytes(300, 'x'), {2, 5, 7, 300}, Cat({x4, {255}, x4, {37}})},
        {"three equal, no run; flush writes nothing", {'x', 'x', 'x', 'y'}, {4}, {'x', 'x', 'x', 'y'}},
    };
    for (const auto& r : rows) {
        SCOPED_TRACE(r.what);
        Bytes in_use;
        EXPECT_EQ(Rle(true, r.in, r.cuts, 1000, &in_use), r.out);
        for (int v = 0; v < 256; ++v) {
            EXPECT_EQ(in_use[static_cast<size_t>(v)], std::count(r.out.begin(), r.out.end(), v) > 0) << v;
        }
        EXPECT_EQ(Rle(false, r.out, {r.out.size()}, 1000), r.in);
    }
}

// Split sources and small destinations give the bytes of one call, both ways (the decoder
// split only outside a run's four bytes and count); the dictionary maps undo each other.
TEST(Rle, SplitCallsAndDictionary) {
    std::mt19937 rng(21);
    for (uint32_t seed = 0; seed < 40; ++seed) {
        const Bytes data = MakeData(seed % 2 ? DataKind::Mixed : DataKind::Runs, 1 + rng() % 5000, seed);
        Bytes in_use;
        const Bytes whole = Rle(true, data, {data.size()}, 1 << 16, &in_use);
        const auto room = static_cast<int32_t>(1 + rng() % 300);
        ASSERT_EQ(Rle(true, data, zyrdc::test::RandomCuts(data.size(), 8, rng), room), whole) << seed;
        ASSERT_EQ(Rle(false, whole, SafeCuts(whole, rng), room), data) << seed;

        Bytes mapped = whole;
        const auto len = static_cast<int32_t>(mapped.size());
        int32_t size = 0;
        ASSERT_EQ(zyrsReduceDictionary_8u_I(in_use.data(), mapped.data(), len, &size), StatusOk);
        ASSERT_EQ(size, std::count(in_use.begin(), in_use.end(), 1));
        ASSERT_LT(*std::max_element(mapped.begin(), mapped.end()), size);
        EXPECT_EQ(zyrsExpandDictionary_8u_I(in_use.data(), mapped.data(), len, size), StatusOk);
        EXPECT_EQ(mapped, whole);
    }
}

// The same byte repeated: its index, then zeros; the table's last entry moves to the front.
// (The entry points against their scalar twins at every length: test_frame.cpp.)
TEST(Mtf, RepeatedLastByte) {
    uint8_t table[256], out[4];
    const uint8_t same[4] = {255, 255, 255, 255};
    zyrdc::bzip2::MtfInit(table);
    ASSERT_EQ(zyrsMTFFwd_8u(same, out, 4, table), StatusOk);
    EXPECT_EQ(Bytes(out, out + 4), Bytes({255, 0, 0, 0}));
    EXPECT_EQ(table[0] * 256 + table[255], 255 * 256 + 254);
}

// ---- zero-run coding ---------------------------------------------------------------------------

struct Zrun {
    ZyrStatus status;
    Symbols symbols;
    int32_t consumed;
};

Zrun ZrunEncode(const Bytes& src, int32_t cap, uint32_t* freq) {
    zyrdc::test::GuardedBuffer dst(static_cast<size_t>(cap) * 2);
    auto* d = reinterpret_cast<uint16_t*>(dst.data());
    const uint8_t* p = src.data();
    auto left = static_cast<int32_t>(src.size());
    const ZyrStatus st = zyrsEncodeZ1Z2_BZ2_8u16u(&p, &left, d, &cap, freq);
    EXPECT_EQ(p + left, src.data() + src.size());
    return {st, Symbols(d, d + cap), static_cast<int32_t>(p - src.data())};
}

// Decodes with destinations of `room` bytes (ending at a guard page), repeating after DstFull.
Bytes ZrunDecode(const Symbols& symbols, int32_t room) {
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
}

TEST(ZeroRun, RunCodesAndFrequencies) {
    const std::pair<Bytes, Symbols> rows[] = {
        {{0}, {0}},        {{0, 0}, {1}},          {{0, 0, 0}, {0, 0}},
        {{0, 0, 0, 0}, {1, 0}}, {{3, 0, 0, 0, 0, 0, 255}, {4, 0, 1, 256}}, {{1, 2, 0, 9}, {2, 3, 0, 10}},
    };
    uint32_t freq[258] = {};
    for (const auto& [in, out] : rows) {
        EXPECT_EQ(ZrunEncode(in, 64, freq).symbols, out);
        EXPECT_EQ(ZrunDecode(out, 64), in);
    }
    // An all-zero source of 1000: one run of 9 symbols (2^9 - 1 <= 1000 <= 2^10 - 2), counted.
    std::fill(std::begin(freq), std::end(freq), 0u);
    const Zrun z = ZrunEncode(Bytes(1000, 0), 64, freq);
    EXPECT_EQ(z.symbols.size(), 9u);
    EXPECT_EQ(freq[0] + freq[1], 9u);
    EXPECT_EQ(ZrunDecode(z.symbols, 1000), Bytes(1000, 0));
}

// Small destinations on both sides: the encoder never passes its capacity and leaves the
// zeros it could not code in the source; the decoder, repeated after DstFull, loses nothing.
// (A destination exactly as long as the output: the fuzz harness.)
TEST(ZeroRun, SmallDestinationsLoseNothing) {
    std::mt19937 rng(5);
    uint32_t freq[258] = {};
    for (uint32_t seed = 0; seed < 200; ++seed) {
        Bytes idx(1 + rng() % 400);
        for (auto& v : idx) v = rng() % 3 ? 0 : static_cast<uint8_t>(rng());
        if (seed % 4 == 0) std::fill(idx.begin(), idx.end() - 1, 0);  // one long run
        const auto cap = static_cast<int32_t>(1 + rng() % 30);
        for (Bytes rest = idx; !rest.empty();) {
            const Zrun z = ZrunEncode(rest, cap, freq);
            ASSERT_LE(static_cast<int32_t>(z.symbols.size()), cap);
            ASSERT_GT(z.consumed, 0);
            ASSERT_EQ(z.status, z.consumed < static_cast<int32_t>(rest.size()) ? StatusDstFull : StatusOk);
            // Every call ends with a complete run code: its output decodes on its own.
            ASSERT_EQ(ZrunDecode(z.symbols, 1000), Bytes(rest.begin(), rest.begin() + z.consumed));
            rest.erase(rest.begin(), rest.begin() + z.consumed);
        }
        const Symbols whole = ZrunEncode(idx, 1000, freq).symbols;
        size_t longest = 0;
        for (size_t i = 0, run = 0; i < idx.size(); ++i) {
            longest = std::max(longest, run = idx[i] ? 0 : run + 1);
        }
        ASSERT_EQ(ZrunDecode(whole, static_cast<int32_t>(longest + 1 + rng() % 40)), idx) << seed;
    }
}

// ---- across builds and programs -------------------------------------------------------------

uint32_t Crc(const void* p, size_t n) {
    uint32_t crc = 0;
    EXPECT_EQ(zyrsCRC32_8u(static_cast<const uint8_t*>(p), static_cast<int32_t>(n), &crc), StatusOk);
    return crc;
}

// The stage outputs over fixed inputs, by CRC-32: recorded once, and both the i686 and the
// x86-64 build must reproduce them.
TEST(Bzip2Stages, SameBytesInBothBuilds) {
    const Bytes data = MakeData(DataKind::Mixed, 200000, 77);
    const Bytes rle = Rle(true, data, {data.size()}, 1 << 20);
    const auto n = static_cast<int32_t>(rle.size());
    Bytes last(rle.size()), mtf(rle.size());
    int32_t size = 0, index = 0;
    ASSERT_EQ(zyrsBWTFwdGetSize_8u(n, &size), StatusOk);
    std::vector<uint8_t> buffer(static_cast<size_t>(size));
    uint8_t table[256];
    zyrdc::bzip2::MtfInit(table);
    ASSERT_EQ(zyrsBWTFwd_8u(rle.data(), last.data(), n, &index, buffer.data()), StatusOk);
    ASSERT_EQ(zyrsMTFFwd_8u(last.data(), mtf.data(), n, table), StatusOk);
    uint32_t freq[258] = {};
    const Symbols z = ZrunEncode(mtf, n + 64, freq).symbols;
    const struct {
        const char* output;
        const void* bytes;
        size_t size;
        uint32_t crc;
    } rows[] = {
        {"run-length stage", rle.data(), rle.size(), 0xD340AD6Au},
        {"transform", last.data(), last.size(), 0x5C85E302u},
        {"zero-run symbols", z.data(), 2 * z.size(), 0x4BB128BCu},
        {"zero-run frequencies", freq, sizeof freq, 0x8E47FBA7u},
    };
    for (const auto& r : rows) EXPECT_EQ(Crc(r.bytes, r.size), r.crc) << r.output;
    EXPECT_EQ(index, 47372);
}

}  // namespace
