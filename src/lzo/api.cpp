// api.cpp - C entry points of the LZO1X family. Decoders: null checks, then the entry
// sequence shared by both (empty source, lone end marker, container test), then a plain
// stream. Encoder: the state record's checks, then one of the three coders.
#include <cstring>

#include "core/bits.hpp"
#include "lzo/encode.hpp"
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

// The size and method checks shared by the size query and Init.
ZyrStatus CheckEncoderArgs(int32_t method, uint32_t maxInputLen) {
    if (maxInputLen == 0 || maxInputLen > kMaxSourceLen) {
        return StatusBadSize;
    }
    if (method < LzoMethodFast || method > LzoMethodHigh) {
        return StatusBadArgument;
    }
    return StatusOk;
}

// A record is usable when it carries the magic, a method and the table bits that method
// allows.
bool RecordValid(const uint8_t* state) {
    if (load_u32le(state + kOffMagic) != kEncoderMagic) return false;
    const uint32_t method = load_u32le(state + kOffMethod);
    const uint32_t bits = load_u32le(state + kOffHashBits);
    if (method == LzoMethodHigh) return bits == kHighHashBits;
    return method <= LzoMethodSegmented && bits >= kFastHashBitsMin && bits <= kFastHashBitsMax;
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

extern "C" {

ZYRDC_API ZyrStatus zyrsEncodeLZOGetSize(int32_t method, uint32_t maxInputLen, uint32_t* pSize) {
    using namespace zyrdc::lzo;
    if (pSize == nullptr) {
        return StatusNullPointer;
    }
    const ZyrStatus status = CheckEncoderArgs(method, maxInputLen);
    if (status != StatusOk) {
        return status;
    }
    *pSize = StateBytes(method, maxInputLen);
    return StatusOk;
}

ZYRDC_API ZyrStatus zyrsEncodeLZOInit_8u(int32_t method, uint32_t maxInputLen, uint8_t* pState) {
    using namespace zyrdc::lzo;
    if (pState == nullptr) {
        return StatusNullPointer;
    }
    const ZyrStatus status = CheckEncoderArgs(method, maxInputLen);
    if (status != StatusOk) {
        return status;
    }
    // The tables are cleared by every Encode; only the header words are laid out here.
    std::memset(pState, 0, kStateHeaderBytes);
    zyrdc::store_u32le(pState + kOffMagic, kEncoderMagic);
    zyrdc::store_u32le(pState + kOffMethod, static_cast<uint32_t>(method));
    zyrdc::store_u32le(pState + kOffMaxInput, maxInputLen);
    zyrdc::store_u32le(pState + kOffHashBits,
                       method == LzoMethodHigh ? kHighHashBits : FastHashBits(maxInputLen));
    return StatusOk;
}

ZYRDC_API ZyrStatus zyrsEncodeLZO_8u(const uint8_t* pSrc, uint32_t srcLen, uint8_t* pDst,
                                     uint32_t* pDstLen, uint8_t* pState) {
    using namespace zyrdc::lzo;
    if (pSrc == nullptr || pDst == nullptr || pDstLen == nullptr || pState == nullptr) {
        return StatusNullPointer;
    }
    if (srcLen > kMaxSourceLen) {
        return StatusBadSize;
    }
    if (!RecordValid(pState)) {
        return StatusBadContext;
    }
    const auto method = static_cast<int32_t>(zyrdc::load_u32le(pState + kOffMethod));
    const uint32_t bits = zyrdc::load_u32le(pState + kOffHashBits);
    // The bound depends on the record's method, so this size check follows the record's.
    if (*pDstLen < EncodeBound(method, srcLen)) {
        return StatusBadSize;
    }
    uint8_t* const tables = pState + kStateHeaderBytes;
    size_t written = 0;
    if (method == LzoMethodFast) {
        written = EncodeFast(pSrc, srcLen, pDst, *pDstLen, tables, bits);
    } else if (method == LzoMethodSegmented) {
        written = EncodeSegmented(pSrc, srcLen, pDst, *pDstLen, tables, bits);
    } else {
        written = EncodeHigh(pSrc, srcLen, pDst, *pDstLen, tables);
    }
    *pDstLen = static_cast<uint32_t>(written);
    return StatusOk;
}

}  // extern "C"
