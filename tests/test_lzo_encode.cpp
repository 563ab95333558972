// LZO1X encoding: every method over data of many kinds and sizes back through both decoders
// and liblzo2 (plain streams), into a destination of exactly the bound
// that ends at a guard page; the instruction forms chosen at their distance and length
// limits; first literal runs around the container tag; containers' segment counts; the
// check order; and the bytes both builds must agree on.
#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "core/bits.hpp"
#include "data.hpp"
#include "lzo/encode.hpp"
#include "lzo/lzo.hpp"
#include "support.hpp"
#include "zyrdc.h"

#if defined(ZYRDC_HAVE_LZO2)
#include <lzo/lzo1x.h>
#endif

namespace {

using Bytes = std::vector<uint8_t>;
using zyrdc::test::DataKind;
using zyrdc::test::GuardedBuffer;
using zyrdc::test::MakeData;
using zyrdc::test::RandomBytes;

// Encodes through the entry points into a destination of exactly the bound, ending at a
// guard page, from a source that ends at one.
Bytes Encode(int32_t method, const Bytes& src, uint32_t maxInputLen = 0) {
    uint32_t size = 0;
    const uint32_t hint = maxInputLen != 0 ? maxInputLen : std::max<uint32_t>(1, static_cast<uint32_t>(src.size()));
    EXPECT_EQ(zyrsEncodeLZOGetSize(method, hint, &size), StatusOk);
    std::vector<uint32_t> state(size / 4);
    auto* record = reinterpret_cast<uint8_t*>(state.data());
    EXPECT_EQ(zyrsEncodeLZOInit_8u(method, hint, record), StatusOk);
    const auto bound = static_cast<uint32_t>(zyrdc::lzo::EncodeBound(method, src.size()));
    GuardedBuffer in(src.size()), out(bound);
    if (!src.empty()) in.fill(src);
    uint32_t len = bound;
    EXPECT_EQ(zyrsEncodeLZO_8u(in.data(), static_cast<uint32_t>(src.size()), out.data(), &len, record), StatusOk);
    return Bytes(out.data(), out.data() + len);
}

// Every decoder that must read the coded bytes gives the source back.
void ExpectDecodes(int32_t method, const Bytes& coded, const Bytes& src) {
    for (auto fn : {zyrsDecodeLZOSafe_8u, zyrsDecodeLZO_8u}) {
        Bytes out(src.size() + 16);
        uint32_t len = static_cast<uint32_t>(out.size());
        ASSERT_EQ(fn(coded.data(), static_cast<uint32_t>(coded.size()), out.data(), &len), StatusOk);
        out.resize(len);
        ASSERT_TRUE(out == src) << (fn == zyrsDecodeLZO_8u ? "trusted" : "checked") << " decoder";
    }
    ASSERT_EQ(zyrdc::lzo::IsContainer(coded.data(), coded.size()), method == LzoMethodSegmented);
#if defined(ZYRDC_HAVE_LZO2)
    // A container's segments are checked by fuzz_lzo_roundtrip, one by one.
    if (method == LzoMethodSegmented) return;
    Bytes out(src.size() + 1);
    lzo_uint len = out.size();
    ASSERT_EQ(lzo1x_decompress_safe(coded.data(), coded.size(), out.data(), &len, nullptr), LZO_E_OK);
    out.resize(len);
    ASSERT_TRUE(out == src) << "liblzo2";
#endif
}

TEST(LzoEncode, EveryMethodKindAndSizeDecodesEverywhere) {
    const size_t sizes[] = {0, 1, 20, 21, 22, 67, 68, 69, 238, 239, 1000, 65536, 65537, 300000};
    for (int32_t method : {LzoMethodFast, LzoMethodSegmented, LzoMethodHigh}) {
        for (DataKind kind : {DataKind::Random, DataKind::Text, DataKind::Records, DataKind::Runs}) {
            for (size_t n : sizes) {
                SCOPED_TRACE("method " + std::to_string(method) + " " + DataKindName(kind) +
                             " n " + std::to_string(n));
                const Bytes src = MakeData(kind, n, static_cast<uint32_t>(n * 7 + method));
                const Bytes coded = Encode(method, src);
                ASSERT_NE(coded.size() > 0 ? coded[0] : 0, method == LzoMethodSegmented ? 0 : 0x55);
                ExpectDecodes(method, coded, src);
            }
        }
    }
    // A table far smaller than the input still codes it.
    const Bytes big = MakeData(DataKind::Text, 200000, 3);
    ExpectDecodes(LzoMethodFast, Encode(LzoMethodFast, big, 1), big);
}

// A match of exactly `len` bytes at distance `dist`, after `dist` random literals and before
// `tail` other ones, through the chained coder (which finds it wherever it is).
TEST(LzoEncode, MatchFormsAtTheirLimits) {
    enum Form { M2 = 2, M3 = 3, M3Long, M4, M4Long };
    struct Row { uint32_t dist; size_t len, tail; Form form; };
    const Row rows[] = {
        {100, 8, 18, M2},     {100, 9, 19, M3},      {2048, 5, 18, M2},    {2049, 5, 19, M3},
        {3000, 33, 0, M3},    {3000, 34, 1, M3Long}, {16384, 5, 30, M3},   {16384, 40, 3, M3Long},
        {16385, 5, 30, M4},   {20000, 9, 25, M4},    {20000, 10, 25, M4Long}, {49151, 300, 0, M4Long},
        {1, 1000, 4, M3Long}, {40000, 3000, 19, M4Long},
    };
    for (const Row& r : rows) {
        SCOPED_TRACE(std::to_string(r.dist) + " " + std::to_string(r.len));
        Bytes src = RandomBytes(r.dist, r.dist);
        for (size_t i = 0; i < r.len; ++i) src.push_back(src[i]);
        Bytes tail = RandomBytes(r.tail, 99);
        if (r.tail > 0) tail[0] = static_cast<uint8_t>(src[r.len] ^ 1);
        src.insert(src.end(), tail.begin(), tail.end());
        const Bytes coded = Encode(LzoMethodHigh, src);
        ExpectDecodes(LzoMethodHigh, coded, src);
        // The first run's header (one byte below 239 literals), the literals, the match.
        const size_t header = r.dist <= 238 && r.dist != 68 ? 1 : 2 + (r.dist - 19) / 255;
        const uint8_t t = coded[header + r.dist];
        const Form form = t >= 64 ? M2 : t > 32 ? M3 : t == 32 ? M3Long : (t & 7) != 0 ? M4 : M4Long;
        EXPECT_EQ(form, r.form) << "instruction " << int(t);
    }
}

// The first literal run of a stream whose match comes after `run` bytes: never a first byte
// of 0x55, even where the bytes behind it imitate a container header.
TEST(LzoEncode, FirstRunsAroundTheContainerTag) {
    struct Row { size_t run; Bytes head; };
    const Row rows[] = {{67, {84}}, {68, {0, 50}}, {69, {86}}, {238, {255}}, {239, {0, 221}}, {2100, {0}}};
    for (int32_t method : {LzoMethodFast, LzoMethodHigh}) {
        for (const Row& r : rows) {
            SCOPED_TRACE(r.run);
            Bytes src = RandomBytes(r.run, static_cast<uint32_t>(r.run));
            // Behind a tag these bytes would pass the container test: n = 2, T = 0, a segment 0
            // of 5 bytes ending with the end marker.
            const uint8_t fake[] = {2, 2 ^ 0x55, 0, 0, 0, 0, 5, 0, 0, 0, 7, 7, 0x11, 0, 0};
            std::memcpy(src.data(), fake, sizeof fake);
            const Bytes again = src;
            src.insert(src.end(), again.begin(), again.end());
            const Bytes coded = Encode(method, src);
            EXPECT_TRUE(std::equal(r.head.begin(), r.head.end(), coded.begin()));
            ExpectDecodes(method, coded, src);
        }
    }
}

TEST(LzoEncode, ContainerSegmentCounts) {
    struct Row { size_t n; uint32_t segments; };
    const Row rows[] = {{0, 2}, {1, 2}, {65536, 2}, {65537, 2}, {131073, 3}, {2u << 20, 32}, {(2u << 20) + 1, 32}};
    for (const Row& r : rows) {
        const Bytes src = MakeData(DataKind::Text, r.n, 1);
        const Bytes coded = Encode(LzoMethodSegmented, src);
        EXPECT_EQ(coded[1], r.segments) << r.n;
        ExpectDecodes(LzoMethodSegmented, coded, src);
    }
    EXPECT_EQ(Encode(LzoMethodSegmented, {}),
              (Bytes{0x55, 2, 0x57, 0, 0, 0, 0, 3, 0, 0, 0, 0x11, 0, 0, 0x11, 0, 0}));
    EXPECT_EQ(Encode(LzoMethodFast, {}), (Bytes{0x11, 0, 0}));
    EXPECT_EQ(Encode(LzoMethodHigh, {'a'}), (Bytes{18, 'a', 0x11, 0, 0}));
}

TEST(LzoEncode, CheckOrderAndSizes) {
    struct SizeRow { int32_t method; uint32_t maxLen; ZyrStatus status; uint32_t size; };
    const SizeRow sizeRows[] = {
        {0, 1, StatusOk, 4160}, {0, 8192, StatusOk, 8256}, {1, 65536, StatusOk, 65600}, {0, 0x7FFFFFFF, StatusOk, 65600},
        {2, 1, StatusOk, 262208}, {0, 0, StatusBadSize, 0}, {3, 0x80000000u, StatusBadSize, 0},
        {3, 10, StatusBadArgument, 0}, {-1, 10, StatusBadArgument, 0},
    };
    for (const SizeRow& r : sizeRows) {
        uint32_t size = 0;
        std::vector<uint32_t> record(262208 / 4);
        EXPECT_EQ(zyrsEncodeLZOGetSize(r.method, r.maxLen, &size), r.status) << r.method << " " << r.maxLen;
        EXPECT_EQ(size, r.size);
        EXPECT_EQ(zyrsEncodeLZOInit_8u(r.method, r.maxLen, reinterpret_cast<uint8_t*>(record.data())), r.status);
    }
    EXPECT_EQ(zyrsEncodeLZOGetSize(0, 1, nullptr), StatusNullPointer);
    EXPECT_EQ(zyrsEncodeLZOInit_8u(3, 0, nullptr), StatusNullPointer);

    // Encode: each row damages a valid call (a record word, the capacity, the length, dst).
    struct Row { int32_t method; uint32_t srcLen; int capDelta; size_t word; uint32_t value; bool nullDst; ZyrStatus status; };
    const Row rows[] = {
        {0, 1000, 0, 0, 0, false, StatusOk},            {1, 1000, 0, 0, 0, false, StatusOk},
        {0, 1000, -1, 0, 0, false, StatusBadSize},      {1, 1000, -1, 0, 0, false, StatusBadSize},
        {0, 0x80000000u, -1, 0, 0, true, StatusNullPointer}, {0, 0x80000000u, 0, 0, 1, false, StatusBadSize},
        {0, 1000, 0, 0, 1, false, StatusBadContext},    {0, 1000, 0, 4, 3, false, StatusBadContext},
        {0, 1000, 0, 12, 9, false, StatusBadContext},   {1, 1000, 0, 12, 15, false, StatusBadContext},
        {2, 1000, 0, 12, 14, false, StatusBadContext},  {0, 1000, -1, 0, 7, false, StatusBadContext},
    };
    const Bytes src = MakeData(DataKind::Text, 1000, 2);
    for (size_t i = 0; i < std::size(rows); ++i) {
        const Row& r = rows[i];
        std::vector<uint32_t> record(262208 / 4);
        auto* state = reinterpret_cast<uint8_t*>(record.data());
        ASSERT_EQ(zyrsEncodeLZOInit_8u(r.method, 1000, state), StatusOk);
        if (r.value != 0) zyrdc::store_u32le(state + r.word, r.value);
        Bytes dst(4000);
        uint32_t len = static_cast<uint32_t>(zyrdc::lzo::EncodeBound(r.method, 1000) + r.capDelta);
        const uint32_t before = len;
        EXPECT_EQ(zyrsEncodeLZO_8u(src.data(), r.srcLen, r.nullDst ? nullptr : dst.data(), &len, state), r.status)
            << "row " << i;
        EXPECT_TRUE(r.status == StatusOk || len == before) << "row " << i;
    }
}

// Both builds must write these bytes: CRC-32s of each method's output over fixed inputs.
TEST(LzoEncode, SameBytesInBothBuilds) {
    struct Row { int32_t method; DataKind kind; size_t n; uint32_t crc; };
    const Row rows[] = {
        {0, DataKind::Text, 100000, 0x8e07cd4b}, {1, DataKind::Records, 300000, 0xf2edf63d},
        {2, DataKind::Text, 100000, 0x13660fb2}, {2, DataKind::Runs, 70000, 0x873ce893},
    };
    for (const Row& r : rows) {
        const Bytes coded = Encode(r.method, MakeData(r.kind, r.n, 11));
        uint32_t crc = 0;
        ASSERT_EQ(zyrsCRC32_8u(coded.data(), static_cast<int32_t>(coded.size()), &crc), StatusOk);
        EXPECT_EQ(crc, r.crc) << "method " << r.method << std::hex << " 0x" << crc;
    }
}

}  // namespace
