// block.hpp - what the block encoder and decoder share about a block: the places of its rows
// in a strided array, the 4 x 4 transposes around the passes along x, the negabinary mask and
// the gather of words in a permuted order.
#pragma once

#include <emmintrin.h>

#include <cstdint>

#include "zfp/tables.hpp"

namespace zyrdc::zfp {

// Negabinary digits alternate in sign, the mask marking the negative ones:
// u = (v + mask) ^ mask turns two's complement into negabinary, v = (u ^ mask) - mask back.
inline constexpr uint32_t kNegabinaryMask = 0xAAAAAAAAu;

// Bytes from element (0, 0, 0) to the row of (y, z); rows hold x = 0..3 contiguously.
inline intptr_t RowOffset(int32_t rowStep, int32_t planeStep, int y, int z) {
    return static_cast<intptr_t>(z) * planeStep + static_cast<intptr_t>(y) * rowStep;
}

// Rows r0..r3 of a 4 x 4 matrix of 32-bit lanes become its columns.
inline void Transpose4x4(__m128i& r0, __m128i& r1, __m128i& r2, __m128i& r3) {
    const __m128i t0 = _mm_unpacklo_epi32(r0, r1), t1 = _mm_unpacklo_epi32(r2, r3);
    const __m128i t2 = _mm_unpackhi_epi32(r0, r1), t3 = _mm_unpackhi_epi32(r2, r3);
    r0 = _mm_unpacklo_epi64(t0, t1);
    r1 = _mm_unpackhi_epi64(t0, t1);
    r2 = _mm_unpacklo_epi64(t2, t3);
    r3 = _mm_unpackhi_epi64(t2, t3);
}

// Values order[4i .. 4i+3] of `from` as one vector. Built in registers rather than stored one
// by one and loaded as a vector, which would stall on forwarding four stores into one load.
inline __m128i GatherPermuted(const uint32_t* from, const Permutation& order, int i) {
    const uint8_t* o = order.data() + 4 * i;
    return _mm_setr_epi32(static_cast<int32_t>(from[o[0]]), static_cast<int32_t>(from[o[1]]),
                          static_cast<int32_t>(from[o[2]]), static_cast<int32_t>(from[o[3]]));
}

// Runs `transform` over a block of 64 integers in memory (16-byte aligned) held as 16 rows.
template <class Transform>
void TransformInMemory(int32_t* block, Transform transform) {
    __m128i rows[16];
    for (int i = 0; i < 16; ++i) rows[i] = _mm_load_si128(reinterpret_cast<const __m128i*>(block + 4 * i));
    transform(rows);
    for (int i = 0; i < 16; ++i) _mm_store_si128(reinterpret_cast<__m128i*>(block + 4 * i), rows[i]);
}

}  // namespace zyrdc::zfp
