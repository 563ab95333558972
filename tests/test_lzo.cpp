// LZO1X: stream and container rules on hand-built streams; liblzo2's streams through both
// decoders, whole and truncated, against guard pages. The encoder's methods back through both
// decoders and liblzo2 into exactly the bound; its instruction forms at their limits, segment
// counts, a damaged segment, check orders, and the bytes both builds write.
#include <gtest/gtest.h>

#include <cstring>
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
using Decoder = ZyrStatus (*)(const uint8_t*, uint32_t, uint8_t*, uint32_t*);

Bytes Cat(std::initializer_list<Bytes> parts) {
    Bytes all;
    for (const Bytes& p : parts) all.insert(all.end(), p.begin(), p.end());
    return all;
}
Bytes Str(const char* s) { return Bytes(s, s + std::strlen(s)); }

// Decodes with the source and the destination each ending at a guard page; the destination
// holds `cap` bytes. Returns the status, and the output in *out on success.
ZyrStatus Guarded(Decoder fn, const Bytes& src, size_t cap, Bytes* out) {
    GuardedBuffer in(src.size()), dst(cap);
    if (!src.empty()) in.fill(src);  // fill() would pass memcpy a null source
    uint32_t len = static_cast<uint32_t>(cap);
    const ZyrStatus s = fn(in.data(), static_cast<uint32_t>(src.size()), dst.data(), &len);
    if (s == StatusOk) out->assign(dst.data(), dst.data() + len);
    return s;
}

const Bytes kEnd = {0x11, 0x00, 0x00};
const Bytes kAbc = Cat({{20}, Str("abc"), kEnd});  // a 3-literal start, then the end marker
const Bytes kRun2100 = Cat({{0, 0, 0, 0, 0, 0, 0, 0, 0, 42}, RandomBytes(2100, 5)});  // 18 + 8 x 255 + 42
const Bytes kTail60 = RandomBytes(60, 3), kTail = Cat({{0, 42}, kTail60, kEnd});  // 18 + 42 literals
// A one-segment container is recognised only when the segment's first four bytes, read as
// a size, point at its end marker: a first run of 40 literals starting with three zeros,
// five 2-byte and one 3-byte match, the end marker: 57 bytes, first byte 17 + 40 = 57.
const Bytes kSegment57 =
    Cat({{57, 0, 0, 0}, RandomBytes(37, 9), {64, 0, 64, 0, 64, 0, 64, 0, 64, 0}, {33, 0, 0}, kEnd});

