// api.cpp - C entry points of the bzip2 block stages: argument checks in their fixed order,
// then the internal stage.
#include "bzip2/bzip2.hpp"
#include "core/copy.hpp"
#include "zyrdc.h"

namespace bz = zyrdc::bzip2;

extern "C" {

// ---- run-length stage and dictionary ---------------------------------------------------------

ZYRDC_API ZyrStatus zyrsRLEGetSize_BZ2_8u(int32_t* pSize) {
    if (pSize == nullptr) return StatusNullPointer;
    *pSize = bz::kRleStateBytes;
    return StatusOk;
}

ZYRDC_API ZyrStatus zyrsEncodeRLEInit_BZ2_8u(uint8_t* pRLEState) {
    if (pRLEState == nullptr) return StatusNullPointer;
    bz::RleEncodeInit(pRLEState);
    return StatusOk;
}

ZYRDC_API ZyrStatus zyrsEncodeRLE_BZ2_8u(const uint8_t** ppSrc, int32_t* pSrcLen, uint8_t* pDst,
                                         int32_t* pDstLen, uint8_t* pRLEState) {
    if (ppSrc == nullptr || pDst == nullptr || pSrcLen == nullptr || pDstLen == nullptr ||
        *ppSrc == nullptr || pRLEState == nullptr) {
        return StatusNullPointer;
    }
    if (*pSrcLen < 1 || *pDstLen < 1) return StatusBadSize;
    const bz::Progress p = bz::RleEncode(*ppSrc, *pSrcLen, pDst, *pDstLen, pRLEState);
    *ppSrc += p.consumed;
    *pSrcLen -= p.consumed;
    *pDstLen = p.written;
    return p.status;
}

ZYRDC_API ZyrStatus zyrsEncodeRLEFlush_BZ2_8u(uint8_t* pDst, int32_t* pDstLen, uint8_t* pRLEState) {
    if (pDst == nullptr || pDstLen == nullptr || pRLEState == nullptr) return StatusNullPointer;
    if (*pDstLen < 1) return StatusBadSize;
    *pDstLen = bz::RleEncodeFlush(pDst, pRLEState);
    return StatusOk;
}

ZYRDC_API ZyrStatus zyrsDecodeRLEStateInit_BZ2_8u(uint8_t* pRLEState) {
    if (pRLEState == nullptr) return StatusNullPointer;
    bz::RleDecodeInit(pRLEState);
    return StatusOk;
}

ZYRDC_API ZyrStatus zyrsDecodeRLEState_BZ2_8u(const uint8_t** ppSrc, int32_t* pSrcLen,
                                              uint8_t** ppDst, int32_t* pDstLen,
                                              uint8_t* pRLEState) {
    if (ppSrc == nullptr || pSrcLen == nullptr || ppDst == nullptr || pDstLen == nullptr ||
        *ppSrc == nullptr || *ppDst == nullptr || pRLEState == nullptr) {
        return StatusNullPointer;
    }
    if (*pSrcLen < 1 || *pDstLen < 1) return StatusBadSize;
    const bz::Progress p = bz::RleDecode(*ppSrc, *pSrcLen, *ppDst, *pDstLen, pRLEState);
    *ppSrc += p.consumed;
    *pSrcLen -= p.consumed;
    *ppDst += p.written;
    *pDstLen -= p.written;
    return p.status;
}

ZYRDC_API ZyrStatus zyrsDecodeRLEStateFlush_BZ2_8u(uint8_t* pRLEState, uint8_t** ppDst,
                                                   int32_t* pDstLen) {
    if (pRLEState == nullptr || ppDst == nullptr || pDstLen == nullptr || *ppDst == nullptr) {
        return StatusNullPointer;
    }
    // No size check: a room of zero or less writes nothing.
    const bz::Progress p = bz::RleDecodeFlush(*ppDst, *pDstLen, pRLEState);
    *ppDst += p.written;
    *pDstLen -= p.written;
    return p.status;
}

ZYRDC_API ZyrStatus zyrsRLEGetInUseTable_8u(uint8_t* pInUse, const uint8_t* pRLEState) {
    if (pInUse == nullptr || pRLEState == nullptr) return StatusNullPointer;
    bz::CopyInUseTable(pInUse, pRLEState);
    return StatusOk;
}

ZYRDC_API ZyrStatus zyrsReduceDictionary_8u_I(const uint8_t* pInUse, uint8_t* pSrcDst, int32_t len,
                                              int32_t* pSizeDictionary) {
    if (pInUse == nullptr || pSrcDst == nullptr || pSizeDictionary == nullptr) {
        return StatusNullPointer;
    }
    if (len < 1) return StatusBadSize;
    *pSizeDictionary = bz::ReduceDictionary(pInUse, pSrcDst, len);
    return StatusOk;
}

ZYRDC_API ZyrStatus zyrsExpandDictionary_8u_I(const uint8_t* pInUse, uint8_t* pSrcDst, int32_t len,
                                              int32_t sizeDictionary) {
    if (pInUse == nullptr || pSrcDst == nullptr) return StatusNullPointer;
    if (len < 1 || sizeDictionary < 1) return StatusBadSize;
    return bz::ExpandDictionary(pInUse, pSrcDst, len, sizeDictionary) ? StatusOk : StatusError;
}

// ---- Burrows-Wheeler transform ---------------------------------------------------------------

ZYRDC_API ZyrStatus zyrsBWTFwdGetSize_8u(int32_t n, int32_t* pSize) {
    if (pSize == nullptr) return StatusNullPointer;
    if (n < 1) return StatusBadSize;
    // The larger of the two layouts, compared as signed values (as wrapped 32-bit sizes).
    const auto bucket = static_cast<int32_t>(bz::BucketSortBytes(static_cast<uint32_t>(n)));
    const auto induced = static_cast<int32_t>(bz::InducedSortBytes(static_cast<uint32_t>(n)));
    *pSize = bucket > induced ? bucket : induced;
    return StatusOk;
}

ZYRDC_API ZyrStatus zyrsBWTFwdGetBufSize_SelectSort_8u(uint32_t n, uint32_t* pSize,
                                                       uint32_t strategy) {
    if (pSize == nullptr) return StatusNullPointer;
    if (n == 0) return StatusBadSize;
    const uint32_t bucket = bz::BucketSortBytes(n), induced = bz::InducedSortBytes(n);
    switch (strategy) {
        case 0:
        case 1: *pSize = bucket; break;
        case 2: *pSize = induced; break;
        case 3:
            *pSize =
                static_cast<int32_t>(bucket) > static_cast<int32_t>(induced) ? bucket : induced;
            break;
        default: break;  // an unknown strategy is passed over without a word
    }
    return StatusOk;
}

ZYRDC_API ZyrStatus zyrsBWTFwd_8u(const uint8_t* pSrc, uint8_t* pDst, int32_t n, int32_t* pIndex,
                                  uint8_t* pBuffer) {
    if (pSrc == nullptr || pDst == nullptr || pIndex == nullptr || pBuffer == nullptr) {
        return StatusNullPointer;
    }
    if (n < 1) return StatusBadSize;
    return bz::BwtForward(pSrc, pDst, static_cast<uint32_t>(n), pIndex, pBuffer,
                          bz::SortStrategy::kBudgetedFallback, bz::kShortBudgetDefault);
}

ZYRDC_API ZyrStatus zyrsBWTFwd_SelectSort_8u(const uint8_t* pSrc, uint8_t* pDst, uint32_t n,
                                             int32_t* pIndex, uint8_t* pBuffer, int32_t strategy) {
    if (pSrc == nullptr || pDst == nullptr || pIndex == nullptr || pBuffer == nullptr) {
        return StatusNullPointer;
    }
    if (n == 0) return StatusBadSize;
    // Short blocks ignore the strategy; for longer ones an unknown strategy does nothing.
    return bz::BwtForward(pSrc, pDst, n, pIndex, pBuffer, static_cast<bz::SortStrategy>(strategy),
                          bz::kShortBudgetSelect);
}

ZYRDC_API ZyrStatus zyrsBWTInvGetSize_8u(int32_t n, int32_t* pSize) {
    if (pSize == nullptr) return StatusNullPointer;
    if (n < 1) return StatusBadSize;
    *pSize = static_cast<int32_t>(4 * static_cast<uint32_t>(n) + 1024u);
    return StatusOk;
}

ZYRDC_API ZyrStatus zyrsBWTInv_8u(const uint8_t* pSrc, uint8_t* pDst, int32_t n, int32_t index,
                                  uint8_t* pBuffer) {
    if (pSrc == nullptr || pDst == nullptr || pBuffer == nullptr) return StatusNullPointer;
    // Signed: a negative index passes this check, and the caller must not send one.
    if (n < 1 || index >= n) return StatusBadSize;
    if (n == 1) return zyrdc::CopyBytes_8u(pSrc, pDst, 1);
    bz::BwtInverse(pSrc, pDst, static_cast<uint32_t>(n), static_cast<uint32_t>(index), pBuffer);
    return StatusOk;
}

// ---- move-to-front and zero-run coding -------------------------------------------------------

ZYRDC_API ZyrStatus zyrsMTFGetSize_8u(int32_t* pSize) {
    if (pSize == nullptr) return StatusNullPointer;
    *pSize = bz::kMtfStateBytes;
    return StatusOk;
}

ZYRDC_API ZyrStatus zyrsMTFInit_8u(uint8_t* pMTFState) {
    if (pMTFState == nullptr) return StatusNullPointer;
    bz::MtfInit(pMTFState);
    return StatusOk;
}

ZYRDC_API ZyrStatus zyrsMTFFwd_8u(const uint8_t* pSrc, uint8_t* pDst, int32_t len,
                                  uint8_t* pMTFState) {
    if (pSrc == nullptr || pDst == nullptr || pMTFState == nullptr) return StatusNullPointer;
    if (len < 1) return StatusBadSize;
    bz::MtfForward(pSrc, pDst, len, pMTFState);
    return StatusOk;
}

ZYRDC_API ZyrStatus zyrsMTFInv_8u(const uint8_t* pSrc, uint8_t* pDst, int32_t len,
                                  uint8_t* pMTFState) {
    if (pSrc == nullptr || pDst == nullptr || pMTFState == nullptr) return StatusNullPointer;
    if (len < 1) return StatusBadSize;
    bz::MtfInverse(pSrc, pDst, len, pMTFState);
    return StatusOk;
}

ZYRDC_API ZyrStatus zyrsEncodeZ1Z2_BZ2_8u16u(const uint8_t** ppSrc, int32_t* pSrcLen,
                                             uint16_t* pDst, int32_t* pDstLen, uint32_t* pFreq) {
    if (ppSrc == nullptr || pDst == nullptr || pSrcLen == nullptr || pDstLen == nullptr ||
        *ppSrc == nullptr || pFreq == nullptr) {
        return StatusNullPointer;
    }
    if (*pSrcLen < 1 || *pDstLen < 1) return StatusBadSize;
    const bz::Progress p = bz::EncodeZeroRuns(*ppSrc, *pSrcLen, pDst, *pDstLen, pFreq);
    *ppSrc += p.consumed;
    *pSrcLen -= p.consumed;
    *pDstLen = p.written;
    return p.status;
}

ZYRDC_API ZyrStatus zyrsDecodeZ1Z2_BZ2_16u8u(const uint16_t** ppSrc, int32_t* pSrcLen,
                                             uint8_t* pDst, int32_t* pDstLen) {
    if (ppSrc == nullptr || pDst == nullptr || pSrcLen == nullptr || pDstLen == nullptr ||
        *ppSrc == nullptr) {
        return StatusNullPointer;
    }
    if (*pSrcLen < 1 || *pDstLen < 1) return StatusBadSize;
    const bz::Progress p = bz::DecodeZeroRuns(*ppSrc, *pSrcLen, pDst, *pDstLen);
    *ppSrc += p.consumed;
    *pSrcLen -= p.consumed;
    *pDstLen = p.written;
    return p.status;
}

}  // extern "C"
