// Burrows-Wheeler transform: every strategy against a plain sort of all rotations on random
// and structured blocks, round trips up to 900000 bytes including data that exhausts the
// budget, and the boundary cases of the entry points.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <numeric>
#include <random>
#include <string>
#include <vector>

#include "bzip2/bzip2.hpp"
#include "support.hpp"
#include "zyrdc.h"

namespace {

using Bytes = std::vector<uint8_t>;

// ---- references and helpers ------------------------------------------------------------------

// Last column of the sorted rotations, by comparing whole rotations.
Bytes ReferenceLastColumn(const Bytes& s) {
    const size_t n = s.size();
    Bytes twice(s);
    twice.insert(twice.end(), s.begin(), s.end());
    std::vector<uint32_t> rows(n);
    std::iota(rows.begin(), rows.end(), 0u);
    std::sort(rows.begin(), rows.end(), [&](uint32_t a, uint32_t b) {
        return std::memcmp(&twice[a], &twice[b], n) < 0;
    });
    Bytes last(n);
    for (size_t j = 0; j < n; ++j) last[j] = twice[rows[j] + n - 1];
    return last;
}

// Whether the short-block quicksort of s runs out of `per_byte` * n.
bool ShortBudgetRunsOut(const Bytes& s, int64_t per_byte) {
    const auto n = static_cast<uint32_t>(s.size());
    Bytes text(s);
    while (text.size() < 2 * n + 17) text.push_back(text[text.size() - n]);
    std::vector<uint32_t> rows(n);
    std::iota(rows.begin(), rows.end(), 0u);
    return zyrdc::bzip2::MultikeyQuicksort(text.data(), n, rows.data(), 0, n - 1, 0,
                                           per_byte * n) < 0;
}

struct Forward {
    ZyrStatus status;
    Bytes last;
    int32_t index;
};

// strategy -1: zyrsBWTFwd_8u; otherwise zyrsBWTFwd_SelectSort_8u. The buffer is exactly the
// reported size and ends at a guard page.
Forward RunForward(const Bytes& s, int strategy) {
    const auto n = static_cast<uint32_t>(s.size());
    uint32_t size = 0;
    if (strategy < 0) {
        int32_t signed_size = 0;
        EXPECT_EQ(zyrsBWTFwdGetSize_8u(static_cast<int32_t>(n), &signed_size), StatusOk);
        size = static_cast<uint32_t>(signed_size);
    } else {
        EXPECT_EQ(zyrsBWTFwdGetBufSize_SelectSort_8u(n, &size, static_cast<uint32_t>(strategy)),
                  StatusOk);
    }
    zyrdc::test::GuardedBuffer buffer(size);
    Forward f{StatusOk, Bytes(n, 0xEE), -1};
    f.status = strategy < 0
                   ? zyrsBWTFwd_8u(s.data(), f.last.data(), static_cast<int32_t>(n), &f.index,
                                   buffer.data())
                   : zyrsBWTFwd_SelectSort_8u(s.data(), f.last.data(), n, &f.index,
                                              buffer.data(), strategy);
    return f;
}

Bytes Inverse(const Bytes& last, int32_t index) {
    const auto n = static_cast<int32_t>(last.size());
    int32_t size = 0;
    EXPECT_EQ(zyrsBWTInvGetSize_8u(n, &size), StatusOk);
    zyrdc::test::GuardedBuffer buffer(static_cast<size_t>(size));
    Bytes out(last.size(), 0xEE);
    EXPECT_EQ(zyrsBWTInv_8u(last.data(), out.data(), n, index, buffer.data()), StatusOk);
    return out;
}

// Blocks of the kinds that stress different parts of the sorts.
Bytes MakeBlock(const std::string& kind, size_t n, uint32_t seed) {
    std::mt19937 rng(seed);
    Bytes b(n);
    if (kind == "random") {
        for (auto& c : b) c = static_cast<uint8_t>(rng());
    } else if (kind == "few") {  // three symbols
        for (auto& c : b) c = static_cast<uint8_t>('a' + rng() % 3);
    } else if (kind == "runs") {  // long runs of two values
        for (size_t i = 0; i < n;) {
            const size_t len = 1 + rng() % 300;
            const auto v = static_cast<uint8_t>(rng() % 2);
            for (size_t k = 0; k < len && i < n; ++k) b[i++] = v;
        }
    } else if (kind == "period") {  // a short pattern repeated, one byte changed
        const size_t p = 1 + rng() % 7;
        for (size_t i = 0; i < n; ++i) b[i] = static_cast<uint8_t>('a' + (i % p) * 3 % 5);
        if (n > 2 && rng() % 2) b[rng() % n] = 'z';
    } else if (kind == "text") {  // words from a small vocabulary: long repeated phrases
        static const char* const kWords[] = {"the ", "rotation ", "sorts ", "and ", "block ",
                                             "of ", "bytes ", "\r\n"};
        std::string t;
        while (t.size() < n) t += kWords[rng() % 8];
        std::copy_n(t.begin(), n, b.begin());
    } else if (kind == "longruns") {  // (x^700 y) over and over, one run a byte shorter
        for (size_t i = 0; i < n; ++i) b[i] = i % 701 == 700 ? 'y' : 'x';
        if (n > 1000) b[n / 2 - n / 2 % 701] = 'y';
    } else if (kind == "repeat") {  // one 300-byte sentence over and over, one byte changed
        const Bytes sentence = MakeBlock("text", 300, seed);
        for (size_t i = 0; i < n; ++i) b[i] = sentence[i % 300];
        if (n > 1) b[n / 2] = '!';
    } else if (kind == "same") {
        std::fill(b.begin(), b.end(), 'q');
    }
    return b;
}

const char* const kKinds[] = {"random", "few", "runs", "period", "text", "longruns", "repeat", "same"};

// ---- tests -------------------------------------------------------------------------------------

// Every entry point and strategy gives the reference last column, and its index leads the
// inverse back to the block, over lengths through the short-block limit and beyond.
TEST(BwtForward, EveryStrategyMatchesReferenceSort) {
    std::vector<size_t> lengths = {1, 2, 3, 5, 16, 17, 18, 50, 98, 99, 100, 101, 150, 257, 1000, 3000};
    for (const char* kind : kKinds) {
        for (size_t n : lengths) {
            for (uint32_t seed = 1; seed <= 3; ++seed) {
                const Bytes s = MakeBlock(kind, n, seed * 977 + static_cast<uint32_t>(n));
                const Bytes want = ReferenceLastColumn(s);
                for (int strategy : {-1, 0, 1, 2, 3}) {
                    SCOPED_TRACE(testing::Message() << kind << " n=" << n << " seed=" << seed
                                                    << " strategy=" << strategy);
                    const Forward f = RunForward(s, strategy);
                    if (f.status == StatusBwtSortAbandoned && strategy == 0) continue;
                    ASSERT_EQ(f.status, StatusOk);
                    if (n < zyrdc::bzip2::kShortBlock && f.last != want) {
                        // Short blocks emit whatever order the budget reached.
                        EXPECT_TRUE(ShortBudgetRunsOut(s, strategy < 0 ? 110 : 100));
                        continue;
                    }
                    ASSERT_EQ(f.last, want);
                    ASSERT_EQ(Inverse(f.last, f.index), s);
                }
            }
        }
    }
}

// Large blocks: random data, text and binary-like data complete under the budget; long runs
// and highly periodic text exhaust it, so strategy 0 gives up and strategy 3 falls back.
TEST(BwtForward, LargeRoundTripsAndBudgetExhaustion) {
    struct Case {
        const char* kind;
        size_t n;
        bool exhausts;
    } cases[] = {
        {"random", 900000, false},  {"text", 900000, false},   {"runs", 300000, false},
        {"longruns", 900000, true}, {"repeat", 900000, true},  {"repeat", 5000, true},
        {"same", 900000, false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << c.kind << " n=" << c.n);
        const Bytes s = MakeBlock(c.kind, c.n, 5);
        const Forward fallback = RunForward(s, 3);
        ASSERT_EQ(fallback.status, StatusOk);
        EXPECT_EQ(Inverse(fallback.last, fallback.index), s);
        const Forward budgeted = RunForward(s, 0);
        EXPECT_EQ(budgeted.status, c.exhausts ? StatusBwtSortAbandoned : StatusOk);
        if (budgeted.status == StatusOk) {
            EXPECT_EQ(budgeted.last, fallback.last);
        }
        EXPECT_EQ(RunForward(s, -1).last, fallback.last);
    }
}

// In a periodic block several rows hold rotation 0; the index may name any of them, and the
// inverse rebuilds the block from each.
TEST(BwtForward, PeriodicBlockAnyEqualRowIsAPrimaryIndex) {
    Bytes s;
    for (int i = 0; i < 60; ++i) s.insert(s.end(), {'x', 'y', 'x', 'z'});  // period 4, n = 240
    const Forward f = RunForward(s, -1);
    ASSERT_EQ(f.status, StatusOk);
    ASSERT_EQ(f.last, ReferenceLastColumn(s));
    // Rows 60 apart hold equal rotations; the rows holding rotation 0's copies are a run of 60.
    const int32_t group_start = f.index - f.index % 60;
    for (int32_t row = group_start; row < group_start + 60; ++row) {
        EXPECT_EQ(Inverse(f.last, row), s) << row;
    }
}

TEST(BwtForward, BoundaryCasesOfTheEntryPoints) {
    // n = 1: the byte itself and index 0, both ways.
    const Bytes one = {0x5A};
    const Forward f1 = RunForward(one, -1);
    EXPECT_EQ(f1.last, one);
    EXPECT_EQ(f1.index, 0);
    EXPECT_EQ(Inverse(one, 0), one);
    // All bytes equal, with the prefix-doubling sort and through the fallback: a copy, index 0.
    for (int strategy : {2, 3, -1}) {
        const Forward f = RunForward(Bytes(500, 7), strategy);
        EXPECT_EQ(f.last, Bytes(500, 7));
        EXPECT_EQ(f.index, 0);
    }
    // n = 99 (short path) and n = 100 (bucket sort) on the same kind of data.
    for (size_t n : {99u, 100u}) {
        const Bytes s = MakeBlock("text", n, 3);
        EXPECT_EQ(RunForward(s, -1).last, ReferenceLastColumn(s)) << n;
    }
    // Strategy 5: a long block is left alone, a short one is transformed.
    Bytes dst(200, 0xEE);
    int32_t index = -7;
    std::vector<uint8_t> buffer(1 << 20);
    const Bytes longer = MakeBlock("random", 200, 1);
    EXPECT_EQ(zyrsBWTFwd_SelectSort_8u(longer.data(), dst.data(), 200, &index, buffer.data(), 5),
              StatusOk);
    EXPECT_EQ(dst, Bytes(200, 0xEE));
    EXPECT_EQ(index, -7);
    const Bytes shorter = MakeBlock("random", 60, 1);
    EXPECT_EQ(zyrsBWTFwd_SelectSort_8u(shorter.data(), dst.data(), 60, &index, buffer.data(), 5),
              StatusOk);
    EXPECT_EQ(Bytes(dst.begin(), dst.begin() + 60), ReferenceLastColumn(shorter));
}

TEST(BwtEntryPoints, SizesAndCheckOrder) {
    int32_t size = 0;
    uint32_t usize = 0;
    // max(6n + 524484, 18n + 80): the bucket layout below 43701 bytes, doubling above.
    struct SizeRow {
        int32_t n, fwd;
    } sizes[] = {{1, 524490}, {43700, 786684}, {43701, 786698}, {900000, 16200080}};
    for (const SizeRow& r : sizes) {
        EXPECT_EQ(zyrsBWTFwdGetSize_8u(r.n, &size), StatusOk);
        EXPECT_EQ(size, r.fwd) << r.n;
        EXPECT_EQ(zyrsBWTFwdGetBufSize_SelectSort_8u(static_cast<uint32_t>(r.n), &usize, 3), StatusOk);
        EXPECT_EQ(usize, static_cast<uint32_t>(r.fwd)) << r.n;
    }
    EXPECT_EQ(zyrsBWTFwdGetBufSize_SelectSort_8u(10, &usize, 0), StatusOk);
    EXPECT_EQ(usize, 524544u);
    EXPECT_EQ(zyrsBWTFwdGetBufSize_SelectSort_8u(10, &usize, 2), StatusOk);
    EXPECT_EQ(usize, 260u);
    usize = 12345;
    EXPECT_EQ(zyrsBWTFwdGetBufSize_SelectSort_8u(10, &usize, 4), StatusOk);  // writes nothing
    EXPECT_EQ(usize, 12345u);
    EXPECT_EQ(zyrsBWTInvGetSize_8u(10, &size), StatusOk);
    EXPECT_EQ(size, 1064);

    uint8_t b[16] = {}, d[16] = {}, buf[2048] = {};
    int32_t index = 0;
    struct Row {
        ZyrStatus got, want;
    } rows[] = {
        {zyrsBWTFwdGetSize_8u(0, nullptr), StatusNullPointer},
        {zyrsBWTFwdGetSize_8u(0, &size), StatusBadSize},
        {zyrsBWTFwdGetBufSize_SelectSort_8u(0, &usize, 9), StatusBadSize},
        {zyrsBWTFwd_8u(b, d, 0, &index, nullptr), StatusNullPointer},
        {zyrsBWTFwd_8u(b, d, 0, &index, buf), StatusBadSize},
        {zyrsBWTFwd_SelectSort_8u(b, nullptr, 0, &index, buf, 0), StatusNullPointer},
        {zyrsBWTFwd_SelectSort_8u(b, d, 0, &index, buf, 0), StatusBadSize},
        {zyrsBWTInvGetSize_8u(-1, &size), StatusBadSize},
        {zyrsBWTInv_8u(nullptr, d, 0, 0, buf), StatusNullPointer},
        {zyrsBWTInv_8u(b, d, 16, 16, buf), StatusBadSize},  // index = n
        {zyrsBWTInv_8u(b, d, 0, -1, buf), StatusBadSize},
    };
    for (size_t i = 0; i < std::size(rows); ++i) EXPECT_EQ(rows[i].got, rows[i].want) << "row " << i;
}

}  // namespace
