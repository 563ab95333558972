// The fastest single-pass mode: length-limited codes against a reference package-merge (optimal
// by construction), streams that the peer decodes and that every split writes
// alike and every build alike, and the documented edges of the parse and the headers.
#include <gtest/gtest.h>

#include <algorithm>
#include <numeric>
#include <random>
#include <string>
#include <vector>

#include "core/huff_limit.hpp"
#include "deflate_support.hpp"
#include "support.hpp"
#include "zyrdc.h"

namespace {

using namespace zyrdc::test;

// The least total cost sum(weight x length) of a code under the limit, by package-merge: the
// sum of the 2n - 2 lightest items of the last list.
uint64_t OptimalCost(const std::vector<uint32_t>& w, uint32_t limit) {
    std::vector<uint64_t> leaves, list;
    for (uint32_t x : w)
        if (x) leaves.push_back(x);
    std::sort(leaves.begin(), leaves.end());
    list = leaves;
    for (uint32_t d = 1; d < limit; ++d) {
        std::vector<uint64_t> merged = leaves;
        for (size_t i = 0; i + 1 < list.size(); i += 2) merged.push_back(list[i] + list[i + 1]);
        std::sort(merged.begin(), merged.end());
        list = std::move(merged);
    }
    const long keep = static_cast<long>(2 * leaves.size() - 2);
    return std::accumulate(list.begin(), list.begin() + keep, uint64_t{0});
}

// Skewed weights that a plain Huffman code would make deeper than the limit, ties, and the
// alphabets of the literal/length (limit 15) and code-length (limit 7) codes: the lengths
// make a complete code within the limit at the least cost.
TEST(FastestCodes, LengthLimitedBuilderIsOptimal) {
    std::mt19937 rng(31);
    std::vector<std::pair<std::vector<uint32_t>, uint32_t>> rows = {{{5, 0, 9}, 1}};
    std::vector<uint32_t> pow2;
    for (int i = 0; i < 32; ++i) pow2.push_back(1u << i);
    rows.push_back({pow2, 15});
    rows.push_back({std::vector<uint32_t>(pow2.begin(), pow2.begin() + 19), 7});
    for (int i = 0; i < 6; ++i) {
        std::vector<uint32_t> w(2 + rng() % 5);
        for (auto& x : w) x = 1 + rng() % (i % 2 ? 1000 : 3);
        rows.push_back({w, 3});
    }
    for (uint32_t limit : {15u, 17u, 20u}) {
        std::vector<uint32_t> w(limit == 15 ? 286 : 258);
        for (size_t s = 0; s < w.size(); ++s)
            w[s] = s % 7 == 3 ? 0 : rng() % 4 == 0 ? 1u << (rng() % 24) : 1 + rng() % 50;
        rows.push_back({w, limit});
    }
    for (const auto& [w, limit] : rows) {
        std::vector<uint8_t> lens(w.size());
        zyrdc::LimitedCodeLengths(w.data(), static_cast<uint32_t>(w.size()), limit, lens.data());
        double kraft = 0;
        uint64_t cost = 0;
        for (size_t s = 0; s < w.size(); ++s) {
            kraft += lens[s] ? 1.0 / (1u << lens[s]) : 0;
            cost += uint64_t{w[s]} * lens[s];
            EXPECT_TRUE(lens[s] <= limit && (lens[s] == 0) == (w[s] == 0)) << s;
        }
        EXPECT_DOUBLE_EQ(kraft, 1.0) << w.size() << " symbols, limit " << limit;
        EXPECT_EQ(cost, OptimalCost(w, limit)) << w.size() << " symbols, limit " << limit;
    }
}

// One caller of zyrsDeflateLZ77Fastest_8u: codes for every symbol from zero counts (or the fixed
// code), the hash table, the output, the pending bits and the position.
struct Coder {
    HuffCodeEntry lc[286], dc[30];
    std::vector<int32_t> head;
    std::vector<uint8_t> out;
    uint16_t code = 0;
    uint32_t bits = 0, idx = 0;
    int32_t srcIdx = 0;

