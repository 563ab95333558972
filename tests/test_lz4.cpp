// LZ4 blocks: the decoders' end rules per core on annotated blocks, the check orders (the
// encoders clear their table first), round trips with liblz4 in both directions at exact
// buffer sizes against guard pages, fast and careful decoding paths on valid and damaged
// blocks, the bounded encoder at every capacity, and encoder output pinned for both builds.
#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "lz4/lz4.hpp"
#include "support.hpp"
#include "zyrdc.h"

#if defined(ZYRDC_HAVE_LIBLZ4)
#include <lz4.h>
#include <lz4hc.h>
#endif

namespace {

using zyrdc::lz4::Core;
using zyrdc::test::GuardedBuffer;
using Bytes = std::vector<uint8_t>;

Bytes B(std::initializer_list<int> v) { return Bytes(v.begin(), v.end()); }

// ---- test data ------------------------------------------------------------------------------

enum class Kind { Random, Zeros, Text, Periodic, Sparse, FarRepeat, Mixed };
constexpr Kind kKinds[] = {Kind::Random, Kind::Zeros,     Kind::Text, Kind::Periodic,
                           Kind::Sparse, Kind::FarRepeat, Kind::Mixed};

Bytes MakeData(Kind kind, size_t n, uint32_t seed) {
    std::mt19937 rng(seed);
    static const char* const kWords[] = {"the ", "block ", "match ", "of ", "literal ", "and ",
                                         "offset ", "stream\n", "a ", "decoder "};
    Bytes v;
    while (v.size() < n) {
        switch (kind) {
            case Kind::Random: v.push_back(static_cast<uint8_t>(rng())); break;
            case Kind::Zeros: v.push_back(0); break;
            case Kind::Text: for (const char* w = kWords[rng() % 10]; *w; ++w) v.push_back(*w); break;
            case Kind::Periodic: {  // runs of a short pattern: overlapping matches of offset 1..15
                const size_t period = 1 + rng() % 15, len = rng() % 300;
                for (size_t i = 0; i < len; ++i) v.push_back(static_cast<uint8_t>('a' + i % period));
                break;
            }
            case Kind::Sparse: v.push_back(rng() % 16 == 0 ? static_cast<uint8_t>(rng()) : 0); break;
            case Kind::FarRepeat: {  // the same 2000 bytes at distances around the largest offset
                const Bytes chunk = zyrdc::test::RandomBytes(2000, seed);
                v.insert(v.end(), chunk.begin(), chunk.end());
                const size_t gap = 65535 - 2000 + rng() % 4;
                for (size_t i = 0; i < gap; ++i) v.push_back(static_cast<uint8_t>(rng()));
                break;
            }
            case Kind::Mixed: {  // pieces of the first five kinds
                const Bytes part = MakeData(static_cast<Kind>(rng() % 5), 1 + rng() % 3000, rng());
                v.insert(v.end(), part.begin(), part.end());
                break;
            }
        }
    }
    v.resize(n);
    return v;
}

// ---- decoding through the exported functions, one core per row --------------------------

// Every row decodes into a buffer whose first 8 bytes hold "ABCDEFGH", writing from index 8.
// Plain: no dictionary (those 8 bytes are no history); Prefix: the dictionary is those 8 bytes
// in place; Separate: the dictionary "abcdefgh" lies elsewhere and stands in for them.
struct Decoded {
    ZyrStatus status;
    int32_t consumed, written;
    std::string out;  // the bytes written, or the whole buffer after index 8 on an error
};

Decoded DecodeWithCore(Core core, const Bytes& block, int32_t capacity) {
    static const uint8_t kDict[8] = {'a', 'b', 'c', 'd', 'e', 'f', 'g', 'h'};
    std::string buf = "ABCDEFGH" + std::string(static_cast<size_t>(capacity), '.');
    auto* dst = reinterpret_cast<uint8_t*>(buf.data());
    int32_t consumed = static_cast<int32_t>(block.size()), written = capacity;
    const uint8_t* dict = core == Core::Plain ? nullptr : core == Core::Prefix ? dst : kDict;
    const ZyrStatus s = zyrsDecodeLZ4Dict_8u(block.data(), &consumed, dst, 8, &written, dict, 8);
    const bool counted = s == StatusOk || s == StatusSrcExhausted || s == StatusDstFull;
    return {s, consumed, written, buf.substr(8, counted ? static_cast<size_t>(written) : std::string::npos)};
}

constexpr int32_t kKeep = -7;  // "count not written back"

struct EdgeRow {
    const char* what;
    Bytes block;
    int32_t capacity;
    Decoded plain, prefix, separate;
};

// A block whose last sequence is a match: 'a', then offset 1 with a length of
// 15 + 5 x 255 + 5 + 4 = 1299 (the literal must be followed by 8 more source bytes).
const Bytes kEndsInMatch = B({0x1F, 'a', 0x01, 0x00, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0x05});
// 4 literals, a match of offset 0 and length 4, 5 final literals.
const Bytes kOffsetZero = B({0x40, 'w', 'x', 'y', 'z', 0x00, 0x00, 0x50, '1', '2', '3', '4', '5'});
// "XYZ", then offset 5 and length 6: two bytes of history before the write start, then the
// three literals and the first byte of the match itself; then 5 literals.
const Bytes kIntoHistory = B({0x32, 'X', 'Y', 'Z', 0x05, 0x00, 0x50, '1', '2', '3', '4', '5'});

const EdgeRow kEdgeRows[] = {
    {"one-byte source", B({0x00}), 16,
     {StatusSrcExhausted, 0, 0, ""}, {StatusSrcExhausted, 0, 0, ""}, {StatusSrcExhausted, 0, 0, ""}},
    {"ends in a match", kEndsInMatch, 1300,
     {StatusOk, 10, 1300, std::string(1300, 'a')}, {StatusOk, 10, 1300, std::string(1300, 'a')},
     {StatusOk, 10, 1300, std::string(1300, 'a')}},
    {"final lone 0x00 token left unconsumed", [] { Bytes b = kEndsInMatch; b.push_back(0); return b; }(), 1300,
     {StatusOk, 10, 1300, std::string(1300, 'a')}, {StatusOk, 10, 1300, std::string(1300, 'a')},
     {StatusOk, 10, 1300, std::string(1300, 'a')}},
    {"match one byte short of the destination", kEndsInMatch, 1299,
     {StatusDstFull, 10, 1299, std::string(1299, 'a')}, {StatusDstFull, 10, 1299, std::string(1299, 'a')},
     {StatusDstFull, 10, 1, "a"}},
    {"offset 0 keeps the destination bytes", kOffsetZero, 21,
     {StatusOk, 13, 13, "wxyz....12345"}, {StatusOk, 13, 13, "wxyz....12345"},
     {StatusOk, 13, 13, "wxyz....12345"}},
    {"offset 1 repeats the last byte 20 times", B({0x1F, 'q', 0x01, 0x00, 0x01, 0x50, '1', '2', '3', '4', '5'}), 34,
     {StatusOk, 11, 26, std::string(21, 'q') + "12345"}, {StatusOk, 11, 26, std::string(21, 'q') + "12345"},
     {StatusOk, 11, 26, std::string(21, 'q') + "12345"}},
    {"history: refused, in place, separate tail then destination", kIntoHistory, 22,
     {StatusError, kKeep, kKeep, "XYZ..................."}, {StatusOk, 12, 14, "XYZGHXYZG12345"},
     {StatusOk, 12, 14, "XYZghXYZg12345"}},
    {"reach: all 8 bytes of history", B({0x00, 8, 0x00, 0x50, '1', '2', '3', '4', '5'}), 17,
     {StatusError, kKeep, kKeep, ""}, {StatusOk, 9, 9, "ABCD12345"}, {StatusOk, 9, 9, "abcd12345"}},
    {"reach: one byte before the history", B({0x00, 9, 0x00, 0x50, '1', '2', '3', '4', '5'}), 17,
     {StatusError, kKeep, kKeep, ""}, {StatusError, kKeep, kKeep, ""}, {StatusError, kKeep, kKeep, ""}},
    {"literal run past the destination end", B({0x50, '1', '2', '3', '4', '5'}), 3,
     {StatusDstFull, 4, 3, "123"}, {StatusDstFull, 4, 3, "123"}, {StatusDstFull, 1, 0, ""}},
    {"literals ending within the last 8 destination bytes", B({0x50, '1', '2', '3', '4', '5'}), 10,
     {StatusOk, 6, 5, "12345"}, {StatusDstFull, 6, 5, "12345"}, {StatusOk, 6, 5, "12345"}},
    {"literals ending past the destination end - 12", kOffsetZero, 15,
     {StatusOk, 13, 13, "wxyz....12345"}, {StatusDstFull, 13, 13, "wxyz....12345"},
     {StatusSrcExhausted, 5, 4, "wxyz"}},
    {"destination exactly full after literals", kOffsetZero, 4,
     {StatusOk, 5, 4, "wxyz"}, {StatusOk, 5, 4, "wxyz"}, {StatusSrcExhausted, 5, 4, "wxyz"}},
    {"literals ending within the last 8 source bytes", B({0x40, 'w', 'x', 'y', 'z', 0x00}), 16,
     {StatusSrcExhausted, 5, 4, "wxyz"}, {StatusSrcExhausted, 5, 4, "wxyz"}, {StatusSrcExhausted, 5, 4, "wxyz"}},
    {"literal run past the source end", B({0x90, 'a', 'b'}), 32,
     {StatusSrcExhausted, 3, 2, "ab"}, {StatusSrcExhausted, 3, 2, "ab"}, {StatusSrcExhausted, 3, 2, "ab"}},
    {"match run past the source end", B({0x1F, 'a', 0x01, 0x00, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}), 1600,
     {StatusSrcExhausted, 10, 1, "a"}, {StatusSrcExhausted, 10, 1, "a"}, {StatusSrcExhausted, 10, 1, "a"}},
};

TEST(Lz4Decode, EndRulesOfEachCore) {
    for (const EdgeRow& row : kEdgeRows) {
        SCOPED_TRACE(row.what);
        const std::pair<Core, const Decoded*> cores[] = {
            {Core::Plain, &row.plain}, {Core::Prefix, &row.prefix}, {Core::Separate, &row.separate}};
        for (const auto& [core, want] : cores) {
            const Decoded got = DecodeWithCore(core, row.block, row.capacity);
            const bool counted = want->consumed != kKeep;
            EXPECT_EQ(got.status, want->status) << static_cast<int>(core);
            EXPECT_EQ(got.consumed, counted ? want->consumed : static_cast<int32_t>(row.block.size()));
            EXPECT_EQ(got.written, counted ? want->written : row.capacity);
            EXPECT_EQ(got.out.substr(0, want->out.size()), want->out) << static_cast<int>(core);
        }
    }
}

TEST(Lz4Decode, LengthOverflowInEachCore) {
    // A literal run of 15 + 255 x 8421505 passes 2^31 - 1: a size error, whatever the core.
    Bytes huge(8421507, 0xFF);
    huge[0] = 0xF0;
    for (Core core : {Core::Plain, Core::Prefix, Core::Separate}) {
        EXPECT_EQ(DecodeWithCore(core, huge, 64).status, StatusBadSize);
    }
}

TEST(Lz4Decode, CheckOrder) {
    uint8_t src[4] = {0x30, 'a', 'b', 'c'}, dst[8] = {}, dict[4] = {};
    int32_t len = 4, cap = 8, zero = 0;
    struct Row {
        ZyrStatus status;
        ZyrStatus got;
    } rows[] = {
        {StatusNullPointer, zyrsDecodeLZ4_8u(nullptr, 0, dst, &cap)},
        {StatusNullPointer, zyrsDecodeLZ4_8u(src, 4, nullptr, &cap)},
        {StatusNullPointer, zyrsDecodeLZ4_8u(src, 4, dst, nullptr)},
        {StatusBadSize, zyrsDecodeLZ4_8u(src, 0, dst, &cap)},
        {StatusBadSize, zyrsDecodeLZ4_8u(src, 4, dst, &zero)},
        {StatusNullPointer, zyrsDecodeLZ4Dict_8u(src, nullptr, dst, 0, &cap, nullptr, 0)},
        {StatusNullPointer, zyrsDecodeLZ4Dict_8u(nullptr, &len, dst, 0, &cap, dict, 4)},
        {StatusBadSize, zyrsDecodeLZ4Dict_8u(src, &zero, dst, 0, &cap, dict, 4)},
        {StatusBadSize, zyrsDecodeLZ4Dict_8u(src, &len, dst, 4, &cap, dict, -1)},  // separate
        {StatusOk, zyrsDecodeLZ4Dict_8u(src, &len, dst, 0, &cap, dict, 0)},  // plain
    };
    for (size_t i = 0; i < std::size(rows); ++i) EXPECT_EQ(rows[i].got, rows[i].status) << "row " << i;
    EXPECT_EQ(len, 4);  // the last call consumed all four bytes
}

// ---- encoding: check orders and the table ---------------------------------------------------

// Bytes of a 16384-byte table that the call changed (the table starts as 0xAA).
template <class Call>
size_t ClearedBy(Call call, ZyrStatus want) {
    Bytes table(16384, 0xAA);
    EXPECT_EQ(call(table.data()), want);
    return static_cast<size_t>(16384 - std::count(table.begin(), table.end(), 0xAA));
}

TEST(Lz4Encode, CheckOrderAndTableClearing) {
    uint8_t src[32] = {}, dst[64];
    int32_t len = 0, cap = 64, zero = 0, big = 65536, n32 = 32, size = 0;
    EXPECT_TRUE(zyrsEncodeLZ4HashTableGetSize_8u(&size) == StatusOk && size == 16384);
    EXPECT_EQ(zyrsEncodeLZ4HashTableGetSize_8u(nullptr), StatusNullPointer);
    EXPECT_EQ(zyrsEncodeLZ4_8u(src, 32, dst, &len, nullptr), StatusNullPointer);
    EXPECT_EQ(zyrsEncodeLZ4HashTableInit_8u(nullptr, 5), StatusNullPointer);
    struct Row {
        const char* what;
        size_t cleared;
        size_t want;
    } rows[] = {
        {"init, short source", ClearedBy([&](uint8_t* t) { return zyrsEncodeLZ4HashTableInit_8u(t, 65535); }, StatusOk), 8192},
        {"init, long source", ClearedBy([&](uint8_t* t) { return zyrsEncodeLZ4HashTableInit_8u(t, 65536); }, StatusOk), 16384},
        {"init, no source", ClearedBy([&](uint8_t* t) { return zyrsEncodeLZ4HashTableInit_8u(t, 0); }, StatusBadSize), 0},
        {"clear before the null check", ClearedBy([&](uint8_t* t) { return zyrsEncodeLZ4_8u(nullptr, 65536, dst, &len, t); }, StatusNullPointer), 16384},
        {"clear before the size check", ClearedBy([&](uint8_t* t) { return zyrsEncodeLZ4_8u(src, -5, dst, &len, t); }, StatusBadSize), 8192},
        {"safe: null length first", ClearedBy([&](uint8_t* t) { return zyrsEncodeLZ4Safe_8u(src, nullptr, dst, &cap, t); }, StatusNullPointer), 0},
        {"safe: clear by the length", ClearedBy([&](uint8_t* t) { return zyrsEncodeLZ4Safe_8u(nullptr, &big, dst, &cap, t); }, StatusNullPointer), 16384},
        {"safe: no capacity", ClearedBy([&](uint8_t* t) { return zyrsEncodeLZ4Safe_8u(src, &n32, dst, &zero, t); }, StatusBadSize), 8192},
        {"fast 1 is the greedy encoder", ClearedBy([&](uint8_t* t) { return zyrsEncodeLZ4Fast_8u(nullptr, 8, dst, &len, t, 1); }, StatusNullPointer), 8192},
        {"fast: acceleration before clearing", ClearedBy([&](uint8_t* t) { return zyrsEncodeLZ4Fast_8u(src, 32, dst, &len, t, 0); }, StatusBadAcceleration), 0},
        {"fast: size before acceleration", ClearedBy([&](uint8_t* t) { return zyrsEncodeLZ4Fast_8u(src, 0, dst, &len, t, -3); }, StatusBadSize), 0},
        {"fast: 13-bit table", ClearedBy([&](uint8_t* t) { return zyrsEncodeLZ4Fast_8u(src, 32, dst, &len, t, 2); }, StatusOk), 16384},
    };
    for (const Row& r : rows) EXPECT_EQ(r.cleared, r.want) << r.what;
}

// ---- round trips -----------------------------------------------------------------------------

// Encodes with each of our encoders into a destination of exactly the worst-case size that
// ends at a guard page, from a source that ends at one.
std::vector<std::pair<std::string, Bytes>> OurBlocks(const Bytes& in) {
    std::vector<std::pair<std::string, Bytes>> blocks;
    if (in.empty()) return blocks;
    const auto n = static_cast<int32_t>(in.size());
    const auto worst = static_cast<int32_t>(zyrdc::lz4::WorstCaseBlockSize(n));
    GuardedBuffer src(in.size());
    src.fill(in);
    Bytes table(16384);
    // -1: zyrsEncodeLZ4_8u; 0: the bounded encoder with room for everything; then
    // zyrsEncodeLZ4Fast_8u. The first three must agree byte for byte.
    for (int accel : {-1, 0, 1, 2, 7, 300}) {
        GuardedBuffer dst(static_cast<size_t>(worst));
        int32_t len = worst, consumed = n;
        const ZyrStatus s = accel < 0 ? zyrsEncodeLZ4_8u(src.data(), n, dst.data(), &len, table.data())
                            : accel == 0 ? zyrsEncodeLZ4Safe_8u(src.data(), &consumed, dst.data(), &len, table.data())
                                         : zyrsEncodeLZ4Fast_8u(src.data(), n, dst.data(), &len, table.data(), accel);
        EXPECT_EQ(s, StatusOk);
        EXPECT_EQ(consumed, n);
        Bytes block(dst.data(), dst.data() + len);
        if (accel == 0 || accel == 1) {
            EXPECT_EQ(block, blocks[0].second) << "acceleration " << accel << " differs from the greedy encoder";
        } else {
            blocks.emplace_back(accel < 0 ? "greedy" : "fast " + std::to_string(accel), std::move(block));
        }
    }
    return blocks;
}

// Decodes a plain block from a source and into a destination of exact sizes that end at guard
// pages, on both paths (the fast one through the exported function).
void ExpectDecodesTo(const Bytes& block, const Bytes& want, const std::string& what) {
    GuardedBuffer src(block.size());
    src.fill(block);
    const auto cap = static_cast<int32_t>(want.size());
    for (bool fast : {true, false}) {
        GuardedBuffer dst(std::max<size_t>(want.size(), 1));
        int32_t written = std::max(cap, 1);
        ZyrStatus s;
        if (fast) {
            s = zyrsDecodeLZ4_8u(src.data(), static_cast<int32_t>(block.size()), dst.data(), &written);
        } else {
            const auto r = zyrdc::lz4::Decode(Core::Plain, {src.data(), static_cast<int32_t>(block.size()), dst.data(), written, 0, nullptr, 0}, false);
            s = r.status;
            written = r.written;
        }
        // The empty block is the lone token, which a one-byte source reports as cut short.
        ASSERT_EQ(s, want.empty() ? StatusSrcExhausted : StatusOk) << what << (fast ? " fast" : " careful");
        ASSERT_EQ(written, cap) << what;
        ASSERT_TRUE(std::equal(want.begin(), want.end(), dst.data())) << what;
    }
}

std::vector<size_t> RoundTripSizes() {
    std::vector<size_t> sizes;
    for (size_t n = 0; n <= 300; ++n) sizes.push_back(n);
    for (size_t n = 301; n <= 70000; n += 4999) sizes.push_back(n);
    for (size_t n : {65535u, 65536u, 65537u, 3u << 20}) sizes.push_back(n);
    return sizes;
}

TEST(Lz4, RoundTripsWithLiblz4BothWays) {
#if defined(ZYRDC_HAVE_LIBLZ4)
    for (Kind kind : kKinds) {
        for (size_t n : RoundTripSizes()) {
            if (n > 70000 && kind == Kind::Sparse) continue;  // keeps the run short; sparse is like zeros
            const Bytes in = MakeData(kind, n, static_cast<uint32_t>(n) * 7 + static_cast<uint32_t>(kind));
            const std::string what = "kind " + std::to_string(static_cast<int>(kind)) + " n=" + std::to_string(n);
            for (const auto& [name, block] : OurBlocks(in)) {
                Bytes out(n + 1);
                ASSERT_EQ(LZ4_decompress_safe(reinterpret_cast<const char*>(block.data()), reinterpret_cast<char*>(out.data()),
                                              static_cast<int>(block.size()), static_cast<int>(n)),
                          static_cast<int>(n)) << what << " " << name;
                ASSERT_EQ(std::memcmp(out.data(), in.data(), n), 0) << what << " " << name;
                ExpectDecodesTo(block, in, what + " " + name);
            }
            Bytes z(static_cast<size_t>(LZ4_compressBound(static_cast<int>(n))));
            const auto* s = reinterpret_cast<const char*>(in.data());
            auto* d = reinterpret_cast<char*>(z.data());
            const int cap = static_cast<int>(z.size()), len = static_cast<int>(n);
            for (int which = 0; which < 3; ++which) {
                const int zl = which == 0   ? LZ4_compress_default(s, d, len, cap)
                               : which == 1 ? LZ4_compress_fast(s, d, len, cap, 3)
                                            : LZ4_compress_HC(s, d, len, cap, 9);
                ASSERT_GT(zl, 0);
                ExpectDecodesTo(Bytes(z.begin(), z.begin() + zl), in, what + " liblz4 #" + std::to_string(which));
            }
        }
    }
#else
    GTEST_SKIP() << "liblz4 is not installed for this build";
#endif
}

// Blocks that liblz4's streaming encoder wrote against history: a prefix in place, and an
// external dictionary, decoded by the prefix and separate-dictionary cores.
TEST(Lz4, DictionaryBlocksFromLiblz4) {
#if defined(ZYRDC_HAVE_LIBLZ4)
    constexpr int kFirst = 40000, kSecond = 50000, kDict = 30000;
    for (Kind kind : {Kind::Text, Kind::Mixed, Kind::Periodic}) {
        const Bytes data = MakeData(kind, kFirst + kSecond, 5);
        const auto* d = reinterpret_cast<const char*>(data.data());
        auto compress = [&](LZ4_stream_t* stream, const char* from, int n) {
            Bytes block(static_cast<size_t>(LZ4_compressBound(n)));
            block.resize(static_cast<size_t>(LZ4_compress_fast_continue(
                stream, from, reinterpret_cast<char*>(block.data()), n, static_cast<int>(block.size()), 1)));
            return block;
        };
        // The second part coded against the first in place, then against its last 30000 bytes
        // loaded as a dictionary that the decoder gets somewhere else.
        LZ4_stream_t* stream = LZ4_createStream();
        compress(stream, d, kFirst);
        const Bytes prefixed = compress(stream, d + kFirst, kSecond);
        LZ4_resetStream_fast(stream);
        LZ4_loadDict(stream, d + kFirst - kDict, kDict);
        const Bytes separate = compress(stream, d + kFirst, kSecond);
        LZ4_freeStream(stream);
        auto decode = [&](const Bytes& block, uint8_t* dst, int32_t idx, const uint8_t* dict, int32_t size) {
            const auto len = static_cast<int32_t>(block.size());
            int32_t consumed = len, written = kSecond;
            const ZyrStatus s = zyrsDecodeLZ4Dict_8u(block.data(), &consumed, dst, idx, &written, dict, size);
            return s == StatusOk && (consumed != len || written != kSecond) ? StatusError : s;
        };
        Bytes out(data.begin(), data.begin() + kFirst);
        out.resize(data.size());
        EXPECT_EQ(decode(prefixed, out.data(), kFirst, out.data(), kFirst), StatusOk);
        EXPECT_EQ(out, data);
        const Bytes dict(data.begin() + kFirst - kDict, data.begin() + kFirst);
        Bytes sep(kDict + kSecond, 0xEE);
        EXPECT_EQ(decode(separate, sep.data(), kDict, dict.data(), kDict), StatusOk);
        EXPECT_TRUE(std::equal(sep.begin() + kDict, sep.end(), data.begin() + kFirst));
        // Without the dictionary the references into it are refused.
        EXPECT_EQ(decode(separate, sep.data(), kDict, nullptr, kDict), StatusError);
    }
#else
    GTEST_SKIP() << "liblz4 is not installed for this build";
#endif
}

// ---- fast and careful decoding paths --------------------------------------------------------

// Valid blocks, then the same blocks cut short, damaged and given too little room, through
// each core with a 300-byte history: both paths give the same status and counts, the same
// bytes for undamaged blocks (a damaged one may carry offset 0, which keeps whatever the wide
// copies left), and the careful path writes nothing past its count.
TEST(Lz4Decode, FastAndCarefulPathsAgree) {
    std::mt19937 rng(3);
    const Bytes history = MakeData(Kind::Text, 300, 1);
    for (Kind kind : kKinds) {
        const Bytes in = MakeData(kind, 5000, 9);
        for (auto [name, block] : OurBlocks(in)) {
            for (int trial = 0; trial < 40; ++trial) {
                const bool damaged = trial >= 20;
                if (trial >= 20) block[rng() % block.size()] = static_cast<uint8_t>(rng());
                const size_t used = trial >= 10 && trial < 20 ? 1 + rng() % block.size() : block.size();
                const auto cap = static_cast<int32_t>(trial % 3 == 0 ? in.size() + 100 : 1 + rng() % (in.size() + 100));
                for (Core core : {Core::Plain, Core::Prefix, Core::Separate}) {
                    Bytes out[2];
                    zyrdc::lz4::DecodeResult r[2];
                    for (int fast = 0; fast < 2; ++fast) {
                        out[fast] = history;
                        out[fast].resize(history.size() + static_cast<size_t>(cap), 0xC5);
                        uint8_t* start = out[fast].data() + history.size();
                        r[fast] = zyrdc::lz4::Decode(core, {block.data(), static_cast<int32_t>(used), start, cap, 300,
                                                            core == Core::Separate ? history.data() : nullptr, 300}, fast == 1);
                    }
                    ASSERT_EQ(r[0].status, r[1].status) << name << " trial " << trial;
                    if (r[0].status < 0) continue;
                    ASSERT_EQ(r[0].consumed, r[1].consumed) << name << " trial " << trial;
                    ASSERT_EQ(r[0].written, r[1].written) << name << " trial " << trial;
                    const auto end = static_cast<ptrdiff_t>(history.size()) + r[0].written;
                    if (!damaged) {  // the fast path may have written past the count
                        ASSERT_TRUE(std::equal(out[0].begin(), out[0].begin() + end, out[1].begin())) << name << " " << trial;
                    }
                    ASSERT_EQ(std::count(out[0].begin() + end, out[0].end(), 0xC5), out[0].end() - (out[0].begin() + end));
                }
            }
        }
    }
}

// ---- the bounded encoder ----------------------------------------------------------------------

// Every capacity from 1 to the incompressible size, into a destination that ends at a guard
// page: DstFull exactly when a prefix was left out, and the block is that prefix.
TEST(Lz4Encode, BoundedAtEveryCapacity) {
    for (const auto& [kind, n] : {std::pair{Kind::Text, 700}, {Kind::Random, 300}, {Kind::Mixed, 1500},
                                  {Kind::Zeros, 2000}, {Kind::Periodic, 900}}) {
        const Bytes in = MakeData(kind, static_cast<size_t>(n), 4);
        Bytes table(16384);
        const auto worst = static_cast<int32_t>(zyrdc::lz4::WorstCaseBlockSize(n));
        for (int32_t cap = 1; cap <= worst; ++cap) {
            GuardedBuffer dst(static_cast<size_t>(cap));
            int32_t consumed = n, len = cap;
            const ZyrStatus s = zyrsEncodeLZ4Safe_8u(in.data(), &consumed, dst.data(), &len, table.data());
            ASSERT_EQ(s, consumed < n ? StatusDstFull : StatusOk) << cap;
            ASSERT_LE(len, cap);
            ExpectDecodesTo(Bytes(dst.data(), dst.data() + len), Bytes(in.begin(), in.begin() + consumed),
                            "capacity " + std::to_string(cap));
        }
    }
}

// 21 bytes leave no position to probe: one literal-only sequence (token, run byte, the bytes);
// at 22 position 1 is probed and finds the run.
TEST(Lz4Encode, ShortSourcesAreOneLiteralSequence) {
    const Bytes zeros(22, 0);
    Bytes table(16384), dst(64);
    int32_t len21 = 0, len22 = 0;
    ASSERT_EQ(zyrsEncodeLZ4_8u(zeros.data(), 21, dst.data(), &len21, table.data()), StatusOk);
    EXPECT_EQ(Bytes(dst.begin(), dst.begin() + 3), B({0xF0, 6, 0}));
    ASSERT_EQ(zyrsEncodeLZ4_8u(zeros.data(), 22, dst.data(), &len22, table.data()), StatusOk);
    EXPECT_TRUE(len21 == 23 && len22 < 12) << len21 << " " << len22;
}

// The encoders' output is part of their contract: both builds must produce these bytes. The
// CRC-32 of every block, per input and encoder, recorded once.
TEST(Lz4Encode, SameBytesInBothBuilds) {
    const std::pair<Kind, size_t> inputs[] = {{Kind::Text, 5000}, {Kind::Mixed, 70000}, {Kind::Periodic, 65535},
                                              {Kind::FarRepeat, 200000}, {Kind::Sparse, 100000}};
    const uint32_t want[][4] = {
        {0x08b416c9, 0x51dbdacd, 0xcbd62905, 0x46d7b72b}, {0x685ce678, 0xb1873ded, 0x8f4c1682, 0xcbb6be6f},
        {0x9d6c0ad8, 0x1305be2a, 0x2165f417, 0x4531ba7a}, {0xb8ac9cf2, 0x3870825b, 0x46ee4b7c, 0x6bda7123},
        {0xf773b88f, 0x540813cd, 0xf796d303, 0xb2a177f0},
    };
    for (size_t i = 0; i < std::size(inputs); ++i) {
        const auto blocks = OurBlocks(MakeData(inputs[i].first, inputs[i].second, 77));
        for (size_t j = 0; j < blocks.size(); ++j) {
            uint32_t crc = 0;
            ASSERT_EQ(zyrsCRC32_8u(blocks[j].second.data(), static_cast<int32_t>(blocks[j].second.size()), &crc), StatusOk);
            EXPECT_EQ(crc, want[i][j]) << "input " << i << " " << blocks[j].first << std::hex << " crc 0x" << crc;
        }
    }
}

}  // namespace
