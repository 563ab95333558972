// api_huff.cpp - C entry points of the bzip2 Huffman stage: argument checks in their fixed
// order (pointers, sizes, the record's magic and stage), then the internal coder.
#include "bzip2/huff.hpp"
#include "zyrdc.h"

namespace bz = zyrdc::bzip2;

namespace {

bool BadMaxSymbols(int32_t max_symbols) { return max_symbols < 1 || max_symbols > bz::kMaxBlockSymbols; }

bz::HuffEncoderRecord* Encoder(uint8_t* state) { return reinterpret_cast<bz::HuffEncoderRecord*>(state); }
bz::HuffDecoderRecord* Decoder(uint8_t* state) { return reinterpret_cast<bz::HuffDecoderRecord*>(state); }

bool IsError(ZyrStatus status) { return status < 0; }

}  // namespace

extern "C" {

// ---- encoder ---------------------------------------------------------------------------------

ZYRDC_API ZyrStatus zyrsEncodeHuffGetSize_BZ2_16u8u(int32_t maxSymbols, int32_t* pSize) {
    if (pSize == nullptr) return StatusNullPointer;
    if (BadMaxSymbols(maxSymbols)) return StatusBadSize;
    *pSize = bz::HuffEncoderBytes(maxSymbols);
    return StatusOk;
}

ZYRDC_API ZyrStatus zyrsEncodeHuffInit_BZ2_16u8u(int32_t maxSymbols, const uint8_t* pInUse,
                                                 const uint16_t* pSrc, int32_t srcLen,
                                                 uint8_t* pState) {
    if (pInUse == nullptr || pSrc == nullptr || pState == nullptr) return StatusNullPointer;
    if (BadMaxSymbols(maxSymbols) || srcLen < 2 || srcLen > maxSymbols) return StatusBadSize;
    return bz::HuffAnalyse(maxSymbols, pInUse, pSrc, srcLen, Encoder(pState));
}

ZYRDC_API ZyrStatus zyrsPackHuffContext_BZ2_16u8u(uint32_t* pCode, uint32_t* pCodeLenBits,
                                                  uint8_t* pDst, int32_t* pDstLen,
                                                  uint8_t* pState) {
    if (pCode == nullptr || pCodeLenBits == nullptr || pDst == nullptr || pDstLen == nullptr ||
        pState == nullptr) {
        return StatusNullPointer;
    }
    if (*pCodeLenBits > 31 || *pDstLen < 1) return StatusBadSize;
    bz::HuffEncoderRecord* rec = Encoder(pState);
    if (rec->magic != bz::kHuffEncoderMagic || rec->stage != bz::kEncAnalysed) return StatusBadContext;
    const bz::BitProgress p = bz::HuffPackContext(*pCode, *pCodeLenBits, pDst, *pDstLen, rec);
    *pDstLen = p.written;
    *pCode = p.code;
    *pCodeLenBits = p.code_bits;
    return p.status;
}

ZYRDC_API ZyrStatus zyrsEncodeHuff_BZ2_16u8u(const uint16_t** ppSrc, int32_t* pSrcLen,
                                             uint32_t* pCode, uint32_t* pCodeLenBits,
                                             uint8_t* pDst, int32_t* pDstLen, uint8_t* pState) {
    if (ppSrc == nullptr || pSrcLen == nullptr || pCode == nullptr || pCodeLenBits == nullptr ||
        pDst == nullptr || pDstLen == nullptr || pState == nullptr || *ppSrc == nullptr) {
        return StatusNullPointer;
    }
    if (*pSrcLen < 0 || *pCodeLenBits > 31 || *pDstLen < 1) return StatusBadSize;
    bz::HuffEncoderRecord* rec = Encoder(pState);
    if (rec->magic != bz::kHuffEncoderMagic ||
        (rec->stage != bz::kEncContextWritten && rec->stage != bz::kEncBlockCoded)) {
        return StatusBadContext;
    }
    const bz::BitProgress p =
        bz::HuffEncode(*ppSrc, *pSrcLen, *pCode, *pCodeLenBits, pDst, *pDstLen, rec);
    if (IsError(p.status)) return p.status;
    *ppSrc += p.consumed;
    *pSrcLen -= p.consumed;
    *pDstLen = p.written;
    *pCode = p.code;
    *pCodeLenBits = p.code_bits;
    return p.status;
}

// ---- decoder ---------------------------------------------------------------------------------

ZYRDC_API ZyrStatus zyrsDecodeHuffGetSize_BZ2_8u16u(int32_t maxSymbols, int32_t* pSize) {
    if (pSize == nullptr) return StatusNullPointer;
    if (BadMaxSymbols(maxSymbols)) return StatusBadSize;
    *pSize = bz::HuffDecoderBytes(maxSymbols);
    return StatusOk;
}

ZYRDC_API ZyrStatus zyrsDecodeHuffInit_BZ2_8u16u(int32_t maxSymbols, uint8_t* pState) {
    if (pState == nullptr) return StatusNullPointer;
    if (BadMaxSymbols(maxSymbols)) return StatusBadSize;
    bz::HuffDecoderInit(maxSymbols, Decoder(pState));
    return StatusOk;
}

ZYRDC_API ZyrStatus zyrsUnpackHuffContext_BZ2_8u16u(const uint8_t** ppSrc, int32_t* pSrcLen,
                                                    uint32_t* pCode, uint32_t* pCodeLenBits,
                                                    uint8_t* pInUse, uint8_t* pState) {
    if (ppSrc == nullptr || pSrcLen == nullptr || pCode == nullptr || pCodeLenBits == nullptr ||
        pInUse == nullptr || pState == nullptr || *ppSrc == nullptr) {
        return StatusNullPointer;
    }
    if (*pSrcLen < 0 || *pCodeLenBits > 7) return StatusBadSize;
    bz::HuffDecoderRecord* rec = Decoder(pState);
    if (rec->magic != bz::kHuffDecoderMagic) return StatusBadContext;
    const bz::BitProgress p =
        bz::HuffUnpackContext(*ppSrc, *pSrcLen, *pCode, *pCodeLenBits, pInUse, rec);
    if (IsError(p.status)) return p.status;
    *ppSrc += p.consumed;
    *pSrcLen -= p.consumed;
    *pCode = p.code;
    *pCodeLenBits = p.code_bits;
    return p.status;
}

ZYRDC_API ZyrStatus zyrsDecodeHuff_BZ2_8u16u(const uint8_t** ppSrc, int32_t* pSrcLen,
                                             uint32_t* pCode, uint32_t* pCodeLenBits,
                                             uint16_t* pDst, int32_t* pDstLen, uint8_t* pState) {
    if (ppSrc == nullptr || pSrcLen == nullptr || pCode == nullptr || pCodeLenBits == nullptr ||
        pDst == nullptr || pDstLen == nullptr || pState == nullptr || *ppSrc == nullptr) {
        return StatusNullPointer;
    }
    if (*pSrcLen < 0 || *pCodeLenBits > 7 || *pDstLen < 1) return StatusBadSize;
    bz::HuffDecoderRecord* rec = Decoder(pState);
    if (rec->magic != bz::kHuffDecoderMagic || rec->stage == bz::kDecNoContext) return StatusBadContext;
    const bz::BitProgress p =
        bz::HuffDecode(*ppSrc, *pSrcLen, *pCode, *pCodeLenBits, pDst, *pDstLen, rec);
    if (IsError(p.status)) return p.status;
    *ppSrc += p.consumed;
    *pSrcLen -= p.consumed;
    *pDstLen = p.written;
    *pCode = p.code;
    *pCodeLenBits = p.code_bits;
    return p.status;
}

}  // extern "C"
