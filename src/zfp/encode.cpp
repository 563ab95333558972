// encode.cpp - ZFP block encoder: common exponent, block-floating-point integers, the exact
// forward transform, negabinary and sequency order in SSE2, then embedded bit-plane coding
// with whole runs of group tests written at once; and the encoder's plain twin.
#include <emmintrin.h>

#include <bit>
#include <cstdint>
#include <cstring>

#include "zfp/bitstream.hpp"
#include "zfp/block.hpp"
#include "zfp/tables.hpp"
#include "zfp/zfp.hpp"

namespace zyrdc::zfp {

namespace {

// ---- parameters of one block ----------------------------------------------------------------

// e such that every magnitude is below 2^e, from the largest exponent field; -127 for a block
// of zeros. Subnormal magnitudes have field 0 and give -126. An infinity or NaN gives 129.
int BlockExponent(uint32_t maxField, bool anyNonZero) {
    return anyNonZero ? static_cast<int>(maxField) - 126 : -127;
}

// Bit planes to code: e - minExp + 8, at least 0, at most maxPrec (which may be below 0: then
// the block keeps its header and codes no plane). 64-bit sums: the parameters are unchecked.
int64_t BlockPrecision(int e, const ZfpState& s) {
    int64_t p = int64_t{e} - s.minExp + 8;
    if (p < 1) p = 0;
    return p < s.maxPrec ? p : s.maxPrec;
}

// Scale into 30-bit integers, 2^(30 - e); capped at 2^127, the largest power of two a float
// holds, when e < -97.
float ScaleFor(int e) {
    const int field = 157 - e < 254 ? 157 - e : 254;
    return std::bit_cast<float>(static_cast<uint32_t>(field) << 23);
}

// Truncation toward zero as the processor does it: out of range (infinities, NaN) gives
// INT32_MIN instead of undefined behaviour.
int32_t Truncate(float v) { return _mm_cvttss_si32(_mm_set_ss(v)); }

const uint8_t* RowAt(const float* base, int32_t rowStep, int32_t planeStep, int y, int z) {
    return reinterpret_cast<const uint8_t*>(base) + RowOffset(rowStep, planeStep, y, z);
}

// Zero block: the 0 flag, then zeros up to minBits.
bool PutZeroBlock(BitWriter& out, const ZfpState& s) {
    if (!out.Put(0, 1)) return false;
    return s.minBits < 2 || out.PutZeros(int64_t{s.minBits} - 1);
}

// Padding after the planes: used bits of the (maxBits - 9) budget against minBits - 9.
bool PutPadding(BitWriter& out, const ZfpState& s, int64_t bitsLeft) {
    const int64_t used = (int64_t{s.maxBits} - kHeaderBits) - bitsLeft;
    const int64_t wanted = int64_t{s.minBits} - kHeaderBits;
    return used >= wanted || out.PutZeros(wanted - used);
}

// ---- the forward transform ---------------------------------------------------------------------
// One line (a, b, c, d) becomes
//   y0 = R2(a + b + c + d), y1 = R4(5(a - d) + (b - c)), y2 = R2((b + c) - (a + d)),
//   y3 = R3(3(b - c) - (a - d)),
// with Rk(v) = v / 2^k rounded half to even. Inputs stay within 2^30 (each output is at most
// the mean magnitude of its inputs), but the sums need up to 34 bits, so they are formed in
// 64-bit lanes, two lines per register.

template <int K>
int32_t RoundScalar(int64_t v) {
    return static_cast<int32_t>((v + (int64_t{1} << (K - 1)) - 1 + ((v >> K) & 1)) >> K);
}

}  // namespace

void ForwardLineScalar(int32_t* p, int stride) {
    const int64_t a = p[0], b = p[stride], c = p[2 * stride], d = p[3 * stride];
    p[0] = RoundScalar<2>(a + b + c + d);
    p[stride] = RoundScalar<4>(5 * (a - d) + (b - c));
    p[2 * stride] = RoundScalar<2>((b + c) - (a + d));
    p[3 * stride] = RoundScalar<3>(3 * (b - c) - (a - d));
}

namespace {

// Rk in 64-bit lanes. The result fits in 32 bits, whose bits are the same under a logical
// shift as under the arithmetic one (k <= 32), and SSE2 has only the logical 64-bit shift.
template <int K>
__m128i Round64(__m128i v) {
    const __m128i one = _mm_set_epi32(0, 1, 0, 1);
    const __m128i bias = _mm_set_epi32(0, (1 << (K - 1)) - 1, 0, (1 << (K - 1)) - 1);
    const __m128i odd = _mm_and_si128(_mm_srli_epi64(v, K), one);
    return _mm_srli_epi64(_mm_add_epi64(v, _mm_add_epi64(bias, odd)), K);
}

struct Quad {
    __m128i a, b, c, d;
};

// Two lines in 64-bit lanes; results in the low halves of the lanes.
Quad ForwardLines64(__m128i a, __m128i b, __m128i c, __m128i d) {
    const __m128i p = _mm_add_epi64(a, d), m = _mm_sub_epi64(a, d);
    const __m128i q = _mm_add_epi64(b, c), n = _mm_sub_epi64(b, c);
    return {Round64<2>(_mm_add_epi64(p, q)),
            Round64<4>(_mm_add_epi64(_mm_add_epi64(_mm_slli_epi64(m, 2), m), n)),
            Round64<2>(_mm_sub_epi64(q, p)),
            Round64<3>(_mm_sub_epi64(_mm_add_epi64(_mm_slli_epi64(n, 1), n), m))};
}

__m128i SignExtendLow(__m128i v) { return _mm_unpacklo_epi32(v, _mm_srai_epi32(v, 31)); }
__m128i SignExtendHigh(__m128i v) { return _mm_unpackhi_epi32(v, _mm_srai_epi32(v, 31)); }
// The low 32 bits of the four 64-bit lanes of lo and hi, in order.
__m128i Narrow(__m128i lo, __m128i hi) {
    return _mm_castps_si128(
        _mm_shuffle_ps(_mm_castsi128_ps(lo), _mm_castsi128_ps(hi), _MM_SHUFFLE(2, 0, 2, 0)));
}

// Four lines, one per lane of a, b, c, d.
void ForwardLines(__m128i& a, __m128i& b, __m128i& c, __m128i& d) {
    const Quad lo = ForwardLines64(SignExtendLow(a), SignExtendLow(b), SignExtendLow(c),
                                   SignExtendLow(d));
    const Quad hi = ForwardLines64(SignExtendHigh(a), SignExtendHigh(b), SignExtendHigh(c),
                                   SignExtendHigh(d));
    a = Narrow(lo.a, hi.a);
    b = Narrow(lo.b, hi.b);
    c = Narrow(lo.c, hi.c);
    d = Narrow(lo.d, hi.d);
}

// rows[y + 4z] holds x = 0..3. Along x the lines lie inside the rows, so each z plane is
// transposed around the x pass; along y and z the lines run across rows, one per lane.
void ForwardTransform(__m128i* rows) {
    for (int z = 0; z < 4; ++z) {
        __m128i* r = rows + 4 * z;
        Transpose4x4(r[0], r[1], r[2], r[3]);
        ForwardLines(r[0], r[1], r[2], r[3]);
        Transpose4x4(r[0], r[1], r[2], r[3]);
    }
    for (int z = 0; z < 4; ++z) {
        __m128i* r = rows + 4 * z;
        ForwardLines(r[0], r[1], r[2], r[3]);
    }
    for (int y = 0; y < 4; ++y) {
        ForwardLines(rows[y], rows[y + 4], rows[y + 8], rows[y + 12]);
    }
}

// ---- bit planes ----------------------------------------------------------------------------
// Plane k of the 64 coded words, bit j from word j, comes from byte slices: slice s of a
// group of 16 words holds byte s of each word, so movemask of the slice shifted left by
// 7 - (k mod 8) yields the group's 16 bits of plane k. Planes are produced from the top down,
// doubling the slices' bytes between planes, and only as far as the coder asks.

class PlaneSlicer {
public:
    // words: the 64 coded words, four to a vector.
    explicit PlaneSlicer(const __m128i* words) {
        for (int g = 0; g < 4; ++g) {
            Slice(words + 4 * g, g);
        }
    }

