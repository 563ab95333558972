// Deflate LZ77 matching: the documented edge cases, and properties of the streams at every
// level in one call and in many, with history contiguous or apart. (Check orders:
// test_abi.cpp; the rebase kernel against its scalar twin: test_frame.cpp.)
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <vector>

#include "data.hpp"
#include "deflate_support.hpp"
#include "support.hpp"
#include "zyrdc.h"

namespace {

using namespace zyrdc::test;
constexpr int32_t kNone = -32768;  // a fresh table entry

// Everything one matcher call at a level needs, with sound defaults that tests override.
struct Call {
    std::vector<uint8_t> data = std::vector<uint8_t>(1000, 'a');
    const uint8_t* src = data.data();
    const uint8_t* window = data.data();
    int32_t srcLen = 1000, srcIdx = 0, dstLen = 2000, flush = 2;
    uint32_t winSize = 32768, hashSize = 65536;
    std::vector<int32_t> head = std::vector<int32_t>(65536, kNone), prev = std::vector<int32_t>(32768, kNone);
    HuffCodeEntry litFreq[286] = {}, distFreq[30] = {};
    std::vector<uint8_t> lit = std::vector<uint8_t>(2000);
    std::vector<uint16_t> dist = std::vector<uint16_t>(2000);

    ZyrStatus Run(uint32_t level) {
        return zyrsDeflateLZ77_8u(&src, &srcLen, &srcIdx, window, winSize, head.data(), prev.data(), hashSize,
                                  litFreq, distFreq, lit.data(), dist.data(), &dstLen, level, flush);
    }
};

// 300 equal bytes at level 1: a literal and a 258-byte match at distance 1; without a flush
// the call stops once past end - 261, with 41 bytes left; flush 2 takes them all.
TEST(DeflateLZ77, ThreeHundredEqualBytes) {
    for (int32_t flush : {0, 2}) {
        Call c;
        c.data.assign(300, 'z');
        c.src = c.window = c.data.data();
        c.srcLen = 300;
        c.flush = flush;
        ASSERT_EQ(c.Run(1), StatusOk);
        EXPECT_TRUE(c.lit[0] == 'z' && c.dist[0] == 0 && c.lit[1] == 255 && c.dist[1] == 1);
        EXPECT_EQ(c.srcLen, flush ? 0 : 41);
        EXPECT_EQ(c.srcIdx, flush ? 300 : 259);
        EXPECT_EQ(c.src, c.data.data() + 300 - c.srcLen);
        EXPECT_EQ(c.dstLen, 2000 - (flush ? 3 : 2));  // flush 2: one more match for the rest
    }
}

// 200 bytes are copied, not hashed; of 40000 the last 32768 are copied and positions
// 0..32510 hashed (chained only by the tabulation mode), the last 257 left out.
TEST(DeflateLZ77, DictionaryOf200And40000Bytes) {
    const auto dict = RandomBytes(40000, 5);
    for (uint32_t mode : {0u, 1u}) {
        std::vector<int32_t> head(4096, kNone), prev(32768, kNone);
        std::vector<uint8_t> window(32768 + 1, 0xEE);
        ASSERT_EQ(zyrsDeflateDictionarySet_8u(dict.data(), 200, head.data(), 4096, prev.data(), window.data(),
                                              32768, mode), StatusOk);
        EXPECT_TRUE(std::equal(dict.begin(), dict.begin() + 200, window.begin()) && window[200] == 0xEE);
        EXPECT_EQ(head, std::vector<int32_t>(4096, kNone));
        ASSERT_EQ(zyrsDeflateDictionarySet_8u(dict.data(), 40000, head.data(), 4096, prev.data(),
                                              window.data(), 32768, mode), StatusOk);
        EXPECT_TRUE(std::equal(dict.end() - 32768, dict.end(), window.begin()) && window[32768] == 0xEE);
        EXPECT_EQ(*std::max_element(head.begin(), head.end()), 32510);
        for (int32_t i = 0; i < 32768; ++i) {
            const int32_t e = prev[static_cast<size_t>(i)];
            ASSERT_TRUE(mode == 0 || i > 32510 ? e == kNone : e < i) << i;
        }
        EXPECT_GT(std::count_if(prev.begin(), prev.end(), [](int32_t e) { return e != kNone; }),
                  mode ? 28000 : -1);
    }
}

// History apart from the source, as a caller that does not keep its data contiguous passes
// it: the last winSize bytes in a buffer guarded on both sides, each piece of the source in
// its own buffer against a guard page. Every kind of matcher reaches back across the seam,
// reads nothing outside either buffer, and its entries re-expand to the source. (Counts,
// shortest matches and contiguous history: the fuzz harness and the program's writer tests.)
TEST(DeflateLZ77, HistoryApartFromTheSource) {
    constexpr uint32_t kWin = 4096;  // one page, so that both ends of the history are guarded
    const auto data = MakeData(DataKind::Mixed, 60000, 3);
    for (uint32_t level : {0u, 1u, 4u, 6u, 9u, 11u, 15u, 19u, 20u, 21u, 25u, 29u}) {
        std::mt19937 rng(level);
        const auto cuts = RandomCuts(data.size(), 40, rng);
        GuardedBuffer history(kWin);
        std::vector<uint8_t> out;
        Call c;
        c.winSize = c.hashSize = kWin;
        c.head.assign(kWin, kNone);
        c.prev.assign(kWin, kNone);
        for (size_t k = 0, done = 0; done < data.size(); k = std::min(k + 1, cuts.size() - 1)) {
            const size_t len = std::max(cuts[k], done) - done, kept = std::min<size_t>(done, kWin);
            GuardedBuffer piece(len);
            std::memcpy(piece.data(), data.data() + done, len);
            std::memcpy(history.data() + kWin - kept, data.data() + done - kept, kept);
            c.src = piece.data();
            c.window = history.data() + kWin;
            c.srcLen = static_cast<int32_t>(len);
            c.srcIdx = static_cast<int32_t>(done);
            c.dstLen = 2000;
            c.flush = k + 1 == cuts.size() ? 2 : static_cast<int32_t>(rng() % 2);
            ASSERT_EQ(c.Run(level), StatusOk) << level;
            const auto n = static_cast<size_t>(2000 - c.dstLen);
            ASSERT_TRUE(Expand(c.lit.data(), c.dist.data(), n, out)) << level;
            done += static_cast<size_t>(c.src - piece.data());
        }
        EXPECT_EQ(out, data) << level;
    }
}

// Near the top of the index range the tables are moved down: the call returns an index of
// winSize plus what it consumed, and the history put in before still yields matches.
TEST(DeflateLZ77, RebasingKeepsTheWindow) {
    const uint32_t winSize = 4096, skip = 100;
    const auto history = MakeData(DataKind::Random, winSize, 8);
    std::vector<uint8_t> data = history;  // the source repeats the history at distance 3996
    data.insert(data.end(), history.begin() + skip, history.end());
    // base + winSize + 2 x srcLen reaches 2^31 - 1
    const int32_t srcLen = static_cast<int32_t>(winSize - skip), base = 0x7FFFE000;
    for (uint32_t level : {1u, 6u}) {
        Call c;
        c.data = data;
        c.winSize = winSize;
        c.prev.assign(winSize, kNone);
        ASSERT_EQ(zyrsDeflateUpdateHash_8u(c.data.data(), static_cast<uint32_t>(base) - winSize, winSize,
                                           c.head.data(), c.hashSize, c.prev.data(), winSize, 1), StatusOk);
        c.src = c.window = c.data.data() + winSize;
        c.srcIdx = base;
        c.srcLen = srcLen;
        ASSERT_EQ(c.Run(level), StatusOk);
        EXPECT_EQ(c.srcIdx, static_cast<int32_t>(winSize) + srcLen);
        EXPECT_LE(*std::max_element(c.head.begin(), c.head.end()), c.srcIdx);
        std::vector<uint8_t> out = history;
        const size_t n = static_cast<size_t>(2000 - c.dstLen);
        ASSERT_TRUE(Expand(c.lit.data(), c.dist.data(), n, out));
        EXPECT_EQ(out, data);
        EXPECT_LT(n, winSize / 100) << "the history was not found";
    }
}

}  // namespace
