// api.cpp - C entry points of the LZ4 block family: the decoders' dispatch between their
// three cores, the encoders' check orders (some clear the table before checking anything
// else), then one call into the internal coders.
#include <cstdint>

#include "lz4/hc.hpp"
#include "lz4/lz4.hpp"
#include "lz4/sequences.hpp"
#include "zyrdc.h"

namespace {

using zyrdc::lz4::Core;

// The destination address dstIdx bytes into pDst, computed as an address so that a null
// pDst with a non-zero index reaches the null check as the address it makes.
uint8_t* Offset(uint8_t* p, int32_t idx) {
    return reinterpret_cast<uint8_t*>(reinterpret_cast<uintptr_t>(p) + static_cast<uintptr_t>(idx));
}

// The checks every core begins with, the decoding, and the counts written back on success
// and on the two warnings.
ZyrStatus DecodeChecked(Core core, const uint8_t* src, int32_t* pSrcLen, uint8_t* dst,
                        int32_t dstIdx, int32_t* pDstLen, const uint8_t* dict, int32_t dictSize) {
    if (src == nullptr || pSrcLen == nullptr || dst == nullptr || pDstLen == nullptr) {
        return StatusNullPointer;
    }
    if (*pSrcLen < 1 || *pDstLen < 1 || (core == Core::Separate && dictSize < 1)) {
        return StatusBadSize;
    }
    const zyrdc::lz4::DecodeArgs args{src, *pSrcLen, Offset(dst, dstIdx), *pDstLen,
                                      dstIdx, dict, dictSize};
    const zyrdc::lz4::DecodeResult r = zyrdc::lz4::Decode(core, args);
    if (r.status == StatusOk || r.status == StatusSrcExhausted || r.status == StatusDstFull) {
        *pSrcLen = r.consumed;
        *pDstLen = r.written;
    }
    return r.status;
}

}  // namespace

