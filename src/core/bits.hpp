// bits.hpp - byte-order and unaligned-access helpers shared by every subsystem.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace zyrdc {

// Unaligned loads and stores go through memcpy: the compilers turn it into one move, and
// it is the only form that is defined behaviour at any alignment.
inline uint16_t load_u16le(const uint8_t* p) {
    uint16_t v;
    std::memcpy(&v, p, sizeof v);
    return v;
}
inline uint32_t load_u32le(const uint8_t* p) {
    uint32_t v;
    std::memcpy(&v, p, sizeof v);
    return v;
}
inline uint64_t load_u64le(const uint8_t* p) {
    uint64_t v;
    std::memcpy(&v, p, sizeof v);
    return v;
}
inline void store_u16le(uint8_t* p, uint16_t v) { std::memcpy(p, &v, sizeof v); }
inline void store_u32le(uint8_t* p, uint32_t v) { std::memcpy(p, &v, sizeof v); }
inline void store_u64le(uint8_t* p, uint64_t v) { std::memcpy(p, &v, sizeof v); }

constexpr uint32_t byte_swap32(uint32_t v) {
    return (v >> 24) | ((v >> 8) & 0xFF00u) | ((v << 8) & 0xFF0000u) | (v << 24);
}

// Bytes from p up to the next multiple of `align` (a power of two).
inline size_t bytes_to_boundary(const void* p, size_t align) {
    return (align - (reinterpret_cast<uintptr_t>(p) & (align - 1))) & (align - 1);
}

}  // namespace zyrdc
