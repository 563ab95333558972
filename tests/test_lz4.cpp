// LZ4 blocks: the decoders' end rules per core on annotated blocks, the check orders (the
// encoders clear their table first), round trips with liblz4 in both directions at exact
// buffer sizes against guard pages on the fast and careful decoding paths with encoder output
// pinned for both builds, and the bounded encoder at every capacity. The fuzz harnesses hold
// the two decoding paths against each other on damaged blocks.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "data.hpp"
#include "lz4/lz4.hpp"
#include "support.hpp"
#include "zyrdc.h"

#if defined(ZYRDC_HAVE_LIBLZ4)
#include <lz4.h>
#include <lz4hc.h>
#endif

namespace {

using zyrdc::lz4::Core;
using zyrdc::test::DataKind;
using zyrdc::test::GuardedBuffer;
using zyrdc::test::MakeData;
using Bytes = std::vector<uint8_t>;

Bytes B(std::initializer_list<int> v) { return Bytes(v.begin(), v.end()); }

// ---- decoding through the exported functions, one core per row --------------------------

// Every row decodes into a buffer whose first 8 bytes hold "ABCDEFGH", writing from index 8.
// Plain: no dictionary (those 8 bytes are no history); Prefix: the dictionary is those 8 bytes
// in place; Separate: the dictionary "abcdefgh" lies elsewhere and stands in for them.
constexpr int32_t kKeep = -7;  // "count not written back"
constexpr int32_t kSame = -8;  // this core decodes as the plain one does

struct Decoded {
    ZyrStatus status;
    int32_t consumed = kSame, written = 0;
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
const std::string kA1300(1300, 'a'), kA1299(1299, 'a');

const EdgeRow kEdgeRows[] = {
    {"one-byte source", B({0x00}), 16, {StatusSrcExhausted, 0, 0, ""}, {}, {}},
    {"ends in a match", kEndsInMatch, 1300, {StatusOk, 10, 1300, kA1300}, {}, {}},
    {"final lone 0x00 token left unconsumed", [] { auto b = kEndsInMatch; b.push_back(0); return b; }(),
     1300, {StatusOk, 10, 1300, kA1300}, {}, {}},
    {"match one byte short of the destination", kEndsInMatch, 1299,
     {StatusDstFull, 10, 1299, kA1299}, {}, {StatusDstFull, 10, 1, "a"}},
    {"offset 0 keeps the destination bytes", kOffsetZero, 21, {StatusOk, 13, 13, "wxyz....12345"}, {}, {}},
    {"offset 1 repeats the last byte 20 times", B({0x1F, 'q', 1, 0, 1, 0x50, '1', '2', '3', '4', '5'}), 34,
 {StatusOk, 11, 26, std::string(21, 'q') + "12345"}, {}, {}},
    {"history: refused, in place, separate tail then destination", kIntoHistory, 22,
     {StatusError, kKeep, kKeep, "XYZ..................."}, {StatusOk, 12, 14, "XYZGHXYZG12345"},
     {StatusOk, 12, 14, "XYZghXYZg12345"}},
    {"reach: all 8 bytes of history", B({0x00, 8, 0x00, 0x50, '1', '2', '3', '4', '5'}), 17,
     {StatusError, kKeep, kKeep, ""}, {StatusOk, 9, 9, "ABCD12345"}, {StatusOk, 9, 9, "abcd12345"}},
    {"reach: one byte before the history", B({0x00, 9, 0x00, 0x50, '1', '2', '3', '4', '5'}), 17,
     {StatusError, kKeep, kKeep, ""}, {}, {}},
    {"literal run past the destination end", B({0x50, '1', '2', '3', '4', '5'}), 3,
     {StatusDstFull, 4, 3, "123"}, {}, {StatusDstFull, 1, 0, ""}},
    {"literals ending within the last 8 destination bytes", B({0x50, '1', '2', '3', '4', '5'}), 10,
     {StatusOk, 6, 5, "12345"}, {StatusDstFull, 6, 5, "12345"}, {}},
    {"literals ending past the destination end - 12", kOffsetZero, 15,
     {StatusOk, 13, 13, "wxyz....12345"}, {StatusDstFull, 13, 13, "wxyz....12345"},
     {StatusSrcExhausted, 5, 4, "wxyz"}},
    {"destination exactly full after literals", kOffsetZero, 4,
     {StatusOk, 5, 4, "wxyz"}, {}, {StatusSrcExhausted, 5, 4, "wxyz"}},
    {"literals ending within the last 8 source bytes", B({0x40, 'w', 'x', 'y', 'z', 0x00}), 16,
     {StatusSrcExhausted, 5, 4, "wxyz"}, {}, {}},
    {"literal run past the source end", B({0x90, 'a', 'b'}), 32, {StatusSrcExhausted, 3, 2, "ab"}, {}, {}},
    {"match run past the source end", B({0x1F, 'a', 0x01, 0x00, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}), 1600,
     {StatusSrcExhausted, 10, 1, "a"}, {}, {}},
    // 15 + 255 x 8421505 literals pass 2^31 - 1.
    {"literal run length overflows", [] { Bytes b(8421507, 0xFF); b[0] = 0xF0; return b; }(), 64,
     {StatusBadSize, kKeep, kKeep, ""}, {}, {}},
};

TEST(Lz4Decode, EndRulesOfEachCore) {
    for (const EdgeRow& row : kEdgeRows) {
        SCOPED_TRACE(row.what);
        const Decoded* wants[] = {&row.plain, &row.prefix, &row.separate};
        for (Core core : {Core::Plain, Core::Prefix, Core::Separate}) {
            const Decoded* want = wants[static_cast<int>(core)];
            if (want->consumed == kSame) want = &row.plain;
            const Decoded got = DecodeWithCore(core, row.block, row.capacity);
            const bool counted = want->consumed != kKeep;
            EXPECT_EQ(got.status, want->status) << static_cast<int>(core);
            EXPECT_EQ(got.consumed, counted ? want->consumed : static_cast<int32_t>(row.block.size()));
            EXPECT_EQ(got.written, counted ? want->written : row.capacity);
            EXPECT_EQ(got.out.substr(0, want->out.size()), want->out) << static_cast<int>(core);
        }
    }
}

// ---- check orders -----------------------------------------------------------------------------

// Fresh arguments for every row: a block of three literals, 64 bytes of room, and a table
// filled with 0xAA, so that the row can count the table bytes the call cleared.
struct Args {
    uint8_t src[32] = {0x30, 'a', 'b', 'c'}, dst[64] = {}, dict[4] = {};
    int32_t len = 4, cap = 64, zero = 0, big = 65536, size = 0;
    Bytes table = Bytes(16384, 0xAA);
    uint8_t* t = table.data();
};
#define CALL(...) []([[maybe_unused]] Args& a) -> ZyrStatus { return __VA_ARGS__; }

auto* const Dec = zyrsDecodeLZ4_8u;
auto* const Dict = zyrsDecodeLZ4Dict_8u;
auto* const Init = zyrsEncodeLZ4HashTableInit_8u;
auto* const Enc = zyrsEncodeLZ4_8u;
auto* const Safe = zyrsEncodeLZ4Safe_8u;
auto* const Fast = zyrsEncodeLZ4Fast_8u;

// A refused call leaves the counts and the destination as they were.
const struct CheckRow {
    const char* what;
    ZyrStatus status;
    size_t cleared;  // table bytes the call changed
    ZyrStatus (*call)(Args&);
} kCheckRows[] = {
    {"decode: null source", StatusNullPointer, 0, CALL(Dec(nullptr, 4, a.dst, &a.cap))},
    {"decode: null destination", StatusNullPointer, 0, CALL(Dec(a.src, 4, nullptr, &a.cap))},
    {"decode: null capacity", StatusNullPointer, 0, CALL(Dec(a.src, 4, a.dst, nullptr))},
    {"decode: empty source", StatusBadSize, 0, CALL(Dec(a.src, 0, a.dst, &a.cap))},
    {"decode: no room", StatusBadSize, 0, CALL(Dec(a.src, 4, a.dst, &a.zero))},
    {"dict: null length", StatusNullPointer, 0, CALL(Dict(a.src, nullptr, a.dst, 0, &a.cap, nullptr, 0))},
    {"dict: null source", StatusNullPointer, 0, CALL(Dict(nullptr, &a.len, a.dst, 0, &a.cap, a.dict, 4))},
    {"dict: empty source", StatusBadSize, 0, CALL(Dict(a.src, &a.zero, a.dst, 0, &a.cap, a.dict, 4))},
    {"dict: negative size", StatusBadSize, 0, CALL(Dict(a.src, &a.len, a.dst, 4, &a.cap, a.dict, -1))},
    {"dict: size 0 is no dictionary", StatusOk, 0, CALL(Dict(a.src, &a.len, a.dst, 0, &a.cap, a.dict, 0))},
    {"table size", StatusOk, 0, CALL(zyrsEncodeLZ4HashTableGetSize_8u(&a.size))},
    {"table size: null", StatusNullPointer, 0, CALL(zyrsEncodeLZ4HashTableGetSize_8u(nullptr))},
    {"init: null table", StatusNullPointer, 0, CALL(Init(nullptr, 5))},
    {"init: short source", StatusOk, 8192, CALL(Init(a.t, 65535))},
    {"init: long source", StatusOk, 16384, CALL(Init(a.t, 65536))},
    {"init: no source", StatusBadSize, 0, CALL(Init(a.t, 0))},
    {"encode: null table", StatusNullPointer, 0, CALL(Enc(a.src, 32, a.dst, &a.cap, nullptr))},
    {"encode: clear, then null", StatusNullPointer, 16384, CALL(Enc(nullptr, 65536, a.dst, &a.cap, a.t))},
    {"encode: clear, then size", StatusBadSize, 8192, CALL(Enc(a.src, -5, a.dst, &a.cap, a.t))},
    {"safe: null length first", StatusNullPointer, 0, CALL(Safe(a.src, nullptr, a.dst, &a.cap, a.t))},
    {"safe: clear by the length", StatusNullPointer, 16384, CALL(Safe(nullptr, &a.big, a.dst, &a.cap, a.t))},
    {"safe: no capacity", StatusBadSize, 8192, CALL(Safe(a.src, &a.len, a.dst, &a.zero, a.t))},
    {"fast 1 is the greedy encoder", StatusNullPointer, 8192, CALL(Fast(nullptr, 8, a.dst, &a.cap, a.t, 1))},
    {"fast: null table", StatusNullPointer, 0, CALL(Fast(a.src, 32, a.dst, &a.cap, nullptr, 2))},
    {"fast: acceleration, no clear", StatusBadAcceleration, 0, CALL(Fast(a.src, 32, a.dst, &a.cap, a.t, 0))},
    {"fast: size before acceleration", StatusBadSize, 0, CALL(Fast(a.src, 0, a.dst, &a.cap, a.t, -3))},
    {"fast: 13-bit table", StatusOk, 16384, CALL(Fast(a.src, 32, a.dst, &a.cap, a.t, 2))},
};
#undef CALL

TEST(Lz4, CheckOrders) {
    for (const CheckRow& row : kCheckRows) {
        Args a;
        EXPECT_EQ(row.call(a), row.status) << row.what;
        EXPECT_TRUE(a.size == 0 || a.size == 16384);
        EXPECT_EQ(16384 - std::count(a.table.begin(), a.table.end(), 0xAA), row.cleared) << row.what;
        if (row.status < 0) {
            EXPECT_TRUE(a.len == 4 && a.cap == 64 && std::count(a.dst, a.dst + 64, 0) == 64) << row.what;
        }
    }
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
        const ZyrStatus s = accel < 0    ? Enc(src.data(), n, dst.data(), &len, table.data())
                            : accel == 0 ? Safe(src.data(), &consumed, dst.data(), &len, table.data())
                                         : Fast(src.data(), n, dst.data(), &len, table.data(), accel);
        EXPECT_TRUE(s == StatusOk && consumed == n);
        Bytes block(dst.data(), dst.data() + len);
        if (accel == 0 || accel == 1) {
            EXPECT_EQ(block, blocks[0].second) << "acceleration " << accel << " differs from greedy";
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
    const auto len = static_cast<int32_t>(block.size()), cap = static_cast<int32_t>(want.size());
    for (bool fast : {true, false}) {
        GuardedBuffer dst(std::max<size_t>(want.size(), 1));
        const zyrdc::lz4::DecodeArgs args{src.data(), len, dst.data(), std::max(cap, 1), 0, nullptr, 0};
        zyrdc::lz4::DecodeResult r{StatusOk, len, args.capacity};
        if (fast) {
            r.status = Dec(src.data(), len, dst.data(), &r.written);
        } else {
            r = zyrdc::lz4::Decode(Core::Plain, args, false);
        }
        // The empty block is the lone token, which a one-byte source reports as cut short.
        ASSERT_EQ(r.status, want.empty() ? StatusSrcExhausted : StatusOk) << what << (fast ? " fast" : "");
        ASSERT_EQ(r.written, cap) << what;
        ASSERT_TRUE(std::equal(want.begin(), want.end(), dst.data())) << what;
    }
}

// Each of our blocks decodes on both our paths and in liblz4, and liblz4's blocks decode on
// both our paths. The encoders' output is part of their contract, so both builds must write
// the same bytes: per encoder, the CRC-32 of all its blocks here, recorded once. (Among them:
// 21 bytes leave no position to probe and make one literal-only sequence; at 22, position 1
// is probed.)
TEST(Lz4, RoundTripsWithLiblz4BothWays) {
    std::vector<size_t> sizes;
    for (size_t n = 0; n <= 300; ++n) sizes.push_back(n);
    for (size_t n : {5301u, 40000u, 65535u, 65536u, 65537u, 70000u, 3u << 20}) sizes.push_back(n);
    const std::pair<const char*, uint32_t> pinned[] = {
        {"greedy", 0xd1ec87b2}, {"fast 2", 0xc0897241}, {"fast 7", 0x9c066921}, {"fast 300", 0x654a7b74}};
    uint32_t crc[4] = {};
    for (DataKind kind : zyrdc::test::kDataKinds) {
        for (size_t n : sizes) {
            if (n > 70000 && kind != DataKind::Mixed) continue;  // one long run is enough
            const Bytes in = MakeData(kind, n, static_cast<uint32_t>(n * 7) + static_cast<uint32_t>(kind));
            const std::string what = std::string(DataKindName(kind)) + " n=" + std::to_string(n) + " ";
            [[maybe_unused]] const int len = static_cast<int>(n);
            const auto blocks = OurBlocks(in);
            for (size_t j = 0; j < blocks.size(); ++j) {
                const auto& [name, block] = blocks[j];
                ASSERT_EQ(name, pinned[j].first);
                ASSERT_EQ(zyrsCRC32_8u(block.data(), static_cast<int32_t>(block.size()), &crc[j]), StatusOk);
                ExpectDecodesTo(block, in, what + name);
#if defined(ZYRDC_HAVE_LIBLZ4)
                std::string out(n + 1, '\0');
                const int got = LZ4_decompress_safe(reinterpret_cast<const char*>(block.data()), out.data(),
                                                    static_cast<int>(block.size()), len);
                ASSERT_EQ(got, len) << what << name;
                ASSERT_EQ(std::memcmp(out.data(), in.data(), n), 0) << what << name;
#endif
            }
#if defined(ZYRDC_HAVE_LIBLZ4)
            Bytes z(static_cast<size_t>(LZ4_compressBound(len)));
            const auto* s = reinterpret_cast<const char*>(in.data());
            auto* d = reinterpret_cast<char*>(z.data());
            const int cap = static_cast<int>(z.size());
            for (int which = 0; which < 3; ++which) {
                const int zl = which == 0   ? LZ4_compress_default(s, d, len, cap)
                               : which == 1 ? LZ4_compress_fast(s, d, len, cap, 3)
                                            : LZ4_compress_HC(s, d, len, cap, 9);
                ASSERT_GT(zl, 0);
                ExpectDecodesTo(Bytes(z.begin(), z.begin() + zl), in, what + "liblz4");
            }
#endif
        }
    }
    for (size_t j = 0; j < 4; ++j) {
        EXPECT_EQ(crc[j], pinned[j].second) << pinned[j].first << std::hex << " 0x" << crc[j];
    }
}

// Blocks that liblz4's streaming encoder wrote against history: the second part of the data
// coded against the first in place, and against the first part's last 30000 bytes loaded as
// a dictionary that the decoder gets somewhere else.
TEST(Lz4, DictionaryBlocksFromLiblz4) {
#if defined(ZYRDC_HAVE_LIBLZ4)
    constexpr int kFirst = 40000, kSecond = 50000, kDict = 30000;
    for (DataKind kind : {DataKind::Text, DataKind::Mixed, DataKind::Periodic}) {
        const Bytes data = MakeData(kind, kFirst + kSecond, 5);
        const auto* d = reinterpret_cast<const char*>(data.data());
        auto compress = [&](LZ4_stream_t* stream, const char* from, int n) {
            Bytes block(static_cast<size_t>(LZ4_compressBound(n)));
            block.resize(static_cast<size_t>(LZ4_compress_fast_continue(
                stream, from, reinterpret_cast<char*>(block.data()), n, static_cast<int>(block.size()), 1)));
            return block;
        };
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
            const ZyrStatus s = Dict(block.data(), &consumed, dst, idx, &written, dict, size);
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

// ---- the encoders -----------------------------------------------------------------------------

// Every capacity from 1 to the incompressible size, into a destination that ends at a guard
// page: DstFull exactly when a prefix was left out, and the block is that prefix.
TEST(Lz4Encode, BoundedAtEveryCapacity) {
    const std::pair<DataKind, int32_t> inputs[] = {{DataKind::Text, 700}, {DataKind::Random, 300},
                                                   {DataKind::Mixed, 1500}, {DataKind::Zeros, 2000},
                                                   {DataKind::Periodic, 900}};
    for (const auto& [kind, n] : inputs) {
        const Bytes in = MakeData(kind, static_cast<size_t>(n), 4);
        Bytes table(16384);
        for (int32_t cap = 1; cap <= zyrdc::lz4::WorstCaseBlockSize(n); ++cap) {
            GuardedBuffer dst(static_cast<size_t>(cap));
            int32_t consumed = n, len = cap;
            const ZyrStatus s = Safe(in.data(), &consumed, dst.data(), &len, table.data());
            ASSERT_EQ(s, consumed < n ? StatusDstFull : StatusOk) << cap;
            ASSERT_LE(len, cap);
            ExpectDecodesTo(Bytes(dst.data(), dst.data() + len), Bytes(in.begin(), in.begin() + consumed),
                            "capacity " + std::to_string(cap));
        }
    }
}

}  // namespace
