// The bzip2 block decoder: blocks built by the forward stages (run-length, transform,
// dictionary, move-to-front, zero-run coding) decode to their input in one call and in
// pieces, into destinations that end at a guard page; hostile symbols, in-use tables and
// primary indexes are refused; continuing calls are checked against the block in progress.
#include <gtest/gtest.h>

#include <vector>

#include "bzip2_support.hpp"
#include "data.hpp"
#include "zyrdc.h"

namespace {

using Bytes = std::vector<uint8_t>;
using Symbols = std::vector<uint16_t>;
using zyrdc::test::DataKind;
using zyrdc::test::MakeData;
using Block = zyrdc::test::Bz2Block;
using zyrdc::test::Bz2Decode;
using zyrdc::test::Bz2Forward;

// Pieces of one byte and more; a destination with just room for the transform's bytes after
// the output takes the many-chain walk, and runs that expand past them hand over to the
// single walk in mid-block. Rows given in run-length form pin the run rule as the walk meets
// it: counts 0 and 255, a block ending after four equal bytes, a count after a count.
TEST(Bzip2Block, DecodesForwardStagesInAnyPieces) {
    using K = DataKind;
    const auto data = [](K kind, size_t n) { return MakeData(kind, n, static_cast<uint32_t>(n)); };
    Bytes zeros_between = data(K::Random, 20000), text = data(K::Text, 20000), b259(1, 'b');
    zeros_between.resize(180000);
    zeros_between.insert(zeros_between.end(), text.begin(), text.end());
    b259.insert(b259.end(), 259, 'a');
    const struct {
        Bytes data;
        int32_t block_size;
        bool rle = true;
        Bytes want = {};  // empty: data
    } rows[] = {
        {data(K::Text, 1), 1},           {data(K::Random, 2), 5},          {data(K::Text, 1000), 1300},
        {data(K::Zeros, 5000), 600},     {data(K::Runs, 20000), 30000},    {data(K::Records, 20000), 30000},
        {data(K::Random, 300000), 310000}, {zeros_between, 60000},         {data(K::Mixed, 900000), 900000},
        {{'a', 'a', 'a', 'a', 0, 'b'}, 10, false, {'a', 'a', 'a', 'a', 'b'}},
        {{'b', 'a', 'a', 'a', 'a', 255}, 10, false, b259},
        {{'b', 'a', 'a', 'a', 'a'}, 10, false, {'b', 'a', 'a', 'a', 'a'}},
        {{'a', 'a', 'a', 'a', 1, 'a', 'a', 'a', 'a', 0}, 10, false, Bytes(9, 'a')},
    };
    for (const auto& r : rows) {
        const Bytes& want = r.want.empty() ? r.data : r.want;
        SCOPED_TRACE(testing::Message() << want.size() << " bytes, block " << r.block_size);
        const Block b = Bz2Forward(r.data, r.rle);
        const auto size = static_cast<int32_t>(want.size());
        for (int32_t piece : {size, 1, 3, 4096, b.n + 256}) {
            if (piece == 1 && size > 30000) continue;
            Bytes out;
            EXPECT_EQ(Bz2Decode(b, r.block_size, piece, &out), StatusOk) << piece;
            EXPECT_TRUE(out == want) << piece;
        }
    }
}

// Runs and bytes are counted against blockSize exactly, symbols against the values in use,
// origPtr against the bytes decoded; in-use tables must hold 0s and 1s, at least one 1.
TEST(Bzip2Block, RefusesHostileBlocks) {
    Bytes ab(256), none(256), two(256);
    ab['a'] = ab['b'] = 1;
    two['a'] = 2;
    const struct {
        const char* what;
        Symbols symbols;
        const Bytes& in_use;
        int32_t orig_ptr, block_size;
        ZyrStatus status;
    } rows[] = {
        {"a run of blockSize", {0, 0, 1}, ab, 10, 11, StatusOk},
        {"a run one above blockSize", {0, 0, 1}, ab, 0, 10, StatusCorruptStream},
        {"a run, then a byte beyond blockSize", {0, 0, 1, 2}, ab, 0, 11, StatusCorruptStream},
        {"a run, then a byte", {0, 0, 1, 2}, ab, 11, 12, StatusOk},
        {"a byte beyond blockSize", {2, 2, 2}, ab, 0, 2, StatusCorruptStream},
        {"symbol nInUse + 1", {2, 3}, ab, 0, 10, StatusCorruptStream},
        {"origPtr = n", {2, 2}, ab, 2, 10, StatusCorruptStream},
        {"origPtr below 0", {2, 2}, ab, -1, 10, StatusCorruptStream},
        {"a long run of RUNB", Symbols(40, 1), ab, 0, 900000, StatusCorruptStream},
        {"in-use entry 2", {2}, two, 0, 10, StatusError},
        {"nothing in use", {2}, none, 0, 10, StatusError},
    };
    for (const auto& r : rows) {
        Bytes out;
        EXPECT_EQ(Bz2Decode({r.symbols, r.in_use, r.orig_ptr}, r.block_size, 64, &out), r.status) << r.what;
    }
}

// A block in progress continues only with srcLen 0 and its blockSize, and not after it ended
// or failed; sizes are checked before the context; *pDstLen is left alone on every refusal.
TEST(Bzip2Block, ChecksAndContinuation) {
    const Block b = Bz2Forward(Bytes(100, 'q'), true);  // 4 + count: five bytes out of 100
    int32_t size = 0, len = 0;
    ASSERT_EQ(zyrsDecodeBlockGetSize_BZ2_8u(9, &size), StatusOk);
    EXPECT_EQ(size, 9 * 4 + 1152);
    Bytes buf(static_cast<size_t>(size) + 1), dst(100);
    uint8_t* buffer = buf.data() + 1;  // not aligned: the decoder aligns its own area
    const auto n = static_cast<int32_t>(b.symbols.size());
    const auto decode = [&](int32_t src_len, const uint8_t* in_use, int32_t block_size, int32_t cap,
                            uint8_t* area) {
        len = cap;
        return zyrsDecodeBlock_BZ2_16u8u(b.symbols.data(), src_len, in_use, b.orig_ptr, block_size,
                                         dst.data(), &len, area);
    };
    const struct {
        const char* what;
        int32_t src_len, block_size, cap;  // cap: also the length after the call
        ZyrStatus status;
    } rows[] = {
        {"continue: nothing in progress", 0, 9, 100, StatusBadContext},
        {"start: symbols beyond blockSize", n, 1, 100, StatusCorruptStream},
        {"continue after a failed start", 0, 1, 100, StatusBadContext},
        {"start", n, 9, 60, StatusDstFull},
        {"continue: another blockSize", 0, 8, 100, StatusBadContext},
        {"continue: blockSize 0", 0, 0, 100, StatusBadSize},
        {"continue: no room", 0, 9, 0, StatusBadSize},
        {"continue to an exact fit", 0, 9, 40, StatusOk},
        {"continue: block done", 0, 9, 100, StatusBadContext},
        {"blockSize 900001", n, 900001, 100, StatusBadSize},
        {"srcLen below 0", -1, 9, 100, StatusBadSize},
    };
    for (const auto& r : rows) {
        EXPECT_EQ(decode(r.src_len, b.in_use.data(), r.block_size, r.cap, buffer), r.status) << r.what;
        EXPECT_EQ(len, r.cap) << r.what;
    }
    EXPECT_EQ(decode(n, b.in_use.data(), 9, 100, nullptr), StatusNullPointer);
    EXPECT_EQ(decode(0, nullptr, 9, 100, buffer), StatusNullPointer);  // even when continuing
    EXPECT_EQ(zyrsDecodeBlockGetSize_BZ2_8u(900001, &size), StatusBadSize);
    EXPECT_EQ(zyrsDecodeBlockGetSize_BZ2_8u(1, nullptr), StatusNullPointer);
}

}  // namespace
