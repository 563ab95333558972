// match_copy.hpp - the copy engine of the LZ decoders: literal runs (source and destination
// apart) and matches (the destination's own bytes `off` back, repeated byte by byte when the
// offset is below the length), each in a wide form that may store past the copy into room
// the caller has proven and an exact form that never does. One engine, so that each decoder
// gets the same tuned units and the same guarantees.
#pragma once

#include <emmintrin.h>

#include <cstddef>
#include <cstdint>

#include "core/bits.hpp"

namespace zyrdc {

// A wide copy stores and reads up to this many bytes minus one past its end: it may be used
// only where the destination (and, for literals, the source) has that much more room.
inline constexpr size_t kWideCopySlack = 16;

// ---- units (destination first, as everywhere in this engine) ------------------------------

inline void Copy4(uint8_t* d, const uint8_t* s) { store_u32le(d, load_u32le(s)); }
inline void Copy8(uint8_t* d, const uint8_t* s) { store_u64le(d, load_u64le(s)); }
inline void Copy16(uint8_t* d, const uint8_t* s) {
    _mm_storeu_si128(reinterpret_cast<__m128i*>(d), _mm_loadu_si128(reinterpret_cast<const __m128i*>(s)));
}
// 16 bytes as two 8-byte moves, both loads first. A match reads output stored moments
// before, still in the store queue; an 8-byte load lies within one earlier store more often
// than a 16-byte one does, and only then is it forwarded without waiting.
inline void Copy8Pair(uint8_t* d, const uint8_t* s) {
    const uint64_t a = load_u64le(s), b = load_u64le(s + 8);
    store_u64le(d, a);
    store_u64le(d + 8, b);
}

namespace match_copy_detail {

struct OffsetTables {
    uint8_t stride[16];    // largest multiple of the offset that fits in 16 bytes
    uint8_t period[16];    // smallest multiple of the offset that is at least 16
    uint8_t period8[16];   // smallest multiple of the offset that is at least 8
    uint8_t eightMod[16];  // 8 mod the offset
};
inline constexpr OffsetTables kOffsetTables = [] {
    OffsetTables t{};
    for (unsigned o = 1; o < 16; ++o) {
        t.stride[o] = static_cast<uint8_t>(16 / o * o);
        t.period[o] = static_cast<uint8_t>((16 + o - 1) / o * o);
        t.period8[o] = static_cast<uint8_t>((8 + o - 1) / o * o);
        t.eightMod[o] = static_cast<uint8_t>(8 % o);
    }
    return t;
}();
static_assert(kOffsetTables.stride[3] == 15 && kOffsetTables.stride[9] == 9 && kOffsetTables.period[7] == 21 &&
              kOffsetTables.period[15] == 30 && kOffsetTables.period[4] == 16 &&
              kOffsetTables.period8[3] == 9 && kOffsetTables.period8[11] == 11);

// The first `off` bytes of w (off 1..7) repeated over the whole word: the 8 bytes that follow
// d in a match of offset off, when w holds the 8 bytes from d - off.
inline uint64_t RepeatPeriod(uint64_t w, size_t off) {
    uint64_t p = w & ((uint64_t{1} << (8 * off)) - 1);
    p |= p << (8 * off);
    if (off < 4) p |= p << (16 * off);
    if (off < 2) p |= p << (32 * off);
    return p;
}

// The 16 bytes that a match of offset 1..15 writes first, the `off` bytes before d repeated,
// built in two 8-byte words. Reads d - off up to d + 7 at most; bytes from d on are masked
// away, so they need only be addressable (the exact form calls this only when the match
// covers them).
inline __m128i RepeatPattern(const uint8_t* d, size_t off) {
    const uint8_t* s = d - off;
    uint64_t lo, hi;
    if (off < 8) {
        // The second word is the first rotated by 8 mod off bytes (where both shifted copies
        // cover a byte they agree, so OR joins them).
        const uint64_t p = RepeatPeriod(load_u64le(s), off);
        const unsigned r = kOffsetTables.eightMod[off];
        lo = p;
        hi = (p >> (8 * r)) | (p << (8 * (off - r)));
    } else {
        lo = load_u64le(s);
        const unsigned extra = static_cast<unsigned>(off) - 8;  // bytes of s[8..] in the period
        const uint64_t mask = (uint64_t{1} << (8 * extra)) - 1;
        hi = (load_u64le(s + 8) & mask) | (lo << (8 * extra));
    }
    return _mm_set_epi64x(static_cast<long long>(hi), static_cast<long long>(lo));
}

// Stores the pattern of a short offset (1..15) over at least `len` bytes from d, one
// register stored at the largest multiple of the period that fits a unit: no store waits
// for an earlier one. Stores up to 15 bytes past len.
inline void StorePattern(uint8_t* d, size_t off, size_t len) {
    const __m128i v = RepeatPattern(d, off);
    const size_t stride = kOffsetTables.stride[off];
    size_t i = 0;
    do {
        _mm_storeu_si128(reinterpret_cast<__m128i*>(d + i), v);
        i += stride;
    } while (i < len);
}

}  // namespace match_copy_detail

// ---- literal runs: n bytes from s to d, the ranges apart ----------------------------------

// In 16-byte units, at least one: stores and reads up to 15 bytes past the run.
inline void CopyWide(uint8_t* d, const uint8_t* s, size_t n) {
    size_t i = 0;
    do {
        Copy16(d + i, s + i);
        i += 16;
    } while (i < n);
}

// Exactly n bytes, reading and writing nothing outside the two runs: whole units, the last
// one placed to end at d + n over the one before it (tiling exactly would cost a branch on
// the length in every copy, more than it saves).
inline void CopyExact(uint8_t* d, const uint8_t* s, size_t n) {
    if (n >= 16) {
        for (size_t i = 0; i + 16 < n; i += 16) Copy16(d + i, s + i);
        Copy16(d + n - 16, s + n - 16);
    } else if (n >= 8) {
        Copy8(d, s);
        Copy8(d + n - 8, s + n - 8);
    } else if (n >= 4) {
        Copy4(d, s);
        Copy4(d + n - 4, s + n - 4);
    } else if (n > 0) {
        // 1..3 bytes: the first, the middle and the last cover every case without a loop.
        d[0] = s[0];
        d[n >> 1] = s[n >> 1];
        d[n - 1] = s[n - 1];
    }
}

// ---- matches: d[i] = d[i - off] for i = 0 .. len-1, in increasing order -----------------
// An offset of 0 leaves the bytes as they are (each is copied onto itself).

// Stores up to 15 bytes past the match.
inline void MatchCopyWide(uint8_t* d, size_t off, size_t len) {
    if (off >= 16) {
        // Two 8-byte moves first (see Copy8Pair), then 16 or 32 bytes a step: 32 once both
        // halves of a step come from before it.
        Copy8Pair(d, d - off);
        if (len <= 16) return;
        Copy16(d + 16, d + 16 - off);
        if (len <= 32) return;
        if (off >= 32) {
            size_t i = 32;
            for (; i + 16 < len; i += 32) {
                const __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i*>(d + i - off));
                const __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i*>(d + i + 16 - off));
                _mm_storeu_si128(reinterpret_cast<__m128i*>(d + i), a);
                _mm_storeu_si128(reinterpret_cast<__m128i*>(d + i + 16), b);
            }
            if (i < len) Copy16(d + i, d + i - off);
        } else {
            for (size_t i = 32; i < len; i += 16) Copy16(d + i, d + i - off);
        }
    } else if (len <= off) {
        Copy16(d, d - off);  // one load before the store: the first `len` bytes are right
    } else if (off != 0) {
        match_copy_detail::StorePattern(d, off, len);
    }
}

