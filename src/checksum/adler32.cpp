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

// Vector rounds take kVectors x 16 bytes: four vectors where there are 16 XMM registers for
// their eight column sums, two on i686, which has 8.
#if defined(__x86_64__)
constexpr size_t kVectors = 4;
#else
constexpr size_t kVectors = 2;
#endif
constexpr size_t kRoundBytes = 16 * kVectors;
// The per-column sums are 16-bit lanes that pmaddwd reads as signed, so they may reach
// 32767: at most 128 rounds of bytes up to 255. A group must also stay within kScalarRun
// bytes so that B cannot pass 2^32 before it is reduced.
constexpr size_t kRoundsPerGroup =
    kScalarRun / kRoundBytes < 128 ? kScalarRun / kRoundBytes : 128;
static_assert(kRoundsPerGroup * 255 <= 32767 && kRoundsPerGroup * kRoundBytes <= kScalarRun);

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

// `rounds` rounds of kRoundBytes bytes from a 16-byte aligned p into (a, b), unreduced.
//
// For one round with bytes x0..x(R-1), R = kRoundBytes, A grows by the byte sum and B by
// R x A_before plus sum (R - j) x_j. Over the group, the R x A_before terms are
// R x (rounds x a) plus R times the running sum of earlier rounds' byte sums (s1sum), and
// the weighted terms are the per-column byte sums times their weights, formed once at the
// end with pmaddwd.
//
// The loop is bound by how many operations it issues, so each 16-byte vector costs three
// for its columns: its 16-bit words are added whole (even byte + 256 x odd byte, modulo
// 2^16) and its odd bytes on their own. After the loop, even = whole - 256 x odd modulo
// 2^16, which is exact because every column sum is below 2^15.
void VectorGroup(uint32_t& a, uint32_t& b, const uint8_t* p, size_t rounds) {
    const __m128i zero = _mm_setzero_si128();
    __m128i s1 = zero, s1sum = zero;
    __m128i whole[kVectors], odd[kVectors];
    for (size_t v = 0; v < kVectors; ++v) {
        whole[v] = zero;
        odd[v] = zero;
    }
    for (size_t r = 0; r < rounds; ++r, p += kRoundBytes) {
        __m128i x[kVectors];
        for (size_t v = 0; v < kVectors; ++v) {
            x[v] = _mm_load_si128(reinterpret_cast<const __m128i*>(p + 16 * v));
        }
        s1sum = _mm_add_epi32(s1sum, s1);
        __m128i sad = _mm_sad_epu8(x[0], zero);
        for (size_t v = 1; v < kVectors; ++v) {
            sad = _mm_add_epi32(sad, _mm_sad_epu8(x[v], zero));
        }
        s1 = _mm_add_epi32(s1, sad);
        for (size_t v = 0; v < kVectors; ++v) {
            whole[v] = _mm_add_epi16(whole[v], x[v]);
            odd[v] = _mm_add_epi16(odd[v], _mm_srli_epi16(x[v], 8));
        }
    }
    // Byte j of the round has weight R - j: vector v's even bytes R - 16v - 2k, its odd
    // bytes one less.
    __m128i weighted = zero;
    for (size_t v = 0; v < kVectors; ++v) {
        const auto top = static_cast<int16_t>(kRoundBytes - 16 * v);
        const __m128i w_even = _mm_sub_epi16(_mm_set1_epi16(top), _mm_setr_epi16(0, 2, 4, 6, 8, 10, 12, 14));
        const __m128i w_odd = _mm_sub_epi16(w_even, _mm_set1_epi16(1));
        const __m128i even = _mm_sub_epi16(whole[v], _mm_slli_epi16(odd[v], 8));
        weighted = _mm_add_epi32(weighted, _mm_add_epi32(_mm_madd_epi16(even, w_even),
                                                         _mm_madd_epi16(odd[v], w_odd)));
    }
    const uint32_t rounds32 = static_cast<uint32_t>(rounds);
    b += static_cast<uint32_t>(kRoundBytes) * (rounds32 * a + HorizontalSum(s1sum)) +
         HorizontalSum(weighted);
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
    while (n >= 16) {
        VectorStep16(a, b, p);
        p += 16;
        n -= 16;
    }
    b = ByteLoop(a, b, p, n);
    return (a % kAdlerMod) | ((b % kAdlerMod) << 16);
}

}  // namespace zyrdc::checksum
