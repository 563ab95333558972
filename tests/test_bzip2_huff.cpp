// bzip2 Huffman stage: streams of libbz2 decoded through Unpack/DecodeHuff and the block
// decoder, streams of the forward stages and Init/Pack/EncodeHuff decoded by libbz2; the
// table choice's edge cases; hand-built contexts (long codes, every fault); any split of
// source and destination against one call; refusals; the same bytes in both builds.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <vector>

#include "bzip2/huff.hpp"
#include "bzip2_support.hpp"
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

constexpr uint64_t kBlockMagic = 0x314159265359;

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

// Init, Pack (first with one byte too little room: nothing written) and EncodeHuff of a block's
// symbols and EOB after the bits in `sink`; two symbols past EOB stay in the source. The record.
Bytes EncodeBlock(BitSink& sink, const Bytes& in_use, Symbols s, int32_t max_symbols, std::mt19937* rng) {
    Bytes dst(20000, 0xAA), rec(static_cast<size_t>(bz::HuffEncoderBytes(max_symbols)));
    uint8_t* state = rec.data();
    const auto* r = reinterpret_cast<const bz::HuffEncoderRecord*>(state);
    s.push_back(static_cast<uint16_t>(std::count(in_use.begin(), in_use.end(), 1) + 1));
    auto n = static_cast<int32_t>(s.size());
    EXPECT_EQ(zyrsEncodeHuffInit_BZ2_16u8u(max_symbols, in_use.data(), s.data(), n, state), StatusOk);
    const uint32_t held = sink.code;
    n = static_cast<int32_t>((sink.bits + bz::HuffContextBits(r)) / 8) - 1;
    EXPECT_EQ(zyrsPackHuffContext_BZ2_16u8u(&sink.code, &sink.bits, dst.data(), &n, state), StatusDstFull);
    EXPECT_TRUE(n == 0 && sink.code == held && dst[0] == 0xAA);
    n = static_cast<int32_t>(dst.size());
    EXPECT_EQ(zyrsPackHuffContext_BZ2_16u8u(&sink.code, &sink.bits, dst.data(), &n, state), StatusOk);
    sink.Append(dst.data(), n);
    s.insert(s.end(), 2, 0);
    const uint16_t* src = s.data();
    auto left = static_cast<int32_t>(s.size());
    for (ZyrStatus st = StatusDstFull; st == StatusDstFull || left > 2;) {
        // Source pieces and destination room drawn from rng, or everything at once without one.
        int32_t piece = rng ? std::min<int32_t>(left, (*rng)() % 24) : left, before = piece;
        int32_t room = rng ? 4 + static_cast<int32_t>((*rng)() % 9) : 20000;
        st = zyrsEncodeHuff_BZ2_16u8u(&src, &piece, &sink.code, &sink.bits, dst.data(), &room, state);
        EXPECT_TRUE(st == StatusOk || st == StatusDstFull) << st;
        if (st < 0) return rec;
        sink.Append(dst.data(), room);
        left -= before - piece;
    }
    EXPECT_EQ(r->stage, bz::kEncBlockCoded);
    int32_t room = 1;  // and nothing more is taken
    EXPECT_EQ(zyrsEncodeHuff_BZ2_16u8u(&src, &left, &sink.code, &sink.bits, dst.data(), &room, state),
              StatusOk);
    EXPECT_TRUE(left == 2 && room == 0);
    return rec;
}

// A whole stream of our stages, one block per `block_bytes` of data.
Bytes Compress(const Bytes& data, int level, size_t block_bytes, std::mt19937* rng = nullptr) {
    BitSink sink;
    sink.Put(0x425A68, 24), sink.Put('0' + level, 8);
    uint32_t combined = 0;
    for (size_t at = 0; at < data.size(); at += block_bytes) {
        const Bytes block(data.begin() + at, data.begin() + std::min(data.size(), at + block_bytes));
        const zyrdc::test::Bz2Block b = zyrdc::test::Bz2Forward(block, true);
        uint32_t crc = 0;
        zyrsCRC32_BZ2_8u(block.data(), static_cast<int32_t>(block.size()), &crc);
        sink.Put(kBlockMagic, 48), sink.Put(crc, 32), sink.Put(0, 1), sink.Put(b.orig_ptr, 24);
        EncodeBlock(sink, b.in_use, b.symbols, 100000 * level + 100, rng);
        combined = (combined << 1 | combined >> 31) ^ crc;
    }
    sink.Put(0x177245385090, 48), sink.Put(combined, 32), sink.Put(0, 7);  // end of stream
    return sink.out;
}

