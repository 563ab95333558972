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

#if defined(ZYRDC_HAVE_LIBDEFLATE)  // zlib comes with deflate_support.hpp
#include <libdeflate.h>
#endif

namespace {

using namespace zyrdc::test;

// A peer encoder: libdeflate at a level (wbits 0), or zlib's raw deflate with a window, memory
// level and strategy (0 default, 1 filtered, 2 Huffman only, 3 runs, 4 fixed codes), flushing
// at random cuts (empty stored blocks, byte-aligned block starts).
struct Encoder {
    const char* name;
    int level, wbits, memLevel, strategy;
};
const Encoder kEncoders[] = {
    {"zlib stored", 0, 15, 8, 0},         {"zlib 1", 1, 15, 8, 0},      {"zlib 9", 9, 15, 9, 0},
    {"zlib 512-byte window", 6, 9, 1, 0}, {"zlib 4 KiB window", 5, 12, 9, 1},
    {"zlib Huffman only", 9, 15, 9, 2},   {"zlib runs", 9, 15, 9, 3},   {"zlib fixed", 9, 15, 9, 4},
    {"libdeflate 1", 1, 0, 0, 0},         {"libdeflate 6", 6, 0, 0, 0}, {"libdeflate 12", 12, 0, 0, 0},
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
    z_stream z{};
    if (e.wbits != 0 && deflateInit2(&z, e.level, Z_DEFLATED, -e.wbits, e.memLevel, e.strategy) == Z_OK) {
        out.resize(deflateBound(&z, data.size()) + 1024 + data.size() / 100);
        z.next_out = out.data();
        z.avail_out = static_cast<uInt>(out.size());
        size_t at = 0;
        for (size_t cut : RandomCuts(data.size(), 6, rng)) {
            z.next_in = const_cast<Bytef*>(data.data() + at);
            z.avail_in = static_cast<uInt>(cut - at);
            at = cut;
            deflate(&z, at == data.size() ? Z_FINISH : rng() % 3 == 0 ? Z_FULL_FLUSH : Z_SYNC_FLUSH);
        }
        out.resize(z.total_out);
        deflateEnd(&z);
    }
#endif
    (void)rng;
    return out;
}

// Every encoder's stream (with bytes after it, never consumed) decodes to its input and stops
// right after it, one-shot; the inputs up to 30000 bytes also in pieces of every kind, with the
// same held bits at the end (the longer ones slide the window and fill many blocks).
TEST(Inflate, DecodesPeerStreams) {
    std::mt19937 rng(21);
    const std::vector<std::vector<uint8_t>> inputs = {
        {}, {'a'}, MakeData(DataKind::Mixed, 30000, 11), RandomBytes(6000, 12),
        std::vector<uint8_t>(70000, 7), VariedData(200000, 13)};
    for (const Encoder& e : kEncoders) {
        for (const auto& data : inputs) {
            auto stream = Compress(e, data, rng);
            if (stream.empty()) break;
            const std::string what = std::string(e.name) + ", " + std::to_string(data.size()) + " bytes";
            const size_t size = stream.size();
            stream.insert(stream.end(), {0xA5, 0x5A, 0x01});
            const Inflated once = Decode(stream);
            ASSERT_TRUE(once.status == StatusOk && once.out == data && once.consumed == size)
                << what << ": status " << once.status << ", " << once.out.size() << " bytes";
            for (auto [piece, room] : {std::pair<size_t, size_t>{1, kWhole}, {kWhole, 1}, {700, 5000}}) {
                if (data.size() > 30000) break;
                const Inflated split = Decode(stream, piece, room, static_cast<uint32_t>(rng()));
                ASSERT_TRUE(split.status == once.status && split.out == data && split.consumed == size &&
                            split.heldBits == once.heldBits)
                    << what << ", pieces of " << piece << ", room " << room << ": status " << split.status;
            }
        }
    }
}

// ---- hand-made streams ---------------------------------------------------------------------

using Seq = std::vector<std::pair<uint32_t, uint32_t>>;  // code-length symbols and their extra bits

// A final dynamic block's header: the code-length code (lengths 4 for symbols 0..12, 5 for
// 13..18, unless given), of which the first hclen are sent, then the length sequence.
BitWriter DynamicHeader(uint32_t nLit, uint32_t nDist, const Seq& seq, uint32_t hclen = 19,
                        std::vector<uint8_t> clLens = {}) {
    static const uint8_t kOrder[19] = {16, 17, 18, 0, 8, 7, 9, 6, 10, 5, 11, 4, 12, 3, 13, 2, 14, 1, 15};
    if (clLens.empty()) {
        for (int s = 0; s < 19; ++s) clLens.push_back(s <= 12 ? 4 : 5);
    }
    const auto cl = CanonicalCodes(clLens);
    BitWriter w;
    w.Put(1 | 2 << 1 | (nLit - 257) << 3 | (nDist - 1) << 8 | (hclen - 4) << 13, 17);  // BFINAL .. HCLEN
    for (uint32_t i = 0; i < hclen; ++i) w.Put(clLens[kOrder[i]], 3);
    for (const auto& [sym, extra] : seq) {
        w.Code(cl[sym]);
        if (sym >= 16) w.Put(extra, sym == 16 ? 2 : sym == 17 ? 3 : 7);
    }
    return w;
}

// A header alone, with 16 zero bits after it so that a fault shows before the source ends.
std::vector<uint8_t> HeaderOnly(const Seq& seq, uint32_t nLit = 257, uint32_t nDist = 1, uint32_t hclen = 19,
                                std::vector<uint8_t> clLens = {}) {
    BitWriter w = DynamicHeader(nLit, nDist, seq, hclen, std::move(clLens));
    w.Put(0, 16);
    return w.bytes;
}

// Block bodies: {symbol} codes a literal/length symbol alone, {length symbol, extra, distance
// symbol, extra} a match, {kBits, value, count} raw bits (such as an unused code).
using Body = std::vector<std::vector<uint32_t>>;
constexpr uint32_t kBits = 1000;
std::vector<uint8_t> Block(BitWriter w, const std::vector<HuffCodeEntry>& lit,
                           const std::vector<HuffCodeEntry>& dist, const Body& body) {
    for (const auto& t : body) {
        if (t[0] == kBits) {
            w.Put(t[1], t[2]);
            continue;
        }
        w.Code(lit[t[0]]);
        if (t.size() > 1) {
            w.Put(t[1], t[0] >= 265 && t[0] < 285 ? (t[0] - 261) / 4 : 0);
            w.Code(dist[t[2]]);
            w.Put(t[3], t[2] >= 4 ? t[2] / 2 - 1 : 0);
        }
    }
    return w.bytes;
}
std::vector<uint8_t> DynamicBlock(const std::vector<uint8_t>& litLens, const std::vector<uint8_t>& distLens,
                                  const Body& body) {
    Seq seq;
    for (uint8_t l : litLens) seq.push_back({l, 0});
    for (uint8_t l : distLens) seq.push_back({l, 0});
    const auto nLit = static_cast<uint32_t>(litLens.size()), nDist = static_cast<uint32_t>(distLens.size());
    return Block(DynamicHeader(nLit, nDist, seq), CanonicalCodes(litLens), CanonicalCodes(distLens), body);
}
std::vector<uint8_t> FixedBlock(const Body& body) {
    BitWriter w;
    w.Put(3, 3);  // final, fixed codes
    return Block(w, FixedLitCodes(), CanonicalCodes(std::vector<uint8_t>(32, 5)), body);
}

std::vector<uint8_t> Lens(size_t n, std::initializer_list<std::pair<size_t, uint8_t>> set) {
    std::vector<uint8_t> v(n, 0);
    for (const auto& [s, l] : set) v[s] = l;
    return v;
}

// A final stored block after `lead` empty fixed blocks of 10 bits each, so that the decoder
// holds 10, 20 or 30 bits, whole bytes among them, when it aligns. (Stored blocks after every
// pending count, LEN 0 and 65535 among them: test_deflate_fastest.cpp.)
std::vector<uint8_t> Stored(const std::vector<uint8_t>& b, uint32_t lead) {
    BitWriter w;
    for (uint32_t i = 0; i < lead; ++i) w.Put(1 << 1, 10);
    w.Put(1, 3);
    w.n = static_cast<uint32_t>(w.bytes.size() * 8);  // to a byte boundary
    w.Put(static_cast<uint32_t>(b.size()) | (static_cast<uint32_t>(b.size()) ^ 0xFFFF) << 16, 32);
    w.bytes.insert(w.bytes.end(), b.begin(), b.end());
    return w.bytes;
}

// Each row's status one-shot and a byte at a time; the peer agrees on validity and content.
TEST(Inflate, HandMadeStreams) {
    const auto litA = Lens(257, {{'a', 1}, {256, 1}});
    const auto litAM = Lens(258, {{'a', 1}, {256, 2}, {257, 2}});  // 'a', end, length 3
    const auto litAYZ = Lens(258, {{'a', 2}, {'y', 2}, {257, 2}, {'z', 3}, {256, 3}});
    const auto dist13 = Lens(4, {{0, 1}, {2, 1}});  // distances 1 and 3
    constexpr ZyrStatus kOk = StatusOk, kCorrupt = StatusCorruptStream, kBadCode = StatusBadHuffmanCode;
    struct Row {
        const char* name;
        std::vector<uint8_t> stream;
        ZyrStatus status;
        std::vector<uint8_t> out = {};  // expected on StatusOk
    } rows[] = {
        {"fixed end only", {0x03, 0x00}, kOk},
        {"stored after fixed, 10 bits", Stored({1, 2}, 1), kOk, {1, 2}},
        {"stored after fixed, 20 bits", Stored({}, 2), kOk},
        {"stored after fixed, 30 bits", Stored({5}, 3), kOk, {5}},
        {"btype 3", {0x07}, kCorrupt},
        {"len nlen", {0x01, 0x01, 0x00, 0xFF, 0xFF, 0x00}, kCorrupt},
        {"hlit 30", HeaderOnly({}, 287), kCorrupt},
        {"hdist 30", HeaderOnly({}, 257, 31), kCorrupt},
        {"16 first", HeaderOnly({{16, 0}}), kCorrupt},
        {"repeat overruns by one", HeaderOnly({{18, 127}, {18, 110}}), kCorrupt},
        {"256 without code", HeaderOnly({{18, 127}, {18, 107}, {0, 0}, {1, 0}}), kCorrupt},
        {"256 without code, two-level",
         DynamicBlock(Lens(257, {{0, 1}, {1, 2}, {2, 3}, {3, 4}, {4, 5}, {5, 6}, {6, 7}, {7, 8}, {8, 9},
                                 {9, 10}, {10, 11}, {11, 12}, {12, 12}}), {1}, {}), kCorrupt},
        {"code-length code empty", HeaderOnly({}, 257, 1, 4, std::vector<uint8_t>(19, 0)), kBadCode},
        {"code-length code incomplete", HeaderOnly({}, 257, 1, 19, Lens(19, {{0, 1}})), kBadCode},
        {"code-length code over-subscribed", HeaderOnly({}, 257, 1, 19, Lens(19, {{0, 1}, {1, 1}, {2, 1}})),
         kBadCode},
        {"fixed 286", FixedBlock({{'x'}, {286}, {256}}), kCorrupt},
        {"fixed distance 30", FixedBlock({{'x'}, {257, 0, 30, 0}, {256}}), kCorrupt},
        {"fixed distance 0 after x", FixedBlock({{'x'}, {257, 0, 0, 0}, {256}}), kOk, {'x', 'x', 'x', 'x'}},
        {"only code is end of block", DynamicBlock(Lens(257, {{256, 1}}), {0}, {{256}}), kOk},
        {"only code is end of block, other half used",
         DynamicBlock(Lens(257, {{256, 1}}), {0}, {{kBits, 1, 1}}), kCorrupt},
        {"one distance code of length 1, other half used",
         DynamicBlock(litAM, {1}, {{'a'}, {257}, {kBits, 1, 1}}), kCorrupt},
        {"no distance codes, literals", DynamicBlock(litA, {0}, {{'a'}, {'a'}, {256}}), kOk, {'a', 'a'}},
        {"no distance codes, a length", DynamicBlock(litAM, {0}, {{'a'}, {257, 0, 0, 0}, {256}}), kCorrupt},
        {"distance 1 without history", DynamicBlock(litAM, {1, 1}, {{257, 0, 0, 0}, {256}}), kCorrupt},
        {"distance of the whole history",
         DynamicBlock(litAYZ, dist13, {{'y'}, {'z'}, {'a'}, {257, 0, 2, 0}, {256}}), kOk,
         {'y', 'z', 'a', 'y', 'z', 'a'}},
        {"one more than the history", DynamicBlock(litAYZ, dist13, {{'y'}, {'z'}, {257, 0, 2, 0}, {256}}),
         kCorrupt},
    };
    for (const Row& r : rows) {
        const Inflated once = Decode(r.stream);
        EXPECT_EQ(once.status, r.status) << r.name;
        if (r.status == StatusOk) {
            EXPECT_EQ(once.out, r.out) << r.name;
            EXPECT_EQ(once.consumed, r.stream.size()) << r.name;
        }
        EXPECT_EQ(Decode(r.stream, 1).status, r.status) << r.name;
        if (HavePeerInflate()) {
            const auto peer = PeerInflate(r.stream, r.out.size() + 300);
            EXPECT_EQ(peer.has_value(), r.status == StatusOk) << r.name;
            EXPECT_EQ(peer.value_or(r.out), r.out) << r.name;
        }
    }
}

// 'a' then a match of 258 at distance 1 into 100 bytes of room: the record keeps the rest of
// the match (159 bytes at distance 1) for the next call, which needs the history it reaches.
TEST(Inflate, MatchCutByFullDestinationResumesFromTheRecord) {
    const auto lit = Lens(286, {{'a', 1}, {256, 2}, {285, 2}});
    const auto stream = DynamicBlock(lit, {1, 1}, {{'a'}, {285, 0, 0, 0}, {256}});
    std::vector<uint8_t> buf(300);
    InflateHuffTable t;
    const uint8_t* src = stream.data();
    int32_t srcLen = static_cast<int32_t>(stream.size()), idx = 0, mode = 0;
    uint32_t code = 0, bits = 0;
    ASSERT_EQ(zyrsInflate_8u(&src, &srcLen, &code, &bits, buf.data(), 100, &idx, 0, &mode, &t),
              StatusDstFull);
    EXPECT_EQ(idx, 100);
    EXPECT_EQ(t.header[4], 159u);
    EXPECT_EQ(t.header[5], 1u);
    // Sliding the history below the distance fails; keeping it finishes the match.
    InflateHuffTable copy = t;
    int32_t idx2 = 100, mode2 = mode, srcLen2 = srcLen;
    const uint8_t* src2 = src;
    uint32_t code2 = code, bits2 = bits;
    EXPECT_EQ(zyrsInflate_8u(&src2, &srcLen2, &code2, &bits2, buf.data(), 300, &idx2, 100, &mode2, &copy),
              StatusCorruptStream);
    ASSERT_EQ(zyrsInflate_8u(&src, &srcLen, &code, &bits, buf.data(), 300, &idx, 0, &mode, &t), StatusOk);
    EXPECT_EQ(std::vector<uint8_t>(buf.begin(), buf.begin() + idx), std::vector<uint8_t>(259, 'a'));
}

// Sizes first (held bits, source length), then the record a call resumes from: the mode, the
// body's kind, match and table width, a stored block's held bits; a sound fixed-code record
// resumes. Then pointers and the remaining sizes.
TEST(Inflate, ChecksArgumentsAndContextInOrder) {
    struct Row {
        const char* name;
        ZyrStatus want;
        int32_t mode;
        uint32_t bits;
        int32_t len;
        std::vector<std::pair<int, uint32_t>> words;  // header words of the record
    } rows[] = {
        {"mode 4", StatusBadContext, 4, 0, 1, {}},
        {"mode -1", StatusBadContext, -1, 0, 1, {}},
        {"mode 1, word 1 = 3", StatusBadContext, 1, 0, 1, {{1, 3}}},
        {"mode 1, match of 259", StatusBadContext, 1, 0, 1, {{1, 1}, {4, 259}, {5, 1}}},
        {"mode 1, kind 2 with 12-bit codes", StatusBadContext, 1, 0, 1, {{1, 2}, {2, 2}, {8, 12}}},
        {"mode 2 with one held bit", StatusBadContext, 2, 1, 1, {}},
        {"eight held bits", StatusBadSize, 9, 8, 1, {}},
        {"negative source", StatusBadSize, 9, 0, -1, {}},
        {"mode 1, fixed", StatusOk, 1, 0, 1, {{0, 1}, {1, 1}}},
    };
    uint8_t dst[4], srcByte = 0x00;  // in the fixed code, the 7-bit end of block
    const uint8_t* src = &srcByte;
    const uint8_t* nullSrc = nullptr;
    int32_t len = 1, idx = 0, mode = 0;
    uint32_t code = 0, bits = 0;
    InflateHuffTable t;
    for (const Row& r : rows) {
        t = InflateHuffTable{};
        for (auto [w, v] : r.words) t.header[w] = v;
        mode = r.mode, bits = r.bits, len = r.len, idx = 0, src = &srcByte;
        EXPECT_EQ(zyrsInflate_8u(&src, &len, &code, &bits, dst, 4, &idx, 0, &mode, &t), r.want) << r.name;
    }
    mode = 0, len = 1;
    EXPECT_EQ(zyrsInflate_8u(&nullSrc, &len, &code, &bits, dst, 4, &idx, 0, &mode, &t), StatusNullPointer);
    EXPECT_EQ(zyrsInflate_8u(&src, &len, &code, &bits, dst, 4, &idx, 1, &mode, &t), StatusBadSize);  // 1 > 0
    EXPECT_EQ(zyrsInflate_8u(&src, &len, &code, &bits, dst, 0, &idx, 0, &mode, &t), StatusBadSize);
    EXPECT_EQ(zyrsInflate_8u(&src, &len, &code, &bits, dst, 4, &idx, 0, nullptr, &t), StatusNullPointer);
}

}  // namespace