    // Plane k; calls go k = 31, 30, ... downward by one.
    uint64_t Plane(int k) {
        if ((k & 7) == 7) {
            for (int g = 0; g < 4; ++g) cur_[g] = slices_[k >> 3][g];
        }
        uint32_t m[4];
        for (int g = 0; g < 4; ++g) {
            m[g] = static_cast<uint32_t>(_mm_movemask_epi8(cur_[g]));
            cur_[g] = _mm_add_epi8(cur_[g], cur_[g]);
        }
        return (uint64_t{m[2] | m[3] << 16} << 32) | (m[0] | m[1] << 16);
    }

private:
    // A 16 x 4 byte transpose of words w0..w15 into four slices. The first step pairs
    // (w0, w4), (w1, w5), ... so that the byte interleaves below leave each slice in word
    // order 0..15.
    void Slice(const __m128i* w, int g) {
        const __m128i n0 = w[0], n1 = w[1], n2 = w[2], n3 = w[3];
        const __m128i v0 = _mm_unpacklo_epi32(n0, n1), v1 = _mm_unpackhi_epi32(n0, n1);
        const __m128i v2 = _mm_unpacklo_epi32(n2, n3), v3 = _mm_unpackhi_epi32(n2, n3);
        const __m128i a = _mm_unpacklo_epi8(v0, v1), b = _mm_unpackhi_epi8(v0, v1);
        const __m128i c = _mm_unpacklo_epi8(v2, v3), d = _mm_unpackhi_epi8(v2, v3);
        const __m128i e = _mm_unpacklo_epi8(a, b), f = _mm_unpackhi_epi8(a, b);
        const __m128i h0 = _mm_unpacklo_epi8(c, d), h1 = _mm_unpackhi_epi8(c, d);
        const __m128i ef0 = _mm_unpacklo_epi32(e, f), ef1 = _mm_unpackhi_epi32(e, f);
        const __m128i gh0 = _mm_unpacklo_epi32(h0, h1), gh1 = _mm_unpackhi_epi32(h0, h1);
        slices_[0][g] = _mm_unpacklo_epi64(ef0, gh0);
        slices_[1][g] = _mm_unpackhi_epi64(ef0, gh0);
        slices_[2][g] = _mm_unpacklo_epi64(ef1, gh1);
        slices_[3][g] = _mm_unpackhi_epi64(ef1, gh1);
    }