// Unpack and DecodeHuff of one block, the source arriving `step` bytes a call (what a call
// leaves is passed again with the next; one symbol of room a call when bytewise); the symbols
// without EOB, or the first failure. (Random splits against one call: the fuzz harness.)
ZyrStatus DecodeSymbols(BitSource& in, uint8_t* state, Bytes& in_use, Symbols& out, int32_t step = 1 << 30) {
    uint16_t dst[64];
    out.clear();
    for (int32_t given = 0, context = 1;;) {
        given = std::min(in.left, given + step);
        int32_t left = given, n = step == 1 ? 1 : 64;
        const ZyrStatus st = context
            ? zyrsUnpackHuffContext_BZ2_8u16u(&in.p, &left, &in.code, &in.bits, in_use.data(), state)
            : zyrsDecodeHuff_BZ2_8u16u(&in.p, &left, &in.code, &in.bits, dst, &n, state);
        if (st < 0 || (st == StatusSrcExhausted && given == in.left)) return st;
        in.left -= given - left;
        given = left;
        if (!context) out.insert(out.end(), dst, dst + n);
        if (st == StatusOk && !context) return st;
        context = context && st != StatusOk;
    }
}

// A stream of bzip2 blocks back to its bytes (compared by the caller: the CRCs are passed over).
Bytes Decompress(const Bytes& bz2, int32_t step = 1 << 30) {
    BitSource in{bz2.data(), static_cast<int32_t>(bz2.size())};
    EXPECT_EQ(in.Get(24), 0x425A68u);
    const int32_t block_size = 100000 * (static_cast<int32_t>(in.Get(8)) - '0');
    Bytes state(static_cast<size_t>(bz::HuffDecoderBytes(block_size + 100))), out, bytes;
    zyrsDecodeHuffInit_BZ2_8u16u(block_size + 100, state.data());
    zyrdc::test::Bz2Block b;
    for (; in.Get(48) == kBlockMagic; out.insert(out.end(), bytes.begin(), bytes.end())) {
        EXPECT_EQ(in.Get(33) & 1, 0u);  // the block CRC, then no randomisation
        b.orig_ptr = static_cast<int32_t>(in.Get(24));
        EXPECT_EQ(DecodeSymbols(in, state.data(), b.in_use, b.symbols, step), StatusOk);
        EXPECT_EQ(zyrdc::test::Bz2Decode(b, block_size, 52 * block_size + 256, &bytes), StatusOk);
    }
    return out;
}

// The number of tables steps at 200, 600, 1200 and 2400 symbols; a last group may be
// partial; Fibonacci weights (symbol k < 27 fib[k] times) push the lengths to the encoder's
// 17-bit limit and no further.
// Every block decodes back to its symbols and in-use table.
TEST(BzipHuff, TableChoiceEdgeCases) {
    std::vector<uint32_t> fib = {1, 1};
    while (fib.size() < 27) fib.push_back(fib[fib.size() - 1] + fib[fib.size() - 2]);
    const struct {
        const char* name;
        int32_t in_use, n;         // n: symbols with EOB
        uint32_t tables, longest;  // 0: not checked; with a longest length, Fibonacci weights
    } rows[] = {
        {"one byte: RUNA, EOB", 1, 2, 2, 0},   {"all 256 values", 256, 30000, 6, 0},
        {"199 symbols", 40, 199, 2, 0},        {"200 symbols: groups of 50 exactly", 40, 200, 3, 0},
        {"2399 symbols", 40, 2399, 5, 0},      {"2400 symbols", 40, 2400, 6, 0},
        {"one past a group", 20, 1001, 0, 0}, {"lengths at the 17-bit limit", 30, 514229, 0, 17},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        std::mt19937 rng(static_cast<uint32_t>(row.n));
        Bytes in_use(256), used(256), dec(static_cast<size_t>(bz::HuffDecoderBytes(900100)));
        for (int32_t v = 0; v < row.in_use; ++v) in_use[v * 255 / std::max(1, row.in_use - 1)] = 1;
        Symbols syms, back;
        for (uint16_t k = 0; row.longest && k < fib.size(); ++k) syms.insert(syms.end(), fib[k], k);
        std::shuffle(syms.begin(), syms.end(), rng);
        syms.resize(static_cast<size_t>(row.n - 1));
        for (size_t i = row.longest ? syms.size() : 0; i < syms.size(); ++i) {
            syms[i] = static_cast<uint16_t>(rng() % (row.in_use + 1));
        }
        BitSink sink;
        const Bytes enc = EncodeBlock(sink, in_use, syms, 900100, nullptr);
        sink.Put(0, 64);
        BitSource in{sink.out.data(), static_cast<int32_t>(sink.out.size())};
        zyrsDecodeHuffInit_BZ2_8u16u(900100, dec.data());
        EXPECT_EQ(DecodeSymbols(in, dec.data(), used, back), StatusOk);
        EXPECT_TRUE(back == syms && used == in_use);
        const auto* r = reinterpret_cast<const bz::HuffEncoderRecord*>(enc.data());
        EXPECT_TRUE(row.tables == 0 || r->n_groups == row.tables) << r->n_groups;
        EXPECT_EQ(r->n_selectors, static_cast<uint32_t>((row.n + 49) / 50));
        const uint8_t longest = *std::max_element(&r->lengths[0][0], &r->lengths[0][0] + 6 * 258);
        EXPECT_TRUE(longest <= 17 && (row.longest == 0 || longest == row.longest)) << int{longest};
    }
}

