// state.cpp - the ZFP stream record: layout, defaults, parameters, sizes and the flush that
// ends a stream.
#include <bit>
#include <cstddef>
#include <cstdint>

#include "core/bits.hpp"
#include "zfp/bitstream.hpp"
#include "zfp/zfp.hpp"

namespace zyrdc::zfp {

// The record is part of the interface: 560 bytes with 4-byte pointers, and the same fields
// with 8-byte pointers in the x86-64 build, whose size queries report 576.
static_assert(offsetof(ZfpState, minBits) == 4 && offsetof(ZfpState, minExp) == 16 &&
              offsetof(ZfpState, bitCount) == 20 && offsetof(ZfpState, bitBuffer) == 24 &&
              offsetof(ZfpState, pCur) == 32);
static_assert(offsetof(ZfpState, pBegin) == 32 + sizeof(void*) &&
              offsetof(ZfpState, pSafeEnd) == 32 + 3 * sizeof(void*) &&
              offsetof(ZfpState, block) == 32 + 4 * sizeof(void*) &&
              offsetof(ZfpState, coefficients) == offsetof(ZfpState, block) + 256);
#if defined(__i386__)
static_assert(sizeof(ZfpState) == 560);
#else
static_assert(sizeof(ZfpState) == 576);
#endif

namespace {

// Pointer plus or minus a byte count in address arithmetic: the safe end may lie before the
// buffer (a buffer shorter than one block), which pointer arithmetic may not express.
uint8_t* Offset(uint8_t* p, intptr_t bytes) {
    return reinterpret_cast<uint8_t*>(reinterpret_cast<uintptr_t>(p) + static_cast<uintptr_t>(bytes));
}

}  // namespace

uint8_t* SafeEnd(uint8_t* end, int32_t maxBits) {
    // ((maxBits + 7) >> 3) + 7, rounded down to whole words, in the record's 32-bit
    // arithmetic: a maxBits near the top of the range wraps rather than saturates.
    const int32_t bytes = static_cast<int32_t>(static_cast<uint32_t>(maxBits) + 7u) >> 3;
    const int32_t words = static_cast<int32_t>((static_cast<uint32_t>(bytes) + 7u) & ~7u);
    return Offset(end, -static_cast<intptr_t>(words));
}

void InitState(ZfpState& state, uint8_t* buf, uint32_t length) {
    state.magic = kMagic;
    state.minBits = kDefaultMinBits;
    state.maxBits = kDefaultMaxBits;
    state.maxPrec = kDefaultMaxPrec;
    state.minExp = kDefaultMinExp;
    state.bitCount = 0;
    state.bitBuffer = 0;
    state.pCur = buf;
    state.pBegin = buf;
    state.pEnd = Offset(buf, static_cast<intptr_t>(static_cast<uintptr_t>(length)));
    state.pSafeEnd = SafeEnd(state.pEnd, kDefaultMaxBits);
}

void SetParams(ZfpState& state, int32_t minBits, int32_t maxBits, int32_t maxPrec, int32_t minExp) {
    state.minBits = minBits;
    state.maxBits = maxBits;
    state.maxPrec = maxPrec;
    state.minExp = minExp;
    state.pSafeEnd = SafeEnd(state.pEnd, maxBits);
}

int32_t AccuracyMinExp(double tolerance) {
    // "> 0" is false for zero, negatives and NaN alike.
    if (!(tolerance > 0.0)) {
        return kDefaultMinExp;
    }
    // The biased exponent field: floor(log2) for normal values, -1023 for subnormal ones.
    const auto field = static_cast<int32_t>((std::bit_cast<uint64_t>(tolerance) >> 52) & 0x7FF);
    return field - 1023;
}

int32_t ConsumedBytes(const ZfpState& state) {
    return static_cast<int32_t>(static_cast<uint32_t>(RoomBytes(state.pBegin, state.pCur)));
}

ZyrStatus Flush(ZfpState& state) {
    if (state.bitCount <= 0) {
        return StatusOk;
    }
    if (RoomBytes(state.pCur, state.pEnd) >= 8) {
        store_u64le(state.pCur, state.bitBuffer);
        state.pCur += 8;
        state.bitCount = 0;
        state.bitBuffer = 0;
        return StatusOk;
    }
    // Near the end of the buffer the tail goes out a byte at a time, so that a stream that
    // does not end on a word boundary still fits.
    for (;;) {
        if (RoomBytes(state.pCur, state.pEnd) < 1) {
            return StatusStreamExhausted;
        }
        *state.pCur++ = static_cast<uint8_t>(state.bitBuffer);
        state.bitCount -= 8;
        state.bitBuffer >>= 8;
        if (state.bitCount <= 0) {
            state.bitCount = 0;
            state.bitBuffer = 0;
            return StatusOk;
        }
    }
}

}  // namespace zyrdc::zfp
