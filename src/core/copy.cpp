// copy.cpp - copy and zero-fill kernels: narrow stores up to a 16-byte boundary of the
// destination, 16-byte SSE2 units, narrow stores for the tail.
#include "core/copy.hpp"

#include <emmintrin.h>

#include <cstddef>

#include "core/bits.hpp"
#include "core/cpu.hpp"
#include "core/match_copy.hpp"

namespace zyrdc {

namespace {

// Units narrower than the engine's, in its argument order (destination first).
inline void Copy1(uint8_t* d, const uint8_t* s) { d[0] = s[0]; }
inline void Copy2(uint8_t* d, const uint8_t* s) { store_u16le(d, load_u16le(s)); }

// Below kShortCopyBytes: 16-byte units from the end, then 8, 4, 2, 1 towards the start.
void CopyShortBackward(const uint8_t* s, uint8_t* d, size_t n) {
    while (n >= 16) {
        n -= 16;
        Copy16(d + n, s + n);
    }
    if (n & 8) {
        n -= 8;
        Copy8(d + n, s + n);
    }
    if (n & 4) {
        n -= 4;
        Copy4(d + n, s + n);
    }
    if (n & 2) {
        n -= 2;
        Copy2(d + n, s + n);
    }
    if (n & 1) {
        Copy1(d, s);
    }
}

// Narrow stores covering k bytes (0..15): widths 1, 2, 4, 8 in that order for the head that
// brings the destination to a 16-byte boundary, 8, 4, 2, 1 for the tail. move(offset, width)
// stores one unit.
template <class Move>
void NarrowStores(size_t k, bool head, Move move) {
    static constexpr unsigned kHeadOrder[4] = {1, 2, 4, 8};
    static constexpr unsigned kTailOrder[4] = {8, 4, 2, 1};
    const unsigned* order = head ? kHeadOrder : kTailOrder;
    size_t i = 0;
    for (int j = 0; j < 4; ++j) {
        if (k & order[j]) {
            move(i, order[j]);
            i += order[j];
        }
    }
}

void CopyNarrow(const uint8_t* s, uint8_t* d, size_t k, bool head) {
    NarrowStores(k, head, [s, d](size_t i, unsigned w) {
        switch (w) {
            case 1: Copy1(d + i, s + i); break;
            case 2: Copy2(d + i, s + i); break;
            case 4: Copy4(d + i, s + i); break;
            default: Copy8(d + i, s + i); break;
        }
    });
}

void ZeroNarrow(uint8_t* d, size_t k, bool head) {
    NarrowStores(k, head, [d](size_t i, unsigned w) {
        switch (w) {
            case 1: d[i] = 0; break;
            case 2: store_u16le(d + i, 0); break;
            case 4: store_u32le(d + i, 0); break;
            default: store_u64le(d + i, 0); break;
        }
    });
}

template <bool kStream>
void Store16(uint8_t* d, __m128i v) {
    if constexpr (kStream) {
        _mm_stream_si128(reinterpret_cast<__m128i*>(d), v);
    } else {
        _mm_store_si128(reinterpret_cast<__m128i*>(d), v);
    }
}

template <bool kStream>
void CopyAlignedBody(const uint8_t* s, uint8_t* d, size_t n) {
    // d is 16-byte aligned, n a multiple of 16; four units a step keep the loads ahead.
    size_t i = 0;
    for (; i + 64 <= n; i += 64) {
        const __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i*>(s + i));
        const __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i*>(s + i + 16));
        const __m128i c = _mm_loadu_si128(reinterpret_cast<const __m128i*>(s + i + 32));
        const __m128i e = _mm_loadu_si128(reinterpret_cast<const __m128i*>(s + i + 48));
        Store16<kStream>(d + i, a);
        Store16<kStream>(d + i + 16, b);
        Store16<kStream>(d + i + 32, c);
        Store16<kStream>(d + i + 48, e);
    }
    for (; i < n; i += 16) {
        Store16<kStream>(d + i, _mm_loadu_si128(reinterpret_cast<const __m128i*>(s + i)));
    }
    if constexpr (kStream) {
        _mm_sfence();  // order the weakly-ordered stores before anything the caller does next
    }
}

