// copy.hpp - the shared copy and zero-fill routines and their kernels.
#pragma once

#include <cstdint>

#include "zyrdc.h"

namespace zyrdc {

// Copies below this many bytes run from the end towards the start; longer ones from the
// start towards the end. Callers never pass overlapping ranges, so neither direction
// semantics is offered.
inline constexpr int32_t kShortCopyBytes = 64;
// Above this length a copy may bypass the caches with non-temporal stores (speed only).
inline constexpr int32_t kStreamingCopyBytes = 131072;

// How a long copy or fill stores: Auto lets the processor's cache size decide (every
// library caller); the fixed policies let tests reach both store paths on any machine.
enum class Stores { Auto, Cached, Bypass };

// Copies len bytes (none when len <= 0) and returns dst. No checks.
uint8_t* CopyBytesKernel(const uint8_t* src, uint8_t* dst, int32_t len, Stores stores = Stores::Auto);
// Sets len bytes to zero (none when len <= 0) and returns dst. No checks.
uint8_t* ZeroBytesKernel(uint8_t* dst, int32_t len, Stores stores = Stores::Auto);

// Byte-at-a-time twins of the kernels, for tests and benchmarks.
uint8_t* CopyBytesScalar(const uint8_t* src, uint8_t* dst, int32_t len);
uint8_t* ZeroBytesScalar(uint8_t* dst, int32_t len);

// Checked routines shared by the subsystems: null first (StatusNullPointer), then a
// length or count below 1 (StatusBadSize).
[[nodiscard]] ZyrStatus CopyBytes_8u(const uint8_t* pSrc, uint8_t* pDst, int32_t len);
[[nodiscard]] ZyrStatus ZeroFill_32u(uint32_t* pDst, int32_t count);
[[nodiscard]] ZyrStatus ZeroFill_16u(uint16_t* pDst, int32_t count);

}  // namespace zyrdc
