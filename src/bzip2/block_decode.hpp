// block_decode.hpp - the bzip2 block decoder: zero-run symbols of one block back to its
// bytes (zero runs, move-to-front over the values in use, the inverse transform's links, the
// transform walk and the run-length stage) in one call, output continued across calls.
#pragma once

#include <cstdint>

#include "bzip2/bzip2.hpp"
#include "zyrdc.h"

namespace zyrdc::bzip2 {

inline constexpr int32_t kMaxBlockSize = 900000;
inline constexpr uint32_t kBlockMagic = 0x7A42424Bu;

// The block buffer: a 64-byte header, 256 counts and blockSize 32-bit entries (link << 8 |
// byte) from a 64-byte boundary inside it; the size allows for the alignment.
constexpr int32_t BlockBufferBytes(int32_t block_size) { return 4 * block_size + 1152; }

// Stage words of the header.
inline constexpr uint32_t kBlockStageOutput = 1;  // bytes still to hand out
inline constexpr uint32_t kBlockStageDone = 2;

// True when the buffer holds a block of `block_size` whose output is not finished (and whose
// header is consistent), so that a call without symbols may continue it.
bool BlockInProgress(const uint8_t* buffer, int32_t block_size);

// Starting call (src_len >= 1): checks the in-use table (StatusError) and the symbols and
// origPtr (StatusCorruptStream), builds the block in the buffer, then hands out bytes as
// BlockOutput does. Nothing is written to dst on an error.
Progress DecodeBlockStart(const uint16_t* src, int32_t src_len, const uint8_t* in_use,
                          int32_t orig_ptr, int32_t block_size, uint8_t* dst, int32_t dst_cap,
                          uint8_t* buffer);
// Continues the output of the block in progress: StatusOk once its last byte is written
// (the end is noticed before a lack of room), StatusDstFull when dst filled first.
Progress BlockOutput(uint8_t* dst, int32_t dst_cap, uint8_t* buffer);

}  // namespace zyrdc::bzip2
