// fuzz_lzo_roundtrip.cpp - the LZO1X encoder's three methods on arbitrary data: both of our
// decoders and liblzo2's checked decoder (where this build has it; a container segment by
// segment) give the input back, and nothing is written past the bound. The first byte picks
// the method (low two bits), the record's size hint (bits 2..5: tables of 10 to 14 bits, or
// the input's own size) and whether the input is stretched (bit 6: repeated, each copy
// shifted by one, to 64 bytes times the second byte, or with bit 7 as well 1 KiB times it,
// so that containers have many segments and matches reach far).
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "core/bits.hpp"
#include "harness.hpp"
#include "lzo/encode.hpp"
#include "lzo/lzo.hpp"
#include "zyrdc.h"

#if defined(ZYRDC_HAVE_LZO2)
#include <lzo/lzo1x.h>
#endif

namespace {

void CheckLiblzo(const uint8_t* stream, size_t len, const uint8_t* want, size_t n) {
#if defined(ZYRDC_HAVE_LZO2)
    const std::vector<uint8_t> exact(stream, stream + len);
    std::vector<uint8_t> out(n + 1);
    lzo_uint got = out.size();
    FuzzCheck(lzo1x_decompress_safe(exact.data(), exact.size(), out.data(), &got, nullptr) == LZO_E_OK);
    FuzzCheck(got == n && std::equal(want, want + n, out.begin()));
#else
    (void)stream, (void)len, (void)want, (void)n;
#endif
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 2) return 0;
    const uint8_t knob = data[0];
    const int32_t method = (knob & 3) % 3;
    std::vector<uint8_t> src(data + 2, data + size);
    if ((knob & 0x40) != 0 && !src.empty()) {
        const size_t target = size_t{data[1]} * ((knob & 0x80) != 0 ? 1024 : 64);
        for (uint8_t shift = 1; src.size() < target; ++shift) {
            const size_t piece = std::min(size - 2, target - src.size());
            for (size_t i = 0; i < piece; ++i) src.push_back(static_cast<uint8_t>(data[2 + i] + shift));
        }
    }
    const auto n = static_cast<uint32_t>(src.size());
    const uint32_t hints[] = {n, 1, 4096, 8192, 16384, 65536, 0x7FFFFFFF};
    const uint32_t hint = std::max<uint32_t>(1, hints[((knob >> 2) & 15) % 7]);

    uint32_t stateSize = 0;
    FuzzCheck(zyrsEncodeLZOGetSize(method, hint, &stateSize) == StatusOk);
    std::vector<uint32_t> record(stateSize / 4);
    auto* state = reinterpret_cast<uint8_t*>(record.data());
    FuzzCheck(zyrsEncodeLZOInit_8u(method, hint, state) == StatusOk);
    const auto bound = static_cast<uint32_t>(zyrdc::lzo::EncodeBound(method, n));
    std::vector<uint8_t> coded(bound);  // exactly the bound: ASan sees any store past it
    uint32_t len = bound;
    const uint8_t* in = src.empty() ? data : src.data();  // an empty source still has an address
    FuzzCheck(zyrsEncodeLZO_8u(in, n, coded.data(), &len, state) == StatusOk);
    FuzzCheck(len <= bound);
    coded.resize(len);
    FuzzCheck(zyrdc::lzo::IsContainer(coded.data(), len) == (method == LzoMethodSegmented));

    for (auto decode : {zyrsDecodeLZOSafe_8u, zyrsDecodeLZO_8u}) {
        std::vector<uint8_t> out(std::max<uint32_t>(n, 1));
        uint32_t got = n;
        FuzzCheck(decode(coded.data(), len, out.data(), &got) == StatusOk);
        FuzzCheck(got == n && std::equal(src.begin(), src.end(), out.begin()));
    }
    if (method != LzoMethodSegmented) {
        FuzzCheck(coded[0] != zyrdc::lzo::kContainerTag);
        CheckLiblzo(coded.data(), len, src.data(), n);
        return 0;
    }
    const uint32_t segments = coded[1];
    const size_t share = n / segments;
    size_t at = zyrdc::lzo::kContainerFixedBytes + 4 * size_t{segments};
    for (uint32_t i = 0; i < segments; ++i) {
        const bool last = i + 1 == segments;
        const size_t segLen = last ? len - at : zyrdc::load_u32le(coded.data() + 7 + 4 * i);
        FuzzCheck(at + segLen <= len);
        CheckLiblzo(coded.data() + at, segLen, src.data() + i * share, last ? n - i * share : share);
        at += segLen;
    }
    return 0;
}