extern "C" {

ZYRDC_API ZyrStatus zyrsDecodeLZ4_8u(const uint8_t* pSrc, int32_t srcLen, uint8_t* pDst,
                                     int32_t* pDstLen) {
    int32_t consumed = srcLen;  // computed by the core, not reported here
    return DecodeChecked(Core::Plain, pSrc, &consumed, pDst, 0, pDstLen, nullptr, 0);
}

ZYRDC_API ZyrStatus zyrsDecodeLZ4Dict_8u(const uint8_t* pSrc, int32_t* pSrcLen, uint8_t* pDst,
                                         int32_t dstIdx, int32_t* pDstLen, const uint8_t* pDict,
                                         int32_t dictSize) {
    // The core is chosen before anything is checked. Without a dictionary the bytes before
    // dstIdx are not history; a dictionary that ends where writing begins is history in place.
    uint8_t* const start = Offset(pDst, dstIdx);
    if (pDict == nullptr || dictSize == 0) {
        return DecodeChecked(Core::Plain, pSrc, pSrcLen, start, 0, pDstLen, nullptr, 0);
    }
    if (reinterpret_cast<uintptr_t>(pDict) + static_cast<uintptr_t>(dictSize) ==
        reinterpret_cast<uintptr_t>(start)) {
        return DecodeChecked(Core::Prefix, pSrc, pSrcLen, start, 0, pDstLen, pDict, dictSize);
    }
    return DecodeChecked(Core::Separate, pSrc, pSrcLen, pDst, dstIdx, pDstLen, pDict, dictSize);
}

ZYRDC_API ZyrStatus zyrsEncodeLZ4HashTableGetSize_8u(int32_t* pHashTableSize) {
    if (pHashTableSize == nullptr) {
        return StatusNullPointer;
    }
    *pHashTableSize = zyrdc::lz4::kHashTableBytes;
    return StatusOk;
}

ZYRDC_API ZyrStatus zyrsEncodeLZ4HashTableInit_8u(uint8_t* pHashTable, int32_t srcLen) {
    if (pHashTable == nullptr) {
        return StatusNullPointer;
    }
    if (srcLen < 1) {
        return StatusBadSize;
    }
    return zyrdc::lz4::ClearTable(pHashTable, srcLen);
}

ZYRDC_API ZyrStatus zyrsEncodeLZ4_8u(const uint8_t* pSrc, int32_t srcLen, uint8_t* pDst,
                                     int32_t* pDstLen, uint8_t* pHashTable) {
    // The table is cleared first, whatever the other arguments; a null table fails there.
    if (const ZyrStatus s = zyrdc::lz4::ClearTable(pHashTable, srcLen); s != StatusOk) {
        return s;
    }
    if (pSrc == nullptr || pDst == nullptr || pDstLen == nullptr) {
        return StatusNullPointer;
    }
    if (srcLen < 1) {
        return StatusBadSize;
    }
    *pDstLen = zyrdc::lz4::EncodeGreedy(pSrc, srcLen, pDst, -1, pHashTable).written;
    return StatusOk;
}

ZYRDC_API ZyrStatus zyrsEncodeLZ4Safe_8u(const uint8_t* pSrc, int32_t* pSrcLen, uint8_t* pDst,
                                         int32_t* pDstLen, uint8_t* pHashTable) {
    if (pSrcLen == nullptr) {
        return StatusNullPointer;
    }
    if (const ZyrStatus s = zyrdc::lz4::ClearTable(pHashTable, *pSrcLen); s != StatusOk) {
        return s;
    }
    if (pSrc == nullptr || pDst == nullptr || pDstLen == nullptr) {
        return StatusNullPointer;
    }
    if (*pSrcLen < 1 || *pDstLen < 1) {
        return StatusBadSize;
    }
    const zyrdc::lz4::EncodeResult r =
        zyrdc::lz4::EncodeGreedy(pSrc, *pSrcLen, pDst, *pDstLen, pHashTable);
    const ZyrStatus status = r.consumed < *pSrcLen ? StatusDstFull : StatusOk;
    *pSrcLen = r.consumed;
    *pDstLen = r.written;
    return status;
}

ZYRDC_API ZyrStatus zyrsEncodeLZ4Fast_8u(const uint8_t* pSrc, int32_t srcLen, uint8_t* pDst,
                                         int32_t* pDstLen, uint8_t* pHashTable,
                                         int32_t acceleration) {
    if (acceleration == 1) {
        return zyrsEncodeLZ4_8u(pSrc, srcLen, pDst, pDstLen, pHashTable);
    }
    if (pSrc == nullptr || pDst == nullptr || pDstLen == nullptr || pHashTable == nullptr) {
        return StatusNullPointer;
    }
    if (srcLen < 1) {
        return StatusBadSize;
    }
    if (acceleration < 1) {
        return StatusBadAcceleration;
    }
    // Cannot fail now that the table is known to be there.
    if (const ZyrStatus s = zyrdc::lz4::ClearTableAccelerated(pHashTable, srcLen); s != StatusOk) {
        return s;
    }
    *pDstLen = zyrdc::lz4::EncodeAccelerated(pSrc, srcLen, pDst, pHashTable, acceleration).written;
    return StatusOk;
}

// ---- high compression ------------------------------------------------------------------

ZYRDC_API ZyrStatus zyrsEncodeLZ4HCHashTableGetSize_8u(int32_t* pSize) {
    if (pSize == nullptr) {
        return StatusNullPointer;
    }
    *pSize = zyrdc::lz4::kHcRecordBytes;
    return StatusOk;
}

ZYRDC_API ZyrStatus zyrsEncodeLZ4HCHashTableInit_8u(uint8_t* pHashTable) {
    if (pHashTable == nullptr) {
        return StatusNullPointer;
    }
    zyrdc::lz4::HcInit(pHashTable);
    return StatusOk;
}

}  // extern "C"

namespace {

// What both high-compression entry points check after their own size checks, the coding,
// and the counts written back on StatusOk and StatusDstFull alike.
ZyrStatus EncodeHcChecked(const uint8_t* pSrc, int32_t srcIdx, int32_t* pSrcLen, uint8_t* pDst,
                          int32_t* pDstLen, uint8_t* pHashTable, int32_t level, int32_t dictLimit,
                          bool linked) {
    if (!zyrdc::lz4::HcHasMagic(pHashTable)) {
        return StatusBadContext;
    }
    if (level < 1 || level > zyrdc::lz4::kHcLevels) {
        return StatusBadArgument;
    }
    const zyrdc::lz4::EncodeResult r = zyrdc::lz4::EncodeHc(pHashTable, pSrc, srcIdx, *pSrcLen, dictLimit,
                                                            linked, pDst, *pDstLen, level);
    const ZyrStatus status = r.consumed < *pSrcLen ? StatusDstFull : StatusOk;
    *pSrcLen = r.consumed;
    *pDstLen = r.written;
    return status;
}

bool BadSourceLength(int32_t n) { return n < 1 || n > zyrdc::lz4::kLargestSource; }

}  // namespace

