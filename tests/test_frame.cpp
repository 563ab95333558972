// Library frame: version record, record layouts, and every SSE2 kernel against its scalar
// twin at every length, alignment and page edge.
#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>
#include <numeric>
#include <vector>

#include "bzip2/bzip2.hpp"
#include "checksum/checksum.hpp"
#include "core/bits.hpp"
#include "core/copy.hpp"
#include "core/cpu.hpp"
#include "data.hpp"
#include "deflate/deflate.hpp"
#include "support.hpp"
#include "zyrdc.h"

namespace {

using zyrdc::checksum::CrcKind;
using zyrdc::test::GuardedBuffer;

// Layouts callers depend on, pinned for both builds.
static_assert(sizeof(HuffCodeEntry) == 4 && offsetof(HuffCodeEntry, len) == 2);
static_assert(sizeof(LZ77Params) == 16 && offsetof(LZ77Params, maxInsertLength) == 12);
static_assert(sizeof(InflateHuffTable) == 7208 && offsetof(InflateHuffTable, tables) == 40);
static_assert(offsetof(VersionRecord, revision) == 12 && offsetof(VersionRecord, processorCode) == 16);
static_assert(offsetof(ZfpState, bitCount) == 20 && offsetof(ZfpState, bitBuffer) == 24 &&
              offsetof(ZfpState, pCur) == 32);
#if defined(__i386__)
static_assert(sizeof(ZfpState) == 560 && offsetof(ZfpState, pSafeEnd) == 44 &&
              offsetof(ZfpState, block) == 48 && offsetof(ZfpState, coefficients) == 304);
static_assert(sizeof(VersionRecord) == 32 && offsetof(VersionRecord, name) == 20);
#else
static_assert(sizeof(ZfpState) == 576 && offsetof(ZfpState, pSafeEnd) == 56 &&
              offsetof(ZfpState, block) == 64 && offsetof(ZfpState, coefficients) == 320);
static_assert(sizeof(VersionRecord) == 48 && offsetof(VersionRecord, name) == 24);
#endif

TEST(Version, RecordAndStrings) {
    const VersionRecord* v = zyrdcGetLibVersion();
    ASSERT_NE(v, nullptr);
    EXPECT_EQ(v, zyrdcGetLibVersion());
    EXPECT_EQ(v->major, 2021);
    EXPECT_EQ(v->minor, 11);
    EXPECT_EQ(v->update, 0);
    EXPECT_EQ(v->revision, -854557950);
    EXPECT_EQ(std::memcmp(v->processorCode, "q4\0\0", 4), 0);
    EXPECT_STREQ(v->name, "zyrDC SSE2 (q4)");
    EXPECT_STREQ(v->version, "2021.11.0 (r0xcd107b02)");
    EXPECT_STREQ(v->buildDate, "Jan 30 2024");
}

// ---- kernels against their scalar twins ------------------------------------------------------

// A kernel and its scalar twin: each reads n bytes at src, writes at most n bytes to its own
// output and returns a value; values and outputs must agree.
using Run = uint64_t (*)(const uint8_t* src, size_t n, uint8_t* out);
struct Twin {
    const char* name;
    Run kernel, twin;
};

namespace cs = zyrdc::checksum;

// Unreduced incoming Adler halves (65521..65535) come only from a caller's own value.
template <uint32_t kStart, uint32_t (*kFn)(uint32_t, const uint8_t*, size_t)>
uint64_t Adler(const uint8_t* p, size_t n, uint8_t*) { return kFn(kStart, p, n); }
template <CrcKind kKind, uint32_t (*kFn)(CrcKind, uint32_t, const uint8_t*, size_t)>
uint64_t Crc(const uint8_t* p, size_t n, uint8_t*) { return kFn(kKind, 0x9E3779B9u, p, n); }

// The long copies and fills also with each store policy forced, so that both store paths
// run whatever cache size this processor reports.
template <bool kKernel, zyrdc::Stores kStores = zyrdc::Stores::Auto>
uint64_t Copy(const uint8_t* p, size_t n, uint8_t* o) {
    const auto len = static_cast<int32_t>(n);
    const uint8_t* r = kKernel ? zyrdc::CopyBytesKernel(p, o, len, kStores) : zyrdc::CopyBytesScalar(p, o, len);
    return static_cast<uint64_t>(r - o);
}
template <bool kKernel, zyrdc::Stores kStores = zyrdc::Stores::Auto>
uint64_t Zero(const uint8_t*, size_t n, uint8_t* o) {
    const auto len = static_cast<int32_t>(n);
    const uint8_t* r = kKernel ? zyrdc::ZeroBytesKernel(o, len, kStores) : zyrdc::ZeroBytesScalar(o, len);
    return static_cast<uint64_t>(r - o);
}
// The checked fills of n / width whole words against the byte twin over as many bytes.
template <size_t kWidth>
uint64_t Fill(const uint8_t*, size_t n, uint8_t* o) {
    const auto count = static_cast<int32_t>(n / kWidth);
    return static_cast<uint64_t>(kWidth == 4 ? zyrdc::ZeroFill_32u(reinterpret_cast<uint32_t*>(o), count)
                                             : zyrdc::ZeroFill_16u(reinterpret_cast<uint16_t*>(o), count));
}
template <size_t kWidth>
uint64_t FillTwin(const uint8_t*, size_t n, uint8_t* o) {
    zyrdc::ZeroBytesScalar(o, static_cast<int32_t>(n / kWidth * kWidth));
    return static_cast<uint64_t>(n < kWidth ? StatusBadSize : StatusOk);
}

// Table entries of every magnitude from the bytes; for odd lengths the delta puts the clamp
// between entries 6 and 7.
template <void (*kFn)(int32_t*, uint32_t, int32_t)>
uint64_t Rebase(const uint8_t* p, size_t n, uint8_t* out) {
    const size_t count = n / 4;
    std::vector<int32_t> e(count + 1);  // never empty: data() stays non-null
    for (size_t i = 0; i < count; ++i) {
        e[i] = static_cast<int32_t>(zyrdc::load_u32le(p + 4 * i)) >> (p[4 * i] & 31);
    }
    kFn(e.data(), static_cast<uint32_t>(count), n % 2 ? 32775 : INT32_MAX - 40000);
    std::memcpy(out, e.data(), 4 * count);
    return 0;
}

// The move-to-front entry points, split in two, against one scalar pass; the tables agree.
template <bool kFwd, bool kScalar>
uint64_t Mtf(const uint8_t* p, size_t n, uint8_t* out) {
    uint8_t t[256];
    EXPECT_EQ(zyrsMTFInit_8u(t), StatusOk);
    const auto half = static_cast<int32_t>(n / 2), len = static_cast<int32_t>(n);
    if (kScalar) {
        (kFwd ? zyrdc::bzip2::MtfForwardScalar : zyrdc::bzip2::MtfInverseScalar)(p, out, len, t);
    } else {
        const auto api = kFwd ? zyrsMTFFwd_8u : zyrsMTFInv_8u;
        EXPECT_TRUE(half == 0 || api(p, out, half, t) == StatusOk);
        EXPECT_TRUE(len == half || api(p + half, out + half, len - half, t) == StatusOk);
    }
    uint64_t h = 0;
    for (uint8_t b : t) h = h * 1099511628211u + b;
    return h;
}

const Twin kTwins[] = {
    {"adler32 from 1", Adler<1, cs::Adler32Sse2>, Adler<1, cs::Adler32Scalar>},
    {"adler32 from 0xFFFFFFFF", Adler<~0u, cs::Adler32Sse2>, Adler<~0u, cs::Adler32Scalar>},
    {"adler32 from 0xFFF0FFF1", Adler<0xFFF0FFF1u, cs::Adler32Sse2>, Adler<0xFFF0FFF1u, cs::Adler32Scalar>},
    {"crc32 sliced", Crc<CrcKind::Crc32, cs::CrcSliced>, Crc<CrcKind::Crc32, cs::CrcBytewise>},
    {"crc32 interleaved", Crc<CrcKind::Crc32, cs::CrcInterleaved>, Crc<CrcKind::Crc32, cs::CrcBytewise>},
    {"crc32c sliced", Crc<CrcKind::Crc32C, cs::CrcSliced>, Crc<CrcKind::Crc32C, cs::CrcBytewise>},
    {"crc32c interleaved", Crc<CrcKind::Crc32C, cs::CrcInterleaved>, Crc<CrcKind::Crc32C, cs::CrcBytewise>},
    {"bzip2 crc sliced", Crc<CrcKind::Bzip2, cs::CrcSliced>, Crc<CrcKind::Bzip2, cs::CrcBytewise>},
    {"bzip2 crc interleaved", Crc<CrcKind::Bzip2, cs::CrcInterleaved>, Crc<CrcKind::Bzip2, cs::CrcBytewise>},
    {"copy", Copy<true>, Copy<false>},
    {"copy through the caches", Copy<true, zyrdc::Stores::Cached>, Copy<false>},
    {"copy bypassing the caches", Copy<true, zyrdc::Stores::Bypass>, Copy<false>},
    {"zero", Zero<true>, Zero<false>},
    {"zero through the caches", Zero<true, zyrdc::Stores::Cached>, Zero<false>},
    {"zero bypassing the caches", Zero<true, zyrdc::Stores::Bypass>, Zero<false>},
    {"zero 32-bit words", Fill<4>, FillTwin<4>},
    {"zero 16-bit words", Fill<2>, FillTwin<2>},
    {"rebase", Rebase<zyrdc::deflate::RebaseEntries>, Rebase<zyrdc::deflate::RebaseEntriesScalar>},
    {"move to front", Mtf<true, false>, Mtf<true, true>},
    {"move to front inverse", Mtf<false, false>, Mtf<false, true>},
};

// Every length 0..300 and some long ones (around the vector and streaming thresholds), over
// data of every kind and all-0xFF bytes (the largest sums), at source alignments 0..15 (0 and
// 8 for the long ones; 0 right after a guard page) with the outputs fenced by guard bytes, and
// once with source and output ending at a guard page.
TEST(Kernels, AgreeWithScalarTwinsAtEveryLengthAlignmentAndPageEdge) {
    std::vector<size_t> lengths(301);
    std::iota(lengths.begin(), lengths.end(), size_t{0});
    lengths.insert(lengths.end(), {767, 768, 769, 2047, 2048, 2049, 4095, 4096, 4097, 5536, 5537, 8191,
                                   19999, 65543, 131072, 131073, 300007});
    // Only where half the last-level cache is a length the byte-wise twins sweep in seconds
    // (some hypervisors report a whole socket's cache, hundreds of MiB).
    if (const size_t llc = zyrdc::LastLevelCacheBytes(); llc != 0 && llc / 2 <= (size_t{16} << 20)) {
        lengths.push_back(llc / 2 + 17);
    }
    for (size_t n : lengths) {
        for (const bool ones : {false, true}) {
            const auto data = ones ? std::vector<uint8_t>(n + 16, 0xFF)
                                   : zyrdc::test::MakeData(zyrdc::test::kDataKinds[n % 9], n + 16,
                                                           static_cast<uint32_t>(n));
            GuardedBuffer src_edge(n), out_edge(n), src_front(n + 16, false);
            std::memcpy(src_edge.data(), data.data(), n);
            std::memcpy(src_front.data(), data.data(), n + 16);
            std::vector<uint8_t> fenced(n + 64), twin(n + 1);  // never empty: data() stays non-null
            uint8_t* base = fenced.data() + zyrdc::bytes_to_boundary(fenced.data(), 16);
            for (size_t align = 0; align <= 16; align += n > 300 ? 8 : 1) {
                const bool edge = align == 16;
                const uint8_t* p = edge ? src_edge.data() : src_front.data() + align;
                uint8_t* out = edge ? out_edge.data() : base + 16 + (align * 7) % 16;
                for (const Twin& k : kTwins) {
                    SCOPED_TRACE(testing::Message() << k.name << " n=" << n << " align " << align
                                                    << (ones ? " 0xFF" : ""));
                    std::memset(edge ? out : base, 0xEE, edge ? n : n + 48);
                    std::memset(twin.data(), 0xEE, n);
                    ASSERT_EQ(k.kernel(p, n, out), k.twin(p, n, twin.data()));
                    ASSERT_EQ(std::memcmp(out, twin.data(), n), 0);
                    if (!edge) {
                        ASSERT_EQ(std::count(base, out, 0xEE), out - base);
                        ASSERT_EQ(std::count(out + n, out + n + 16, 0xEE), 16);
                    }
                }
            }
        }
    }
}

}  // namespace