// Stream and container rules through both decoders (the trusted one on valid streams only).
TEST(Lzo, StreamRulesOnHandBuiltStreams) {
    Bytes afterRun(kRun2100.begin() + 10, kRun2100.end());
    afterRun.insert(afterRun.end(), 3, afterRun.back());  // match of 3 at distance 1
    for (uint8_t c : Str("wxyz")) afterRun.push_back(c);  // 4 literals
    for (int i = 0; i < 3; ++i) afterRun.push_back(afterRun[afterRun.size() - 2050]);
    Bytes segment57(kSegment57.begin() + 1, kSegment57.begin() + 41);
    segment57.insert(segment57.end(), 18, segment57.back());
    const struct { const char* name; Bytes src; size_t cap; ZyrStatus status; Bytes out; } cases[] = {
        {"empty source", {}, 0, StatusOk, {}},
        {"lone end marker, trailing junk unread", {0x11, 0, 0, 0xFF}, 0, StatusOk, {}},
        {"three literals", kAbc, 3, StatusOk, Str("abc")},
        {"destination one byte short", kAbc, 2, StatusCorruptStream, {}},
        {"end marker, trailing-literal bits", Cat({{20}, Str("abc"), {0x11, 2, 0}}), 3, StatusOk, Str("abc")},
        {"two streams back to back", Cat({kAbc, kAbc}), 6, StatusOk, Str("abcabc")},
        {"trailing byte after the end marker", Cat({kAbc, {0x00}}), 64, StatusCorruptStream, {}},
        {"no end marker", {20, 'a', 'b', 'c'}, 64, StatusCorruptStream, {}},
        {"16 as a first byte", Cat({{16}, Str("abc"), kEnd}), 64, StatusCorruptStream, {}},
        {"short match straight after the first run", Cat({{21}, Str("abcd"), {0x04, 0x00}, kEnd}), 64,
         StatusCorruptStream, {}},
        {"match of 3 at 4, 2 trailing literals, 2-byte match at 2",
         Cat({{21}, Str("abcd"), {76 | 2, 0}, Str("xy"), {4, 0}, kEnd}), 64, StatusOk, Str("abcdabcxyxy")},
        {"match before the output", Cat({{18}, Str("a"), {76, 0}, kEnd}), 64, StatusCorruptStream, {}},
        // The same instructions far enough from both ends for the fast loops: then a 60-byte run.
        {"end marker, then a second stream", Cat({kAbc, kTail}), 256, StatusOk, Cat({Str("abc"), kTail60})},
        {"3 bytes 2050 back after a later run",
         Cat({{21}, Str("abcd"), {76, 0}, {1}, Str("wxyz"), {4, 0}, kTail}), 256, StatusCorruptStream, {}},
        {"run, match, run, 3 bytes 2050 back, run",
         Cat({kRun2100, {64, 0}, {1}, Str("wxyz"), {4, 0}, kTail}), 4096, StatusOk, Cat({afterRun, kTail60})},
        {"run, match, run, then 3 bytes 2050 back",
         Cat({kRun2100, {64, 0}, {1}, Str("wxyz"), {0x04, 0x00}, kEnd}), 4096, StatusOk, afterRun},
        {"zero run past the end", {0, 0, 0}, 64, StatusCorruptStream, {}},
        {"long match length past the end", Cat({{21}, Str("abcd"), {32, 0, 0}}), 64, StatusCorruptStream, {}},
        {"one segment", Cat({{0x55, 1, 0x54, 58, 0, 0, 0}, kSegment57}), 58, StatusOk, segment57},
        {"two segments", Cat({{0x55, 2, 0x57, 6, 0, 0, 0, 7, 0, 0, 0}, kAbc, kAbc}), 6, StatusOk,
         Str("abcabc")},
        // Segment 0 without its end marker: not a container, and as a plain stream ("U" starts a
        // run of 68 literals) it runs out.
        {"segment 0 unended", Cat({{0x55, 2, 0x57, 6, 0, 0, 0, 4, 0, 0, 0, 20}, Str("abc"), kAbc}), 64,
         StatusCorruptStream, {}},
    };
    for (const auto& c : cases) {
        Bytes out;
        EXPECT_EQ(Guarded(zyrsDecodeLZOSafe_8u, c.src, c.cap, &out), c.status) << c.name;
        if (c.status != StatusOk) continue;
        EXPECT_EQ(out, c.out) << c.name;
        out.clear();
        EXPECT_EQ(Guarded(zyrsDecodeLZO_8u, c.src, c.out.size(), &out), StatusOk) << c.name;
        EXPECT_EQ(out, c.out) << c.name;
    }
}

#if defined(ZYRDC_HAVE_LZO2)
Bytes Compress(const Bytes& in, bool best) {
    static const int kInit = lzo_init();
    EXPECT_EQ(kInit, LZO_E_OK);
    Bytes out(in.size() + in.size() / 16 + 64 + 3);
    std::vector<uint8_t> work(LZO1X_999_MEM_COMPRESS);
    lzo_uint len = out.size();
    const int r = best ? lzo1x_999_compress(in.data(), in.size(), out.data(), &len, work.data())
                       : lzo1x_1_compress(in.data(), in.size(), out.data(), &len, work.data());
    EXPECT_EQ(r, LZO_E_OK);
    out.resize(len);
    return out;
}

