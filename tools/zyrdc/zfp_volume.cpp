// zfp_volume.cpp - volumes to and from the zfp tool's file layout, block by block through the
// library.
//
// The header is a bit stream of its own, least significant bit first like the blocks that
// follow it without alignment:
//   32 bits  'z', 'f', 'p' and the codec version, 5
//   52 bits  scalar type (float: 2), dimensionality less one (2), then nx-1, ny-1, nz-1 in
//            16 bits each
//   12 bits  the mode, short form: 0..2047 a fixed rate of mode+1 bits per block; 2048..2111
//            a fixed precision of mode-2047 planes; 2176 reversible; 2177..4094 a fixed
//            accuracy with minExp = mode-2177-1074; 4095 announces the long form:
//   64 bits  4095, then minBits-1 and maxBits-1 in 15 bits each, maxPrec-1 in 7 bits and
//            minExp+16495 in 15 bits.
// In the short forms the other three parameters are the tool's defaults (no minimum, no
// maximum, 64 planes, minExp -1074), which code float blocks exactly as the record's own
// defaults do.
#include "zfp_volume.hpp"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <string>

#include "common.hpp"
#include "zyrdc.h"

namespace zyrdc::tool {

namespace {

constexpr std::uint32_t kMagic = 'z' | 'f' << 8 | 'p' << 16;
constexpr std::uint32_t kCodec = 5;
constexpr std::uint64_t kFloat3d = 2 | 2 << 2;  // type code, dimensionality less one
constexpr int kMetaBits = 52;
constexpr int kShortModeBits = 12;
constexpr std::uint32_t kLongMode = 4095;
constexpr std::int32_t kToolMinExp = -1074;  // no accuracy limit

// The record's defaults for the parameters a short mode leaves open.
constexpr std::int32_t kNoMinBits = 0, kNoMaxBits = 4171, kAllPlanes = 64, kNoMinExp = -10740;

// A float block's largest size: the header, then per plane at most one bit per coefficient
// and one group bit, plus one group bit per coefficient turning significant:
// 9 + 32 x (64 + 1) + 64.
constexpr std::int64_t kMaxFloatBlockBits = 9 + 32 * 65 + 64;

// ---- header bits ---------------------------------------------------------------------------

class HeaderWriter {
public:
    void Put(std::uint64_t value, int width) {
        for (int i = 0; i < width; ++i, ++bits_) {
            if (bits_ % 8 == 0) bytes_.push_back(0);
            bytes_.back() = static_cast<std::uint8_t>(bytes_.back() | ((value >> i) & 1) << (bits_ % 8));
        }
    }
    const std::vector<std::uint8_t>& Bytes() const { return bytes_; }
    int Bits() const { return bits_; }

private:
    std::vector<std::uint8_t> bytes_;
    int bits_ = 0;
};

class HeaderReader {
public:
    explicit HeaderReader(std::span<const std::uint8_t> bytes) : bytes_(bytes) {}
    std::uint64_t Get(int width) {
        if (bits_ + width > 8 * bytes_.size()) {
            throw Failure("truncated zfp header (" + std::to_string(bytes_.size()) + " bytes)");
        }
        std::uint64_t v = 0;
        for (int i = 0; i < width; ++i, ++bits_) {
            v |= std::uint64_t{(bytes_[bits_ / 8] >> (bits_ % 8)) & 1u} << i;
        }
        return v;
    }
    std::size_t Bits() const { return bits_; }

private:
    std::span<const std::uint8_t> bytes_;
    std::size_t bits_ = 0;
};

// The mode the tool would write for these parameters: the short form where one exists.
void PutMode(HeaderWriter& out, const ZfpParams& p) {
    const bool allPlanes = p.maxPrec >= kAllPlanes;
    const bool noMinExp = p.minExp <= kToolMinExp;
    const bool unbounded = p.minBits <= 1 && p.maxBits >= kNoMaxBits;
    if (p.minBits == p.maxBits && p.maxBits >= 1 && p.maxBits <= 2048 && allPlanes && noMinExp) {
        out.Put(static_cast<std::uint64_t>(p.maxBits - 1), kShortModeBits);
    } else if (unbounded && p.maxPrec >= 1 && p.maxPrec <= 64 && noMinExp) {
        out.Put(static_cast<std::uint64_t>(2047 + p.maxPrec), kShortModeBits);
    } else if (unbounded && allPlanes && p.minExp >= kToolMinExp && p.minExp <= 843) {
        out.Put(static_cast<std::uint64_t>(2177 + p.minExp - kToolMinExp), kShortModeBits);
    } else {
        const auto field = [](std::int64_t v, int width) {
            return static_cast<std::uint64_t>(std::clamp<std::int64_t>(v, 0, (std::int64_t{1} << width) - 1));
        };
        out.Put(kLongMode, kShortModeBits);
        out.Put(field(std::int64_t{p.minBits} - 1, 15), 15);
        out.Put(field(std::int64_t{p.maxBits} - 1, 15), 15);
        out.Put(field(std::int64_t{p.maxPrec} - 1, 7), 7);
        // The tool's own "no limit" stands in for anything below it, as for floats it is one.
        out.Put(field(std::int64_t{std::max(p.minExp, kToolMinExp)} + 16495, 15), 15);
    }
}

ZfpParams GetMode(HeaderReader& in) {
    const auto mode = static_cast<std::uint32_t>(in.Get(kShortModeBits));
    if (mode < 2048) {
        const auto bits = static_cast<std::int32_t>(mode + 1);
        return {bits, bits, kAllPlanes, kNoMinExp};
    }
    if (mode < 2048 + 64) {
        return {kNoMinBits, kNoMaxBits, static_cast<std::int32_t>(mode - 2047), kNoMinExp};
    }
    if (mode == 2176) {
        throw Failure("the stream is in reversible (lossless) mode, which zyrdc zfp does not code");
    }
    if (mode > 2176 && mode < kLongMode) {
        return {kNoMinBits, kNoMaxBits, kAllPlanes, static_cast<std::int32_t>(mode) - 2177 + kToolMinExp};
    }
    if (mode != kLongMode) {
        throw Failure("unknown zfp mode " + std::to_string(mode));
    }
    ZfpParams p;
    p.minBits = static_cast<std::int32_t>(in.Get(15)) + 1;
    p.maxBits = static_cast<std::int32_t>(in.Get(15)) + 1;
    p.maxPrec = static_cast<std::int32_t>(in.Get(7)) + 1;
    p.minExp = static_cast<std::int32_t>(in.Get(15)) - 16495;
    if (p.minExp < kToolMinExp) {
        throw Failure("the stream is in reversible (lossless) mode, which zyrdc zfp does not code");
    }
    return p;
}

// ---- blocks -------------------------------------------------------------------------------

// Calls visit(x, y, z, full) for each block corner in the order of the stream.
template <class Visit>
void ForEachBlock(const ZfpDims& d, Visit visit) {
    for (std::uint32_t z = 0; z < d.nz; z += 4) {
        for (std::uint32_t y = 0; y < d.ny; y += 4) {
            for (std::uint32_t x = 0; x < d.nx; x += 4) {
                visit(x, y, z, x + 4 <= d.nx && y + 4 <= d.ny && z + 4 <= d.nz);
            }
        }
    }
}

std::uint64_t BlockCount(const ZfpDims& d) {
    return std::uint64_t{(d.nx + 3) / 4} * ((d.ny + 3) / 4) * ((d.nz + 3) / 4);
}

std::size_t At(const ZfpDims& d, std::uint64_t x, std::uint64_t y, std::uint64_t z) {
    return static_cast<std::size_t>(x + d.nx * (y + std::uint64_t{d.ny} * z));
}

// Steps of the whole volume when they fit the block coder's 32-bit byte steps.
bool DirectSteps(const ZfpDims& d, std::int32_t& row, std::int32_t& plane) {
    const std::uint64_t planeBytes = 4 * std::uint64_t{d.nx} * d.ny;
    if (planeBytes > 0x7FFFFFFF) return false;
    row = static_cast<std::int32_t>(4 * d.nx);
    plane = static_cast<std::int32_t>(planeBytes);
    return true;
}

void Check(ZyrStatus status, const char* what) { CheckStatus(status, what); }

}  // namespace

ZfpParams ZfpRateParams(double rate) {
    const auto bits = std::max<std::int32_t>(9, static_cast<std::int32_t>(std::floor(64 * rate + 0.5)));
    return {bits, bits, kAllPlanes, kNoMinExp};
}

ZfpParams ZfpPrecisionParams(int planes) { return {kNoMinBits, kNoMaxBits, planes, kNoMinExp}; }

ZfpParams ZfpAccuracyParams(double tolerance) {
    // The library's own rule, floor(log2(tolerance)), read back from a scratch record.
    std::uint8_t scratch[1];
    ZfpState s;
    Check(zyrsEncodeZfpInit_32f(scratch, 1, &s), "zyrsEncodeZfpInit_32f");
    Check(zyrsEncodeZfpSetAccuracy_32f(tolerance, &s), "zyrsEncodeZfpSetAccuracy_32f");
    return {kNoMinBits, kNoMaxBits, kAllPlanes, s.minExp};
}

std::vector<std::uint8_t> ZfpCompress(std::span<const float> values, ZfpDims dims, ZfpParams p) {
    HeaderWriter header;
    header.Put(kMagic, 24);
    header.Put(kCodec, 8);
    header.Put(kFloat3d | std::uint64_t{dims.nx - 1} << 4 | std::uint64_t{dims.ny - 1} << 20 |
                   std::uint64_t{dims.nz - 1} << 36,
               kMetaBits);
    PutMode(header, p);

    const std::int64_t blockBits =
        std::max<std::int64_t>(p.minBits, std::min<std::int64_t>(p.maxBits, kMaxFloatBlockBits));
    const std::uint64_t bound = static_cast<std::uint64_t>(header.Bits() + 64 + 7) / 8 +
                                (BlockCount(dims) * static_cast<std::uint64_t>(blockBits) + 7) / 8 + 8;
    // The record counts bytes in 32 bits.
    if (bound > 0x7FFFFFFF) {
        throw Failure("volume too large: its stream could exceed 2 GiB");
    }
    std::vector<std::uint8_t> out(static_cast<std::size_t>(bound));
    ZfpState s;
    Check(zyrsEncodeZfpInitLong_32f(out.data(), out.size(), &s), "zyrsEncodeZfpInitLong_32f");
    Check(zyrsEncodeZfpSet_32f(p.minBits, p.maxBits, p.maxPrec, p.minExp, &s), "zyrsEncodeZfpSet_32f");
    // The header's whole words go out here; its last bits start the record's bit buffer, so
    // that the first block follows them directly, as the tool's reader expects.
    const int words = header.Bits() / 64;
    std::memcpy(out.data(), header.Bytes().data(), static_cast<std::size_t>(8 * words));
    s.pCur = out.data() + 8 * words;
    for (int i = 8 * words; i < static_cast<int>(header.Bytes().size()); ++i) {
        s.bitBuffer |= std::uint64_t{header.Bytes()[static_cast<std::size_t>(i)]} << (8 * (i - 8 * words));
    }
    s.bitCount = header.Bits() % 64;

    std::int32_t row = 0, plane = 0;
    const bool direct = DirectSteps(dims, row, plane);
    ForEachBlock(dims, [&](std::uint32_t x, std::uint32_t y, std::uint32_t z, bool full) {
        if (full && direct) {
            Check(zyrsEncodeZfp444_32f(&values[At(dims, x, y, z)], row, plane, &s), "zyrsEncodeZfp444_32f");
            return;
        }
        // Partial edge blocks repeat each line's last value: a smooth continuation that costs
        // few bits and that the decoder's cropping throws away.
        float block[64];
        for (std::uint32_t k = 0; k < 4; ++k) {
            for (std::uint32_t j = 0; j < 4; ++j) {
                for (std::uint32_t i = 0; i < 4; ++i) {
                    block[i + 4 * j + 16 * k] = values[At(dims, std::min(x + i, dims.nx - 1),
                                                          std::min(y + j, dims.ny - 1),
                                                          std::min(z + k, dims.nz - 1))];
                }
            }
        }
        Check(zyrsEncodeZfp444_32f(block, 16, 64, &s), "zyrsEncodeZfp444_32f");
    });
    Check(zyrsEncodeZfpFlush_32f(&s), "zyrsEncodeZfpFlush_32f");
    out.resize(static_cast<std::size_t>(s.pCur - out.data()));
    return out;
}

ZfpVolume ZfpDecompress(std::span<const std::uint8_t> file) {
    HeaderReader header(file);
    if (header.Get(24) != kMagic) {
        throw Failure("not a zfp stream with a header (zfp -h writes one)");
    }
    if (const std::uint64_t codec = header.Get(8); codec != kCodec) {
        throw Failure("zfp codec version " + std::to_string(codec) + " is not supported (only " +
                      std::to_string(kCodec) + ")");
    }
    if (file.size() > 0xFFFFFFFFu) {
        throw Failure("stream too large: the record addresses at most 4 GiB");
    }
    const std::uint64_t meta = header.Get(kMetaBits);
    if ((meta & 3) != (kFloat3d & 3)) {
        throw Failure("the stream holds no 32-bit floats; zyrdc zfp codes only those");
    }
    if ((meta >> 2 & 3) != (kFloat3d >> 2)) {
        throw Failure("the stream holds a " + std::to_string((meta >> 2 & 3) + 1) +
                      "-D array; zyrdc zfp codes only 3-D arrays");
    }
    ZfpVolume v;
    v.dims = {static_cast<std::uint32_t>((meta >> 4 & 0xFFFF) + 1),
              static_cast<std::uint32_t>((meta >> 20 & 0xFFFF) + 1),
              static_cast<std::uint32_t>((meta >> 36 & 0xFFFF) + 1)};
    v.params = GetMode(header);
    // Each block takes at least one bit, so a header claiming more blocks than the file has
    // bits describes a truncated (or forged) stream; this also bounds the allocation below.
    if (BlockCount(v.dims) > 8 * static_cast<std::uint64_t>(file.size())) {
        throw Failure("truncated stream: " + std::to_string(file.size()) + " bytes cannot hold " +
                      std::to_string(BlockCount(v.dims)) + " blocks");
    }
    const ZfpParams& p = v.params;
    v.values.resize(static_cast<std::size_t>(v.dims.Values()));

    ZfpState s;
    Check(zyrsDecodeZfpInitLong_32f(file.data(), file.size(), &s), "zyrsDecodeZfpInitLong_32f");
    Check(zyrsDecodeZfpSet_32f(p.minBits, p.maxBits, p.maxPrec, p.minExp, &s), "zyrsDecodeZfpSet_32f");
    // Resume after the header as a byte-wise reader would stand: the bytes it covered
    // consumed, the unread bits of its last byte in the buffer.
    const std::size_t headerBits = header.Bits();
    s.pCur = const_cast<std::uint8_t*>(file.data()) + (headerBits + 7) / 8;
    s.bitCount = static_cast<std::int32_t>((8 - headerBits % 8) % 8);
    s.bitBuffer = s.bitCount == 0 ? 0 : file[headerBits / 8] >> (headerBits % 8);

    std::int32_t row = 0, plane = 0;
    const bool direct = DirectSteps(v.dims, row, plane);
    const ZfpDims& d = v.dims;
    ForEachBlock(d, [&](std::uint32_t x, std::uint32_t y, std::uint32_t z, bool full) {
        float block[64];
        const bool inPlace = full && direct;
        const ZyrStatus status = inPlace ? zyrsDecodeZfp444_32f(&s, &v.values[At(d, x, y, z)], row, plane)
                                         : zyrsDecodeZfp444_32f(&s, block, 16, 64);
        if (status == StatusStreamExhausted) {
            throw Failure("truncated stream: it ends before block (" + std::to_string(x) + ", " +
                          std::to_string(y) + ", " + std::to_string(z) + ")");
        }
        Check(status, "zyrsDecodeZfp444_32f");
        if (inPlace) return;
        for (std::uint32_t k = 0; k < 4 && z + k < d.nz; ++k) {
            for (std::uint32_t j = 0; j < 4 && y + j < d.ny; ++j) {
                for (std::uint32_t i = 0; i < 4 && x + i < d.nx; ++i) {
                    v.values[At(d, x + i, y + j, z + k)] = block[i + 4 * j + 16 * k];
                }
            }
        }
    });
    return v;
}

}  // namespace zyrdc::tool
