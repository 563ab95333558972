// The Deflate writer of the zyrdc program over the library: a peer inflates its streams at
// every level (the single-pass level 1 included), whole and in pieces; the gzip reader reads
// them back; the matcher and the writer give the same bytes in every build.
#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "deflate_support.hpp"
#include "formats/deflate_writer.hpp"
#include "formats/gzip_member.hpp"
#include "support.hpp"
#include "zyrdc.h"

namespace {

using zyrdc::tool::DeflateWriter;

std::vector<uint8_t> Deflate(const std::vector<uint8_t>& data, uint32_t level,
                             const std::vector<size_t>& cuts) {
    DeflateWriter w(level);
    size_t at = 0;
    for (size_t cut : cuts) {
        w.Write({data.data() + at, cut - at});
        at = cut;
    }
    w.Finish();
    const auto bytes = w.Output().Bytes();
    return {bytes.begin(), bytes.end()};
}

TEST(DeflateWriter, PeerInflatesEveryLevelWholeAndInPieces) {
    if (!zyrdc::test::HavePeerInflate())
        GTEST_SKIP() << "neither zlib nor libdeflate is installed for this build";
    const std::vector<std::vector<uint8_t>> inputs = {
        {}, {'x'}, zyrdc::test::VariedData(150000, 1), zyrdc::test::RandomBytes(70000, 2),
        std::vector<uint8_t>(100000, 0)};
    std::mt19937 rng(4);
    for (uint32_t level = 0; level < 30; ++level) {
        for (const auto& data : inputs) {
            for (const auto& cuts :
                 {std::vector<size_t>{data.size()}, zyrdc::test::RandomCuts(data.size(), 20, rng)}) {
                const auto stream = Deflate(data, level, cuts);
                ASSERT_EQ(zyrdc::test::PeerInflate(stream, data.size()), data)
                    << "level " << level << ", " << data.size();
            }
        }
    }
    // Random bytes go out stored, not expanded, by both writers.
    for (uint32_t level : {1u, 6u}) {
        EXPECT_LT(Deflate(inputs[3], level, {inputs[3].size()}).size(), inputs[3].size() + 64) << level;
    }
}

uint32_t Crc(const void* p, size_t n) {
    uint32_t crc = 0;
    if (n > 0) zyrsCRC32_8u(static_cast<const uint8_t*>(p), static_cast<int32_t>(n), &crc);
    return crc;
}

// CRC-32s recorded once; the i686 and x86-64 builds must both reproduce them.
TEST(DeflateWriter, SameBytesInEveryBuild) {
    const auto data = zyrdc::test::VariedData(100000, 77);
    struct Row {
        uint32_t level, lit, dist, gzip;
    } rows[] = {
        {0, 0x393EB821u, 0x1E54EC2Fu, 0x73D56947u},
        {1, 0x314F0CEDu, 0xAA390092u, 0x56065B10u},  // gzip: the single-pass mode
        {6, 0x2A6EF900u, 0x76DE59FAu, 0x9DE05290u},
        {14, 0xDF8620D0u, 0x093C81CCu, 0xF15DB6F0u},
        {19, 0x0D94D9DBu, 0xC062E539u, 0xBFC0A28Cu},
        {25, 0x7279EFC0u, 0xB831E229u, 0x17C8CCA7u},
    };
    for (const Row& r : rows) {
        std::vector<uint8_t> lit(data.size());
        std::vector<uint16_t> dist(data.size());
        std::vector<int32_t> head(32768, -32768), prev(32768, -32768);
        HuffCodeEntry lf[286] = {}, df[30] = {};
        const uint8_t* src = data.data();
        int32_t len = static_cast<int32_t>(data.size()), idx = 0, room = len;
        ASSERT_EQ(zyrsDeflateLZ77_8u(&src, &len, &idx, src, 32768, head.data(), prev.data(), 32768, lf, df,
                                     lit.data(), dist.data(), &room, r.level, 2),
                  StatusOk);
        const size_t n = data.size() - static_cast<size_t>(room);
        const auto gz = zyrdc::tool::GzipBytes(data, r.level);
        EXPECT_EQ(Crc(lit.data(), n), r.lit) << r.level;
        EXPECT_EQ(Crc(dist.data(), 2 * n), r.dist) << r.level;
        EXPECT_EQ(Crc(gz.data(), gz.size()), r.gzip) << r.level;
        EXPECT_EQ(zyrdc::tool::Gunzip(gz), data);
    }
}

}  // namespace