// A context written as the format lays it out, without any check: bytes 0..used-1 in use,
// the table-count field, the selectors' move-to-front positions, every table's lengths; then
// symbols in table 0's canonical code.
struct Context {
    int used;
    uint32_t groups;
    Bytes mtf;
    std::vector<Bytes> lengths;
};
void Put(BitSink& s, const Context& c, const Symbols& syms) {
    uint32_t ranges = 0;
    for (int r = 0; r < 16; ++r) ranges |= (16 * r < c.used ? 1u : 0u) << (15 - r);
    s.Put(ranges, 16);
    for (int r = 0; 16 * r < c.used; ++r) s.Put(0xFFFFu << std::max(0, 16 * r + 16 - c.used) & 0xFFFF, 16);
    s.Put(c.groups, 3), s.Put(c.mtf.size(), 15);
    for (uint8_t j : c.mtf) s.Put((2u << j) - 2, j + 1);
    for (const Bytes& len : c.lengths) {
        int cur = len[0];
        s.Put(static_cast<uint32_t>(cur), 5);
        for (int l : len) {
            for (; cur < l; ++cur) s.Put(2, 2);
            for (; cur > l; --cur) s.Put(3, 2);
            s.Put(0, 1);
        }
    }
    const Bytes& len = c.lengths[0];
    std::vector<uint32_t> code(len.size());
    for (uint32_t l = 1, next = 0; l <= 20; ++l, next <<= 1) {
        for (size_t k = 0; k < len.size(); ++k) code[k] = len[k] == l ? next++ : code[k];
    }
    for (uint16_t v : syms) s.Put(code[v], len[v]);
}

