// bwt_container.hpp - the container of `zyrdc bwt`: the bytes of a file through the run-length
// stage, the dictionary reduction, the Burrows-Wheeler transform, move-to-front and zero-run
// coding block by block, and back, with every block's CRC checked on the way back.
//
// Container (all numbers little-endian):
//   "ZBWT" and a version byte (1)
//   per block:  u32 original size (1 or more; 0 ends the file)
//               u32 transform length (1..900000), u32 primary index, u32 bzip2 block CRC
//               32 bytes: the in-use table as a bitmap (value v is bit v % 8 of byte v / 8)
//               u32 symbol count, then the zero-run symbols as u16 (0..256)
//   u32 0
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "cli/bytes.hpp"

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
    // Blocks hold at most `limit` bytes after the run-length stage (at most kBwtBlockLimit).
    explicit BwtBlockEncoder(std::uint32_t limit = kBwtBlockLimit);
    // Takes bytes until the block is full; returns how many it took.
    std::size_t Feed(std::span<const std::uint8_t> bytes);
    bool Full() const { return full_; }
    bool Empty() const { return block_.original_size == 0; }
    // Runs the stages over the collected block and starts a new, empty one.
    BwtBlock Finish();

private:
    void Reset();

    std::uint32_t limit_;
    std::array<std::uint8_t, 264> rle_state_{};
    std::vector<std::uint8_t> coded_;  // run-length output, limit_ bytes
    BwtBlock block_;
    bool full_ = false;
};

// The original bytes of a block; throws Failure when the block is inconsistent or its CRC
// does not match.
std::vector<std::uint8_t> DecodeBwtBlock(const BwtBlock& block);

// A whole container from the bytes of `read`, in blocks of at most `block` bytes after the
// run-length stage.
void BwtCompress(const ReadFn& read, const WriteFn& write, std::uint32_t block = kBwtBlockLimit);
// The original bytes of a container; throws Failure, starting with `name`, for anything
// damaged, truncated or foreign.
void BwtDecompress(const ReadFn& read, const WriteFn& write, const std::string& name);

}  // namespace zyrdc::tool
