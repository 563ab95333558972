// zfp_file.hpp - whole 3-D float volumes through the library's ZFP block coder, in the file
// layout of the standard zfp command-line tool: its header (magic and codec version, scalar
// type and dimensions, compression mode) followed directly by the blocks in raster order.
#pragma once

#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <vector>

#include "cli/bytes.hpp"

namespace zyrdc::tool {

struct ZfpDims {
    std::uint32_t nx, ny, nz;  // x varies fastest
    std::uint64_t Values() const { return std::uint64_t{nx} * ny * nz; }
};

// The block coder's four parameters, as zyrsEncodeZfpSet_32f takes them.
struct ZfpParams {
    std::int32_t minBits, maxBits, maxPrec, minExp;
};

// The three modes of the command line. Rates are in bits per value (the block size rounds
// to whole bits, at least the 9 of a block header); precision in bit planes, 1..64; the
// accuracy tolerance is an absolute error, above 0.
ZfpParams ZfpRateParams(double rate);
ZfpParams ZfpPrecisionParams(int planes);
ZfpParams ZfpAccuracyParams(double tolerance);

// Largest dimension the header can record.
constexpr std::uint32_t kZfpMaxDim = 65536;

// The slab-by-slab coders read and write through the byte streams of cli/bytes.hpp.
using ZfpReader = ReadFn;
using ZfpWriter = WriteFn;

// Header and blocks of a volume of dims.Values() floats read from `read`, coded one slab of
// four planes at a time, so that memory holds a slab and its stream whatever the depth.
// Partial blocks at the far edges repeat the last value of each line. Throws Failure if the
// source holds fewer or more bytes than the dimensions need (`name` says which source) or a
// slab's stream would exceed what the record addresses.
void ZfpCompressStream(const ZfpReader& read, const ZfpWriter& write, ZfpDims dims, ZfpParams params,
                       const std::string& name);

// Reads a header and its blocks from `read` slab by slab and writes the floats. Throws
// Failure, saying what is wrong, for a header of another format, codec, scalar type,
// dimensionality or an unsupported mode, and for a stream that ends before its last block.
// Returns the header's dimensions and parameters.
struct ZfpHeader {
    ZfpDims dims;
    ZfpParams params;
};
ZfpHeader ZfpDecompressStream(const ZfpReader& read, const ZfpWriter& write);

// The same over whole buffers in memory.
std::vector<std::uint8_t> ZfpCompress(std::span<const float> values, ZfpDims dims, ZfpParams params);

struct ZfpVolume {
    ZfpDims dims;
    ZfpParams params;
    std::vector<float> values;
};
ZfpVolume ZfpDecompress(std::span<const std::uint8_t> file);

}  // namespace zyrdc::tool
