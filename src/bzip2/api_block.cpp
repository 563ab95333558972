// api_block.cpp - C entry points of the bzip2 block decoder: argument checks in their fixed
// order, then the internal decoder.
#include "bzip2/block_decode.hpp"
#include "zyrdc.h"

namespace bz = zyrdc::bzip2;

extern "C" {

ZYRDC_API ZyrStatus zyrsDecodeBlockGetSize_BZ2_8u(int32_t blockSize, int32_t* pSize) {
    if (pSize == nullptr) return StatusNullPointer;
    if (blockSize < 1 || blockSize > bz::kMaxBlockSize) return StatusBadSize;
    *pSize = bz::BlockBufferBytes(blockSize);
    return StatusOk;
}

ZYRDC_API ZyrStatus zyrsDecodeBlock_BZ2_16u8u(const uint16_t* pSrc, int32_t srcLen,
                                              const uint8_t* pInUse, int32_t origPtr,
                                              int32_t blockSize, uint8_t* pDst, int32_t* pDstLen,
                                              uint8_t* pBuffer) {
    // pSrc and pInUse are required even when a call only continues the output.
    if (pSrc == nullptr || pInUse == nullptr || pDst == nullptr || pDstLen == nullptr ||
        pBuffer == nullptr) {
        return StatusNullPointer;
    }
    if (srcLen < 0 || blockSize < 1 || blockSize > bz::kMaxBlockSize || *pDstLen < 1) {
        return StatusBadSize;
    }
    bz::Progress p;
    if (srcLen == 0) {
        if (!bz::BlockInProgress(pBuffer, blockSize)) return StatusBadContext;
        p = bz::BlockOutput(pDst, *pDstLen, pBuffer);
    } else {
        p = bz::DecodeBlockStart(pSrc, srcLen, pInUse, origPtr, blockSize, pDst, *pDstLen,
                                 pBuffer);
        if (p.status < 0) return p.status;
    }
    *pDstLen = p.written;
    return p.status;
}

}  // extern "C"