template <bool kStream>
void ZeroAlignedBody(uint8_t* d, size_t n) {
    // Four units a step: a fill is bound by stores, and the loop's own count and branch
    // would otherwise take issue slots from them.
    const __m128i z = _mm_setzero_si128();
    size_t i = 0;
    for (; i + 64 <= n; i += 64) {
        Store16<kStream>(d + i, z);
        Store16<kStream>(d + i + 16, z);
        Store16<kStream>(d + i + 32, z);
        Store16<kStream>(d + i + 48, z);
    }
    for (; i < n; i += 16) {
        Store16<kStream>(d + i, z);
    }
    if constexpr (kStream) {
        _mm_sfence();
    }
}

// The processor is asked only for copies past the threshold, and then once.
bool Bypass(Stores stores, size_t n) {
    return stores == Stores::Auto ? PreferStreamingStores(n) : stores == Stores::Bypass;
}

}  // namespace

uint8_t* CopyBytesKernel(const uint8_t* src, uint8_t* dst, int32_t len, Stores stores) {
    if (len <= 0) {
        return dst;
    }
    const size_t n = static_cast<size_t>(len);
    if (len < kShortCopyBytes) {
        CopyShortBackward(src, dst, n);
        return dst;
    }
    const size_t head = bytes_to_boundary(dst, 16);
    CopyNarrow(src, dst, head, true);
    const size_t body = (n - head) & ~static_cast<size_t>(15);
    if (Bypass(stores, n)) {
        CopyAlignedBody<true>(src + head, dst + head, body);
    } else {
        CopyAlignedBody<false>(src + head, dst + head, body);
    }
    const size_t done = head + body;
    CopyNarrow(src + done, dst + done, n - done, false);
    return dst;
}

uint8_t* ZeroBytesKernel(uint8_t* dst, int32_t len, Stores stores) {
    if (len <= 0) {
        return dst;
    }
    const size_t n = static_cast<size_t>(len);
    size_t head = bytes_to_boundary(dst, 16);
    if (head > n) {
        head = n;
    }
    ZeroNarrow(dst, head, true);
    const size_t body = (n - head) & ~static_cast<size_t>(15);
    if (Bypass(stores, n)) {
        ZeroAlignedBody<true>(dst + head, body);
    } else {
        ZeroAlignedBody<false>(dst + head, body);
    }
    const size_t done = head + body;
    ZeroNarrow(dst + done, n - done, false);
    return dst;
}

uint8_t* CopyBytesScalar(const uint8_t* src, uint8_t* dst, int32_t len) {
    for (int32_t i = 0; i < len; ++i) {
        dst[i] = src[i];
    }
    return dst;
}

uint8_t* ZeroBytesScalar(uint8_t* dst, int32_t len) {
    for (int32_t i = 0; i < len; ++i) {
        dst[i] = 0;
    }
    return dst;
}

ZyrStatus CopyBytes_8u(const uint8_t* pSrc, uint8_t* pDst, int32_t len) {
    if (pSrc == nullptr || pDst == nullptr) {
        return StatusNullPointer;
    }
    if (len < 1) {
        return StatusBadSize;
    }
    CopyBytesKernel(pSrc, pDst, len);
    return StatusOk;
}

namespace {

// count x width can exceed the signed 32-bit byte length of the kernel, so large fills go in
// pieces.
void ZeroWords(void* p, int32_t count, size_t width) {
    auto* d = static_cast<uint8_t*>(p);
    size_t bytes = static_cast<size_t>(count) * width;
    constexpr size_t kPiece = size_t{1} << 30;
    while (bytes > 0) {
        const size_t now = bytes < kPiece ? bytes : kPiece;
        ZeroBytesKernel(d, static_cast<int32_t>(now));
        d += now;
        bytes -= now;
    }
}

}  // namespace

ZyrStatus ZeroFill_32u(uint32_t* pDst, int32_t count) {
    if (pDst == nullptr) {
        return StatusNullPointer;
    }
    if (count < 1) {
        return StatusBadSize;
    }
    ZeroWords(pDst, count, sizeof *pDst);
    return StatusOk;
}

ZyrStatus ZeroFill_16u(uint16_t* pDst, int32_t count) {
    if (pDst == nullptr) {
        return StatusNullPointer;
    }
    if (count < 1) {
        return StatusBadSize;
    }
    ZeroWords(pDst, count, sizeof *pDst);
    return StatusOk;
}

}  // namespace zyrdc
