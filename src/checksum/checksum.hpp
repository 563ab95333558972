// checksum.hpp - internal interface of the checksum family (used by the C entry points,
// tests and benchmarks).
#pragma once

#include <cstddef>
#include <cstdint>

namespace zyrdc::checksum {

inline constexpr uint32_t kAdlerMod = 65521;

// Adler-32 update of the value (B << 16 | A) by n bytes; both halves of the result are
// reduced modulo 65521. The halves may come in unreduced (below 65536).
uint32_t Adler32Scalar(uint32_t adler, const uint8_t* p, size_t n);
uint32_t Adler32Sse2(uint32_t adler, const uint8_t* p, size_t n);

enum class CrcKind { Crc32, Crc32C, Bzip2 };

// Raw register updates, all in the reflected (right-shifting) form; the bzip2 register is
// kept byte-reversed so that it shares the loop shape (see crc_tables.hpp).
uint32_t CrcBytewise(CrcKind kind, uint32_t reg, const uint8_t* p, size_t n);
uint32_t CrcSliced(CrcKind kind, uint32_t reg, const uint8_t* p, size_t n);
uint32_t CrcInterleaved(CrcKind kind, uint32_t reg, const uint8_t* p, size_t n);

}  // namespace zyrdc::checksum
