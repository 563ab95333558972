// mtf.cpp - move-to-front in both directions (the table shifted 16 bytes at a time with
// SSE2) and the zero-run coding of move-to-front indexes into RUNA/RUNB symbols and back.
#include <emmintrin.h>

#include <cstring>

#include "bzip2/bzip2.hpp"
#include "core/bits.hpp"
#include "core/copy.hpp"

namespace zyrdc::bzip2 {

void MtfInit(uint8_t* table) {
    for (int i = 0; i < 256; ++i) table[i] = static_cast<uint8_t>(i);
}

namespace {

// A local copy of the caller's table, 16-byte aligned for the block loads and stores.
struct alignas(16) Table {
    uint8_t b[256];
};

__m128i Block(const Table& t, int k) {
    return _mm_load_si128(reinterpret_cast<const __m128i*>(t.b + 16 * k));
}
void StoreBlock(Table& t, int k, __m128i v) {
    _mm_store_si128(reinterpret_cast<__m128i*>(t.b + 16 * k), v);
}

// Block `k` with its bytes moved up one place and `carry` (the byte that leaves the block
// below, in lane 0) entering at the bottom.
__m128i ShiftIn(__m128i block, __m128i carry) { return _mm_or_si128(_mm_slli_si128(block, 1), carry); }
// Lane 0 holds the top byte of `block`.
__m128i TopByte(__m128i block) { return _mm_srli_si128(block, 15); }
// Lanes 0..pos set.
__m128i LanesUpTo(int pos) {
    const __m128i lanes = _mm_setr_epi8(0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15);
    return _mm_cmplt_epi8(lanes, _mm_set1_epi8(static_cast<char>(pos + 1)));
}
// In the block that held the moved byte at lane `pos`, lanes above it keep their bytes.
__m128i Blend(__m128i shifted, __m128i old, int pos) {
    const __m128i m = LanesUpTo(pos);
    return _mm_or_si128(_mm_and_si128(m, shifted), _mm_andnot_si128(m, old));
}

// Moves the byte at position 16 * kb + pos to the front: every block below kb shifts up one
// place whole, block kb up to lane pos.
void MoveToFront(Table& t, int kb, int pos, uint8_t value) {
    __m128i carry = _mm_cvtsi32_si128(value);
    for (int k = 0; k < kb; ++k) {
        const __m128i x = Block(t, k);
        StoreBlock(t, k, ShiftIn(x, carry));
        carry = TopByte(x);
    }
    const __m128i x = Block(t, kb);
    StoreBlock(t, kb, Blend(ShiftIn(x, carry), x, pos));
}

}  // namespace

void MtfForward(const uint8_t* src, uint8_t* dst, int32_t len, uint8_t* table) {
    Table t;
    std::memcpy(t.b, table, 256);
    for (int32_t i = 0; i < len; ++i) {
        const uint8_t c = src[i];
        if (t.b[0] == c) {  // the most frequent case after a Burrows-Wheeler transform
            dst[i] = 0;
            continue;
        }
        const __m128i want = _mm_set1_epi8(static_cast<char>(c));
        int kb = 0, mask = 0;
        // The table is a permutation, so the byte is found before the last block is passed.
        while ((mask = _mm_movemask_epi8(_mm_cmpeq_epi8(Block(t, kb), want))) == 0) ++kb;
        const int pos = __builtin_ctz(static_cast<unsigned>(mask));
        dst[i] = static_cast<uint8_t>(16 * kb + pos);
        MoveToFront(t, kb, pos, c);
    }
    std::memcpy(table, t.b, 256);
}

void MtfInverse(const uint8_t* src, uint8_t* dst, int32_t len, uint8_t* table) {
    Table t;
    std::memcpy(t.b, table, 256);
    for (int32_t i = 0; i < len; ++i) {
        const uint8_t k = src[i];
        const uint8_t c = t.b[k];
        dst[i] = c;
        if (k != 0) MoveToFront(t, k >> 4, k & 15, c);
    }
    std::memcpy(table, t.b, 256);
}

void MtfForwardScalar(const uint8_t* src, uint8_t* dst, int32_t len, uint8_t* table) {
    for (int32_t i = 0; i < len; ++i) {
        const uint8_t c = src[i];
        int k = 0;
        while (table[k] != c) ++k;
        dst[i] = static_cast<uint8_t>(k);
        for (; k > 0; --k) table[k] = table[k - 1];
        table[0] = c;
    }
}

void MtfInverseScalar(const uint8_t* src, uint8_t* dst, int32_t len, uint8_t* table) {
    for (int32_t i = 0; i < len; ++i) {
        int k = src[i];
        const uint8_t c = table[k];
        dst[i] = c;
        for (; k > 0; --k) table[k] = table[k - 1];
        table[0] = c;
    }
}

// ---- zero-run coding -----------------------------------------------------------------------

namespace {

// Symbols in the code of a run of r zeros: m with 2^m - 1 <= r <= 2^(m+1) - 2.
int32_t RunCodeLength(uint32_t r) { return 31 - __builtin_clz(r + 1); }
constexpr int32_t kLongestRunCode = 31;  // r below 2^31

// The encoder's fast loop runs while this much room is left: a whole word of four indexes
// after the longest run code.
constexpr int32_t kFastRoom = kLongestRunCode + 4;

struct ZeroRunWriter {
    uint16_t* dst;
    uint32_t* freq;
    int32_t pos;

