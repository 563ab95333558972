// crc32.cpp - CRC-32, CRC-32C and bzip2 CRC register updates: byte at a time, sliced by 8,
// and interleaved sliced lanes for long buffers.
#include <cstddef>
#include <cstdint>

#include "checksum/checksum.hpp"
#include "checksum/crc_tables.hpp"
#include "core/bits.hpp"

namespace zyrdc::checksum {

namespace {

const CrcTables& TablesFor(CrcKind kind) {
    switch (kind) {
        case CrcKind::Crc32: return kCrc32Tables;
        case CrcKind::Crc32C: return kCrc32CTables;
        case CrcKind::Bzip2: return kBzip2Tables;
    }
    return kCrc32Tables;
}

inline uint32_t ByteStep(const CrcTables& t, uint32_t reg, uint8_t x) {
    return (reg >> 8) ^ t.slice[0][(reg ^ x) & 0xFF];
}

// Eight bytes in one step: the register folds into the first four, and each byte is looked
// up in the table that accounts for the bytes still following it.
inline uint32_t Step8(const CrcTables& t, uint32_t reg, const uint8_t* p) {
    const uint32_t lo = reg ^ load_u32le(p);
    const uint32_t hi = load_u32le(p + 4);
    return t.slice[7][lo & 0xFF] ^ t.slice[6][(lo >> 8) & 0xFF] ^
           t.slice[5][(lo >> 16) & 0xFF] ^ t.slice[4][lo >> 24] ^
           t.slice[3][hi & 0xFF] ^ t.slice[2][(hi >> 8) & 0xFF] ^
           t.slice[1][(hi >> 16) & 0xFF] ^ t.slice[0][hi >> 24];
}

inline uint32_t ShiftLane(const CrcTables& t, uint32_t reg) {
    return t.shift[0][reg & 0xFF] ^ t.shift[1][(reg >> 8) & 0xFF] ^
           t.shift[2][(reg >> 16) & 0xFF] ^ t.shift[3][reg >> 24];
}

uint32_t Bytes(const CrcTables& t, uint32_t reg, const uint8_t* p, size_t n) {
    for (size_t i = 0; i < n; ++i) {
        reg = ByteStep(t, reg, p[i]);
    }
    return reg;
}

// Single bytes up to an 8-byte boundary, then 8 bytes a step; returns with p and n advanced
// past the whole steps. Needs n of at least 7.
uint32_t SlicedBody(const CrcTables& t, uint32_t reg, const uint8_t*& p, size_t& n) {
    const size_t head = bytes_to_boundary(p, 8);
    reg = Bytes(t, reg, p, head);
    p += head;
    n -= head;
    for (; n >= 8; n -= 8, p += 8) {
        reg = Step8(t, reg, p);
    }
    return reg;
}

// Below this many bytes the slicing set-up costs more than it saves.
constexpr size_t kSlicedMin = 16;

}  // namespace

uint32_t CrcBytewise(CrcKind kind, uint32_t reg, const uint8_t* p, size_t n) {
    return Bytes(TablesFor(kind), reg, p, n);
}

uint32_t CrcSliced(CrcKind kind, uint32_t reg, const uint8_t* p, size_t n) {
    const CrcTables& t = TablesFor(kind);
    if (n >= kSlicedMin) {
        reg = SlicedBody(t, reg, p, n);
    }
    return Bytes(t, reg, p, n);
}

// One sliced lane is bound by the latency of its table look-ups; independent lanes over
// consecutive kLane-byte pieces keep the load ports busy instead. The lanes are joined with
// the shift tables: crc(r, A||B||C) = shift(shift(crc(r, A)) ^ crc(0, B)) ^ crc(0, C).
uint32_t CrcInterleaved(CrcKind kind, uint32_t reg, const uint8_t* p, size_t n) {
    const CrcTables& t = TablesFor(kind);
    if (n < kSlicedMin) {
        return Bytes(t, reg, p, n);
    }
    const size_t head = bytes_to_boundary(p, 8);
    reg = Bytes(t, reg, p, head);
    p += head;
    n -= head;
    for (; n >= kLanes * kLane; n -= kLanes * kLane, p += kLanes * kLane) {
        uint32_t r[kLanes] = {};
        r[0] = reg;
        for (size_t i = 0; i < kLane; i += 8) {
            for (size_t l = 0; l < kLanes; ++l) {
                r[l] = Step8(t, r[l], p + l * kLane + i);
            }
        }
        reg = r[0];
        for (size_t l = 1; l < kLanes; ++l) {
            reg = ShiftLane(t, reg) ^ r[l];
        }
    }
    for (; n >= 8; n -= 8, p += 8) {
        reg = Step8(t, reg, p);
    }
    return Bytes(t, reg, p, n);
}

}  // namespace zyrdc::checksum
