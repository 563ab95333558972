// Inflate table building: the documented validation cases and check order, and exact entries
// of a small single-level code. (The fuzz harness, replayed in every build, walks every symbol
// of each accepted code back through both layouts.)
#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "deflate_support.hpp"
#include "zyrdc.h"

namespace {

using zyrdc::test::U16;
constexpr uint32_t kUntouched = 0xDDDDDDDDu;

std::vector<uint16_t> Lens(std::initializer_list<std::pair<uint32_t, uint16_t>> runs) {
    std::vector<uint16_t> v;
    for (const auto& [count, len] : runs) v.insert(v.end(), count, len);
    return v;
}

// The complete code with lengths 1, 2, ..., longest - 1, longest, longest: the fewest symbols
// that reach a code of the given length.
std::vector<uint16_t> Chain(uint16_t longest) {
    std::vector<uint16_t> v;
    for (uint16_t n = 1; n <= longest; ++n) v.push_back(n);
    v.push_back(longest);
    return v;
}

TEST(InflateTable, Validation) {
    const auto fixedLit = Lens({{144, 8}, {112, 9}, {24, 7}, {8, 8}});
    auto withDist = [&](std::vector<uint16_t> dist) {
        auto v = fixedLit;
        v.insert(v.end(), dist.begin(), dist.end());
        return v;
    };
    auto eobOnly = Lens({{256, 0}, {1, 1}});
    struct Row {
        const char* what;
        std::vector<uint16_t> lens;
        uint32_t nLit, nDist;
        ZyrStatus want;
        uint32_t kind;  // header word 2 afterwards
    } rows[] = {
        {"fixed literal/length code", fixedLit, 288, 0, StatusOk, 2},
        {"fixed distance code is incomplete", withDist(Lens({{30, 5}})), 288, 30, StatusBadHuffmanCode,
         kUntouched},
        {"no literal/length code", Lens({{288, 0}}), 288, 0, StatusBadHuffmanCode, kUntouched},
        {"one code of length 1", eobOnly, 257, 0, StatusOk, 2},
        {"one code of length 2", Lens({{256, 0}, {1, 2}}), 257, 0, StatusBadHuffmanCode, kUntouched},
        {"three codes of length 1", Lens({{255, 0}, {3, 1}}), 258, 0, StatusBadHuffmanCode, kUntouched},
        {"over-subscribed distances", withDist(Lens({{3, 1}})), 288, 3, StatusBadHuffmanCode, kUntouched},
        {"no distance codes", withDist(Lens({{30, 0}})), 288, 30, StatusOk, 2},
        {"one distance code of length 1", withDist(Lens({{7, 0}, {1, 1}})), 288, 8, StatusOk, 2},
        {"one distance code of length 5", withDist(Lens({{1, 5}})), 288, 1, StatusBadHuffmanCode, kUntouched},
        {"no end of block, single level", Lens({{256, 8}}), 256, 0, StatusBadHuffmanCode, 2},
        {"end of block of length 0", Lens({{256, 8}, {1, 0}}), 257, 0, StatusBadHuffmanCode, 2},
        {"a 12-bit code, no end of block needed", Chain(12), 13, 0, StatusOk, 1},
        {"a 13-bit distance code", withDist(Chain(13)), 288, 14, StatusOk, 1},
        {"a length above 15", Lens({{256, 8}, {1, 16}}), 257, 0, StatusBadHuffmanCode, kUntouched},
    };
    for (const Row& r : rows) {
        InflateHuffTable t;
        std::fill(std::begin(t.header), std::end(t.header), kUntouched);
        EXPECT_EQ(zyrsInflateBuildHuffTable(r.lens.data(), r.nLit, r.nDist, &t), r.want) << r.what;
        EXPECT_EQ(t.header[2], r.kind) << r.what;
        for (int w : {0, 1, 3, 4, 5, 6, 7}) EXPECT_EQ(t.header[w], kUntouched) << r.what << " word " << w;
    }
}

// 'A' 1 bit (code 0), end of block 2 bits (10), 265 and 285 3 bits (110, 111); distances 0 and
// 29 one bit each. Indexes are the codes read least significant bit first.
TEST(InflateTable, SingleLevelEntriesOfASmallCode) {
    std::vector<uint16_t> lens(286 + 30, 0);
    lens['A'] = 1;
    lens[256] = 2;
    lens[265] = 3;
    lens[285] = 3;
    lens[286 + 0] = 1;
    lens[286 + 29] = 1;
    InflateHuffTable t;
    ASSERT_EQ(zyrsInflateBuildHuffTable(lens.data(), 286, 30, &t), StatusOk);
    EXPECT_EQ(t.header[2], 2u);
    EXPECT_EQ(t.header[8], 3u);
    EXPECT_EQ(t.header[9], 1u);
    const uint16_t want[8] = {0x4101, 0x00F2, 0x4101, 0x0893, 0x4101, 0x00F2, 0x4101, 0xFF83};
    for (int i = 0; i < 8; ++i) EXPECT_EQ(U16(t, 40 + 2 * i), want[i]) << i;
    const size_t dist = 40 + (2u << 3);  // 2^(Lmax + 1) bytes on
    const auto* bytes = reinterpret_cast<const uint8_t*>(&t);
    EXPECT_EQ(bytes[dist], 0x01);
    EXPECT_EQ(bytes[dist + 1], 0xD1);  // 13 extra bits, 1-bit code
    EXPECT_EQ(U16(t, dist + 1024), 1);
    EXPECT_EQ(U16(t, dist + 1024 + 2), 24577);
}

}  // namespace
