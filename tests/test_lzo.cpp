// LZO1X decoding: the entry sequence, stream and container rules on hand-built streams,
// liblzo2's streams of many kinds and sizes through both decoders and the bytewise twin,
// containers of 2 to 32 segments, and truncated or damaged streams against guard pages.
#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "core/bits.hpp"
#include "data.hpp"
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

// "U", n, n ^ 0x55, T, the sizes of all segments but the last, the segments.
Bytes Container(const std::vector<Bytes>& segments, uint32_t total) {
    const auto n = static_cast<uint8_t>(segments.size());
    Bytes c = {0x55, n, static_cast<uint8_t>(n ^ 0x55), 0, 0, 0, 0};
    zyrdc::store_u32le(c.data() + 3, total);
    for (size_t i = 0; i + 1 < segments.size(); ++i) {
        uint8_t size[4];
        zyrdc::store_u32le(size, static_cast<uint32_t>(segments[i].size()));
        c.insert(c.end(), size, size + 4);
    }
    for (const Bytes& s : segments) c.insert(c.end(), s.begin(), s.end());
    return c;
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

// The bytewise twin of the checked decoder, into `cap` bytes.
ZyrStatus Twin(const Bytes& z, size_t cap, Bytes* out) {
    out->assign(cap, 0);
    size_t got = 0;
    const ZyrStatus s = zyrdc::lzo::DecodePlainChecked<zyrdc::lzo::Copies::Bytewise>(z.data(), z.size(),
                                                                                      out->data(), cap, &got);
    out->resize(got);
    return s;
}

// Byte-level stream and container rules, run through both decoders (the trusted one only
// where the stream is valid: it has no error return on a plain stream.
TEST(Lzo, StreamRulesOnHandBuiltStreams) {
    Bytes afterRun(kRun2100.begin() + 10, kRun2100.end());
    afterRun.insert(afterRun.end(), 3, afterRun.back());  // match of 3 at distance 1
    for (uint8_t c : Str("wxyz")) afterRun.push_back(c);  // 4 literals
    for (int i = 0; i < 3; ++i) afterRun.push_back(afterRun[afterRun.size() - 2050]);
    Bytes segment57(kSegment57.begin() + 1, kSegment57.begin() + 41);
    segment57.insert(segment57.end(), 18, segment57.back());
    const struct {
        const char* name;
        Bytes src;
        size_t cap;
        ZyrStatus status;
        Bytes out;  // on success
    } cases[] = {
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
        {"container of one segment", Container({kSegment57}, 58), 58, StatusOk, segment57},
        {"container of two segments", Container({kAbc, kAbc}, 6), 6, StatusOk, Str("abcabc")},
        // Segment 0 without its end marker: not a container, and as a plain stream ("U" starts a
        // run of 68 literals) it runs out.
        {"segment 0 unended", Container({Cat({{20}, Str("abc")}), kAbc}, 6), 64, StatusCorruptStream, {}},
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

// Each decoder checks its three pointers before anything else; the count stays.
TEST(Lzo, CheckOrder) {
    uint8_t buf[8] = {};
    uint32_t len = 8;
    const struct {
        const char* what;
        const uint8_t* src;
        uint8_t* dst;
        uint32_t* len;
    } rows[] = {{"null source", nullptr, buf, &len}, {"null destination", buf, nullptr, &len},
                {"null count", buf, buf, nullptr}};
    for (Decoder fn : {zyrsDecodeLZOSafe_8u, zyrsDecodeLZO_8u}) {
        for (const auto& r : rows) EXPECT_EQ(fn(r.src, 0, r.dst, r.len), StatusNullPointer) << r.what;
    }
    EXPECT_EQ(len, 8u);
}

#if defined(ZYRDC_HAVE_LZO2)

// ---- liblzo2 as the oracle ------------------------------------------------------------------

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
                ASSERT_EQ(Twin(z, n, &out), StatusOk);
                ASSERT_EQ(out, data);
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

// Segments of T / n bytes each (the last one T / n + T mod n) land at their fixed places;
// a damaged segment fails the call but the others are still decoded.
TEST(Lzo, ContainersOfUpTo32Segments) {
    const Bytes data = MakeData(DataKind::Mixed, 100003, 77);
    for (uint32_t n = 2; n <= 32; ++n) {
        const uint32_t total = static_cast<uint32_t>(data.size()) - n;  // a remainder for the last one
        const uint32_t share = total / n;
        std::vector<Bytes> segs;
        for (uint32_t i = 0; i < n; ++i) {
            const uint32_t len = share + (i + 1 == n ? total % n : 0);
            segs.push_back(Compress(Bytes(data.begin() + i * share, data.begin() + i * share + len), false));
            ASSERT_FALSE(OpensWithShortMatch(segs.back()));
        }
        for (Decoder fn : {zyrsDecodeLZOSafe_8u, zyrsDecodeLZO_8u}) {
            Bytes out;
            ASSERT_EQ(Guarded(fn, Container(segs, total), total, &out), StatusOk) << n;
            ASSERT_TRUE(std::equal(out.begin(), out.end(), data.begin())) << n;
        }
        // Damage segment 1 (segment 0 decides the container test): the call fails, yet the
        // segments after it are still decoded.
        segs[1].resize(segs[1].size() - 1);
        segs[1].back() = 0x7F;
        GuardedBuffer dst(total);
        const Bytes c = Container(segs, total);
        uint32_t len = 12345;
        EXPECT_EQ(zyrsDecodeLZOSafe_8u(c.data(), static_cast<uint32_t>(c.size()), dst.data(), &len),
                  StatusCorruptStream);
        EXPECT_EQ(len, 12345u);
        const size_t last = size_t{n - 1} * share;
        EXPECT_TRUE(n == 2 || std::equal(dst.data() + last, dst.data() + total, &data[last]));
    }
}

#else
TEST(Lzo, DecodesLiblzo2Streams) { GTEST_SKIP() << "liblzo2 is not installed for this build"; }
#endif

}  // namespace
