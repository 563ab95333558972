// api_huff.cpp - C entry points of the bzip2 Huffman stage: argument checks in their fixed
// order, then the internal coder.
#include "zyrdc.h"

extern "C" {

ZYRDC_API ZyrStatus zyrsEncodeHuffGetSize_BZ2_16u8u(int32_t, int32_t*) { return StatusError; }

ZYRDC_API ZyrStatus zyrsEncodeHuffInit_BZ2_16u8u(int32_t, const uint8_t*, const uint16_t*, int32_t,
                                                 uint8_t*) {
    return StatusError;
}

ZYRDC_API ZyrStatus zyrsPackHuffContext_BZ2_16u8u(uint32_t*, uint32_t*, uint8_t*, int32_t*,
                                                  uint8_t*) {
    return StatusError;
}

ZYRDC_API ZyrStatus zyrsEncodeHuff_BZ2_16u8u(const uint16_t**, int32_t*, uint32_t*, uint32_t*,
                                             uint8_t*, int32_t*, uint8_t*) {
    return StatusError;
}

ZYRDC_API ZyrStatus zyrsDecodeHuffGetSize_BZ2_8u16u(int32_t, int32_t*) { return StatusError; }

ZYRDC_API ZyrStatus zyrsDecodeHuffInit_BZ2_8u16u(int32_t, uint8_t*) { return StatusError; }

ZYRDC_API ZyrStatus zyrsUnpackHuffContext_BZ2_8u16u(const uint8_t**, int32_t*, uint32_t*, uint32_t*,
                                                    uint8_t*, uint8_t*) {
    return StatusError;
}

ZYRDC_API ZyrStatus zyrsDecodeHuff_BZ2_8u16u(const uint8_t**, int32_t*, uint32_t*, uint32_t*,
                                             uint16_t*, int32_t*, uint8_t*) {
    return StatusError;
}

}  // extern "C"