// Codes of 20 bits decode; every malformed field is refused with nothing written back; an
// incomplete code fails only when an unused code turns up; selectors beyond those the record
// keeps are read past, and fail only when a group needs one.
TEST(BzipHuff, HandBuiltContextsAndTheirFaults) {
    Bytes deep;  // lengths 1..20 and a second 20: a complete code over 21 symbols
    for (uint8_t l = 1; l <= 20; ++l) deep.push_back(l);
    deep.push_back(20);
    const Bytes short3 = {1, 2, 2}, over = {1, 1, 1}, incomplete = {2, 2, 2};
    Bytes too_long = deep, zero = deep;
    too_long[19] = 21, too_long[20] = 21, zero[0] = 0;
    Symbols many(900099, 0);
    many.push_back(2);  // EOB
    constexpr ZyrStatus kOk = StatusOk, kBad = StatusCorruptStream;
    const struct {
        const char* name;
        Context ctx;
        Symbols syms;   // in table 0's code, then the bits `tail`
        uint32_t tail;  // two bits
        int32_t max_symbols;
        ZyrStatus unpack, decode;
    } rows[] = {
        {"codes of 20 bits", {19, 2, {0, 1}, {deep, deep}}, {19, 0, 18, 19, 3, 20}, 0, 100, kOk, kOk},
        {"a length of 21", {19, 2, {0}, {too_long, deep}}, {}, 0, 100, kBad, kOk},
        {"a starting length of 0", {19, 2, {0}, {zero, deep}}, {}, 0, 100, kBad, kOk},
        {"empty bitmap", {0, 2, {0}, {short3, short3}}, {}, 0, 100, kBad, kOk},
        {"one table", {1, 1, {0}, {short3}}, {}, 0, 100, kBad, kOk},
        {"seven tables", {1, 7, {0}, {short3}}, {}, 0, 100, kBad, kOk},
        {"no selectors", {1, 2, {}, {short3, short3}}, {}, 0, 100, kBad, kOk},
        {"selector of table 2 of 2", {1, 2, {0, 2}, {short3, short3}}, {}, 0, 100, kBad, kOk},
        {"over-subscribed", {1, 2, {0}, {short3, over}}, {}, 0, 100, StatusBadHuffmanCode, kOk},
        {"incomplete, unused code met", {1, 2, {0}, {incomplete, short3}}, {0}, 3, 100, kOk, kBad},
        {"18003 selectors, 18002 kept", {1, 2, Bytes(18003), {short3, short3}}, many, 0, 900100, kOk, kOk},
        {"a group beyond those kept", {1, 2, Bytes(18003), {short3, short3}}, many, 0, 900050, kOk, kBad},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        BitSink sink;
        sink.Put(5, 3);  // the context need not start on a byte
        Put(sink, row.ctx, row.syms);
        sink.Put(row.tail, 2), sink.Put(0, 40);
        BitSource in{sink.out.data(), static_cast<int32_t>(sink.out.size())};
        in.Get(3);
        const uint8_t* start = in.p;
        Bytes state(static_cast<size_t>(bz::HuffDecoderBytes(row.max_symbols))), in_use(256);
        zyrsDecodeHuffInit_BZ2_8u16u(row.max_symbols, state.data());
        Symbols out;
        const bool unpacked = row.unpack == StatusOk;
        EXPECT_EQ(DecodeSymbols(in, state.data(), in_use, out), unpacked ? row.decode : row.unpack);
        // A refused context consumes nothing and writes no in-use table.
        EXPECT_EQ(std::count(in_use.begin(), in_use.end(), 1), unpacked ? row.ctx.used : 0);
        EXPECT_TRUE(unpacked || in.p == start);
        EXPECT_TRUE(!unpacked || row.decode != StatusOk ||
                    out == Symbols(row.syms.begin(), row.syms.end() - 1));
    }
}

// Each refusal in the documented order (nulls, sizes, data, then the record's stage), with
// the records, counts and pointers left as they were.
TEST(BzipHuff, RefusalsInCheckOrder) {
    Bytes use(256), enc(static_cast<size_t>(bz::HuffEncoderBytes(100))), none(256), o(64);
    Bytes dec(static_cast<size_t>(bz::HuffDecoderBytes(100)));
    use[65] = 1;
    const Symbols ok = {0, 2}, eob_early = {2, 2}, no_eob = {0, 1}, high = {3, 2};
    uint8_t *e = enc.data(), *d = dec.data();
    const auto init = [&](const Bytes& in_use, const Symbols& s, int32_t n) {
        return zyrsEncodeHuffInit_BZ2_16u8u(100, in_use.data(), s.data(), n, e);
    };
    ASSERT_TRUE(init(use, ok, 2) == StatusOk && zyrsDecodeHuffInit_BZ2_8u16u(100, d) == StatusOk);
    Bytes packed = enc, bad_use = use;
    bad_use[66] = 2;
    reinterpret_cast<bz::HuffEncoderRecord*>(packed.data())->stage = bz::kEncContextWritten;
    uint8_t* p = packed.data();
    const Bytes enc_before = enc, dec_before = dec;
    uint32_t code = 0, bits = 0, b32 = 32, b8 = 8;
    int32_t len = 64, two = 2, zero = 0, neg = -1, size = 0;
    const uint16_t *sp = ok.data(), *sh = high.data(), *spn = nullptr;
    const uint8_t *bp = o.data(), *bpn = nullptr;
    auto* out = reinterpret_cast<uint16_t*>(o.data());
    const auto Pack = zyrsPackHuffContext_BZ2_16u8u;
    const auto Encode = zyrsEncodeHuff_BZ2_16u8u;
    const auto Unpack = zyrsUnpackHuffContext_BZ2_8u16u;
    const auto Decode = zyrsDecodeHuff_BZ2_8u16u;
    EXPECT_EQ(zyrsEncodeHuffGetSize_BZ2_16u8u(900101, &size), StatusBadSize);
    EXPECT_EQ(zyrsEncodeHuffInit_BZ2_16u8u(0, nullptr, ok.data(), 2, e), StatusNullPointer);
    EXPECT_EQ(init(use, ok, 1), StatusBadSize);
    EXPECT_EQ(init(bad_use, ok, 2), StatusError);
    EXPECT_EQ(init(none, ok, 2), StatusError);
    EXPECT_EQ(init(use, eob_early, 2), StatusError);
    EXPECT_EQ(init(use, no_eob, 2), StatusError);
    EXPECT_EQ(init(use, high, 2), StatusError);
    EXPECT_EQ(Pack(nullptr, &b32, o.data(), &zero, e), StatusNullPointer);
    EXPECT_EQ(Pack(&code, &b32, o.data(), &len, e), StatusBadSize);
    EXPECT_EQ(Pack(&code, &bits, o.data(), &len, d), StatusBadContext);  // a decoder's record
    EXPECT_EQ(Pack(&code, &bits, o.data(), &len, p), StatusBadContext);  // packed already
    EXPECT_EQ(Encode(&spn, &neg, &code, &b32, o.data(), &zero, e), StatusNullPointer);
    EXPECT_EQ(Encode(&sp, &neg, &code, &bits, o.data(), &len, p), StatusBadSize);
    EXPECT_EQ(Encode(&sh, &two, &code, &bits, o.data(), &len, p), StatusError);
    EXPECT_EQ(Encode(&sp, &len, &code, &bits, o.data(), &len, e), StatusBadContext);  // not packed
    EXPECT_EQ(zyrsDecodeHuffInit_BZ2_8u16u(0, d), StatusBadSize);
    EXPECT_EQ(Unpack(&bpn, &neg, &code, &b8, use.data(), d), StatusNullPointer);
    EXPECT_EQ(Unpack(&bp, &len, &code, &bits, use.data(), e), StatusBadContext);
    EXPECT_EQ(Decode(&bp, &neg, &code, &b8, nullptr, &zero, d), StatusNullPointer);
    EXPECT_EQ(Decode(&bp, &len, &code, &bits, out, &zero, d), StatusBadSize);
    EXPECT_EQ(Decode(&bp, &len, &code, &bits, out, &len, d), StatusBadContext);  // no context
    EXPECT_TRUE(enc == enc_before && dec == dec_before);
    EXPECT_TRUE(len == 64 && sp == ok.data() && bp == o.data());
}

