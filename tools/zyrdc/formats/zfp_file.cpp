// zfp_file.cpp - volumes to and from the zfp tool's file layout, block by block through the
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
#include "formats/zfp_file.hpp"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <string>

#include "cli/errors.hpp"
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

// The largest layer of blocks the tool holds: 4 planes of 8192 x 8192 floats, 1 GiB (the
// header allows 65536 x 65536). A forged header cannot make it allocate more.
constexpr std::uint64_t kMaxSlabFloats = std::uint64_t{1} << 28;

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

// ---- slabs ---------------------------------------------------------------------------------

// A slab is the four planes of one layer of blocks: the unit that the coders hold in memory.
// Its floats keep the volume's own layout (x fastest), so full blocks are coded in place.
struct Slab {
    ZfpDims dims;
    std::vector<float> values;  // 4 planes of nx * ny floats

    explicit Slab(const ZfpDims& d) : dims(d) {
        const std::uint64_t count = 4 * std::uint64_t{d.nx} * d.ny;
        if (count > kMaxSlabFloats) {
            throw Failure("a layer of blocks of " + std::to_string(d.nx) + " x " + std::to_string(d.ny) +
                          " floats is more than zyrdc zfp holds in memory");
        }
        values.resize(static_cast<std::size_t>(count));
    }
    std::size_t PlaneFloats() const { return std::size_t{dims.nx} * dims.ny; }
    float* At(std::uint32_t x, std::uint32_t y, std::uint32_t k) {
        return &values[x + dims.nx * (y + std::size_t{dims.ny} * k)];
    }
    // The block coder's byte steps, when they fit its 32-bit arguments.
    bool Steps(std::int32_t& row, std::int32_t& plane) const {
        const std::uint64_t planeBytes = 4 * std::uint64_t{dims.nx} * dims.ny;
        if (planeBytes > 0x7FFFFFFF) return false;
        row = static_cast<std::int32_t>(4 * dims.nx);
        plane = static_cast<std::int32_t>(planeBytes);
        return true;
    }
    std::uint64_t Blocks() const { return std::uint64_t{(dims.nx + 3) / 4} * ((dims.ny + 3) / 4); }
};

// Calls code(x, y, full) for each block of a slab in the order of the stream; `full` says
// the block lies inside the slab's planes in x and y.
template <class Code>
void ForEachBlock(const ZfpDims& d, Code code) {
    for (std::uint32_t y = 0; y < d.ny; y += 4) {
        for (std::uint32_t x = 0; x < d.nx; x += 4) {
            code(x, y, x + 4 <= d.nx && y + 4 <= d.ny);
        }
    }
}

// The bytes of one slab's stream at most, with room for the header and a final word.
std::uint64_t SlabStreamBytes(const Slab& slab, std::int64_t blockBits) {
    return (slab.Blocks() * static_cast<std::uint64_t>(blockBits) + 7) / 8 + 64;
}

void Check(ZyrStatus status, const char* what) { CheckStatus(status, what); }

// Restarts a decoding record over `window` with the same parameters and the bits it holds.
void Rebase(ZfpState& s, const std::uint8_t* window, std::size_t length, const ZfpParams& p) {
    const std::uint64_t buffer = s.bitBuffer;
    const std::int32_t count = s.bitCount;
    Check(zyrsDecodeZfpInitLong_32f(window, length, &s), "zyrsDecodeZfpInitLong_32f");
    Check(zyrsDecodeZfpSet_32f(p.minBits, p.maxBits, p.maxPrec, p.minExp, &s), "zyrsDecodeZfpSet_32f");
    s.bitBuffer = buffer;
    s.bitCount = count;
}

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

