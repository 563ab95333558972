// api.cpp - C entry points of the LZSS codec: argument checks in their fixed order, then the
// internal coder.
#include "lzss/lzss.hpp"
#include "zyrdc.h"

namespace {

// The in/out pointer pairs of the data calls, with the buffers they point to.
bool AnyNull(const uint8_t* const* ppSrc, const int32_t* pSrcLen, uint8_t* const* ppDst,
             const int32_t* pDstLen, const LzssState* pState) {
    return ppSrc == nullptr || pSrcLen == nullptr || ppDst == nullptr || pDstLen == nullptr ||
           pState == nullptr || *ppSrc == nullptr || *ppDst == nullptr;
}

}  // namespace

extern "C" {

ZYRDC_API ZyrStatus zyrsLZSSGetSize_8u(int32_t* pSize) {
    if (pSize == nullptr) {
        return StatusNullPointer;
    }
    *pSize = static_cast<int32_t>(sizeof(LzssState));
    return StatusOk;
}

ZYRDC_API ZyrStatus zyrsEncodeLZSSInit_8u(LzssState* pState) {
    if (pState == nullptr) {
        return StatusNullPointer;
    }
    zyrdc::lzss::InitEncoder(pState);
    return StatusOk;
}

ZYRDC_API ZyrStatus zyrsEncodeLZSS_8u(const uint8_t** ppSrc, int32_t* pSrcLen, uint8_t** ppDst,
                                      int32_t* pDstLen, LzssState* pState) {
    if (AnyNull(ppSrc, pSrcLen, ppDst, pDstLen, pState)) {
        return StatusNullPointer;
    }
    // No room is a full destination and no input is nothing to do, in that order: neither is
    // an error, and nothing is touched.
    if (*pDstLen <= 0) {
        return StatusDstFull;
    }
    if (*pSrcLen <= 0) {
        return StatusOk;
    }
    return zyrdc::lzss::Encode(ppSrc, pSrcLen, ppDst, pDstLen, pState);
}

ZYRDC_API ZyrStatus zyrsEncodeLZSSFlush_8u(uint8_t** ppDst, int32_t* pDstLen, LzssState* pState) {
    if (ppDst == nullptr || pDstLen == nullptr || pState == nullptr || *ppDst == nullptr) {
        return StatusNullPointer;
    }
    if (*pDstLen < 1) {
        return StatusBadSize;
    }
    return zyrdc::lzss::Flush(ppDst, pDstLen, pState);
}

ZYRDC_API ZyrStatus zyrsDecodeLZSSInit_8u(LzssState* pState) {
    if (pState == nullptr) {
        return StatusNullPointer;
    }
    zyrdc::lzss::InitDecoder(pState);
    return StatusOk;
}

ZYRDC_API ZyrStatus zyrsDecodeLZSS_8u(const uint8_t** ppSrc, int32_t* pSrcLen, uint8_t** ppDst,
                                      int32_t* pDstLen, LzssState* pState) {
    if (AnyNull(ppSrc, pSrcLen, ppDst, pDstLen, pState)) {
        return StatusNullPointer;
    }
    if (*pDstLen < 1) {
        return StatusBadSize;
    }
    return zyrdc::lzss::Decode(ppSrc, pSrcLen, ppDst, pDstLen, pState);
}

}  // extern "C"