#if defined(ZYRDC_HAVE_BZIP2)
// Both ways at every level, several blocks per stream on the larger inputs.
TEST(BzipHuff, InteroperatesWithLibbz2BothWays) {
    const auto chars = [](const Bytes& v) { return reinterpret_cast<char*>(const_cast<uint8_t*>(v.data())); };
    for (int level = 1; level <= 9; ++level) {
        const DataKind kind = zyrdc::test::kDataKinds[level - 1];
        SCOPED_TRACE(zyrdc::test::DataKindName(kind));
        const Bytes data = MakeData(kind, level % 3 == 0 ? 150000 : 30000 + 977 * level, level);
        Bytes bz2(data.size() * 2 + 1000), back(data.size() + 1);
        auto n = static_cast<unsigned>(bz2.size()), m = static_cast<unsigned>(back.size());
        const auto size = static_cast<unsigned>(data.size());
        ASSERT_EQ(BZ2_bzBuffToBuffCompress(chars(bz2), &n, chars(data), size, level, 0, 0), BZ_OK);
        bz2.resize(n);
        EXPECT_EQ(Decompress(bz2), data);
        const Bytes ours = Compress(data, level, 60000);
        const auto ours_size = static_cast<unsigned>(ours.size());
        ASSERT_EQ(BZ2_bzBuffToBuffDecompress(chars(back), &m, chars(ours), ours_size, 0, 0), BZ_OK);
        back.resize(m);
        EXPECT_EQ(back, data);
    }
}
#endif

// Random pieces of source and room give the encoder's bytes of one call, and both builds write
// these bytes (every stage's output, the table choice included); fed one byte a call, the
// decoder gives the symbols back.
TEST(BzipHuff, AnySplitGivesTheSameBytes) {
    std::mt19937 rng(15);
    const Bytes data = MakeData(DataKind::Mixed, 40000, 3);
    const Bytes whole = Compress(data, 1, 15000);
    EXPECT_EQ(Compress(data, 1, 15000, &rng), whole);
    EXPECT_EQ(Decompress(whole, 1), data);
    uint32_t crc = 0;
    zyrsCRC32_8u(whole.data(), static_cast<int32_t>(whole.size()), &crc);
    EXPECT_EQ(crc, 0x350AA599u);
}

}  // namespace
