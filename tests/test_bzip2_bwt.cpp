// Burrows-Wheeler transform: every strategy and both entry points against a reference sort of
// the rotations, on blocks easy and hard for a comparison sort from 1 byte to 900 kB, in working
// buffers of exactly the documented size; where the budget runs out; the inverse's edge cases.
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

#if defined(ZYRDC_HAVE_DIVSUFSORT)
#include <divsufsort.h>
#endif

namespace {

using Bytes = std::vector<uint8_t>;

// Blocks of the kinds that stress different parts of the sorts.
Bytes MakeBlock(const std::string& kind, size_t n, uint32_t seed) {
    static const char* const kWords[] = {"the ", "rotation ", "sorts ", "and ",
                                         "block ", "of ", "bytes ", "\r\n"};
    std::mt19937 rng(seed);
    std::string words, fib = "a", fib_prev = "b";
    while (kind == "fibonacci" && fib.size() < n) fib_prev = std::exchange(fib, fib + fib_prev);
    const size_t half = std::max<size_t>(n / 2, 1);
    Bytes b(n, 'q');  // "same"
    for (size_t i = 0; i < n; ++i) {
        if (kind == "random") b[i] = static_cast<uint8_t>(rng());
        if (kind == "longruns") b[i] = i % 701 == 700 ? 'y' : 'x';
        if (kind == "text") {  // words from a small vocabulary: long repeated phrases
            while (words.size() <= i) words += kWords[rng() % 8];
            b[i] = static_cast<uint8_t>(words[i]);
        }
        if (kind == "period2") b[i] = i % 2 ? 'd' : 'a';
        if (kind == "period1000") b[i] = static_cast<uint8_t>(i % 1000 * 7919 % 251);
        if (kind == "records") b[i] = static_cast<uint8_t>(i % 4 == 3 ? 0x80 : (i / 4) >> (8 * (i % 4)));
        if (kind == "halves") b[i] = static_cast<uint8_t>((i % half + 1) * 2654435761u >> 29);
        if (kind == "fibonacci") b[i] = static_cast<uint8_t>(fib[i]);  // reduces level after level
    }
    // One changed byte breaks the period of half the long-run blocks.
    if (kind == "longruns" && n > 2 && seed % 2) b[n / 2] = 'z';
    return b;
}

// The last column of the rotations in sorted order: by comparing rotations whole when the
// block is small, else from the suffix array of the block written twice (rotation i is the
// first n bytes of suffix i). Empty when no oracle is available.
Bytes ReferenceLastColumn(const Bytes& s) {
    const size_t n = s.size();
    Bytes twice(s), last(n);
    twice.insert(twice.end(), s.begin(), s.end());
    std::vector<int32_t> rows(n);
    std::iota(rows.begin(), rows.end(), 0);
    if (n <= 5000) {
        std::sort(rows.begin(), rows.end(),
                  [&](int32_t a, int32_t b) { return std::memcmp(&twice[a], &twice[b], n) < 0; });
    } else {
#if defined(ZYRDC_HAVE_DIVSUFSORT)
        std::vector<int32_t> sa(2 * n);
        EXPECT_EQ(divsufsort(twice.data(), sa.data(), static_cast<int32_t>(2 * n)), 0);
        const auto rotation = [n](int32_t r) { return static_cast<size_t>(r) < n; };
        std::copy_if(sa.begin(), sa.end(), rows.begin(), rotation);
#else
        return {};
#endif
    }
    for (size_t j = 0; j < n; ++j) last[j] = twice[static_cast<size_t>(rows[j]) + n - 1];
    return last;
}

// Whether the short-block quicksort of s runs out of `per_byte` * n.
bool ShortBudgetRunsOut(const Bytes& s, int64_t per_byte) {
    const auto n = static_cast<uint32_t>(s.size());
    Bytes text(s);
    while (text.size() < 2 * n + 17) text.push_back(text[text.size() - n]);
    std::vector<uint32_t> rows(n);
    std::iota(rows.begin(), rows.end(), 0u);
    return zyrdc::bzip2::MultikeyQuicksort(text.data(), n, rows.data(), 0, n - 1, 0, per_byte * n) < 0;
}

struct Forward {
    ZyrStatus status;
    Bytes last;
    int32_t index;
};

// strategy -1: zyrsBWTFwd_8u, else zyrsBWTFwd_SelectSort_8u. The working buffer is exactly the
// reported size, max(6n + 524484, 18n + 80) (strategies 0 and 1 the first, 2 the second, an
// unknown one none), and ends at a guard page.
Forward RunForward(const Bytes& s, int strategy) {
    const auto n = static_cast<uint32_t>(s.size());
    const uint32_t bucket = 6 * n + 524484, induced = 18 * n + 80;
    uint32_t size = 0;
    EXPECT_EQ(strategy < 0 ? zyrsBWTFwdGetSize_8u(static_cast<int32_t>(n), reinterpret_cast<int32_t*>(&size))
                           : zyrsBWTFwdGetBufSize_SelectSort_8u(n, &size, static_cast<uint32_t>(strategy)),
              StatusOk);
    const uint32_t want[] = {bucket, bucket, induced, std::max(bucket, induced), 0, 0};
    EXPECT_EQ(size, want[strategy < 0 ? 3 : strategy]);
    zyrdc::test::GuardedBuffer buffer(size);
    Forward f{StatusOk, Bytes(n, 0xEE), -1};
    uint8_t* dst = f.last.data();
    f.status = strategy < 0 ? zyrsBWTFwd_8u(s.data(), dst, static_cast<int32_t>(n), &f.index, buffer.data())
                            : zyrsBWTFwd_SelectSort_8u(s.data(), dst, n, &f.index, buffer.data(), strategy);
    return f;
}

// The inverse in a buffer of exactly the reported 4n + 1024 bytes, ending at a guard page.
Bytes Inverse(const Bytes& last, int32_t index) {
    const auto n = static_cast<int32_t>(last.size());
    int32_t size = 0;
    EXPECT_TRUE(zyrsBWTInvGetSize_8u(n, &size) == StatusOk && size == 4 * n + 1024);
    zyrdc::test::GuardedBuffer buffer(static_cast<size_t>(size));
    Bytes out(last.size(), 0xEE);
    EXPECT_EQ(zyrsBWTInv_8u(last.data(), out.data(), n, index, buffer.data()), StatusOk);
    return out;
}

// Every entry point and strategy gives the reference last column, and its index leads the
// inverse back to the block. Short blocks may fall short only where their budget ran out. The
// budgeted strategy 0 gives up on the large blocks of long runs and periods, which
// exhaust its budget (the default entry point falls back there), and on no others. The
// unbudgeted bucket sort (1) is quadratic on the large hard blocks: small ones only. An
// unknown strategy (5) leaves a block of 100 bytes or more alone.
TEST(BwtForward, EveryStrategyGivesTheSortedRotations) {
    for (const char* k : {"random", "text", "longruns", "same", "period2", "period1000", "records", "halves",
                          "fibonacci"}) {
        const std::string kind = k;
        const bool exhausts = kind != "random" && kind != "text" && kind != "same" && kind != "records";
        for (size_t n : {1, 2, 3, 5, 16, 17, 18, 50, 98, 99, 100, 101, 150, 257, 1000, 2001, 3000, 4099,
                         65539, 900000}) {
            for (uint32_t seed = 1; seed <= (n <= 3000 ? 3 : 1); ++seed) {
                const Bytes s = MakeBlock(kind, n, seed * 977 + static_cast<uint32_t>(n));
                const Bytes want = ReferenceLastColumn(s);
                for (int strategy : {-1, 2, 3, 1, 0, 5}) {
                    if (want.empty() || (strategy == 1 && n > 5000) || (strategy == 5 && n < 100)) continue;
                    SCOPED_TRACE(testing::Message() << kind << " n=" << n << " seed=" << seed
                                                    << " strategy=" << strategy);
                    const Forward f = RunForward(s, strategy);
                    if (strategy == 0 && n > 4099) {
                        EXPECT_EQ(f.status, exhausts ? StatusBwtSortAbandoned : StatusOk);
                    }
                    if (strategy == 5) {
                        EXPECT_TRUE(f.status == StatusOk && f.last == Bytes(n, 0xEE) && f.index == -1);
                        continue;
                    }
                    if (f.status == StatusBwtSortAbandoned && strategy == 0) continue;
                    ASSERT_EQ(f.status, StatusOk);
                    if (n < zyrdc::bzip2::kShortBlock && (f.last != want || Inverse(f.last, f.index) != s)) {
                        EXPECT_TRUE(ShortBudgetRunsOut(s, strategy < 0 ? 110 : 100));
                        continue;
                    }
                    ASSERT_EQ(f.last, want);
                    ASSERT_EQ(Inverse(f.last, f.index), s);
                }
            }
        }
    }
    // A short block that outruns its budget: emitted as far as it was sorted.
    const Bytes adad = MakeBlock("period2", 99, 1);
    EXPECT_TRUE(ShortBudgetRunsOut(adad, 110));
    EXPECT_NE(RunForward(adad, -1).last, ReferenceLastColumn(adad));
}

// A block u repeated k times has, in sorted order, each byte of u's transform k times over,
// and the inverse from any of the k rows equal to the block gives it back; from 2^24 bytes
// on, the inverse keeps positions only in its table.
TEST(BwtInverse, RowsEqualToTheBlockAndBlocksOf2To24Bytes) {
    for (const auto& [u, k] : {std::pair{Bytes{'x', 'y', 'x', 'z'}, size_t{60}},
                               std::pair{MakeBlock("random", 4099, 3), (size_t{1} << 24) / 4099 + 1}}) {
        const Forward f = RunForward(u, -1);
        Bytes last(u.size() * k), want;
        for (size_t j = 0; j < last.size(); ++j) last[j] = f.last[j / k];
        for (size_t i = 0; i < k; ++i) want.insert(want.end(), u.begin(), u.end());
        const size_t top = k * static_cast<size_t>(f.index);  // the first of the k rows
        for (size_t row = k < 100 ? top : top + k / 2; row < top + k; row += k < 100 ? 1 : k) {
            EXPECT_TRUE(Inverse(last, static_cast<int32_t>(row)) == want) << row;
        }
    }
}

}  // namespace
