// fuzz_zfp_encode.cpp - the ZFP block encoder against its plain twin, and the round trip.
// The first 8 bytes pick minBits, maxBits, maxPrec, minExp and the buffer's room; the rest
// are the float bits of up to two blocks (any patterns, infinities and NaN included). Both
// encoders must leave the same status, record and bytes, also when the buffer runs out; a
// stream of finite blocks then decodes block for block with exactly the bits each took.
#include <cmath>
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

int64_t Written(const ZfpState& s) { return 8 * (s.pCur - s.pBegin) + s.bitCount; }
int64_t Read(const ZfpState& s) { return 8 * (s.pCur - s.pBegin) - s.bitCount; }

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 8) return 0;
    const auto params = zyrdc::fuzz::ZfpParams::From(data);
    // Mostly room for both blocks; sometimes a buffer that ends inside them.
    const int32_t room = data[6] < 200 ? 2 * 4300 / 8 + 16 : 1 + data[7] * 4;

    float values[128] = {};
    std::memcpy(values, data + 8, size - 8 < sizeof values ? size - 8 : sizeof values);
    const int blocks = size - 8 > 256 ? 2 : 1;
    bool finite = true;
    for (int i = 0; i < 64 * blocks; ++i) finite = finite && std::isfinite(values[i]);

    std::vector<uint8_t> outA(static_cast<size_t>(room)), outB(outA);
    // One record layout serves both directions, and the two Inits lay it out alike.
    ZfpState a, b;
    params.Start(outA.data(), room, a);
    params.Start(outB.data(), room, b);
    int64_t bits[2] = {};
    ZyrStatus status = StatusOk;
    for (int k = 0; k < blocks && status == StatusOk; ++k) {
        const int64_t before = Written(a);
        status = zyrsEncodeZfp444_32f(values + 64 * k, 16, 64, &a);
        Check(zyrdc::zfp::EncodeBlockScalar(b, values + 64 * k, 16, 64) == status);
        Check(status == StatusOk || status == StatusStreamExhausted);
        bits[k] = Written(a) - before;
    }
    Check(a.pCur - a.pBegin == b.pCur - b.pBegin && a.bitCount == b.bitCount && a.bitBuffer == b.bitBuffer);
    Check(outA == outB);
    if (status != StatusOk || zyrsEncodeZfpFlush_32f(&a) != StatusOk || !finite) return 0;

    ZfpState d, e;
    params.Start(outA.data(), static_cast<int32_t>(a.pCur - a.pBegin), d);
    e = d;
    float backD[64], backE[64];
    for (int k = 0; k < blocks; ++k) {
        const int64_t before = Read(d);
        Check(zyrsDecodeZfp444_32f(&d, backD, 16, 64) == StatusOk);
        Check(zyrdc::zfp::DecodeBlockScalar(e, backE, 16, 64) == StatusOk);
        Check(Read(d) - before == bits[k] && Read(e) == Read(d));
        Check(std::memcmp(backD, backE, sizeof backD) == 0);
    }
    return 0;
}