    __m128i slices_[4][4];  // [byte s][group g]
    __m128i cur_[4];
};

// ---- embedded coding -----------------------------------------------------------------------
// Per plane: the bits of the n coefficients already significant go out as they are; then
// group tests over the rest: a 1 says "a 1 bit follows among the rest", then the rest is
// scanned, 0 per coefficient until the 1 bit (not written for the last coefficient, which must
// hold it), and the scan resumes after it; a 0 ends the plane. Every bit counts against the
// budget, and the block stops where it runs out, even in the middle of a run.

// The vector coder writes one run (group bit, t zeros, the 1 bit) as one value.
bool PutPlanes(BitWriter& out, PlaneSlicer& planes, int kmin, int64_t& bits) {
    int n = 0;
    for (int k = kPlanes - 1; k >= kmin && bits > 0; --k) {
        uint64_t x = planes.Plane(k);
        const int m = bits < n ? static_cast<int>(bits) : n;
        if (!out.Put(LowBits(x, m), m)) return false;
        bits -= m;
        if (m < n) break;
        x = m >= 64 ? 0 : x >> m;
        while (n < 64 && bits > 0) {
            if (x == 0) {
                if (!out.Put(0, 1)) return false;
                --bits;
                break;
            }
            const int t = std::countr_zero(x);
            // The scan stops at coefficient 63 without writing its bit.
            const bool last = n + t == 63;
            const uint64_t code = last ? 1 : 1 | uint64_t{2} << t;
            const int len = last ? t + 1 : t + 2;
            if (len > bits) {
                if (!out.Put(LowBits(code, static_cast<int>(bits)), static_cast<int>(bits))) return false;
                bits = 0;
                break;
            }
            if (!out.Put(code, len)) return false;
            bits -= len;
            n += t + 1;
            x = t + 1 >= 64 ? 0 : x >> (t + 1);
        }
    }
    return true;
}

// The twin writes every bit on its own, straight from the description above.
bool PutPlanesScalar(BitWriter& out, const uint32_t* words, int kmin, int64_t& bits) {
    int n = 0;
    for (int k = kPlanes - 1; k >= kmin && bits > 0; --k) {
        uint64_t x = 0;
        for (int j = 0; j < kBlockValues; ++j) {
            x |= uint64_t{(words[j] >> k) & 1u} << j;
        }
        const int m = bits < n ? static_cast<int>(bits) : n;
        for (int i = 0; i < m; ++i, x >>= 1) {
            if (!out.Put(x & 1, 1)) return false;
        }
        bits -= m;
        while (n < 64 && bits > 0) {
            --bits;
            if (!out.Put(x != 0, 1)) return false;
            if (x == 0) break;
            while (n < 63 && bits > 0) {
                --bits;
                if (!out.Put(x & 1, 1)) return false;
                if (x & 1) break;
                x >>= 1;
                ++n;
            }
            x >>= 1;
            ++n;
        }
    }
    return true;
}

// Finishes a block: the saved position, whatever happened.
ZyrStatus Finish(ZfpState& state, const BitWriter& out, bool ok) {
    out.Save(state);
    return ok ? StatusOk : StatusStreamExhausted;
}

}  // namespace

// ---- kernels -------------------------------------------------------------------------------

void ForwardTransformScalar(int32_t* block) {
    for (int i = 0; i < 16; ++i) ForwardLineScalar(block + 4 * i, 1);
    for (int z = 0; z < 4; ++z) {
        for (int x = 0; x < 4; ++x) ForwardLineScalar(block + 16 * z + x, 4);
    }
    for (int i = 0; i < 16; ++i) ForwardLineScalar(block + i, 16);
}

void ForwardTransformSse2(int32_t* block) { TransformInMemory(block, ForwardTransform); }

void WordsToPlanesSse2(const uint32_t* words, uint64_t* planes) {
    __m128i vectors[16];
    for (int i = 0; i < 16; ++i) vectors[i] = _mm_load_si128(reinterpret_cast<const __m128i*>(words + 4 * i));
    PlaneSlicer slicer(vectors);
    for (int k = kPlanes - 1; k >= 0; --k) planes[k] = slicer.Plane(k);
}

void WordsToPlanesScalar(const uint32_t* words, uint64_t* planes) {
    for (int k = 0; k < kPlanes; ++k) {
        planes[k] = 0;
        for (int j = 0; j < kBlockValues; ++j) planes[k] |= uint64_t{(words[j] >> k) & 1u} << j;
    }
}

// ---- block encoders ------------------------------------------------------------------------

ZyrStatus EncodeBlock(ZfpState& state, const float* src, int32_t rowStep, int32_t planeStep) {
    BitWriter out(state);
    if (!out.Resume()) return Finish(state, out, false);

    // Gather, and the exponent fields' maximum with a test for any non-zero magnitude.
    __m128 rows[16];
    __m128i fieldMax = _mm_setzero_si128(), any = _mm_setzero_si128();
    for (int z = 0; z < 4; ++z) {
        for (int y = 0; y < 4; ++y) {
            __m128 r;
            std::memcpy(&r, RowAt(src, rowStep, planeStep, y, z), sizeof r);
            rows[y + 4 * z] = r;
            const __m128i magnitude2 = _mm_slli_epi32(_mm_castps_si128(r), 1);
            // Fields are at most 255, so a signed 16-bit maximum compares them.
            fieldMax = _mm_max_epi16(fieldMax, _mm_srli_epi32(magnitude2, 24));
            any = _mm_or_si128(any, magnitude2);
        }
    }
    fieldMax = _mm_max_epi16(fieldMax, _mm_shuffle_epi32(fieldMax, _MM_SHUFFLE(1, 0, 3, 2)));
    fieldMax = _mm_max_epi16(fieldMax, _mm_shuffle_epi32(fieldMax, _MM_SHUFFLE(2, 3, 0, 1)));
    const bool nonZero = _mm_movemask_epi8(_mm_cmpeq_epi32(any, _mm_setzero_si128())) != 0xFFFF;
    const int e = BlockExponent(static_cast<uint32_t>(_mm_cvtsi128_si32(fieldMax)), nonZero);
    const int64_t p = BlockPrecision(e, state);
    if (p == 0 || e == -127) {
        return Finish(state, out, PutZeroBlock(out, state));
    }
    if (!out.Put(static_cast<uint64_t>(2 * e + 255), kHeaderBits)) return Finish(state, out, false);

    // Block-floating-point integers, transform, negabinary.
    const __m128 scale = _mm_set1_ps(ScaleFor(e));
    __m128i ints[16];
    for (int i = 0; i < 16; ++i) ints[i] = _mm_cvttps_epi32(_mm_mul_ps(rows[i], scale));
    ForwardTransform(ints);
    alignas(16) uint32_t negabinary[kBlockValues];
    const __m128i mask = _mm_set1_epi32(static_cast<int32_t>(kNegabinaryMask));
    for (int i = 0; i < 16; ++i) {
        _mm_store_si128(reinterpret_cast<__m128i*>(negabinary + 4 * i),
                        _mm_xor_si128(_mm_add_epi32(ints[i], mask), mask));
    }
    __m128i coded[16];
    for (int i = 0; i < 16; ++i) coded[i] = GatherPermuted(negabinary, kSequency, i);

    int64_t bits = int64_t{state.maxBits} - kHeaderBits;
    if (bits > 0) {
        PlaneSlicer planes(coded);
        if (!PutPlanes(out, planes, LowestPlane(p), bits)) return Finish(state, out, false);
    }
    return Finish(state, out, PutPadding(out, state, bits));
}

ZyrStatus EncodeBlockScalar(ZfpState& state, const float* src, int32_t rowStep, int32_t planeStep) {
    BitWriter out(state);
    if (!out.Resume()) return Finish(state, out, false);

    float block[kBlockValues];
    uint32_t maxMagnitude = 0;
    for (int z = 0; z < 4; ++z) {
        for (int y = 0; y < 4; ++y) {
            std::memcpy(block + 4 * y + 16 * z, RowAt(src, rowStep, planeStep, y, z), 16);
        }
    }
    for (float v : block) {
        const uint32_t magnitude = std::bit_cast<uint32_t>(v) & 0x7FFFFFFFu;
        maxMagnitude = magnitude > maxMagnitude ? magnitude : maxMagnitude;
    }
    const int e = BlockExponent(maxMagnitude >> 23, maxMagnitude != 0);
    const int64_t p = BlockPrecision(e, state);
    if (p == 0 || e == -127) {
        return Finish(state, out, PutZeroBlock(out, state));
    }
    if (!out.Put(static_cast<uint64_t>(2 * e + 255), kHeaderBits)) return Finish(state, out, false);

    alignas(16) int32_t ints[kBlockValues];
    const float scale = ScaleFor(e);
    for (int i = 0; i < kBlockValues; ++i) ints[i] = Truncate(block[i] * scale);
    ForwardTransformScalar(ints);
    uint32_t coded[kBlockValues];
    for (int j = 0; j < kBlockValues; ++j) {
        coded[j] = (static_cast<uint32_t>(ints[kSequency[j]]) + kNegabinaryMask) ^ kNegabinaryMask;
    }
    int64_t bits = int64_t{state.maxBits} - kHeaderBits;
    if (bits > 0 && !PutPlanesScalar(out, coded, LowestPlane(p), bits)) {
        return Finish(state, out, false);
    }
    return Finish(state, out, PutPadding(out, state, bits));
}

}  // namespace zyrdc::zfp
