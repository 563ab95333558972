// api.cpp - C entry points of the Deflate family: argument checks in their fixed order, then
// one call into the matchers, the Huffman coder or the Inflate table builder.
#include "deflate/deflate.hpp"
#include "zyrdc.h"

namespace zd = zyrdc::deflate;

namespace {

bool SizesOk(uint32_t winSize, uint32_t hashSize) {
    return winSize >= zd::kMinWindow && winSize <= zd::kMaxWindow && hashSize >= zd::kMinHash &&
           hashSize <= zd::kMaxHash;
}

enum class Matcher { Fast, Slow };

// The Fast and Slow checks, and the call itself; the parameter record is already at hand.
ZyrStatus RunMatcher(Matcher kind, const uint8_t** ppSrc, int32_t* pSrcLen, int32_t* pSrcIdx,
                     const uint8_t* pWindow, uint32_t winSize, int32_t* pHashHead,
                     int32_t* pHashPrev, uint32_t hashSize, HuffCodeEntry* pLitFreq,
                     HuffCodeEntry* pDistFreq, uint8_t* pLit, uint16_t* pDist, int32_t* pDstLen,
                     const LZ77Params* pParams, int32_t flush) {
    if (ppSrc == nullptr || pSrcLen == nullptr || pSrcIdx == nullptr || pWindow == nullptr ||
        pHashHead == nullptr || pHashPrev == nullptr || pLitFreq == nullptr ||
        pDistFreq == nullptr || pLit == nullptr || pDist == nullptr || pDstLen == nullptr) {
        return StatusNullPointer;
    }
    if (*ppSrc == nullptr || pParams == nullptr) {
        return StatusNullPointer;
    }
    if (!SizesOk(winSize, hashSize)) {
        return StatusBadSize;
    }
    const LZ77Params& p = *pParams;
    if (kind == Matcher::Fast) {
        if (p.maxChain < 0 ||
            (p.maxChain != 0 && (p.goodLength < 4 || p.niceLength < 4 || p.maxInsertLength < 4))) {
            return StatusBadArgument;
        }
    } else if (p.maxChain < 1 || p.goodLength < 4 || p.niceLength < 4 || p.maxInsertLength < 4) {
        return StatusBadArgument;
    }

    int32_t srcIdx = *pSrcIdx;
    zd::RebaseIfNeeded(srcIdx, *pSrcLen, pHashHead, hashSize, pHashPrev, winSize);
    const zd::MatchCall call{*ppSrc,   *pSrcLen,  srcIdx,   pWindow, winSize, pHashHead,
                             pHashPrev, hashSize,  pLitFreq, pDistFreq, pLit,  pDist,
                             *pDstLen, p,         flush};
    const zd::MatchResult r = kind == Matcher::Slow ? zd::MatchLazy(call)
                              : p.maxChain == 0     ? zd::MatchSingleProbe(call)
                                                    : zd::MatchGreedy(call);
    *ppSrc += r.consumed;
    *pSrcLen -= r.consumed;
    *pSrcIdx = srcIdx + r.consumed;
    *pDstLen -= r.written;
    return StatusOk;
}

}  // namespace