// lzo1x_999 may follow a first literal run of 2049 bytes or more with a 3-byte match 2049
// to 3072 back: liblzo2 decodes that, this format refuses it (a stream's first run must be
// followed by an ordinary match).
bool OpensWithShortMatch(const Bytes& z) {
    size_t ip = 1, run = z[0] >= 17 ? z[0] - 17u : z[0] + 3u;
    if (z[0] == 0) {
        for (run = 18; z[ip] == 0; ++ip) run += 255;
        run += z[ip++];
    }
    return z.size() > 3 && ip + run < z.size() && z[ip + run] < 16;  // not the lone end marker
}

// Every decoder, into a destination of exactly the decoded size against a guard page, and
// every truncation of the middle-sized streams fails cleanly (the fuzz harness holds the safe
// decoder against the bytewise twin on damaged streams).
TEST(Lzo, DecodesLiblzo2StreamsExactly) {
    const size_t sizes[] = {0, 1, 2, 3, 5, 16, 100, 1000, 4097, 65543, 300001};
    uint32_t seed = 1;
    int refused = 0;
    for (DataKind kind : {DataKind::Random, DataKind::Text, DataKind::Runs, DataKind::Periodic,
                          DataKind::Mixed}) {
        for (size_t n : sizes) {
            const Bytes data = MakeData(kind, n, ++seed);
            for (bool best : {false, true}) {
                const Bytes z = Compress(data, best);
                SCOPED_TRACE(testing::Message() << DataKindName(kind) << " n " << n << " best " << best);
                Bytes out;
                ASSERT_EQ(Guarded(zyrsDecodeLZO_8u, z, n, &out), StatusOk);
                ASSERT_EQ(out, data);
                if (OpensWithShortMatch(z)) {  // liblzo2 accepts this opening, the checked decoder does not
                    ++refused;
                    ASSERT_EQ(Guarded(zyrsDecodeLZOSafe_8u, z, n, &out), StatusCorruptStream);
                    continue;
                }
                ASSERT_EQ(Guarded(zyrsDecodeLZOSafe_8u, z, n, &out), StatusOk);
                ASSERT_EQ(out, data);
                if (n == 0) continue;  // the lone end marker: no stream to decode
                out.assign(n, 0);  // the checked decoder's bytewise twin
                size_t got = 0;
                ASSERT_EQ(StatusOk, zyrdc::lzo::DecodePlainChecked<zyrdc::lzo::Copies::Bytewise>(
                                        z.data(), z.size(), out.data(), n, &got));
                ASSERT_TRUE(got == n && out == data);
                ASSERT_EQ(Guarded(zyrsDecodeLZOSafe_8u, z, n - 1, &out), StatusCorruptStream);
                for (size_t cut = 1; cut < z.size() && n >= 100 && n <= 4097; ++cut) {
                    const Bytes part(z.begin(), z.begin() + ptrdiff_t(cut));
                    ASSERT_EQ(Guarded(zyrsDecodeLZOSafe_8u, part, n, &out), StatusCorruptStream) << cut;
                }
            }
        }
    }
    EXPECT_LE(refused, 6);  // incompressible openings only
}

#endif

// Encodes through the entry points into a destination of exactly the bound, ending at a
// guard page, from a source that ends at one.
Bytes Encode(int32_t method, const Bytes& src, uint32_t maxInputLen = 0) {
    const auto n = static_cast<uint32_t>(src.size());
    const uint32_t hint = maxInputLen != 0 ? maxInputLen : std::max<uint32_t>(1, n);
    uint32_t size = 0;
    EXPECT_EQ(zyrsEncodeLZOGetSize(method, hint, &size), StatusOk);
    std::vector<uint32_t> state(size / 4);
    auto* record = reinterpret_cast<uint8_t*>(state.data());
    EXPECT_EQ(zyrsEncodeLZOInit_8u(method, hint, record), StatusOk);
    const auto bound = static_cast<uint32_t>(zyrdc::lzo::EncodeBound(method, src.size()));
    GuardedBuffer in(src.size()), out(bound);
    if (!src.empty()) in.fill(src);
    uint32_t len = bound;
    EXPECT_EQ(zyrsEncodeLZO_8u(in.data(), n, out.data(), &len, record), StatusOk);
    return Bytes(out.data(), out.data() + len);
}

