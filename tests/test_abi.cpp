// Entry points as callers meet them: every refusal in the documented check order, one row per
// export and refusal, leaving every output as it was; and on i686, every entry point works
// when its caller keeps only 4-byte stack alignment.
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "core/copy.hpp"
#include "support.hpp"
#include "zyrdc.h"

namespace {

constexpr uint32_t kKeep = 0x12345678u;  // "the value is left as it was"

// Sound arguments of every call below in one record; a row spoils some of them so that one
// check decides, and the record as a whole is compared after an error.
struct Args {
    uint8_t in[1024];  // source bytes, all 'a'
    const uint8_t* src = in;
    const uint8_t* noSrc = nullptr;
    uint8_t* dst = out;
    uint8_t* noDst = nullptr;
    int32_t srcLen = 1000, srcIdx = 0, dstLen = 1000, zero = 0, size = kKeep;
    uint32_t value = kKeep, usize = kKeep, bits = 0, idx = 0;
    uint16_t code = 0;
    int32_t head[4096], prev[4096];
    HuffCodeEntry litFreq[286] = {}, distFreq[30] = {};
    uint8_t out[4096], state[264] = {};
    uint16_t words[2048] = {};
    const uint16_t* cwords = words;
    InflateHuffTable table;
    Args() {
        std::memset(in, 'a', sizeof in);
        std::memset(out, 0xEE, sizeof out);
        std::fill(std::begin(head), std::end(head), -32768);
        std::fill(std::begin(prev), std::end(prev), -32768);
        std::memset(&table, 0xDD, sizeof table);
    }
};

// The matcher arguments that rows spoil. level >= 0 calls zyrsDeflateLZ77_8u at that level.
constexpr int kFast = -1, kSlow = -2;
struct Lz {
    int level = kFast;
    bool nullPpSrc = false, nullSrc = false, nullWindow = false;
    uint32_t winSize = 4096, hashSize = 4096;
    LZ77Params params{4, 8, 8, 8};
};
ZyrStatus Lz77(Args& a, Lz z) {
    const uint8_t** pp = z.nullPpSrc ? nullptr : z.nullSrc ? &a.noSrc : &a.src;
    const uint8_t* win = z.nullWindow ? nullptr : a.in;
    if (z.level >= 0) {
        return zyrsDeflateLZ77_8u(pp, &a.srcLen, &a.srcIdx, win, z.winSize, a.head, a.prev, z.hashSize,
                                  a.litFreq, a.distFreq, a.out, a.words, &a.dstLen,
                                  static_cast<uint32_t>(z.level), 2);
    }
    return (z.level == kFast ? zyrsDeflateLZ77Fast_8u : zyrsDeflateLZ77Slow_8u)(
        pp, &a.srcLen, &a.srcIdx, win, z.winSize, a.head, a.prev, z.hashSize, a.litFreq, a.distFreq, a.out,
        a.words, &a.dstLen, &z.params, 2);
}

// A row names its call by the call's own text.
struct Row {
    ZyrStatus want;
    const char* what;
    ZyrStatus (*call)(Args&);
    bool (*after)(const Args&) = nullptr;  // what a call that succeeds must leave
};
#define CALL(...) #__VA_ARGS__, []([[maybe_unused]] Args& a) -> ZyrStatus { return __VA_ARGS__; }
#define AFTER(...) [](const Args& a) { return __VA_ARGS__; }
constexpr ZyrStatus kOk = StatusOk, kNull = StatusNullPointer, kSize = StatusBadSize,
                    kArg = StatusBadArgument;

const Row kRows[] = {
    // The checked routines the families share: null before length.
    {kNull, CALL(zyrdc::CopyBytes_8u(nullptr, a.out, 0))}, {kNull, CALL(zyrdc::CopyBytes_8u(a.in, nullptr, 4))},
    {kSize, CALL(zyrdc::CopyBytes_8u(a.in, a.out, 0))}, {kSize, CALL(zyrdc::CopyBytes_8u(a.in, a.out, -1))},
    {kOk, CALL(zyrdc::CopyBytes_8u(a.in, a.out, 4)), AFTER(a.out[3] == 'a' && a.out[4] == 0xEE)},
    {kNull, CALL(zyrdc::ZeroFill_32u(nullptr, 0))}, {kSize, CALL(zyrdc::ZeroFill_32u(&a.value, 0))},
    {kNull, CALL(zyrdc::ZeroFill_16u(nullptr, -5))}, {kSize, CALL(zyrdc::ZeroFill_16u(a.words, 0))},
    // Checksums. A null Adler-32 source starts a checksum whatever the length, and an empty
    // Adler-32 call still reduces both halves; CRC-32C refuses only a length of 0.
    {kNull, CALL(zyrsAdler32_8u(nullptr, 0, nullptr))},
    {kOk, CALL(zyrsAdler32_8u(nullptr, 5, &a.value)), AFTER(a.value == 1)},
    {kOk, CALL(zyrsAdler32_8u(nullptr, -3, &a.value)), AFTER(a.value == 1)},
    {kOk, CALL(a.value = ~0u, zyrsAdler32_8u(a.in, 0, &a.value)), AFTER(a.value == 0x000E000Eu)},
    {kOk, CALL(a.value = ~0u, zyrsAdler32_8u(a.in, -1, &a.value)), AFTER(a.value == 0x000E000Eu)},
    {kNull, CALL(zyrsCRC32_8u(nullptr, 0, &a.value))}, {kNull, CALL(zyrsCRC32_8u(a.in, 9, nullptr))},
    {kSize, CALL(zyrsCRC32_8u(a.in, 0, &a.value))}, {kSize, CALL(zyrsCRC32_8u(a.in, -1, &a.value))},
    {kNull, CALL(zyrsCRC32C_8u(nullptr, 0, &a.value))}, {kNull, CALL(zyrsCRC32C_8u(a.in, 9, nullptr))},
    {kSize, CALL(zyrsCRC32C_8u(a.in, 0, &a.value))},
    {kNull, CALL(zyrsCRC32_BZ2_8u(nullptr, 0, &a.value))}, {kNull, CALL(zyrsCRC32_BZ2_8u(a.in, 9, nullptr))},
    {kSize, CALL(zyrsCRC32_BZ2_8u(a.in, 0, &a.value))}, {kSize, CALL(zyrsCRC32_BZ2_8u(a.in, -1, &a.value))},
    // Deflate: the matcher level first (before a null ppSrc), then pointers (a null *ppSrc before
    // a bad window size), sizes (before a bad parameter record) and the record; a single-probe
    // record (maxChain 0) ignores its other fields. The dictionary's hashSize is signed.
    {kSize, CALL(Lz77(a, {.level = 30, .nullPpSrc = true}))},
    {kNull, CALL(Lz77(a, {.level = 1, .nullPpSrc = true}))},
    {kNull, CALL(Lz77(a, {.nullWindow = true}))},
    {kNull, CALL(Lz77(a, {.level = kSlow, .nullSrc = true, .winSize = 1}))},
    {kSize, CALL(Lz77(a, {.winSize = 255}))}, {kSize, CALL(Lz77(a, {.level = 6, .winSize = 32769}))},
    {kSize, CALL(Lz77(a, {.hashSize = 65537}))},
    {kSize, CALL(Lz77(a, {.level = kSlow, .hashSize = 255, .params = {0, 8, 8, 8}}))},
    {kArg, CALL(Lz77(a, {.params = {-1, 8, 8, 8}}))}, {kArg, CALL(Lz77(a, {.params = {4, 8, 3, 8}}))},
    {kArg, CALL(Lz77(a, {.params = {4, 8, 8, 3}}))}, {kOk, CALL(Lz77(a, {.params = {0, 0, 0, 0}}))},
    {kArg, CALL(Lz77(a, {.level = kSlow, .params = {0, 8, 8, 8}}))},
    {kArg, CALL(Lz77(a, {.level = kSlow, .params = {4, 3, 8, 8}}))},
    {kArg, CALL(Lz77(a, {.level = kSlow, .params = {4, 8, 8, 3}}))},
    {kNull, CALL(zyrsDeflateUpdateHash_8u(nullptr, 0, 9, a.head, 256, a.prev, 256, 1))},
    {kNull, CALL(zyrsDeflateUpdateHash_8u(a.in, 0, 1, a.head, 256, nullptr, 1, 1))},
    {kSize, CALL(zyrsDeflateUpdateHash_8u(a.in, 0, 1, a.head, 256, a.prev, 32769, 1))},
    {kSize, CALL(zyrsDeflateUpdateHash_8u(a.in, 0, 1, a.head, 255, a.prev, 256, 1))},
    {kNull, CALL(zyrsDeflateDictionarySet_8u(a.in, 1, a.head, 256, a.prev, nullptr, 256, 0))},
    {kSize, CALL(zyrsDeflateDictionarySet_8u(a.in, 1, a.head, -1, a.prev, a.out, 256, 0))},
    {kSize, CALL(zyrsDeflateDictionarySet_8u(a.in, 1, a.head, 65537, a.prev, a.out, 256, 0))},
    {kSize, CALL(zyrsDeflateDictionarySet_8u(a.in, 1, a.head, 256, a.prev, a.out, 255, 0))},
    {kNull, CALL(zyrsDeflateHuff_8u(nullptr, a.words, 1, &a.code, &a.bits, a.litFreq, a.distFreq, a.out,
                                    &a.idx))},
    {kNull, CALL(zyrsDeflateHuff_8u(a.in, a.words, 1, &a.code, &a.bits, a.litFreq, nullptr, a.out, &a.idx))},
    {kNull, CALL(zyrsDeflateHuff_8u(a.in, a.words, 1, &a.code, &a.bits, a.litFreq, a.distFreq, a.out,
                                    nullptr))},
    {kNull, CALL(zyrsInflateBuildHuffTable(nullptr, 289, 0, &a.table))},
    {kNull, CALL(zyrsInflateBuildHuffTable(a.words, 289, 31, nullptr))},
    {kSize, CALL(zyrsInflateBuildHuffTable(a.words, 289, 0, &a.table))},
    {kSize, CALL(zyrsInflateBuildHuffTable(a.words, 288, 31, &a.table))},
    // bzip2 stages, where the checks depart from null-then-size or could run out of order: a
    // null *ppSrc before a bad size, the destination size second, no size check in the decoder
    // flush, an unknown strategy passed over, the index checked against n only. A dictionary
    // size that does not match the in-use table leaves the data alone.
    {kNull, CALL(zyrsRLEGetSize_BZ2_8u(nullptr))},
    {kOk, CALL(zyrsRLEGetSize_BZ2_8u(&a.size)), AFTER(a.size == 264)},
    {kNull, CALL(zyrsEncodeRLE_BZ2_8u(&a.noSrc, &a.zero, a.out, &a.dstLen, a.state))},
    {kSize, CALL(zyrsEncodeRLE_BZ2_8u(&a.src, &a.srcLen, a.out, &a.zero, a.state))},
    {kNull, CALL(zyrsDecodeRLEState_BZ2_8u(&a.src, &a.srcLen, &a.noDst, &a.dstLen, a.state))},
    {kOk, CALL(zyrsDecodeRLEStateFlush_BZ2_8u(a.state, &a.dst, &a.zero))},
    {kNull, CALL(zyrsDecodeRLEStateFlush_BZ2_8u(a.state, &a.noDst, &a.dstLen))},
    {kNull, CALL(zyrsReduceDictionary_8u_I(a.state, a.out, 8, nullptr))},
    {kSize, CALL(zyrsExpandDictionary_8u_I(a.state, a.out, 8, 0))},
    {StatusError, CALL(zyrsExpandDictionary_8u_I(a.state, a.out, 8, 1))},
    {kSize, CALL(zyrsBWTFwdGetBufSize_SelectSort_8u(0, &a.usize, 9))},
    {kOk, CALL(zyrsBWTFwdGetBufSize_SelectSort_8u(10, &a.usize, 4)), AFTER(a.usize == kKeep)},
    {kNull, CALL(zyrsBWTFwd_8u(a.in, a.out, 0, &a.srcIdx, nullptr))},
    {kSize, CALL(zyrsBWTFwd_SelectSort_8u(a.in, a.out, 0, &a.srcIdx, a.out, 0))},
    {kNull, CALL(zyrsBWTFwd_SelectSort_8u(a.in, a.out, 9, nullptr, a.out, 0))},
    {kNull, CALL(zyrsBWTInv_8u(nullptr, a.out, 0, 0, a.out))},
    {kSize, CALL(zyrsBWTInv_8u(a.in, a.out, 16, 16, a.out))},
    {kSize, CALL(zyrsBWTInv_8u(a.in, a.out, 0, -1, a.out))},
    {kNull, CALL(zyrsMTFGetSize_8u(nullptr))}, {kOk, CALL(zyrsMTFGetSize_8u(&a.size)), AFTER(a.size == 256)},
    {kSize, CALL(zyrsMTFFwd_8u(a.in, a.out, 0, a.state))},
    {kNull, CALL(zyrsEncodeZ1Z2_BZ2_8u16u(&a.src, &a.zero, a.words, &a.dstLen, nullptr))},
    {kSize, CALL(zyrsDecodeZ1Z2_BZ2_16u8u(&a.cwords, &a.srcLen, a.out, &a.zero))},
};
#undef CALL
#undef AFTER

TEST(EntryPoints, RefusalsInOrderLeaveEveryOutput) {
    for (const Row& r : kRows) {
        auto args = std::make_unique<Args>(), before = std::make_unique<Args>();
        std::memcpy(before.get(), args.get(), sizeof(Args));
        EXPECT_EQ(r.call(*args), r.want) << r.what;
        if (r.want < 0) {
            EXPECT_EQ(std::memcmp(before.get(), args.get(), sizeof(Args)), 0) << r.what;
        }
        if (r.after != nullptr) {
            EXPECT_TRUE(r.after(*args)) << r.what;
        }
    }
}

#if defined(__i386__)
using Fn3 = ZyrStatus (*)(const uint8_t*, int32_t, uint32_t*);

// Calls fn(args[0], args[1], args[2]) with esp = 4 (mod 16) at the call instruction: SSE2
// spills to aligned stack slots fault unless the entry point realigns the stack.
ZyrStatus CallMisaligned(Fn3 fn, const uint32_t* args) {
    ZyrStatus result;
    asm volatile(
        "mov %%esp, %%esi\n\t"
        "and $-16, %%esp\n\t"
        "pushl 8(%[args])\n\t"
        "pushl 4(%[args])\n\t"
        "pushl 0(%[args])\n\t"
        "call *%[fn]\n\t"
        "mov %%esi, %%esp\n\t"
        : "=a"(result)
        : [fn] "r"(fn), [args] "r"(args)
        : "ecx", "edx", "esi", "memory", "cc");
    return result;
}

TEST(Abi, EntryPointsRealignAMisalignedStack) {
    const auto data = zyrdc::test::RandomBytes(100000, 3);
    for (Fn3 fn : {zyrsAdler32_8u, zyrsCRC32_8u, zyrsCRC32C_8u, zyrsCRC32_BZ2_8u}) {
        uint32_t aligned = 1, misaligned = 1;
        ASSERT_EQ(fn(data.data() + 1, 99999, &aligned), StatusOk);
        const uint32_t args[3] = {static_cast<uint32_t>(reinterpret_cast<uintptr_t>(data.data() + 1)),
                                  99999u,
                                  static_cast<uint32_t>(reinterpret_cast<uintptr_t>(&misaligned))};
        ASSERT_EQ(CallMisaligned(fn, args), StatusOk);
        EXPECT_EQ(misaligned, aligned);
    }
}
#else
TEST(Abi, EntryPointsRealignAMisalignedStack) { GTEST_SKIP() << "an i686 concern only"; }
#endif

}  // namespace
