// LZO1X decoding: the entry sequence and stream rules on hand-built streams, liblzo2's
// streams of many kinds and sizes through both decoders and the bytewise twin, containers of
// 1 to 32 segments, and truncated or damaged streams against guard pages.
#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "core/bits.hpp"
#include "lzo/lzo.hpp"
#include "support.hpp"
#include "zyrdc.h"

#if defined(ZYRDC_HAVE_LZO2)
#include <lzo/lzo1x.h>
#endif

namespace {

using Bytes = std::vector<uint8_t>;
using zyrdc::test::GuardedBuffer;
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
const Bytes kRun2100 = [] {
    Bytes b = {0, 0, 0, 0, 0, 0, 0, 0, 0, 42};  // t = 0, 8 zero bytes, 42: 18 + 2040 + 42
    const Bytes lit = RandomBytes(2100, 5);
    b.insert(b.end(), lit.begin(), lit.end());
    return b;
}();

struct Case {
    const char* name;
    Bytes src;
    size_t cap;
    ZyrStatus status;
    Bytes out;  // on success
};

// Byte-level stream rules, run through both decoders (the trusted one only where the stream
// is valid: it has no error return on a plain stream).
TEST(Lzo, StreamRulesOnHandBuiltStreams) {
    const Bytes lits2100(kRun2100.begin() + 10, kRun2100.end());
    const Bytes afterRun = [&] {
        Bytes o = lits2100;
        o.insert(o.end(), 3, o.back());                      // match of 3 at distance 1
        for (uint8_t c : Str("wxyz")) o.push_back(c);        // 4 literals
        for (int i = 0; i < 3; ++i) o.push_back(o[o.size() - 2050]);
        return o;
    }();
    const Case cases[] = {
        {"empty source", {}, 0, StatusOk, {}},
        {"lone end marker, trailing junk unread", {0x11, 0, 0, 0xFF}, 0, StatusOk, {}},
        {"three literals", kAbc, 3, StatusOk, Str("abc")},
        {"destination one byte short", kAbc, 2, StatusCorruptStream, {}},
        {"end marker with trailing-literal bits", Cat({{20}, Str("abc"), {0x11, 0x02, 0x00}}), 3, StatusOk, Str("abc")},
        {"two streams back to back", Cat({kAbc, kAbc}), 6, StatusOk, Str("abcabc")},
        {"trailing byte after the end marker", Cat({kAbc, {0x00}}), 64, StatusCorruptStream, {}},
        {"no end marker", {20, 'a', 'b', 'c'}, 64, StatusCorruptStream, {}},
        {"16 as a first byte", Cat({{16}, Str("abc"), kEnd}), 64, StatusCorruptStream, {}},
        {"short match straight after the first run", Cat({{21}, Str("abcd"), {0x04, 0x00}, kEnd}), 64,
         StatusCorruptStream, {}},
        {"match of 3 at 4, 2 trailing literals, 2-byte match at 2",
         Cat({{21}, Str("abcd"), {76 | 2, 0}, Str("xy"), {0x04, 0x00}, kEnd}), 64, StatusOk, Str("abcdabcxyxy")},
        {"match reaching before the output", Cat({{18}, Str("a"), {76, 0}, kEnd}), 64, StatusCorruptStream, {}},
        {"run, match, run, then 3 bytes 2050 back",
         Cat({kRun2100, {64, 0}, {1}, Str("wxyz"), {0x04, 0x00}, kEnd}), 4096, StatusOk, afterRun},
        {"zero run past the end", {0, 0, 0}, 64, StatusCorruptStream, {}},
        {"long match length past the end", Cat({{21}, Str("abcd"), {32, 0, 0}}), 64, StatusCorruptStream, {}},
    };
    for (const Case& c : cases) {
        Bytes out;
        EXPECT_EQ(Guarded(zyrsDecodeLZOSafe_8u, c.src, c.cap, &out), c.status) << c.name;
        if (c.status != StatusOk) continue;
        EXPECT_EQ(out, c.out) << c.name;
        out.clear();
        EXPECT_EQ(Guarded(zyrsDecodeLZO_8u, c.src, c.out.size(), &out), StatusOk) << c.name;
        EXPECT_EQ(out, c.out) << c.name;
    }
}

TEST(Lzo, NullPointersComeFirst) {
    uint8_t buf[8] = {};
    uint32_t len = 8;
    for (Decoder fn : {zyrsDecodeLZOSafe_8u, zyrsDecodeLZO_8u}) {
        EXPECT_EQ(fn(nullptr, 0, buf, &len) + fn(buf, 0, nullptr, &len) + fn(buf, 0, buf, nullptr), 3 * StatusNullPointer);
    }
    EXPECT_EQ(len, 8u);
}

// ---- containers ------------------------------------------------------------------------------

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

// A one-segment container is recognised only when the segment's first four bytes, read as
// a size, point at its end marker: a first run of 40 literals starting with three zeros,
// five 2-byte and one 3-byte match, the end marker: 57 bytes, first byte 17 + 40 = 57.
TEST(Lzo, OneSegmentContainerAndLookalikes) {
    Bytes seg = {57, 0, 0, 0};
    const Bytes lit = RandomBytes(37, 9);
    seg.insert(seg.end(), lit.begin(), lit.end());
    seg = Cat({seg, {64, 0, 64, 0, 64, 0, 64, 0, 64, 0}, {33, 0, 0}, kEnd});
    ASSERT_EQ(seg.size(), 57u);
    Bytes want(seg.begin() + 1, seg.begin() + 41);
    want.insert(want.end(), 18, want.back());
    for (Decoder fn : {zyrsDecodeLZOSafe_8u, zyrsDecodeLZO_8u}) {
        Bytes out;
        ASSERT_EQ(Guarded(fn, Container({seg}, 58), 58, &out), StatusOk);
        EXPECT_EQ(out, want);
    }
    // Segment 0 without its end marker: not a container, and as a plain stream ("U" starts a
    // run of 68 literals) it runs out.
    const Bytes abc = Cat({{20}, Str("abc")});
    Bytes out;
    EXPECT_EQ(Guarded(zyrsDecodeLZOSafe_8u, Container({abc, kAbc}, 6), 64, &out), StatusCorruptStream);
    EXPECT_EQ(Guarded(zyrsDecodeLZOSafe_8u, Container({kAbc, kAbc}, 6), 6, &out), StatusOk);
    EXPECT_EQ(out, Str("abcabc"));
}

#if defined(ZYRDC_HAVE_LZO2)

// ---- liblzo2 as the oracle ------------------------------------------------------------------

enum class Kind { Random, Text, Runs, Periodic, Mixed };

Bytes MakeData(Kind kind, size_t n, uint32_t seed) {
    std::mt19937 rng(seed);
    static const char* const kWords[] = {"the ", "quick ", "brown ", "fox ", "jumps ", "over ", "lazy ", "dog. "};
    Bytes b;
    while (b.size() < n) {
        switch (kind) {
            case Kind::Random: b.push_back(static_cast<uint8_t>(rng())); break;
            case Kind::Text: for (const char* w = kWords[rng() % 8]; *w; ++w) b.push_back(static_cast<uint8_t>(*w)); break;
            case Kind::Runs: b.insert(b.end(), 1 + rng() % 300, static_cast<uint8_t>(rng())); break;
            case Kind::Periodic: b.push_back(static_cast<uint8_t>(b.size() % (1 + seed % 37) * 7 + (rng() % 64 == 0))); break;
            case Kind::Mixed: {
                const Bytes part = MakeData(static_cast<Kind>(rng() % 4), 1 + rng() % 5000, rng());
                b.insert(b.end(), part.begin(), part.end());
                break;
            }
        }
    }
    b.resize(n);
    return b;
}

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

// Every decoder, into a destination of exactly the decoded size against a guard page.
TEST(Lzo, DecodesLiblzo2StreamsExactly) {
    const size_t sizes[] = {0, 1, 2, 3, 5, 16, 100, 1000, 4097, 65543, 300001};
    uint32_t seed = 1;
    int refused = 0;
    for (Kind kind : {Kind::Random, Kind::Text, Kind::Runs, Kind::Periodic, Kind::Mixed}) {
        for (size_t n : sizes) {
            const Bytes data = MakeData(kind, n, ++seed);
            for (bool best : {false, true}) {
                const Bytes z = Compress(data, best);
                SCOPED_TRACE(testing::Message() << "kind " << static_cast<int>(kind) << " n " << n << " best " << best);
                Bytes out;
                ASSERT_EQ(Guarded(zyrsDecodeLZO_8u, z, n, &out), StatusOk);
                ASSERT_EQ(out, data);
                if (OpensWithShortMatch(z)) {
                    // liblzo2 accepts this opening, the checked decoder does not.
                    ++refused;
                    ASSERT_EQ(Guarded(zyrsDecodeLZOSafe_8u, z, n, &out), StatusCorruptStream);
                    continue;
                }
                ASSERT_EQ(Guarded(zyrsDecodeLZOSafe_8u, z, n, &out), StatusOk);
                ASSERT_EQ(out, data);
                if (n == 0) continue;  // the lone end marker: no stream to decode
                size_t got = 0;
                out.assign(n, 0);
                ASSERT_EQ(zyrdc::lzo::DecodePlainChecked<zyrdc::lzo::Copies::Bytewise>(z.data(), z.size(), out.data(), n, &got), StatusOk);
                ASSERT_EQ(out, data);
                ASSERT_EQ(Guarded(zyrsDecodeLZOSafe_8u, z, n - 1, &out), StatusCorruptStream);
            }
        }
    }
    EXPECT_LE(refused, 6);  // incompressible openings only
}

// Segments of T / n bytes each (the last one T / n + T mod n) land at their fixed places;
// a damaged segment fails the call but the others are still decoded.
TEST(Lzo, ContainersOfUpTo32Segments) {
    const Bytes data = MakeData(Kind::Mixed, 100003, 77);
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
        std::vector<Bytes> bad = segs;
        bad[1].resize(bad[1].size() - 1);
        bad[1].back() = 0x7F;
        GuardedBuffer dst(total);
        const Bytes c = Container(bad, total);
        uint32_t len = 12345;
        EXPECT_EQ(zyrsDecodeLZOSafe_8u(c.data(), static_cast<uint32_t>(c.size()), dst.data(), &len), StatusCorruptStream);
        EXPECT_EQ(len, 12345u);
        const size_t lastAt = size_t{n - 1} * share;
        if (n > 2) {
            EXPECT_TRUE(std::equal(dst.data() + lastAt, dst.data() + total, data.begin() + static_cast<ptrdiff_t>(lastAt)));
        }
    }
}

