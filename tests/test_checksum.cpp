// Checksums: published check values, and agreement with bit-at-a-time references and with
// libdeflate. (Check orders: test_abi.cpp; kernels against their scalar twins at every length
// and alignment: test_frame.cpp.)
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "data.hpp"
#include "support.hpp"
#include "zyrdc.h"

#if defined(ZYRDC_HAVE_LIBDEFLATE)
#include <libdeflate.h>
#endif

namespace {

// References written from the definitions, one bit at a time.
uint32_t RefAdler32(uint32_t adler, const uint8_t* p, size_t n) {
    uint32_t a = adler & 0xFFFF, b = adler >> 16;
    for (size_t i = 0; i < n; ++i) b = (b + (a = (a + p[i]) % 65521)) % 65521;
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

struct Family {
    const char* name;
    ZyrStatus (*api)(const uint8_t*, int32_t, uint32_t*);
    uint32_t (*ref)(uint32_t, const uint8_t*, size_t);
    uint32_t start;  // value that starts a new checksum
    uint32_t check;  // over "123456789" from start
};
const Family kFamilies[] = {
    {"adler32", zyrsAdler32_8u, RefAdler32, 1, 0x091E01DEu},
    {"crc32", zyrsCRC32_8u, RefCrc32, 0, 0xCBF43926u},
    {"crc32c", zyrsCRC32C_8u, RefCrc32C, 0xFFFFFFFFu, 0x1CF96D7Cu},  // the raw register, not inverted
    {"bzip2", zyrsCRC32_BZ2_8u, RefBzip2, 0, 0xFC891918u},
};

// One call of the exported function from the family's start value. (Splits against one call:
// the fuzz harness, replayed in every build.)
uint32_t Sum(const Family& f, const uint8_t* p, size_t n) {
    uint32_t value = f.start;
    EXPECT_EQ(f.api(p, static_cast<int32_t>(n), &value), StatusOk);
    return value;
}

// -1 is a count of 2^32 - 1 bytes, not an error: the call runs off an 8-byte buffer into the
// guard page.
TEST(Checksums, Crc32cTakesItsLengthUnsigned) {
    zyrdc::test::GuardedBuffer buf(8);
    std::memset(buf.data(), 0, 8);
    uint32_t v = 0xFFFFFFFFu;
    EXPECT_DEATH(zyrsCRC32C_8u(buf.data(), -1, &v), "");
}

// Published check values, which the references give too, and Adler-32 of 100000 0xFF bytes,
// whose sums come closest to overflowing between reductions. Then against the references and a
// peer no one here wrote (libdeflate, which both builds have): a lost carry between the kernels'
// blocks shows here.
TEST(Checksums, MatchCheckValuesReferencesAndPeer) {
    const uint8_t digits[] = {'1', '2', '3', '4', '5', '6', '7', '8', '9'};
    for (const Family& f : kFamilies) {
        EXPECT_EQ(Sum(f, digits, 9), f.check) << f.name;
        EXPECT_EQ(f.ref(f.start, digits, 9), f.check) << f.name;
    }
    const std::vector<uint8_t> ff(100000, 0xFF);
    EXPECT_EQ(Sum(kFamilies[0], ff.data(), ff.size()), 0x149A302Cu);
    for (size_t n : {1u, 2u, 31u, 100u, 4096u, 5553u, 65543u, 1u << 20}) {
        const auto data = zyrdc::test::MakeData(zyrdc::test::kDataKinds[n % 9], n, static_cast<uint32_t>(n));
        const uint8_t* p = data.data();
        for (const Family& f : kFamilies) ASSERT_EQ(Sum(f, p, n), f.ref(f.start, p, n)) << f.name << ' ' << n;
        [[maybe_unused]] const uint32_t adler = Sum(kFamilies[0], p, n), crc = Sum(kFamilies[1], p, n);
#if defined(ZYRDC_HAVE_LIBDEFLATE)
        EXPECT_EQ(adler, libdeflate_adler32(1, p, n)) << n;
        EXPECT_EQ(crc, libdeflate_crc32(0, p, n)) << n;
#endif
    }
}

}  // namespace