void ZfpCompressStream(const ZfpReader& read, const ZfpWriter& write, ZfpDims dims, ZfpParams p,
                       const std::string& name) {
    HeaderWriter header;
    header.Put(kMagic, 24);
    header.Put(kCodec, 8);
    header.Put(kFloat3d | std::uint64_t{dims.nx - 1} << 4 | std::uint64_t{dims.ny - 1} << 20 |
                   std::uint64_t{dims.nz - 1} << 36,
               kMetaBits);
    PutMode(header, p);

    Slab slab(dims);
    const std::int64_t blockBits =
        std::max<std::int64_t>(p.minBits, std::min<std::int64_t>(p.maxBits, kMaxFloatBlockBits));
    // The record counts bytes in 32 bits; each slab's stream goes out before the next starts.
    const std::uint64_t room = SlabStreamBytes(slab, blockBits) + header.Bytes().size();
    if (room > 0x7FFFFFFF) {
        throw Failure("a layer of blocks could code to more than 2 GiB");
    }
    std::vector<std::uint8_t> out(static_cast<std::size_t>(room));
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
    const bool direct = slab.Steps(row, plane);
    const std::uint64_t want = dims.Values() * sizeof(float);
    std::uint64_t got = 0;
    for (std::uint32_t z = 0; z < dims.nz; z += 4) {
        const std::uint32_t planes = std::min<std::uint32_t>(4, dims.nz - z);
        const std::span<std::uint8_t> bytes(reinterpret_cast<std::uint8_t*>(slab.values.data()),
                                            planes * slab.PlaneFloats() * sizeof(float));
        const std::size_t n = ReadFull(read, bytes);
        got += n;
        if (n < bytes.size()) {
            throw Failure(name + ": holds " + std::to_string(got) + " bytes; " + std::to_string(dims.nx) +
                          " x " + std::to_string(dims.ny) + " x " + std::to_string(dims.nz) +
                          " floats need " + std::to_string(want));
        }
        // The last layer's missing planes repeat its last plane, as edge blocks repeat the last
        // value of each line: a smooth continuation that the decoder's cropping throws away.
        for (std::uint32_t k = planes; k < 4; ++k) {
            std::memcpy(slab.At(0, 0, k), slab.At(0, 0, planes - 1), slab.PlaneFloats() * sizeof(float));
        }
        ForEachBlock(dims, [&](std::uint32_t x, std::uint32_t y, bool full) {
            if (full && direct) {
                Check(zyrsEncodeZfp444_32f(slab.At(x, y, 0), row, plane, &s), "zyrsEncodeZfp444_32f");
                return;
            }
            float block[64];
            for (std::uint32_t k = 0; k < 4; ++k) {
                for (std::uint32_t j = 0; j < 4; ++j) {
                    for (std::uint32_t i = 0; i < 4; ++i) {
                        block[i + 4 * j + 16 * k] =
                            *slab.At(std::min(x + i, dims.nx - 1), std::min(y + j, dims.ny - 1), k);
                    }
                }
            }
            Check(zyrsEncodeZfp444_32f(block, 16, 64, &s), "zyrsEncodeZfp444_32f");
        });
        write({out.data(), static_cast<std::size_t>(s.pCur - out.data())});
        s.pCur = out.data();
    }
    std::uint8_t extra = 0;
    if (ReadFull(read, {&extra, 1}) != 0) {
        throw Failure(name + ": holds more than the " + std::to_string(want) + " bytes that " +
                      std::to_string(dims.nx) + " x " + std::to_string(dims.ny) + " x " +
                      std::to_string(dims.nz) + " floats need");
    }
    Check(zyrsEncodeZfpFlush_32f(&s), "zyrsEncodeZfpFlush_32f");
    write({out.data(), static_cast<std::size_t>(s.pCur - out.data())});
}

