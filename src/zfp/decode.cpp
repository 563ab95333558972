// decode.cpp - ZFP block decoder: bit planes read with whole runs of group tests at once,
// planes turned back into words by 8 x 8 bit transposes, then negabinary, sequency order,
// inverse lifting and scaling in SSE2; and the decoder's plain twin.
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

uint8_t* RowAt(float* base, int32_t rowStep, int32_t planeStep, int y, int z) {
    return reinterpret_cast<uint8_t*>(base) + RowOffset(rowStep, planeStep, y, z);
}

// The block's 64 values go out row by row, each row one 16-byte unit, whatever the
// destination's alignment.
void StoreRows(const float* block, float* dst, int32_t rowStep, int32_t planeStep) {
    for (int z = 0; z < 4; ++z) {
        for (int y = 0; y < 4; ++y) {
            std::memcpy(RowAt(dst, rowStep, planeStep, y, z), block + 4 * y + 16 * z, 16);
        }
    }
}

// 2^(E - 30) from the biased exponent E; zero when E - 30 is not a positive exponent field,
// so that blocks the encoder scaled by its capped 2^127 come back as zeros.
float ScaleFor(uint32_t biased) {
    const int field = static_cast<int>(biased) - 30;
    return std::bit_cast<float>(static_cast<uint32_t>(field > 0 ? field : 0) << 23);
}

// Planes p = E - 127 - minExp + 8, at most maxPrec; below 1, none.
int64_t BlockPrecision(uint32_t biased, const ZfpState& s) {
    const int64_t p = int64_t{biased} - 127 - s.minExp + 8;
    return p < s.maxPrec ? p : s.maxPrec;
}

// ---- the inverse transform -------------------------------------------------------------------
// The lifting steps of one line, in 32-bit wrap-around arithmetic with arithmetic shifts.

void InverseLineScalar(int32_t* p, int stride) {
    auto sar1 = [](uint32_t v) { return static_cast<uint32_t>(static_cast<int32_t>(v) >> 1); };
    uint32_t x0 = static_cast<uint32_t>(p[0]), x1 = static_cast<uint32_t>(p[stride]);
    uint32_t x2 = static_cast<uint32_t>(p[2 * stride]), x3 = static_cast<uint32_t>(p[3 * stride]);
    x1 += sar1(x3);
    x3 -= sar1(x1);
    x1 += x3;
    x3 = 2 * x3 - x1;
    x2 += x0;
    x0 = 2 * x0 - x2;
    x1 += x2;
    x2 = 2 * x2 - x1;
    x3 += x0;
    x0 = 2 * x0 - x3;
    p[0] = static_cast<int32_t>(x0);
    p[stride] = static_cast<int32_t>(x1);
    p[2 * stride] = static_cast<int32_t>(x2);
    p[3 * stride] = static_cast<int32_t>(x3);
}

// Four lines, one per lane.
void InverseLines(__m128i& x0, __m128i& x1, __m128i& x2, __m128i& x3) {
    x1 = _mm_add_epi32(x1, _mm_srai_epi32(x3, 1));
    x3 = _mm_sub_epi32(x3, _mm_srai_epi32(x1, 1));
    x1 = _mm_add_epi32(x1, x3);
    x3 = _mm_sub_epi32(_mm_add_epi32(x3, x3), x1);
    x2 = _mm_add_epi32(x2, x0);
    x0 = _mm_sub_epi32(_mm_add_epi32(x0, x0), x2);
    x1 = _mm_add_epi32(x1, x2);
    x2 = _mm_sub_epi32(_mm_add_epi32(x2, x2), x1);
    x3 = _mm_add_epi32(x3, x0);
    x0 = _mm_sub_epi32(_mm_add_epi32(x0, x0), x3);
}

// rows[y + 4z] holds x = 0..3: z and y lines run across rows, x lines inside them. After the
// pass along z, the passes along y and x stay within one z plane, so a plane's four rows can
// take both in registers.
void InversePlane(__m128i& r0, __m128i& r1, __m128i& r2, __m128i& r3) {
    InverseLines(r0, r1, r2, r3);
    Transpose4x4(r0, r1, r2, r3);
    InverseLines(r0, r1, r2, r3);
    Transpose4x4(r0, r1, r2, r3);
}

void InverseAlongZ(__m128i* rows) {
    for (int y = 0; y < 4; ++y) InverseLines(rows[y], rows[y + 4], rows[y + 8], rows[y + 12]);
}

