// ZFP: the stream record (layout, defaults, check order, parameters, sizes, flush), the
// block coders' edge cases and end-of-buffer behaviour, round trips under each mode, strided
// layouts, vector kernels and coders against their plain twins, and identical streams in
// both builds.
#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <cstring>
#include <functional>
#include <limits>
#include <random>
#include <utility>
#include <vector>

#include "support.hpp"
#include "zfp/zfp.hpp"
#include "zfp_support.hpp"
#include "zyrdc.h"

namespace {

using namespace zyrdc::test;
namespace zfp = zyrdc::zfp;

uintptr_t Addr(const void* p) { return reinterpret_cast<uintptr_t>(p); }
intptr_t Below(const uint8_t* end, const uint8_t* p) { return static_cast<intptr_t>(Addr(end) - Addr(p)); }

ZfpState Started(uint8_t* buf, int32_t len, ZfpParams p = {0, 4171, 64, -10740}) {
    ZfpState s;
    EXPECT_EQ(zyrsEncodeZfpInit_32f(buf, len, &s), StatusOk);
    EXPECT_EQ(zyrsEncodeZfpSet_32f(p.minBits, p.maxBits, p.maxPrec, p.minExp, &s), StatusOk);
    return s;
}

std::vector<float> Filled(float v) { return std::vector<float>(64, v); }

// ---- the record ------------------------------------------------------------------------------

TEST(ZfpState, InitSetsDefaultsAndLeavesTheBlockAreas) {
    int32_t size = 0;
    ASSERT_EQ(zyrsEncodeZfpGetStateSize_32f(&size), StatusOk);
    EXPECT_EQ(size, static_cast<int32_t>(sizeof(ZfpState)));
    ASSERT_EQ(zyrsDecodeZfpGetStateSize_32f(&size), StatusOk);
    EXPECT_EQ(size, sizeof(void*) == 4 ? 560 : 576);

    uint8_t buf[64];
    struct Row {
        int kind;       // 0 encoder Init, 1 decoder Init, 2 encoder InitLong, 3 decoder InitLong
        uint64_t len;   // Init takes the low 32 bits as a signed length
        ZyrStatus status;
        uintptr_t end;  // pEnd - buf
    } rows[] = {
        {0, 1, StatusOk, 1},        {1, 64, StatusOk, 64},
        {0, 0, StatusBadSize, 0},   {1, 0xFFFFFFFFu, StatusBadSize, 0},  // -1
        {2, 64, StatusOk, 64},      {3, (uint64_t{1} << 32) + 7, StatusOk, 7},
        {2, uint64_t{1} << 32, StatusOk, 0}, {3, 0, StatusBadSize, 0},
    };
    for (const Row& r : rows) {
        SCOPED_TRACE(testing::Message() << "kind " << r.kind << " len " << r.len);
        ZfpState s;
        std::memset(&s, 0xA5, sizeof s);
        const auto len32 = static_cast<int32_t>(static_cast<uint32_t>(r.len));
        const ZyrStatus got = r.kind == 0   ? zyrsEncodeZfpInit_32f(buf, len32, &s)
                              : r.kind == 1 ? zyrsDecodeZfpInit_32f(buf, len32, &s)
                              : r.kind == 2 ? zyrsEncodeZfpInitLong_32f(buf, r.len, &s)
                                            : zyrsDecodeZfpInitLong_32f(buf, r.len, &s);
        ASSERT_EQ(got, r.status);
        const auto* bytes = reinterpret_cast<const uint8_t*>(&s);
        for (size_t i = r.status == StatusOk ? offsetof(ZfpState, block) : 0; i < sizeof s; ++i) {
            ASSERT_EQ(bytes[i], 0xA5) << "byte " << i << " touched";
        }
        if (r.status != StatusOk) continue;
        EXPECT_EQ(std::tie(s.magic, s.minBits, s.maxBits, s.maxPrec, s.minExp, s.bitCount, s.bitBuffer),
                  std::make_tuple(0x4B617398u, 0, 4171, 64, -10740, 0, uint64_t{0}));
        EXPECT_TRUE(s.pCur == buf && s.pBegin == buf && Addr(s.pEnd) - Addr(buf) == r.end);
        EXPECT_EQ(Below(s.pEnd, s.pSafeEnd), 528);  // below pBegin for short buffers
    }
}

// Pointers before sizes before the magic word, which the size and init functions never check.
TEST(ZfpState, ChecksPointersThenSizesThenMagic) {
    uint8_t buf[64];
    float block[64] = {};
    int32_t i32;
    int64_t i64;
    ZfpState good = Started(buf, 64), bad = good;
    bad.magic ^= 1;
    ZfpState* b = &bad;
    const struct {
        const char* what;
        std::function<ZyrStatus()> call;
        ZyrStatus status;
    } rows[] = {
        {"size", [] { return zyrsEncodeZfpGetStateSize_32f(nullptr); }, StatusNullPointer},
        {"dsize", [] { return zyrsDecodeZfpGetStateSize_32f(nullptr); }, StatusNullPointer},
        {"init buf", [&] { return zyrsEncodeZfpInit_32f(nullptr, 0, b); }, StatusNullPointer},
        {"init state", [&] { return zyrsDecodeZfpInit_32f(buf, 0, nullptr); }, StatusNullPointer},
        {"initlong", [&] { return zyrsDecodeZfpInitLong_32f(nullptr, 0, b); }, StatusNullPointer},
        {"set", [] { return zyrsEncodeZfpSet_32f(0, 0, 0, 0, nullptr); }, StatusNullPointer},
        {"set magic", [&] { return zyrsDecodeZfpSet_32f(0, 0, 0, 0, b); }, StatusBadContext},
        {"acc", [] { return zyrsDecodeZfpSetAccuracy_32f(1, nullptr); }, StatusNullPointer},
        {"acc magic", [&] { return zyrsEncodeZfpSetAccuracy_32f(1, b); }, StatusBadContext},
        {"bits out", [&] { return zyrsEncodeZfpGetCompressedBitSize_32f(b, nullptr); }, StatusNullPointer},
        {"bits magic", [&] { return zyrsEncodeZfpGetCompressedBitSize_32f(b, &i64); }, StatusBadContext},
        {"long out", [&] { return zyrsEncodeZfpGetCompressedSizeLong_32f(b, nullptr); }, StatusNullPointer},
        {"long state", [&] { return zyrsDecodeZfpGetDecompressedSizeLong_32f(nullptr, &i64); }, StatusNullPointer},
        {"long magic", [&] { return zyrsDecodeZfpGetDecompressedSizeLong_32f(b, &i64); }, StatusBadContext},
        {"size out", [&] { return zyrsDecodeZfpGetDecompressedSize_32f(b, nullptr); }, StatusNullPointer},
        {"size magic", [&] { return zyrsEncodeZfpGetCompressedSize_32f(b, &i32); }, StatusBadContext},
        {"flush", [] { return zyrsEncodeZfpFlush_32f(nullptr); }, StatusNullPointer},
        {"flush magic", [&] { return zyrsEncodeZfpFlush_32f(b); }, StatusBadContext},
        {"enc src", [&] { return zyrsEncodeZfp444_32f(nullptr, 16, 64, b); }, StatusNullPointer},
        {"enc magic", [&] { return zyrsEncodeZfp444_32f(block, 16, 64, b); }, StatusBadContext},
        {"dec dst", [&] { return zyrsDecodeZfp444_32f(b, nullptr, 16, 64); }, StatusNullPointer},
        {"dec magic", [&] { return zyrsDecodeZfp444_32f(b, block, 16, 64); }, StatusBadContext},
    };
    for (const auto& r : rows) {
        EXPECT_EQ(r.call(), r.status) << r.what;
    }
    EXPECT_EQ(std::memcmp(&bad.minBits, &good.minBits, offsetof(ZfpState, block) - 4), 0)
        << "a refused call changed the record";
    EXPECT_EQ(zyrsEncodeZfpInit_32f(buf, 64, b), StatusOk) << "init checks no magic";
}

TEST(ZfpState, SetAccuracyTakesTheExponentFieldAndChangesOnlyMinExp) {
    const double denormal = std::numeric_limits<double>::denorm_min();
    const struct {
        double tolerance;
        int32_t minExp;
    } rows[] = {
        {0.001, -10}, {1.0, 0},  {0.75, -1}, {1536.0, 10}, {0.0, -10740}, {-1.0, -10740},
        {-0.0, -10740}, {std::nan(""), -10740}, {denormal, -1023}, {INFINITY, 1024},
    };
    uint8_t buf[64];
    for (const auto& r : rows) {
        ZfpState s = Started(buf, 64, {3, 100, 20, 5});
        uint8_t* const safeEnd = s.pSafeEnd;
        ASSERT_EQ(zyrsDecodeZfpSetAccuracy_32f(r.tolerance, &s), StatusOk);
        EXPECT_EQ(s.minExp, r.minExp) << r.tolerance;
        EXPECT_TRUE(s.minBits == 3 && s.maxBits == 100 && s.maxPrec == 20 && s.pSafeEnd == safeEnd);
    }
}

TEST(ZfpState, SetStoresUncheckedAndMovesTheSafeEnd) {
    const struct {
        int32_t maxBits;
        intptr_t below;  // pEnd - pSafeEnd
    } rows[] = {{64, 8}, {4171, 528}, {1, 8}, {0, 0}, {65, 16}, {-100, -8}, {INT32_MAX, -268435456}};
    uint8_t buf[16];
    for (const auto& r : rows) {
        ZfpState s = Started(buf, 16);
        ASSERT_EQ(zyrsEncodeZfpSet_32f(5000, r.maxBits, -3, 77, &s), StatusOk);
        EXPECT_EQ(Below(s.pEnd, s.pSafeEnd), r.below) << r.maxBits;
        EXPECT_TRUE(s.minBits == 5000 && s.maxBits == r.maxBits && s.maxPrec == -3 && s.minExp == 77);
    }
}

TEST(ZfpState, FlushWritesAWordOrTheBytesThatFit) {
    const struct {
        int32_t pending;
        int32_t room;
        ZyrStatus status;
        int written;
        int32_t bitCountAfter;
    } rows[] = {
        {12, 16, StatusOk, 8, 0}, {12, 8, StatusOk, 8, 0},  {12, 3, StatusOk, 2, 0},
        {12, 1, StatusStreamExhausted, 1, 4}, {0, 16, StatusOk, 0, 0},
        {64, 3, StatusStreamExhausted, 3, 40}, {1, 1, StatusOk, 1, 0},
    };
    const uint64_t pattern = 0x0123456789ABCDEFull;
    for (const auto& r : rows) {
        SCOPED_TRACE(testing::Message() << r.pending << " bits, room " << r.room);
        GuardedBuffer buf(static_cast<size_t>(r.room));  // a write past the room faults
        std::memset(buf.data(), 0x5A, buf.size());
        ZfpState s = Started(buf.data(), r.room);
        s.bitCount = r.pending;
        s.bitBuffer = r.pending >= 64 ? pattern : pattern & ((uint64_t{1} << r.pending) - 1);
        const uint64_t before = s.bitBuffer;
        ASSERT_EQ(zyrsEncodeZfpFlush_32f(&s), r.status);
        EXPECT_EQ(s.pCur - buf.data(), r.written);
        EXPECT_EQ(s.bitCount, r.bitCountAfter);
        for (int i = 0; i < r.room; ++i) {
            const uint8_t want = i < r.written ? static_cast<uint8_t>(before >> (8 * (i % 8))) : 0x5A;
            EXPECT_EQ(buf.data()[i], want) << "byte " << i;
        }
    }
}

TEST(ZfpState, SizesCountWholeBytesAndWrapIn32Bits) {
    uint8_t buf[64];
    ZfpState s = Started(buf, 64, {0, 9, 64, -10740});
    int32_t size = -1;
    int64_t size64 = -1, bits = -1;
    ASSERT_EQ(zyrsEncodeZfpGetCompressedSize_32f(&s, &size), StatusOk);
    EXPECT_EQ(size, 0);
    const auto ones = Filled(1.0f);
    ASSERT_EQ(zyrsEncodeZfp444_32f(ones.data(), 16, 64, &s), StatusOk);
    ASSERT_EQ(zyrsEncodeZfpGetCompressedBitSize_32f(&s, &bits), StatusOk);
    EXPECT_EQ(bits, 9);
    ASSERT_EQ(zyrsEncodeZfpFlush_32f(&s), StatusOk);
    ASSERT_EQ(zyrsEncodeZfpGetCompressedSize_32f(&s, &size), StatusOk);
    EXPECT_EQ(size, 8);
    // Positions never dereferenced: 2^28 bytes make 2^31 bits, 2^31 bytes a negative count.
    s.pCur = reinterpret_cast<uint8_t*>(Addr(buf) + (uintptr_t{1} << 28));
    s.bitCount = 5;
    ASSERT_EQ(zyrsEncodeZfpGetCompressedBitSize_32f(&s, &bits), StatusOk);
    EXPECT_EQ(bits, int64_t{INT32_MIN} + 5);
    s.pCur = reinterpret_cast<uint8_t*>(Addr(buf) + (uintptr_t{1} << 31));
    ASSERT_EQ(zyrsDecodeZfpGetDecompressedSizeLong_32f(&s, &size64), StatusOk);
    EXPECT_EQ(size64, int64_t{INT32_MIN});
}

// ---- one block ------------------------------------------------------------------------------

TEST(ZfpBlock, EdgeCasesOfBothCoders) {
    const float nan = std::nanf("");
    const struct {
        const char* what;
        float value;      // all 64 values
        ZfpParams params;
        int64_t bits;     // block size in bits, -1: just non-zero and below maxBits
        uint32_t head;    // the first min(bits, 10) bits of the stream
        int decoded;      // 0: zeros, 1: exact, 2: bits only, 3: not decoded
    } rows[] = {
        {"zero block", 0.0f, {0, 4171, 64, -10740}, 1, 0, 0},
        {"padded zero block", -0.0f, {64, 64, 64, -10740}, 64, 0, 0},
        {"ones", 1.0f, {0, 4171, 64, -10740}, -1, 0x101, 1},
        {"header only", 1.0f, {0, 9, 64, -10740}, 9, 0x101, 0},
        {"header never cut", 1.0f, {0, 5, 64, -10740}, 9, 0x101, 0},
        {"header then padding", 1.0f, {40, 9, 64, -10740}, 40, 0x101, 0},
        {"no plane left", 1.0f, {0, 4171, 64, 9}, 1, 0, 0},
        {"one plane", 1.0f, {0, 4171, 64, 8}, 10, 0x101, 2},
        {"two planes", 1.0f, {0, 4171, 64, 7}, 13, 0x101, 2},
        {"negative maxPrec", 1.0f, {0, 4171, -1, -10740}, 9, 0x101, 0},
        {"E below 30", 0x1p-100f, {0, 4171, 64, -10740}, -1, 2 * -99 + 255, 0},
        {"E is 30", 0x1.8p-98f, {0, 4171, 64, -10740}, -1, 2 * -97 + 255, 0},
        {"NaN sets a tenth bit", nan, {0, 4171, 64, -10740}, -1, 513, 3},
    };
    for (const auto& r : rows) {
        SCOPED_TRACE(r.what);
        for (auto coders : {std::pair<BlockEncoder, BlockDecoder>{zfp::EncodeBlock, zfp::DecodeBlock},
                            std::pair<BlockEncoder, BlockDecoder>{zfp::EncodeBlockScalar,
                                                                  zfp::DecodeBlockScalar}}) {
            const auto in = Filled(r.value);
            uint8_t buf[600] = {};
            ZfpState s = Started(buf, sizeof buf, r.params);
            ASSERT_EQ(coders.first(s, in.data(), 16, 64), StatusOk);
            const int64_t bits = WrittenBits(s);
            if (r.bits >= 0) {
                EXPECT_EQ(bits, r.bits);
            } else {
                EXPECT_TRUE(bits > 10 && bits <= r.params.maxBits) << bits;
            }
            ASSERT_EQ(zyrsEncodeZfpFlush_32f(&s), StatusOk);
            const int headBits = bits < 10 ? static_cast<int>(bits) : 10;
            EXPECT_EQ((buf[0] | buf[1] << 8) & ((1u << headBits) - 1), r.head);
            if (r.decoded == 3) continue;

            std::vector<float> out(64, 123.0f);
            ZfpState d;
            ASSERT_EQ(zyrsDecodeZfpInit_32f(buf, sizeof buf, &d), StatusOk);
            ASSERT_EQ(zyrsDecodeZfpSet_32f(r.params.minBits, r.params.maxBits, r.params.maxPrec,
                                           r.params.minExp, &d), StatusOk);
            ASSERT_EQ(coders.second(d, out.data(), 16, 64), StatusOk);
            EXPECT_EQ(ReadBits(d), bits);
            for (float v : out) {
                if (r.decoded == 0) {
                    EXPECT_EQ(v, 0.0f);
                } else if (r.decoded == 1) {
                    EXPECT_EQ(v, r.value);
                }
            }
        }
    }
}

// Forward lines against values worked out by hand; ties go to the even neighbour, and sums
// that pass 32 bits are exact.
TEST(ZfpBlock, ForwardLinesRoundHalfToEven) {
    constexpr int32_t M = (1 << 30) - 1;
    const struct {
        int32_t in[4], out[4];
    } rows[] = {
        {{1, 1, 0, 0}, {0, 0, 0, 0}},      {{1, 1, 1, 0}, {1, 0, 0, 0}},
        {{2, 0, 0, 0}, {0, 1, 0, 0}},      {{6, 0, 0, 0}, {2, 2, -2, -1}},
        {{0, 4, 0, 0}, {1, 0, 1, 2}},      {{0, 0, 0, 4}, {1, -1, -1, 0}},
        {{0, 12, 0, 0}, {3, 1, 3, 4}},     {{M, M, M, M}, {M, 0, 0, 0}},
        {{M, -M, -M, M}, {0, 0, -M, 0}},   {{M, M, -M, -M}, {0, 805306367, 0, 536870912}},
        {{-M, -M, -M, -M}, {-M, 0, 0, 0}},
    };
    for (const auto& r : rows) {
        int32_t strided[16] = {};
        for (int i = 0; i < 4; ++i) strided[4 * i] = r.in[i];
        zfp::ForwardLineScalar(strided, 4);
        for (int i = 0; i < 4; ++i) EXPECT_EQ(strided[4 * i], r.out[i]) << r.in[0] << " " << i;
    }
}

// ---- the end of the buffer -----------------------------------------------------------------

TEST(ZfpStream, EndOfBuffer) {
    const auto ones = Filled(1.0f);
    uint8_t one[1] = {0x77};
    // A one-byte buffer: the first word fails, pCur stays, and Flush gets out one byte.
    ZfpState s = Started(one, 1);
    EXPECT_EQ(zyrsEncodeZfp444_32f(ones.data(), 16, 64, &s), StatusStreamExhausted);
    EXPECT_EQ(s.pCur, one);
    EXPECT_EQ(zyrsEncodeZfpFlush_32f(&s), StatusStreamExhausted);
    EXPECT_EQ(s.pCur, one + 1);

    // Eight bytes hold a block under 64 bits and the flush; the next block's word does not fit.
    GuardedBuffer eight(8);
    s = Started(eight.data(), 8, {0, 40, 64, -10740});
    ASSERT_EQ(zyrsEncodeZfp444_32f(ones.data(), 16, 64, &s), StatusOk);
    ASSERT_EQ(zyrsEncodeZfpFlush_32f(&s), StatusOk);
    EXPECT_EQ(s.pCur, eight.data() + 8);
    EXPECT_EQ(zyrsEncodeZfp444_32f(ones.data(), 16, 64, &s), StatusOk);  // 40 bits pending
    EXPECT_EQ(zyrsEncodeZfp444_32f(ones.data(), 16, 64, &s), StatusStreamExhausted);
    EXPECT_EQ(s.pCur, eight.data() + 8);

    // A 9-bit block flushed into 2 bytes is read back a byte at a time; the 7 padding bits
    // then read as zero blocks, and the eighth block finds the stream exhausted.
    GuardedBuffer two(2);
    s = Started(two.data(), 2, {0, 9, 64, -10740});
    ASSERT_EQ(zyrsEncodeZfp444_32f(ones.data(), 16, 64, &s), StatusOk);
    ASSERT_EQ(zyrsEncodeZfpFlush_32f(&s), StatusOk);
    int32_t size = 0;
    ASSERT_EQ(zyrsEncodeZfpGetCompressedSize_32f(&s, &size), StatusOk);
    EXPECT_EQ(size, 2);
    for (BlockDecoder dec : {zfp::DecodeBlock, zfp::DecodeBlockScalar}) {
        ZfpState d;
        ASSERT_EQ(zyrsDecodeZfpInit_32f(two.data(), 2, &d), StatusOk);
        ASSERT_EQ(zyrsDecodeZfpSet_32f(0, 9, 64, -10740, &d), StatusOk);
        float out[64];
        int blocks = 0;
        while (dec(d, out, 16, 64) == StatusOk) ++blocks;
        EXPECT_EQ(blocks, 8);
        ASSERT_EQ(zyrsDecodeZfpGetDecompressedSize_32f(&d, &size), StatusOk);
        EXPECT_EQ(size, 2);
    }
}

// ---- whole fields -----------------------------------------------------------------------------

const FieldKind kKinds[] = {FieldKind::Smooth, FieldKind::Noisy, FieldKind::Constant,
                            FieldKind::Sparse, FieldKind::WideRange};

TEST(ZfpRoundTrip, FixedRateTakesExactlyItsBitsPerBlock) {
    for (FieldKind kind : kKinds) {
        const Field f = MakeField(kind, 16, 8, 12, 11);
        for (int rate : {1, 2, 3, 8, 16, 32}) {
            SCOPED_TRACE(testing::Message() << "kind " << static_cast<int>(kind) << " rate " << rate);
            std::vector<int64_t> written, read;
            const auto stream = Compress(f, ZfpRate(rate), &written);
            ASSERT_EQ(stream.size(), f.v.size() * rate / 8);
            const Field back = Decompress(stream, 16, 8, 12, ZfpRate(rate), &read);
            ASSERT_EQ(back.v.size(), f.v.size());
            for (size_t i = 0; i < written.size(); ++i) {
                ASSERT_EQ(written[i], 64 * rate) << "block " << i;
                ASSERT_EQ(read[i], 64 * rate) << "block " << i;
            }
        }
    }
}

// The largest error a block may show, against its exponent e. A unit of the block's integers
// is 2^(e - 30), and the encoder's rounded transform undone by the decoder's lifting may be
// off by some 30 units (measured: at most 32). So accuracy mode keeps within 2^minExp until
// that floor of 2^(e - 25) takes over, and precision P within 2^(e - P + 7) (measured: at
// most 2^(e - P + 6.7) for P up to 28).
TEST(ZfpRoundTrip, ErrorStaysWithinTheModesBounds) {
    const struct {
        ZfpParams params;
        int precision;  // 0 for accuracy mode
    } modes[] = {{ZfpAccuracy(-10), 0}, {ZfpAccuracy(0), 0}, {ZfpAccuracy(-20), 0},
                 {ZfpPrecision(8), 8},  {ZfpPrecision(16), 16}, {ZfpPrecision(28), 28}};
    for (FieldKind kind : kKinds) {
        const Field f = MakeField(kind, 4, 4, 64, 5);  // block b: values 64b .. 64b + 63
        for (const auto& m : modes) {
            SCOPED_TRACE(testing::Message() << "kind " << static_cast<int>(kind) << " minExp "
                                            << m.params.minExp << " precision " << m.precision);
            const Field back = Decompress(Compress(f, m.params), 4, 4, 64, m.params);
            ASSERT_EQ(back.v.size(), f.v.size());
            for (size_t b = 0; b < f.v.size(); b += 64) {
                float top = 0.0f;
                double err = 0.0;
                for (size_t i = b; i < b + 64; ++i) {
                    top = std::fmax(top, std::fabs(f.v[i]));
                    err = std::fmax(err, std::fabs(static_cast<double>(f.v[i]) - back.v[i]));
                }
                int e = 0;
                std::frexp(top, &e);
                const double bound = m.precision ? std::ldexp(1.0, e - m.precision + 7)
                                                 : std::fmax(std::ldexp(1.0, m.params.minExp), std::ldexp(1.0, e - 25));
                ASSERT_LE(err, bound) << "block " << b / 64;
            }
        }
    }
}

// A block read through padded, negative and misaligned steps codes as the contiguous block
// does, and decodes into another such layout without touching the gaps.
TEST(ZfpRoundTrip, StridedLayouts) {
    const Field f = MakeField(FieldKind::Noisy, 4, 4, 4, 9);
    const auto reference = Compress(f, ZfpPrecision(20));
    const Field expected = Decompress(reference, 4, 4, 4, ZfpPrecision(20));
    const struct Layout {
        int32_t row, plane, offset;  // steps in bytes; offset of element (0,0,0) in floats
        size_t At(int i) const { return static_cast<size_t>(offset + i % 4 + (i / 4 % 4 * row + i / 16 * plane) / 4); }
    } layouts[] = {{16, 64, 0}, {24, 200, 0}, {16, 64, 1}, {-16, -64, 63}, {40, -400, 300}, {-24, 104, 20}};
    for (const Layout& from : layouts) {
        for (const Layout& to : layouts) {
            SCOPED_TRACE(testing::Message() << from.row << "/" << from.plane << " -> " << to.row << "/" << to.plane);
            std::vector<float> src(512, NAN), dst(512, -7.0f);
            for (int i = 0; i < 64; ++i) src[from.At(i)] = f.v[static_cast<size_t>(i)];
            uint8_t buf[600];
            ZfpState s = Started(buf, sizeof buf, ZfpPrecision(20)), d = s;
            ASSERT_EQ(zyrsEncodeZfp444_32f(&src[from.At(0)], from.row, from.plane, &s), StatusOk);
            ASSERT_EQ(zyrsEncodeZfpFlush_32f(&s), StatusOk);
            ASSERT_EQ(std::vector<uint8_t>(buf, s.pCur), reference);
            ASSERT_EQ(zyrsDecodeZfp444_32f(&d, &dst[to.At(0)], to.row, to.plane), StatusOk);
            for (int i = 0; i < 64; ++i) {
                ASSERT_EQ(dst[to.At(i)], expected.v[static_cast<size_t>(i)]);
                dst[to.At(i)] = -7.0f;
            }
            ASSERT_EQ(dst, std::vector<float>(512, -7.0f)) << "a gap was written";
        }
    }
}

// ---- vector kernels and coders against their twins --------------------------------------------

TEST(ZfpKernels, VectorMatchesScalar) {
    std::mt19937 rng(17);
    constexpr int32_t M = (1 << 30) - 1;
    for (int round = 0; round < 2000; ++round) {
        alignas(16) int32_t a[64], b[64];
        alignas(16) uint32_t w[64], w2[64];
        alignas(16) uint64_t planes[32], planes2[32];
        for (int i = 0; i < 64; ++i) {
            const uint32_t r = static_cast<uint32_t>(rng());
            // Transform inputs within +-(2^30 - 1), often at the extremes.
            a[i] = round % 4 == 0 ? (r & 1 ? M : -M) : static_cast<int32_t>(r % (2u * M + 1)) - M;
            w[i] = round % 3 == 0 ? r & (0xFFu << (8 * (round % 4))) : r;
        }
        int32_t before[64];
        std::memcpy(before, a, sizeof a);
        std::memcpy(b, a, sizeof a);
        zfp::ForwardTransformSse2(a);
        zfp::ForwardTransformScalar(b);
        ASSERT_EQ(std::memcmp(a, b, sizeof a), 0) << "forward, round " << round;
        zfp::InverseTransformSse2(a);
        zfp::InverseTransformScalar(b);
        ASSERT_EQ(std::memcmp(a, b, sizeof a), 0) << "inverse, round " << round;
        // Three rounded passes undone by the lifting leave a few tens of units (measured: at
        // most 22 over 200000 blocks); a wrong basis or pass order leaves thousands.
        for (int i = 0; i < 64; ++i) ASSERT_LE(std::abs(a[i] - before[i]), 32) << round << " " << i;
        std::memcpy(b, w, sizeof w);  // any 32-bit words: the lifting wraps around
        zfp::InverseTransformSse2(b);
        std::memcpy(a, w, sizeof w);
        zfp::InverseTransformScalar(a);
        ASSERT_EQ(std::memcmp(a, b, sizeof a), 0) << "inverse of any words, round " << round;

        zfp::WordsToPlanesSse2(w, planes);
        zfp::WordsToPlanesScalar(w, planes2);
        ASSERT_EQ(std::memcmp(planes, planes2, sizeof planes), 0) << "planes, round " << round;
        zfp::PlanesToWordsSse2(planes, w2);
        ASSERT_EQ(std::memcmp(w, w2, sizeof w), 0) << "words, round " << round;
        zfp::PlanesToWordsScalar(planes, w2);
        ASSERT_EQ(std::memcmp(w, w2, sizeof w), 0) << "scalar words, round " << round;
    }
}

// Random blocks and parameters, sequences of blocks into roomy and tight buffers, and random
// streams to decode: the vector coders leave the same bytes, records and values as the twins.
TEST(ZfpCoders, VectorMatchesScalar) {
    std::mt19937 rng(31);
    const float specials[] = {0.0f, -0.0f, 1.0f, 0x1p-140f, 0x1p-100f, 3e38f, INFINITY, NAN};
    for (int round = 0; round < 600; ++round) {
        const ZfpParams p{static_cast<int32_t>(rng() % 4300), static_cast<int32_t>(rng() % 4300),
                          static_cast<int32_t>(rng() % 70), static_cast<int32_t>(rng() % 250) - 200};
        const auto kind = kKinds[round % 5];
        Field f = MakeField(kind, 8, 4, 4, static_cast<uint32_t>(round));
        if (round % 7 == 0) f.v[rng() % f.v.size()] = specials[rng() % 8];
        const auto room = static_cast<int32_t>(round % 3 == 0 ? 1 + rng() % 600 : 4000);
        std::vector<uint8_t> out1(static_cast<size_t>(room)), out2(out1);
        ZfpState s1 = Started(out1.data(), room, p), s2 = Started(out2.data(), room, p);
        for (int x = 0; x < 8; x += 4) {
            const ZyrStatus r1 = zfp::EncodeBlock(s1, &f.v[f.Index(x, 0, 0)], 32, 128);
            const ZyrStatus r2 = zfp::EncodeBlockScalar(s2, &f.v[f.Index(x, 0, 0)], 32, 128);
            ASSERT_EQ(r1, r2) << "round " << round;
        }
        ASSERT_EQ(std::memcmp(&s1.bitCount, &s2.bitCount, 12), 0) << "round " << round;
        ASSERT_EQ(s1.pCur - s1.pBegin, s2.pCur - s2.pBegin) << "round " << round;
        ASSERT_EQ(out1, out2) << "round " << round;

        auto stream = round % 2 ? out1 : RandomBytes(1 + rng() % 700, static_cast<uint32_t>(round));
        std::vector<float> v1(128, 1.0f), v2(v1);
        ZfpState d1, d2;
        zyrsDecodeZfpInit_32f(stream.data(), static_cast<int32_t>(stream.size()), &d1);
        zyrsDecodeZfpSet_32f(p.minBits, p.maxBits, p.maxPrec, p.minExp, &d1);
        d2 = d1;
        for (int x = 0; x < 8; x += 4) {
            const ZyrStatus r1 = zfp::DecodeBlock(d1, &v1[static_cast<size_t>(x)], 32, 128);
            const ZyrStatus r2 = zfp::DecodeBlockScalar(d2, &v2[static_cast<size_t>(x)], 32, 128);
            ASSERT_EQ(r1, r2) << "round " << round;
            if (r1 != StatusOk) break;
        }
        ASSERT_EQ(std::memcmp(&d1.bitCount, &d2.bitCount, 12), 0) << "round " << round;
        ASSERT_EQ(d1.pCur, d2.pCur) << "round " << round;
        ASSERT_EQ(std::memcmp(v1.data(), v2.data(), 4 * v1.size()), 0) << "round " << round;
    }
}

// Encoders must give the same bytes in the i686 and x86-64 builds: CRC-32s of streams of
// generated fields under each mode, recorded once and held by both builds.
TEST(ZfpStream, SameBytesInBothBuilds) {
    const ZfpParams modes[] = {ZfpRate(8), ZfpRate(16), ZfpPrecision(16), ZfpAccuracy(-10)};
    const uint32_t expected[5][4] = {  // [field kind][mode]
        {0x37B65EA7u, 0x0F0AC5A4u, 0x757C2CBBu, 0x6CD3DAF8u},
        {0xABB9B163u, 0xF73B3382u, 0x93BB4286u, 0xB7F3F9ADu},
        {0xB38BE7A5u, 0xF8D2FDEFu, 0xB8A0828Au, 0x09513316u},
        {0xD6E7A3DCu, 0x725FD7A4u, 0x69C0D7D0u, 0xBA45776Fu},
        {0x6ABC46EDu, 0x50BDBF7Au, 0x8D351B85u, 0x51AC187Eu},
    };
    for (int k = 0; k < 5; ++k) {
        const Field f = MakeField(kKinds[k], 16, 12, 8, 99);
        for (int m = 0; m < 4; ++m) {
            const auto stream = Compress(f, modes[m]);
            uint32_t crc = 0;
            ASSERT_EQ(zyrsCRC32_8u(stream.data(), static_cast<int32_t>(stream.size()), &crc), StatusOk);
            EXPECT_EQ(crc, expected[k][m]) << "kind " << k << " mode " << m;
        }
    }
}

}  // namespace
