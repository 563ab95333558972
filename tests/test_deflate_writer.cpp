// The Deflate writer of the zyrdc program over the library: a peer inflates its streams at
// every level, whole and in pieces; its codes are optimal under the 15-bit limit; and the
// matcher and the writer give the same bytes in every build.
#include <gtest/gtest.h>

#include <queue>
#include <random>
#include <vector>

#include "deflate_support.hpp"
#include "deflate_writer.hpp"
#include "inflate_reader.hpp"
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
    // Random bytes go out stored, not expanded.
    const auto random = Deflate(inputs[3], 6, {inputs[3].size()});
    zyrdc::tool::InflateStats stats;
    EXPECT_EQ(zyrdc::tool::InflateRaw(random, &stats), inputs[3]);
    EXPECT_GT(stats.storedBlocks, 0u);
    EXPECT_LT(random.size(), inputs[3].size() + 64);
}

// Cost of a plain Huffman code (no limit): the sum of the weights of all merges.
uint64_t PlainHuffmanCost(const std::vector<uint32_t>& counts) {
    std::priority_queue<uint64_t, std::vector<uint64_t>, std::greater<>> q;
    for (uint32_t c : counts) {
        if (c) q.push(c);
    }
    uint64_t cost = 0;
    while (q.size() > 1) {
        const uint64_t a = q.top();
        q.pop();
        const uint64_t merged = a + q.top();
        q.pop();
        cost += merged;
        q.push(merged);
    }
    return cost;
}

// Complete codes within the limit. Where a plain Huffman code stays within it (counts within a
// factor of 5 give depths far below 15) the cost is the same; Fibonacci counts need 29 levels
// plainly, so there the limit must cost something.
TEST(DeflateWriter, CodeLengthsAreOptimalUnderTheLimit) {
    std::mt19937 rng(6);
    std::vector<uint32_t> fib(30), close(286, 0);
    for (size_t i = 0; i < fib.size(); ++i) fib[i] = i < 2 ? 1 : fib[i - 1] + fib[i - 2];
    for (size_t i = 0; i < close.size(); i += 1 + rng() % 3) close[i] = 1000 + rng() % 4000;
    const std::pair<std::vector<uint32_t>, int> cases[] = {{close, 15}, {fib, 15}, {fib, 7}, {{0, 5}, 7}};
    for (const auto& [counts, limit] : cases) {
        std::vector<uint8_t> lens(counts.size());
        DeflateWriter::LimitedLengths(counts.data(), static_cast<int>(counts.size()), limit, lens.data());
        uint64_t cost = 0, used = 0;
        double kraft = 0;
        for (size_t s = 0; s < counts.size(); ++s) {
            ASSERT_EQ(lens[s] == 0, counts[s] == 0);
            ASSERT_LE(lens[s], limit);
            cost += uint64_t{counts[s]} * lens[s];
            kraft += lens[s] ? 1.0 / (1u << lens[s]) : 0;
            used += counts[s] != 0;
        }
        EXPECT_DOUBLE_EQ(kraft, used == 1 ? 0.5 : 1.0);  // one symbol takes one bit
        if (counts == close) {
            EXPECT_EQ(cost, PlainHuffmanCost(counts));
        } else if (counts == fib) {
            EXPECT_GT(cost, PlainHuffmanCost(counts));
        }
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
        {1, 0x314F0CEDu, 0xAA390092u, 0x6FF2F709u},
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
