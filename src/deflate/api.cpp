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

}  // extern "C"
