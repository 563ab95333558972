// bzip2 Huffman stage: streams of libbz2 decoded through Unpack/DecodeHuff and the inverse
// stages, streams of the forward stages and Init/Pack/EncodeHuff decoded by libbz2; the
// table choice's edge cases; hand-built contexts (long codes, every fault); any split of
// source and destination against one call; refusals; the same bytes in both builds.
#include <gtest/gtest.h>

#include <functional>
#include <random>
#include <vector>

#include "bzip2/huff.hpp"
#include "data.hpp"
#include "zyrdc.h"
#if defined(ZYRDC_HAVE_BZIP2)
#include <bzlib.h>
#endif

namespace {

using Bytes = std::vector<uint8_t>;
using Symbols = std::vector<uint16_t>;
using zyrdc::test::DataKind;
using zyrdc::test::MakeData;
namespace bz = zyrdc::bzip2;

constexpr uint64_t kBlockMagic = 0x314159265359, kEndMagic = 0x177245385090;

// The caller's side of the shared accumulator: whole bytes out, 0..7 bits held.
struct BitSink {
    Bytes out;
    uint32_t code = 0, bits = 0;
    void Put(uint64_t v, int n) {
        while (n-- > 0) {
            code = code << 1 | (v >> n & 1);
            if (++bits == 8) out.push_back(static_cast<uint8_t>(code)), code = bits = 0;
        }
    }
    void Append(const uint8_t* p, int32_t n) { out.insert(out.end(), p, p + n); }
};
struct BitSource {
    const uint8_t* p;
    int32_t left;
    uint32_t code = 0, bits = 0;
    uint64_t Get(int n) {
        uint64_t v = 0;
        while (n-- > 0) {
            if (bits == 0) code = *p++, --left, bits = 8;
            v = v << 1 | (code >> --bits & 1);
        }
        code &= (1u << bits) - 1;
        return v;
    }
};

struct Block {
    Bytes in_use = Bytes(256);
    Symbols symbols;  // EOB last
    int32_t orig_ptr = 0;
    uint32_t crc = 0;
};

// Run-length stage, dictionary, transform, move-to-front and zero-run coding, then EOB.
Block Forward(const Bytes& data) {
    Block b;
    uint8_t rle[264], mtf[256];
    Bytes coded(data.size() * 5 / 4 + 8);
    const uint8_t* src = data.data();
    int32_t left = static_cast<int32_t>(data.size()), n = static_cast<int32_t>(coded.size()), one = 1, dict = 0;
    zyrsEncodeRLEInit_BZ2_8u(rle);
    EXPECT_EQ(zyrsEncodeRLE_BZ2_8u(&src, &left, coded.data(), &n, rle), StatusOk);
    zyrsEncodeRLEFlush_BZ2_8u(coded.data() + n, &one, rle);
    n += one;
    zyrsRLEGetInUseTable_8u(b.in_use.data(), rle);
    zyrsReduceDictionary_8u_I(b.in_use.data(), coded.data(), n, &dict);
    int32_t work = 0;
    zyrsBWTFwdGetSize_8u(n, &work);
    Bytes buffer(static_cast<size_t>(work)), last(static_cast<size_t>(n)), idx(last.size());
    EXPECT_EQ(zyrsBWTFwd_8u(coded.data(), last.data(), n, &b.orig_ptr, buffer.data()), StatusOk);
    zyrsMTFInit_8u(mtf);
    zyrsMTFFwd_8u(last.data(), idx.data(), n, mtf);
    std::vector<uint32_t> freq(258);
    b.symbols.resize(idx.size());
    const uint8_t* ip = idx.data();
    int32_t count = n;
    EXPECT_EQ(zyrsEncodeZ1Z2_BZ2_8u16u(&ip, &n, b.symbols.data(), &count, freq.data()), StatusOk);
    b.symbols.resize(static_cast<size_t>(count));
    b.symbols.push_back(static_cast<uint16_t>(dict + 1));
    zyrsCRC32_BZ2_8u(data.data(), static_cast<int32_t>(data.size()), &b.crc);
    return b;
}

// The inverse stages of a block's symbols (EOB not included).
Bytes Inverse(const Symbols& symbols, const Bytes& in_use, int32_t orig_ptr) {
    Bytes idx(900000), last, coded, out(900000 * 52);
    const uint16_t* sp = symbols.data();
    int32_t left = static_cast<int32_t>(symbols.size()), n = static_cast<int32_t>(idx.size()), dict = 0;
    EXPECT_EQ(zyrsDecodeZ1Z2_BZ2_16u8u(&sp, &left, idx.data(), &n), StatusOk);
    uint8_t mtf[256], rle[264];
    last.resize(static_cast<size_t>(n)), coded.resize(last.size());
    zyrsMTFInit_8u(mtf);
    zyrsMTFInv_8u(idx.data(), last.data(), n, mtf);
    Bytes buffer(4 * last.size() + 1024);
    EXPECT_EQ(zyrsBWTInv_8u(last.data(), coded.data(), n, orig_ptr, buffer.data()), StatusOk);
    for (uint8_t f : in_use) dict += f;
    zyrsExpandDictionary_8u_I(in_use.data(), coded.data(), n, dict);
    const uint8_t* cp = coded.data();
    uint8_t* dp = out.data();
    int32_t room = static_cast<int32_t>(out.size());
    zyrsDecodeRLEStateInit_BZ2_8u(rle);
    EXPECT_EQ(zyrsDecodeRLEState_BZ2_8u(&cp, &n, &dp, &room, rle), StatusOk);
    EXPECT_EQ(zyrsDecodeRLEStateFlush_BZ2_8u(rle, &dp, &room), StatusOk);
    out.resize(out.size() - static_cast<size_t>(room));
    return out;
}

// Source pieces and destination room drawn from rng, or everything at once without one.
int32_t Piece(std::mt19937* rng, int32_t all) { return rng ? std::min<int32_t>(all, (*rng)() % 24) : all; }

// Pack and EncodeHuff of an analysed block after the bits in `sink`.
void PackAndEncode(BitSink& sink, const Symbols& s, uint8_t* state, std::mt19937* rng) {
    Bytes dst(20000);
    int32_t n = static_cast<int32_t>(dst.size());
    ASSERT_EQ(zyrsPackHuffContext_BZ2_16u8u(&sink.code, &sink.bits, dst.data(), &n, state), StatusOk);
    sink.Append(dst.data(), n);
    const uint16_t* src = s.data();
    for (int32_t left = static_cast<int32_t>(s.size()); left > 0;) {
        int32_t piece = Piece(rng, left), before = piece, room = rng ? 4 + static_cast<int32_t>((*rng)() % 9) : 20000;
        const ZyrStatus st = zyrsEncodeHuff_BZ2_16u8u(&src, &piece, &sink.code, &sink.bits, dst.data(), &room, state);
        ASSERT_TRUE(st == StatusOk || st == StatusDstFull) << st;
        sink.Append(dst.data(), room);
        left -= before - piece;
    }
    ASSERT_EQ(state[8], 3);  // block coded
}

// A whole stream of our stages, one block per `block_bytes` of data.
Bytes Compress(const Bytes& data, int level, size_t block_bytes, std::mt19937* rng = nullptr) {
    BitSink sink;
    sink.Put(0x425A68, 24), sink.Put('0' + level, 8);
    const int32_t max_symbols = 100000 * level + 100;
    int32_t size = 0;
    zyrsEncodeHuffGetSize_BZ2_16u8u(max_symbols, &size);
    Bytes state(static_cast<size_t>(size));
    uint32_t combined = 0;
    for (size_t at = 0; at < data.size(); at += block_bytes) {
        const Block b = Forward(Bytes(data.begin() + at, data.begin() + std::min(data.size(), at + block_bytes)));
        sink.Put(kBlockMagic, 48), sink.Put(b.crc, 32), sink.Put(0, 1), sink.Put(b.orig_ptr, 24);
        EXPECT_EQ(zyrsEncodeHuffInit_BZ2_16u8u(max_symbols, b.in_use.data(), b.symbols.data(),
                                               static_cast<int32_t>(b.symbols.size()), state.data()), StatusOk);
        PackAndEncode(sink, b.symbols, state.data(), rng);
        combined = (combined << 1 | combined >> 31) ^ b.crc;
    }
    sink.Put(kEndMagic, 48), sink.Put(combined, 32), sink.Put(0, 7);
    return sink.out;
}

// Unpack and DecodeHuff of one block; the symbols without EOB, or the first failure.
ZyrStatus DecodeSymbols(BitSource& in, uint8_t* state, Bytes& in_use, Symbols& out, std::mt19937* rng) {
    out.clear();
    uint16_t dst[64];
    // Input arrives in pieces; what a call leaves unconsumed is passed again with the next.
    for (int32_t arrived = 0, context = 1;;) {
        arrived = std::min(in.left, arrived + Piece(rng, in.left));
        const int32_t given = arrived, room = rng ? 1 + static_cast<int32_t>((*rng)() % 3) : 64;
        int32_t left = given, n = room;
        const ZyrStatus st = context ? zyrsUnpackHuffContext_BZ2_8u16u(&in.p, &left, &in.code, &in.bits, in_use.data(), state)
                                     : zyrsDecodeHuff_BZ2_8u16u(&in.p, &left, &in.code, &in.bits, dst, &n, state);
        if (st < 0 || (st == StatusSrcExhausted && given == in.left)) return st;
        in.left -= given - left;
        arrived = left;
        if (!context) out.insert(out.end(), dst, dst + n);
        if (st == StatusOk && !context) return st;
        context = context && st != StatusOk;
    }
}

// A stream of bzip2 blocks back to its bytes; every block CRC and the combined CRC checked.
Bytes Decompress(const Bytes& bz2, std::mt19937* rng = nullptr) {
    BitSource in{bz2.data(), static_cast<int32_t>(bz2.size())};
    EXPECT_EQ(in.Get(24), 0x425A68u);
    const int32_t level = static_cast<int32_t>(in.Get(8)) - '0';
    int32_t size = 0;
    zyrsDecodeHuffGetSize_BZ2_8u16u(100000 * level + 100, &size);
    Bytes state(static_cast<size_t>(size)), out, in_use(256);
    zyrsDecodeHuffInit_BZ2_8u16u(100000 * level + 100, state.data());
    uint32_t combined = 0;
    for (uint64_t magic = in.Get(48); magic == kBlockMagic; magic = in.Get(48)) {
        const auto crc = static_cast<uint32_t>(in.Get(32));
        EXPECT_EQ(in.Get(1), 0u);
        const auto orig_ptr = static_cast<int32_t>(in.Get(24));
        Symbols symbols;
        EXPECT_EQ(DecodeSymbols(in, state.data(), in_use, symbols, rng), StatusOk);
        const Bytes bytes = Inverse(symbols, in_use, orig_ptr);
        uint32_t check = 0;
        zyrsCRC32_BZ2_8u(bytes.data(), static_cast<int32_t>(bytes.size()), &check);
        EXPECT_EQ(check, crc);
        out.insert(out.end(), bytes.begin(), bytes.end());
        combined = (combined << 1 | combined >> 31) ^ crc;
    }
    EXPECT_EQ(in.Get(32), combined);
    return out;
}

#if defined(ZYRDC_HAVE_BZIP2)
TEST(BzipHuff, InteroperatesWithLibbz2BothWays) {
    for (int level = 1; level <= 9; ++level) {
        const DataKind kind = zyrdc::test::kDataKinds[level - 1];
        const Bytes data = MakeData(kind, level % 3 == 0 ? 150000 : 30000 + 977 * level, level);
        SCOPED_TRACE(zyrdc::test::DataKindName(kind));
        Bytes bz2(data.size() * 2 + 1000);
        auto n = static_cast<unsigned>(bz2.size());
        ASSERT_EQ(BZ2_bzBuffToBuffCompress(reinterpret_cast<char*>(bz2.data()), &n,
                                           reinterpret_cast<char*>(const_cast<uint8_t*>(data.data())),
                                           static_cast<unsigned>(data.size()), level, 0, 0), BZ_OK);
        bz2.resize(n);
        EXPECT_EQ(Decompress(bz2), data);
        const Bytes ours = Compress(data, level, 60000);
        Bytes back(data.size() + 1);
        n = static_cast<unsigned>(back.size());
        ASSERT_EQ(BZ2_bzBuffToBuffDecompress(reinterpret_cast<char*>(back.data()), &n,
                                             reinterpret_cast<char*>(const_cast<uint8_t*>(ours.data())),
                                             static_cast<unsigned>(ours.size()), 0, 0), BZ_OK);
        back.resize(n);
        EXPECT_EQ(back, data);
    }
}
#endif

TEST(BzipHuff, AnySplitGivesTheSameBytesAndSymbols) {
    std::mt19937 rng(15);
    const Bytes data = MakeData(DataKind::Mixed, 40000, 3);
    const Bytes whole = Compress(data, 1, 15000);
    EXPECT_EQ(Compress(data, 1, 15000, &rng), whole);
    EXPECT_EQ(Decompress(whole, &rng), data);
    // Both builds write these bytes.
    uint32_t crc = 0;
    zyrsCRC32_8u(whole.data(), static_cast<int32_t>(whole.size()), &crc);
    EXPECT_EQ(crc, 0x350AA599u);
}

}  // namespace