// Both decoders give the source back into exactly its size, and liblzo2 too for a plain
// stream (fuzz_lzo_roundtrip checks a container's segments with it one by one).
void ExpectDecodes(int32_t method, const Bytes& coded, const Bytes& src) {
    for (Decoder fn : {zyrsDecodeLZOSafe_8u, zyrsDecodeLZO_8u}) {
        Bytes out;
        ASSERT_EQ(Guarded(fn, coded, src.size(), &out), StatusOk);
        ASSERT_TRUE(out == src) << (fn == zyrsDecodeLZO_8u ? "trusted" : "checked") << " decoder";
    }
    ASSERT_EQ(zyrdc::lzo::IsContainer(coded.data(), coded.size()), method == LzoMethodSegmented);
#if defined(ZYRDC_HAVE_LZO2)
    if (method == LzoMethodSegmented) return;
    Bytes out(src.size() + 1);
    lzo_uint len = out.size();
    ASSERT_EQ(lzo1x_decompress_safe(coded.data(), coded.size(), out.data(), &len, nullptr), LZO_E_OK);
    out.resize(len);
    ASSERT_TRUE(out == src) << "liblzo2";
#endif
}

// Sizes around the first run's header forms and the segments' size. Both builds must write
// the same bytes: the CRC-32 of each method's streams, recorded once.
TEST(LzoEncode, EveryMethodKindAndSizeDecodesEverywhereAndIsPinned) {
    const size_t sizes[] = {0, 1, 20, 21, 22, 67, 68, 69, 238, 239, 1000, 65536, 65537, 300000};
    const struct { int32_t method; uint32_t crc; } methods[] = {
        {LzoMethodFast, 0x0f0b1e29}, {LzoMethodSegmented, 0x4d2babd6}, {LzoMethodHigh, 0x7d9df1cd}};
    for (const auto& m : methods) {
        uint32_t crc = 0;
        for (DataKind kind : {DataKind::Random, DataKind::Text, DataKind::Records, DataKind::Runs}) {
            for (size_t n : sizes) {
                SCOPED_TRACE(testing::Message() << m.method << " " << DataKindName(kind) << " " << n);
                const Bytes src = MakeData(kind, n, static_cast<uint32_t>(n * 7 + size_t(m.method)));
                const Bytes coded = Encode(m.method, src);
                ASSERT_NE(coded[0], m.method == LzoMethodSegmented ? 0 : 0x55);
                ExpectDecodes(m.method, coded, src);
                ASSERT_EQ(zyrsCRC32_8u(coded.data(), static_cast<int32_t>(coded.size()), &crc), StatusOk);
            }
        }
        EXPECT_EQ(crc, m.crc) << "method " << m.method << std::hex << " 0x" << crc;
    }
    // A table far smaller than the input still codes it.
    const Bytes big = MakeData(DataKind::Text, 200000, 3);
    ExpectDecodes(LzoMethodFast, Encode(LzoMethodFast, big, 5000), big);
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

// Segment counts by size. Damaging segment 1 of three (segment 0 decides the container
// test) fails the call and leaves the count alone, yet the segments around it are still
// decoded in their places.
TEST(LzoEncode, ContainerSegmentCountsAndADamagedSegment) {
    struct Row { size_t n; uint32_t segments; };
    const Row rows[] = {{0, 2},      {1, 2},         {65536, 2}, {65537, 2},
                        {131073, 3}, {2u << 20, 32}, {(2u << 20) + 1, 32}};
    for (const Row& r : rows) {
        const Bytes src = MakeData(DataKind::Text, r.n, 1);
        const Bytes coded = Encode(LzoMethodSegmented, src);
        EXPECT_EQ(coded[1], r.segments) << r.n;
        ExpectDecodes(LzoMethodSegmented, coded, src);
    }
    const Bytes src = MakeData(DataKind::Text, 131073, 1);
    Bytes coded = Encode(LzoMethodSegmented, src);
    coded[15 + zyrdc::load_u32le(&coded[7]) + zyrdc::load_u32le(&coded[11]) - 1] = 0x7F;  // no end marker
    GuardedBuffer dst(src.size());
    uint32_t len = 12345;
    EXPECT_EQ(zyrsDecodeLZOSafe_8u(coded.data(), static_cast<uint32_t>(coded.size()), dst.data(), &len),
              StatusCorruptStream);
    EXPECT_EQ(len, 12345u);
    const size_t share = src.size() / 3;
    EXPECT_TRUE(std::equal(src.begin(), src.begin() + share, dst.data()));
    EXPECT_TRUE(std::equal(src.begin() + 2 * share, src.end(), dst.data() + 2 * share));
}

// The decoders check their three pointers first. GetSize and Init check the record pointer,
// then the length hint, then the method; Encode checks pointers, then the capacity against
// the bound, then the record's words. A refused call leaves the count alone.
TEST(Lzo, CheckOrdersAndSizes) {
    uint8_t buf[8] = {};
    uint32_t eight = 8;
    for (Decoder fn : {zyrsDecodeLZOSafe_8u, zyrsDecodeLZO_8u}) {
        EXPECT_EQ(fn(nullptr, 0, buf, &eight), StatusNullPointer);
        EXPECT_EQ(fn(buf, 0, nullptr, &eight), StatusNullPointer);
        EXPECT_EQ(fn(buf, 0, buf, nullptr), StatusNullPointer);
    }
    EXPECT_EQ(eight, 8u);
    std::vector<uint32_t> record(262208 / 4);  // the largest record, reused by every call
    auto* state = reinterpret_cast<uint8_t*>(record.data());
    struct SizeRow { int32_t method; uint32_t maxLen; ZyrStatus status; uint32_t size; };
    const SizeRow sizeRows[] = {
        {0, 1, StatusOk, 4160},      {0, 8192, StatusOk, 8256},          {1, 65536, StatusOk, 65600},
        {0, 0x7FFFFFFF, StatusOk, 65600}, {2, 1, StatusOk, 262208},      {0, 0, StatusBadSize, 0},
        {3, 0x80000000u, StatusBadSize, 0}, {3, 10, StatusBadArgument, 0}, {-1, 10, StatusBadArgument, 0},
    };
    for (const SizeRow& r : sizeRows) {
        uint32_t size = 0;
        EXPECT_EQ(zyrsEncodeLZOGetSize(r.method, r.maxLen, &size), r.status) << r.method << " " << r.maxLen;
        EXPECT_EQ(size, r.size);
        EXPECT_EQ(zyrsEncodeLZOInit_8u(r.method, r.maxLen, state), r.status);
    }
    EXPECT_EQ(zyrsEncodeLZOGetSize(0, 1, nullptr), StatusNullPointer);
    EXPECT_EQ(zyrsEncodeLZOInit_8u(3, 0, nullptr), StatusNullPointer);

    // Encode: each row damages a valid call (a record word, the capacity, the length, dst).
    struct Row {
        int32_t method; uint32_t srcLen; int capDelta; size_t word; uint32_t value;
        bool nullDst; ZyrStatus status;
    };
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
        ASSERT_EQ(zyrsEncodeLZOInit_8u(r.method, 1000, state), StatusOk);
        if (r.value != 0) zyrdc::store_u32le(state + r.word, r.value);
        Bytes dst(4000);
        uint32_t len = static_cast<uint32_t>(zyrdc::lzo::EncodeBound(r.method, 1000) + r.capDelta);
        const uint32_t before = len;
        uint8_t* d = r.nullDst ? nullptr : dst.data();
        EXPECT_EQ(zyrsEncodeLZO_8u(src.data(), r.srcLen, d, &len, state), r.status) << "row " << i;
        EXPECT_TRUE(r.status == StatusOk || len == before) << "row " << i;
    }
}

}  // namespace
