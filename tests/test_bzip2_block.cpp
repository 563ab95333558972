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
    Bytes coded(data.size() * 5 / 4 + 8);
    auto n = static_cast<int32_t>(data.size());
    if (rle) {
        uint8_t state[264];
        const uint8_t* p = data.data();
        int32_t len = static_cast<int32_t>(coded.size()), left = n, flush = 8;
        EXPECT_EQ(zyrsEncodeRLEInit_BZ2_8u(state), StatusOk);
        EXPECT_EQ(zyrsEncodeRLE_BZ2_8u(&p, &left, coded.data(), &len, state), StatusOk);
        EXPECT_EQ(zyrsEncodeRLEFlush_BZ2_8u(coded.data() + len, &flush, state), StatusOk);
        EXPECT_EQ(zyrsRLEGetInUseTable_8u(b.in_use.data(), state), StatusOk);
        n = len + flush;
    } else {
        std::copy(data.begin(), data.end(), coded.begin());
        for (uint8_t v : data) b.in_use[v] = 1;
    }
    int32_t size = 0, dict = 0;
    b.n = n;
    EXPECT_EQ(zyrsBWTFwdGetSize_8u(n, &size), StatusOk);
    Bytes work(static_cast<size_t>(size)), bwt(static_cast<size_t>(n)), mtf(bwt.size());
    EXPECT_EQ(zyrsBWTFwd_8u(coded.data(), bwt.data(), n, &b.orig_ptr, work.data()), StatusOk);
    uint8_t table[256];
    EXPECT_EQ(zyrsReduceDictionary_8u_I(b.in_use.data(), bwt.data(), n, &dict), StatusOk);
    EXPECT_EQ(zyrsMTFInit_8u(table), StatusOk);
    EXPECT_EQ(zyrsMTFFwd_8u(bwt.data(), mtf.data(), n, table), StatusOk);
    b.symbols.resize(bwt.size() + 1);
    std::vector<uint32_t> freq(258);
    const uint8_t* q = mtf.data();
    auto cap = static_cast<int32_t>(b.symbols.size());
    EXPECT_EQ(zyrsEncodeZ1Z2_BZ2_8u16u(&q, &n, b.symbols.data(), &cap, freq.data()), StatusOk);
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
// single walk in mid-block.
TEST(Bzip2Block, DecodesForwardStagesInAnyPieces) {
    using zyrdc::test::MakeData;
    const auto zeros_between = [](size_t n) {
        Bytes v = MakeData(DataKind::Random, n / 10, 1), z(n - 2 * (n / 10));
        v.insert(v.end(), z.begin(), z.end());
        const Bytes r = MakeData(DataKind::Text, n / 10, 2);
        v.insert(v.end(), r.begin(), r.end());
        return v;
    };
    const struct {
        Bytes data;
        int32_t block_size;
    } rows[] = {
        {MakeData(DataKind::Text, 1, 1), 1},          {MakeData(DataKind::Random, 2, 2), 5},
        {MakeData(DataKind::Text, 1000, 3), 1300},    {MakeData(DataKind::Zeros, 5000, 4), 600},
        {MakeData(DataKind::Runs, 20000, 5), 30000},  {MakeData(DataKind::Periodic, 20000, 6), 30000},
        {MakeData(DataKind::Sparse, 20000, 7), 30000}, {MakeData(DataKind::Records, 20000, 8), 30000},
        {MakeData(DataKind::Random, 300000, 9), 310000}, {zeros_between(200000), 60000},
        {MakeData(DataKind::Mixed, 900000, 10), 900000},
    };
    for (const auto& r : rows) {
        SCOPED_TRACE(testing::Message() << r.data.size() << " bytes, block " << r.block_size);
        const Block b = Forward(r.data, true);
        const auto size = static_cast<int32_t>(r.data.size());
        for (int32_t piece : {size, 1, 7, 4096, b.n + 256}) {
            if (piece == 1 && size > 30000) continue;
            Bytes out;
            EXPECT_EQ(Decode(b, r.block_size, piece, &out), StatusOk) << piece;
            EXPECT_TRUE(out == r.data) << piece;
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
    } rows[] = {{DataKind::Text, 1, 1},         {DataKind::Text, 99000, 1},  {DataKind::Runs, 99000, 1},
                {DataKind::Random, 99000, 1},   {DataKind::Zeros, 500000, 2}, {DataKind::Records, 400000, 5},
                {DataKind::Mixed, 890000, 9},   {DataKind::Sparse, 890000, 9}};
    for (const auto& r : rows) {
        SCOPED_TRACE(testing::Message() << DataKindName(r.kind) << " " << r.n << " -" << r.level);
        const Bytes data = zyrdc::test::MakeData(r.kind, r.n, 7);
        Bytes bz(r.n + r.n / 50 + 1000);
        auto bz_len = static_cast<unsigned>(bz.size());
        ASSERT_EQ(BZ2_bzBuffToBuffCompress(reinterpret_cast<char*>(bz.data()), &bz_len,
                                           const_cast<char*>(reinterpret_cast<const char*>(data.data())),
                                           static_cast<unsigned>(data.size()), r.level, 0, 0), BZ_OK);
        // "BZh", the level, the 48-bit marker, the CRC; then the randomised bit and origPtr
        // leave 7 bits of byte 17 held.
        const uint32_t crc = zyrdc::load_u32le(bz.data() + 10);
        Block b;
        b.orig_ptr = static_cast<int32_t>(((bz[14] & 0x7F) << 17) | (bz[15] << 9) | (bz[16] << 1) | (bz[17] >> 7));
        uint32_t code = bz[17] & 0x7F, bits = 7;
        const int32_t block_size = 100000 * r.level;
        int32_t size = 0, src_len = static_cast<int32_t>(bz_len) - 18, count = block_size + 100;
        ASSERT_EQ(zyrsDecodeHuffGetSize_BZ2_8u16u(block_size + 100, &size), StatusOk);
        Bytes state(static_cast<size_t>(size));
        const uint8_t* src = bz.data() + 18;
        b.symbols.resize(static_cast<size_t>(count));
        ASSERT_EQ(zyrsDecodeHuffInit_BZ2_8u16u(block_size + 100, state.data()), StatusOk);
        ASSERT_EQ(zyrsUnpackHuffContext_BZ2_8u16u(&src, &src_len, &code, &bits, b.in_use.data(), state.data()), StatusOk);
        ASSERT_EQ(zyrsDecodeHuff_BZ2_8u16u(&src, &src_len, &code, &bits, b.symbols.data(), &count, state.data()), StatusOk);
        b.symbols.resize(static_cast<size_t>(count));
        Bytes out;
        ASSERT_EQ(Decode(b, block_size, 52 * block_size + 256, &out), StatusOk);
        uint32_t got = 0;
        ASSERT_EQ(zyrsCRC32_BZ2_8u(out.data(), static_cast<int32_t>(out.size()), &got), StatusOk);
        EXPECT_EQ(zyrdc::byte_swap32(got), crc);
        EXPECT_TRUE(out == data);
    }
}
#endif

// Run-length edge cases as the walk meets them: the transform input is given in run-length
// form here, so the counts and the block's end are exactly as written.
TEST(Bzip2Block, RunLengthRule) {
    const struct {
        const char* what;
        Bytes rle, out;
    } rows[] = {
        {"count 0: a run of 4", {'a', 'a', 'a', 'a', 0, 'b'}, {'a', 'a', 'a', 'a', 'b'}},
        {"count 255: a run of 259", {'b', 'a', 'a', 'a', 'a', 255}, {}},
        {"ends after four equal bytes", {'b', 'a', 'a', 'a', 'a'}, {'b', 'a', 'a', 'a', 'a'}},
        {"equal count restarts after a count", {'a', 'a', 'a', 'a', 1, 'a', 'a', 'a', 'a', 0},
         Bytes(9, 'a')},
    };
    for (const auto& r : rows) {
        SCOPED_TRACE(r.what);
        Bytes want = r.out;
        if (want.empty()) want = Bytes(1, 'b'), want.insert(want.end(), 259, 'a');
        const Block b = Forward(r.rle, false);
        for (int32_t piece : {1, 2, 3, static_cast<int32_t>(want.size())}) {
            Bytes out;
            EXPECT_EQ(Decode(b, 10, piece, &out), StatusOk) << piece;
            EXPECT_EQ(out, want) << piece;
        }
    }
}

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
        {"a run, then a byte beyond blockSize", {0, 0, 1, 3}, ab, 0, 11, StatusCorruptStream},
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
    int32_t size = 0;
    ASSERT_EQ(zyrsDecodeBlockGetSize_BZ2_8u(9, &size), StatusOk);
    EXPECT_EQ(size, 9 * 4 + 1152);
    Bytes buf(static_cast<size_t>(size) + 1), dst(100);
    uint8_t* buffer = buf.data() + 1;  // not aligned: the decoder aligns its own area
    const uint16_t* src = b.symbols.data();
    const auto n = static_cast<int32_t>(b.symbols.size());
    const uint8_t* in_use = b.in_use.data();
    int32_t len = 0;
    const auto call = [&](int32_t src_len, int32_t block_size, int32_t cap) {
        len = cap;
        return zyrsDecodeBlock_BZ2_16u8u(src, src_len, in_use, b.orig_ptr, block_size,
                                         dst.data(), &len, buffer);
    };
    const struct {
        const char* what;
        int32_t src_len, block_size, cap;
        ZyrStatus status;
        int32_t len;
    } rows[] = {
        {"continue: nothing in progress", 0, 9, 100, StatusBadContext, 0},
        {"start: symbols beyond blockSize", n, 1, 100, StatusCorruptStream, 0},
        {"continue after a failed start", 0, 1, 100, StatusBadContext, 0},
        {"start", n, 9, 60, StatusDstFull, 60},
        {"continue: another blockSize", 0, 8, 100, StatusBadContext, 0},
        {"continue: blockSize 0", 0, 0, 100, StatusBadSize, 0},
        {"continue: no room", 0, 9, 0, StatusBadSize, 0},
        {"continue to an exact fit", 0, 9, 40, StatusOk, 40},
        {"continue: block done", 0, 9, 100, StatusBadContext, 0},
        {"blockSize 900001", n, 900001, 100, StatusBadSize, 0},
        {"srcLen below 0", -1, 9, 100, StatusBadSize, 0},
    };
    for (const auto& r : rows) {
        SCOPED_TRACE(r.what);
        EXPECT_EQ(call(r.src_len, r.block_size, r.cap), r.status);
        EXPECT_EQ(len, r.status < 0 ? r.cap : r.len);  // unwritten on errors
    }
    EXPECT_EQ(zyrsDecodeBlock_BZ2_16u8u(src, n, in_use, 0, 9, dst.data(), &len, nullptr), StatusNullPointer);
    EXPECT_EQ(zyrsDecodeBlock_BZ2_16u8u(src, 0, nullptr, 0, 9, dst.data(), &len, buffer), StatusNullPointer);
    EXPECT_EQ(zyrsDecodeBlockGetSize_BZ2_8u(900001, &size), StatusBadSize);
    EXPECT_EQ(zyrsDecodeBlockGetSize_BZ2_8u(1, nullptr), StatusNullPointer);
}

}  // namespace
