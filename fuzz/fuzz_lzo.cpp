// fuzz_lzo.cpp - the checked LZO1X decoder on untrusted input: plain streams, and the same
// bytes behind a container header built to pass the container test. The destination ends
// exactly at the end of its allocation, so any write past it faults under ASan. The result
// is compared with the bytewise twin. The first input byte picks the mode and the capacity.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <vector>

#include "core/bits.hpp"
#include "harness.hpp"
#include "lzo/lzo.hpp"
#include "zyrdc.h"

namespace {

void Check(bool ok) {
    if (!ok) __builtin_trap();
}

// "U", n, n ^ 0x55, T, the sizes of segments 0 .. n-2 (equal shares of the payload), the
// payload, with segment 0 closed by an end marker so that the test passes.
std::vector<uint8_t> AsContainer(const uint8_t* p, size_t n, uint32_t segments, uint32_t total) {
    std::vector<uint8_t> c(3 + 4 * size_t{segments}, 0);
    c[0] = 0x55;
    c[1] = static_cast<uint8_t>(segments);
    c[2] = static_cast<uint8_t>(segments ^ 0x55);
    zyrdc::store_u32le(c.data() + 3, total);
    const size_t share = n / segments < 3 ? 3 : n / segments;
    for (uint32_t i = 0; i + 1 < segments; ++i) {
        zyrdc::store_u32le(c.data() + 7 + 4 * size_t{i}, static_cast<uint32_t>(share));
    }
    c.insert(c.end(), p, p + n);
    c.resize(c.size() + 3 * segments + share + 8);  // every share, and an end marker clear of the size field
    if (segments == 1) {
        zyrdc::store_u32le(c.data() + 7, static_cast<uint32_t>(c.size() - 7));
    }
    const size_t size0 = zyrdc::load_u32le(c.data() + 7);
    std::memcpy(c.data() + 4 * size_t{segments} + size0, zyrdc::lzo::kEndMarker, 3);
    return c;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 2) return 0;
    const uint8_t knob = data[0];
    const uint8_t* p = data + 2;
    const size_t n = size - 2;
    // Capacities up to 64 KiB, sometimes too small for the stream.
    const uint32_t capacity = (uint32_t{data[1]} << 8 | knob) & 0xFFFF;
    std::vector<uint8_t> src(p, p + n);
    if (knob & 1) {
        src = AsContainer(p, n, 1 + (knob >> 1) % 32, capacity);
        Check(zyrdc::lzo::IsContainer(src.data(), src.size()));
    }
    // A container is decoded into the T bytes its header names, whatever the capacity: the
    // caller provides them. Give exactly that many (within reason).
    uint32_t cap = capacity;
    if (zyrdc::lzo::IsContainer(src.data(), src.size())) {
        cap = zyrdc::load_u32le(src.data() + 3);
        if (cap > (1u << 20)) return 0;
    }
    // new[] of exactly cap bytes, even 0, so that any write past them is caught.
    const std::unique_ptr<uint8_t[]> dst(new uint8_t[cap]), twin(new uint8_t[cap]);
    uint32_t len = cap;
    const uint8_t* in = src.empty() ? data : src.data();  // an empty source is still a pointer
    const ZyrStatus s = zyrsDecodeLZOSafe_8u(in, static_cast<uint32_t>(src.size()), dst.get(), &len);
    Check(s == StatusOk || s == StatusCorruptStream);
    Check(s != StatusOk || len <= cap);
    if ((knob & 1) == 0 && n > 3 && std::memcmp(p, zyrdc::lzo::kEndMarker, 3) != 0 &&
        !zyrdc::lzo::IsContainer(p, n)) {
        // A plain stream: the wide copies write what the bytewise twin writes.
        size_t got = 0;
        const ZyrStatus t = zyrdc::lzo::DecodePlainChecked<zyrdc::lzo::Copies::Bytewise>(p, n, twin.get(), cap, &got);
        Check(t == s);
        Check(s != StatusOk || (got == len && std::memcmp(dst.get(), twin.get(), len) == 0));
    }
    return 0;
}
