// Deflate Huffman coding against a bit-at-a-time reference, whole and split (pending bits handed
// over), on both paths; nothing written past the final index. (Peer: the program's writer tests.)
#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "deflate_support.hpp"
#include "support.hpp"
#include "zyrdc.h"

namespace {

using namespace zyrdc::test;

struct Streams {
    std::vector<uint8_t> lit;
    std::vector<uint16_t> dist;
    std::vector<HuffCodeEntry> litCodes, distCodes;
};

BitWriter Reference(const Streams& s, uint32_t pending, uint32_t count) {
    BitWriter b;
    b.Put(pending, count);
    for (size_t i = 0; i < s.lit.size(); ++i) {
        if (s.dist[i] == 0) {
            b.Code(s.litCodes[s.lit[i]]);
            continue;
        }
        const uint32_t len = s.lit[i] + 3u, d = s.dist[i];
        const int c = LengthCode(len), dc = DistanceCode(d);
        b.Code(s.litCodes[257 + c]);
        b.Put(len - kLengthBase[c], c < 8 || c == 28 ? 0 : c / 4 - 1);
        b.Code(s.distCodes[dc]);
        b.Put(d - kDistBase[dc], dc < 4 ? 0 : dc / 2 - 1);
    }
    return b;
}

// Random codes (any bit pattern below 2^len, lengths 0..15) and entries, a third matches.
Streams RandomStreams(size_t n, std::mt19937& rng) {
    Streams s;
    for (int i = 0; i < 286 + 30; ++i) {
        const uint16_t len = static_cast<uint16_t>(rng() % 16);
        const auto code = static_cast<uint16_t>(rng() & ((1u << len) - 1));
        (i < 286 ? s.litCodes : s.distCodes).push_back({code, len});
    }
    for (size_t i = 0; i < n; ++i) {
        s.lit.push_back(static_cast<uint8_t>(rng()));
        const uint32_t far = rng() % 4 ? rng() % 300 : rng() % 32768;
        s.dist.push_back(rng() % 3 ? 0 : static_cast<uint16_t>(1 + far));
    }
    return s;
}

// Codes s through the exported function in the pieces ending at cuts, from dstIdx `at` of a
// buffer full of 0xA5, and checks bytes, pending bits, index and the untouched rest.
void CheckAgainstReference(Streams s, const std::vector<size_t>& cuts, uint32_t pending, uint32_t count,
                           uint32_t at) {
    const auto want = Reference(s, pending, count);  // whole bytes, then the pending ones
    const size_t n = s.lit.size();
    s.lit.push_back(0);  // one unused entry more, so that no stream pointer is null
    s.dist.push_back(0);
    std::vector<uint8_t> dst(at + 6 * n + 8, 0xA5);
    uint16_t code = static_cast<uint16_t>(pending);
    uint32_t bits = count, idx = at;
    for (size_t from = 0, k = 0; k < cuts.size(); from = cuts[k++]) {
        ASSERT_EQ(zyrsDeflateHuff_8u(s.lit.data() + from, s.dist.data() + from,
                                     static_cast<uint32_t>(cuts[k] - from), &code, &bits, s.litCodes.data(),
                                     s.distCodes.data(), dst.data(), &idx), StatusOk);
        ASSERT_LT(bits, 8u);
    }
    ASSERT_EQ(idx, at + want.n / 8) << n;
    ASSERT_TRUE(std::equal(want.bytes.begin(), want.bytes.begin() + want.n / 8, dst.begin() + at)) << n;
    EXPECT_EQ(code, want.n % 8 ? want.bytes.back() : 0);
    EXPECT_EQ(bits, want.n % 8);
    EXPECT_EQ(std::count(dst.begin() + idx, dst.end(), 0xA5), static_cast<ptrdiff_t>(dst.size() - idx))
        << "written past the final index, n = " << n;
}

// Edge rows: no entries with 10 pending bits; the longest match at the farthest distance
// (symbol 285 without extra bits, distance code 29 with 8191 in 13 bits); codes that fill the
// 32-bit accumulator exactly and then overflow it. Random rows: below 2048 entries a call takes
// the entry-by-entry path, from 2048 on the vector path. Every row, whole and split into calls
// anyhow, must leave what the reference leaves.
TEST(DeflateHuff, MatchesReferenceWholeAndSplit) {
    std::vector<HuffCodeEntry> lit(286, {0, 0}), dist(30, {0, 0});
    lit['A'] = {0x1F, 5};
    lit['B'] = {0x7FFF, 15};
    lit[285] = {0x5, 3};
    dist[29] = {0x2, 2};
    struct Row {
        Streams s;
        uint32_t pending, count;
    };
    std::vector<Row> rows = {
        {{{}, {}, lit, dist}, 0x3FF, 10},
        {{{255}, {32768}, lit, dist}, 0, 0},
        {{{'B', 'B', 'A', 'B'}, {0, 0, 0, 0}, lit, dist}, 0x3, 2},  // 2 + 15 + 15 = 32, then 5 and 15
    };
    std::mt19937 rng(21);
    for (size_t n : {0u, 1u, 7u, 8u, 9u, 100u, 511u, 512u, 513u, 2047u, 2048u, 2049u, 6000u, 40000u}) {
        for (uint32_t count : {0u, 3u, 15u}) {
            const uint32_t pending = static_cast<uint32_t>(rng()) & ((1u << count) - 1);
            rows.push_back({RandomStreams(n, rng), pending, count});
        }
    }
    for (const Row& r : rows) {
        const size_t n = r.s.lit.size();
        CheckAgainstReference(r.s, {n}, r.pending, r.count, static_cast<uint32_t>(rng() % 5));
        CheckAgainstReference(r.s, RandomCuts(n, 6, rng), r.pending, r.count, 3);
    }
}

}  // namespace
