// zyrsInflate_8u: the streams of two independent encoders decode to their input and stop at
// their end, one-shot and in every kind of piece; hand-made streams give each status; the
// record's context is checked.
#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "data.hpp"
#include "deflate_support.hpp"
#include "support.hpp"
#include "zyrdc.h"

#if defined(ZYRDC_HAVE_ZLIB)
#include <zlib.h>
#endif
#if defined(ZYRDC_HAVE_LIBDEFLATE)
#include <libdeflate.h>
#endif

namespace {

using namespace zyrdc::test;

// A peer encoder: libdeflate at a level (wbits 0), or zlib's raw deflate with a window, memory
// level and strategy (0 default, 1 filtered, 2 Huffman only, 3 runs, 4 fixed codes) and
// flushes scattered through the input (empty stored blocks, byte-aligned block starts).
struct Encoder {
    const char* name;
    int level, wbits, memLevel, strategy;
};
const Encoder kEncoders[] = {
    {"zlib stored", 0, 15, 8, 0},          {"zlib 1", 1, 15, 8, 0},       {"zlib 9", 9, 15, 9, 0},
    {"zlib 512-byte window", 6, 9, 1, 0},  {"zlib 4 KiB window", 5, 12, 9, 1},
    {"zlib Huffman only", 9, 15, 9, 2},    {"zlib runs", 9, 15, 9, 3},    {"zlib fixed", 9, 15, 9, 4},
    {"libdeflate 1", 1, 0, 0, 0},          {"libdeflate 6", 6, 0, 0, 0},  {"libdeflate 12", 12, 0, 0, 0},
};

// Empty when this build lacks the peer.
std::vector<uint8_t> Compress(const Encoder& e, const std::vector<uint8_t>& data, std::mt19937& rng) {
    std::vector<uint8_t> out;
#if defined(ZYRDC_HAVE_LIBDEFLATE)
    if (e.wbits == 0) {
        libdeflate_compressor* c = libdeflate_alloc_compressor(e.level);
        out.resize(libdeflate_deflate_compress_bound(c, data.size()));
        out.resize(libdeflate_deflate_compress(c, data.data(), data.size(), out.data(), out.size()));
        libdeflate_free_compressor(c);
    }
#endif
#if defined(ZYRDC_HAVE_ZLIB)
    if (e.wbits != 0) {
        z_stream z{};
        EXPECT_EQ(deflateInit2(&z, e.level, Z_DEFLATED, -e.wbits, e.memLevel, e.strategy), Z_OK);
        out.resize(deflateBound(&z, data.size()) + 1024 + data.size() / 100);
        z.next_out = out.data();
        z.avail_out = static_cast<uInt>(out.size());
        size_t at = 0;
        for (size_t cut : RandomCuts(data.size(), 6, rng)) {
            z.next_in = const_cast<Bytef*>(data.data() + at);
            z.avail_in = static_cast<uInt>(cut - at);
            at = cut;
            const int flush = at == data.size() ? Z_FINISH : rng() % 3 == 0 ? Z_FULL_FLUSH : Z_SYNC_FLUSH;
            const int rc = deflate(&z, flush);  // a repeated flush with no input is a Z_BUF_ERROR
            EXPECT_TRUE(flush == Z_FINISH ? rc == Z_STREAM_END : rc == Z_OK || rc == Z_BUF_ERROR);
        }
        out.resize(z.total_out);
        deflateEnd(&z);
    }
#endif
    (void)rng;
    return out;
}

// Every encoder's stream (with bytes after it, never consumed) decodes to its input and stops
// right after it, one-shot; the inputs up to 30000 bytes also in pieces of every kind (the
// longer ones slide the window and fill many blocks, one-shot only: splits are the fuzz
// harness's daily work).
TEST(Inflate, DecodesPeerStreams) {
    std::mt19937 rng(21);
    const std::vector<uint8_t> kTail = {0xA5, 0x5A, 0x01};
    const std::vector<std::vector<uint8_t>> inputs = {
        {}, {'a'}, MakeData(DataKind::Mixed, 30000, 11), RandomBytes(6000, 12),
        std::vector<uint8_t>(70000, 7), VariedData(200000, 13)};
    for (const Encoder& e : kEncoders) {
        for (const auto& data : inputs) {
            auto stream = Compress(e, data, rng);
            if (stream.empty()) break;
            const std::string what = std::string(e.name) + ", " + std::to_string(data.size()) + " bytes";
            const size_t size = stream.size();
            stream.insert(stream.end(), kTail.begin(), kTail.end());
            const Inflated once = InflateOnce(stream, data.size() + 1);
            ASSERT_EQ(once.status, StatusOk) << what;
            ASSERT_EQ(once.out, data) << what;
            ASSERT_EQ(once.consumed, size) << what;
            if (data.size() > 30000) continue;
            for (const auto& [piece, room] : {std::pair<size_t, size_t>{1, 0}, {0, 1}, {700, 5000}}) {
                const Inflated split = InflatePieces(stream, rng, piece, room);
                ASSERT_EQ(split.status, StatusOk) << what << ", pieces " << piece << "/" << room;
                ASSERT_EQ(split.out, data) << what << ", pieces " << piece << "/" << room;
                ASSERT_EQ(split.consumed, size) << what;
                ASSERT_EQ(split.heldBits, once.heldBits) << what;
            }
        }
    }
}

// ---- hand-made streams ---------------------------------------------------------------------

// A dynamic block header sent with a complete code-length code (lengths 4 for symbols 0..12,
// 5 for 13..18) and the given symbols of the length sequence (value, extra bits).
void DynamicHeader(BitWriter& w, bool final, uint32_t nLit, uint32_t nDist,
                   const std::vector<std::pair<uint32_t, uint32_t>>& seq, uint32_t hclen = 19,
                   std::vector<uint8_t> clLens = {}) {
    static const uint8_t kOrder[19] = {16, 17, 18, 0, 8, 7, 9, 6, 10, 5, 11, 4, 12, 3, 13, 2, 14, 1, 15};
    if (clLens.empty()) {
        for (int s = 0; s < 19; ++s) clLens.push_back(s <= 12 ? 4 : 5);
    }
    const auto cl = CanonicalCodes(clLens);
    w.Put(final | 2 << 1 | (nLit - 257) << 3 | (nDist - 1) << 8 | (hclen - 4) << 13, 17);  // BFINAL .. HCLEN
    for (uint32_t i = 0; i < hclen; ++i) w.Put(clLens[kOrder[i]], 3);
    for (const auto& [sym, extra] : seq) {
        w.Code(cl[sym]);
        if (sym >= 16) w.Put(extra, sym == 16 ? 2 : sym == 17 ? 3 : 7);
    }
}

std::vector<std::pair<uint32_t, uint32_t>> Plain(const std::vector<uint8_t>& lens) {
    std::vector<std::pair<uint32_t, uint32_t>> seq;
    for (uint8_t l : lens) seq.push_back({l, 0});
    return seq;
}

// A final dynamic block with the given lengths and body: literals (< 256), 256, or a match
// given as {257 + length code, extra, distance symbol, extra}.
std::vector<uint8_t> DynamicBlock(const std::vector<uint8_t>& litLens, const std::vector<uint8_t>& distLens,
                                  const std::vector<std::vector<uint32_t>>& body) {
    BitWriter w;
    std::vector<uint8_t> all(litLens);
    all.insert(all.end(), distLens.begin(), distLens.end());
    DynamicHeader(w, true, static_cast<uint32_t>(litLens.size()), static_cast<uint32_t>(distLens.size()), Plain(all));
    const auto lit = CanonicalCodes(litLens), dist = CanonicalCodes(distLens);
    for (const auto& t : body) {
        w.Code(lit[t[0]]);
        if (t.size() > 1) {
            w.Put(t[1], t[0] >= 265 && t[0] < 285 ? (t[0] - 261) / 4 : 0);
            w.Code(dist[t[2]]);
            w.Put(t[3], t[2] >= 4 ? t[2] / 2 - 1 : 0);
        }
    }
    return w.bytes;
}

std::vector<uint8_t> Lens(size_t n, std::initializer_list<std::pair<size_t, uint8_t>> set) {
    std::vector<uint8_t> v(n, 0);
    for (const auto& [s, l] : set) v[s] = l;
    return v;
}

std::vector<uint8_t> FixedBlock(std::initializer_list<uint32_t> lits, int distCode = -1) {
    BitWriter w;
    w.Put(3, 3);  // final, fixed codes
    const auto lit = FixedLitCodes(288);
    for (uint32_t s : lits) w.Code(lit[s]);
    if (distCode >= 0) {
        w.Code(lit[257]);
        w.Code(FixedDistCodes(32)[static_cast<size_t>(distCode)]);
    }
    w.Code(lit[256]);
    return w.bytes;
}

std::vector<uint8_t> Stored(std::initializer_list<std::vector<uint8_t>> blocks, uint32_t lead = 0) {
    BitWriter w;
    for (uint32_t i = 0; i < lead; ++i) w.Put(1 << 1, 10);  // empty fixed blocks shift what follows
    size_t i = 0;
    for (const auto& b : blocks) {
        w.Put(++i == blocks.size(), 3);  // final or not, stored
        w.Align();
        w.Put(static_cast<uint32_t>(b.size()) | (static_cast<uint32_t>(b.size()) ^ 0xFFFF) << 16, 32);
        w.bytes.insert(w.bytes.end(), b.begin(), b.end());
        w.n = static_cast<uint32_t>(w.bytes.size() * 8);
    }
    return w.bytes;
}

struct EdgeRow {
    const char* name;
    std::vector<uint8_t> stream;
    ZyrStatus status;
    std::vector<uint8_t> out;       // expected on StatusOk
    std::vector<uint8_t> dict = {};
};

// Codes of 1 to 12 bits: a two-level record.
const std::vector<uint8_t> kTwoLevelLens = [] {
    std::vector<uint8_t> v(258, 0);
    for (int s = 1; s <= 10; ++s) v[s] = static_cast<uint8_t>(s + 1);
    v[11] = v[256] = 12;
    v[257] = 1;
    return v;
}();

TEST(Inflate, HandMadeStreams) {
    const auto litA = Lens(257, {{'a', 1}, {256, 1}});
    const auto litAM = Lens(258, {{'a', 1}, {256, 2}, {257, 2}});  // 'a', end, length 3
    std::vector<uint8_t> big(65535);
    for (size_t i = 0; i < big.size(); ++i) big[i] = static_cast<uint8_t>(i * 7);
    using Seq = std::vector<std::pair<uint32_t, uint32_t>>;
    auto seq = [](Seq s) { return s; };
    auto header = [](std::vector<std::pair<uint32_t, uint32_t>> s, uint32_t nLit = 257, uint32_t nDist = 1,
                     uint32_t hclen = 19, std::vector<uint8_t> cl = {}) {
        BitWriter w;
        DynamicHeader(w, true, nLit, nDist, s, hclen, cl);
        w.Put(0, 16);
        return w.bytes;
    };
    std::vector<uint8_t> cl7(19, 0);
    cl7[0] = cl7[1] = 1;
    const std::vector<EdgeRow> rows = {
        {"fixed end only", {0x03, 0x00}, StatusOk, {}},
        {"empty stored", Stored({{}}), StatusOk, {}},
        {"stored 65535", Stored({big}), StatusOk, big},
        {"stored after fixed, 10 bits", Stored({{1, 2}, {3}}, 1), StatusOk, {1, 2, 3}},
        {"stored after fixed, 20 bits", Stored({{4}, {}}, 2), StatusOk, {4}},
        {"stored after fixed, 30 bits", Stored({{5}}, 3), StatusOk, {5}},
        {"btype 3", {0x07}, StatusCorruptStream, {}},
        {"len nlen", {0x01, 0x01, 0x00, 0xFF, 0xFF, 0x00}, StatusCorruptStream, {}},
        {"hlit 30", header(seq({}), 287), StatusCorruptStream, {}},
        {"hlit 31", header(seq({}), 288), StatusCorruptStream, {}},
        {"hdist 30", header(seq({}), 257, 31), StatusCorruptStream, {}},
        {"hdist 31", header(seq({}), 257, 32), StatusCorruptStream, {}},
        {"16 first", header(seq({{16, 0}})), StatusCorruptStream, {}},
        {"repeat overruns by one", header(seq({{18, 127}, {18, 110}})), StatusCorruptStream, {}},
        {"256 without code", header(seq({{18, 127}, {18, 107}, {0, 0}, {1, 0}})), StatusCorruptStream, {}},
        {"256 without code, two-level", DynamicBlock(Lens(257, {{0, 1}, {1, 2}, {2, 3}, {3, 4}, {4, 5}, {5, 6},
                                                              {6, 7}, {7, 8}, {8, 9}, {9, 10}, {10, 11}, {11, 12},
                                                              {12, 12}}), {1}, {}),
         StatusCorruptStream, {}},
        {"code-length code empty", header(seq({}), 257, 1, 4, std::vector<uint8_t>(19, 0)), StatusBadHuffmanCode, {}},
        {"code-length code incomplete", header(seq({}), 257, 1, 19, Lens(19, {{0, 1}})), StatusBadHuffmanCode, {}},
        {"code-length code over-subscribed", header(seq({}), 257, 1, 19, Lens(19, {{0, 1}, {1, 1}, {2, 1}})),
         StatusBadHuffmanCode, {}},
        {"fixed 286", FixedBlock({'x', 286}), StatusCorruptStream, {}},
        {"fixed 287", FixedBlock({287}), StatusCorruptStream, {}},
        {"fixed distance 30", FixedBlock({'x'}, 30), StatusCorruptStream, {}},
        {"fixed distance 31", FixedBlock({'x'}, 31), StatusCorruptStream, {}},
        {"fixed distance 0 after x", FixedBlock({'x'}, 0), StatusOk, {'x', 'x', 'x', 'x'}},
        {"only code is end of block", DynamicBlock(Lens(257, {{256, 1}}), {0}, {{256}}), StatusOk, {}},
        {"only code is end of block, other half used",
         [] { BitWriter w; DynamicHeader(w, true, 257, 1, Plain(Lens(258, {{256, 1}}))); w.Put(1, 1); return w.bytes; }(),
         StatusCorruptStream, {}},
        {"one distance code of length 1, other half used",
         [&] {
             BitWriter w;
             std::vector<uint8_t> all(litAM);
             all.push_back(1);
             DynamicHeader(w, true, 258, 1, Plain(all));
             const auto lit = CanonicalCodes(litAM);
             w.Code(lit['a']);
             w.Code(lit[257]);
             w.Put(1, 1);  // the unused distance code
             return w.bytes;
         }(),
         StatusCorruptStream, {}},
        {"no distance codes, literals", DynamicBlock(litA, {0}, {{'a'}, {'a'}, {256}}), StatusOk, {'a', 'a'}},
        {"no distance codes, a length", DynamicBlock(litAM, {0}, {{'a'}, {257, 0, 0, 0}, {256}}),
         StatusCorruptStream, {}},
        {"distance 1 without history", DynamicBlock(litAM, {1, 1}, {{257, 0, 0, 0}, {256}}), StatusCorruptStream, {}},
        {"distance 1 with one byte of dictionary", DynamicBlock(litAM, {1, 1}, {{257, 0, 0, 0}, {256}}), StatusOk,
         {'q', 'q', 'q'}, {'q'}},
        {"distance of the whole history", DynamicBlock(litAM, Lens(4, {{0, 1}, {2, 1}}), {{'a'}, {257, 0, 2, 0}, {256}}),
         StatusOk, {'a', 'y', 'z', 'a'}, {'y', 'z'}},
        {"one more than the history", DynamicBlock(litAM, Lens(4, {{0, 1}, {2, 1}}), {{257, 0, 2, 0}, {256}}),
         StatusCorruptStream, {}, {'y', 'z'}},
        {"two-level, 12-bit codes",
         DynamicBlock(kTwoLevelLens, {1, 1}, {{1}, {2}, {11}, {257, 0, 0, 0}, {10}, {256}}), StatusOk,
         {1, 2, 11, 11, 11, 11, 10}},
    };
    std::mt19937 rng(23);
    for (const EdgeRow& r : rows) {
        auto stream = r.stream;
        const Inflated once = InflateOnce(stream, r.out.size() + 300, r.dict);
        EXPECT_EQ(once.status, r.status) << r.name;
        if (r.status == StatusOk) {
            EXPECT_EQ(once.out, r.out) << r.name;
            EXPECT_EQ(once.consumed, stream.size()) << r.name;
        }
        if (HavePeerInflate() && r.dict.empty()) {  // the peer agrees on validity and content
            const auto peer = PeerInflate(stream, r.out.size() + 300);
            EXPECT_EQ(peer.has_value(), r.status == StatusOk) << r.name;
            if (peer) {
                EXPECT_EQ(*peer, r.out) << r.name;
            }
        }
        if (r.dict.empty()) {  // every split gives the same status
            EXPECT_EQ(InflatePieces(stream, rng, 1, 0).status, r.status) << r.name;
        }
    }
}

TEST(Inflate, MatchCutByFullDestinationResumesFromTheRecord) {
    const auto lit = Lens(286, {{'a', 1}, {256, 2}, {285, 2}});
    const auto stream = DynamicBlock(lit, {1, 1}, {{'a'}, {285, 0, 0, 0}, {256}});  // 'a' then 258 more
    std::vector<uint8_t> buf(300);
    InflateHuffTable t;
    const uint8_t* src = stream.data();
    int32_t srcLen = static_cast<int32_t>(stream.size()), idx = 0, mode = 0;
    uint32_t code = 0, bits = 0;
    ASSERT_EQ(zyrsInflate_8u(&src, &srcLen, &code, &bits, buf.data(), 100, &idx, 0, &mode, &t), StatusDstFull);
    EXPECT_EQ(idx, 100);
    EXPECT_EQ(t.header[4], 159u);
    EXPECT_EQ(t.header[5], 1u);
    InflateHuffTable copy = t;
    // Sliding the history below the distance fails; keeping it finishes the match.
    int32_t idx2 = 100, mode2 = mode, srcLen2 = srcLen;
    const uint8_t* src2 = src;
    uint32_t code2 = code, bits2 = bits;
    EXPECT_EQ(zyrsInflate_8u(&src2, &srcLen2, &code2, &bits2, buf.data(), 300, &idx2, 100, &mode2, &copy),
              StatusCorruptStream);
    ASSERT_EQ(zyrsInflate_8u(&src, &srcLen, &code, &bits, buf.data(), 300, &idx, 0, &mode, &t), StatusOk);
    EXPECT_EQ(idx, 259);
    EXPECT_EQ(std::vector<uint8_t>(buf.begin(), buf.begin() + 259), std::vector<uint8_t>(259, 'a'));
}

TEST(Inflate, ChecksArgumentsAndContextInOrder) {
    InflateHuffTable t{};
    uint8_t dst[4], srcByte = 0x03;
    const uint8_t* src = &srcByte;
    const uint8_t* nullSrc = nullptr;
    int32_t len = 1, idx = 0, mode = 0;
    uint32_t code = 0, bits = 0;
    struct Row { const char* name; ZyrStatus want; void (*setup)(InflateHuffTable&, int32_t&, uint32_t&, int32_t&); };
    const Row rows[] = {
        {"mode 4", StatusBadContext, [](InflateHuffTable&, int32_t& m, uint32_t&, int32_t&) { m = 4; }},
        {"mode -1", StatusBadContext, [](InflateHuffTable&, int32_t& m, uint32_t&, int32_t&) { m = -1; }},
        {"mode 1, word 1 = 3", StatusBadContext,
         [](InflateHuffTable& r, int32_t& m, uint32_t&, int32_t&) { m = 1; r.header[1] = 3; }},
        {"mode 1, match of 259", StatusBadContext,
         [](InflateHuffTable& r, int32_t& m, uint32_t&, int32_t&) { m = 1; r.header[1] = 1; r.header[4] = 259; r.header[5] = 1; }},
        {"mode 1, kind 2 with 12-bit codes", StatusBadContext,
         [](InflateHuffTable& r, int32_t& m, uint32_t&, int32_t&) { m = 1; r.header[1] = 2; r.header[2] = 2; r.header[8] = 12; }},
        {"mode 2 with one held bit", StatusBadContext,
         [](InflateHuffTable&, int32_t& m, uint32_t& b, int32_t&) { m = 2; b = 1; }},
        {"eight held bits", StatusBadSize, [](InflateHuffTable&, int32_t& m, uint32_t& b, int32_t&) { m = 9; b = 8; }},
        {"negative source", StatusBadSize, [](InflateHuffTable&, int32_t& m, uint32_t&, int32_t& l) { m = 9; l = -1; }},
        {"mode 1, fixed", StatusOk, [](InflateHuffTable& r, int32_t& m, uint32_t&, int32_t&) { m = 1; r.header[0] = 1; r.header[1] = 1; }},
    };
    for (const Row& r : rows) {
        t = InflateHuffTable{};
        mode = 0, bits = 0, len = 1, idx = 0;
        r.setup(t, mode, bits, len);
        srcByte = 0x00;  // fixed code: the 7-bit end of block
        src = &srcByte;
        EXPECT_EQ(zyrsInflate_8u(&src, &len, &code, &bits, dst, 4, &idx, 0, &mode, &t), r.want) << r.name;
    }
    mode = 0, len = 1;
    EXPECT_EQ(zyrsInflate_8u(&nullSrc, &len, &code, &bits, dst, 4, &idx, 0, &mode, &t), StatusNullPointer);
    EXPECT_EQ(zyrsInflate_8u(&src, &len, &code, &bits, dst, 4, &idx, 1, &mode, &t), StatusBadSize);  // win > idx
    EXPECT_EQ(zyrsInflate_8u(&src, &len, &code, &bits, dst, 0, &idx, 0, &mode, &t), StatusBadSize);
    EXPECT_EQ(zyrsInflate_8u(&src, &len, &code, &bits, dst, 4, &idx, 0, nullptr, &t), StatusNullPointer);
}

}  // namespace