    void Symbol(uint16_t s) {
        dst[pos++] = s;
        ++freq[s];
    }
    // Bijective base 2, least significant digit first: RUNA for digit 1, RUNB for digit 2.
    void Run(uint32_t r) {
        while (r > 0) {
            const uint32_t t = r - 1;
            Symbol(static_cast<uint16_t>(t & 1));
            r = t >> 1;
        }
    }
};

}  // namespace

Progress EncodeZeroRuns(const uint8_t* src, int32_t src_len, uint16_t* dst, int32_t dst_cap,
                        uint32_t* freq) {
    ZeroRunWriter out{dst, freq, 0};
    uint32_t run = 0;  // no run is carried between calls
    int32_t si = 0;
    // Far from the end of the destination nothing needs checking: a word of four zeros adds
    // to the run, any other word is taken byte by byte.
    while (src_len - si >= 4 && dst_cap - out.pos >= kFastRoom) {
        const uint32_t w = load_u32le(src + si);
        si += 4;
        if (w == 0) {
            run += 4;
            continue;
        }
        for (int b = 0; b < 4; ++b) {
            const uint8_t v = static_cast<uint8_t>(w >> (8 * b));
            if (v == 0) {
                ++run;
            } else {
                out.Run(run);
                run = 0;
                out.Symbol(static_cast<uint16_t>(v + 1));
            }
        }
    }
    // Near the end: an index is taken only if the pending run and the index's own symbol fit
    // in the room left. A run too long for the room is coded as far as it fits; the rest of
    // its zeros go back to the source.
    const auto clamp_run = [&]() {
        const uint32_t fits = RunCapacity(static_cast<uint32_t>(dst_cap - out.pos));
        if (run > fits) {
            si -= static_cast<int32_t>(run - fits);
            run = fits;
        }
    };
    for (; si < src_len; ++si) {
        const uint8_t v = src[si];
        if (v == 0) {
            ++run;
            continue;
        }
        const int32_t room = dst_cap - out.pos;
        if (room < 1 || (run > 0 && RunCodeLength(run) + 1 > room)) {
            clamp_run();
            break;
        }
        out.Run(run);
        run = 0;
        out.Symbol(static_cast<uint16_t>(v + 1));
    }
    clamp_run();
    out.Run(run);
    return {si < src_len ? StatusDstFull : StatusOk, si, out.pos};
}

Progress DecodeZeroRuns(const uint16_t* src, int32_t src_len, uint8_t* dst, int32_t dst_cap) {
    int32_t si = 0, di = 0;
    ZyrStatus status = StatusOk;
    while (si < src_len) {
        if (src[si] >= 2) {
            if (di == dst_cap) {
                status = StatusDstFull;
                break;
            }
            dst[di++] = static_cast<uint8_t>(src[si++] - 1);  // above 256 wraps, unchecked
            continue;
        }
        // A run: its digits read from the last back to the first. Lengths past the room are
        // only compared, so the value saturates instead of wrapping.
        int32_t end = si;
        while (end < src_len && src[end] < 2) ++end;
        uint64_t r = 0;
        for (int32_t k = end; k-- > si;) {
            r = r * 2 + 1 + src[k];
            if (r > 0xFFFFFFFFu) r = 0xFFFFFFFFu;
        }
        const auto room = static_cast<uint64_t>(dst_cap - di);
        // With a symbol behind it, the run and that symbol must both fit; a run that ends the
        // source needs only its zeros. Otherwise the call stops before the run's first digit,
        // so that a repeated call decodes the whole run again.
        const bool followed = end < src_len;
        if (followed ? r >= room : r > room) {
            status = StatusDstFull;
            break;
        }
        ZeroBytesKernel(dst + di, static_cast<int32_t>(r));
        di += static_cast<int32_t>(r);
        si = end;
        if (followed) dst[di++] = static_cast<uint8_t>(src[si++] - 1);
    }
    return {status, si, di};
}

}  // namespace zyrdc::bzip2