    Coder(int mode, uint32_t hashSize, size_t outSize) : head(hashSize, -32768), out(outSize) {
        uint32_t lit[286] = {}, dist[30] = {};
        EXPECT_EQ(zyrsDeflateLZ77FastestGenHuffTable_8u(lit, dist, mode, lc, dc), StatusOk);
    }
    void FinalHeader(int type) {
        DeflateBlockHeader h;
        EXPECT_EQ(zyrsDeflateLZ77FastestPrecompHeader_8u(type, lc, dc, &h), StatusOk);
        EXPECT_EQ(zyrsDeflateLZ77FastestGenHeader_8u(&h, 1, 0, &code, &bits, out.data(), 1024, &idx),
                  StatusOk);
    }
    // Room up to `room` bytes past idx (0: all of out).
    ZyrStatus Run(const uint8_t*& src, int32_t& len, const uint8_t* window, uint32_t winSize, int32_t flush,
                  size_t room = 0) {
        const auto cap = static_cast<uint32_t>(room ? std::min(out.size(), idx + room) : out.size());
        return zyrsDeflateLZ77Fastest_8u(&src, &len, &srcIdx, window, winSize, head.data(),
                                         static_cast<uint32_t>(head.size()), lc, dc, &code, &bits, out.data(),
                                         cap, &idx, flush);
    }
};

// One final block of the mode's codes; the source fed in up to `piece` bytes a call (0: all of
// it) with flush 0 between, the room given in up to `room` bytes a call (0: all of it). Apart:
// each piece in a buffer of its own and the history before it in another, the positions
// starting at `start`.
std::vector<uint8_t> WriteStream(const std::vector<uint8_t>& data, uint32_t winSize, uint32_t hashSize,
                                 int mode, size_t piece = 0, size_t room = 0, uint32_t seed = 0,
                                 bool apart = false, int32_t start = 0) {
    std::mt19937 rng(seed);
    Coder c(mode, hashSize, data.size() * 2 + 1024);
    c.srcIdx = start;
    c.FinalHeader(mode == DeflateCodesFixed ? DeflateBlockFixed : DeflateBlockDynamic);
    size_t pos = 0, fed = 0;
    ZyrStatus s = StatusOk;
    do {
        if (s == StatusOk) fed = piece ? std::min(data.size(), fed + 1 + rng() % piece) : data.size();
        const auto at = data.begin() + static_cast<long>(pos);
        std::vector<uint8_t> own(at, data.begin() + static_cast<long>(fed));
        std::vector<uint8_t> history(at - (apart ? std::min<long>(static_cast<long>(pos), winSize) : 0), at);
        own.push_back(0);  // never an empty buffer
        const uint8_t* src = apart || data.empty() ? own.data() : data.data() + pos;
        int32_t len = static_cast<int32_t>(fed - pos);
        const uint8_t* window = apart && pos ? history.data() + history.size() : src;
        s = c.Run(src, len, window, winSize, fed < data.size() ? 0 : 4, room ? 1 + rng() % room : 0);
        EXPECT_TRUE(s == StatusOk || s == StatusDstFull) << s;
        if (s < 0) return {};
        pos = fed - static_cast<size_t>(len);
    } while (s == StatusDstFull || fed < data.size());
    c.out.resize(c.idx);
    return c.out;
}

// Each stream decodes in the peer (and here: the round-trip fuzz harness). Written again with
// the source and the room cut anywhere, the history apart from the source and the positions
// near the top of their range (moved down on the way), it is the same bytes: nothing depends on
// where a call ended or where the history lies. The CRC of all of them is the same in both builds.
TEST(Fastest, StreamsDecodeAndAreTheSameWhateverTheSplitsAndBuild) {
    std::mt19937 rng(32);
    const std::vector<std::vector<uint8_t>> inputs = {
        {}, {'z'}, VariedData(200000, 33), RandomBytes(5000, 34), std::vector<uint8_t>(3000, 'q')};
    struct Row {
        uint32_t winSize, hashSize;
        int mode;
    } rows[] = {{32768, 32768, DeflateCodesAll}, {32768, 32768, DeflateCodesFixed},
                {256, 256, DeflateCodesAll},     {4096, 256, DeflateCodesAll},
                {32768, 65536, DeflateCodesAll}};
    uint32_t crc = 0;
    for (const Row& r : rows) {
        for (const auto& data : inputs) {
            const std::string what = std::to_string(r.winSize) + "/" + std::to_string(r.hashSize) + "/" +
                                     std::to_string(r.mode) + ", " + std::to_string(data.size()) + " bytes";
            const auto once = WriteStream(data, r.winSize, r.hashSize, r.mode);
            EXPECT_EQ(PeerInflate(once, data.size()), data) << what;
            EXPECT_EQ(WriteStream(data, r.winSize, r.hashSize, r.mode, 3000, 40, rng()), once) << what;
            const size_t piece = 1 + rng() % 300;
            EXPECT_EQ(WriteStream(data, r.winSize, r.hashSize, r.mode, piece, 0, rng(), true), once) << what;
            const int32_t nearTop = 0x7FFFFFFF - 70000;
            EXPECT_EQ(WriteStream(data, r.winSize, r.hashSize, r.mode, 9000, 0, 0, true, nearTop), once)
                << what << ", near the top";
            ASSERT_EQ(zyrsCRC32_8u(once.data(), static_cast<int32_t>(once.size()), &crc), StatusOk);
        }
    }
    EXPECT_EQ(crc, 0x17D6E4A0u) << std::hex << crc;
}

// Flush 0 leaves the 261-byte lookahead, 2 codes everything, 4 also empties the accumulator;
// too little room and a distance code of length 0 stop before anything is written.
TEST(Fastest, FlushRoomAndTableEdges) {
    const auto data = RandomBytes(1000, 35);  // no match runs past the lookahead limit
    struct Row {
        const char* name;
        int32_t flush;
        uint32_t room;
        int zeroDist;
        ZyrStatus want;
        int32_t leftSrc, bitsLeft;
    } rows[] = {
        {"flush 0 keeps 261", 0, 4000, -1, StatusOk, 261, -1},
        {"flush 2 codes all", 2, 4000, -1, StatusOk, 0, -1},
        {"flush 4 empties the accumulator", 4, 4000, -1, StatusOk, 0, 0},
        {"15 bytes of room", 2, 15, -1, StatusDstFull, 1000, 5},
        {"one zero-length distance entry", 2, 4000, 17, StatusBadHuffmanCode, 1000, 5},
    };
    for (const Row& r : rows) {
        Coder c(DeflateCodesAll, 1024, 4000);
        c.code = 0x15;
        c.bits = 5;
        if (r.zeroDist >= 0) c.dc[r.zeroDist].len = 0;
        const uint8_t* src = data.data();
        int32_t len = 1000;
        EXPECT_EQ(c.Run(src, len, src, 32768, r.flush, r.room), r.want) << r.name;
        EXPECT_EQ(len, r.leftSrc) << r.name;
        EXPECT_TRUE(r.bitsLeft < 0 || static_cast<int>(c.bits) == r.bitsLeft) << r.name;
        EXPECT_TRUE(r.want != StatusDstFull || c.idx == 0) << r.name;
    }
}

// GetStat counts the symbols that Fastest then codes over the same bytes: their code and
// extra bits add up to the bits written.
TEST(Fastest, GetStatCountsWhatFastestCodes) {
    const auto data = VariedData(30000, 37);
    uint32_t lit[286] = {}, dist[30] = {};
    std::vector<int32_t> scratch(2048);
    ASSERT_EQ(zyrsDeflateLZ77FastestGetStat_8u(data.data(), 30000, scratch.data(), 2048, lit, dist),
              StatusOk);
    Coder c(DeflateCodesAll, 2048, 100000);
    const uint8_t* src = data.data();
    int32_t len = 30000;
    ASSERT_EQ(c.Run(src, len, src, 32768, 2), StatusOk);
    uint64_t expectBits = 0;
    for (int s = 0; s < 286; ++s)
        expectBits += uint64_t{lit[s]} * (c.lc[s].len + (s > 264 && s < 285 ? (s - 261) / 4 : 0));
    for (int s = 0; s < 30; ++s) expectBits += uint64_t{dist[s]} * (c.dc[s].len + (s >= 4 ? s / 2 - 1 : 0));
    EXPECT_EQ(expectBits, uint64_t{c.idx} * 8 + c.bits);
    EXPECT_EQ(lit[256], 0u);
}

// Precomputed headers: codes no header can describe, unknown code modes and block types, the
// checks of GenHeader in order; stored headers after every pending bit count 0..7 with LEN 0
// and 65535, refused whole when one byte short, decode in the peer and here.
TEST(FastestHeaders, PrecompAndGenHeader) {
    Coder all(DeflateCodesAll, 1, 1);
    HuffCodeEntry *lc = all.lc, *dc = all.dc, bad[286];
    DeflateBlockHeader h;
    for (auto [symbol, len] : {std::pair<int, uint16_t>{7, 16}, {256, 0}}) {
        std::copy(lc, lc + 286, bad);
        bad[symbol].len = len;
        EXPECT_EQ(zyrsDeflateLZ77FastestPrecompHeader_8u(2, bad, dc, &h), StatusBadHuffmanCode) << symbol;
    }
    EXPECT_EQ(zyrsDeflateLZ77FastestPrecompHeader_8u(3, lc, dc, &h), StatusBadArgument);
    uint32_t zeros[286] = {};
    EXPECT_EQ(zyrsDeflateLZ77FastestGenHuffTable_8u(zeros, zeros, 3, lc, dc), StatusBadArgument);
    ASSERT_EQ(zyrsDeflateLZ77FastestPrecompHeader_8u(0, lc, dc, &h), StatusOk);
    uint16_t code = 0;
    uint32_t bits = 0, idx = 0;
    uint8_t small[16];
    EXPECT_EQ(zyrsDeflateLZ77FastestGenHeader_8u(&h, 2, 0, &code, &bits, small, 16, &idx), StatusBadArgument);
    DeflateBlockHeader wrong = h;
    wrong.magic ^= 1;
    EXPECT_EQ(zyrsDeflateLZ77FastestGenHeader_8u(&wrong, 1, 0, &code, &bits, small, 16, &idx),
              StatusBadContext);
    EXPECT_EQ(zyrsDeflateLZ77FastestGenHeader_8u(&h, 1, 65536, &code, &bits, small, 16, &idx),
              StatusBadSize);
    // Pending bits 0..7 come from a fixed block of m 9-bit literals before the stored one.
    const auto fixed = FixedLitCodes();
    for (uint32_t m = 0; m < 8; ++m) {
        for (int32_t n : {0, 65535}) {
            std::vector<uint8_t> out(70000), want(m, 200);
            BitWriter pre;
            pre.Put(1 << 1, 3);
            for (uint32_t k = 0; k < m; ++k) pre.Code(fixed[200]);
            pre.Code(fixed[256]);
            bits = pre.n % 8, idx = pre.n / 8;
            code = static_cast<uint16_t>(bits ? pre.bytes.back() : 0);
            std::copy(pre.bytes.begin(), pre.bytes.begin() + idx, out.begin());
            const uint32_t short1 = idx + (bits + 10) / 8 + 3;  // one byte too few: nothing written
            ASSERT_EQ(zyrsDeflateLZ77FastestGenHeader_8u(&h, 1, n, &code, &bits, out.data(), short1, &idx),
                      StatusDstFull);
            ASSERT_EQ(zyrsDeflateLZ77FastestGenHeader_8u(&h, 1, n, &code, &bits, out.data(), 70000, &idx),
                      StatusOk);
            EXPECT_EQ(bits, 0u);
            for (int32_t i = 0; i < n; ++i) want.push_back(out[idx++] = static_cast<uint8_t>(i));
            out.resize(idx);
            EXPECT_EQ(Decode(out).out, want) << m << " " << n;
            EXPECT_EQ(PeerInflate(out, want.size()), want) << m << " " << n;
        }
    }
}

}  // namespace
