// High-compression and dictionary LZ4 encoders: every block decodes with liblz4 and with the
// library's decoders to exactly the prefix it consumed, keeps the format's end rules and
// reach, and closes validly at every capacity; linked blocks are the same from a continued
// and from a fresh record; dictionary placement and table copies do not change a block;
// argument checks in order; output pinned for both builds.
#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "lz4/hc.hpp"
#include "support.hpp"
#include "zyrdc.h"

#if defined(ZYRDC_HAVE_LIBLZ4)
#include <lz4.h>
#endif

namespace {

using Bytes = std::vector<uint8_t>;

enum class Kind { Random, Runs, Text, Periodic, Period65535, Period65536 };
constexpr Kind kKinds[] = {Kind::Random, Kind::Runs, Kind::Text, Kind::Periodic, Kind::Period65535, Kind::Period65536};

Bytes MakeData(Kind kind, size_t n, uint32_t seed) {
    std::mt19937 rng(seed);
    static const char* const kWords[] = {"the ", "chain ", "match ", "of ", "literal ", "and ",
                                         "offset ", "record\n", "a ", "window "};
    Bytes v;
    v.reserve(n + 16);
    const size_t period = kind == Kind::Period65535 ? 65535 : 65536;
    while (v.size() < n) {
        switch (kind) {
            case Kind::Random: v.push_back(static_cast<uint8_t>(rng())); break;
            case Kind::Runs: v.insert(v.end(), 1 + rng() % 40, static_cast<uint8_t>(rng() % 3)); break;
            case Kind::Text: for (const char* w = kWords[rng() % 10]; *w; ++w) v.push_back(static_cast<uint8_t>(*w)); break;
            case Kind::Periodic: {
                const size_t p = 1 + rng() % 20, len = rng() % 400;
                for (size_t i = 0; i < len; ++i) v.push_back(static_cast<uint8_t>('a' + i % p));
                break;
            }
            case Kind::Period65535:
            case Kind::Period65536:
                v.push_back(v.size() >= period ? v[v.size() - period] : static_cast<uint8_t>(rng()));
                break;
        }
    }
    v.resize(n);
    return v;
}

Bytes Record() {
    int32_t size = 0;
    EXPECT_EQ(zyrsEncodeLZ4HCHashTableGetSize_8u(&size), StatusOk);
    Bytes r(static_cast<size_t>(size));
    EXPECT_EQ(zyrsEncodeLZ4HCHashTableInit_8u(r.data()), StatusOk);
    return r;
}

int32_t Worst(size_t n) { return static_cast<int32_t>(n + n / 255 + 16); }

// Walks a block: every match within the format's end rules for `n` decoded bytes and
// reaching back at most 65535 bytes and no further than `history` bytes before the block.
void CheckBlockRules(const uint8_t* b, size_t len, size_t n, size_t history) {
    size_t i = 0, out = 0;
    auto run = [&](size_t v) {
        for (uint8_t x = 255; v >= 15 && x == 255; v += x) x = b[i++];
        return v;
    };
    for (;;) {
        ASSERT_LT(i, len);
        const uint8_t token = b[i++];
        const size_t lit = run(token >> 4);
        i += lit;
        out += lit;
        if (i == len) break;
        const size_t off = b[i] | b[i + 1] << 8;
        i += 2;
        const size_t m = run(token & 15) + 4;
        ASSERT_GE(off, 1u);
        ASSERT_LE(off, out + history);
        ASSERT_LE(out + 12, n) << "match starts within the last 12 bytes";
        ASSERT_LE(out + m + 5, n) << "match ends within the last 5 bytes";
        out += m;
    }
    ASSERT_EQ(out, n);
}

// ---- one encoder per row --------------------------------------------------------------------

enum class Fn { HC, HCDictLimit, Dict, DictSafe };
struct Encoder { const char* name; Fn fn; int level; };

std::vector<Encoder> AllEncoders() {
    std::vector<Encoder> e;
    for (int l = 1; l <= 12; ++l) e.push_back({"HC", Fn::HC, l});
    for (int l : {2, 4, 9, 11}) e.push_back({"HCDictLimit", Fn::HCDictLimit, l});
    e.push_back({"Dict", Fn::Dict, 0});
    e.push_back({"DictSafe", Fn::DictSafe, 0});
    return e;
}

struct Coded { ZyrStatus status; int32_t consumed; Bytes block; };

// Codes `data` after `history` (the dictionary, or the earlier part of the buffer for
// HCDictLimit) into a guarded destination of `capacity` bytes.
Coded Encode(const Encoder& e, const Bytes& history, const Bytes& data, int32_t capacity, uint8_t* record) {
    Bytes buf = history;
    buf.insert(buf.end(), data.begin(), data.end());
    zyrdc::test::GuardedBuffer dst(static_cast<size_t>(capacity));
    int32_t srcLen = static_cast<int32_t>(data.size()), dstLen = capacity;
    ZyrStatus s = StatusError;
    const auto h = static_cast<int32_t>(history.size());
    switch (e.fn) {
        case Fn::HC: s = zyrsEncodeLZ4HC_8u(data.data(), &srcLen, dst.data(), &dstLen, record, e.level); break;
        case Fn::HCDictLimit: s = zyrsEncodeLZ4HCDictLimit_8u(buf.data(), h, &srcLen, dst.data(), &dstLen, record, e.level, 0); break;
        case Fn::Dict:
        case Fn::DictSafe: {
            uint8_t table[16384];
            EXPECT_EQ(h > 0 ? zyrsEncodeLZ4LoadDict_8u(history.data(), h, table) : zyrsEncodeLZ4DictHashTableInit_8u(table), StatusOk);
            s = e.fn == Fn::Dict ? zyrsEncodeLZ4Dict_8u(data.data(), srcLen, dst.data(), &dstLen, table, history.data(), h)
                                 : zyrsEncodeLZ4DictSafe_8u(data.data(), &srcLen, dst.data(), &dstLen, table,
                                                            history.data(), h);
            break;
        }
    }
    EXPECT_LE(dstLen, capacity);
    return {s, srcLen, Bytes(dst.data(), dst.data() + dstLen)};
}

// liblz4 and the library's decoder reproduce the consumed prefix from the block.
void ExpectDecodes(const Coded& c, const Bytes& history, const Bytes& data) {
    const auto n = static_cast<size_t>(c.consumed);
    const size_t reach = std::min<size_t>(history.size(), 65536);
    CheckBlockRules(c.block.data(), c.block.size(), n, reach);
    Bytes out(history);
    out.resize(history.size() + n + 16);
#if defined(ZYRDC_HAVE_LIBLZ4)
    const int got = history.empty()
        ? LZ4_decompress_safe(reinterpret_cast<const char*>(c.block.data()), reinterpret_cast<char*>(out.data()),
                              static_cast<int>(c.block.size()), static_cast<int>(n))
        : LZ4_decompress_safe_usingDict(reinterpret_cast<const char*>(c.block.data()),
                                        reinterpret_cast<char*>(out.data() + history.size()),
                                        static_cast<int>(c.block.size()), static_cast<int>(n),
                                        reinterpret_cast<const char*>(history.data()),
                                        static_cast<int>(history.size()));
    ASSERT_EQ(got, static_cast<int>(n));
    ASSERT_EQ(0, std::memcmp(out.data() + history.size(), data.data(), n));
#endif
    // The library's decoder: history in place (prefix core).
    std::fill(out.begin() + static_cast<ptrdiff_t>(history.size()), out.end(), 0xEE);
    int32_t srcLen = static_cast<int32_t>(c.block.size()), dstLen = static_cast<int32_t>(n + 16);
    if (n == 0) return;
    const ZyrStatus s = zyrsDecodeLZ4Dict_8u(c.block.data(), &srcLen, out.data(), static_cast<int32_t>(history.size()),
                                             &dstLen, history.empty() ? nullptr : out.data(),
                                             static_cast<int32_t>(history.size()));
    ASSERT_TRUE(s == StatusOk || s == StatusDstFull) << s;
    ASSERT_EQ(dstLen, static_cast<int32_t>(n));
    ASSERT_EQ(0, std::memcmp(out.data() + history.size(), data.data(), n));
}

class EveryEncoder : public ::testing::TestWithParam<Encoder> {};

TEST_P(EveryEncoder, BlocksDecodeToTheSourceForEveryKindAndSize) {
    const Encoder& e = GetParam();
    Bytes record = Record();
    for (Kind kind : kKinds) {
        for (size_t n : {1, 12, 13, 14, 15, 100, 4096, 70000, 300000}) {
            if (e.level >= 11 && n > 70000) continue;
            const Bytes all = MakeData(kind, n + 80000, static_cast<uint32_t>(n));
            const bool withHistory = e.fn != Fn::HC && n % 2 == 0;
            const Bytes history(all.begin(), all.begin() + (withHistory ? 80000 : 0));
            const Bytes data(all.end() - static_cast<ptrdiff_t>(n), all.end());
            const Coded c = Encode(e, history, data, Worst(n), record.data());
            SCOPED_TRACE(std::string(e.name) + " level " + std::to_string(e.level) + " kind " +
                         std::to_string(static_cast<int>(kind)) + " n " + std::to_string(n));
            ASSERT_EQ(c.status, StatusOk);
            ASSERT_EQ(c.consumed, static_cast<int32_t>(n));
            ASSERT_TRUE(n >= 13 || c.block.size() == n + 1) << "one literal run";
            ExpectDecodes(c, history, data);
        }
    }
}

TEST_P(EveryEncoder, EveryCapacityGivesACompleteBlockOfTheConsumedPrefix) {
    const Encoder& e = GetParam();
    if (e.fn == Fn::Dict) return;  // unbounded
    Bytes record = Record();
    for (Kind kind : {Kind::Text, Kind::Random, Kind::Runs}) {
        const Bytes all = MakeData(kind, 1400, 7);
        const Bytes history(all.begin(), all.begin() + (e.fn == Fn::HC ? 0 : 400));
        const Bytes data(all.begin() + static_cast<ptrdiff_t>(history.size()), all.end());
        for (int32_t cap = 1; cap <= Worst(data.size()); cap += cap < 64 ? 1 : 7) {
            const Coded c = Encode(e, history, data, cap, record.data());
            SCOPED_TRACE(std::string(e.name) + " level " + std::to_string(e.level) + " capacity " + std::to_string(cap));
            ASSERT_EQ(c.status, c.consumed < static_cast<int32_t>(data.size()) ? StatusDstFull : StatusOk);
            ASSERT_TRUE(cap != 1 || c.block == Bytes{0x00});
            ExpectDecodes(c, history, data);
        }
        // The worst case always fits.
        ASSERT_EQ(Encode(e, history, data, Worst(data.size()), record.data()).status, StatusOk);
    }
}

INSTANTIATE_TEST_SUITE_P(Lz4Hc, EveryEncoder, ::testing::ValuesIn(AllEncoders()),
                         [](const ::testing::TestParamInfo<Encoder>& row) {
                             return std::string(row.param.name) + "_" + std::to_string(row.param.level);
                         });

// ---- linked blocks ----------------------------------------------------------------------------

// One linked block of buf[idx, idx + n).
Bytes HcBlock(const uint8_t* buf, size_t idx, size_t n, uint8_t* rec, int level, size_t dictLimit) {
    Bytes out(static_cast<size_t>(Worst(n)));
    int32_t srcLen = static_cast<int32_t>(n), dstLen = static_cast<int32_t>(out.size());
    EXPECT_EQ(zyrsEncodeLZ4HCDictLimit_8u(buf, static_cast<int32_t>(idx), &srcLen, out.data(), &dstLen, rec, level,
                                          static_cast<int32_t>(dictLimit)), StatusOk);
    out.resize(static_cast<size_t>(dstLen));
    return out;
}

// Blocks of `step` bytes over one buffer, each with the history the decoder still holds
// (`window` bytes back); with `fresh` a new record for every block.
std::vector<Bytes> LinkedBlocks(const Bytes& buf, size_t step, size_t window, int level, bool fresh) {
    std::vector<Bytes> blocks;
    Bytes record = Record();
    for (size_t at = 0; at < buf.size(); at += step) {
        if (fresh) record = Record();
        blocks.push_back(HcBlock(buf.data(), at, std::min(step, buf.size() - at), record.data(), level,
                                 at > window ? at - window : 0));
    }
    return blocks;
}

struct LinkedRow { Kind kind; size_t size, step, window; int level; };

class Linked : public ::testing::TestWithParam<LinkedRow> {};

TEST_P(Linked, ContinuedAndFreshRecordsGiveTheSameBlocksWhichDecodeInPlace) {
    const LinkedRow& row = GetParam();
    const Bytes buf = MakeData(row.kind, row.size, 3);
    const std::vector<Bytes> continued = LinkedBlocks(buf, row.step, row.window, row.level, false);
    ASSERT_EQ(continued, LinkedBlocks(buf, row.step, row.window, row.level, true));
    // Decode block by block with the history in place before the write position.
    Bytes out(buf.size() + 16);
    size_t at = 0;
    for (const Bytes& b : continued) {
        const size_t n = std::min(row.step, buf.size() - at);
        const size_t hist = std::min(at, row.window);
        CheckBlockRules(b.data(), b.size(), n, hist);
        int32_t srcLen = static_cast<int32_t>(b.size()), dstLen = static_cast<int32_t>(n + 16);
        ASSERT_EQ(zyrsDecodeLZ4Dict_8u(b.data(), &srcLen, out.data(), static_cast<int32_t>(at), &dstLen,
                                       hist ? out.data() + at - hist : nullptr, static_cast<int32_t>(hist)),
                  StatusOk);
        ASSERT_EQ(dstLen, static_cast<int32_t>(n));
        at += n;
    }
    out.resize(buf.size());
    ASSERT_EQ(out, buf);
}

INSTANTIATE_TEST_SUITE_P(Lz4Hc, Linked, ::testing::Values(
    LinkedRow{Kind::Text, 300000, 65536, 65536, 9},
    LinkedRow{Kind::Text, 200000, 4096, 20000, 3},
    LinkedRow{Kind::Period65535, 300000, 50000, 65536, 1},
    LinkedRow{Kind::Period65536, 300000, 70000, 65536, 6},
    LinkedRow{Kind::Periodic, 15000, 12, 65536, 10},
    LinkedRow{Kind::Runs, 150000, 30000, 1000, 12}));

TEST(Lz4HcLinked, DictLimitAtTheBlockEqualsAnIndependentBlockAndASlidBufferContinues) {
    Bytes buf = MakeData(Kind::Text, 200000, 5), rec = Record();
    for (int level : {2, 5, 10}) {
        Bytes a(static_cast<size_t>(Worst(100000))), r2 = Record();
        int32_t n = 100000, d = static_cast<int32_t>(a.size());
        ASSERT_EQ(zyrsEncodeLZ4HC_8u(buf.data() + 50000, &n, a.data(), &d, rec.data(), level), StatusOk);
        a.resize(static_cast<size_t>(d));
        ASSERT_EQ(a, HcBlock(buf.data(), 50000, 100000, r2.data(), level, 50000));
    }
    // Code 100000 bytes, slide the last 64 KiB to the buffer start and go on: the block of a
    // fresh record over the slid buffer.
    HcBlock(buf.data(), 0, 100000, rec.data(), 9, 0);
    std::memmove(buf.data(), buf.data() + 100000 - 65536, 65536 + 50000);
    Bytes fresh = Record();
    const Bytes cont = HcBlock(buf.data(), 65536, 50000, rec.data(), 9, 0);
    ASSERT_EQ(cont, HcBlock(buf.data(), 65536, 50000, fresh.data(), 9, 0));
    ExpectDecodes({StatusOk, 50000, cont}, Bytes(buf.begin(), buf.begin() + 65536),
                  Bytes(buf.begin() + 65536, buf.begin() + 115536));
}

// Runs are judged a stretch of candidates at a time; the blocks are those of the walk one
// candidate at a time, for runs of every length against every reach and candidate budget.
TEST(Lz4HcRuns, StretchesGiveTheBlocksOfTheCandidateByCandidateWalk) {
    std::mt19937 rng(17);
    Bytes data;
    while (data.size() < 36000) {
        const size_t len = rng() % 3 == 0 ? rng() % 6000 : 1 + rng() % 70;
        data.insert(data.end(), len, static_cast<uint8_t>(rng() % 3 == 0 ? rng() : rng() % 2));
    }
    for (int level = 1; level <= 12; ++level) {
        for (int32_t capacity : {Worst(data.size()), 3000}) {
            Bytes rec1 = Record(), rec2 = Record();
            Bytes a(static_cast<size_t>(capacity)), b(static_cast<size_t>(capacity));
            const auto n = static_cast<int32_t>(data.size() - 12000);
            const auto r1 = zyrdc::lz4::EncodeHc(rec1.data(), data.data(), 12000, n, 3000, true, a.data(), capacity, level, false);
            const auto r2 = zyrdc::lz4::EncodeHc(rec2.data(), data.data(), 12000, n, 3000, true, b.data(), capacity, level, true);
            ASSERT_EQ(r1.consumed, r2.consumed) << level;
            ASSERT_EQ(Bytes(a.begin(), a.begin() + r1.written), Bytes(b.begin(), b.begin() + r2.written)) << level;
        }
    }
}

// ---- dictionary -------------------------------------------------------------------------------

Bytes DictBlock(const uint8_t* src, size_t n, const uint8_t* dict, int32_t dictLen, const uint8_t* table0 = nullptr) {
    uint8_t table[16384];
    if (table0 != nullptr) std::memcpy(table, table0, sizeof table);
    const ZyrStatus loaded = table0 != nullptr ? StatusOk
                             : dictLen > 0 ? zyrsEncodeLZ4LoadDict_8u(dict, dictLen, table) : zyrsEncodeLZ4DictHashTableInit_8u(table);
    EXPECT_EQ(loaded, StatusOk);
    Bytes out(static_cast<size_t>(Worst(n)));
    int32_t len = 0;
    EXPECT_EQ(zyrsEncodeLZ4Dict_8u(src, static_cast<int32_t>(n), out.data(), &len, table, dict, dictLen), StatusOk);
    out.resize(static_cast<size_t>(len));
    return out;
}

TEST(Lz4Dict, PlacementTableCopiesAndReachDoNotChangeABlock) {
    const Bytes text = MakeData(Kind::Text, 200000, 9);
    const auto d = static_cast<int32_t>(100 * 1024);  // a dictionary of the first 100 KiB
    uint8_t pristine[16384];
    ASSERT_EQ(zyrsEncodeLZ4LoadDict_8u(text.data(), d, pristine), StatusOk);
    const Bytes dict(text.begin(), text.begin() + d), last64(text.begin() + d - 65536, text.begin() + d);
    for (size_t len : {13, 40, 100, 5000}) {
        const Bytes msg(text.begin() + 150000, text.begin() + 150000 + static_cast<ptrdiff_t>(len));
        const Bytes block = DictBlock(msg.data(), len, dict.data(), d);
        SCOPED_TRACE(len);
        EXPECT_LT(block.size(), msg.size()) << "repeated dictionary content compresses";
        EXPECT_EQ(block, DictBlock(msg.data(), len, last64.data(), 65536)) << "only the last 64 KiB count";
        EXPECT_EQ(block, DictBlock(msg.data(), len, dict.data(), d, pristine)) << "table copy";
        Bytes adjacent(dict);
        adjacent.insert(adjacent.end(), msg.begin(), msg.end());
        EXPECT_EQ(block, DictBlock(adjacent.data() + d, len, adjacent.data(), d)) << "adjacent dictionary";
        ExpectDecodes({StatusOk, static_cast<int32_t>(len), block}, dict, msg);
        // The separate-dictionary core, the dictionary standing in for the first 64 KiB.
        Bytes dec(65536 + len + 16);
        int32_t srcLen = static_cast<int32_t>(block.size()), dstLen = static_cast<int32_t>(len + 16);
        ASSERT_EQ(zyrsDecodeLZ4Dict_8u(block.data(), &srcLen, dec.data(), 65536, &dstLen, last64.data(), 65536), StatusOk);
        ASSERT_EQ(Bytes(dec.begin() + 65536, dec.begin() + 65536 + dstLen), msg);
    }
    EXPECT_EQ(DictBlock(text.data(), 3000, nullptr, 0), DictBlock(text.data(), 3000, text.data() + 5000, 0))
        << "null and empty dictionary";
}

TEST(Lz4Dict, AnyTableContentIsSafe) {
    const Bytes msg = MakeData(Kind::Text, 20000, 4), dict = MakeData(Kind::Text, 3000, 5);
    std::mt19937 rng(1);
    for (int round = 0; round < 20; ++round) {
        uint8_t table[16384];
        for (auto& b : table) b = static_cast<uint8_t>(round % 2 ? rng() : (rng() % 4 ? 0 : rng()));
        for (int e = 0; round == 0 && e < 4096; ++e) {  // just below 2^32: "near" by wrapping arithmetic
            const uint32_t v = 0u - 1u - static_cast<uint32_t>(e) * 7;
            std::memcpy(table + 4 * e, &v, 4);
        }
        const Bytes block = DictBlock(msg.data(), msg.size(), dict.data(), static_cast<int32_t>(dict.size()), table);
        ExpectDecodes({StatusOk, static_cast<int32_t>(msg.size()), block}, dict, msg);
    }
}

// ---- argument checks --------------------------------------------------------------------------

TEST(Lz4HcChecks, InOrder) {
    Bytes rec = Record(), bad = Record();
    bad[0] ^= 1;
    uint8_t src[32] = {}, dst[64], table[16384] = {};
    int32_t n = 32, cap = 64, size;
    struct Row { const char* what; ZyrStatus got, want; };
    auto hc = [&](const uint8_t* s, int32_t sl, uint8_t* d, int32_t dl, uint8_t* r, int lv) {
        n = sl;
        cap = dl;
        return zyrsEncodeLZ4HC_8u(s, &n, d, &cap, r, lv);
    };
    auto lim = [&](int32_t idx, int32_t sl, int32_t dictLimit, uint8_t* r, int lv) {
        n = sl;
        cap = 64;
        return zyrsEncodeLZ4HCDictLimit_8u(src, idx, &n, dst, &cap, r, lv, dictLimit);
    };
    const Row rows[] = {
        {"HC size null", zyrsEncodeLZ4HCHashTableGetSize_8u(nullptr), StatusNullPointer},
        {"HC size", zyrsEncodeLZ4HCHashTableGetSize_8u(&size) == StatusOk && size == 328512 ? StatusOk : StatusError, StatusOk},
        {"HC init null", zyrsEncodeLZ4HCHashTableInit_8u(nullptr), StatusNullPointer},
        {"HC null source before sizes", hc(nullptr, 0, dst, 64, rec.data(), 0), StatusNullPointer},
        {"HC null record", hc(src, 32, dst, 64, nullptr, 1), StatusNullPointer},
        {"HC empty source before magic", hc(src, 0, dst, 64, bad.data(), 1), StatusBadSize},
        {"HC source too long", hc(src, 0x7E000001, dst, 64, rec.data(), 1), StatusBadSize},
        {"HC zero capacity", hc(src, 32, dst, 0, rec.data(), 1), StatusBadSize},
        {"HC magic before level", hc(src, 32, dst, 64, bad.data(), 0), StatusBadContext},
        {"HC level 0", hc(src, 32, dst, 64, rec.data(), 0), StatusBadArgument},
        {"HC level 13", hc(src, 32, dst, 64, rec.data(), 13), StatusBadArgument},
        {"HC level 12", hc(src, 32, dst, 64, rec.data(), 12), StatusOk},
        {"limit negative index", lim(-1, 8, 0, rec.data(), 1), StatusBadSize},
        {"limit dictLimit above index", lim(4, 8, 5, rec.data(), 1), StatusBadSize},
        {"limit negative dictLimit", lim(4, 8, -1, rec.data(), 1), StatusBadSize},
        {"limit end past 2^31-1", lim(0x7FFFFFF0, 0x10, 0, bad.data(), 1), StatusBadSize},
        {"limit magic", lim(4, 8, 0, bad.data(), 1), StatusBadContext},
        {"limit level", lim(4, 8, 0, rec.data(), 13), StatusBadArgument},
        {"dict init null", zyrsEncodeLZ4DictHashTableInit_8u(nullptr), StatusNullPointer},
        {"load null", zyrsEncodeLZ4LoadDict_8u(nullptr, 0, table), StatusNullPointer},
        {"load empty", zyrsEncodeLZ4LoadDict_8u(src, 0, table), StatusBadSize},
        {"dict null table", zyrsEncodeLZ4Dict_8u(src, 0, dst, &cap, nullptr, src, 4), StatusNullPointer},
        {"dict empty source", zyrsEncodeLZ4Dict_8u(src, 0, dst, &cap, table, src, 4), StatusBadSize},
        {"dict negative dictionary", zyrsEncodeLZ4Dict_8u(src, 4, dst, &cap, table, src, -1), StatusBadSize},
        {"dict null dictionary", zyrsEncodeLZ4Dict_8u(src, 4, dst, &cap, table, nullptr, 9), StatusOk},
        {"safe null count", zyrsEncodeLZ4DictSafe_8u(src, nullptr, dst, &cap, table, src, 4), StatusNullPointer},
        {"safe zero capacity", [&] { n = 4; cap = 0; return zyrsEncodeLZ4DictSafe_8u(src, &n, dst, &cap, table, nullptr, 0); }(), StatusBadSize},
    };
    for (const Row& r : rows) EXPECT_EQ(r.got, r.want) << r.what;
}

// ---- both builds --------------------------------------------------------------------------------

uint64_t Fnv(const Bytes& b, uint64_t h = 14695981039346656037ull) {
    for (uint8_t x : b) h = (h ^ x) * 1099511628211ull;
    return h;
}

TEST(Lz4HcPinned, BothBuildsWriteTheseBytes) {
    uint64_t h = 14695981039346656037ull;
    const Bytes data = MakeData(Kind::Text, 50000, 11), hist = MakeData(Kind::Periodic, 3000, 12);
    Bytes record = Record();
    for (const Encoder& e : AllEncoders()) {
        const int32_t cap = e.fn == Fn::Dict ? Worst(data.size()) : Worst(data.size()) / 3;
        const Coded c = Encode(e, e.fn == Fn::HC ? Bytes{} : hist, data, cap, record.data());
        h = Fnv(c.block, h);
    }
    EXPECT_EQ(h, 12226917452664829747ull);
}

}  // namespace
