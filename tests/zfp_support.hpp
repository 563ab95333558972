// zfp_support.hpp - test fields and whole-field coding through the ZFP entry points, shared by
// the ZFP unit tests and the interoperability tests.
#pragma once

#include <cmath>
#include <cstdint>
#include <random>
#include <vector>

#include "zyrdc.h"

namespace zyrdc::test {

struct ZfpParams {
    int32_t minBits, maxBits, maxPrec, minExp;
};
inline ZfpParams ZfpRate(int bitsPerValue) {
    return {64 * bitsPerValue, 64 * bitsPerValue, 64, -10740};
}
inline ZfpParams ZfpPrecision(int planes) { return {0, 4171, planes, -10740}; }
inline ZfpParams ZfpAccuracy(int minExp) { return {0, 4171, 64, minExp}; }

enum class FieldKind { Smooth, Noisy, Constant, Sparse, WideRange };

// A 3-D float field, x fastest; dimensions are multiples of 4 unless a test says otherwise.
struct Field {
    int nx, ny, nz;
    std::vector<float> v;
    size_t Index(int x, int y, int z) const { return static_cast<size_t>(x + nx * (y + ny * z)); }
};

inline Field MakeField(FieldKind kind, int nx, int ny, int nz, uint32_t seed) {
    Field f{nx, ny, nz, std::vector<float>(static_cast<size_t>(nx) * ny * nz)};
    std::mt19937 rng(seed);
    std::uniform_real_distribution<float> unit(-1.0f, 1.0f);
    for (int z = 0; z < nz; ++z) {
        for (int y = 0; y < ny; ++y) {
            for (int x = 0; x < nx; ++x) {
                float& v = f.v[f.Index(x, y, z)];
                switch (kind) {
                case FieldKind::Smooth: {
                    // A low-order polynomial: smooth, and the same floats in both builds,
                    // which library sines need not be.
                    const float fx = 0.1f * x, fy = 0.07f * y, fz = 0.05f * z;
                    v = 1.0f + fx * fx - fy * fz + 0.5f * fz * fz * fz - 0.3f * fx * fy;
                    break;
                }
                case FieldKind::Noisy: v = 100.0f * unit(rng); break;
                case FieldKind::Constant: v = 2.75f; break;
                case FieldKind::Sparse: v = rng() % 97 == 0 ? 50.0f * unit(rng) : 0.0f; break;
                case FieldKind::WideRange:
                    v = unit(rng) * std::ldexp(1.0f, static_cast<int>(rng() % 120) - 60);
                    break;
                }
            }
        }
    }
    return f;
}

// Coders of one block, the exported ones' record-first twins, behind one signature.
using BlockEncoder = ZyrStatus (*)(ZfpState&, const float*, int32_t, int32_t);
using BlockDecoder = ZyrStatus (*)(ZfpState&, float*, int32_t, int32_t);

// Stream position in bits: whole bytes passed plus bits pending (encoder) or minus bits
// loaded but unread (decoder).
inline int64_t WrittenBits(const ZfpState& s) { return 8 * (s.pCur - s.pBegin) + s.bitCount; }
inline int64_t ReadBits(const ZfpState& s) { return 8 * (s.pCur - s.pBegin) - s.bitCount; }

// Calls code(index of the block's first value, row step, plane step) for every block in
// raster order (x fastest) until it returns something other than StatusOk.
template <class Code>
bool ForEachBlock(int nx, int ny, int nz, Code code) {
    const auto row = static_cast<int32_t>(4 * nx), plane = static_cast<int32_t>(4 * nx * ny);
    for (int z = 0; z < nz; z += 4) {
        for (int y = 0; y < ny; y += 4) {
            for (int x = 0; x < nx; x += 4) {
                if (code(static_cast<size_t>(x + nx * (y + ny * z)), row, plane) != StatusOk) return false;
            }
        }
    }
    return true;
}

// The stream of every block through the exported encoder, flushed and cut to its length
// (empty on failure); blockBits, if given, receives each block's size.
inline std::vector<uint8_t> Compress(const Field& f, ZfpParams p, std::vector<int64_t>* blockBits = nullptr) {
    std::vector<uint8_t> out(f.v.size() * 9 + 64);
    ZfpState s;
    zyrsEncodeZfpInit_32f(out.data(), static_cast<int32_t>(out.size()), &s);
    zyrsEncodeZfpSet_32f(p.minBits, p.maxBits, p.maxPrec, p.minExp, &s);
    const bool ok = ForEachBlock(f.nx, f.ny, f.nz, [&](size_t at, int32_t row, int32_t plane) {
        const int64_t before = WrittenBits(s);
        const ZyrStatus status = zyrsEncodeZfp444_32f(&f.v[at], row, plane, &s);
        if (blockBits) blockBits->push_back(WrittenBits(s) - before);
        return status;
    });
    if (!ok || zyrsEncodeZfpFlush_32f(&s) != StatusOk) return {};
    out.resize(static_cast<size_t>(s.pCur - s.pBegin));
    return out;
}

inline Field Decompress(const std::vector<uint8_t>& stream, int nx, int ny, int nz, ZfpParams p,
                        std::vector<int64_t>* blockBits = nullptr) {
    Field f{nx, ny, nz, std::vector<float>(static_cast<size_t>(nx) * ny * nz)};
    ZfpState s;
    zyrsDecodeZfpInit_32f(stream.data(), static_cast<int32_t>(stream.size()), &s);
    zyrsDecodeZfpSet_32f(p.minBits, p.maxBits, p.maxPrec, p.minExp, &s);
    const bool ok = ForEachBlock(nx, ny, nz, [&](size_t at, int32_t row, int32_t plane) {
        const int64_t before = ReadBits(s);
        const ZyrStatus status = zyrsDecodeZfp444_32f(&s, &f.v[at], row, plane);
        if (blockBits) blockBits->push_back(ReadBits(s) - before);
        return status;
    });
    return ok ? f : Field{nx, ny, nz, {}};
}

inline double MaxError(const Field& a, const Field& b) {
    if (a.v.size() != b.v.size()) return INFINITY;
    double e = 0.0;
    for (size_t i = 0; i < a.v.size(); ++i) {
        const double d = std::fabs(static_cast<double>(a.v[i]) - b.v[i]);
        if (!(d <= e)) e = std::isnan(d) ? INFINITY : d;
    }
    return e;
}

}  // namespace zyrdc::test
