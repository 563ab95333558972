// gzip_member.hpp - gzip (RFC 1952) members: written through the Deflate writer, decoded with
// zyrsInflate_8u (the member framing, its optional fields and checks). The Deflate data itself
// is the library's business.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "cli/bytes.hpp"

namespace zyrdc::tool {

// Decodes every member of a gzip file: header fields (extra field, name, comment, header
// CRC), the Deflate stream, CRC-32 and size. Throws Failure on a file that is not gzip, is
// damaged or ends early, its message starting with `name` unless that is empty; output
// written before that is what decoded so far. `write` may be empty: the file is then only
// checked.
void Gunzip(const ReadFn& read, const WriteFn& write, const std::string& name = {});
// Writes everything `read` holds as one gzip member at `level` (0..29, see deflate_writer.hpp).
void Gzip(const ReadFn& read, const WriteFn& write, std::uint32_t level);

// A whole gzip file in memory.
std::vector<std::uint8_t> Gunzip(std::span<const std::uint8_t> file);

}  // namespace zyrdc::tool
