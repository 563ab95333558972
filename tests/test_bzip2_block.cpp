// The bzip2 block decoder: blocks built by the forward stages (run-length, transform,
// dictionary, move-to-front, zero-run coding) decode to their input in one call and in
// pieces, into destinations that end at a guard page; hostile symbols, in-use tables and
// primary indexes are refused; continuing calls are checked against the block in progress.
#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "core/bits.hpp"
#include "data.hpp"
#include "support.hpp"
#include "zyrdc.h"

#if defined(ZYRDC_HAVE_BZIP2)
#include <bzlib.h>
#endif

namespace {

using Bytes = std::vector<uint8_t>;
using Symbols = std::vector<uint16_t>;
using zyrdc::test::DataKind;

struct Block {
    Symbols symbols;  // without EOB
    Bytes in_use = Bytes(256);
    int32_t orig_ptr = 0;
    int32_t n = 0;  // bytes of the transform
};

// The forward stages over bytes already in run-length form (`rle` true runs that stage too).
Block Forward(const Bytes& data, bool rle) {
    Block b;
    Bytes coded(data.size() * 5 / 4 + 8), table(264);  // the run-length record, then the move-to-front table
    int32_t n = static_cast<int32_t>(data.size()), len = static_cast<int32_t>(coded.size()), flush = 8;
    const uint8_t* p = data.data();
    if (rle) {
        EXPECT_TRUE(zyrsEncodeRLEInit_BZ2_8u(table.data()) == StatusOk &&
                    zyrsEncodeRLE_BZ2_8u(&p, &n, coded.data(), &len, table.data()) == StatusOk &&
                    zyrsEncodeRLEFlush_BZ2_8u(coded.data() + len, &flush, table.data()) == StatusOk &&
                    zyrsRLEGetInUseTable_8u(b.in_use.data(), table.data()) == StatusOk);
        n = len + flush;
    } else {
        std::copy(data.begin(), data.end(), coded.begin());
        for (uint8_t v : data) b.in_use[v] = 1;
    }
    int32_t size = 0, dict = 0, cap = n + 1;
    b.n = n;
    EXPECT_EQ(zyrsBWTFwdGetSize_8u(n, &size), StatusOk);
    Bytes work(static_cast<size_t>(size)), bwt(static_cast<size_t>(n)), mtf(bwt.size());
    std::vector<uint32_t> freq(258);
    b.symbols.resize(static_cast<size_t>(cap));
    p = mtf.data();
    EXPECT_TRUE(zyrsBWTFwd_8u(coded.data(), bwt.data(), n, &b.orig_ptr, work.data()) == StatusOk &&
                zyrsReduceDictionary_8u_I(b.in_use.data(), bwt.data(), n, &dict) == StatusOk &&
                zyrsMTFInit_8u(table.data()) == StatusOk && zyrsMTFFwd_8u(bwt.data(), mtf.data(), n, table.data()) == StatusOk &&
                zyrsEncodeZ1Z2_BZ2_8u16u(&p, &n, b.symbols.data(), &cap, freq.data()) == StatusOk);
    b.symbols.resize(static_cast<size_t>(cap));
    return b;
}

// Decodes the block with destinations of `piece` bytes, each ending at a guard page, until
// StatusOk; the first error status ends it.
ZyrStatus Decode(const Block& b, int32_t block_size, int32_t piece, Bytes* out) {
    int32_t size = 0;
    EXPECT_EQ(zyrsDecodeBlockGetSize_BZ2_8u(block_size, &size), StatusOk);
    zyrdc::test::GuardedBuffer buffer(static_cast<size_t>(size)), dst(static_cast<size_t>(piece));
    out->clear();
    auto src_len = static_cast<int32_t>(b.symbols.size());
    for (;;) {
        int32_t len = piece;
        const ZyrStatus st = zyrsDecodeBlock_BZ2_16u8u(b.symbols.data(), src_len, b.in_use.data(),
                                                       b.orig_ptr, block_size, dst.data(), &len,
                                                       buffer.data());
        if (st < 0) return st;
        out->insert(out->end(), dst.data(), dst.data() + len);
        if (st != StatusDstFull) return st;
        src_len = 0;
    }
}

// Pieces of one byte and more; a destination with just room for the transform's bytes after
// the output takes the many-chain walk, and runs that expand past them hand over to the
// single walk in mid-block. Rows given in run-length form pin the run rule as the walk meets
// it: counts 0 and 255, a block ending after four equal bytes, a count after a count.
TEST(Bzip2Block, DecodesForwardStagesInAnyPieces) {
    using zyrdc::test::MakeData;
    Bytes zeros_between = MakeData(DataKind::Random, 20000, 1), a4 = {'a', 'a', 'a', 'a'};
    zeros_between.resize(180000);
    const Bytes text = MakeData(DataKind::Text, 20000, 2);
    zeros_between.insert(zeros_between.end(), text.begin(), text.end());
    Bytes b259(1, 'b');
    b259.insert(b259.end(), 259, 'a');
    const struct {
        Bytes data;
        int32_t block_size;
        bool rle;
        Bytes want;  // empty: data
    } rows[] = {
        {MakeData(DataKind::Text, 1, 1), 1, true, {}},          {MakeData(DataKind::Random, 2, 2), 5, true, {}},
        {MakeData(DataKind::Text, 1000, 3), 1300, true, {}},    {MakeData(DataKind::Zeros, 5000, 4), 600, true, {}},
        {MakeData(DataKind::Runs, 20000, 5), 30000, true, {}},  {MakeData(DataKind::Periodic, 20000, 6), 30000, true, {}},
        {MakeData(DataKind::Sparse, 20000, 7), 30000, true, {}}, {MakeData(DataKind::Records, 20000, 8), 30000, true, {}},
        {MakeData(DataKind::Random, 300000, 9), 310000, true, {}}, {zeros_between, 60000, true, {}},
        {MakeData(DataKind::Mixed, 900000, 10), 900000, true, {}},
        {{'a', 'a', 'a', 'a', 0, 'b'}, 10, false, {'a', 'a', 'a', 'a', 'b'}},
        {{'b', 'a', 'a', 'a', 'a', 255}, 10, false, b259},
        {{'b', 'a', 'a', 'a', 'a'}, 10, false, {'b', 'a', 'a', 'a', 'a'}},
        {{'a', 'a', 'a', 'a', 1, 'a', 'a', 'a', 'a', 0}, 10, false, Bytes(9, 'a')},
    };
    for (const auto& r : rows) {
        const Bytes& want = r.want.empty() ? r.data : r.want;
        SCOPED_TRACE(testing::Message() << want.size() << " bytes, block " << r.block_size);
        const Block b = Forward(r.data, r.rle);
        const auto size = static_cast<int32_t>(want.size());
        for (int32_t piece : {size, 1, 3, 4096, b.n + 256}) {
            if (piece == 1 && size > 30000) continue;
            Bytes out;
            EXPECT_EQ(Decode(b, r.block_size, piece, &out), StatusOk) << piece;
            EXPECT_TRUE(out == want) << piece;
        }
    }
}

#if defined(ZYRDC_HAVE_BZIP2)
// libbz2's first block of a stream, its symbols read with the Huffman decoder, decodes to the
// original with the CRC libbz2 stored.
TEST(Bzip2Block, DecodesLibbz2Blocks) {
    const struct {
        DataKind kind;
        size_t n;
        int level;
    } rows[] = {{DataKind::Text, 1, 1},      {DataKind::Text, 99000, 1},      {DataKind::Runs, 99000, 1},
                {DataKind::Random, 99000, 1}, {DataKind::Zeros, 500000, 2},    {DataKind::Records, 400000, 5},
                {DataKind::Mixed, 890000, 9}, {DataKind::Sparse, 890000, 9}};
    for (const auto& r : rows) {
        SCOPED_TRACE(testing::Message() << DataKindName(r.kind) << " " << r.n << " -" << r.level);
        Bytes data = zyrdc::test::MakeData(r.kind, r.n, 7), bz(r.n + r.n / 50 + 1000), out;
        auto bz_len = static_cast<unsigned>(bz.size());
        ASSERT_EQ(BZ2_bzBuffToBuffCompress(reinterpret_cast<char*>(bz.data()), &bz_len, reinterpret_cast<char*>(data.data()),
                                           static_cast<unsigned>(data.size()), r.level, 0, 0), BZ_OK);
        // "BZh", the level, the 48-bit marker, the CRC; the randomised bit and origPtr leave
        // 7 bits of byte 17 held.
        Block b;
        b.orig_ptr = static_cast<int32_t>(((bz[14] & 0x7F) << 17) | (bz[15] << 9) | (bz[16] << 1) | (bz[17] >> 7));
        uint32_t code = bz[17] & 0x7F, bits = 7, crc = 0;
        const int32_t block_size = 100000 * r.level;
        int32_t size = 0, src_len = static_cast<int32_t>(bz_len) - 18, count = block_size + 100;
        ASSERT_EQ(zyrsDecodeHuffGetSize_BZ2_8u16u(count, &size), StatusOk);
        Bytes state(static_cast<size_t>(size));
        const uint8_t* src = bz.data() + 18;
        b.symbols.resize(static_cast<size_t>(count));
        ASSERT_TRUE(zyrsDecodeHuffInit_BZ2_8u16u(count, state.data()) == StatusOk &&
                    zyrsUnpackHuffContext_BZ2_8u16u(&src, &src_len, &code, &bits, b.in_use.data(), state.data()) == StatusOk &&
                    zyrsDecodeHuff_BZ2_8u16u(&src, &src_len, &code, &bits, b.symbols.data(), &count, state.data()) == StatusOk);
        b.symbols.resize(static_cast<size_t>(count));
        ASSERT_EQ(Decode(b, block_size, 52 * block_size + 256, &out), StatusOk);
        ASSERT_EQ(zyrsCRC32_BZ2_8u(out.data(), static_cast<int32_t>(out.size()), &crc), StatusOk);
        EXPECT_EQ(zyrdc::byte_swap32(crc), zyrdc::load_u32le(bz.data() + 10));
        EXPECT_TRUE(out == data);
    }
}
#endif

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
        SCOPED_TRACE(r.what);
        Bytes out;
        const ZyrStatus st = Decode({r.symbols, r.in_use, r.orig_ptr}, r.block_size, 64, &out);
        EXPECT_EQ(st, r.status);
    }
}

