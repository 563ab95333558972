// lzss_file.hpp - files in the library's own LZSS bit format, coded and decoded in a stream of
// fixed-size pieces through one state record.
//
// The bit format carries no check, so any bytes decode to something. A file therefore wraps
// the stream like a gzip member: a 5-byte header (the magic "zLZS" and version 1) and a
// 12-byte trailer (CRC-32 of the original, then its length, both little-endian), so that a
// wrong or damaged file is refused. The trailer comes last so that a pipe can be coded in one
// pass. `raw` reads and writes the bare stream.
#pragma once

#include <cstddef>
#include <string>

#include "cli/bytes.hpp"

namespace zyrdc::tool {

constexpr std::size_t kLzssDefaultPiece = 64 * 1024;
constexpr std::size_t kLzssMaxPiece = std::size_t{1} << 30;

// Codes everything `read` holds, `piece` bytes at a time (the coded bytes depend on it).
void LzssCompress(const ReadFn& read, const WriteFn& write, std::size_t piece, bool raw);
// Decodes a file of any piece size; throws Failure, starting with `name`, for a foreign,
// truncated or damaged file (never for a raw stream, which has no check).
void LzssDecompress(const ReadFn& read, const WriteFn& write, std::size_t piece, bool raw, const std::string& name);

}  // namespace zyrdc::tool
