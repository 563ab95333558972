// api.cpp - C entry points of the ZFP family: pointers first, then sizes, then the record's
// magic word (never checked by the size and init functions), then one internal call. The
// decode-side functions of the record share the encode-side bodies.
#include <cstdint>

#include "zfp/zfp.hpp"
#include "zyrdc.h"

namespace {

using namespace zyrdc::zfp;

ZyrStatus GetStateSize(int32_t* pSize) {
    if (pSize == nullptr) {
        return StatusNullPointer;
    }
    *pSize = static_cast<int32_t>(sizeof(ZfpState));
    return StatusOk;
}

ZyrStatus Init(const uint8_t* pBuf, int32_t len, ZfpState* pState) {
    if (pState == nullptr || pBuf == nullptr) {
        return StatusNullPointer;
    }
    if (len < 1) {
        return StatusBadSize;
    }
    // One record type serves both directions, so the decoder's read-only stream is held
    // through the same non-const pointers; the decoder never writes through them.
    InitState(*pState, const_cast<uint8_t*>(pBuf), static_cast<uint32_t>(len));
    return StatusOk;
}

ZyrStatus InitLong(const uint8_t* pBuf, uint64_t len, ZfpState* pState) {
    if (pState == nullptr || pBuf == nullptr) {
        return StatusNullPointer;
    }
    if (len == 0) {
        return StatusBadSize;
    }
    InitState(*pState, const_cast<uint8_t*>(pBuf), static_cast<uint32_t>(len));
    return StatusOk;
}

bool Usable(const ZfpState* pState) { return pState->magic == kMagic; }

ZyrStatus Set(int32_t minBits, int32_t maxBits, int32_t maxPrec, int32_t minExp, ZfpState* pState) {
    if (pState == nullptr) {
        return StatusNullPointer;
    }
    if (!Usable(pState)) {
        return StatusBadContext;
    }
    SetParams(*pState, minBits, maxBits, maxPrec, minExp);
    return StatusOk;
}

ZyrStatus SetAccuracy(double tolerance, ZfpState* pState) {
    if (pState == nullptr) {
        return StatusNullPointer;
    }
    if (!Usable(pState)) {
        return StatusBadContext;
    }
    // Only minExp changes; the safe end keeps following maxBits, which is unchanged.
    pState->minExp = AccuracyMinExp(tolerance);
    return StatusOk;
}

template <class Size>
ZyrStatus ConsumedSize(const ZfpState* pState, Size* pSize) {
    if (pState == nullptr || pSize == nullptr) {
        return StatusNullPointer;
    }
    if (!Usable(pState)) {
        return StatusBadContext;
    }
    *pSize = ConsumedBytes(*pState);
    return StatusOk;
}

}  // namespace

extern "C" {

ZYRDC_API ZyrStatus zyrsEncodeZfpGetStateSize_32f(int32_t* pSize) { return GetStateSize(pSize); }
ZYRDC_API ZyrStatus zyrsDecodeZfpGetStateSize_32f(int32_t* pSize) { return GetStateSize(pSize); }

ZYRDC_API ZyrStatus zyrsEncodeZfpInit_32f(uint8_t* pDst, int32_t dstLen, ZfpState* pState) {
    return Init(pDst, dstLen, pState);
}
ZYRDC_API ZyrStatus zyrsDecodeZfpInit_32f(const uint8_t* pSrc, int32_t srcLen, ZfpState* pState) {
    return Init(pSrc, srcLen, pState);
}
ZYRDC_API ZyrStatus zyrsEncodeZfpInitLong_32f(uint8_t* pDst, uint64_t dstLen, ZfpState* pState) {
    return InitLong(pDst, dstLen, pState);
}
ZYRDC_API ZyrStatus zyrsDecodeZfpInitLong_32f(const uint8_t* pSrc, uint64_t srcLen,
                                              ZfpState* pState) {
    return InitLong(pSrc, srcLen, pState);
}

ZYRDC_API ZyrStatus zyrsEncodeZfpSet_32f(int32_t minBits, int32_t maxBits, int32_t maxPrec,
                                         int32_t minExp, ZfpState* pState) {
    return Set(minBits, maxBits, maxPrec, minExp, pState);
}
ZYRDC_API ZyrStatus zyrsDecodeZfpSet_32f(int32_t minBits, int32_t maxBits, int32_t maxPrec,
                                         int32_t minExp, ZfpState* pState) {
    return Set(minBits, maxBits, maxPrec, minExp, pState);
}
ZYRDC_API ZyrStatus zyrsEncodeZfpSetAccuracy_32f(double tolerance, ZfpState* pState) {
    return SetAccuracy(tolerance, pState);
}
ZYRDC_API ZyrStatus zyrsDecodeZfpSetAccuracy_32f(double tolerance, ZfpState* pState) {
    return SetAccuracy(tolerance, pState);
}

ZYRDC_API ZyrStatus zyrsEncodeZfpGetCompressedBitSize_32f(const ZfpState* pState, int64_t* pBits) {
    if (pState == nullptr || pBits == nullptr) {
        return StatusNullPointer;
    }
    if (!Usable(pState)) {
        return StatusBadContext;
    }
    // 32-bit arithmetic on purpose: from 2^28 bytes on the count wraps, as it always has.
    const uint32_t bits = static_cast<uint32_t>(pState->bitCount) +
                          8u * static_cast<uint32_t>(ConsumedBytes(*pState));
    *pBits = static_cast<int32_t>(bits);
    return StatusOk;
}
ZYRDC_API ZyrStatus zyrsEncodeZfpGetCompressedSizeLong_32f(const ZfpState* pState,
                                                           int64_t* pSize) {
    return ConsumedSize(pState, pSize);
}
ZYRDC_API ZyrStatus zyrsEncodeZfpGetCompressedSize_32f(const ZfpState* pState, int32_t* pSize) {
    return ConsumedSize(pState, pSize);
}
ZYRDC_API ZyrStatus zyrsDecodeZfpGetDecompressedSizeLong_32f(const ZfpState* pState,
                                                             int64_t* pSize) {
    return ConsumedSize(pState, pSize);
}
ZYRDC_API ZyrStatus zyrsDecodeZfpGetDecompressedSize_32f(const ZfpState* pState, int32_t* pSize) {
    return ConsumedSize(pState, pSize);
}

ZYRDC_API ZyrStatus zyrsEncodeZfpFlush_32f(ZfpState* pState) {
    if (pState == nullptr) {
        return StatusNullPointer;
    }
    if (!Usable(pState)) {
        return StatusBadContext;
    }
    return Flush(*pState);
}

ZYRDC_API ZyrStatus zyrsEncodeZfp444_32f(const float* pSrc, int32_t srcStep, int32_t srcPlaneStep,
                                         ZfpState* pState) {
    if (pSrc == nullptr || pState == nullptr) {
        return StatusNullPointer;
    }
    if (!Usable(pState)) {
        return StatusBadContext;
    }
    return EncodeBlock(*pState, pSrc, srcStep, srcPlaneStep);
}

ZYRDC_API ZyrStatus zyrsDecodeZfp444_32f(ZfpState* pState, float* pDst, int32_t dstStep,
                                         int32_t dstPlaneStep) {
    if (pDst == nullptr || pState == nullptr) {
        return StatusNullPointer;
    }
    if (!Usable(pState)) {
        return StatusBadContext;
    }
    return DecodeBlock(*pState, pDst, dstStep, dstPlaneStep);
}

}  // extern "C"
