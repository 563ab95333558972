// fuzz_checksum.cpp - differential harness: the vector and interleaved checksum kernels
// against their scalar twins, and the exported functions over a split of the input against
// one call. The first byte of the input picks the split point and the incoming value.
#include <cstddef>
#include <cstdint>

#include <initializer_list>

#include "checksum/checksum.hpp"
#include "core/bits.hpp"
#include "harness.hpp"
#include "zyrdc.h"

namespace {

void Check(bool ok) {
    if (!ok) __builtin_trap();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace zyrdc::checksum;
    if (size < 1) return 0;
    const uint8_t knob = data[0];
    const uint8_t* p = data + 1;
    const size_t n = size - 1;
    // Incoming Adler halves up to 65535: a caller's own value may be unreduced.
    const uint32_t adler_in = knob & 1 ? 0xFFFFFFFFu - knob : 1u + knob;
    Check(Adler32Sse2(adler_in, p, n) == Adler32Scalar(adler_in, p, n));
    for (CrcKind k : {CrcKind::Crc32, CrcKind::Crc32C, CrcKind::Bzip2}) {
        const uint32_t want = CrcBytewise(k, 0xA5A5A5A5u ^ knob, p, n);
        Check(CrcSliced(k, 0xA5A5A5A5u ^ knob, p, n) == want);
        Check(CrcInterleaved(k, 0xA5A5A5A5u ^ knob, p, n) == want);
    }
    if (n < 2) return 0;
    const size_t cut = 1 + (static_cast<size_t>(knob) * 2654435761u) % (n - 1);
    const auto len = static_cast<int32_t>(n);
    const auto head = static_cast<int32_t>(cut);
    using Fn = ZyrStatus (*)(const uint8_t*, int32_t, uint32_t*);
    for (Fn f : {zyrsAdler32_8u, zyrsCRC32_8u, zyrsCRC32C_8u, zyrsCRC32_BZ2_8u}) {
        uint32_t whole = 1, split = 1;
        Check(f(p, len, &whole) == StatusOk);
        Check(f(p, head, &split) == StatusOk && f(p + cut, len - head, &split) == StatusOk);
        Check(whole == split);
    }
    return 0;
}
