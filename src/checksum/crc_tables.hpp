// crc_tables.hpp - CRC lookup tables generated at compile time from the polynomials.
//
// All three CRCs run the same right-shifting step, reg = (reg >> 8) ^ T0[(reg ^ x) & 0xFF].
// CRC-32 and CRC-32C are reflected CRCs and use it directly. The bzip2 CRC shifts left
// (most significant bit first); storing its register and every table entry with the four
// bytes reversed turns its left-shifting step into exactly the step above, because a byte
// reversal maps "shift left by 8, index by the top byte" onto "shift right by 8, index by
// the bottom byte".
//
// Table k (k = 1..7) is the effect of a byte followed by k zero bytes, which lets the
// sliced loop fold 8 bytes per step. The shift table folds the register over kLane zero
// bytes, which is how the interleaved loop joins its independent lanes: the register is
// linear in its starting value, so crc(s, A||B) = shift_|B|(crc(s, A)) ^ crc(0, B).
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "core/bits.hpp"

namespace zyrdc::checksum {

using ByteTable = std::array<uint32_t, 256>;

struct CrcTables {
    std::array<ByteTable, 8> slice;
    std::array<ByteTable, 4> shift;  // register byte k -> its image after kLane zero bytes
};

// The interleaved loop runs kLanes lanes of kLane bytes a round. Four lanes measured best on
// recent cores (two leave the table look-ups latency-bound, five add nothing).
inline constexpr size_t kLane = 256;
inline constexpr size_t kLanes = 4;
static_assert(kLane % 8 == 0, "lanes advance in whole 8-byte steps");

constexpr ByteTable ReflectedByteTable(uint32_t poly) {
    ByteTable t{};
    for (uint32_t b = 0; b < 256; ++b) {
        uint32_t r = b;
        for (int i = 0; i < 8; ++i) {
            r = (r & 1) ? (r >> 1) ^ poly : r >> 1;
        }
        t[b] = r;
    }
    return t;
}

// Most-significant-bit-first table, each entry stored byte-reversed.
constexpr ByteTable ByteReversedMsbTable(uint32_t poly) {
    ByteTable t{};
    for (uint32_t b = 0; b < 256; ++b) {
        uint32_t r = b << 24;
        for (int i = 0; i < 8; ++i) {
            r = (r & 0x80000000u) ? (r << 1) ^ poly : r << 1;
        }
        t[b] = byte_swap32(r);
    }
    return t;
}

constexpr uint32_t ZeroByteStep(const ByteTable& t0, uint32_t reg) {
    return (reg >> 8) ^ t0[reg & 0xFF];
}

constexpr CrcTables MakeCrcTables(const ByteTable& t0) {
    CrcTables t{};
    t.slice[0] = t0;
    for (size_t k = 1; k < 8; ++k) {
        for (size_t b = 0; b < 256; ++b) {
            t.slice[k][b] = ZeroByteStep(t0, t.slice[k - 1][b]);
        }
    }
    // The zero-byte shift is linear: find the image of every register bit, then combine.
    std::array<uint32_t, 32> bit_image{};
    for (size_t bit = 0; bit < 32; ++bit) {
        uint32_t r = uint32_t{1} << bit;
        for (size_t i = 0; i < kLane; ++i) {
            r = ZeroByteStep(t0, r);
        }
        bit_image[bit] = r;
    }
    for (size_t k = 0; k < 4; ++k) {
        for (uint32_t b = 0; b < 256; ++b) {
            uint32_t r = 0;
            for (size_t i = 0; i < 8; ++i) {
                if (b & (1u << i)) {
                    r ^= bit_image[8 * k + i];
                }
            }
            t.shift[k][b] = r;
        }
    }
    return t;
}

inline constexpr CrcTables kCrc32Tables = MakeCrcTables(ReflectedByteTable(0xEDB88320u));
inline constexpr CrcTables kCrc32CTables = MakeCrcTables(ReflectedByteTable(0x82F63B78u));
inline constexpr CrcTables kBzip2Tables = MakeCrcTables(ByteReversedMsbTable(0x04C11DB7u));

// Published entries: a wrong polynomial or bit order fails to compile.
static_assert(kCrc32Tables.slice[0][1] == 0x77073096u && kCrc32Tables.slice[0][255] == 0x2D02EF8Du);
static_assert(kCrc32CTables.slice[0][1] == 0xF26B8303u && kCrc32CTables.slice[0][255] == 0xAD7D5351u);
static_assert(byte_swap32(kBzip2Tables.slice[0][1]) == 0x04C11DB7u &&
              byte_swap32(kBzip2Tables.slice[0][255]) == 0xB1F740B4u);

}  // namespace zyrdc::checksum
