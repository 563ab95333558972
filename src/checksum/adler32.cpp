// adler32.cpp - Adler-32: byte loop and SSE2 16-byte steps with deferred reduction.
#include <emmintrin.h>

#include <cstddef>
#include <cstdint>

#include "checksum/checksum.hpp"
#include "core/bits.hpp"

namespace zyrdc::checksum {

namespace {

// Largest run of bytes after which B cannot have passed 2^32, even when both incoming
// halves are unreduced (below 65536): 65535 + 5536 x 65535 + 255 x 5536 x 5537 / 2 is
// 4,271,155,495 < 2^32; at 5537 bytes it is not.
constexpr size_t kScalarRun = 5536;

// Vector rounds take 32 bytes. The per-column sums are 16-bit lanes that pmaddwd reads as
// signed, so they may reach 32767 at most: 128 rounds of bytes up to 255 (32640).
constexpr size_t kRoundBytes = 32;
constexpr size_t kRoundsPerGroup = 128;
// After a group, before reduction, B is below 65535 + 4096 x 65535 + 255 x 4096 x 4097 / 2
// = 2,408,022,015 < 2^32.
static_assert(kRoundsPerGroup * 255 <= 32767);

// Below this many bytes the vector set-up costs more than it saves.
constexpr size_t kVectorMin = 31;

inline uint32_t ByteLoop(uint32_t& a, uint32_t b, const uint8_t* p, size_t n) {
    for (size_t i = 0; i < n; ++i) {
        a += p[i];
        b += a;
    }
    return b;
}

inline uint32_t HorizontalSum(__m128i v) {
    v = _mm_add_epi32(v, _mm_shuffle_epi32(v, _MM_SHUFFLE(1, 0, 3, 2)));
    v = _mm_add_epi32(v, _mm_shuffle_epi32(v, _MM_SHUFFLE(2, 3, 0, 1)));
    return static_cast<uint32_t>(_mm_cvtsi128_si32(v));
}

// `rounds` rounds of 32 bytes from a 16-byte aligned p into (a, b), unreduced.
//
// For one round with bytes x0..x31, A grows by the byte sum and B by 32 x A_before plus
// sum (32 - j) x_j. Over the group, the 32 x A_before terms are 32 x (rounds x a) plus 32
// times the running sum of earlier rounds' byte sums (s1sum), and the weighted terms are
// the per-column byte sums times their weights, formed once at the end with pmaddwd.
void VectorGroup(uint32_t& a, uint32_t& b, const uint8_t* p, size_t rounds) {
    const __m128i zero = _mm_setzero_si128();
    __m128i s1 = zero, s1sum = zero;
    __m128i col0 = zero, col1 = zero, col2 = zero, col3 = zero;
    for (size_t r = 0; r < rounds; ++r, p += kRoundBytes) {
        const __m128i x = _mm_load_si128(reinterpret_cast<const __m128i*>(p));
        const __m128i y = _mm_load_si128(reinterpret_cast<const __m128i*>(p + 16));
        s1sum = _mm_add_epi32(s1sum, s1);
        s1 = _mm_add_epi32(s1, _mm_add_epi32(_mm_sad_epu8(x, zero), _mm_sad_epu8(y, zero)));
        col0 = _mm_add_epi16(col0, _mm_unpacklo_epi8(x, zero));
        col1 = _mm_add_epi16(col1, _mm_unpackhi_epi8(x, zero));
        col2 = _mm_add_epi16(col2, _mm_unpacklo_epi8(y, zero));
        col3 = _mm_add_epi16(col3, _mm_unpackhi_epi8(y, zero));
    }
    const __m128i w0 = _mm_setr_epi16(32, 31, 30, 29, 28, 27, 26, 25);
    const __m128i w1 = _mm_setr_epi16(24, 23, 22, 21, 20, 19, 18, 17);
    const __m128i w2 = _mm_setr_epi16(16, 15, 14, 13, 12, 11, 10, 9);
    const __m128i w3 = _mm_setr_epi16(8, 7, 6, 5, 4, 3, 2, 1);
    const __m128i weighted = _mm_add_epi32(
        _mm_add_epi32(_mm_madd_epi16(col0, w0), _mm_madd_epi16(col1, w1)),
        _mm_add_epi32(_mm_madd_epi16(col2, w2), _mm_madd_epi16(col3, w3)));
    const uint32_t rounds32 = static_cast<uint32_t>(rounds);
    b += kRoundBytes * (rounds32 * a + HorizontalSum(s1sum)) + HorizontalSum(weighted);
    a += HorizontalSum(s1);
}

// One 16-byte step from an aligned p: A grows by the byte sum, B by 16 x A_before plus
// sum (16 - j) x_j.
void VectorStep16(uint32_t& a, uint32_t& b, const uint8_t* p) {
    const __m128i zero = _mm_setzero_si128();
    const __m128i x = _mm_load_si128(reinterpret_cast<const __m128i*>(p));
    const __m128i lo = _mm_madd_epi16(_mm_unpacklo_epi8(x, zero),
                                      _mm_setr_epi16(16, 15, 14, 13, 12, 11, 10, 9));
    const __m128i hi = _mm_madd_epi16(_mm_unpackhi_epi8(x, zero),
                                      _mm_setr_epi16(8, 7, 6, 5, 4, 3, 2, 1));
    b += 16 * a + HorizontalSum(_mm_add_epi32(lo, hi));
    a += HorizontalSum(_mm_sad_epu8(x, zero));
}

}  // namespace

uint32_t Adler32Scalar(uint32_t adler, const uint8_t* p, size_t n) {
    uint32_t a = adler & 0xFFFF;
    uint32_t b = adler >> 16;
    while (n > 0) {
        const size_t now = n < kScalarRun ? n : kScalarRun;
        b = ByteLoop(a, b, p, now);
        a %= kAdlerMod;
        b %= kAdlerMod;
        p += now;
        n -= now;
    }
    return (a % kAdlerMod) | ((b % kAdlerMod) << 16);
}

uint32_t Adler32Sse2(uint32_t adler, const uint8_t* p, size_t n) {
    uint32_t a = adler & 0xFFFF;
    uint32_t b = adler >> 16;
    if (n < kVectorMin) {
        // At most 30 bytes: B stays below 65535 + 30 x (65535 + 30 x 255), no reduction due.
        b = ByteLoop(a, b, p, n);
        return (a % kAdlerMod) | ((b % kAdlerMod) << 16);
    }
    const size_t head = bytes_to_boundary(p, 16);
    b = ByteLoop(a, b, p, head);
    p += head;
    n -= head;
    while (n >= kRoundBytes) {
        size_t rounds = n / kRoundBytes;
        if (rounds > kRoundsPerGroup) {
            rounds = kRoundsPerGroup;
        }
        VectorGroup(a, b, p, rounds);
        a %= kAdlerMod;
        b %= kAdlerMod;
        p += rounds * kRoundBytes;
        n -= rounds * kRoundBytes;
    }
    if (n >= 16) {
        VectorStep16(a, b, p);
        p += 16;
        n -= 16;
    }
    b = ByteLoop(a, b, p, n);
    return (a % kAdlerMod) | ((b % kAdlerMod) << 16);
}

}  // namespace zyrdc::checksum
