// deflate_writer.hpp - a complete Deflate (RFC 1951) and gzip (RFC 1952) writer built on the
// library's matchers, code and header builders and coders; it decides only where blocks end
// and which type each gets. Self-contained on the public header, so that tests and benchmarks
// can compile it next to the library's objects.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "zyrdc.h"

namespace zyrdc::tool {

inline constexpr uint32_t kDeflateLevels = 30;      // 1: the single-pass mode; others the matcher's levels
inline constexpr uint32_t kDefaultDeflateLevel = 6;

// Output bytes that grow without being cleared first (the Huffman coder needs room for its
// worst case, which is far more than it writes).
class ByteBuffer {
public:
    uint8_t* Reserve(size_t extra);  // room for `extra` more bytes after Size()
    void Commit(size_t size) { size_ = size; }
    void Append(std::span<const uint8_t> bytes);
    void Clear() { size_ = 0; }
    size_t Size() const { return size_; }
    uint8_t* Data() { return data_.get(); }
    std::span<const uint8_t> Bytes() const { return {data_.get(), size_}; }

private:
    std::unique_ptr<uint8_t[]> data_;
    size_t size_ = 0, capacity_ = 0;
};

// Symbol count N and sum of c log2 c over one alphabet's counts, for the block-split estimate.
struct EntropySums {
    uint64_t n = 0;
    double s = 0;
    double Bits() const;  // N log2 N - sum of c log2 c
};

// Writes one raw Deflate stream. Give the input in pieces of any size with Write, then call
// Finish once; compressed bytes collect in Output() as blocks complete, and the caller may
// take and Clear them at any time. Library refusals (which valid use never meets) throw
// std::runtime_error.
class DeflateWriter {
public:
    explicit DeflateWriter(uint32_t level);
    void Write(std::span<const uint8_t> input);
    void Finish();
    ByteBuffer& Output() { return out_; }

private:
    void Match(bool flushAll);
    void CloseSubBlock();
    void EndBlock(bool last);
    void MakeRoom();
    void FastestBlock(size_t size, bool last);
    void Header(const DeflateBlockHeader& h, bool last, std::span<const uint8_t> stored);
    void StoredBlocks(const uint8_t* raw, size_t size, bool last);
    void PutBits(uint32_t value, uint32_t n);
    void AlignToByte();

    uint32_t level_;
    uint32_t hashSize_;
    std::unique_ptr<uint8_t[]> window_;  // history, then input not yet matched
    size_t next_ = 0;               // first byte not yet matched
    size_t fill_ = 0;               // end of the input held
    size_t blockStart_ = 0;         // first byte of the current block
    size_t subStart_ = 0;           // first byte of the open sub-block
    int32_t srcIdx_ = 0;            // the matcher's position index of window_[next_]
    std::vector<int32_t> head_, prev_;
    std::vector<int32_t> scratch_;  // the sample's head table (single-pass level)
    // The block so far: entries [0, entries_) with their counts; the open sub-block follows
    // with subEntries_ entries, counted by the matcher into subLit_ / subDist_.
    std::vector<uint8_t> lit_;
    std::vector<uint16_t> dist_;
    int32_t entries_ = 0, subEntries_ = 0;
    std::array<uint32_t, 286> blockLit_{};
    std::array<uint32_t, 30> blockDist_{};
    EntropySums blockSums_[2];      // literal/length and distance sums of the block so far
    std::array<HuffCodeEntry, 286> subLit_{};
    std::array<HuffCodeEntry, 30> subDist_{};
    uint16_t pending_ = 0;          // bits not yet in out_, first to send in bit 0
    uint32_t pendingBits_ = 0;      // 0..7 between blocks
    ByteBuffer out_;
};

// gzip member framing around a DeflateWriter: header on construction, CRC-32 and size of the
// input, trailer on Finish.
class GzipWriter {
public:
    explicit GzipWriter(uint32_t level);
    void Write(std::span<const uint8_t> input);
    void Finish();
    ByteBuffer& Output() { return deflate_.Output(); }

private:
    DeflateWriter deflate_;
    uint32_t crc_ = 0;
    uint32_t size_ = 0;  // modulo 2^32, as the trailer holds it
};

// A whole gzip file of `input` in memory.
std::vector<uint8_t> GzipBytes(std::span<const uint8_t> input, uint32_t level);

}  // namespace zyrdc::tool