void InverseTransform(__m128i* rows) {
    InverseAlongZ(rows);
    for (int z = 0; z < 4; ++z) InversePlane(rows[4 * z], rows[4 * z + 1], rows[4 * z + 2], rows[4 * z + 3]);
}

// ---- planes back to words --------------------------------------------------------------------
// Eight planes 8s..8s+7 form an 8 x 8 byte matrix (rows: planes, columns: the planes' bytes,
// that is, groups of 8 coefficients). A byte transpose gathers each column's 8 bytes, and an
// 8 x 8 bit transpose of those turns them into byte s of the 8 coefficients' words. Four such
// slices then interleave into whole words.

// Transposes the 8 x 8 bit matrix in each 64-bit lane (byte r, bit c -> byte c, bit r) by
// three rounds of swapping off-diagonal blocks of 1, 2 and 4 bits.
__m128i TransposeBits(__m128i x) {
    const __m128i m1 = _mm_set1_epi64x(0x00AA00AA00AA00AALL);
    const __m128i m2 = _mm_set1_epi64x(0x0000CCCC0000CCCCLL);
    const __m128i m4 = _mm_set1_epi64x(0x00000000F0F0F0F0LL);
    __m128i t = _mm_and_si128(_mm_xor_si128(x, _mm_srli_epi64(x, 7)), m1);
    x = _mm_xor_si128(x, _mm_xor_si128(t, _mm_slli_epi64(t, 7)));
    t = _mm_and_si128(_mm_xor_si128(x, _mm_srli_epi64(x, 14)), m2);
    x = _mm_xor_si128(x, _mm_xor_si128(t, _mm_slli_epi64(t, 14)));
    t = _mm_and_si128(_mm_xor_si128(x, _mm_srli_epi64(x, 28)), m4);
    return _mm_xor_si128(x, _mm_xor_si128(t, _mm_slli_epi64(t, 28)));
}

// slice[g] = byte s of words 16g .. 16g + 15, from planes 8s .. 8s + 7.
void PlanesToSlice(const uint64_t* planes, __m128i* slice) {
    __m128i r[8];
    uint64_t any = 0;
    for (int b = 0; b < 8; ++b) {
        any |= planes[b];
        r[b] = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(planes + b));
    }
    if (any == 0) {
        for (int g = 0; g < 4; ++g) slice[g] = _mm_setzero_si128();
        return;
    }
    const __m128i a0 = _mm_unpacklo_epi8(r[0], r[1]), a1 = _mm_unpacklo_epi8(r[2], r[3]);
    const __m128i a2 = _mm_unpacklo_epi8(r[4], r[5]), a3 = _mm_unpacklo_epi8(r[6], r[7]);
    const __m128i b0 = _mm_unpacklo_epi16(a0, a1), b1 = _mm_unpackhi_epi16(a0, a1);
    const __m128i b2 = _mm_unpacklo_epi16(a2, a3), b3 = _mm_unpackhi_epi16(a2, a3);
    slice[0] = TransposeBits(_mm_unpacklo_epi32(b0, b2));
    slice[1] = TransposeBits(_mm_unpackhi_epi32(b0, b2));
    slice[2] = TransposeBits(_mm_unpacklo_epi32(b1, b3));
    slice[3] = TransposeBits(_mm_unpackhi_epi32(b1, b3));
}

// Words 16g .. 16g + 15 from their four byte slices, passed through `finish` and stored at w.
template <class Finish>
void SlicesToWords(__m128i s0, __m128i s1, __m128i s2, __m128i s3, uint32_t* w, Finish finish) {
    const __m128i a = _mm_unpacklo_epi8(s0, s1), b = _mm_unpackhi_epi8(s0, s1);
    const __m128i c = _mm_unpacklo_epi8(s2, s3), d = _mm_unpackhi_epi8(s2, s3);
    _mm_store_si128(reinterpret_cast<__m128i*>(w), finish(_mm_unpacklo_epi16(a, c)));
    _mm_store_si128(reinterpret_cast<__m128i*>(w + 4), finish(_mm_unpackhi_epi16(a, c)));
    _mm_store_si128(reinterpret_cast<__m128i*>(w + 8), finish(_mm_unpacklo_epi16(b, d)));
    _mm_store_si128(reinterpret_cast<__m128i*>(w + 12), finish(_mm_unpackhi_epi16(b, d)));
}

template <class Finish>
void PlanesToWordsThen(const uint64_t* planes, uint32_t* words, Finish finish) {
    __m128i slices[4][4];  // [byte s][group g]
    for (int s = 0; s < 4; ++s) PlanesToSlice(planes + 8 * s, slices[s]);
    for (int g = 0; g < 4; ++g) {
        SlicesToWords(slices[0][g], slices[1][g], slices[2][g], slices[3][g], words + 16 * g, finish);
    }
}

