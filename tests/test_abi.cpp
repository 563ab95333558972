// i686 calling convention: every entry point must work when its caller keeps only 4-byte
// stack alignment (code from other compilers or languages), because SSE2 spills to aligned
// stack slots fault otherwise. The calls below are made with the stack pointer 4 bytes off
// a 16-byte boundary, against the library as it is shipped.
#include <gtest/gtest.h>

#include <vector>

#include "support.hpp"
#include "zyrdc.h"

namespace {

#if defined(__i386__)
using Fn3 = ZyrStatus (*)(const uint8_t*, int32_t, uint32_t*);

// Calls fn(args[0], args[1], args[2]) with esp = 4 (mod 16) at the call instruction.
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
