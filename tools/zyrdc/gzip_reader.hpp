// gzip_reader.hpp - gzip (RFC 1952) members decoded with zyrsInflate_8u: the member framing,
// its optional fields and checks. The Deflate data itself is the library's business.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>
#include <vector>

namespace zyrdc::tool {

// Fills as much of the buffer as the input still holds; 0 only at its end.
using ReadFn = std::function<std::size_t(std::span<std::uint8_t>)>;
// Takes decoded bytes; may be empty (test the file without output).
using WriteFn = std::function<void(std::span<const std::uint8_t>)>;

// Decodes every member of a gzip file: header fields (extra field, name, comment, header
// CRC), the Deflate stream, CRC-32 and size. Throws Failure on a file that is not gzip, is
// damaged or ends early; output written before that is what decoded so far.
void Gunzip(const ReadFn& read, const WriteFn& write);
// A whole gzip file in memory.
std::vector<std::uint8_t> Gunzip(std::span<const std::uint8_t> file);

}  // namespace zyrdc::tool
