// LZSS: the record layout of both builds, check orders, the flush and the pending match at
// the smallest rooms, round trips split anywhere on both sides, encoder output pinned.
#include <gtest/gtest.h>

#include <cstddef>
#include <random>
#include <vector>

#include "data.hpp"
#include "support.hpp"
#include "zyrdc.h"

namespace {

using Bytes = std::vector<uint8_t>;
using zyrdc::test::DataKind;
using zyrdc::test::MakeData;

// The published layout: fields in order, pointers as wide as the build's.
#define OFF(field) offsetof(LzssState, field)
#if defined(__i386__)
static_assert(sizeof(LzssState) == 327724 && OFF(chain) == 36);
static_assert(OFF(fields.enc.historyDisp) == 16 && OFF(fields.enc.bitAcc) == 28);
static_assert(OFF(fields.dec.pWindow) == 12 && OFF(fields.dec.pendingDistance) == 28);
#else
static_assert(sizeof(LzssState) == 327744 && OFF(chain) == 56);
static_assert(OFF(fields.enc.historyDisp) == 32 && OFF(fields.enc.bitAcc) == 44);
static_assert(OFF(fields.dec.pWindow) == 16 && OFF(fields.dec.pendingDistance) == 36);
#endif
static_assert(OFF(history) - OFF(chain) == 2 * 32768 * 4);
#undef OFF

struct Coder {
    std::vector<uint64_t> mem;  // aligned for the record's pointers
    LzssState* st;
    explicit Coder(bool encoder) {
        int32_t size = 0;
        EXPECT_EQ(zyrsLZSSGetSize_8u(&size), StatusOk);
        EXPECT_EQ(size, static_cast<int32_t>(sizeof(LzssState)));
        mem.resize((static_cast<size_t>(size) + 7) / 8);
        st = reinterpret_cast<LzssState*>(mem.data());
        EXPECT_EQ(encoder ? zyrsEncodeLZSSInit_8u(st) : zyrsDecodeLZSSInit_8u(st), StatusOk);
    }
};

// Codes `in` in calls cut at `srcCuts`, into rooms of 1 to 7 bytes (repeated while the
// destination fills) when an rng is given, then flushes.
Bytes Encode(const Bytes& in, const std::vector<size_t>& srcCuts, std::mt19937* rng = nullptr) {
    Coder c(true);
    Bytes out(in.size() * 9 / 8 + 16);
    uint8_t* d = out.data();
    const uint8_t* s = in.data();
    for (size_t at = 0, i = 0; i < srcCuts.size(); at = srcCuts[i++]) {
        int32_t sl = static_cast<int32_t>(srcCuts[i] - at);
        for (ZyrStatus r = StatusDstFull; r == StatusDstFull;) {
            int32_t dl = static_cast<int32_t>(rng ? 1 + (*rng)() % 7 : out.size() - size_t(d - out.data()));
            r = zyrsEncodeLZSS_8u(&s, &sl, &d, &dl, c.st);
            EXPECT_TRUE(r == StatusOk || (r == StatusDstFull && dl == 0)) << r;
        }
        EXPECT_EQ(sl, 0);
    }
    for (ZyrStatus r = StatusDstFull; r == StatusDstFull;) {
        int32_t dl = rng ? 1 : 16;
        r = zyrsEncodeLZSSFlush_8u(&d, &dl, c.st);
    }
    out.resize(static_cast<size_t>(d - out.data()));
    return out;
}

Bytes Decode(const Bytes& z, size_t n, std::mt19937& rng, int maxRoom) {
    Coder c(false);
    Bytes out(n + 64);
    uint8_t* d = out.data();
    const uint8_t* s = z.data();
    for (int32_t left = static_cast<int32_t>(z.size()); d < out.data() + n;) {
        int32_t sl = left == 0 ? 0 : 1 + static_cast<int32_t>(rng() % static_cast<uint32_t>(left));
        int32_t dl = 1 + static_cast<int32_t>(rng() % static_cast<uint32_t>(maxRoom));
        const int32_t gave = sl;
        const ZyrStatus r = zyrsDecodeLZSS_8u(&s, &sl, &d, &dl, c.st);
        EXPECT_TRUE(r == StatusOk || (r == StatusDstFull && dl == 0)) << r;
        left -= gave - sl;
        if (left == 0 && r == StatusOk) break;
    }
    out.resize(static_cast<size_t>(d - out.data()));
    return out;
}

// After four equal bytes 4 bits are pending: one byte of room fills (DstFull, bits written),
// two bytes leave room (Ok, bits kept for a repeated flush).
TEST(Lzss, FlushRoomOfOneAndTwoBytes) {
    for (int32_t room : {1, 2}) {
        Coder c(true);
        const Bytes in(4, 'a');
        Bytes out(16);
        const uint8_t* s = in.data();
        int32_t sl = 4, dl = 16;
        uint8_t* d = out.data();
        ASSERT_EQ(zyrsEncodeLZSS_8u(&s, &sl, &d, &dl, c.st), StatusOk);
        ASSERT_EQ(dl, 12);
        dl = room;
        EXPECT_EQ(zyrsEncodeLZSSFlush_8u(&d, &dl, c.st), room == 1 ? StatusDstFull : StatusOk);
        EXPECT_EQ(dl, room - 1);
        EXPECT_EQ(out[4], 0x10);
        dl = 2;
        EXPECT_EQ(zyrsEncodeLZSSFlush_8u(&d, &dl, c.st), StatusOk);
        EXPECT_EQ(dl, room == 1 ? 2 : 1);  // nothing left, or the same byte again
    }
}

// A literal and a match of 10 at distance 1, read with one byte of room: the match token is
// read by the second call, which writes one byte of it; the next call writes the other 9
// without reading source, and the padding bits after it decode to nothing.
TEST(Lzss, PendingMatchWithOneByteRoom) {
    const Bytes z = {0xb0, 0x80, 0x00, 0x83, 0x80};
    Coder c(false);
    const uint8_t* s = z.data();
    int32_t sl = 5;
    Bytes out(11);
    uint8_t* d = out.data();
    const struct { int32_t room; ZyrStatus status; int32_t srcLeft; } calls[] = {
        {1, StatusDstFull, 2}, {1, StatusDstFull, 0}, {9, StatusDstFull, 0}, {1, StatusOk, 0}};
    for (const auto& call : calls) {
        int32_t dl = call.room;
        EXPECT_EQ(zyrsDecodeLZSS_8u(&s, &sl, &d, &dl, c.st), call.status) << call.room;
        EXPECT_EQ(sl, call.srcLeft);
    }
    EXPECT_EQ(out, Bytes(11, 'a'));
}

// Fresh coders and arguments for every row: three source bytes, four bytes of room.
struct Args {
    Coder enc{true}, dec{false};
    uint8_t buf[8] = {1, 2, 3};
    const uint8_t* s = buf;
    uint8_t* d = buf + 4;
    int32_t sl = 3, dl = 4, zero = 0, neg = -1;
};
#define CALL(...) []([[maybe_unused]] Args& a) -> ZyrStatus { return __VA_ARGS__; }
auto* const Enc = zyrsEncodeLZSS_8u;
auto* const Dec = zyrsDecodeLZSS_8u;

// No call moves the pointers or counts that it refuses, nor those of a call with nothing to do.
TEST(Lzss, CheckOrders) {
    const struct { const char* what; ZyrStatus status; ZyrStatus (*call)(Args&); } rows[] = {
        {"size: null", StatusNullPointer, CALL(zyrsLZSSGetSize_8u(nullptr))},
        {"encoder init: null", StatusNullPointer, CALL(zyrsEncodeLZSSInit_8u(nullptr))},
        {"decoder init: null", StatusNullPointer, CALL(zyrsDecodeLZSSInit_8u(nullptr))},
        {"encode: null record", StatusNullPointer, CALL(Enc(&a.s, &a.sl, &a.d, &a.dl, nullptr))},
        {"encode: null source", StatusNullPointer, CALL(Enc(nullptr, &a.sl, &a.d, &a.zero, a.enc.st))},
        {"encode: no room before no input", StatusDstFull, CALL(Enc(&a.s, &a.zero, &a.d, &a.zero, a.enc.st))},
        {"encode: no input", StatusOk, CALL(Enc(&a.s, &a.zero, &a.d, &a.dl, a.enc.st))},
        {"flush: null room", StatusNullPointer, CALL(zyrsEncodeLZSSFlush_8u(&a.d, nullptr, a.enc.st))},
        {"flush: no room", StatusBadSize, CALL(zyrsEncodeLZSSFlush_8u(&a.d, &a.zero, a.enc.st))},
        {"flush: nothing pending", StatusOk, CALL(zyrsEncodeLZSSFlush_8u(&a.d, &a.dl, a.enc.st))},
        {"decode: null record", StatusNullPointer, CALL(Dec(&a.s, &a.sl, &a.d, &a.dl, nullptr))},
        {"decode: negative room", StatusBadSize, CALL(Dec(&a.s, &a.sl, &a.d, &a.neg, a.dec.st))},
        {"decode: negative source is none", StatusOk, CALL(Dec(&a.s, &a.neg, &a.d, &a.dl, a.dec.st))},
    };
    for (const auto& row : rows) {
        Args a;
        EXPECT_EQ(row.call(a), row.status) << row.what;
        EXPECT_TRUE(a.s == a.buf && a.d == a.buf + 4 && a.sl == 3 && a.dl == 4) << row.what;
    }
}
#undef CALL

// Both sides split at random points, with rooms of 1 to 7 bytes on the encoder side: the
// bytes come back; a stream coded in one call decodes with any split too. Inputs pass the
// 64 KiB history several times. The encoder's output is pinned: 150000 bytes coded in calls
// of 1000, 69000 and 80000 bytes give a stream of the same CRC-32 in both builds.
TEST(Lzss, RoundTripsSplitAnywhere) {
    std::mt19937 rng(31);
    const struct { DataKind kind; uint32_t crc; } rows[] = {
        {DataKind::Random, 0xdc3e8340}, {DataKind::Text, 0x0fb2dc73}, {DataKind::Runs, 0xa319a98d},
        {DataKind::Mixed, 0xbd71525f}};
    for (const auto& row : rows) {
        const Bytes pinned = Encode(MakeData(row.kind, 150000, 99), {1000, 70000, 150000});
        uint32_t crc = 0;
        ASSERT_EQ(zyrsCRC32_8u(pinned.data(), static_cast<int32_t>(pinned.size()), &crc), StatusOk);
        EXPECT_EQ(crc, row.crc) << DataKindName(row.kind) << " 0x" << std::hex << crc;
        for (uint32_t n : {1u, 2u, 3u, 300u, 70000u, 200001u}) {
            SCOPED_TRACE(testing::Message() << DataKindName(row.kind) << " " << n);
            const Bytes in = MakeData(row.kind, n, n + static_cast<uint32_t>(row.kind));
            EXPECT_EQ(Decode(Encode(in, {n}), n, rng, 1 + static_cast<int>(n)), in);
            const Bytes split = Encode(in, zyrdc::test::RandomCuts(n, 40, rng), n < 1000 ? &rng : nullptr);
            EXPECT_EQ(Decode(split, n, rng, 300), in) << "split";
        }
    }
}

}  // namespace
