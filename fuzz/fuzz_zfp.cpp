// fuzz_zfp.cpp - the ZFP block decoder over arbitrary streams, under parameters an encoder
// could have used, read through strided layouts with gaps. The first 8 bytes pick minBits,
// maxBits, maxPrec, minExp and the layout; the rest is the stream, read in place so that any
// read past its end is caught. Checked for every block: the status is success or an exhausted
// stream, and exhaustion only with the stream used up; nothing but the block's 64 floats is
// written; and the plain twin decoder ends in the same record, status and values.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

#include "harness.hpp"
#include "zfp/zfp.hpp"
#include "zfp_fuzz.hpp"
#include "zyrdc.h"

namespace {

using zyrdc::fuzz::Check;

// Row and plane steps in floats, with room for gaps and for steps that run backwards.
struct Layout {
    int32_t row, plane;
};
constexpr Layout kLayouts[] = {{4, 16}, {6, 30}, {-4, -16}, {5, -23}, {-7, 40}, {4, 17}, {16, 4}, {9, -50}};

constexpr int kMaxBlocks = 48;

bool SameRecord(const ZfpState& a, const ZfpState& b) {
    return a.pCur == b.pCur && a.bitCount == b.bitCount && a.bitBuffer == b.bitBuffer;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 8) return 0;
    const auto params = zyrdc::fuzz::ZfpParams::From(data);
    const Layout layout = kLayouts[data[6] % 8];
    const uint8_t* stream = data + 8;
    const auto streamLen = static_cast<int32_t>(size - 8);
    if (streamLen < 1) return 0;

    // A destination just large enough for the block, and the offsets of its 64 floats.
    int32_t lo = 0, hi = 0;
    size_t target[64];
    for (int i = 0; i < 64; ++i) {
        const int32_t at = i % 4 + (i / 4 % 4) * layout.row + (i / 16) * layout.plane;
        lo = at < lo ? at : lo;
        hi = at > hi ? at : hi;
    }
    for (int i = 0; i < 64; ++i) {
        target[i] = static_cast<size_t>(i % 4 + (i / 4 % 4) * layout.row + (i / 16) * layout.plane - lo);
    }
    const size_t extent = static_cast<size_t>(hi - lo + 1);
    std::vector<float> fast(extent), twin(extent);
    std::vector<bool> isTarget(extent);
    for (size_t t : target) isTarget[t] = true;

    ZfpState a, b;
    params.Start(stream, streamLen, a);
    b = a;
    const int32_t row = 4 * layout.row, plane = 4 * layout.plane;
    for (int block = 0; block < kMaxBlocks; ++block) {
        std::memset(fast.data(), 0x7E, extent * sizeof(float));
        std::memset(twin.data(), 0x7E, extent * sizeof(float));
        const ZyrStatus ra = zyrsDecodeZfp444_32f(&a, fast.data() - lo, row, plane);
        const ZyrStatus rb = zyrdc::zfp::DecodeBlockScalar(b, twin.data() - lo, row, plane);
        Check(ra == StatusOk || ra == StatusStreamExhausted);
        Check(ra == rb && SameRecord(a, b));
        if (ra == StatusStreamExhausted) {
            // Only a stream with no byte and no bit left runs out.
            Check(a.pCur == a.pEnd && a.bitCount == 0);
            break;
        }
        uint32_t word;
        for (size_t i = 0; i < extent; ++i) {
            std::memcpy(&word, &fast[i], 4);
            if (!isTarget[i]) Check(word == 0x7E7E7E7Eu);
        }
        Check(std::memcmp(fast.data(), twin.data(), extent * sizeof(float)) == 0);
    }
    return 0;
}
