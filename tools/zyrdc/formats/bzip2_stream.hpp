// bzip2_stream.hpp - the .bz2 stream format around the library's block stages: "BZh" and the
// level digit; per block a 48-bit marker, the block CRC, the randomised bit, origPtr, then the
// Huffman context and codes; an end marker, the combined CRC and zero bits to a byte. Blocks
// are not byte-aligned, so an encoded block is a bit string that the writer appends at any
// bit position; reading runs through one accumulator that the library's Huffman decoder
// continues (0 to 7 held bits, most significant first).
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "cli/bytes.hpp"

namespace zyrdc::tool {

inline constexpr std::uint64_t kBz2BlockMarker = 0x314159265359ull;
inline constexpr std::uint64_t kBz2EndMarker = 0x177245385090ull;

// The bytes of the transform a block of level k may hold: the format allows 100000 k; like
// other writers, a few are kept back.
constexpr std::uint32_t Bz2BlockLimit(int level) { return 100000u * static_cast<std::uint32_t>(level) - 19; }

// One block between the run-length stage and the transform: the run-length output (the
// transform's input), its in-use table and the CRC of the original bytes.
struct Bz2RawBlock {
    std::vector<std::uint8_t> coded;
    std::array<std::uint8_t, 256> in_use{};
    std::uint32_t crc = 0;
};

// Collects input into blocks of a level: Feed until Full, then Take (also for the last,
// partial block, if it holds anything).
class Bz2BlockSplitter {
public:
    explicit Bz2BlockSplitter(int level);
    std::size_t Feed(std::span<const std::uint8_t> bytes);
    bool Full() const { return full_; }
    bool Empty() const { return original_ == 0; }
    Bz2RawBlock Take();

private:
    void Reset();
    std::uint32_t limit_;
    std::array<std::uint8_t, 264> rle_state_{};
    Bz2RawBlock block_;
    std::uint32_t used_ = 0, original_ = 0;
    bool full_ = false;
};

// A block coded from its marker through its end-of-block code, starting at bit 0.
struct Bz2CodedBlock {
    std::vector<std::uint8_t> bytes;  // the last one partly filled
    std::uint64_t bits = 0;
};
// The transform, move-to-front, zero runs and the Huffman stage. Thread-safe (own buffers).
Bz2CodedBlock EncodeBz2Block(const Bz2RawBlock& block);

// Appends bit strings at any bit position, most significant bit first.
class Bz2BitWriter {
public:
    void Put(std::uint32_t value, int count);  // count 0..24
    void Append(const Bz2CodedBlock& block);
    // Zero bits to the byte boundary.
    void Align();
    // Whole bytes written so far; Clear drops them (the pending bits stay).
    std::vector<std::uint8_t>& Bytes() { return bytes_; }

private:
    std::vector<std::uint8_t> bytes_;
    std::uint32_t acc_ = 0;
    int count_ = 0;
};

// A block read from a stream up to the end of its codes: everything the block decoder needs.
struct Bz2SymbolBlock {
    std::uint64_t number = 0;  // 1 for a file's first block
    std::uint32_t crc = 0;     // as stored
    std::int32_t orig_ptr = 0;
    std::int32_t block_size = 0;
    std::array<std::uint8_t, 256> in_use{};
    std::vector<std::uint16_t> symbols;  // without EOB
};
// A block's decoded bytes.
struct Bz2Bytes {
    std::unique_ptr<std::uint8_t[]> data;
    std::size_t size = 0;
    std::span<const std::uint8_t> Span() const { return {data.get(), size}; }
};
// Bytes to give the block decoder for any block of `block_size` (259 bytes out for every 5
// of the transform, plus room for the transform itself): it then finishes in one call, in
// the fast way. Left uncleared, the pages it never touches are never committed.
constexpr std::size_t Bz2DecodeRoom(std::int32_t block_size) { return 52 * static_cast<std::size_t>(block_size) + 256; }
// The block's bytes, its CRC checked; throws Failure naming the block. `room` (null, or
// Bz2DecodeRoom bytes from an earlier block, so that its pages are reused) becomes the
// result's memory. Thread-safe.
Bz2Bytes DecodeBz2Block(const Bz2SymbolBlock& block, std::unique_ptr<std::uint8_t[]> room);

// Reads the streams of a file one block at a time (concatenated streams continue it).
class Bz2Reader {
public:
    explicit Bz2Reader(ReadFn read);
    // The next block's symbols, or false at the end of the file. Checks the stream header,
    // markers and combined CRC (against the stored block CRCs); throws Failure naming the
    // block where the stream breaks.
    bool Next(Bz2SymbolBlock& block);

private:
    std::uint32_t Bits(int count);  // 1..32
    bool Refill();                  // false at the end of the input
    bool AtEnd();                   // no held bits and no bytes left
    [[noreturn]] void Fail(const std::string& what) const;

    ReadFn read_;
    std::vector<std::uint8_t> buf_;
    std::size_t pos_ = 0, end_ = 0;
    std::uint64_t acc_ = 0;
    int held_ = 0;
    bool eof_ = false;
    bool in_stream_ = false;
    int level_ = 0;
    std::uint32_t combined_ = 0, stored_combined_ = 0;
    std::uint64_t blocks_ = 0;
    std::vector<std::uint8_t> huff_state_;
};

}  // namespace zyrdc::tool
