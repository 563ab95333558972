// The fastest single-pass mode: length-limited codes against a reference package-merge
// (optimal by construction), headers and blocks that zlib and zyrsInflate_8u decode, resumption at
// every split, and the same bytes in every build.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include "core/huff_limit.hpp"
#include "deflate_support.hpp"
#include "support.hpp"
#include "zyrdc.h"

namespace {

using namespace zyrdc::test;

// Package-merge written out plainly: every item carries how often it holds each symbol.
std::vector<uint8_t> ReferenceLengths(const std::vector<uint32_t>& w, uint32_t limit) {
    struct Item { uint64_t weight; std::vector<uint8_t> holds; };
    std::vector<Item> leaves;
    for (size_t s = 0; s < w.size(); ++s) {
        if (w[s] == 0) continue;
        leaves.push_back({w[s], std::vector<uint8_t>(w.size(), 0)});
        leaves.back().holds[s] = 1;
    }
    std::stable_sort(leaves.begin(), leaves.end(), [](const Item& a, const Item& b) { return a.weight < b.weight; });
    const size_t keep = 2 * leaves.size() - 2;
    std::vector<Item> list = leaves;
    for (uint32_t d = limit - 1; d >= 1; --d) {
        std::vector<Item> packages, merged;
        for (size_t i = 0; i + 1 < list.size(); i += 2) {
            Item p{list[i].weight + list[i + 1].weight, list[i].holds};
            for (size_t s = 0; s < w.size(); ++s) p.holds[s] = static_cast<uint8_t>(p.holds[s] + list[i + 1].holds[s]);
            packages.push_back(std::move(p));
        }
        std::merge(leaves.begin(), leaves.end(), packages.begin(), packages.end(), std::back_inserter(merged),
                   [](const Item& a, const Item& b) { return a.weight < b.weight; });  // leaves first on ties
        merged.resize(std::min(merged.size(), keep));
        list = std::move(merged);
    }
    std::vector<uint8_t> lens(w.size(), 0);
    for (size_t i = 0; i < keep; ++i)
        for (size_t s = 0; s < w.size(); ++s) lens[s] = static_cast<uint8_t>(lens[s] + list[i].holds[s]);
    return lens;
}

double Kraft(const std::vector<uint8_t>& lens) {
    double k = 0;
    for (uint8_t l : lens)
        if (l) k += 1.0 / (1u << l);
    return k;
}

TEST(FastestCodes, LengthLimitedBuilderMatchesReference) {
    std::mt19937 rng(31);
    struct Row { std::string name; std::vector<uint32_t> w; uint32_t limit; };
    std::vector<Row> rows;
    std::vector<uint32_t> pow2;
    for (int i = 0; i < 32; ++i) pow2.push_back(1u << i);
    rows.push_back({"powers of two, 15", pow2, 15});
    rows.push_back({"powers of two, 7 over 19", std::vector<uint32_t>(pow2.begin(), pow2.begin() + 19), 7});
    rows.push_back({"two symbols", {5, 0, 9}, 1});
    for (int i = 0; i < 6; ++i) {
        std::vector<uint32_t> w(2 + rng() % 5);
        for (auto& x : w) x = 1 + rng() % (i % 2 ? 1000 : 3);
        rows.push_back({std::to_string(i) + " small", w, 3});
    }
    for (uint32_t limit : {15u, 17u, 20u}) {
        std::vector<uint32_t> w(limit == 15 ? 286 : 258);
        for (size_t s = 0; s < w.size(); ++s) w[s] = s % 7 == 3 ? 0 : (rng() % 4 == 0 ? 1u << (rng() % 24) : 1 + rng() % 50);
        rows.push_back({std::string("alphabet of ") + std::to_string(w.size()), w, limit});
    }
    for (const Row& r : rows) {
        std::vector<uint8_t> lens(r.w.size());
        zyrdc::LimitedCodeLengths(r.w.data(), static_cast<uint32_t>(r.w.size()), r.limit, lens.data());
        EXPECT_EQ(lens, ReferenceLengths(r.w, r.limit)) << r.name;
        EXPECT_DOUBLE_EQ(Kraft(lens), 1.0) << r.name;
        EXPECT_LE(*std::max_element(lens.begin(), lens.end()), r.limit) << r.name;
    }
}

std::vector<uint8_t> LensOf(const HuffCodeEntry* e, size_t n) {
    std::vector<uint8_t> v(n);
    for (size_t i = 0; i < n; ++i) v[i] = static_cast<uint8_t>(e[i].len);
    return v;
}

TEST(FastestCodes, GenHuffTableModes) {
    struct Row { const char* name; int mode; std::vector<std::pair<int, uint32_t>> lit, dist; std::vector<int> litLenHist, distLenHist; };
    // Length histograms: how many symbols have each length 0..9.
    const Row rows[] = {
        {"all, zero counts", DeflateCodesAll, {}, {}, {0, 0, 0, 0, 0, 0, 0, 0, 226, 60}, {0, 0, 0, 0, 2, 28, 0, 0, 0, 0}},
        {"used, only 'a'", DeflateCodesUsed, {{'a', 10}}, {}, {284, 2, 0, 0, 0, 0, 0, 0, 0, 0}, {28, 2, 0, 0, 0, 0, 0, 0, 0, 0}},
        {"used, one length, no distance", DeflateCodesUsed, {{'a', 3}, {260, 1}}, {},
         {283, 1, 2, 0, 0, 0, 0, 0, 0, 0}, {28, 2, 0, 0, 0, 0, 0, 0, 0, 0}},
    };
    for (const Row& r : rows) {
        uint32_t lit[286] = {}, dist[30] = {};
        for (auto [s, c] : r.lit) lit[s] = c;
        for (auto [s, c] : r.dist) dist[s] = c;
        HuffCodeEntry lc[286], dc[30];
        ASSERT_EQ(zyrsDeflateLZ77FastestGenHuffTable_8u(lit, dist, r.mode, lc, dc), StatusOk);
        std::vector<int> lh(10), dh(10);
        for (auto e : lc) ++lh[e.len];
        for (auto e : dc) ++dh[e.len];
        EXPECT_EQ(lh, r.litLenHist) << r.name;
        EXPECT_EQ(dh, r.distLenHist) << r.name;
        const auto canon = CanonicalCodes(LensOf(lc, 286));
        for (int s = 0; s < 286; ++s) EXPECT_EQ(lc[s].code, canon[s].code) << r.name << " " << s;
    }
    uint32_t lit[286] = {}, dist[30] = {};
    HuffCodeEntry lc[286], dc[30];
    ASSERT_EQ(zyrsDeflateLZ77FastestGenHuffTable_8u(lit, dist, DeflateCodesFixed, lc, dc), StatusOk);
    const auto fl = FixedLitCodes(), fd = FixedDistCodes();
    for (int s = 0; s < 286; ++s) EXPECT_TRUE(lc[s].code == fl[s].code && lc[s].len == fl[s].len) << s;
    for (int s = 0; s < 30; ++s) EXPECT_TRUE(dc[s].code == fd[s].code && dc[s].len == fd[s].len) << s;
    EXPECT_EQ(zyrsDeflateLZ77FastestGenHuffTable_8u(lit, dist, 3, lc, dc), StatusBadArgument);
}

// A whole stream: GetStat over a sample, codes of the mode, PrecompHeader and GenHeader per
// block, Fastest; blocks of blockSize, the source fed in `piece` bytes with flush 0 between.
struct Writer {
    uint32_t winSize = 32768, hashSize = 32768;
    int codeMode = DeflateCodesAll;
    size_t blockSize = 256 * 1024, sample = 16384, piece = 0, room = 0;  // 0: all at once
};

std::vector<uint8_t> WriteStream(const std::vector<uint8_t>& data, const Writer& wr, std::mt19937* rng = nullptr) {
    std::vector<uint8_t> out(data.size() * 2 + 1024);
    std::vector<int32_t> head(wr.hashSize, -32768), scratch(wr.hashSize);
    uint16_t code = 0;
    uint32_t bits = 0, idx = 0;
    int32_t srcIdx = 0;
    size_t at = 0;
    do {
        const size_t end = std::min(data.size(), at + wr.blockSize);
        uint32_t lit[286] = {}, dist[30] = {};
        if (end > at) {
            EXPECT_EQ(zyrsDeflateLZ77FastestGetStat_8u(data.data() + at, static_cast<int32_t>(std::min(wr.sample, end - at)),
                                                       scratch.data(), wr.hashSize, lit, dist), StatusOk);
        }
        HuffCodeEntry lc[286], dc[30];
        EXPECT_EQ(zyrsDeflateLZ77FastestGenHuffTable_8u(lit, dist, wr.codeMode, lc, dc), StatusOk);
        DeflateBlockHeader h;
        EXPECT_EQ(zyrsDeflateLZ77FastestPrecompHeader_8u(wr.codeMode == DeflateCodesFixed ? 1 : 2, lc, dc, &h), StatusOk);
        const bool last = end == data.size();
        EXPECT_EQ(zyrsDeflateLZ77FastestGenHeader_8u(&h, last, 0, &code, &bits, out.data(), static_cast<uint32_t>(out.size()), &idx), StatusOk);
        // The source of a block in pieces; history is the data before it (contiguous).
        size_t pos = at, fed = at;
        for (ZyrStatus s = StatusOk;;) {
            if (s == StatusOk) fed = wr.piece == 0 || !rng ? end : std::min(end, fed + 1 + (*rng)() % wr.piece);
            const int32_t flush = fed < end ? 0 : last ? 4 : 3;
            static const uint8_t kNone = 0;
            const uint8_t* src = data.empty() ? &kNone : data.data() + pos;
            int32_t len = static_cast<int32_t>(fed - pos);
            const uint32_t cap = wr.room == 0 || !rng ? static_cast<uint32_t>(out.size())
                                                      : std::min<uint32_t>(static_cast<uint32_t>(out.size()), idx + 1 + (*rng)() % wr.room);
            s = zyrsDeflateLZ77Fastest_8u(&src, &len, &srcIdx, src, wr.winSize, head.data(), wr.hashSize,
                                                           lc, dc, &code, &bits, out.data(), cap, &idx, flush);
            EXPECT_TRUE(s == StatusOk || s == StatusDstFull) << s;
            if (s < 0) return {};
            pos += fed - pos - static_cast<size_t>(len);
            if (s == StatusOk && fed == end) break;
        }
        at = end;
    } while (at < data.size());
    out.resize(idx);
    return out;
}

TEST(Fastest, StreamsDecodeAndEverySplitGivesTheSameBytes) {
    std::mt19937 rng(32);
    const std::vector<std::vector<uint8_t>> inputs = {{}, {'z'}, VariedData(200000, 33), RandomBytes(5000, 34),
                                                      std::vector<uint8_t>(3000, 'q')};
    struct Row { const char* name; Writer w; };
    const Row rows[] = {{"defaults", {}},
                        {"whole blocks as sample", {32768, 32768, DeflateCodesAll, 65536, 65536}},
                        {"fixed", {32768, 32768, DeflateCodesFixed}},
                        {"window 256", {256, 256}}, {"window 4096", {4096, 256}}, {"hash 65536", {32768, 65536}}};
    for (const Row& r : rows) {
        for (const auto& data : inputs) {
            const std::string what = std::string(r.name) + " " + std::to_string(data.size());
            const auto once = WriteStream(data, r.w);
            EXPECT_EQ(PeerInflate(once, data.size()), data) << what;
            const Inflated ours = InflateOnce(once, data.size() + 1);
            EXPECT_EQ(ours.status, StatusOk) << what;
            EXPECT_EQ(ours.out, data) << what;
            Writer split = r.w;
            split.piece = 3000;
            split.room = 40;
            EXPECT_EQ(WriteStream(data, split, &rng), once) << what << " split";
            split.piece = 1 + rng() % 300;
            split.room = 17;
            EXPECT_EQ(WriteStream(data, split, &rng), once) << what << " split";
        }
    }
}

// Codes for every symbol from zero counts: a fixed table set for the edge cases below.
void AllCodes(HuffCodeEntry* lc, HuffCodeEntry* dc) {
    uint32_t lit[286] = {}, dist[30] = {};
    ASSERT_EQ(zyrsDeflateLZ77FastestGenHuffTable_8u(lit, dist, DeflateCodesAll, lc, dc), StatusOk);
}

TEST(Fastest, FlushRoomAndTableEdges) {
    HuffCodeEntry lc[286], dc[30];
    AllCodes(lc, dc);
    const auto data = RandomBytes(1000, 35);  // no match runs past the lookahead limit
    std::vector<int32_t> head(1024, -32768);
    std::vector<uint8_t> out(4000);
    struct Row { const char* name; int32_t flush; uint32_t room; int zeroDist; ZyrStatus want; int32_t leftSrc; int bitsLeft; };
    const Row rows[] = {
        {"flush 0 keeps 261", 0, 4000, -1, StatusOk, 261, -1},
        {"flush 2 codes all", 2, 4000, -1, StatusOk, 0, -1},
        {"flush 4 empties the accumulator", 4, 4000, -1, StatusOk, 0, 0},
        {"15 bytes of room", 2, 15, -1, StatusDstFull, 1000, 5},
        {"one zero-length distance entry", 2, 4000, 17, StatusBadHuffmanCode, 1000, 5},
    };
    for (const Row& r : rows) {
        std::fill(head.begin(), head.end(), -32768);
        HuffCodeEntry d[30];
        std::copy(dc, dc + 30, d);
        if (r.zeroDist >= 0) d[r.zeroDist].len = 0;
        const uint8_t* src = data.data();
        int32_t len = 1000, srcIdx = 0;
        uint16_t code = 0x15;
        uint32_t bits = 5, idx = 0;
        EXPECT_EQ(zyrsDeflateLZ77Fastest_8u(&src, &len, &srcIdx, src, 32768, head.data(), 1024, lc, d, &code, &bits,
                                            out.data(), r.room, &idx, r.flush), r.want) << r.name;
        EXPECT_EQ(len, r.leftSrc) << r.name;
        if (r.bitsLeft >= 0) { EXPECT_EQ(static_cast<int>(bits), r.bitsLeft) << r.name; }
        if (r.want == StatusDstFull) { EXPECT_EQ(idx, 0u) << r.name; }
    }
}

TEST(Fastest, MatchesAcrossTheSeamAndRebasing) {
    HuffCodeEntry lc[286], dc[30];
    AllCodes(lc, dc);
    const auto data = VariedData(100000, 36);
    struct Row { const char* name; int32_t startIdx; };
    for (const Row& r : {Row{"fresh", 0}, Row{"near the top of the index range", 0x7FFFFFFF - 70000}}) {
        // History in its own buffer, then each piece of the source alone.
        std::vector<int32_t> head(4096, -32768);
        std::vector<uint8_t> out(300000), window(32768);
        uint16_t code = 0;
        uint32_t bits = 0, idx = 0;
        int32_t srcIdx = r.startIdx;
        DeflateBlockHeader h;
        ASSERT_EQ(zyrsDeflateLZ77FastestPrecompHeader_8u(2, lc, dc, &h), StatusOk);
        ASSERT_EQ(zyrsDeflateLZ77FastestGenHeader_8u(&h, 1, 0, &code, &bits, out.data(), 300000, &idx), StatusOk);
        for (size_t at = 0; at < data.size(); at += 10000) {
            std::vector<uint8_t> piece(data.begin() + static_cast<long>(at), data.begin() + static_cast<long>(at + 10000));
            const uint8_t* src = piece.data();
            int32_t len = 10000;
            const int32_t flush = at + 10000 == data.size() ? 4 : 2;
            ASSERT_EQ(zyrsDeflateLZ77Fastest_8u(&src, &len, &srcIdx, window.data() + window.size(), 32768, head.data(),
                                                4096, lc, dc, &code, &bits, out.data(), 300000, &idx, flush), StatusOk);
            window.insert(window.end(), piece.begin(), piece.end());
            window.erase(window.begin(), window.end() - 32768);
        }
        out.resize(idx);
        EXPECT_EQ(PeerInflate(out, data.size()), data) << r.name;
        EXPECT_LT(out.size(), data.size() * 3 / 4) << r.name;  // matches were found, across pieces too
    }
}

TEST(Fastest, GetStatCountsWhatFastestCodes) {
    const auto data = VariedData(30000, 37);
    uint32_t lit[286] = {}, dist[30] = {};
    std::vector<int32_t> head(2048);
    ASSERT_EQ(zyrsDeflateLZ77FastestGetStat_8u(data.data(), 30000, head.data(), 2048, lit, dist), StatusOk);
    // Codes in which each symbol's code length is unique enough to count: decode the stream
    // the counted codes produce and count the symbols by re-parsing with the tables' lengths.
    HuffCodeEntry lc[286], dc[30];
    AllCodes(lc, dc);
    std::fill(head.begin(), head.end(), -32768);
    std::vector<uint8_t> out(100000);
    const uint8_t* src = data.data();
    int32_t len = 30000, srcIdx = 0;
    uint16_t code = 0;
    uint32_t bits = 0, idx = 0;
    ASSERT_EQ(zyrsDeflateLZ77Fastest_8u(&src, &len, &srcIdx, src, 32768, head.data(), 2048, lc, dc, &code, &bits,
                                        out.data(), 100000, &idx, 2), StatusOk);
    uint64_t expectBits = 0;
    for (int s = 0; s < 286; ++s) expectBits += uint64_t{lit[s]} * (lc[s].len + (s > 264 && s < 285 ? (s - 261) / 4 : 0));
    for (int s = 0; s < 30; ++s) expectBits += uint64_t{dist[s]} * (dc[s].len + (s >= 4 ? s / 2 - 1 : 0));
    EXPECT_EQ(expectBits, uint64_t{idx} * 8 + bits);
    EXPECT_EQ(lit[256], 0u);
}

TEST(FastestHeaders, PrecompAndGenHeader) {
    HuffCodeEntry lc[286], dc[30];
    AllCodes(lc, dc);
    DeflateBlockHeader h;
    for (int type : {0, 1}) {
        ASSERT_EQ(zyrsDeflateLZ77FastestPrecompHeader_8u(type, lc, dc, &h), StatusOk);
        EXPECT_EQ(h.bitLen, 3u);
        EXPECT_EQ(h.bits[0], type << 1);
    }
    HuffCodeEntry bad[286];
    std::copy(lc, lc + 286, bad);
    bad[7].len = 16;
    EXPECT_EQ(zyrsDeflateLZ77FastestPrecompHeader_8u(2, bad, dc, &h), StatusBadHuffmanCode);
    std::copy(lc, lc + 286, bad);
    bad[256].len = 0;
    EXPECT_EQ(zyrsDeflateLZ77FastestPrecompHeader_8u(2, bad, dc, &h), StatusBadHuffmanCode);
    EXPECT_EQ(zyrsDeflateLZ77FastestPrecompHeader_8u(3, bad, dc, &h), StatusBadArgument);

    // Stored headers at every pending count, LEN 0 and 65535, decode in zlib and here.
    ASSERT_EQ(zyrsDeflateLZ77FastestPrecompHeader_8u(0, lc, dc, &h), StatusOk);
    // Pending bits 0..7 come from a fixed block of m 9-bit literals before the stored one.
    const auto fixed = FixedLitCodes();
    for (uint32_t m = 0; m < 8; ++m) {
        for (int32_t n : {0, 65535}) {
            std::vector<uint8_t> out(70000), want(m, 200);
            BitWriter pre;
            pre.Put(1 << 1, 3);
            for (uint32_t k = 0; k < m; ++k) pre.Code(fixed[200]);
            pre.Code(fixed[256]);
            uint32_t bits = pre.n % 8, idx = pre.n / 8;
            uint16_t code = static_cast<uint16_t>(bits ? pre.bytes.back() : 0);
            std::copy(pre.bytes.begin(), pre.bytes.begin() + idx, out.begin());
            ASSERT_EQ(zyrsDeflateLZ77FastestGenHeader_8u(&h, 1, n, &code, &bits, out.data(), idx + (bits + 10) / 8 + 3, &idx),
                      StatusDstFull);  // one byte too few: nothing written
            ASSERT_EQ(zyrsDeflateLZ77FastestGenHeader_8u(&h, 1, n, &code, &bits, out.data(), 70000, &idx), StatusOk);
            EXPECT_EQ(bits, 0u);
            for (int32_t i = 0; i < n; ++i) out[idx++] = static_cast<uint8_t>(i);
            out.resize(idx);
            for (int32_t i = 0; i < n; ++i) want.push_back(static_cast<uint8_t>(i));
            EXPECT_EQ(InflateOnce(out, want.size() + 1).out, want) << m << " " << n;
            EXPECT_EQ(PeerInflate(out, want.size()), want) << m;
        }
    }
    uint16_t code = 0;
    uint32_t bits = 0, idx = 0;
    uint8_t out[16];
    EXPECT_EQ(zyrsDeflateLZ77FastestGenHeader_8u(&h, 2, 0, &code, &bits, out, 16, &idx), StatusBadArgument);
    DeflateBlockHeader wrong = h;
    wrong.magic ^= 1;
    EXPECT_EQ(zyrsDeflateLZ77FastestGenHeader_8u(&wrong, 1, 0, &code, &bits, out, 16, &idx), StatusBadContext);
    EXPECT_EQ(zyrsDeflateLZ77FastestGenHeader_8u(&h, 1, 65536, &code, &bits, out, 16, &idx), StatusBadSize);
    // Codes of the used symbols only, through the two-pass coder: runs of 3 to 10 and of 11 or
    // more zero lengths in the header.
    uint32_t lit[286] = {}, dist[30] = {};
    lit['a'] = lit['e'] = 2;
    ASSERT_EQ(zyrsDeflateLZ77FastestGenHuffTable_8u(lit, dist, DeflateCodesUsed, lc, dc), StatusOk);
    ASSERT_EQ(zyrsDeflateLZ77FastestPrecompHeader_8u(2, lc, dc, &h), StatusOk);
    std::vector<uint8_t> block(64);
    code = 0, bits = 0, idx = 0;
    ASSERT_EQ(zyrsDeflateLZ77FastestGenHeader_8u(&h, 1, 0, &code, &bits, block.data(), 64, &idx), StatusOk);
    const std::vector<uint8_t> aeea = {'a', 'e', 'e', 'a'};
    const uint16_t literals[4] = {};
    ASSERT_EQ(zyrsDeflateHuff_8u(aeea.data(), literals, 4, &code, &bits, lc, dc, block.data(), &idx), StatusOk);
    BitWriter tail;
    tail.Put(code, bits);
    tail.Code(lc[256]);
    std::copy(tail.bytes.begin(), tail.bytes.end(), block.begin() + idx);
    block.resize(idx + tail.bytes.size());
    EXPECT_EQ(PeerInflate(block, 4), aeea);
    EXPECT_EQ(InflateOnce(block, 5).out, aeea);
}

// Both builds write these exact bytes (the check values come from either build).
TEST(Fastest, SameBytesInEveryBuild) {
    const auto data = VariedData(300000, 40);
    uint32_t crc = 0;
    for (int mode : {DeflateCodesAll, DeflateCodesFixed}) {
        Writer w;
        w.codeMode = mode;
        w.blockSize = 100000;
        const auto s = WriteStream(data, w);
        ASSERT_EQ(zyrsCRC32_8u(s.data(), static_cast<int32_t>(s.size()), &crc), StatusOk);
    }
    EXPECT_EQ(crc, 0x02FE840Fu) << std::hex << crc;
}

}  // namespace