// Exactly `len` bytes: reads and writes nothing outside d - off .. d + len.
inline void MatchCopyExact(uint8_t* d, size_t off, size_t len) {
    using match_copy_detail::kOffsetTables;
    if (off >= len || off >= 16) {
        // No overlap at all, or every unit reads bytes already final: the last one, placed to
        // end at d + len, reads up to d + len - 16 at most.
        CopyExact(d, d - off, len);
        return;
    }
    if (off == 0) return;
    if (len < 8) {
        for (size_t i = 0; i < len; ++i) d[i] = *(d + i - off);
        return;
    }
    // The first 8 bytes of the pattern (building it may read d[0..8), inside the match),
    // then units reading a whole number of periods back; a last unit placed to end at
    // d + len when it still reads inside the match's source, single bytes otherwise.
    const __m128i v = match_copy_detail::RepeatPattern(d, off);
    const size_t period8 = kOffsetTables.period8[off];
    size_t i = 8;
    if (len < 16) {
        _mm_storel_epi64(reinterpret_cast<__m128i*>(d), v);
    } else {
        _mm_storeu_si128(reinterpret_cast<__m128i*>(d), v);
        const size_t stride = kOffsetTables.stride[off];
        for (i = stride; i + 16 <= len; i += stride) _mm_storeu_si128(reinterpret_cast<__m128i*>(d + i), v);
        if (i == len) return;
        const size_t period = kOffsetTables.period[off];
        if (len + off >= 16 + period) {
            Copy16(d + len - 16, d + len - 16 - period);
            return;
        }
        i = i + 16 - stride;  // bytes stored so far
    }
    for (; i + 8 <= len; i += 8) Copy8(d + i, d + i - period8);
    if (i == len) return;
    if (len + off >= 8 + period8) {
        Copy8(d + len - 8, d + len - 8 - period8);
        return;
    }
    for (; i < len; ++i) d[i] = *(d + i - off);
}

// A match with `room` bytes writable from d (at least len): wide while the room allows it.
inline void MatchCopy(uint8_t* d, size_t off, size_t len, size_t room) {
    if (room >= len + kWideCopySlack) {
        MatchCopyWide(d, off, len);
    } else {
        MatchCopyExact(d, off, len);
    }
}

// A literal run with `inRoom` bytes readable from s and `outRoom` writable from d.
inline void CopyLiterals(uint8_t* d, const uint8_t* s, size_t n, size_t inRoom, size_t outRoom) {
    if (inRoom >= n + kWideCopySlack && outRoom >= n + kWideCopySlack) {
        CopyWide(d, s, n);
    } else {
        CopyExact(d, s, n);
    }
}

// Byte-at-a-time twins, the reference for tests and the checked decoders' twins.
inline void CopyBytewise(uint8_t* d, const uint8_t* s, size_t n) {
    for (size_t i = 0; i < n; ++i) d[i] = s[i];
}
inline void MatchCopyBytewise(uint8_t* d, size_t off, size_t len) {
    for (size_t i = 0; i < len; ++i) d[i] = *(d + i - off);
}

}  // namespace zyrdc
