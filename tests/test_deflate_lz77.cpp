// Deflate LZ77 matching: the documented edge cases, and properties of the streams at every
// level in one call and in many, with history contiguous or apart. (Check orders:
// test_abi.cpp; the rebase kernel against its scalar twin: test_frame.cpp.)
#include <gtest/gtest.h>

#include <array>
#include <functional>
#include <random>
#include <vector>

#include "data.hpp"
#include "deflate_support.hpp"
#include "support.hpp"
#include "zyrdc.h"

namespace {

using zyrdc::test::GuardedBuffer;
constexpr int32_t kNone = -32768;  // a fresh table entry

// Everything one matcher call needs, with sound defaults that rows override.
struct Call {
    std::vector<uint8_t> data = std::vector<uint8_t>(1000, 'a');
    const uint8_t* src = nullptr;
    int32_t srcLen = 1000, srcIdx = 0, dstLen = 2000;
    const uint8_t* window = nullptr;
    uint32_t winSize = 32768, hashSize = 65536;
    std::vector<int32_t> head = std::vector<int32_t>(65536, kNone), prev = std::vector<int32_t>(32768, kNone);
    std::array<HuffCodeEntry, 286> litFreq{};
    std::array<HuffCodeEntry, 30> distFreq{};
    std::vector<uint8_t> lit = std::vector<uint8_t>(2000);
    std::vector<uint16_t> dist = std::vector<uint16_t>(2000);
    LZ77Params params{4, 8, 8, 8};
    int32_t flush = 2;
    Call() { src = window = data.data(); }
};

using Runner = std::function<ZyrStatus(Call&)>;
// The Fast and Slow matchers share one signature; a level stands in for the record otherwise.
Runner With(decltype(&zyrsDeflateLZ77Fast_8u) fn) {
    return [fn](Call& c) {
        return fn(&c.src, &c.srcLen, &c.srcIdx, c.window, c.winSize, c.head.data(), c.prev.data(),
                  c.hashSize, c.litFreq.data(), c.distFreq.data(), c.lit.data(), c.dist.data(), &c.dstLen,
                  &c.params, c.flush);
    };
}
const Runner Fast = With(zyrsDeflateLZ77Fast_8u), Slow = With(zyrsDeflateLZ77Slow_8u);
Runner Level(uint32_t level) {
    return [level](Call& c) {
        return zyrsDeflateLZ77_8u(&c.src, &c.srcLen, &c.srcIdx, c.window, c.winSize, c.head.data(),
                                  c.prev.data(), c.hashSize, c.litFreq.data(), c.distFreq.data(),
                                  c.lit.data(), c.dist.data(), &c.dstLen, level, c.flush);
    };
}

// 300 equal bytes at level 1: a literal and a 258-byte match at distance 1; without a flush
// the call stops once past end - 261, with 41 bytes left; flush 2 takes them all.
TEST(DeflateLZ77, ThreeHundredEqualBytes) {
    for (int32_t flush : {0, 2}) {
        Call c;
        c.data.assign(300, 'z');
        c.src = c.window = c.data.data();
        c.srcLen = 300;
        c.flush = flush;
        ASSERT_EQ(Level(1)(c), StatusOk);
        EXPECT_EQ(c.lit[0], 'z');
        EXPECT_EQ(c.dist[0], 0);
        EXPECT_EQ(c.lit[1], 255);
        EXPECT_EQ(c.dist[1], 1);
        EXPECT_EQ(c.srcLen, flush ? 0 : 41);
        EXPECT_EQ(c.srcIdx, flush ? 300 : 259);
        EXPECT_EQ(c.src, c.data.data() + 300 - c.srcLen);
        EXPECT_EQ(c.dstLen, 2000 - (flush ? 3 : 2));  // flush 2: one more match for the rest
    }
}

// 200 bytes are copied, not hashed; of 40000 the last 32768 are copied and positions
// 0..32510 hashed (chained only by the tabulation mode), the last 257 left out.
TEST(DeflateLZ77, DictionaryOf200And40000Bytes) {
    const auto dict = zyrdc::test::RandomBytes(40000, 5);
    for (uint32_t mode : {0u, 1u}) {
        std::vector<int32_t> head(4096, kNone), prev(32768, kNone);
        std::vector<uint8_t> window(32768 + 1, 0xEE);
        ASSERT_EQ(zyrsDeflateDictionarySet_8u(dict.data(), 200, head.data(), 4096, prev.data(), window.data(),
                                              32768, mode),
                  StatusOk);
        EXPECT_TRUE(std::equal(dict.begin(), dict.begin() + 200, window.begin()) && window[200] == 0xEE);
        EXPECT_EQ(head, std::vector<int32_t>(4096, kNone));
        ASSERT_EQ(zyrsDeflateDictionarySet_8u(dict.data(), 40000, head.data(), 4096, prev.data(),
                                              window.data(), 32768, mode),
                  StatusOk);
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

// Runs a matcher over data in calls whose ends come from RandomCuts, keeping the window as a
// caller must: contiguous (the window pointer is the source pointer, history just before it)
// or apart (the last winSize bytes copied to a buffer guarded on both sides, each source
// piece in its own buffer against a guard page). Checks every property of the output.
void CheckStreams(const Runner& run, const std::vector<uint8_t>& data, uint32_t winSize, int pieces,
                  bool apart, int minMatch, uint32_t seed) {
    std::mt19937 rng(seed);
    const auto cuts = zyrdc::test::RandomCuts(data.size(), pieces, rng);
    GuardedBuffer history(winSize);  // winSize is one page here, so both ends are guarded
    std::vector<uint8_t> out;
    std::vector<uint32_t> litCount(286), distCount(30);
    std::vector<int32_t> head(4096, kNone), prev(winSize, kNone);
    size_t done = 0;
    for (size_t k = 0; done < data.size(); k = std::min(k + 1, cuts.size() - 1)) {
        const bool last = k + 1 == cuts.size();
        const size_t len = std::max(cuts[k], done) - done;
        GuardedBuffer piece(len);
        std::memcpy(piece.data(), data.data() + done, len);
        const size_t kept = std::min<size_t>(done, winSize);
        std::memcpy(history.data() + winSize - kept, data.data() + done - kept, kept);
        Call c;
        c.src = apart ? piece.data() : data.data() + done;
        c.window = apart ? history.data() + winSize : c.src;
        c.srcLen = static_cast<int32_t>(len);
        c.srcIdx = static_cast<int32_t>(done);
        c.winSize = winSize;
        c.hashSize = 4096;
        c.head.swap(head);
        c.prev.swap(prev);
        c.dstLen = 2 + static_cast<int32_t>(rng() % 3000);
        c.lit.resize(static_cast<size_t>(c.dstLen));
        c.dist.resize(static_cast<size_t>(c.dstLen));
        const int32_t capacity = c.dstLen;
        for (auto& e : c.litFreq) e.len = 0xABCD;  // the second half is not the matcher's
        c.flush = last ? 2 : static_cast<int32_t>(rng() % 2);
        ASSERT_EQ(run(c), StatusOk);
        const size_t consumed = static_cast<size_t>(c.src - (apart ? piece.data() : data.data() + done));
        ASSERT_EQ(c.srcLen, static_cast<int32_t>(len - consumed));
        ASSERT_EQ(c.srcIdx, static_cast<int32_t>(done + consumed));
        const size_t n = static_cast<size_t>(capacity - c.dstLen);
        for (size_t i = 0; i < n; ++i) {
            if (c.dist[i] == 0) {
                ++litCount[c.lit[i]];
                continue;
            }
            ASSERT_LT(c.dist[i], winSize);
            ASSERT_GE(c.lit[i] + 3, minMatch);
            ++litCount[257 + zyrdc::test::LengthCode(c.lit[i] + 3u)];
            ++distCount[zyrdc::test::DistanceCode(c.dist[i])];
        }
        for (int s = 0; s < 286; ++s) ASSERT_EQ(c.litFreq[s].code, litCount[s]) << s;
        for (int s = 0; s < 30; ++s) ASSERT_EQ(c.distFreq[s].code, distCount[s]) << s;
        for (const auto& e : c.litFreq) ASSERT_EQ(e.len, 0xABCD);
        std::fill(litCount.begin(), litCount.end(), 0);
        std::fill(distCount.begin(), distCount.end(), 0);
        ASSERT_TRUE(zyrdc::test::Expand(c.lit.data(), c.dist.data(), n, out));
        ASSERT_TRUE(std::equal(out.begin() + static_cast<ptrdiff_t>(done), out.end(),
                               data.begin() + static_cast<ptrdiff_t>(done)));
        done += consumed;
        c.head.swap(head);
        c.prev.swap(prev);
    }
    EXPECT_EQ(out, data);
}

TEST(DeflateLZ77, EveryLevelReexpandsWithinTheWindow) {
    // Each matcher meets both: one ends in a match, the other in bytes that no match covers.
    using zyrdc::test::DataKind;
    const auto mixed = zyrdc::test::MakeData(DataKind::Mixed, 60000, 3);
    auto text = zyrdc::test::MakeData(DataKind::Text, 60000, 4);
    const auto tail = zyrdc::test::MakeData(DataKind::Random, 7, 5);
    text.insert(text.end(), tail.begin(), tail.end());
    for (uint32_t level = 0; level < 30; ++level) {
        SCOPED_TRACE(level);
        const auto& data = level / 10 == 1 ? text : mixed;
        const int minMatch = level % 10 == 0 ? 3 : 4;
        CheckStreams(Level(level), data, 4096, 1, false, minMatch, level);
        CheckStreams(Level(level), data, 4096, 40, level % 2 == 0, minMatch, level);
    }
    // Parameter records off the level table: tiny budgets, lazy limits and nice lengths.
    for (const LZ77Params& p :
         {LZ77Params{1, 4, 4, 4}, LZ77Params{7, 300, 5, 300}, LZ77Params{2, 4, 258, 4}}) {
        CheckStreams([&p](Call& c) { c.params = p; return Slow(c); }, mixed, 4096, 30, true, 4, 2);
        CheckStreams([&p](Call& c) { c.params = p; return Fast(c); }, text, 4096, 30, false, 4, 3);
    }
}

// Near the top of the index range the tables are moved down: the call returns an index of
// winSize plus what it consumed, and the history put in before still yields matches.
TEST(DeflateLZ77, RebasingKeepsTheWindow) {
    const uint32_t winSize = 4096, skip = 100;
    const auto history = zyrdc::test::MakeData(zyrdc::test::DataKind::Random, winSize, 8);
    std::vector<uint8_t> data = history;  // the source repeats the history at distance 3996
    data.insert(data.end(), history.begin() + skip, history.end());
    const int32_t srcLen = static_cast<int32_t>(winSize - skip);
    for (uint32_t level : {1u, 6u}) {
        Call c;
        c.data = data;
        c.winSize = winSize;
        c.prev.assign(winSize, kNone);
        const int32_t base = 0x7FFFE000;  // base + winSize + 2 x srcLen reaches 2^31 - 1
        ASSERT_EQ(zyrsDeflateUpdateHash_8u(c.data.data(), static_cast<uint32_t>(base) - winSize, winSize,
                                           c.head.data(), c.hashSize, c.prev.data(), winSize, 1),
                  StatusOk);
        c.src = c.window = c.data.data() + winSize;
        c.srcIdx = base;
        c.srcLen = srcLen;
        ASSERT_EQ(Level(level)(c), StatusOk);
        EXPECT_EQ(c.srcIdx, static_cast<int32_t>(winSize) + srcLen);
        EXPECT_LE(*std::max_element(c.head.begin(), c.head.end()), c.srcIdx);
        std::vector<uint8_t> out = history;
        const size_t n = static_cast<size_t>(2000 - c.dstLen);
        ASSERT_TRUE(zyrdc::test::Expand(c.lit.data(), c.dist.data(), n, out));
        EXPECT_EQ(out, data);
        EXPECT_LT(n, winSize / 100) << "the history was not found";
    }
}

}  // namespace
