// inflate_reader.hpp - a Deflate and gzip reader that decodes every Huffman-coded symbol
// through the tables of zyrsInflateBuildHuffTable. It checks what the writer produced by a
// route that shares nothing with it, and walks the builder's tables in tests.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

namespace zyrdc::tool {

// Counts of what a stream held, for tests that want to know which paths were taken.
struct InflateStats {
    uint32_t storedBlocks = 0, fixedBlocks = 0, dynamicBlocks = 0;
    uint32_t twoLevelBlocks = 0;  // dynamic blocks whose tables came out two-level
};

// Decodes one raw Deflate stream; throws std::runtime_error on malformed input.
std::vector<uint8_t> InflateRaw(std::span<const uint8_t> stream, InflateStats* stats = nullptr);
// Decodes a gzip file (one or more members) and checks every CRC-32 and size.
std::vector<uint8_t> Gunzip(std::span<const uint8_t> file, InflateStats* stats = nullptr);

}  // namespace zyrdc::tool
