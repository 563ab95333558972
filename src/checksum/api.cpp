// api.cpp - C entry points of the checksum family: argument checks in their fixed order,
// then the internal update.
#include "checksum/checksum.hpp"
#include "core/bits.hpp"
#include "zyrdc.h"

using zyrdc::checksum::CrcKind;

extern "C" {

ZYRDC_API ZyrStatus zyrsAdler32_8u(const uint8_t* pSrc, int32_t srcLen, uint32_t* pAdler) {
    if (pAdler == nullptr) {
        return StatusNullPointer;
    }
    if (pSrc == nullptr) {
        *pAdler = 1;  // a null source starts a new checksum
        return StatusOk;
    }
    // No length check: a length of zero or below adds nothing, yet the halves are still
    // reduced on the way out.
    const size_t n = srcLen > 0 ? static_cast<size_t>(srcLen) : 0;
    *pAdler = zyrdc::checksum::Adler32Sse2(*pAdler, pSrc, n);
    return StatusOk;
}

ZYRDC_API ZyrStatus zyrsCRC32_8u(const uint8_t* pSrc, int32_t srcLen, uint32_t* pCRC) {
    if (pSrc == nullptr || pCRC == nullptr) {
        return StatusNullPointer;
    }
    if (srcLen <= 0) {
        return StatusBadSize;
    }
    // The caller holds the finished CRC: invert on the way in and on the way out.
    *pCRC = ~zyrdc::checksum::CrcInterleaved(CrcKind::Crc32, ~*pCRC, pSrc,
                                             static_cast<size_t>(srcLen));
    return StatusOk;
}

ZYRDC_API ZyrStatus zyrsCRC32C_8u(const uint8_t* pSrc, int32_t srcLen, uint32_t* pCRC) {
    if (pSrc == nullptr || pCRC == nullptr) {
        return StatusNullPointer;
    }
    // The length is an unsigned count here: only zero is refused, and a negative value
    // stands for a count above 2^31 - 1.
    if (srcLen == 0) {
        return StatusBadSize;
    }
    // The caller holds the raw register, inverted in neither direction.
    *pCRC = zyrdc::checksum::CrcInterleaved(CrcKind::Crc32C, *pCRC, pSrc,
                                            static_cast<uint32_t>(srcLen));
    return StatusOk;
}

ZYRDC_API ZyrStatus zyrsCRC32_BZ2_8u(const uint8_t* pSrc, int32_t srcLen, uint32_t* pCRC) {
    if (pSrc == nullptr || pCRC == nullptr) {
        return StatusNullPointer;
    }
    if (srcLen <= 0) {
        return StatusBadSize;
    }
    // The caller holds the finished CRC; the loop works on the inverted, byte-reversed
    // register.
    const uint32_t reg = zyrdc::checksum::CrcInterleaved(
        CrcKind::Bzip2, zyrdc::byte_swap32(~*pCRC), pSrc, static_cast<size_t>(srcLen));
    *pCRC = ~zyrdc::byte_swap32(reg);
    return StatusOk;
}

}  // extern "C"
