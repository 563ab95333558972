// zfp.hpp - internal interface of the ZFP family (used by the C entry points, tests, fuzz
// harnesses and benchmarks): the stream record's rules, the block coders and their kernels,
// each next to the plain twin that the tests and the fuzzer hold it against.
#pragma once

#include <cstddef>
#include <cstdint>

#include "zyrdc.h"

namespace zyrdc::zfp {

inline constexpr uint32_t kMagic = 0x4B617398u;

// Defaults of a freshly initialised record. 4171 bits is the most one block of floats can
// take, so the default maxBits never cuts a block; -10740 lies below every exponent a float
// block can reach, so the default minExp never limits the planes.
inline constexpr int32_t kDefaultMinBits = 0;
inline constexpr int32_t kDefaultMaxBits = 4171;
inline constexpr int32_t kDefaultMaxPrec = 64;
inline constexpr int32_t kDefaultMinExp = -10740;

// A block is 4x4x4 floats; its header is the non-zero flag and the 8-bit biased exponent.
inline constexpr int kBlockValues = 64;
inline constexpr int kHeaderBits = 9;
// Integer coefficients carry 32 bit planes, coded from plane 31 down.
inline constexpr int kPlanes = 32;

// Planes 31 down to LowestPlane(p) are coded for a precision of p planes; none when p < 1.
constexpr int LowestPlane(int64_t p) {
    return p >= kPlanes ? 0 : p < 1 ? kPlanes : kPlanes - static_cast<int>(p);
}

// ---- the stream record --------------------------------------------------------------------

// Lays out a record over buf[0..length) with the default parameters; block and coefficient
// areas are left alone. The length is taken modulo 2^32, as the 64-bit Init documents.
void InitState(ZfpState& state, uint8_t* buf, uint32_t length);
// Stores the four parameters as given and moves pSafeEnd to match maxBits.
void SetParams(ZfpState& state, int32_t minBits, int32_t maxBits, int32_t maxPrec, int32_t minExp);
// minExp for an absolute error tolerance: floor(log2(tolerance)) from the double's exponent
// field, or the default for a tolerance that is not positive.
int32_t AccuracyMinExp(double tolerance);
// pEnd less the largest byte size of a block of maxBits bits, in 32-bit wrap-around arithmetic.
uint8_t* SafeEnd(uint8_t* end, int32_t maxBits);
// Bytes from pBegin to pCur, taken as a 32-bit signed count.
int32_t ConsumedBytes(const ZfpState& state);
// Writes the pending bits: one whole word when 8 bytes fit, else byte by byte.
[[nodiscard]] ZyrStatus Flush(ZfpState& state);

// ---- block coders -------------------------------------------------------------------------
// Steps are in bytes between rows (y) and planes (z) of the 4x4x4 block; rows are 16 bytes.

// The vector coders: SSE2 transform and bit-plane transposition, whole runs of group tests
// written or read at once.
[[nodiscard]] ZyrStatus EncodeBlock(ZfpState& state, const float* src, int32_t rowStep,
                                    int32_t planeStep);
[[nodiscard]] ZyrStatus DecodeBlock(ZfpState& state, float* dst, int32_t rowStep,
                                    int32_t planeStep);
// Their plain twins: one value, one bit at a time, 64-bit sums; same stream, same results.
[[nodiscard]] ZyrStatus EncodeBlockScalar(ZfpState& state, const float* src, int32_t rowStep,
                                          int32_t planeStep);
[[nodiscard]] ZyrStatus DecodeBlockScalar(ZfpState& state, float* dst, int32_t rowStep,
                                          int32_t planeStep);

// ---- kernels, by name for the tests ------------------------------------------------------
// Blocks of 64 integers in index order x + 4y + 16z; the vector kernels need 16-byte alignment.

// One line of four values p[0], p[stride], p[2 stride], p[3 stride], as each forward pass
// transforms it, rounding half to even.
void ForwardLineScalar(int32_t* p, int stride);
// Forward decorrelating transform along x, then y, then z, each pass rounded half to even.
void ForwardTransformSse2(int32_t* block);
void ForwardTransformScalar(int32_t* block);
// Inverse lifting along z, then y, then x, in 32-bit wrap-around arithmetic.
void InverseTransformSse2(int32_t* block);
void InverseTransformScalar(int32_t* block);

// Bit-plane transposition: planes[k] bit j is bit k of words[j], for all 32 planes.
void WordsToPlanesSse2(const uint32_t* words, uint64_t* planes);
void WordsToPlanesScalar(const uint32_t* words, uint64_t* planes);
void PlanesToWordsSse2(const uint64_t* planes, uint32_t* words);
void PlanesToWordsScalar(const uint64_t* planes, uint32_t* words);

}  // namespace zyrdc::zfp