extern "C" {

ZYRDC_API ZyrStatus zyrsDeflateLZ77Fast_8u(const uint8_t** ppSrc, int32_t* pSrcLen,
    int32_t* pSrcIdx, const uint8_t* pWindow, uint32_t winSize, int32_t* pHashHead,
    int32_t* pHashPrev, uint32_t hashSize, HuffCodeEntry* pLitFreq, HuffCodeEntry* pDistFreq,
    uint8_t* pLit, uint16_t* pDist, int32_t* pDstLen, const LZ77Params* pParams, int32_t flush) {
    return RunMatcher(Matcher::Fast, ppSrc, pSrcLen, pSrcIdx, pWindow, winSize, pHashHead,
                      pHashPrev, hashSize, pLitFreq, pDistFreq, pLit, pDist, pDstLen, pParams, flush);
}

ZYRDC_API ZyrStatus zyrsDeflateLZ77Slow_8u(const uint8_t** ppSrc, int32_t* pSrcLen,
    int32_t* pSrcIdx, const uint8_t* pWindow, uint32_t winSize, int32_t* pHashHead,
    int32_t* pHashPrev, uint32_t hashSize, HuffCodeEntry* pLitFreq, HuffCodeEntry* pDistFreq,
    uint8_t* pLit, uint16_t* pDist, int32_t* pDstLen, const LZ77Params* pParams, int32_t flush) {
    return RunMatcher(Matcher::Slow, ppSrc, pSrcLen, pSrcIdx, pWindow, winSize, pHashHead,
                      pHashPrev, hashSize, pLitFreq, pDistFreq, pLit, pDist, pDstLen, pParams, flush);
}

ZYRDC_API ZyrStatus zyrsDeflateLZ77_8u(const uint8_t** ppSrc, int32_t* pSrcLen,
    int32_t* pSrcIdx, const uint8_t* pWindow, uint32_t winSize, int32_t* pHashHead,
    int32_t* pHashPrev, uint32_t hashSize, HuffCodeEntry* pLitFreq, HuffCodeEntry* pDistFreq,
    uint8_t* pLit, uint16_t* pDist, int32_t* pDstLen, uint32_t level, int32_t flush) {
    // The level comes first, before any pointer is looked at.
    if (level >= static_cast<uint32_t>(zd::kNumLevels)) {
        return StatusBadSize;
    }
    return RunMatcher(zd::LevelIsLazy(level) ? Matcher::Slow : Matcher::Fast, ppSrc, pSrcLen,
                      pSrcIdx, pWindow, winSize, pHashHead, pHashPrev, hashSize, pLitFreq,
                      pDistFreq, pLit, pDist, pDstLen, &zd::kLevelParams[level], flush);
}

ZYRDC_API ZyrStatus zyrsDeflateUpdateHash_8u(const uint8_t* pSrc, uint32_t srcIdx,
    uint32_t srcLen, int32_t* pHashHead, uint32_t hashSize, int32_t* pHashPrev,
    uint32_t winSize, uint32_t hashMode) {
    if (pSrc == nullptr || pHashHead == nullptr || pHashPrev == nullptr) {
        return StatusNullPointer;
    }
    if (!SizesOk(winSize, hashSize)) {
        return StatusBadSize;
    }
    zd::UpdateHash(pSrc, srcIdx, srcLen, pHashHead, hashSize, pHashPrev, winSize, hashMode != 0);
    return StatusOk;
}

ZYRDC_API ZyrStatus zyrsDeflateDictionarySet_8u(const uint8_t* pDict, uint32_t dictLen,
    int32_t* pHashHead, int32_t hashSize, int32_t* pHashPrev, uint8_t* pWindow,
    uint32_t winSize, uint32_t hashMode) {
    if (pDict == nullptr || pHashHead == nullptr || pHashPrev == nullptr || pWindow == nullptr) {
        return StatusNullPointer;
    }
    // hashSize is signed here: a negative one is simply below 256.
    if (hashSize < 0 || !SizesOk(winSize, static_cast<uint32_t>(hashSize))) {
        return StatusBadSize;
    }
    zd::SetDictionary(pDict, dictLen, pHashHead, static_cast<uint32_t>(hashSize), pHashPrev,
                      pWindow, winSize, hashMode != 0);
    return StatusOk;
}

ZYRDC_API ZyrStatus zyrsDeflateHuff_8u(const uint8_t* pLitSrc, const uint16_t* pDistSrc,
    uint32_t srcLen, uint16_t* pCode, uint32_t* pCodeLenBits,
    const HuffCodeEntry* pLitHuffCodes, const HuffCodeEntry* pDistHuffCodes, uint8_t* pDst,
    uint32_t* pDstIdx) {
    if (pLitSrc == nullptr || pDistSrc == nullptr || pCode == nullptr || pCodeLenBits == nullptr ||
        pLitHuffCodes == nullptr || pDistHuffCodes == nullptr || pDst == nullptr ||
        pDstIdx == nullptr) {
        return StatusNullPointer;
    }
    zd::BitState state{*pCode, *pCodeLenBits, *pDstIdx};
    if (srcLen >= zd::kVectorHuffMin) {
        zd::HuffEncodeVector(pLitSrc, pDistSrc, srcLen, state, pLitHuffCodes, pDistHuffCodes, pDst);
    } else {
        zd::HuffEncodeScalar(pLitSrc, pDistSrc, srcLen, state, pLitHuffCodes, pDistHuffCodes, pDst);
    }
    *pCode = static_cast<uint16_t>(state.bits);
    *pCodeLenBits = state.count;
    *pDstIdx = state.index;
    return StatusOk;
}

ZYRDC_API ZyrStatus zyrsInflateBuildHuffTable(const uint16_t* pCodeLens, uint32_t nLitLen,
    uint32_t nDistLen, InflateHuffTable* pTable) {
    if (pCodeLens == nullptr || pTable == nullptr) {
        return StatusNullPointer;
    }
    if (nLitLen > zd::kMaxLitLenLengths || nDistLen > zd::kMaxDistLengths) {
        return StatusBadSize;
    }
    return zd::BuildInflateTable(pCodeLens, nLitLen, nDistLen, pTable);
}

ZYRDC_API ZyrStatus zyrsInflate_8u(const uint8_t** ppSrc, int32_t* pSrcLen, uint32_t* pCode,
    uint32_t* pCodeLenBits, uint8_t* pDst, int32_t dstLen, int32_t* pDstIdx, int32_t winIdx,
    int32_t* pMode, InflateHuffTable* pTable) {
    if (ppSrc == nullptr || pSrcLen == nullptr || pCode == nullptr || pCodeLenBits == nullptr ||
        pDst == nullptr || pDstIdx == nullptr || pMode == nullptr || pTable == nullptr) {
        return StatusNullPointer;
    }
    if (*ppSrc == nullptr) {
        return StatusNullPointer;
    }
    if (*pSrcLen < 0 || dstLen < 1 || *pDstIdx < 0 || *pDstIdx > dstLen || winIdx < 0 ||
        winIdx > *pDstIdx || *pCodeLenBits > 7) {
        return StatusBadSize;
    }
    // No export prepares the record: the mode and the words it relies on stand in for a magic.
    if (!zd::InflateContextOk(*pMode, *pCodeLenBits, pTable)) {
        return StatusBadContext;
    }
    zd::InflateArgs a{*ppSrc, *pSrcLen, *pCode, *pCodeLenBits, pDst, dstLen, *pDstIdx, winIdx, *pMode};
    const ZyrStatus status = zd::Inflate(a, pTable);
    if (status == StatusOk || status == StatusSrcExhausted || status == StatusDstFull) {
        *ppSrc = a.src;
        *pSrcLen = a.srcLen;
        *pCode = a.code;
        *pCodeLenBits = a.codeBits;
        *pDstIdx = a.dstIdx;
        *pMode = a.mode;
    }
    return status;
}

ZYRDC_API ZyrStatus zyrsDeflateLZ77FastestGetStat_8u(const uint8_t* pSrc, int32_t srcLen,
    int32_t* pHashHead, uint32_t hashSize, uint32_t* pLitStat, uint32_t* pDistStat) {
    if (pSrc == nullptr || pHashHead == nullptr || pLitStat == nullptr || pDistStat == nullptr) {
        return StatusNullPointer;
    }
    if (srcLen < 1 || hashSize < zd::kMinHash || hashSize > zd::kMaxHash) {
        return StatusBadSize;
    }
    zd::FastestGetStat(pSrc, srcLen, pHashHead, hashSize, pLitStat, pDistStat);
    return StatusOk;
}

ZYRDC_API ZyrStatus zyrsDeflateLZ77FastestGenHuffTable_8u(const uint32_t* pLitStat,
    const uint32_t* pDistStat, int32_t mode, HuffCodeEntry* pLitCodes, HuffCodeEntry* pDistCodes) {
    if (pLitStat == nullptr || pDistStat == nullptr || pLitCodes == nullptr || pDistCodes == nullptr) {
        return StatusNullPointer;
    }
    if (mode < DeflateCodesUsed || mode > DeflateCodesFixed) {
        return StatusBadArgument;
    }
    zd::FastestGenHuffTable(pLitStat, pDistStat, mode, pLitCodes, pDistCodes);
    return StatusOk;
}

ZYRDC_API ZyrStatus zyrsDeflateLZ77FastestPrecompHeader_8u(int32_t blockType,
    const HuffCodeEntry* pLitCodes, const HuffCodeEntry* pDistCodes, DeflateBlockHeader* pHeader) {
    if (pLitCodes == nullptr || pDistCodes == nullptr || pHeader == nullptr) {
        return StatusNullPointer;
    }
    if (blockType < DeflateBlockStored || blockType > DeflateBlockDynamic) {
        return StatusBadArgument;
    }
    return zd::FastestPrecompHeader(blockType, pLitCodes, pDistCodes, pHeader);
}

ZYRDC_API ZyrStatus zyrsDeflateLZ77FastestGenHeader_8u(const DeflateBlockHeader* pHeader,
    int32_t final, int32_t storedLen, uint16_t* pCode, uint32_t* pCodeLenBits, uint8_t* pDst,
    uint32_t dstLen, uint32_t* pDstIdx) {
    if (pHeader == nullptr || pCode == nullptr || pCodeLenBits == nullptr || pDst == nullptr ||
        pDstIdx == nullptr) {
        return StatusNullPointer;
    }
    if (*pCodeLenBits > 15 || *pDstIdx > dstLen || storedLen < 0 || storedLen > 65535) {
        return StatusBadSize;
    }
    const uint32_t type = pHeader->blockType, bits = pHeader->bitLen;
    if (pHeader->magic != zd::kBlockHeaderMagic || type > DeflateBlockDynamic ||
        (type == DeflateBlockDynamic ? bits < 30 || bits > zd::kMaxHeaderBits : bits != 3)) {
        return StatusBadContext;
    }
    if (final != 0 && final != 1) {
        return StatusBadArgument;
    }
    return zd::FastestGenHeader(pHeader, final, storedLen, pCode, pCodeLenBits, pDst, dstLen, pDstIdx);
}

ZYRDC_API ZyrStatus zyrsDeflateLZ77Fastest_8u(const uint8_t** ppSrc, int32_t* pSrcLen,
    int32_t* pSrcIdx, const uint8_t* pWindow, uint32_t winSize, int32_t* pHashHead,
    uint32_t hashSize, const HuffCodeEntry* pLitCodes, const HuffCodeEntry* pDistCodes,
    uint16_t* pCode, uint32_t* pCodeLenBits, uint8_t* pDst, uint32_t dstLen, uint32_t* pDstIdx,
    int32_t flush) {
    if (ppSrc == nullptr || pSrcLen == nullptr || pSrcIdx == nullptr || pWindow == nullptr ||
        pHashHead == nullptr || pLitCodes == nullptr || pDistCodes == nullptr || pCode == nullptr ||
        pCodeLenBits == nullptr || pDst == nullptr || pDstIdx == nullptr) {
        return StatusNullPointer;
    }
    if (*ppSrc == nullptr) {
        return StatusNullPointer;
    }
    if (!SizesOk(winSize, hashSize) || *pSrcLen < 0 || *pCodeLenBits > 15 || *pDstIdx > dstLen) {
        return StatusBadSize;
    }
    if (flush < FastestFlushNone || flush > FastestFlushFinish) {
        return StatusBadArgument;
    }
    // Codes are fixed before the pass: every symbol it may emit needs one.
    for (int s = 0; s < 286; ++s) {
        if (pLitCodes[s].len == 0 || pLitCodes[s].len > 15) return StatusBadHuffmanCode;
    }
    for (int s = 0; s < 30; ++s) {
        if (pDistCodes[s].len == 0 || pDistCodes[s].len > 15) return StatusBadHuffmanCode;
    }
    int32_t srcIdx = *pSrcIdx;
    zd::RebaseHeadIfNeeded(srcIdx, *pSrcLen, pHashHead, hashSize, winSize);
    zd::FastestCall c{*ppSrc,    *pSrcLen,   srcIdx, pWindow, winSize, pHashHead, hashSize,
                      pLitCodes, pDistCodes, *pCode, *pCodeLenBits, pDst, dstLen,  *pDstIdx,
                      flush};
    int32_t consumed = 0;
    const ZyrStatus status = zd::Fastest(c, consumed);
    *ppSrc += consumed;
    *pSrcLen -= consumed;
    *pSrcIdx = srcIdx + consumed;
    *pCode = static_cast<uint16_t>(c.code);
    *pCodeLenBits = c.codeBits;
    *pDstIdx = c.dstIdx;
    return status;
}

}  // extern "C"
