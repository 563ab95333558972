// Checksums: check values, the held-value conventions and check orders, agreement with
// zlib / libdeflate and with bit-at-a-time references at every length, alignment and
// split, and the vector / interleaved kernels against their scalar twins.
#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "checksum/checksum.hpp"
#include "core/bits.hpp"
#include "support.hpp"
#include "zyrdc.h"

#if defined(ZYRDC_HAVE_ZLIB)
#include <zlib.h>
#endif
#if defined(ZYRDC_HAVE_LIBDEFLATE)
#include <libdeflate.h>
#endif

namespace {

using zyrdc::test::GuardedBuffer;
using zyrdc::test::RandomBytes;

// ---- references written from the definitions, one bit at a time -------------------------

uint32_t RefAdler32(uint32_t adler, const uint8_t* p, size_t n) {
    uint32_t a = (adler & 0xFFFF) % 65521, b = (adler >> 16) % 65521;
    for (size_t i = 0; i < n; ++i) {
        a = (a + p[i]) % 65521;
        b = (b + a) % 65521;
    }
    return a | (b << 16);
}
uint32_t RefReflected(uint32_t poly, uint32_t reg, const uint8_t* p, size_t n) {
    for (size_t i = 0; i < n; ++i) {
        reg ^= p[i];
        for (int k = 0; k < 8; ++k) reg = (reg >> 1) ^ (poly & (0u - (reg & 1)));
    }
    return reg;
}
uint32_t RefCrc32(uint32_t crc, const uint8_t* p, size_t n) { return ~RefReflected(0xEDB88320u, ~crc, p, n); }
uint32_t RefCrc32C(uint32_t reg, const uint8_t* p, size_t n) { return RefReflected(0x82F63B78u, reg, p, n); }
uint32_t RefBzip2(uint32_t crc, const uint8_t* p, size_t n) {
    uint32_t reg = ~crc;
    for (size_t i = 0; i < n; ++i) {
        reg ^= static_cast<uint32_t>(p[i]) << 24;
        for (int k = 0; k < 8; ++k) reg = (reg << 1) ^ (0x04C11DB7u & (0u - (reg >> 31)));
    }
    return ~reg;
}

// ---- the four functions under one table ---------------------------------------------------

using Api = ZyrStatus (*)(const uint8_t*, int32_t, uint32_t*);
using Ref = uint32_t (*)(uint32_t, const uint8_t*, size_t);

struct Family {
    const char* name;
    Api api;
    Ref ref;
    uint32_t start;       // value that starts a new checksum
    uint32_t check;       // over "123456789" from start
    bool accepts_empty;   // Adler-32 takes any length, the CRCs refuse 0
};

const Family kFamilies[] = {
    {"adler32", zyrsAdler32_8u, RefAdler32, 1, 0x091E01DEu, true},
    {"crc32", zyrsCRC32_8u, RefCrc32, 0, 0xCBF43926u, false},
    {"crc32c", zyrsCRC32C_8u, RefCrc32C, 0xFFFFFFFFu, 0x1CF96D7Cu, false},
    {"bzip2", zyrsCRC32_BZ2_8u, RefBzip2, 0, 0xFC891918u, false},
};

const uint8_t kDigits[] = {'1', '2', '3', '4', '5', '6', '7', '8', '9'};

// Feeds p[0..n) through the exported function in the pieces given by `cuts`.
uint32_t Feed(const Family& f, uint32_t value, const uint8_t* p, const std::vector<size_t>& cuts) {
    size_t at = 0;
    for (size_t cut : cuts) {
        if (cut > at || f.accepts_empty) {
            EXPECT_EQ(f.api(p + at, static_cast<int32_t>(cut - at), &value), StatusOk);
        }
        at = cut;
    }
    return value;
}

TEST(Checksums, CheckValuesInOneCallAndSplitAnywhere) {
    for (const Family& f : kFamilies) {
        SCOPED_TRACE(f.name);
        EXPECT_EQ(Feed(f, f.start, kDigits, {9}), f.check);
        for (size_t cut = 0; cut <= 9; ++cut) {
            EXPECT_EQ(Feed(f, f.start, kDigits, {cut, 9}), f.check) << cut;
        }
    }
    // The standard CRC-32C is the inverse of the raw register.
    EXPECT_EQ(~Feed(kFamilies[2], 0xFFFFFFFFu, kDigits, {9}), 0xE3069283u);
}

// Check orders and held-value conventions, one row per call: null before length; an error
// leaves the running value alone; a null Adler-32 source starts a checksum whatever the
// length; an empty Adler-32 call still reduces both halves.
TEST(Checksums, CheckOrderAndConventions) {
    constexpr uint32_t kKeep = 0x12345678u;  // "the value is left as it was"
    struct Row {
        Api fn;
        const uint8_t* src;
        int32_t len;
        bool null_value;
        uint32_t in;
        ZyrStatus status;
        uint32_t out;
    } rows[] = {
        {zyrsAdler32_8u, nullptr, 0, true, kKeep, StatusNullPointer, kKeep},
        {zyrsAdler32_8u, nullptr, 5, false, 0xDEADBEEFu, StatusOk, 1},
        {zyrsAdler32_8u, nullptr, -3, false, 0xDEADBEEFu, StatusOk, 1},
        {zyrsAdler32_8u, kDigits, 0, false, 0xFFFFFFFFu, StatusOk, 0x000E000Eu},
        {zyrsAdler32_8u, kDigits, -1, false, 0xFFFFFFFFu, StatusOk, 0x000E000Eu},
        {zyrsCRC32_8u, nullptr, 0, false, kKeep, StatusNullPointer, kKeep},
        {zyrsCRC32_8u, kDigits, 9, true, kKeep, StatusNullPointer, kKeep},
        {zyrsCRC32_8u, kDigits, 0, false, kKeep, StatusBadSize, kKeep},
        {zyrsCRC32_8u, kDigits, -1, false, kKeep, StatusBadSize, kKeep},
        {zyrsCRC32C_8u, nullptr, 0, false, kKeep, StatusNullPointer, kKeep},
        {zyrsCRC32C_8u, kDigits, 9, true, kKeep, StatusNullPointer, kKeep},
        {zyrsCRC32C_8u, kDigits, 0, false, kKeep, StatusBadSize, kKeep},
        {zyrsCRC32_BZ2_8u, nullptr, 0, false, kKeep, StatusNullPointer, kKeep},
        {zyrsCRC32_BZ2_8u, kDigits, 9, true, kKeep, StatusNullPointer, kKeep},
        {zyrsCRC32_BZ2_8u, kDigits, 0, false, kKeep, StatusBadSize, kKeep},
        {zyrsCRC32_BZ2_8u, kDigits, -1, false, kKeep, StatusBadSize, kKeep},
    };
    for (size_t i = 0; i < std::size(rows); ++i) {
        const Row& r = rows[i];
        uint32_t v = r.in;
        EXPECT_EQ(r.fn(r.src, r.len, r.null_value ? nullptr : &v), r.status) << "row " << i;
        EXPECT_EQ(v, r.out) << "row " << i;
    }
}

TEST(Checksums, Crc32cTakesItsLengthUnsigned) {
    // -1 is a count of 2^32 - 1 bytes, not an error: the call runs off the end of an 8-byte
    // buffer into the guard page.
    GuardedBuffer buf(8);
    std::memset(buf.data(), 0, 8);
    uint32_t v = 0xFFFFFFFFu;
    EXPECT_DEATH(zyrsCRC32C_8u(buf.data(), -1, &v), "");
}

TEST(Adler32, HundredThousandFfBytes) {
    GuardedBuffer buf(100001);
    std::memset(buf.data(), 0xFF, 100001);
    for (size_t offset : {0u, 1u}) {  // one start on a 16-byte boundary of the page, one off it
        const uint8_t* p = buf.data() + offset;
        uint32_t whole = 1, bytewise = 1;
        ASSERT_EQ(zyrsAdler32_8u(p, 100000, &whole), StatusOk);
        for (int i = 0; i < 100000; ++i) ASSERT_EQ(zyrsAdler32_8u(p + i, 1, &bytewise), StatusOk);
        EXPECT_EQ(whole, 0x149A302Cu);
        EXPECT_EQ(bytewise, 0x149A302Cu);
    }
}

// Every length 0..300 and some long ones, at every alignment 0..15, in one call and split at
// random points, against the bit-at-a-time reference. The source ends at a guard page.
TEST(Checksums, MatchReferencesAtEveryLengthAlignmentAndSplit) {
    std::vector<size_t> lengths;
    for (size_t n = 0; n <= 300; ++n) lengths.push_back(n);
    for (size_t n : {767u, 768u, 769u, 4096u, 5536u, 5537u, 65536u + 7u, 1000003u}) lengths.push_back(n);
    std::mt19937 rng(7);
    for (size_t n : lengths) {
        const auto data = RandomBytes(n + 15, static_cast<uint32_t>(n));
        for (size_t align = 0; align < 16; align += (n > 300 ? 5 : 1)) {
            GuardedBuffer buf(n);
            std::memcpy(buf.data(), data.data() + align, n);
            // Page-end placement fixes the end; shift the start instead through a second copy.
            std::vector<uint8_t> shifted(n + 16);
            uint8_t* q = shifted.data() + zyrdc::bytes_to_boundary(shifted.data(), 16) + align;
            if (q + n > shifted.data() + shifted.size()) q -= 16;
            std::memcpy(q, buf.data(), n);
            for (const Family& f : kFamilies) {
                if (n == 0 && !f.accepts_empty) continue;
                const uint32_t want = f.ref(f.start, buf.data(), n);
                ASSERT_EQ(Feed(f, f.start, buf.data(), {n}), want) << f.name << " n=" << n;
                ASSERT_EQ(Feed(f, f.start, q, {n}), want) << f.name << " n=" << n << " align " << align;
                ASSERT_EQ(Feed(f, f.start, q, zyrdc::test::RandomCuts(n, 5, rng)), want)
                    << f.name << " n=" << n << " split";
            }
        }
    }
}

// Peers as oracles no one here wrote: zlib where it is installed for this build, libdeflate
// otherwise (the i686 zlib package is sometimes not installable).
TEST(Checksums, AgreeWithPeers) {
#if defined(ZYRDC_HAVE_ZLIB) || defined(ZYRDC_HAVE_LIBDEFLATE)
    std::mt19937 rng(11);
    for (size_t n : {1u, 2u, 31u, 100u, 4096u, 65536u, 1u << 20}) {
        const auto data = RandomBytes(n + 16, static_cast<uint32_t>(n) * 3);
        for (size_t align : {0u, 3u, 8u, 13u}) {
            const uint8_t* p = data.data() + align;
            uint32_t adler = 1, crc = 0;
            ASSERT_EQ(zyrsAdler32_8u(p, static_cast<int32_t>(n), &adler), StatusOk);
            ASSERT_EQ(zyrsCRC32_8u(p, static_cast<int32_t>(n), &crc), StatusOk);
#if defined(ZYRDC_HAVE_ZLIB)
            EXPECT_EQ(adler, adler32(1, p, static_cast<uInt>(n))) << n;
            EXPECT_EQ(crc, crc32(0, p, static_cast<uInt>(n))) << n;
#endif
#if defined(ZYRDC_HAVE_LIBDEFLATE)
            EXPECT_EQ(adler, libdeflate_adler32(1, p, n)) << n;
            EXPECT_EQ(crc, libdeflate_crc32(0, p, n)) << n;
#endif
        }
    }
#else
    GTEST_SKIP() << "neither zlib nor libdeflate is installed for this build";
#endif
}

// The vector and interleaved kernels against their scalar twins, including unreduced
// incoming Adler halves (65521..65535), which only a caller's own value can carry.
TEST(ChecksumKernels, AgreeWithScalarTwins) {
    using namespace zyrdc::checksum;
    const auto data = RandomBytes(20016, 99);
    const auto ones = std::vector<uint8_t>(20016, 0xFF);
    for (const auto* v : {&data, &ones}) {
        for (size_t n : {0u, 30u, 31u, 32u, 47u, 4095u, 4096u, 4097u, 5536u, 5537u, 8191u, 19999u}) {
            for (size_t off : {0u, 1u, 15u}) {
                const uint8_t* p = v->data() + off;
                for (uint32_t start : {1u, 0xFFFFFFFFu, 0xFFF0FFF1u, 0x12345678u}) {
                    ASSERT_EQ(Adler32Sse2(start, p, n), Adler32Scalar(start, p, n)) << n << " " << start;
                }
                for (CrcKind k : {CrcKind::Crc32, CrcKind::Crc32C, CrcKind::Bzip2}) {
                    const uint32_t want = CrcBytewise(k, 0x9E3779B9u, p, n);
                    ASSERT_EQ(CrcSliced(k, 0x9E3779B9u, p, n), want) << n;
                    ASSERT_EQ(CrcInterleaved(k, 0x9E3779B9u, p, n), want) << n;
                }
            }
        }
    }
}

}  // namespace