ZfpHeader ZfpDecompressStream(const ZfpReader& read, const ZfpWriter& write) {
    // The header is at most 160 bits; the window starts with them.
    std::vector<std::uint8_t> window(64);
    std::size_t length = ReadFull(read, window);
    HeaderReader header({window.data(), length});
    if (header.Get(24) != kMagic) {
        throw Failure("not a zfp stream with a header (zfp -h writes one)");
    }
    if (const std::uint64_t codec = header.Get(8); codec != kCodec) {
        throw Failure("zfp codec version " + std::to_string(codec) + " is not supported (only " +
                      std::to_string(kCodec) + ")");
    }
    const std::uint64_t meta = header.Get(kMetaBits);
    if ((meta & 3) != (kFloat3d & 3)) {
        throw Failure("the stream holds no 32-bit floats; zyrdc zfp codes only those");
    }
    if ((meta >> 2 & 3) != (kFloat3d >> 2)) {
        throw Failure("the stream holds a " + std::to_string((meta >> 2 & 3) + 1) +
                      "-D array; zyrdc zfp codes only 3-D arrays");
    }
    ZfpHeader h;
    h.dims = {static_cast<std::uint32_t>((meta >> 4 & 0xFFFF) + 1),
              static_cast<std::uint32_t>((meta >> 20 & 0xFFFF) + 1),
              static_cast<std::uint32_t>((meta >> 36 & 0xFFFF) + 1)};
    h.params = GetMode(header);
    const ZfpParams& p = h.params;
    const ZfpDims& d = h.dims;

    Slab slab(d);
    const std::int64_t blockBits = std::min<std::int64_t>(std::max(p.maxBits, 1), kMaxFloatBlockBits);
    // The window always holds a whole layer's stream before the layer is decoded (or all that
    // is left of the source), so the record never runs out of bytes in the middle of it.
    const std::uint64_t layer = SlabStreamBytes(slab, std::max<std::int64_t>(blockBits, p.minBits));
    if (2 * layer > 0x7FFFFFFF) {
        throw Failure("a layer of blocks could code to more than 1 GiB");
    }
    window.resize(static_cast<std::size_t>(2 * layer));
    length += ReadFull(read, {window.data() + length, window.size() - length});
    bool atEnd = length < window.size();

    ZfpState s;
    Check(zyrsDecodeZfpInitLong_32f(window.data(), length, &s), "zyrsDecodeZfpInitLong_32f");
    Check(zyrsDecodeZfpSet_32f(p.minBits, p.maxBits, p.maxPrec, p.minExp, &s), "zyrsDecodeZfpSet_32f");
    // Resume after the header as a byte-wise reader would stand: the bytes it covered
    // consumed, the unread bits of its last byte in the buffer.
    const std::size_t headerBits = header.Bits();
    s.pCur = window.data() + (headerBits + 7) / 8;
    s.bitCount = static_cast<std::int32_t>((8 - headerBits % 8) % 8);
    s.bitBuffer = s.bitCount == 0 ? 0 : window[headerBits / 8] >> (headerBits % 8);

    std::int32_t row = 0, plane = 0;
    const bool direct = slab.Steps(row, plane);
    for (std::uint32_t z = 0; z < d.nz; z += 4) {
        const auto used = static_cast<std::size_t>(s.pCur - window.data());
        if (!atEnd && length - used < layer) {
            std::memmove(window.data(), s.pCur, length - used);
            length -= used;
            length += ReadFull(read, {window.data() + length, window.size() - length});
            atEnd = length < window.size();
            Rebase(s, window.data(), length, p);
        }
        ForEachBlock(d, [&](std::uint32_t x, std::uint32_t y, bool full) {
            float block[64];
            const bool inPlace = full && direct;
            const ZyrStatus status = inPlace ? zyrsDecodeZfp444_32f(&s, slab.At(x, y, 0), row, plane)
                                             : zyrsDecodeZfp444_32f(&s, block, 16, 64);
            if (status == StatusStreamExhausted) {
                throw Failure("truncated stream: it ends before block (" + std::to_string(x) + ", " +
                              std::to_string(y) + ", " + std::to_string(z) + ")");
            }
            Check(status, "zyrsDecodeZfp444_32f");
            if (inPlace) return;
            for (std::uint32_t k = 0; k < 4; ++k) {
                for (std::uint32_t j = 0; j < 4 && y + j < d.ny; ++j) {
                    for (std::uint32_t i = 0; i < 4 && x + i < d.nx; ++i) {
                        *slab.At(x + i, y + j, k) = block[i + 4 * j + 16 * k];
                    }
                }
            }
        });
        const std::uint32_t planes = std::min<std::uint32_t>(4, d.nz - z);
        write({reinterpret_cast<const std::uint8_t*>(slab.values.data()),
               planes * slab.PlaneFloats() * sizeof(float)});
    }
    return h;
}

std::vector<std::uint8_t> ZfpCompress(std::span<const float> values, ZfpDims dims, ZfpParams p) {
    const std::span<const std::uint8_t> raw(reinterpret_cast<const std::uint8_t*>(values.data()),
                                            values.size_bytes());
    std::size_t at = 0;
    std::vector<std::uint8_t> out;
    ZfpCompressStream(
        [&](std::span<std::uint8_t> buf) {
            const std::size_t n = std::min(buf.size(), raw.size() - at);
            std::memcpy(buf.data(), raw.data() + at, n);
            at += n;
            return n;
        },
        [&](std::span<const std::uint8_t> bytes) { out.insert(out.end(), bytes.begin(), bytes.end()); },
        dims, p, "the volume");
    return out;
}

ZfpVolume ZfpDecompress(std::span<const std::uint8_t> file) {
    std::size_t at = 0;
    std::vector<std::uint8_t> raw;
    const ZfpHeader h = ZfpDecompressStream(
        [&](std::span<std::uint8_t> buf) {
            const std::size_t n = std::min(buf.size(), file.size() - at);
            std::memcpy(buf.data(), file.data() + at, n);
            at += n;
            return n;
        },
        [&](std::span<const std::uint8_t> bytes) { raw.insert(raw.end(), bytes.begin(), bytes.end()); });
    ZfpVolume v{h.dims, h.params, std::vector<float>(raw.size() / sizeof(float))};
    std::memcpy(v.values.data(), raw.data(), raw.size());
    return v;
}

}  // namespace zyrdc::tool
