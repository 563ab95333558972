// Library frame: version record, status values, record layouts, copy and fill routines.
#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>
#include <string>
#include <vector>

#include "core/bits.hpp"
#include "core/copy.hpp"
#include "support.hpp"
#include "zyrdc.h"

namespace {

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
    // The version string is derived from the numeric fields.
    char expect[64];
    std::snprintf(expect, sizeof expect, "%d.%d.%d (r0x%08x)", v->major, v->minor, v->update,
                  static_cast<unsigned>(v->revision));
    EXPECT_STREQ(v->version, expect);
}

TEST(SharedRoutines, CheckOrder) {
    uint8_t a[4] = {1, 2, 3, 4}, b[4] = {9, 9, 9, 9};
    uint32_t w[2] = {7, 7};
    uint16_t h[2] = {7, 7};
    // Null before length, and nothing written on an error.
    EXPECT_EQ(zyrdc::CopyBytes_8u(nullptr, b, 0), StatusNullPointer);
    EXPECT_EQ(zyrdc::CopyBytes_8u(a, nullptr, 4), StatusNullPointer);
    EXPECT_EQ(zyrdc::CopyBytes_8u(a, b, 0), StatusBadSize);
    EXPECT_EQ(zyrdc::CopyBytes_8u(a, b, -1), StatusBadSize);
    EXPECT_EQ(b[0], 9);
    EXPECT_EQ(zyrdc::ZeroFill_32u(nullptr, 0), StatusNullPointer);
    EXPECT_EQ(zyrdc::ZeroFill_32u(w, 0), StatusBadSize);
    EXPECT_EQ(zyrdc::ZeroFill_16u(nullptr, -5), StatusNullPointer);
    EXPECT_EQ(zyrdc::ZeroFill_16u(h, 0), StatusBadSize);
    EXPECT_EQ(w[0], 7u);
    EXPECT_EQ(h[0], 7u);
    EXPECT_EQ(zyrdc::CopyBytes_8u(a, b, 4), StatusOk);
    EXPECT_EQ(std::memcmp(a, b, 4), 0);
}

TEST(SharedRoutines, ZeroFillClearsExactlyCountWords) {
    uint8_t buf[32];
    std::memset(buf, 0xAB, sizeof buf);
    ASSERT_EQ(zyrdc::ZeroFill_32u(reinterpret_cast<uint32_t*>(buf + 4), 3), StatusOk);
    for (size_t i = 0; i < sizeof buf; ++i) {
        EXPECT_EQ(buf[i], (i >= 4 && i < 16) ? 0 : 0xAB) << i;
    }
    std::memset(buf, 0xAB, sizeof buf);
    ASSERT_EQ(zyrdc::ZeroFill_16u(reinterpret_cast<uint16_t*>(buf + 2), 3), StatusOk);
    for (size_t i = 0; i < sizeof buf; ++i) {
        EXPECT_EQ(buf[i], (i >= 2 && i < 8) ? 0 : 0xAB) << i;
    }
}

// Every length class of the kernels (short backward copies, head/body/tail, the long
// path) at every destination offset from a 16-byte boundary, and for copies a spread of
// source offsets: exactly the requested bytes change, and the guard bytes on both sides
// stay. Non-positive lengths write nothing.
TEST(Kernels, ExactBytesAtEveryOffset) {
    constexpr int32_t kLengths[] = {-1, 0, 1, 3, 4, 15, 16, 17, 63, 64, 65, 131072, 131073, 131074};
    constexpr int32_t kGuard = 32;
    const auto src_data = zyrdc::test::RandomBytes(131074 + 16, 1);
    std::vector<uint8_t> buf(131074 + 2 * kGuard + 16);
    uint8_t* base = buf.data() + zyrdc::bytes_to_boundary(buf.data(), 16);
    for (const bool copy : {true, false}) {
        for (int32_t len : kLengths) {
            const int32_t span = (len > 0 ? len : 0) + 2 * kGuard;
            for (int doff = 0; doff < 16; ++doff) {
                const int soff = (doff * 7) % 16;
                std::memset(base, 0xEE, static_cast<size_t>(span));
                uint8_t* d = base + kGuard - 16 + doff;  // at least 16 guard bytes before d
                const uint8_t* s = src_data.data() + soff;
                ASSERT_EQ(copy ? zyrdc::CopyBytesKernel(s, d, len) : zyrdc::ZeroBytesKernel(d, len), d);
                for (uint8_t* g = base; g < base + span; ++g) {
                    const bool inside = g >= d && g < d + len;
                    const uint8_t want = !inside ? 0xEE : copy ? s[g - d] : 0;
                    ASSERT_EQ(*g, want) << (copy ? "copy" : "zero") << " len " << len << " doff " << doff;
                }
            }
        }
    }
}

// Kernels against their byte-at-a-time twins on a buffer that ends at a guard page, so an
// over-read or over-write faults.
TEST(Kernels, AgreeWithScalarTwinsAtPageEdge) {
    for (int32_t len = 1; len <= 300; ++len) {
        zyrdc::test::GuardedBuffer src(static_cast<size_t>(len));
        zyrdc::test::GuardedBuffer dst(static_cast<size_t>(len));
        src.fill(zyrdc::test::RandomBytes(static_cast<size_t>(len), static_cast<uint32_t>(len)));
        std::vector<uint8_t> twin(static_cast<size_t>(len));
        zyrdc::CopyBytesKernel(src.data(), dst.data(), len);
        zyrdc::CopyBytesScalar(src.data(), twin.data(), len);
        ASSERT_EQ(std::memcmp(dst.data(), twin.data(), static_cast<size_t>(len)), 0) << len;
        zyrdc::ZeroBytesKernel(dst.data(), len);
        zyrdc::ZeroBytesScalar(twin.data(), len);
        ASSERT_EQ(std::memcmp(dst.data(), twin.data(), static_cast<size_t>(len)), 0) << len;
    }
}

}  // namespace
