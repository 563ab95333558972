// copy.hpp - the literal and match copies of the LZO1X decoders, in three flavours that
// store the same bytes: wide (whole 16-byte units, overshooting into room the caller has
// proven), exact (wide units that never store past the copy) and bytewise (the reference).
#pragma once

#include <emmintrin.h>

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "core/bits.hpp"
#include "lzo/lzo.hpp"

namespace zyrdc::lzo::detail {

// A wide copy may store up to this many bytes minus one past its end and read as far past
// its source; it is used only where both the destination and the source have that room.
inline constexpr size_t kWildSlack = 16;

inline void Copy4(uint8_t* d, const uint8_t* s) { store_u32le(d, load_u32le(s)); }
inline void Copy8(uint8_t* d, const uint8_t* s) { store_u64le(d, load_u64le(s)); }
inline void Copy16(uint8_t* d, const uint8_t* s) {
    _mm_storeu_si128(reinterpret_cast<__m128i*>(d), _mm_loadu_si128(reinterpret_cast<const __m128i*>(s)));
}

// Smallest multiple of a distance 1..15 that is at least 8 (index 0 unused), and at least 16:
// a pattern of period d also repeats at these distances, which are long enough for 8- and
// 16-byte units to read only bytes already written.
inline constexpr uint8_t kPeriodAtLeast8[16] = {0, 8, 8, 9, 8, 10, 12, 14, 8, 9, 10, 11, 12, 13, 14, 15};
inline constexpr uint8_t kPeriodAtLeast16[16] = {0, 16, 16, 18, 16, 20, 18, 21, 16, 18, 20, 22, 24, 26, 28, 30};
static_assert(kPeriodAtLeast8[7] % 7 == 0 && kPeriodAtLeast16[7] % 7 == 0 && kPeriodAtLeast16[15] == 30);

// The eight bytes that repeat the d bytes at m (d = 1..7) from phase 0. Reads m[0..8): the
// caller guarantees those bytes are addressable (they may not be written yet).
inline uint64_t RepeatPattern8(const uint8_t* m, size_t d) {
    const unsigned bits = static_cast<unsigned>(8 * d);
    uint64_t x = load_u64le(m) & ((uint64_t{1} << bits) - 1);
    x |= x << bits;  // the pattern now fills 2d bytes, each doubling keeps phase 0
    if (d < 4) {
        x |= x << (2 * bits);  // 4d bytes
    }
    if (d == 1) {
        x |= x << 32;  // 8 bytes
    }
    return x;
}

// ---- non-overlapping copies (literal runs, matches at a distance of at least n) ---------

// Exactly n bytes, never past s + n or d + n: whole units, the last one placed to end at
// d + n, overlapping the one before it. (Overlapping stores cost a later load that spans
// them, such as a match a record back in data of fixed-size records: it cannot be served
// from the store buffer. Tiling exactly would cost a branch on the length in every copy,
// more than it saves on text.)
inline void CopyExact(uint8_t* d, const uint8_t* s, size_t n) {
    if (n >= 16) {
        size_t i = 0;
        for (; i + 16 < n; i += 16) {
            Copy16(d + i, s + i);
        }
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

inline void CopyBytewise(uint8_t* d, const uint8_t* s, size_t n) {
    for (size_t i = 0; i < n; ++i) {
        d[i] = s[i];
    }
}

// ---- matches: op[i] = op[i - dist] for i in 0..n, in increasing order -------------------

// Bytes 0..n (n = 1..15) of m, read in units of 8, 4, 2 and 1 bytes from the start and
// never past m + n, into one vector. A source this close was stored moments ago; a load
// is served from the store buffer only when a single earlier store covers it, and these
// units fall inside the single 16-byte store that wrote a match (a 16-byte load would also
// take in the literals stored after it, and wait).
inline __m128i LoadUnits(const uint8_t* m, size_t n) {
    const size_t base = n & 8;
    uint64_t part = 0;
    unsigned at = 0;  // bits filled in `part`
    if (n & 4) {
        part = load_u32le(m + base);
        at = 32;
    }
    if (n & 2) {
        part |= uint64_t{load_u16le(m + base + at / 8)} << at;
        at += 16;
    }
    if (n & 1) {
        part |= uint64_t{m[base + at / 8]} << at;
    }
    const __m128i tail = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(&part));
    if (base == 0) {
        return tail;
    }
    return _mm_unpacklo_epi64(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(m)), tail);
}

// Whole units with overshoot: needs kWildSlack bytes of room past op + n.
inline void MatchWide(uint8_t* op, size_t dist, size_t n) {
    const uint8_t* m = op - dist;
    if (dist >= 16) {
        size_t i = 0;
        do {
            Copy16(op + i, m + i);
            i += 16;
        } while (i < n);
        return;
    }
    if (dist >= n) {
        // Close, yet no overlap: the source in units, the copy in one store.
        _mm_storeu_si128(reinterpret_cast<__m128i*>(op), LoadUnits(m, n));
        return;
    }
    // Distances below 16 overlap a 16-byte unit: lay down the first 16 bytes of the
    // pattern, then continue from a multiple of the period that is at least 16 back.
    if (dist >= 8) {
        Copy8(op, m);
        Copy8(op + 8, m + 8);
    } else {
        store_u64le(op, RepeatPattern8(m, dist));
        Copy8(op + 8, op + 8 - kPeriodAtLeast8[dist]);
    }
    const size_t period = kPeriodAtLeast16[dist];
    for (size_t i = 16; i < n; i += 16) {
        Copy16(op + i, op + i - period);
    }
}

// Exactly n bytes.
inline void MatchExact(uint8_t* op, size_t dist, size_t n) {
    const uint8_t* m = op - dist;
    if (dist >= n || dist >= 16) {
        // Either no overlap at all, or each 16-byte unit reads only bytes already final
        // (the last unit, placed to end at op + n, reads at most up to op + n - 16).
        CopyExact(op, m, n);
        return;
    }
    if (dist == 1) {
        std::memset(op, m[0], n);
        return;
    }
    if (n < 8) {
        for (size_t i = 0; i < n; ++i) {
            op[i] = m[i];
        }
        return;
    }
    // The first 8 bytes of the pattern (RepeatPattern8 may read op[0..8) before it is
    // written: those bytes are inside the copy), then units reading a multiple of the
    // period back; a last unit ending at op + n when it still reads inside the pattern
    // (from op - dist on), single bytes otherwise.
    store_u64le(op, dist >= 8 ? load_u64le(m) : RepeatPattern8(m, dist));
    const size_t period8 = kPeriodAtLeast8[dist];
    size_t i = 8;
    if (n >= 16) {
        Copy8(op + 8, op + 8 - period8);
        const size_t period16 = kPeriodAtLeast16[dist];
        for (i = 16; i + 16 <= n; i += 16) {
            Copy16(op + i, op + i - period16);
        }
        if (i == n) {
            return;
        }
        if (n + dist >= 16 + period16) {
            Copy16(op + n - 16, op + n - 16 - period16);
            return;
        }
    }
    for (; i + 8 <= n; i += 8) {
        Copy8(op + i, op + i - period8);
    }
    if (i == n) {
        return;
    }
    if (n + dist >= 8 + period8) {
        Copy8(op + n - 8, op + n - 8 - period8);
        return;
    }
    for (; i < n; ++i) {
        op[i] = m[i];
    }
}

inline void MatchBytewise(uint8_t* op, size_t dist, size_t n) {
    const uint8_t* m = op - dist;
    for (size_t i = 0; i < n; ++i) {
        op[i] = m[i];
    }
}

// ---- the flavours behind one interface ---------------------------------------------------

// Copies anywhere in the stream; the wide flavour overshoots only where inRoom / outRoom
// (bytes addressable from the source and the destination onwards) allow it.
template <Copies kCopies>
struct Copier;

template <>
struct Copier<Copies::Wide> {
    static void Literals(uint8_t* d, const uint8_t* s, size_t n, size_t inRoom, size_t outRoom) {
        if (inRoom >= n + kWildSlack && outRoom >= n + kWildSlack) {
            size_t i = 0;
            do {
                Copy16(d + i, s + i);
                i += 16;
            } while (i < n);
        } else {
            CopyExact(d, s, n);
        }
    }
    static void Match(uint8_t* op, size_t dist, size_t n, size_t outRoom) {
        if (outRoom >= n + kWildSlack) {
            MatchWide(op, dist, n);
        } else {
            MatchExact(op, dist, n);
        }
    }
};

template <>
struct Copier<Copies::Exact> {
    static void Literals(uint8_t* d, const uint8_t* s, size_t n, size_t, size_t) { CopyExact(d, s, n); }
    static void Match(uint8_t* op, size_t dist, size_t n, size_t) { MatchExact(op, dist, n); }
};

template <>
struct Copier<Copies::Bytewise> {
    static void Literals(uint8_t* d, const uint8_t* s, size_t n, size_t, size_t) { CopyBytewise(d, s, n); }
    static void Match(uint8_t* op, size_t dist, size_t n, size_t) { MatchBytewise(op, dist, n); }
};

// Copies of the decoder's fast region, where the source holds at least kFastInputMargin more
// bytes and (for the wide flavour) the destination kFastOutputMargin more: the short forms
// need no room tests at all. Matches here are at most 33 bytes, literal runs at most 18.
inline constexpr size_t kFastInputMargin = 64;
inline constexpr size_t kFastOutputMargin = 128;
inline constexpr size_t kFastMaxMatch = 33;
inline constexpr size_t kFastMaxRun = 18;
// A match and a literal run, each with its wide overshoot, then a 4-byte copy: the most a
// stretch between two region tests writes. Its reads (2 distance bytes, a 32-byte literal
// read, 3 instruction bytes) stay as far inside the input margin.
static_assert(kFastMaxMatch + kWildSlack + kFastMaxRun + kWildSlack + 4 <= kFastOutputMargin);
static_assert(2 + 1 + 2 * 16 + 2 <= kFastInputMargin);

template <Copies kCopies>
struct FastCopier;

template <>
struct FastCopier<Copies::Wide> {
    static void Match(uint8_t* op, size_t dist, size_t n) { MatchWide(op, dist, n); }
    static void Trailing(uint8_t* op, const uint8_t* ip, size_t) { Copy4(op, ip); }
    static void Run(uint8_t* op, const uint8_t* ip, size_t n) {
        Copy16(op, ip);
        if (n > 16) {
            Copy16(op + 16, ip + 16);
        }
    }
    static void Far3(uint8_t* op, size_t dist) { Copy4(op, op - dist); }
};

// Exact stores only, for a destination whose end is unknown; reads may run ahead inside the
// input margin.
template <>
struct FastCopier<Copies::Exact> {
    static void Match(uint8_t* op, size_t dist, size_t n) { MatchExact(op, dist, n); }
    // 1..3 bytes: the first, the middle and the last, from one load, with no loop and no
    // branch on k. (Wider stores reaching back over op[-1] would be cheaper to issue, but a
    // later match load spanning them and the match before could not be served from the
    // store buffer.)
    static void Trailing(uint8_t* op, const uint8_t* ip, size_t k) {
        const uint32_t v = load_u32le(ip);
        op[0] = static_cast<uint8_t>(v);
        op[k >> 1] = static_cast<uint8_t>(v >> (8 * (k >> 1)));
        op[k - 1] = static_cast<uint8_t>(v >> (8 * (k - 1)));
    }
    static void Run(uint8_t* op, const uint8_t* ip, size_t n) { CopyExact(op, ip, n); }
    static void Far3(uint8_t* op, size_t dist) {
        const uint32_t v = load_u32le(op - dist);
        store_u16le(op, static_cast<uint16_t>(v));
        op[2] = static_cast<uint8_t>(v >> 16);
    }
};

}  // namespace zyrdc::lzo::detail
