// bwt_blocks.hpp - one block of `zyrdc bwt`: the bytes of a file through the run-length stage,
// the dictionary reduction, the Burrows-Wheeler transform, move-to-front and zero-run coding,
// and back, with the block CRC checked on the way back.
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <vector>

namespace zyrdc::tool {

// A block holds at most this many bytes after the run-length stage.
constexpr std::uint32_t kBwtBlockLimit = 900000;

struct BwtBlock {
    std::uint32_t original_size = 0;  // bytes of the file in this block
    std::uint32_t coded_size = 0;     // bytes after the run-length stage (transform length)
    std::uint32_t index = 0;          // primary index of the transform
    std::uint32_t crc = 0;            // bzip2 block CRC of the original bytes
    std::array<std::uint8_t, 256> in_use{};  // 1 for each byte value the run-length output uses
    std::vector<std::uint16_t> symbols;      // zero-run symbols (no end-of-block symbol)
};

// Collects a file's bytes into blocks: Feed until Full (or the input ends), then Finish.
class BwtBlockEncoder {
public:
    BwtBlockEncoder();
    // Takes bytes until the block is full; returns how many it took.
    std::size_t Feed(std::span<const std::uint8_t> bytes);
    bool Full() const { return full_; }
    bool Empty() const { return block_.original_size == 0; }
    // Runs the stages over the collected block and starts a new, empty one.
    BwtBlock Finish();

private:
    void Reset();

    std::array<std::uint8_t, 264> rle_state_{};
    std::vector<std::uint8_t> coded_;  // run-length output, kBwtBlockLimit bytes
    BwtBlock block_;
    bool full_ = false;
};

// The original bytes of a block; throws Failure when the block is inconsistent or its CRC
// does not match.
std::vector<std::uint8_t> DecodeBwtBlock(const BwtBlock& block);

}  // namespace zyrdc::tool