// Coded words in two's complement: v = (u ^ mask) - mask undoes the negabinary form.
void PlanesToCoded(const uint64_t* planes, uint32_t* words) {
    const __m128i mask = _mm_set1_epi32(static_cast<int32_t>(kNegabinaryMask));
    PlanesToWordsThen(planes, words,
                      [mask](__m128i u) { return _mm_sub_epi32(_mm_xor_si128(u, mask), mask); });
}

// ---- embedded decoding -----------------------------------------------------------------------
// Mirrors the encoder bit for bit: the verbatim bits of the significant coefficients, then
// group tests; a run read up to the budget's end without its 1 bit still marks the coefficient
// it reached, as the encoder's stopping point implies.

template <class Reader>
bool GetPlanes(Reader& in, uint64_t* planes, int kmin, int64_t& bits) {
    int n = 0;
    int k = kPlanes - 1;
    for (; k >= kmin && bits > 0; --k) {
        const int m = bits < n ? static_cast<int>(bits) : n;
        uint64_t x;
        if (!in.Get(m, x)) return false;
        bits -= m;
        if (!in.GetGroups(n, bits, x)) return false;
        planes[k] = x;
    }
    // The planes not coded are zero.
    for (; k >= 0; --k) planes[k] = 0;
    return true;
}

bool GetPlanesScalar(BitReader& in, uint32_t* words, int kmin, int64_t& bits) {
    int n = 0;
    for (int k = kPlanes - 1; k >= kmin && bits > 0; --k) {
        const int m = bits < n ? static_cast<int>(bits) : n;
        uint64_t x = 0, bit;
        for (int i = 0; i < m; ++i) {
            if (!in.GetBit(bit)) return false;
            x |= bit << i;
        }
        bits -= m;
        while (n < 64 && bits > 0) {
            --bits;
            if (!in.GetBit(bit)) return false;
            if (bit == 0) break;
            while (n < 63 && bits > 0) {
                --bits;
                if (!in.GetBit(bit)) return false;
                if (bit == 1) break;
                ++n;
            }
            x |= uint64_t{1} << n;
            ++n;
        }
        for (int j = 0; j < kBlockValues; ++j) {
            words[j] |= static_cast<uint32_t>((x >> j) & 1) << k;
        }
    }
    return true;
}

template <class Reader>
ZyrStatus Finish(ZfpState& state, const Reader& in, bool ok) {
    in.Save(state);
    return ok ? StatusOk : StatusStreamExhausted;
}

// The parts every block shares: the flag (a zero block is stored and its padding skipped
// here), then the exponent and the plane budget. Returns false when the block is done or
// the stream ran out; `status` tells which.
struct Header {
    uint32_t biased = 0;
    int kmin = kPlanes;
    int64_t bits = 0;
};

template <class Reader>
bool ReadHeader(ZfpState& state, Reader& in, float* dst, int32_t rowStep, int32_t planeStep,
                Header& h, ZyrStatus& status) {
    uint64_t flag, biased;
    if (!in.GetBit(flag)) {
        status = Finish(state, in, false);
        return false;
    }
    if (flag == 0) {
        static constexpr float kZeros[kBlockValues] = {};
        StoreRows(kZeros, dst, rowStep, planeStep);
        status = Finish(state, in, state.minBits < 2 || in.Skip(int64_t{state.minBits} - 1));
        return false;
    }
    if (!in.Get(8, biased)) {
        status = Finish(state, in, false);
        return false;
    }
    h.biased = static_cast<uint32_t>(biased);
    h.kmin = LowestPlane(BlockPrecision(h.biased, state));
    h.bits = int64_t{state.maxBits} - kHeaderBits;
    return true;
}

template <class Reader>
bool SkipPadding(Reader& in, const ZfpState& s, int64_t bitsLeft) {
    const int64_t used = (int64_t{s.maxBits} - kHeaderBits) - bitsLeft;
    const int64_t wanted = int64_t{s.minBits} - kHeaderBits;
    return used >= wanted || in.Skip(wanted - used);
}

// The most bits a block can take: the header or maxBits, or more when padded to minBits.
int64_t MaxBlockBits(const ZfpState& s) {
    int64_t most = s.maxBits > kHeaderBits ? s.maxBits : kHeaderBits;
    return s.minBits > most ? s.minBits : most;
}