TEST(Bzip2Block, ChecksAndContinuation) {
    const Block b = Forward(Bytes(100, 'q'), true);  // 4 + count: five bytes out of 100
    int32_t size = 0, len = 0;
    ASSERT_EQ(zyrsDecodeBlockGetSize_BZ2_8u(9, &size), StatusOk);
    EXPECT_EQ(size, 9 * 4 + 1152);
    Bytes buf(static_cast<size_t>(size) + 1), dst(100);
    uint8_t* buffer = buf.data() + 1;  // not aligned: the decoder aligns its own area
    const auto n = static_cast<int32_t>(b.symbols.size());
    const struct {
        const char* what;
        int32_t src_len, block_size, cap;
        ZyrStatus status;
        int32_t len;  // unwritten on errors
    } rows[] = {
        {"continue: nothing in progress", 0, 9, 100, StatusBadContext, 100},
        {"start: symbols beyond blockSize", n, 1, 100, StatusCorruptStream, 100},
        {"continue after a failed start", 0, 1, 100, StatusBadContext, 100},
        {"start", n, 9, 60, StatusDstFull, 60},
        {"continue: another blockSize", 0, 8, 100, StatusBadContext, 100},
        {"continue: blockSize 0", 0, 0, 100, StatusBadSize, 100},
        {"continue: no room", 0, 9, 0, StatusBadSize, 0},
        {"continue to an exact fit", 0, 9, 40, StatusOk, 40},
        {"continue: block done", 0, 9, 100, StatusBadContext, 100},
        {"blockSize 900001", n, 900001, 100, StatusBadSize, 100},
        {"srcLen below 0", -1, 9, 100, StatusBadSize, 100},
    };
    for (const auto& r : rows) {
        SCOPED_TRACE(r.what);
        len = r.cap;
        EXPECT_EQ(zyrsDecodeBlock_BZ2_16u8u(b.symbols.data(), r.src_len, b.in_use.data(), b.orig_ptr, r.block_size,
                                            dst.data(), &len, buffer), r.status);
        EXPECT_EQ(len, r.len);
    }
    EXPECT_EQ(zyrsDecodeBlock_BZ2_16u8u(b.symbols.data(), n, b.in_use.data(), 0, 9, dst.data(), &len, nullptr),
              StatusNullPointer);
    EXPECT_EQ(zyrsDecodeBlock_BZ2_16u8u(b.symbols.data(), 0, nullptr, 0, 9, dst.data(), &len, buffer), StatusNullPointer);
    EXPECT_EQ(zyrsDecodeBlockGetSize_BZ2_8u(900001, &size), StatusBadSize);
    EXPECT_EQ(zyrsDecodeBlockGetSize_BZ2_8u(1, nullptr), StatusNullPointer);
}

}  // namespace