// Every truncation of some streams, and thousands of random byte changes: the safe decoder
// fails cleanly or decodes, and agrees with the bytewise twin (status and output).
TEST(Lzo, TruncatedAndDamagedStreamsFailCleanly) {
    std::mt19937 rng(2024);
    for (Kind kind : {Kind::Text, Kind::Runs, Kind::Mixed}) {
        const Bytes data = MakeData(kind, 3000, static_cast<uint32_t>(kind) + 50);
        const Bytes z = Compress(data, kind == Kind::Runs);
        Bytes out;
        for (size_t cut = 1; cut < z.size(); ++cut) {
            ASSERT_EQ(Guarded(zyrsDecodeLZOSafe_8u, Bytes(z.begin(), z.begin() + cut), data.size(), &out), StatusCorruptStream) << cut;
        }
        for (int trial = 0; trial < 3000; ++trial) {
            Bytes bad = z;
            for (int k = 1 + trial % 4; k > 0; --k) bad[rng() % bad.size()] = static_cast<uint8_t>(rng());
            const size_t cap = data.size() + rng() % 64;
            const ZyrStatus s = Guarded(zyrsDecodeLZOSafe_8u, bad, cap, &out);
            ASSERT_TRUE(s == StatusOk || s == StatusCorruptStream) << s;
            Bytes twin(cap);
            size_t got = 0;
            ASSERT_EQ(zyrdc::lzo::DecodePlainChecked<zyrdc::lzo::Copies::Bytewise>(bad.data(), bad.size(), twin.data(), cap, &got), s);
            if (s == StatusOk) {
                ASSERT_EQ(out, Bytes(twin.begin(), twin.begin() + static_cast<ptrdiff_t>(got)));
            }
        }
    }
}

#else
TEST(Lzo, DecodesLiblzo2Streams) { GTEST_SKIP() << "liblzo2 is not installed for this build"; }
#endif

}  // namespace
