// LZ4 blocks: the decoders' end rules per core on annotated blocks, and the check orders of
// every entry point (the greedy encoders clear their table first). The encoders and the
// round trips with liblz4 are in test_lz4_hc.cpp; the fuzz harnesses hold the two decoding
// paths against each other on damaged blocks.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "lz4/lz4.hpp"
#include "zyrdc.h"

namespace {

using zyrdc::lz4::Core;
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
    int32_t len = 4, cap = 64, zero = 0, big = 65536, huge = 0x7E000001, n16 = 16, size = 0;
    Bytes table = Bytes(16384, 0xAA), rec = Bytes(328512), bad;
    uint8_t *t = table.data(), *r = nullptr, *b = nullptr;  // the record, and one with a wrong magic word
    Args() {
        zyrsEncodeLZ4HCHashTableInit_8u(rec.data());
        bad = rec;
        bad[0] ^= 1;
        r = rec.data();
        b = bad.data();
    }
};
#define CALL(...) []([[maybe_unused]] Args& a) -> ZyrStatus { return __VA_ARGS__; }

auto* const Dec = zyrsDecodeLZ4_8u;
auto* const Dict = zyrsDecodeLZ4Dict_8u;
auto* const Init = zyrsEncodeLZ4HashTableInit_8u;
auto* const Enc = zyrsEncodeLZ4_8u;
auto* const Safe = zyrsEncodeLZ4Safe_8u;
auto* const Fast = zyrsEncodeLZ4Fast_8u;
auto* const Hc = zyrsEncodeLZ4HC_8u;
auto* const Lim = zyrsEncodeLZ4HCDictLimit_8u;
auto* const DictEnc = zyrsEncodeLZ4Dict_8u;

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
    {"hc size: null", StatusNullPointer, 0, CALL(zyrsEncodeLZ4HCHashTableGetSize_8u(nullptr))},
    {"hc size", StatusOk, 0, CALL(zyrsEncodeLZ4HCHashTableGetSize_8u(&a.size))},
    {"hc init: null", StatusNullPointer, 0, CALL(zyrsEncodeLZ4HCHashTableInit_8u(nullptr))},
    {"hc: null source before sizes", StatusNullPointer, 0, CALL(Hc(nullptr, &a.zero, a.dst, &a.cap, a.t, 0))},
    {"hc: null record", StatusNullPointer, 0, CALL(Hc(a.src, &a.len, a.dst, &a.cap, nullptr, 1))},
    {"hc: empty source before magic", StatusBadSize, 0, CALL(Hc(a.src, &a.zero, a.dst, &a.cap, a.b, 1))},
    {"hc: source too long", StatusBadSize, 0, CALL(Hc(a.src, &a.huge, a.dst, &a.cap, a.r, 1))},
    {"hc: no capacity", StatusBadSize, 0, CALL(Hc(a.src, &a.len, a.dst, &a.zero, a.r, 1))},
    {"hc: magic before level", StatusBadContext, 0, CALL(Hc(a.src, &a.len, a.dst, &a.cap, a.b, 0))},
    {"hc: level 0", StatusBadArgument, 0, CALL(Hc(a.src, &a.len, a.dst, &a.cap, a.r, 0))},
    {"hc: level 13", StatusBadArgument, 0, CALL(Hc(a.src, &a.len, a.dst, &a.cap, a.r, 13))},
    {"hc: level 12", StatusOk, 0, CALL(Hc(a.src, &a.len, a.dst, &a.cap, a.r, 12))},
    {"linked: negative index", StatusBadSize, 0, CALL(Lim(a.src, -1, &a.len, a.dst, &a.cap, a.r, 1, 0))},
    {"linked: limit above index", StatusBadSize, 0, CALL(Lim(a.src, 4, &a.len, a.dst, &a.cap, a.r, 1, 5))},
    {"linked: negative limit", StatusBadSize, 0, CALL(Lim(a.src, 4, &a.len, a.dst, &a.cap, a.r, 1, -1))},
    {"linked: end past 2^31-1", StatusBadSize, 0,
     CALL(Lim(a.src, 0x7FFFFFF0, &a.n16, a.dst, &a.cap, a.b, 1, 0))},
    {"linked: magic", StatusBadContext, 0, CALL(Lim(a.src, 4, &a.len, a.dst, &a.cap, a.b, 1, 0))},
    {"linked: level", StatusBadArgument, 0, CALL(Lim(a.src, 4, &a.len, a.dst, &a.cap, a.r, 13, 0))},
    {"dict init: null", StatusNullPointer, 0, CALL(zyrsEncodeLZ4DictHashTableInit_8u(nullptr))},
    {"load: null", StatusNullPointer, 0, CALL(zyrsEncodeLZ4LoadDict_8u(nullptr, 0, a.t))},
    {"load: empty", StatusBadSize, 0, CALL(zyrsEncodeLZ4LoadDict_8u(a.src, 0, a.t))},
    {"dict: null table", StatusNullPointer, 0, CALL(DictEnc(a.src, 0, a.dst, &a.cap, nullptr, a.src, 4))},
    {"dict: empty source", StatusBadSize, 0, CALL(DictEnc(a.src, 0, a.dst, &a.cap, a.t, a.src, 4))},
    {"dict: negative dictionary", StatusBadSize, 0, CALL(DictEnc(a.src, 4, a.dst, &a.cap, a.t, a.src, -1))},
    {"dict: null dictionary is none", StatusOk, 0, CALL(DictEnc(a.src, 4, a.dst, &a.cap, a.t, nullptr, 9))},
    {"dict bounded: null count", StatusNullPointer, 0,
     CALL(zyrsEncodeLZ4DictSafe_8u(a.src, nullptr, a.dst, &a.cap, a.t, a.src, 4))},
    {"dict bounded: no capacity", StatusBadSize, 0,
     CALL(zyrsEncodeLZ4DictSafe_8u(a.src, &a.len, a.dst, &a.zero, a.t, nullptr, 0))},
};
#undef CALL

TEST(Lz4, CheckOrders) {
    for (const CheckRow& row : kCheckRows) {
        Args a;
        EXPECT_EQ(row.call(a), row.status) << row.what;
        EXPECT_TRUE(a.size == 0 || a.size == 16384 || a.size == 328512);
        EXPECT_EQ(16384 - std::count(a.table.begin(), a.table.end(), 0xAA), row.cleared) << row.what;
        if (row.status < 0) {
            EXPECT_TRUE(a.len == 4 && a.cap == 64 && std::count(a.dst, a.dst + 64, 0) == 64) << row.what;
        }
    }
}

}  // namespace
