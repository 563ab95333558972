// bzip2 block stages other than the transform: the run-length stage and its in-use table,
// the dictionary maps, move-to-front and zero-run coding; resumable calls split at random
// points against one call; the same encoder bytes in both builds; block CRCs of files made by
// the standard bzip2 program.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "bzip2/bzip2.hpp"
#include "support.hpp"
#include "zyrdc.h"

namespace {

using Bytes = std::vector<uint8_t>;
using Symbols = std::vector<uint16_t>;

Bytes Repeat(uint8_t v, size_t n) { return Bytes(n, v); }
Bytes Cat(std::initializer_list<Bytes> parts) {
    Bytes out;
    for (const Bytes& p : parts) out.insert(out.end(), p.begin(), p.end());
    return out;
}

// Data with runs of every length around the stage's limits, literals and random bytes.
Bytes RunnyData(size_t n, uint32_t seed) {
    std::mt19937 rng(seed);
    Bytes b;
    while (b.size() < n) {
        const uint32_t kind = rng() % 4;
        const size_t len = kind == 0 ? 1 + rng() % 8 : kind == 1 ? 250 + rng() % 20 : 1 + rng() % 600;
        const auto v = static_cast<uint8_t>(kind == 3 ? rng() : rng() % 4);
        for (size_t k = 0; k < len && b.size() < n; ++k) b.push_back(kind == 3 ? static_cast<uint8_t>(rng()) : v);
    }
    return b;
}

// ---- run-length stage --------------------------------------------------------------------------

// Encodes `src` in the pieces given by `cuts`, each call with a destination of `room` bytes
// (repeated while it reports DstFull), then flushes. Returns the output and the in-use table.
Bytes RleEncode(const Bytes& src, const std::vector<size_t>& cuts, int32_t room, Bytes* in_use = nullptr) {
    uint8_t state[264];
    EXPECT_EQ(zyrsEncodeRLEInit_BZ2_8u(state), StatusOk);
    Bytes out;
    size_t at = 0;
    for (size_t cut : cuts) {
        const uint8_t* p = src.data() + at;
        auto left = static_cast<int32_t>(cut - at);
        while (left > 0) {
            Bytes dst(static_cast<size_t>(room));
            int32_t len = room;
            const ZyrStatus st = zyrsEncodeRLE_BZ2_8u(&p, &left, dst.data(), &len, state);
            EXPECT_EQ(st, left > 0 ? StatusDstFull : StatusOk);
            out.insert(out.end(), dst.begin(), dst.begin() + len);
        }
        at = cut;
    }
    uint8_t last;
    int32_t len = 1;
    EXPECT_EQ(zyrsEncodeRLEFlush_BZ2_8u(&last, &len, state), StatusOk);
    if (len == 1) out.push_back(last);
    if (in_use != nullptr) {
        in_use->resize(256);
        EXPECT_EQ(zyrsRLEGetInUseTable_8u(in_use->data(), state), StatusOk);
    }
    return out;
}

// Decodes in the pieces given by `cuts` with `room` bytes of destination a call, then flushes.
Bytes RleDecode(const Bytes& src, const std::vector<size_t>& cuts, int32_t room) {
    uint8_t state[264];
    EXPECT_EQ(zyrsDecodeRLEStateInit_BZ2_8u(state), StatusOk);
    Bytes out;
    size_t at = 0;
    ZyrStatus st = StatusOk;
    for (size_t cut : cuts) {
        const uint8_t* p = src.data() + at;
        auto left = static_cast<int32_t>(cut - at);
        while (left > 0) {
            Bytes dst(static_cast<size_t>(room));
            uint8_t* d = dst.data();
            int32_t free = room;
            st = zyrsDecodeRLEState_BZ2_8u(&p, &left, &d, &free, state);
            out.insert(out.end(), dst.begin(), dst.begin() + (room - free));
            if (st == StatusOk) break;
            EXPECT_EQ(st, StatusDstFull);
        }
        at = cut;
    }
    do {
        Bytes dst(static_cast<size_t>(room));
        uint8_t* d = dst.data();
        int32_t free = room;
        st = zyrsDecodeRLEStateFlush_BZ2_8u(state, &d, &free);
        out.insert(out.end(), dst.begin(), dst.begin() + (room - free));
    } while (st == StatusDstFull);
    return out;
}

// Cut points of a coded stream that do not fall inside a run's four bytes and count byte.
std::vector<size_t> SafeCuts(const Bytes& coded, std::mt19937& rng) {
    std::vector<bool> safe(coded.size() + 1, true);
    int last = -1, run = 0;
    for (size_t i = 0; i < coded.size(); ++i) {
        run = coded[i] == last ? run + 1 : 1;
        last = coded[i];
        if (run == 4 && i + 1 < coded.size()) {
            for (size_t k = i - 2; k <= i + 1; ++k) safe[k] = false;  // inside the four and count
            ++i;
            last = -1;
            run = 0;
        }
    }
    std::vector<size_t> cuts;
    for (size_t c : zyrdc::test::RandomCuts(coded.size(), 6, rng)) {
        if (safe[c]) cuts.push_back(c);
    }
    if (cuts.empty() || cuts.back() != coded.size()) cuts.push_back(coded.size());
    return cuts;
}

TEST(Rle, EdgeCasesOfTheRunRule) {
    const uint8_t x = 'x';
    struct Row {
        const char* what;
        Bytes in;
        std::vector<size_t> cuts;
        Bytes out;
    } rows[] = {
        {"259 equal bytes: four and 255", Repeat(x, 259), {259}, Cat({Repeat(x, 4), {255}})},
        {"260: four, 255, one literal", Repeat(x, 260), {260}, Cat({Repeat(x, 4), {255, x}})},
        {"four at the end: flush writes 0", Repeat(x, 4), {4}, Cat({Repeat(x, 4), {0}})},
        {"count by the next call", Cat({Repeat(x, 4), {'y'}}), {4, 5}, Cat({Repeat(x, 4), {0, 'y'}})},
        {"run carried across calls", Repeat(x, 300), {2, 5, 7, 300}, Cat({Repeat(x, 4), {255}, Repeat(x, 4), {37}})},
        {"three equal, no run", {x, x, x, 'y'}, {4}, {x, x, x, 'y'}},
        {"fresh run after a count", Repeat(x, 263), {263}, Cat({Repeat(x, 4), {255}, Repeat(x, 4), {0}})},
    };
    for (const Row& r : rows) {
        SCOPED_TRACE(r.what);
        Bytes in_use;
        EXPECT_EQ(RleEncode(r.in, r.cuts, 1000, &in_use), r.out);
        for (int v = 0; v < 256; ++v) {
            const bool used = std::find(r.out.begin(), r.out.end(), v) != r.out.end();
            EXPECT_EQ(in_use[static_cast<size_t>(v)], used ? 1 : 0) << v;
        }
        EXPECT_EQ(RleDecode(r.out, {r.out.size()}, 1000), r.in);
    }
    // A flush with a run of fewer than four writes nothing.
    uint8_t state[264], dst[4] = {9, 9, 9, 9};
    const uint8_t* p = dst;
    int32_t left = 3, len = 4;
    ASSERT_EQ(zyrsEncodeRLEInit_BZ2_8u(state), StatusOk);
    ASSERT_EQ(zyrsEncodeRLE_BZ2_8u(&p, &left, dst, &len, state), StatusOk);
    len = 4;
    EXPECT_EQ(zyrsEncodeRLEFlush_BZ2_8u(dst, &len, state), StatusOk);
    EXPECT_EQ(len, 0);
}

// Split sources and small destinations give the bytes of one call, both ways; the decoder is
// split only outside a run's four bytes and count.
TEST(Rle, SplitCallsMatchOneCall) {
    std::mt19937 rng(21);
    for (uint32_t seed = 0; seed < 40; ++seed) {
        const Bytes data = RunnyData(1 + rng() % 5000, seed);
        const Bytes whole = RleEncode(data, {data.size()}, 1 << 16);
        const auto room = static_cast<int32_t>(1 + rng() % 300);
        ASSERT_EQ(RleEncode(data, zyrdc::test::RandomCuts(data.size(), 8, rng), room), whole) << seed;
        ASSERT_EQ(RleDecode(whole, {whole.size()}, 1 << 20), data) << seed;
        ASSERT_EQ(RleDecode(whole, SafeCuts(whole, rng), room), data) << seed;
    }
}

TEST(Rle, DictionaryReduceExpandAndCheckOrders) {
    const Bytes data = RunnyData(3000, 4);
    Bytes in_use;
    const Bytes coded = RleEncode(data, {data.size()}, 1 << 16, &in_use);
    Bytes reduced = coded;
    int32_t size = 0;
    ASSERT_EQ(zyrsReduceDictionary_8u_I(in_use.data(), reduced.data(), static_cast<int32_t>(reduced.size()), &size), StatusOk);
    int32_t used = 0;
    for (uint8_t f : in_use) used += f;
    EXPECT_EQ(size, used);
    EXPECT_LT(*std::max_element(reduced.begin(), reduced.end()), size);
    Bytes expanded = reduced;
    const auto len = static_cast<int32_t>(reduced.size());
    EXPECT_EQ(zyrsExpandDictionary_8u_I(in_use.data(), expanded.data(), len, size + 1), StatusError);
    EXPECT_EQ(expanded, reduced);  // a mismatched size leaves the data alone
    EXPECT_EQ(zyrsExpandDictionary_8u_I(in_use.data(), expanded.data(), len, size), StatusOk);
    EXPECT_EQ(expanded, coded);

    uint8_t s[264] = {}, b[8] = {};
    const uint8_t* src = b;
    const uint8_t* null_src = nullptr;
    uint8_t* dst = b;
    int32_t n0 = 0, n8 = 8, sz = 0;
    struct Row {
        ZyrStatus got, want;
    } rows[] = {
        {zyrsRLEGetSize_BZ2_8u(nullptr), StatusNullPointer},
        {zyrsEncodeRLE_BZ2_8u(&src, &n8, nullptr, &n8, s), StatusNullPointer},
        {zyrsEncodeRLE_BZ2_8u(&null_src, &n0, b, &n8, s), StatusNullPointer},  // before the size
        {zyrsEncodeRLE_BZ2_8u(&src, &n0, b, &n8, s), StatusBadSize},
        {zyrsEncodeRLEFlush_BZ2_8u(b, &n0, s), StatusBadSize},
        {zyrsDecodeRLEState_BZ2_8u(&src, &n8, &dst, &n0, nullptr), StatusNullPointer},
        {zyrsDecodeRLEState_BZ2_8u(&src, &n8, &dst, &n0, s), StatusBadSize},
        {zyrsDecodeRLEStateFlush_BZ2_8u(s, &dst, &n0), StatusOk},  // no size check
        {zyrsReduceDictionary_8u_I(s, b, 0, nullptr), StatusNullPointer},
        {zyrsReduceDictionary_8u_I(s, b, 0, &sz), StatusBadSize},
        {zyrsExpandDictionary_8u_I(s, b, 8, 0), StatusBadSize},
        {zyrsRLEGetInUseTable_8u(nullptr, s), StatusNullPointer},
    };
    for (size_t i = 0; i < std::size(rows); ++i) EXPECT_EQ(rows[i].got, rows[i].want) << "row " << i;
    EXPECT_EQ(zyrsRLEGetSize_BZ2_8u(&sz), StatusOk);
    EXPECT_EQ(sz, 264);
}

// ---- move-to-front -----------------------------------------------------------------------------

TEST(Mtf, KernelsMatchScalarTwinsAcrossSplits) {
    std::mt19937 rng(8);
    for (uint32_t seed = 0; seed < 20; ++seed) {
        Bytes data = RunnyData(1 + rng() % 20000, seed + 100);
        if (seed % 2) for (auto& c : data) c = static_cast<uint8_t>(rng() % (1 + seed * 13));
        const auto n = static_cast<int32_t>(data.size());
        uint8_t t_whole[256], t_split[256];
        zyrdc::bzip2::MtfInit(t_whole);
        Bytes want(data.size()), got(data.size());
        zyrdc::bzip2::MtfForwardScalar(data.data(), want.data(), n, t_whole);
        ASSERT_EQ(zyrsMTFInit_8u(t_split), StatusOk);
        size_t at = 0;
        for (size_t cut : zyrdc::test::RandomCuts(data.size(), 7, rng)) {
            if (cut > at) {
                ASSERT_EQ(zyrsMTFFwd_8u(data.data() + at, got.data() + at, static_cast<int32_t>(cut - at), t_split), StatusOk);
            }
            at = cut;
        }
        ASSERT_EQ(got, want) << seed;
        ASSERT_EQ(0, std::memcmp(t_whole, t_split, 256));
        // Back, split elsewhere, against the scalar inverse.
        Bytes back(data.size()), back_scalar(data.size());
        zyrdc::bzip2::MtfInit(t_whole);
        zyrdc::bzip2::MtfInverseScalar(got.data(), back_scalar.data(), n, t_whole);
        ASSERT_EQ(zyrsMTFInit_8u(t_split), StatusOk);
        at = 0;
        for (size_t cut : zyrdc::test::RandomCuts(data.size(), 7, rng)) {
            if (cut > at) {
                ASSERT_EQ(zyrsMTFInv_8u(got.data() + at, back.data() + at, static_cast<int32_t>(cut - at), t_split), StatusOk);
            }
            at = cut;
        }
        ASSERT_EQ(back, data) << seed;
        ASSERT_EQ(back_scalar, data) << seed;
    }
    // The same byte repeated: its index, then zeros; the table's last entry moves to the front.
    uint8_t table[256], out[4];
    const uint8_t same[4] = {255, 255, 255, 255};
    ASSERT_EQ(zyrsMTFInit_8u(table), StatusOk);
    ASSERT_EQ(zyrsMTFFwd_8u(same, out, 4, table), StatusOk);
    EXPECT_EQ(Bytes(out, out + 4), Bytes({255, 0, 0, 0}));
    EXPECT_EQ(table[0], 255);
    EXPECT_EQ(table[255], 254);
    int32_t size = 0;
    EXPECT_EQ(zyrsMTFGetSize_8u(&size), StatusOk);
    EXPECT_EQ(size, 256);
    EXPECT_EQ(zyrsMTFFwd_8u(same, out, 0, nullptr), StatusNullPointer);
    EXPECT_EQ(zyrsMTFInv_8u(same, out, 0, table), StatusBadSize);
}

// ---- zero-run coding ---------------------------------------------------------------------------

struct ZrunOut {
    ZyrStatus status;
    Symbols symbols;
    int32_t consumed;
};

ZrunOut ZrunEncode(const Bytes& src, int32_t cap, std::vector<uint32_t>* freq = nullptr) {
    std::vector<uint32_t> local(258, 0);
    std::vector<uint32_t>& f = freq != nullptr ? *freq : local;
    zyrdc::test::GuardedBuffer dst(static_cast<size_t>(cap) * 2);
    const uint8_t* p = src.data();
    auto left = static_cast<int32_t>(src.size());
    int32_t len = cap;
    const ZyrStatus st = zyrsEncodeZ1Z2_BZ2_8u16u(&p, &left, reinterpret_cast<uint16_t*>(dst.data()), &len, f.data());
    EXPECT_EQ(static_cast<int32_t>(p - src.data()), static_cast<int32_t>(src.size()) - left);
    const auto* d = reinterpret_cast<const uint16_t*>(dst.data());
    return {st, Symbols(d, d + len), static_cast<int32_t>(src.size()) - left};
}

// Decodes all symbols with destinations of `room` bytes, repeating after DstFull.
Bytes ZrunDecodeAll(const Symbols& symbols, int32_t room) {
    Bytes out;
    const uint16_t* p = symbols.data();
    auto left = static_cast<int32_t>(symbols.size());
    while (left > 0) {
        zyrdc::test::GuardedBuffer dst(static_cast<size_t>(room));
        int32_t len = room;
        const ZyrStatus st = zyrsDecodeZ1Z2_BZ2_16u8u(&p, &left, dst.data(), &len);
        out.insert(out.end(), dst.data(), dst.data() + len);
        if (st == StatusOk) break;
        EXPECT_EQ(st, StatusDstFull);
        if (len == 0) {
            ADD_FAILURE() << "no progress with room " << room;
            break;
        }
    }
    return out;
}

TEST(ZeroRun, RunCodesAndFrequencies) {
    struct Row {
        Bytes in;
        Symbols out;
    } rows[] = {
        {{0}, {0}},
        {{0, 0}, {1}},
        {{0, 0, 0}, {0, 0}},
        {{0, 0, 0, 0}, {1, 0}},
        {{3, 0, 0, 0, 0, 0, 255}, {4, 0, 1, 256}},
        {{1, 2, 0, 9}, {2, 3, 0, 10}},
    };
    for (const Row& r : rows) {
        EXPECT_EQ(ZrunEncode(r.in, 64).symbols, r.out);
        EXPECT_EQ(ZrunDecodeAll(r.out, 64), r.in);
    }
    // An all-zero source: one run code, its symbols counted.
    std::vector<uint32_t> freq(258, 0);
    const ZrunOut z = ZrunEncode(Bytes(1000, 0), 64, &freq);
    ASSERT_EQ(z.status, StatusOk);
    EXPECT_EQ(ZrunDecodeAll(z.symbols, 2000), Bytes(1000, 0));
    EXPECT_EQ(freq[0] + freq[1], z.symbols.size());
    EXPECT_EQ(z.symbols.size(), 9u);  // 2^9 - 1 <= 1000 <= 2^10 - 2
}

// Small destinations on both sides: the encoder never passes its capacity and leaves the
// zeros it could not code in the source; the decoder, repeated after DstFull, loses nothing.
TEST(ZeroRun, SmallDestinationsLoseNothing) {
    std::mt19937 rng(5);
    for (uint32_t seed = 0; seed < 200; ++seed) {
        Bytes idx(1 + rng() % 400);
        for (auto& v : idx) v = rng() % 3 ? 0 : static_cast<uint8_t>(rng());
        if (seed % 4 == 0) std::fill(idx.begin(), idx.end() - 1, 0);  // one long run
        const auto cap = static_cast<int32_t>(1 + rng() % 30);
        Bytes rest = idx;
        while (!rest.empty()) {
            const ZrunOut z = ZrunEncode(rest, cap);
            ASSERT_LE(static_cast<int32_t>(z.symbols.size()), cap);
            ASSERT_EQ(z.status, z.consumed < static_cast<int32_t>(rest.size()) ? StatusDstFull : StatusOk);
            ASSERT_GT(z.consumed, 0) << "no progress";
            // Every call ends with a flushed run, so its output decodes on its own to exactly
            // the indexes it consumed.
            ASSERT_EQ(ZrunDecodeAll(z.symbols, 1000), Bytes(rest.begin(), rest.begin() + z.consumed));
            rest.erase(rest.begin(), rest.begin() + z.consumed);
        }
        // Decoding: a destination exactly as long as the output takes one call; smaller ones,
        // repeated after DstFull, lose no zero (a run and the symbol after it must fit a call).
        const Symbols whole = ZrunEncode(idx, 1000).symbols;
        Bytes exact(idx.size());
        const uint16_t* p = whole.data();
        int32_t left = static_cast<int32_t>(whole.size()), len = static_cast<int32_t>(idx.size());
        ASSERT_EQ(zyrsDecodeZ1Z2_BZ2_16u8u(&p, &left, exact.data(), &len), StatusOk);
        ASSERT_EQ(exact, idx);
        size_t longest = 0;
        for (size_t i = 0, run = 0; i < idx.size(); ++i) longest = std::max(longest, run = idx[i] ? 0 : run + 1);
        ASSERT_EQ(ZrunDecodeAll(whole, static_cast<int32_t>(longest + 1 + rng() % 40)), idx) << seed;
    }
}

// ---- both builds, one output ---------------------------------------------------------------------

uint32_t Crc(const void* p, size_t n) {
    uint32_t crc = 0;
    EXPECT_EQ(zyrsCRC32_8u(static_cast<const uint8_t*>(p), static_cast<int32_t>(n), &crc), StatusOk);
    return crc;
}

// The stage outputs over fixed inputs, hashed; the constants were recorded once and both the
// i686 and the x86-64 build must reproduce them.
TEST(Bzip2Stages, SameEncoderBytesInBothBuilds) {
    const Bytes data = RunnyData(200000, 77);
    const Bytes rle = RleEncode(data, {data.size()}, 1 << 20);
    Bytes last(rle.size());
    int32_t size = 0, index = 0;
    ASSERT_EQ(zyrsBWTFwdGetSize_8u(static_cast<int32_t>(rle.size()), &size), StatusOk);
    std::vector<uint8_t> buffer(static_cast<size_t>(size));
    ASSERT_EQ(zyrsBWTFwd_8u(rle.data(), last.data(), static_cast<int32_t>(rle.size()), &index, buffer.data()), StatusOk);
    Bytes mtf(last.size());
    uint8_t table[256];
    zyrsMTFInit_8u(table);
    ASSERT_EQ(zyrsMTFFwd_8u(last.data(), mtf.data(), static_cast<int32_t>(mtf.size()), table), StatusOk);
    std::vector<uint32_t> freq(258, 0);
    const Symbols z = ZrunEncode(mtf, static_cast<int32_t>(mtf.size()) + 64, &freq).symbols;
    EXPECT_EQ(Crc(rle.data(), rle.size()), 0x740B36BEu);
    EXPECT_EQ(index, 61107);
    EXPECT_EQ(Crc(last.data(), last.size()), 0x02661BC9u);
    EXPECT_EQ(Crc(z.data(), 2 * z.size()), 0x3E570241u);
    EXPECT_EQ(Crc(freq.data(), 4 * freq.size()), 0xD517812Du);
}

// The block CRC in a one-block file of the standard bzip2 program (4-byte stream header,
// 6-byte block magic, then the CRC, big-endian) equals the library's bzip2 CRC of the data.
TEST(Bzip2Stages, BlockCrcMatchesTheBzip2Program) {
    if (std::system("bzip2 --help >/dev/null 2>&1") != 0) GTEST_SKIP() << "no bzip2 program on PATH";
    char path[] = "/tmp/zyrdc_crcXXXXXX";
    const int fd = mkstemp(path);
    ASSERT_GE(fd, 0);
    close(fd);
    for (size_t n : {1u, 1000u, 300000u}) {
        const Bytes data = RunnyData(n, static_cast<uint32_t>(n));
        FILE* f = std::fopen(path, "wb");
        std::fwrite(data.data(), 1, data.size(), f);
        std::fclose(f);
        FILE* pipe = popen(("bzip2 -9 -c " + std::string(path)).c_str(), "r");
        ASSERT_NE(pipe, nullptr);
        uint8_t head[14] = {};
        ASSERT_EQ(std::fread(head, 1, 14, pipe), 14u);
        pclose(pipe);
        ASSERT_EQ(0, std::memcmp(head, "BZh9\x31\x41\x59\x26\x53\x59", 10));
        const uint32_t want = static_cast<uint32_t>(head[10]) << 24 | head[11] << 16 | head[12] << 8 | head[13];
        uint32_t crc = 0;
        ASSERT_EQ(zyrsCRC32_BZ2_8u(data.data(), static_cast<int32_t>(n), &crc), StatusOk);
        EXPECT_EQ(crc, want) << n;
    }
    std::remove(path);
}

}  // namespace
