// zfp_fuzz.hpp - what the two ZFP harnesses share: the check that stops the run, and the
// block coder's parameters drawn from the input's first bytes.
#pragma once

#include <cstddef>
#include <cstdint>

#include "zyrdc.h"

namespace zyrdc::fuzz {

inline void Check(bool ok) {
    if (!ok) __builtin_trap();
}

// Ranges an encoder of float blocks may be set to: sizes up to the largest block and a little
// past it, every precision, minExp from above any block's exponent down to where it stops
// mattering, sometimes the default. Taken from data[0..5], which the caller guarantees.
struct ZfpParams {
    int32_t minBits, maxBits, maxPrec, minExp;

    static ZfpParams From(const uint8_t* data) {
        const auto u16 = [data](size_t i) { return static_cast<int32_t>(data[i] | data[i + 1] << 8); };
        return {u16(0) % 4300, u16(2) % 4300, data[4] % 70,
                data[5] & 0x80 ? -10740 : (data[5] & 0x7F) * 3 - 200};
    }
    // Init over buf[0..len) and these parameters.
    void Start(const uint8_t* buf, int32_t len, ZfpState& s) const {
        Check(zyrsDecodeZfpInit_32f(buf, len, &s) == StatusOk);
        Check(zyrsDecodeZfpSet_32f(minBits, maxBits, maxPrec, minExp, &s) == StatusOk);
    }
};

}  // namespace zyrdc::fuzz