extern "C" {

ZYRDC_API ZyrStatus zyrsEncodeLZ4HC_8u(const uint8_t* pSrc, int32_t* pSrcLen, uint8_t* pDst,
                                       int32_t* pDstLen, uint8_t* pHashTable, int32_t level) {
    if (pSrc == nullptr || pSrcLen == nullptr || pDst == nullptr || pDstLen == nullptr ||
        pHashTable == nullptr) {
        return StatusNullPointer;
    }
    if (BadSourceLength(*pSrcLen) || *pDstLen < 1) {
        return StatusBadSize;
    }
    return EncodeHcChecked(pSrc, 0, pSrcLen, pDst, pDstLen, pHashTable, level, 0, false);
}

ZYRDC_API ZyrStatus zyrsEncodeLZ4HCDictLimit_8u(const uint8_t* pSrc, int32_t srcIdx, int32_t* pSrcLen,
                                                uint8_t* pDst, int32_t* pDstLen, uint8_t* pHashTable,
                                                int32_t level, int32_t dictLimit) {
    if (pSrc == nullptr || pSrcLen == nullptr || pDst == nullptr || pDstLen == nullptr ||
        pHashTable == nullptr) {
        return StatusNullPointer;
    }
    if (BadSourceLength(*pSrcLen) || *pDstLen < 1 || srcIdx < 0 || dictLimit < 0 || dictLimit > srcIdx ||
        int64_t{srcIdx} + *pSrcLen > INT32_MAX) {
        return StatusBadSize;
    }
    return EncodeHcChecked(pSrc, srcIdx, pSrcLen, pDst, pDstLen, pHashTable, level, dictLimit, true);
}

// ---- dictionary ----------------------------------------------------------------------------

ZYRDC_API ZyrStatus zyrsEncodeLZ4DictHashTableInit_8u(uint8_t* pHashTable) {
    if (pHashTable == nullptr) {
        return StatusNullPointer;
    }
    zyrdc::lz4::DictTableClear(pHashTable);
    return StatusOk;
}

ZYRDC_API ZyrStatus zyrsEncodeLZ4LoadDict_8u(const uint8_t* pDict, int32_t dictLen, uint8_t* pHashTable) {
    if (pDict == nullptr || pHashTable == nullptr) {
        return StatusNullPointer;
    }
    if (dictLen < 1) {
        return StatusBadSize;
    }
    zyrdc::lz4::LoadDictionary(pDict, dictLen, pHashTable);
    return StatusOk;
}

ZYRDC_API ZyrStatus zyrsEncodeLZ4Dict_8u(const uint8_t* pSrc, int32_t srcLen, uint8_t* pDst,
                                         int32_t* pDstLen, uint8_t* pHashTable, const uint8_t* pDict,
                                         int32_t dictLen) {
    if (pSrc == nullptr || pDst == nullptr || pDstLen == nullptr || pHashTable == nullptr) {
        return StatusNullPointer;
    }
    if (BadSourceLength(srcLen) || dictLen < 0) {
        return StatusBadSize;
    }
    *pDstLen = zyrdc::lz4::EncodeWithDictionary(pSrc, srcLen, pDst, -1, pHashTable, pDict, dictLen).written;
    return StatusOk;
}

ZYRDC_API ZyrStatus zyrsEncodeLZ4DictSafe_8u(const uint8_t* pSrc, int32_t* pSrcLen, uint8_t* pDst,
                                             int32_t* pDstLen, uint8_t* pHashTable, const uint8_t* pDict,
                                             int32_t dictLen) {
    if (pSrc == nullptr || pSrcLen == nullptr || pDst == nullptr || pDstLen == nullptr ||
        pHashTable == nullptr) {
        return StatusNullPointer;
    }
    if (BadSourceLength(*pSrcLen) || *pDstLen < 1 || dictLen < 0) {
        return StatusBadSize;
    }
    const zyrdc::lz4::EncodeResult r =
        zyrdc::lz4::EncodeWithDictionary(pSrc, *pSrcLen, pDst, *pDstLen, pHashTable, pDict, dictLen);
    const ZyrStatus status = r.consumed < *pSrcLen ? StatusDstFull : StatusOk;
    *pSrcLen = r.consumed;
    *pDstLen = r.written;
    return status;
}

}  // extern "C"
