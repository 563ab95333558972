// LZ4 blocks. Decoding: each core's end rules on annotated blocks. The check orders of every
// entry point (the greedy encoders clear their table first). The encoders, one row each
// (greedy, bounded, accelerated, high-compression, linked, dictionary): every block keeps the
// format's end rules and reach and gives back exactly the prefix it consumed through liblz4
// and each decoding core on its fast and careful paths, at every capacity, against guard
// pages; liblz4's blocks, plain and against history, decode on those paths too; linked blocks
// are the same from a continued and a fresh record; dictionary placement and table copies do
// not change a block; each encoder's output pinned for both builds. The fuzz harnesses hold
// the decoding paths against each other on damaged blocks, and run the encoders' checks on
// arbitrary data and scrambled tables.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "data.hpp"
#include "lz4/hc.hpp"
#include "lz4/lz4.hpp"
#include "support.hpp"
#include "zyrdc.h"

#if defined(ZYRDC_HAVE_LIBLZ4)
#include <lz4.h>
#include <lz4hc.h>
#endif

namespace {

using Bytes = std::vector<uint8_t>;
using zyrdc::lz4::Core;
using zyrdc::test::DataKind;
using zyrdc::test::GuardedBuffer;
using zyrdc::test::MakeData;

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
auto* const DDec = zyrsDecodeLZ4Dict_8u;
auto* const Init = zyrsEncodeLZ4HashTableInit_8u;
auto* const Enc = zyrsEncodeLZ4_8u;
auto* const Bnd = zyrsEncodeLZ4Safe_8u;
auto* const Acc = zyrsEncodeLZ4Fast_8u;
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
    {"dict: null length", StatusNullPointer, 0, CALL(DDec(a.src, nullptr, a.dst, 0, &a.cap, nullptr, 0))},
    {"dict: null source", StatusNullPointer, 0, CALL(DDec(nullptr, &a.len, a.dst, 0, &a.cap, a.dict, 4))},
    {"dict: empty source", StatusBadSize, 0, CALL(DDec(a.src, &a.zero, a.dst, 0, &a.cap, a.dict, 4))},
    {"dict: negative size", StatusBadSize, 0, CALL(DDec(a.src, &a.len, a.dst, 4, &a.cap, a.dict, -1))},
    {"dict: size 0 is no dictionary", StatusOk, 0, CALL(DDec(a.src, &a.len, a.dst, 0, &a.cap, a.dict, 0))},
    {"table size", StatusOk, 0, CALL(zyrsEncodeLZ4HashTableGetSize_8u(&a.size))},
    {"table size: null", StatusNullPointer, 0, CALL(zyrsEncodeLZ4HashTableGetSize_8u(nullptr))},
    {"init: null table", StatusNullPointer, 0, CALL(Init(nullptr, 5))},
    {"init: short source", StatusOk, 8192, CALL(Init(a.t, 65535))},
    {"init: long source", StatusOk, 16384, CALL(Init(a.t, 65536))},
    {"init: no source", StatusBadSize, 0, CALL(Init(a.t, 0))},
    {"encode: null table", StatusNullPointer, 0, CALL(Enc(a.src, 32, a.dst, &a.cap, nullptr))},
    {"encode: clear, then null", StatusNullPointer, 16384, CALL(Enc(nullptr, 65536, a.dst, &a.cap, a.t))},
    {"encode: clear, then size", StatusBadSize, 8192, CALL(Enc(a.src, -5, a.dst, &a.cap, a.t))},
    {"safe: null length first", StatusNullPointer, 0, CALL(Bnd(a.src, nullptr, a.dst, &a.cap, a.t))},
    {"safe: clear by the length", StatusNullPointer, 16384, CALL(Bnd(nullptr, &a.big, a.dst, &a.cap, a.t))},
    {"safe: no capacity", StatusBadSize, 8192, CALL(Bnd(a.src, &a.len, a.dst, &a.zero, a.t))},
    {"fast 1 is the greedy encoder", StatusNullPointer, 8192, CALL(Acc(nullptr, 8, a.dst, &a.cap, a.t, 1))},
    {"fast: null table", StatusNullPointer, 0, CALL(Acc(a.src, 32, a.dst, &a.cap, nullptr, 2))},
    {"fast: acceleration, no clear", StatusBadAcceleration, 0, CALL(Acc(a.src, 32, a.dst, &a.cap, a.t, 0))},
    {"fast: size before acceleration", StatusBadSize, 0, CALL(Acc(a.src, 0, a.dst, &a.cap, a.t, -3))},
    {"fast: 13-bit table", StatusOk, 16384, CALL(Acc(a.src, 32, a.dst, &a.cap, a.t, 2))},
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


// ---- the encoders ----------------------------------------------------------------------------

int32_t Worst(size_t n) {
    return static_cast<int32_t>(zyrdc::lz4::WorstCaseBlockSize(static_cast<int64_t>(n)));
}

Bytes Record() {
    Bytes r(328512);
    EXPECT_EQ(zyrsEncodeLZ4HCHashTableInit_8u(r.data()), StatusOk);
    return r;
}

struct Coded { ZyrStatus status; int32_t consumed; Bytes block; };

// liblz4 (which holds a block to the format's end rules and reach: its dictionary is exactly
// the history a block may use) and each core, fast and careful, give back the consumed prefix
// of `data` from a source and into a destination of exact sizes that end at guard pages; with
// history, the prefix core finds its last 64 KiB in place, the separate core elsewhere. The
// plain bounded encoder ends a block that leaves input out with as many literals as fit,
// which liblz4 takes for a complete block only.
void ExpectDecodes(const Coded& c, const Bytes& history, const Bytes& data, bool complete = true) {
    const auto n = static_cast<size_t>(c.consumed);
    const size_t reach = std::min<size_t>(history.size(), 65536);
    const Bytes dict(history.end() - static_cast<ptrdiff_t>(reach), history.end());
    GuardedBuffer src(c.block.size());
    src.fill(c.block);
    const auto len = static_cast<int32_t>(c.block.size()), cap = std::max(c.consumed, 1);
    const auto h = static_cast<int32_t>(reach);
#if defined(ZYRDC_HAVE_LIBLZ4)
    Bytes out(n + 1);
    const auto* block = reinterpret_cast<const char*>(src.data());
    auto* o = reinterpret_cast<char*>(out.data());
    const auto* history0 = reinterpret_cast<const char*>(dict.data());
    ASSERT_EQ(complete ? LZ4_decompress_safe_usingDict(block, o, len, c.consumed, history0, h) : c.consumed,
              c.consumed);
    ASSERT_TRUE(!complete || std::equal(data.begin(), data.begin() + c.consumed, out.begin())) << "liblz4";
#endif
    for (Core core : reach ? std::vector{Core::Prefix, Core::Separate} : std::vector{Core::Plain}) {
        for (bool fast : {true, false}) {
            GuardedBuffer buf(reach + static_cast<size_t>(cap));
            uint8_t* at = buf.data() + reach;
            std::copy(dict.begin(), dict.end(), buf.data());
            if (core == Core::Separate) std::fill(buf.data(), at, 0xEE);
            const uint8_t* d = core == Core::Separate ? dict.data() : buf.data();
            zyrdc::lz4::DecodeResult r{StatusOk, len, cap};
            if (!fast) {
                r = zyrdc::lz4::Decode(core, {src.data(), len, at, cap, h, d, h}, false);
            } else if (core == Core::Plain) {
                r.status = zyrsDecodeLZ4_8u(src.data(), len, at, &r.written);
            } else {
                r.status = zyrsDecodeLZ4Dict_8u(src.data(), &r.consumed, buf.data(), h, &r.written, d, h);
            }
            // The empty block is the lone token, which a one-byte source reports as cut short.
            ASSERT_EQ(r.status, n == 0 ? StatusSrcExhausted : StatusOk) << int(core) << fast;
            ASSERT_EQ(r.written, c.consumed);
            ASSERT_TRUE(std::equal(data.begin(), data.begin() + c.consumed, at)) << int(core) << fast;
        }
    }
}

enum class Fn { Greedy, Safe, Fast, HC, HCDictLimit, Dict, DictSafe };
struct Encoder { const char* name; Fn fn; int level; uint32_t crc; };

bool Bounded(Fn f) { return f == Fn::Safe || f == Fn::HC || f == Fn::HCDictLimit || f == Fn::DictSafe; }
bool TakesHistory(Fn f) { return f >= Fn::HCDictLimit; }

// Codes `data` after `history` (the loaded dictionary, or the buffer's earlier part for the
// linked form) from a source and into a destination of `capacity` bytes ending at guard pages.
Coded Encode(const Encoder& e, const Bytes& history, const Bytes& data, int32_t capacity) {
    GuardedBuffer src(history.size() + data.size()), dst(static_cast<size_t>(capacity));
    std::copy(data.begin(), data.end(), std::copy(history.begin(), history.end(), src.data()));
    const auto h = static_cast<int32_t>(history.size());
    const uint8_t* in = src.data() + h;
    Bytes table = e.fn == Fn::HC || e.fn == Fn::HCDictLimit ? Record() : Bytes(16384);
    int32_t n = static_cast<int32_t>(data.size()), len = capacity;
    uint8_t *d = dst.data(), *t = table.data();
    ZyrStatus s = StatusError;
    switch (e.fn) {
        case Fn::Greedy: s = zyrsEncodeLZ4_8u(in, n, d, &len, t); break;
        case Fn::Safe: s = zyrsEncodeLZ4Safe_8u(in, &n, d, &len, t); break;
        case Fn::Fast: s = zyrsEncodeLZ4Fast_8u(in, n, d, &len, t, e.level); break;
        case Fn::HC: s = zyrsEncodeLZ4HC_8u(in, &n, d, &len, t, e.level); break;
        case Fn::HCDictLimit:
            s = zyrsEncodeLZ4HCDictLimit_8u(src.data(), h, &n, d, &len, t, e.level, 0);
            break;
        case Fn::Dict:
        case Fn::DictSafe:
            EXPECT_EQ(h ? zyrsEncodeLZ4LoadDict_8u(src.data(), h, t) : zyrsEncodeLZ4DictHashTableInit_8u(t),
                      StatusOk);
            s = e.fn == Fn::Dict ? zyrsEncodeLZ4Dict_8u(in, n, d, &len, t, src.data(), h)
                                 : zyrsEncodeLZ4DictSafe_8u(in, &n, d, &len, t, src.data(), h);
            break;
    }
    EXPECT_LE(len, capacity);
    return {s, n, Bytes(d, d + len)};
}

class Lz4Encoder : public ::testing::TestWithParam<Encoder> {};

// Every block decodes everywhere, and liblz4's blocks of the same data too. An encoder's
// output is part of its contract: the CRC-32 of all its blocks here is recorded once for both
// builds (the bounded encoder with room for everything and acceleration 1 write the greedy
// encoder's blocks). Up to 21 bytes leave the greedy encoders no position to probe; the
// walk that takes runs one candidate at a time gives the high-compression blocks.
TEST_P(Lz4Encoder, BlocksDecodeEverywhereAndArePinned) {
    const Encoder& e = GetParam();
    uint32_t crc = 0;
    for (DataKind kind : zyrdc::test::kDataKinds) {
        for (size_t n : {1, 12, 13, 15, 21, 22, 100, 300, 4096, 65535, 65536, 65537, 300000}) {
            if (n > (e.level == 12 ? 4096u : 70000u) && e.level >= 11 && e.fn != Fn::Fast) continue;
            const Bytes all = MakeData(kind, n + 80000, static_cast<uint32_t>(n + size_t(kind)));
            const size_t h = TakesHistory(e.fn) && n % 2 == 0 ? 80000 : 0;
            const Bytes history(all.begin() + 80000 - static_cast<ptrdiff_t>(h), all.begin() + 80000);
            const Bytes data(all.begin() + 80000, all.end());
            SCOPED_TRACE(std::string(DataKindName(kind)) + " n " + std::to_string(n));
            const Coded c = Encode(e, history, data, Worst(n));
            ASSERT_EQ(c.status, StatusOk);
            ASSERT_EQ(c.consumed, static_cast<int32_t>(n));
            const size_t literalOnly = e.fn < Fn::HC ? 21 : 12;
            ASSERT_TRUE(n > literalOnly || c.block.size() == size_t(Worst(n))) << "literals only";
            ExpectDecodes(c, history, data);
            ASSERT_EQ(zyrsCRC32_8u(c.block.data(), static_cast<int32_t>(c.block.size()), &crc), StatusOk);
            if ((e.fn == Fn::HC || e.fn == Fn::HCDictLimit) && n <= 4096) {
                Bytes rec = Record(), walked(static_cast<size_t>(Worst(n)));
                const uint8_t* from = all.data() + 80000 - h;
                const bool linked = e.fn == Fn::HCDictLimit;
                const auto r = zyrdc::lz4::EncodeHc(rec.data(), from, static_cast<int32_t>(h), c.consumed, 0,
                                                    linked, walked.data(), Worst(n), e.level, true);
                ASSERT_EQ(Bytes(walked.begin(), walked.begin() + r.written), c.block) << "one at a time";
            }
#if defined(ZYRDC_HAVE_LIBLZ4)
            if (e.fn != Fn::Greedy) continue;
            const auto* s = reinterpret_cast<const char*>(data.data());
            for (int which = 0; which < 2; ++which) {
                Bytes z(static_cast<size_t>(LZ4_compressBound(static_cast<int>(n))));
                auto* zd = reinterpret_cast<char*>(z.data());
                const int cap = static_cast<int>(z.size()), len = static_cast<int>(n);
                z.resize(static_cast<size_t>(which ? LZ4_compress_HC(s, zd, len, cap, 9)
                                                   : LZ4_compress_default(s, zd, len, cap)));
                ExpectDecodes({StatusOk, len, z}, {}, data);
            }
#endif
        }
    }
    EXPECT_EQ(crc, e.crc) << std::hex << " 0x" << crc;
}

// At every capacity a bounded encoder writes a complete block of the prefix it consumed,
// reporting DstFull exactly when a prefix was left out.
TEST_P(Lz4Encoder, EveryCapacityGivesACompleteBlockOfTheConsumedPrefix) {
    const Encoder& e = GetParam();
    if (!Bounded(e.fn)) return;  // unbounded
    for (DataKind kind : {DataKind::Text, DataKind::Random, DataKind::Runs, DataKind::Zeros,
                          DataKind::Periodic}) {
        const Bytes all = MakeData(kind, 1400, 7);
        const Bytes history(all.begin(), all.begin() + (TakesHistory(e.fn) ? 400 : 0));
        const Bytes data(all.begin() + static_cast<ptrdiff_t>(history.size()), all.end());
        for (int32_t cap = 1; cap <= Worst(data.size()); cap += cap < 64 ? 1 : 5) {
            SCOPED_TRACE(std::string(DataKindName(kind)) + " capacity " + std::to_string(cap));
            const Coded c = Encode(e, history, data, cap);
            ASSERT_EQ(c.status, c.consumed < static_cast<int32_t>(data.size()) ? StatusDstFull : StatusOk);
            ExpectDecodes(c, history, data, e.fn != Fn::Safe || c.status == StatusOk);
        }
    }
}

// The pins: one CRC-32 per encoder.
INSTANTIATE_TEST_SUITE_P(Lz4, Lz4Encoder, ::testing::Values(
    Encoder{"greedy", Fn::Greedy, 0, 0xecffaf7a}, Encoder{"bounded", Fn::Safe, 0, 0xecffaf7a},
    Encoder{"fast", Fn::Fast, 1, 0xecffaf7a}, Encoder{"fast", Fn::Fast, 2, 0x0c2a4033},
    Encoder{"fast", Fn::Fast, 7, 0x026ed3a8}, Encoder{"fast", Fn::Fast, 300, 0x73120426},
    Encoder{"hc", Fn::HC, 1, 0xff98ff96}, Encoder{"hc", Fn::HC, 2, 0x10472870},
    Encoder{"hc", Fn::HC, 3, 0xa32a1bd5}, Encoder{"hc", Fn::HC, 4, 0x030dd136},
    Encoder{"hc", Fn::HC, 5, 0x65360144}, Encoder{"hc", Fn::HC, 6, 0x97a0344f},
    Encoder{"hc", Fn::HC, 7, 0xd65a73a3}, Encoder{"hc", Fn::HC, 8, 0x10b24383},
    Encoder{"hc", Fn::HC, 9, 0x1481329e}, Encoder{"hc", Fn::HC, 10, 0xd6eaa8fd},
    Encoder{"hc", Fn::HC, 11, 0x20b6aa9e}, Encoder{"hc", Fn::HC, 12, 0x634ad75c},
    Encoder{"linked", Fn::HCDictLimit, 2, 0x2706602f}, Encoder{"linked", Fn::HCDictLimit, 4, 0x68723f96},
    Encoder{"linked", Fn::HCDictLimit, 9, 0x84a6888b}, Encoder{"linked", Fn::HCDictLimit, 11, 0x0c9ff736},
    Encoder{"dict", Fn::Dict, 0, 0xfce9bb71}, Encoder{"dict_bounded", Fn::DictSafe, 0, 0xfce9bb71}),
    [](const auto& row) { return std::string(row.param.name) + "_" + std::to_string(row.param.level); });

// ---- linked blocks ----------------------------------------------------------------------------

// One linked block of buf[idx, idx + n).
Bytes HcBlock(const uint8_t* buf, size_t idx, size_t n, uint8_t* rec, int level, size_t dictLimit) {
    Bytes out(static_cast<size_t>(Worst(n)));
    int32_t srcLen = static_cast<int32_t>(n), dstLen = static_cast<int32_t>(out.size());
    EXPECT_EQ(zyrsEncodeLZ4HCDictLimit_8u(buf, static_cast<int32_t>(idx), &srcLen, out.data(), &dstLen, rec,
                                          level, static_cast<int32_t>(dictLimit)), StatusOk);
    out.resize(static_cast<size_t>(dstLen));
    return out;
}

// Blocks of `step` bytes over one buffer, each with the history the decoder still holds
// (`window` bytes back), from one continued record and from a fresh record per block; and,
// with the buffer coded to 100000 bytes and its last 64 KiB slid to the start, the next block
// of the continued record is that of a fresh one. With the history limit at the block, a
// linked block is the independent block.
TEST(Lz4Linked, ContinuedAndFreshRecordsGiveTheSameBlocks) {
    const struct { DataKind kind; size_t size, step, window; int level; } rows[] = {
        {DataKind::Text, 300000, 65536, 65536, 9},    {DataKind::Text, 200000, 4096, 20000, 3},
        {DataKind::FarRepeat, 300000, 50000, 65536, 1}, {DataKind::FarRepeat, 300000, 70000, 65536, 6},
        {DataKind::Periodic, 15000, 12, 65536, 10},   {DataKind::Runs, 150000, 30000, 1000, 12}};
    for (const auto& row : rows) {
        SCOPED_TRACE(std::string(DataKindName(row.kind)) + " step " + std::to_string(row.step));
        const Bytes buf = MakeData(row.kind, row.size, 3);
        auto slice = [&](size_t from, size_t to) {
            return Bytes(buf.begin() + ptrdiff_t(from), buf.begin() + ptrdiff_t(to));
        };
        Bytes rec = Record();
        for (size_t at = 0; at < buf.size(); at += row.step) {
            const size_t n = std::min(row.step, buf.size() - at), hist = std::min(at, row.window);
            Bytes fresh = Record();
            const Bytes block = HcBlock(buf.data(), at, n, rec.data(), row.level, at - hist);
            ASSERT_EQ(block, HcBlock(buf.data(), at, n, fresh.data(), row.level, at - hist));
            const Coded c{StatusOk, static_cast<int32_t>(n), block};
            ExpectDecodes(c, slice(at - hist, at), slice(at, at + n));
        }
    }
    Bytes buf = MakeData(DataKind::Text, 200000, 5), rec = Record(), fresh = Record();
    for (int level : {2, 5, 10}) {
        Bytes a(static_cast<size_t>(Worst(100000))), r2 = Record();
        int32_t n = 100000, d = static_cast<int32_t>(a.size());
        ASSERT_EQ(zyrsEncodeLZ4HC_8u(buf.data() + 50000, &n, a.data(), &d, rec.data(), level), StatusOk);
        a.resize(static_cast<size_t>(d));
        ASSERT_EQ(a, HcBlock(buf.data(), 50000, 100000, r2.data(), level, 50000)) << level;
    }
    HcBlock(buf.data(), 0, 100000, rec.data(), 9, 0);
    std::memmove(buf.data(), buf.data() + 100000 - 65536, 65536 + 50000);
    const Bytes cont = HcBlock(buf.data(), 65536, 50000, rec.data(), 9, 0);
    ASSERT_EQ(cont, HcBlock(buf.data(), 65536, 50000, fresh.data(), 9, 0));
}

// ---- dictionaries -------------------------------------------------------------------------------

Bytes DictBlock(const uint8_t* src, size_t n, const uint8_t* dict, int32_t dictLen,
                const uint8_t* table0 = nullptr) {
    uint8_t table[16384];
    if (table0 != nullptr) std::memcpy(table, table0, sizeof table);
    EXPECT_EQ(table0 ? StatusOk : zyrsEncodeLZ4LoadDict_8u(dict, dictLen, table), StatusOk);
    Bytes out(static_cast<size_t>(Worst(n)));
    int32_t len = 0;
    const auto srcLen = static_cast<int32_t>(n);
    EXPECT_EQ(zyrsEncodeLZ4Dict_8u(src, srcLen, out.data(), &len, table, dict, dictLen), StatusOk);
    out.resize(static_cast<size_t>(len));
    return out;
}

// Only the dictionary's last 64 KiB count, wherever it lies, and a copied table codes as the
// loaded one; a null and an empty dictionary are none.
TEST(Lz4Dict, PlacementAndTableCopiesDoNotChangeABlock) {
    const Bytes text = MakeData(DataKind::Text, 200000, 9);
    const auto d = static_cast<int32_t>(100 * 1024);
    uint8_t pristine[16384];
    ASSERT_EQ(zyrsEncodeLZ4LoadDict_8u(text.data(), d, pristine), StatusOk);
    const Bytes last64(text.begin() + d - 65536, text.begin() + d);
    for (size_t len : {13, 40, 100, 5000}) {
        SCOPED_TRACE(len);
        Bytes adjacent(text.begin(), text.begin() + d);
        adjacent.insert(adjacent.end(), text.begin() + 150000, text.begin() + 150000 + ptrdiff_t(len));
        const uint8_t* msg = adjacent.data() + d;
        const Bytes block = DictBlock(msg, len, text.data(), d);
        EXPECT_LT(block.size(), len) << "repeated dictionary content compresses";
        EXPECT_EQ(block, DictBlock(msg, len, last64.data(), 65536)) << "only the last 64 KiB count";
        EXPECT_EQ(block, DictBlock(msg, len, text.data(), d, pristine)) << "table copy";
        EXPECT_EQ(block, DictBlock(msg, len, adjacent.data(), d)) << "adjacent dictionary";
    }
    Bytes empty(16384);
    ASSERT_EQ(zyrsEncodeLZ4DictHashTableInit_8u(empty.data()), StatusOk);
    EXPECT_EQ(DictBlock(text.data(), 3000, nullptr, 0, empty.data()),
              DictBlock(text.data(), 3000, text.data() + 5000, 0, empty.data()));
}

// Blocks that liblz4's streaming encoder wrote against history: the second part of the data
// coded against the first in place, and against the first part's last 30000 bytes loaded as
// a dictionary.
TEST(Lz4Dict, BlocksFromLiblz4) {
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
        const Bytes first(data.begin(), data.begin() + kFirst), second(data.begin() + kFirst, data.end());
        ExpectDecodes({StatusOk, kSecond, prefixed}, first, second);
        ExpectDecodes({StatusOk, kSecond, separate}, Bytes(first.end() - kDict, first.end()), second);
    }
#else
    GTEST_SKIP() << "liblz4 is not installed for this build";
#endif
}


}  // namespace
