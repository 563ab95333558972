// Inflate table building: the documented validation cases, and what a refused set leaves of
// the record. (The fuzz harness, replayed in every build, walks every symbol of each accepted
// code back through both layouts, entries and bases.)
#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "zyrdc.h"

namespace {

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

// Which sets are refused, which single- (kind 2) or two-level (kind 1) record an accepted one
// gets, and that the record's other words are left alone either way.
TEST(InflateTable, Validation) {
    const auto fixedLit = Lens({{144, 8}, {112, 9}, {24, 7}, {8, 8}});
    auto withDist = [&](std::vector<uint16_t> d) {
        d.insert(d.begin(), fixedLit.begin(), fixedLit.end());
        return d;
    };
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
        {"one code of length 1", Lens({{256, 0}, {1, 1}}), 257, 0, StatusOk, 2},
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

}  // namespace
