// fuzz_lz4_roundtrip.cpp - the three LZ4 encoders on arbitrary data: our decoder and liblz4
// (where this build has it) give the input back, and the bounded encoder's block is exactly
// the prefix it reports. The first byte picks the acceleration and the bounded capacity;
// sources and blocks end where their allocations end. liblz4 checks only complete blocks:
// a bounded block that had to leave input out ends with as many literals as fitted, and
// liblz4 holds blocks to the format's end conditions (the last match starting at least 12
// bytes, and the final literals at least 5 bytes, before the end).
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "harness.hpp"
#include "lz4/lz4.hpp"
#include "zyrdc.h"

#if defined(ZYRDC_HAVE_LIBLZ4)
#include <lz4.h>
#endif

namespace {

void Check(bool ok) {
    if (!ok) __builtin_trap();
}

void CheckDecodes(const std::vector<uint8_t>& written, int32_t len, const uint8_t* want, int32_t n,
                  bool complete = true) {
    const std::vector<uint8_t> block(written.begin(), written.begin() + len);  // exact size
    std::vector<uint8_t> out(static_cast<size_t>(std::max(n, 1)));
    int32_t got = static_cast<int32_t>(out.size());
    // An empty prefix is the lone token, which decodes as a one-byte source.
    Check(zyrsDecodeLZ4_8u(block.data(), len, out.data(), &got) == (n == 0 ? StatusSrcExhausted : StatusOk));
    Check(got == n && std::equal(want, want + n, out.begin()));
#if defined(ZYRDC_HAVE_LIBLZ4)
    if (!complete) return;
    std::fill(out.begin(), out.end(), 0);
    Check(LZ4_decompress_safe(reinterpret_cast<const char*>(block.data()), reinterpret_cast<char*>(out.data()),
                              len, n) == n);
    Check(std::equal(want, want + n, out.begin()));
#endif
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 2) return 0;
    const uint8_t knob = data[0];
    const uint8_t* src = data + 1;
    const auto n = static_cast<int32_t>(size - 1);
    const auto worst = static_cast<int32_t>(zyrdc::lz4::WorstCaseBlockSize(n));
    std::vector<uint8_t> table(zyrdc::lz4::kHashTableBytes);

    std::vector<uint8_t> greedy(static_cast<size_t>(worst));
    int32_t len = 0;
    Check(zyrsEncodeLZ4_8u(src, n, greedy.data(), &len, table.data()) == StatusOk);
    CheckDecodes(greedy, len, src, n);

    std::vector<uint8_t> fast(static_cast<size_t>(worst));
    int32_t fastLen = 0;
    Check(zyrsEncodeLZ4Fast_8u(src, n, fast.data(), &fastLen, table.data(), 2 + knob % 24) == StatusOk);
    CheckDecodes(fast, fastLen, src, n);

    // Capacities from 1 to the incompressible size; with all of it, the greedy block.
    const int32_t capacity = knob == 255 ? worst : 1 + static_cast<int32_t>(int64_t{knob} * worst / 255);
    std::vector<uint8_t> bounded(static_cast<size_t>(capacity));
    int32_t consumed = n, boundedLen = capacity;
    const ZyrStatus s = zyrsEncodeLZ4Safe_8u(src, &consumed, bounded.data(), &boundedLen, table.data());
    Check(s == (consumed < n ? StatusDstFull : StatusOk) && boundedLen <= capacity && consumed >= 0);
    CheckDecodes(bounded, boundedLen, src, consumed, consumed == n);
    if (capacity == worst) {
        Check(boundedLen == len && std::equal(greedy.begin(), greedy.begin() + len, bounded.begin()));
    }
    return 0;
}