// Everything after the bits: planes to words (in negabinary, turned to two's complement on
// the way), sequency order back to index order, lifting, scaling, and the rows stored.
void Reconstruct(const uint64_t* planes, uint32_t biased, float* dst, int32_t rowStep,
                 int32_t planeStep) {
    alignas(16) uint32_t coded[kBlockValues];
    PlanesToCoded(planes, coded);
    __m128i rows[16];
    for (int i = 0; i < 16; ++i) rows[i] = GatherPermuted(coded, kInverseSequency, i);
    InverseAlongZ(rows);
    const __m128 scale = _mm_set1_ps(ScaleFor(biased));
    for (int z = 0; z < 4; ++z) {
        __m128i r[4] = {rows[4 * z], rows[4 * z + 1], rows[4 * z + 2], rows[4 * z + 3]};
        InversePlane(r[0], r[1], r[2], r[3]);
        for (int y = 0; y < 4; ++y) {
            const __m128 v = _mm_mul_ps(_mm_cvtepi32_ps(r[y]), scale);
            std::memcpy(RowAt(dst, rowStep, planeStep, y, z), &v, sizeof v);
        }
    }
}

template <class Reader>
ZyrStatus DecodeWith(ZfpState& state, float* dst, int32_t rowStep, int32_t planeStep) {
    Reader in(state);
    Header h;
    ZyrStatus status;
    if (!ReadHeader(state, in, dst, rowStep, planeStep, h, status)) return status;
    alignas(16) uint64_t planes[kPlanes];
    if (!GetPlanes(in, planes, h.kmin, h.bits)) return Finish(state, in, false);
    if (!SkipPadding(in, state, h.bits)) return Finish(state, in, false);
    Reconstruct(planes, h.biased, dst, rowStep, planeStep);
    return Finish(state, in, true);
}

}  // namespace

// ---- kernels -------------------------------------------------------------------------------

void InverseTransformScalar(int32_t* block) {
    for (int i = 0; i < 16; ++i) InverseLineScalar(block + i, 16);
    for (int z = 0; z < 4; ++z) {
        for (int x = 0; x < 4; ++x) InverseLineScalar(block + 16 * z + x, 4);
    }
    for (int i = 0; i < 16; ++i) InverseLineScalar(block + 4 * i, 1);
}

void InverseTransformSse2(int32_t* block) { TransformInMemory(block, InverseTransform); }

void PlanesToWordsSse2(const uint64_t* planes, uint32_t* words) {
    PlanesToWordsThen(planes, words, [](__m128i u) { return u; });
}

void PlanesToWordsScalar(const uint64_t* planes, uint32_t* words) {
    for (int j = 0; j < kBlockValues; ++j) {
        words[j] = 0;
        for (int k = 0; k < kPlanes; ++k) words[j] |= static_cast<uint32_t>((planes[k] >> j) & 1) << k;
    }
}

// ---- block decoders ------------------------------------------------------------------------

ZyrStatus DecodeBlock(ZfpState& state, float* dst, int32_t rowStep, int32_t planeStep) {
    // Away from the end of the stream the bits come through the unchecked window.
    if (WindowReader::Fits(state, MaxBlockBits(state))) {
        return DecodeWith<WindowReader>(state, dst, rowStep, planeStep);
    }
    return DecodeWith<BitReader>(state, dst, rowStep, planeStep);
}

ZyrStatus DecodeBlockScalar(ZfpState& state, float* dst, int32_t rowStep, int32_t planeStep) {
    BitReader in(state);
    Header h;
    ZyrStatus status;
    if (!ReadHeader(state, in, dst, rowStep, planeStep, h, status)) return status;

    uint32_t coded[kBlockValues] = {};
    if (h.bits > 0 && !GetPlanesScalar(in, coded, h.kmin, h.bits)) return Finish(state, in, false);
    if (!SkipPadding(in, state, h.bits)) return Finish(state, in, false);

    alignas(16) int32_t ints[kBlockValues];
    for (int i = 0; i < kBlockValues; ++i) {
        const uint32_t u = coded[kInverseSequency[i]];
        ints[i] = static_cast<int32_t>((u ^ kNegabinaryMask) - kNegabinaryMask);
    }
    InverseTransformScalar(ints);
    const float scale = ScaleFor(h.biased);
    float values[kBlockValues];
    for (int i = 0; i < kBlockValues; ++i) values[i] = static_cast<float>(ints[i]) * scale;
    StoreRows(values, dst, rowStep, planeStep);
    return Finish(state, in, true);
}

}  // namespace zyrdc::zfp
