// api.cpp - C entry points of the LZO1X decoders: null checks, then the entry sequence
// shared by both (empty source, lone end marker, container test), then a plain stream.
#include <cstring>

#include "lzo/lzo.hpp"
#include "zyrdc.h"

namespace zyrdc::lzo {

namespace {

enum class Plain { Checked, Trusted };

template <Plain kPlain>
ZyrStatus DecodeEntry(const uint8_t* pSrc, uint32_t srcLen, uint8_t* pDst, uint32_t* pDstLen) {
    if (pSrc == nullptr || pDst == nullptr || pDstLen == nullptr) {
        return StatusNullPointer;
    }
    // An empty source, and the empty stream (nothing after its end marker is looked at).
    if (srcLen == 0 ||
        (srcLen >= sizeof kEndMarker && std::memcmp(pSrc, kEndMarker, sizeof kEndMarker) == 0)) {
        *pDstLen = 0;
        return StatusOk;
    }
    size_t written = 0;
    if (IsContainer(pSrc, srcLen)) {
        // The container's own total gives the room; *pDstLen is only written.
        const ZyrStatus status = DecodeContainer(pSrc, srcLen, pDst, &written);
        if (status == StatusOk) {
            *pDstLen = static_cast<uint32_t>(written);
        }
        return status;
    }
    if constexpr (kPlain == Plain::Trusted) {
        written = DecodePlainTrusted(pSrc, srcLen, pDst);
    } else {
        const ZyrStatus status = DecodePlainChecked<Copies::Wide>(pSrc, srcLen, pDst, *pDstLen, &written);
        if (status != StatusOk) {
            return status;
        }
    }
    *pDstLen = static_cast<uint32_t>(written);
    return StatusOk;
}

}  // namespace

}  // namespace zyrdc::lzo

extern "C" {

ZYRDC_API ZyrStatus zyrsDecodeLZOSafe_8u(const uint8_t* pSrc, uint32_t srcLen, uint8_t* pDst,
                                         uint32_t* pDstLen) {
    return zyrdc::lzo::DecodeEntry<zyrdc::lzo::Plain::Checked>(pSrc, srcLen, pDst, pDstLen);
}

ZYRDC_API ZyrStatus zyrsDecodeLZO_8u(const uint8_t* pSrc, uint32_t srcLen, uint8_t* pDst,
                                     uint32_t* pDstLen) {
    return zyrdc::lzo::DecodeEntry<zyrdc::lzo::Plain::Trusted>(pSrc, srcLen, pDst, pDstLen);
}

}  // extern "C"
