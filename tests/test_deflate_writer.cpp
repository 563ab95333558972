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

std::vector<uint8_t> Deflate(const std::vector<uint8_t>& data, uint32_t level, const std::vector<size_t>& cuts) {
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
    if (!zyrdc::test::HavePeerInflate()) GTEST_SKIP() << "neither zlib nor libdeflate is installed for this build";
    const std::vector<std::vector<uint8_t>> inputs = {
        {}, {'x'}, zyrdc::test::VariedData(150000, 1), zyrdc::test::RandomBytes(70000, 2),
        std::vector<uint8_t>(100000, 0)};
    std::mt19937 rng(4);
    for (uint32_t level = 0; level < 30; ++level) {
        for (const auto& data : inputs) {
            for (const auto& cuts : {std::vector<size_t>{data.size()}, zyrdc::test::RandomCuts(data.size(), 20, rng)}) {
                const auto stream = Deflate(data, level, cuts);
                ASSERT_EQ(zyrdc::test::PeerInflate(stream, data.size()), data) << "level " << level << ", " << data.size();
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

// Lengths of a plain Huffman code (no limit), by merging the two lightest nodes.
std::vector<int> PlainHuffmanLengths(const std::vector<uint32_t>& counts) {
    using Node = std::pair<uint64_t, int>;
    std::priority_queue<Node, std::vector<Node>, std::greater<>> q;
    std::vector<int> parent(counts.size(), -1);
    for (size_t s = 0; s < counts.size(); ++s) {
        if (counts[s]) q.push({counts[s], static_cast<int>(s)});
    }
    while (q.size() > 1) {
        const Node a = q.top();
        q.pop();
        const Node b = q.top();
        q.pop();
        parent.push_back(-1);
        parent[static_cast<size_t>(a.second)] = parent[static_cast<size_t>(b.second)] = static_cast<int>(parent.size()) - 1;
        q.push({a.first + b.first, static_cast<int>(parent.size()) - 1});
    }
    std::vector<int> lens(counts.size());
    for (size_t s = 0; s < counts.size(); ++s) {
        for (int n = static_cast<int>(s); counts[s] && parent[static_cast<size_t>(n)] >= 0; n = parent[static_cast<size_t>(n)]) {
            ++lens[s];
        }
    }
    return lens;
}

// Against a plain Huffman code: the same cost whenever that code stays within the limit,
// otherwise a complete code of higher cost within the limit.
TEST(DeflateWriter, CodeLengthsAreOptimalUnderTheLimit) {
    std::mt19937 rng(6);
    std::vector<uint32_t> fib(30), random(286);
    for (size_t i = 0; i < fib.size(); ++i) fib[i] = i < 2 ? 1 : fib[i - 1] + fib[i - 2];
    for (auto& c : random) c = rng() % 4 ? rng() % 5000 : 0;
    const std::vector<std::vector<uint32_t>> cases = {{5}, {1, 1}, {0, 3, 0, 0, 9}, std::vector<uint32_t>(286, 7), fib, random};
    for (const auto& counts : cases) {
        for (int limit : {7, 15}) {
            if (counts.size() > (1u << limit)) continue;
            std::vector<uint8_t> lens(counts.size());
            DeflateWriter::LimitedLengths(counts.data(), static_cast<int>(counts.size()), limit, lens.data());
            const std::vector<int> plain = PlainHuffmanLengths(counts);
            uint64_t cost = 0, plainCost = 0, used = 0;
            double kraft = 0;
            for (size_t s = 0; s < counts.size(); ++s) {
                ASSERT_EQ(lens[s] == 0, counts[s] == 0);
                ASSERT_LE(lens[s], limit);
                cost += uint64_t{counts[s]} * lens[s];
                plainCost += uint64_t{counts[s]} * static_cast<uint64_t>(plain[s]);
                kraft += lens[s] ? 1.0 / (1u << lens[s]) : 0;
                used += counts[s] != 0;
            }
            if (used == 1) {
                EXPECT_EQ(kraft, 0.5);  // one symbol, one bit
                continue;
            }
            EXPECT_DOUBLE_EQ(kraft, 1.0);
            if (*std::max_element(plain.begin(), plain.end()) <= limit) {
                EXPECT_EQ(cost, plainCost);
            } else {
                EXPECT_GT(cost, plainCost);
            }
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
        ASSERT_EQ(zyrsDeflateLZ77_8u(&src, &len, &idx, src, 32768, head.data(), prev.data(), 32768, lf, df, lit.data(),
                                     dist.data(), &room, r.level, 2),
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
