// LZ4 encoders, one row per encoder (greedy, bounded, accelerated, high-compression, linked,
// dictionary): every block keeps the format's end rules and reach and gives back exactly the
// prefix it consumed through liblz4 and each decoding core on its fast and careful paths, at
// every capacity, against guard pages; liblz4's blocks, plain and against history, decode on
// those paths too; linked blocks are the same from a continued and a fresh record; dictionary
// placement and table copies do not change a block; each encoder's output pinned for both
// builds. The fuzz harnesses run the same checks on arbitrary data and scrambled tables.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "data.hpp"
#include "lz4/hc.hpp"
#include "lz4/lz4.hpp"
#include "support.hpp"
#include "zyrdc.h"

#if defined(ZYRDC_HAVE_LIBLZ4)
#include <lz4.h>
#include <lz4hc.h>
#endif

namespace {

using Bytes = std::vector<uint8_t>;
using zyrdc::lz4::Core;
using zyrdc::test::DataKind;
using zyrdc::test::GuardedBuffer;
using zyrdc::test::MakeData;

int32_t Worst(size_t n) {
    return static_cast<int32_t>(zyrdc::lz4::WorstCaseBlockSize(static_cast<int64_t>(n)));
}

Bytes Record() {
    Bytes r(328512);
    EXPECT_EQ(zyrsEncodeLZ4HCHashTableInit_8u(r.data()), StatusOk);
    return r;
}

struct Coded { ZyrStatus status; int32_t consumed; Bytes block; };

// liblz4 (which holds a block to the format's end rules and reach: its dictionary is exactly
// the history a block may use) and each core, fast and careful, give back the consumed prefix
// of `data` from a source and into a destination of exact sizes that end at guard pages; with
// history, the prefix core finds its last 64 KiB in place, the separate core elsewhere. The
// plain bounded encoder ends a block that leaves input out with as many literals as fit,
// which liblz4 takes for a complete block only.
void ExpectDecodes(const Coded& c, const Bytes& history, const Bytes& data, bool complete = true) {
    const auto n = static_cast<size_t>(c.consumed);
    const size_t reach = std::min<size_t>(history.size(), 65536);
    const Bytes dict(history.end() - static_cast<ptrdiff_t>(reach), history.end());
    GuardedBuffer src(c.block.size());
    src.fill(c.block);
    const auto len = static_cast<int32_t>(c.block.size()), cap = std::max(c.consumed, 1);
    const auto h = static_cast<int32_t>(reach);
#if defined(ZYRDC_HAVE_LIBLZ4)
    Bytes out(n + 1);
    ASSERT_EQ(!complete ? c.consumed : LZ4_decompress_safe_usingDict(reinterpret_cast<const char*>(src.data()),
                                            reinterpret_cast<char*>(out.data()), len, c.consumed,
                                            reinterpret_cast<const char*>(dict.data()), h), c.consumed);
    ASSERT_TRUE(!complete || std::equal(data.begin(), data.begin() + c.consumed, out.begin())) << "liblz4";
#endif
    for (Core core : reach ? std::vector{Core::Prefix, Core::Separate} : std::vector{Core::Plain}) {
        for (bool fast : {true, false}) {
            GuardedBuffer buf(reach + static_cast<size_t>(cap));
            uint8_t* at = buf.data() + reach;
            std::copy(dict.begin(), dict.end(), buf.data());
            if (core == Core::Separate) std::fill(buf.data(), at, 0xEE);
            const uint8_t* d = core == Core::Separate ? dict.data() : buf.data();
            zyrdc::lz4::DecodeResult r{StatusOk, len, cap};
            if (!fast) {
                r = zyrdc::lz4::Decode(core, {src.data(), len, at, cap, h, d, h}, false);
            } else if (core == Core::Plain) {
                r.status = zyrsDecodeLZ4_8u(src.data(), len, at, &r.written);
            } else {
                r.status = zyrsDecodeLZ4Dict_8u(src.data(), &r.consumed, buf.data(), h, &r.written, d, h);
            }
            // The empty block is the lone token, which a one-byte source reports as cut short.
            ASSERT_EQ(r.status, n == 0 ? StatusSrcExhausted : StatusOk) << int(core) << fast;
            ASSERT_EQ(r.written, c.consumed);
            ASSERT_TRUE(std::equal(data.begin(), data.begin() + c.consumed, at)) << int(core) << fast;
        }
    }
}

// ---- one encoder per row ------------------------------------------------------------------

enum class Fn { Greedy, Safe, Fast, HC, HCDictLimit, Dict, DictSafe };
struct Encoder { const char* name; Fn fn; int level; uint32_t crc; };

bool Bounded(Fn f) { return f == Fn::Safe || f == Fn::HC || f == Fn::HCDictLimit || f == Fn::DictSafe; }
bool TakesHistory(Fn f) { return f >= Fn::HCDictLimit; }

// Codes `data` after `history` (the loaded dictionary, or the buffer's earlier part for the
// linked form) from a source and into a destination of `capacity` bytes ending at guard pages.
Coded Encode(const Encoder& e, const Bytes& history, const Bytes& data, int32_t capacity) {
    GuardedBuffer src(history.size() + data.size()), dst(static_cast<size_t>(capacity));
    std::copy(data.begin(), data.end(), std::copy(history.begin(), history.end(), src.data()));
    const auto h = static_cast<int32_t>(history.size());
    const uint8_t* in = src.data() + h;
    Bytes table = e.fn == Fn::HC || e.fn == Fn::HCDictLimit ? Record() : Bytes(16384);
    int32_t n = static_cast<int32_t>(data.size()), len = capacity;
    uint8_t *d = dst.data(), *t = table.data();
    ZyrStatus s = StatusError;
    switch (e.fn) {
        case Fn::Greedy: s = zyrsEncodeLZ4_8u(in, n, d, &len, t); break;
        case Fn::Safe: s = zyrsEncodeLZ4Safe_8u(in, &n, d, &len, t); break;
        case Fn::Fast: s = zyrsEncodeLZ4Fast_8u(in, n, d, &len, t, e.level); break;
        case Fn::HC: s = zyrsEncodeLZ4HC_8u(in, &n, d, &len, t, e.level); break;
        case Fn::HCDictLimit: s = zyrsEncodeLZ4HCDictLimit_8u(src.data(), h, &n, d, &len, t, e.level, 0); break;
        case Fn::Dict:
        case Fn::DictSafe:
            EXPECT_EQ(h ? zyrsEncodeLZ4LoadDict_8u(src.data(), h, t) : zyrsEncodeLZ4DictHashTableInit_8u(t),
                      StatusOk);
            s = e.fn == Fn::Dict ? zyrsEncodeLZ4Dict_8u(in, n, d, &len, t, src.data(), h)
                                 : zyrsEncodeLZ4DictSafe_8u(in, &n, d, &len, t, src.data(), h);
            break;
    }
    EXPECT_LE(len, capacity);
    return {s, n, Bytes(d, d + len)};
}

class Lz4Encoder : public ::testing::TestWithParam<Encoder> {};

// Every block decodes everywhere, and liblz4's blocks of the same data too. An encoder's
// output is part of its contract: the CRC-32 of all its blocks here is recorded once for both
// builds (the bounded encoder with room for everything and acceleration 1 write the greedy
// encoder's blocks). Up to 21 bytes leave the greedy encoders no position to probe; the
// walk that takes runs one candidate at a time gives the high-compression blocks.
TEST_P(Lz4Encoder, BlocksDecodeEverywhereAndArePinned) {
    const Encoder& e = GetParam();
    uint32_t crc = 0;
    for (DataKind kind : zyrdc::test::kDataKinds) {
        for (size_t n : {1, 12, 13, 15, 21, 22, 100, 300, 4096, 65535, 65536, 65537, 300000}) {
            if (n > (e.level == 12 ? 4096u : 70000u) && e.level >= 11 && e.fn != Fn::Fast) continue;
            const Bytes all = MakeData(kind, n + 80000, static_cast<uint32_t>(n) + static_cast<uint32_t>(kind));
            const size_t h = TakesHistory(e.fn) && n % 2 == 0 ? 80000 : 0;
            const Bytes history(all.begin() + 80000 - static_cast<ptrdiff_t>(h), all.begin() + 80000);
            const Bytes data(all.begin() + 80000, all.end());
            SCOPED_TRACE(std::string(DataKindName(kind)) + " n " + std::to_string(n));
            const Coded c = Encode(e, history, data, Worst(n));
            ASSERT_EQ(c.status, StatusOk);
            ASSERT_EQ(c.consumed, static_cast<int32_t>(n));
            const size_t literalOnly = e.fn < Fn::HC ? 21 : 12;
            ASSERT_TRUE(n > literalOnly || c.block.size() == size_t(Worst(n))) << "literals only";
            ExpectDecodes(c, history, data);
            ASSERT_EQ(zyrsCRC32_8u(c.block.data(), static_cast<int32_t>(c.block.size()), &crc), StatusOk);
            if ((e.fn == Fn::HC || e.fn == Fn::HCDictLimit) && n <= 4096) {
                Bytes rec = Record(), walked(static_cast<size_t>(Worst(n)));
                const auto r = zyrdc::lz4::EncodeHc(rec.data(), all.data() + 80000 - h, static_cast<int32_t>(h),
                                                    c.consumed, 0, e.fn == Fn::HCDictLimit, walked.data(),
                                                    static_cast<int32_t>(walked.size()), e.level, true);
                ASSERT_EQ(Bytes(walked.begin(), walked.begin() + r.written), c.block) << "one at a time";
            }
#if defined(ZYRDC_HAVE_LIBLZ4)
            if (e.fn != Fn::Greedy) continue;
            const auto* s = reinterpret_cast<const char*>(data.data());
            for (int which = 0; which < 2; ++which) {
                Bytes z(static_cast<size_t>(LZ4_compressBound(static_cast<int>(n))));
                auto* zd = reinterpret_cast<char*>(z.data());
                const int cap = static_cast<int>(z.size()), len = static_cast<int>(n);
                z.resize(static_cast<size_t>(which ? LZ4_compress_HC(s, zd, len, cap, 9)
                                                   : LZ4_compress_default(s, zd, len, cap)));
                ExpectDecodes({StatusOk, len, z}, {}, data);
            }
#endif
        }
    }
    EXPECT_EQ(crc, e.crc) << std::hex << " 0x" << crc;
}

// At every capacity a bounded encoder writes a complete block of the prefix it consumed,
// reporting DstFull exactly when a prefix was left out.
TEST_P(Lz4Encoder, EveryCapacityGivesACompleteBlockOfTheConsumedPrefix) {
    const Encoder& e = GetParam();
    if (!Bounded(e.fn)) return;  // unbounded
    for (DataKind kind : {DataKind::Text, DataKind::Random, DataKind::Runs, DataKind::Zeros,
                          DataKind::Periodic}) {
        const Bytes all = MakeData(kind, 1400, 7);
        const Bytes history(all.begin(), all.begin() + (TakesHistory(e.fn) ? 400 : 0));
        const Bytes data(all.begin() + static_cast<ptrdiff_t>(history.size()), all.end());
        for (int32_t cap = 1; cap <= Worst(data.size()); cap += cap < 64 ? 1 : 5) {
            SCOPED_TRACE(std::string(DataKindName(kind)) + " capacity " + std::to_string(cap));
            const Coded c = Encode(e, history, data, cap);
            ASSERT_EQ(c.status, c.consumed < static_cast<int32_t>(data.size()) ? StatusDstFull : StatusOk);
            ExpectDecodes(c, history, data, e.fn != Fn::Safe || c.status == StatusOk);
        }
    }
}

// The pins: one CRC-32 per encoder.
INSTANTIATE_TEST_SUITE_P(Lz4, Lz4Encoder, ::testing::Values(
    Encoder{"greedy", Fn::Greedy, 0, 0xecffaf7a}, Encoder{"bounded", Fn::Safe, 0, 0xecffaf7a},
    Encoder{"fast", Fn::Fast, 1, 0xecffaf7a}, Encoder{"fast", Fn::Fast, 2, 0x0c2a4033},
    Encoder{"fast", Fn::Fast, 7, 0x026ed3a8}, Encoder{"fast", Fn::Fast, 300, 0x73120426},
    Encoder{"hc", Fn::HC, 1, 0xff98ff96}, Encoder{"hc", Fn::HC, 2, 0x10472870},
    Encoder{"hc", Fn::HC, 3, 0xa32a1bd5}, Encoder{"hc", Fn::HC, 4, 0x030dd136},
    Encoder{"hc", Fn::HC, 5, 0x65360144}, Encoder{"hc", Fn::HC, 6, 0x97a0344f},
    Encoder{"hc", Fn::HC, 7, 0xd65a73a3}, Encoder{"hc", Fn::HC, 8, 0x10b24383},
    Encoder{"hc", Fn::HC, 9, 0x1481329e}, Encoder{"hc", Fn::HC, 10, 0xd6eaa8fd},
    Encoder{"hc", Fn::HC, 11, 0x20b6aa9e}, Encoder{"hc", Fn::HC, 12, 0x634ad75c},
    Encoder{"linked", Fn::HCDictLimit, 2, 0x2706602f}, Encoder{"linked", Fn::HCDictLimit, 4, 0x68723f96},
    Encoder{"linked", Fn::HCDictLimit, 9, 0x84a6888b}, Encoder{"linked", Fn::HCDictLimit, 11, 0x0c9ff736},
    Encoder{"dict", Fn::Dict, 0, 0xfce9bb71}, Encoder{"dict_bounded", Fn::DictSafe, 0, 0xfce9bb71}),
    [](const auto& row) { return std::string(row.param.name) + "_" + std::to_string(row.param.level); });

// ---- linked blocks ----------------------------------------------------------------------------

// One linked block of buf[idx, idx + n).
Bytes HcBlock(const uint8_t* buf, size_t idx, size_t n, uint8_t* rec, int level, size_t dictLimit) {
    Bytes out(static_cast<size_t>(Worst(n)));
    int32_t srcLen = static_cast<int32_t>(n), dstLen = static_cast<int32_t>(out.size());
    EXPECT_EQ(zyrsEncodeLZ4HCDictLimit_8u(buf, static_cast<int32_t>(idx), &srcLen, out.data(), &dstLen, rec,
                                          level, static_cast<int32_t>(dictLimit)), StatusOk);
    out.resize(static_cast<size_t>(dstLen));
    return out;
}

// Blocks of `step` bytes over one buffer, each with the history the decoder still holds
// (`window` bytes back), from one continued record and from a fresh record per block; and,
// with the buffer coded to 100000 bytes and its last 64 KiB slid to the start, the next block
// of the continued record is that of a fresh one. With the history limit at the block, a
// linked block is the independent block.
TEST(Lz4Linked, ContinuedAndFreshRecordsGiveTheSameBlocks) {
    const struct { DataKind kind; size_t size, step, window; int level; } rows[] = {
        {DataKind::Text, 300000, 65536, 65536, 9},    {DataKind::Text, 200000, 4096, 20000, 3},
        {DataKind::FarRepeat, 300000, 50000, 65536, 1}, {DataKind::FarRepeat, 300000, 70000, 65536, 6},
        {DataKind::Periodic, 15000, 12, 65536, 10},   {DataKind::Runs, 150000, 30000, 1000, 12}};
    for (const auto& row : rows) {
        SCOPED_TRACE(std::string(DataKindName(row.kind)) + " step " + std::to_string(row.step));
        const Bytes buf = MakeData(row.kind, row.size, 3);
        auto slice = [&](size_t from, size_t to) {
            return Bytes(buf.begin() + ptrdiff_t(from), buf.begin() + ptrdiff_t(to));
        };
        Bytes rec = Record();
        for (size_t at = 0; at < buf.size(); at += row.step) {
            const size_t n = std::min(row.step, buf.size() - at), hist = std::min(at, row.window);
            Bytes fresh = Record();
            const Bytes block = HcBlock(buf.data(), at, n, rec.data(), row.level, at - hist);
            ASSERT_EQ(block, HcBlock(buf.data(), at, n, fresh.data(), row.level, at - hist));
            ExpectDecodes({StatusOk, static_cast<int32_t>(n), block}, slice(at - hist, at), slice(at, at + n));
        }
    }
    Bytes buf = MakeData(DataKind::Text, 200000, 5), rec = Record(), fresh = Record();
    for (int level : {2, 5, 10}) {
        Bytes a(static_cast<size_t>(Worst(100000))), r2 = Record();
        int32_t n = 100000, d = static_cast<int32_t>(a.size());
        ASSERT_EQ(zyrsEncodeLZ4HC_8u(buf.data() + 50000, &n, a.data(), &d, rec.data(), level), StatusOk);
        a.resize(static_cast<size_t>(d));
        ASSERT_EQ(a, HcBlock(buf.data(), 50000, 100000, r2.data(), level, 50000)) << level;
    }
    HcBlock(buf.data(), 0, 100000, rec.data(), 9, 0);
    std::memmove(buf.data(), buf.data() + 100000 - 65536, 65536 + 50000);
    const Bytes cont = HcBlock(buf.data(), 65536, 50000, rec.data(), 9, 0);
    ASSERT_EQ(cont, HcBlock(buf.data(), 65536, 50000, fresh.data(), 9, 0));
}

// ---- dictionaries -------------------------------------------------------------------------------

Bytes DictBlock(const uint8_t* src, size_t n, const uint8_t* dict, int32_t dictLen,
                const uint8_t* table0 = nullptr) {
    uint8_t table[16384];
    if (table0 != nullptr) std::memcpy(table, table0, sizeof table);
    EXPECT_EQ(table0 ? StatusOk : zyrsEncodeLZ4LoadDict_8u(dict, dictLen, table), StatusOk);
    Bytes out(static_cast<size_t>(Worst(n)));
    int32_t len = 0;
    const auto srcLen = static_cast<int32_t>(n);
    EXPECT_EQ(zyrsEncodeLZ4Dict_8u(src, srcLen, out.data(), &len, table, dict, dictLen), StatusOk);
    out.resize(static_cast<size_t>(len));
    return out;
}

// Only the dictionary's last 64 KiB count, wherever it lies, and a copied table codes as the
// loaded one; a null and an empty dictionary are none.
TEST(Lz4Dict, PlacementAndTableCopiesDoNotChangeABlock) {
    const Bytes text = MakeData(DataKind::Text, 200000, 9);
    const auto d = static_cast<int32_t>(100 * 1024);
    uint8_t pristine[16384];
    ASSERT_EQ(zyrsEncodeLZ4LoadDict_8u(text.data(), d, pristine), StatusOk);
    const Bytes last64(text.begin() + d - 65536, text.begin() + d);
    for (size_t len : {13, 40, 100, 5000}) {
        SCOPED_TRACE(len);
        Bytes adjacent(text.begin(), text.begin() + d);
        adjacent.insert(adjacent.end(), text.begin() + 150000, text.begin() + 150000 + ptrdiff_t(len));
        const uint8_t* msg = adjacent.data() + d;
        const Bytes block = DictBlock(msg, len, text.data(), d);
        EXPECT_LT(block.size(), len) << "repeated dictionary content compresses";
        EXPECT_EQ(block, DictBlock(msg, len, last64.data(), 65536)) << "only the last 64 KiB count";
        EXPECT_EQ(block, DictBlock(msg, len, text.data(), d, pristine)) << "table copy";
        EXPECT_EQ(block, DictBlock(msg, len, adjacent.data(), d)) << "adjacent dictionary";
    }
    Bytes empty(16384);
    ASSERT_EQ(zyrsEncodeLZ4DictHashTableInit_8u(empty.data()), StatusOk);
    EXPECT_EQ(DictBlock(text.data(), 3000, nullptr, 0, empty.data()),
              DictBlock(text.data(), 3000, text.data() + 5000, 0, empty.data()));
}

// Blocks that liblz4's streaming encoder wrote against history: the second part of the data
// coded against the first in place, and against the first part's last 30000 bytes loaded as
// a dictionary; without that dictionary the references into it are refused.
TEST(Lz4Dict, BlocksFromLiblz4) {
#if defined(ZYRDC_HAVE_LIBLZ4)
    constexpr int kFirst = 40000, kSecond = 50000, kDict = 30000;
    for (DataKind kind : {DataKind::Text, DataKind::Mixed, DataKind::Periodic}) {
        const Bytes data = MakeData(kind, kFirst + kSecond, 5);
        const auto* d = reinterpret_cast<const char*>(data.data());
        auto compress = [&](LZ4_stream_t* stream, const char* from, int n) {
            Bytes block(static_cast<size_t>(LZ4_compressBound(n)));
            block.resize(static_cast<size_t>(LZ4_compress_fast_continue(
                stream, from, reinterpret_cast<char*>(block.data()), n, static_cast<int>(block.size()), 1)));
            return block;
        };
        LZ4_stream_t* stream = LZ4_createStream();
        compress(stream, d, kFirst);
        const Bytes prefixed = compress(stream, d + kFirst, kSecond);
        LZ4_resetStream_fast(stream);
        LZ4_loadDict(stream, d + kFirst - kDict, kDict);
        const Bytes separate = compress(stream, d + kFirst, kSecond);
        LZ4_freeStream(stream);
        const Bytes first(data.begin(), data.begin() + kFirst), second(data.begin() + kFirst, data.end());
        ExpectDecodes({StatusOk, kSecond, prefixed}, first, second);
        ExpectDecodes({StatusOk, kSecond, separate}, Bytes(first.end() - kDict, first.end()), second);
        Bytes out(kDict + kSecond);
        int32_t consumed = static_cast<int32_t>(separate.size()), written = kSecond;
        EXPECT_EQ(zyrsDecodeLZ4Dict_8u(separate.data(), &consumed, out.data(), kDict, &written, nullptr, kDict),
                  StatusError);
    }
#else
    GTEST_SKIP() << "liblz4 is not installed for this build";
#endif
}

}  // namespace
