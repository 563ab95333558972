// bzip2_stream.cpp - .bz2 streams: blocks cut after the run-length stage, coded through the
// library's stages into bit strings, and read back block by block through its Huffman
// decoder, ready for its block decoder.
#include "formats/bzip2_stream.hpp"

#include <algorithm>
#include <cstring>

#include "cli/errors.hpp"
#include "zyrdc.h"

namespace zyrdc::tool {

namespace {

std::int32_t Len(std::size_t n) { return static_cast<std::int32_t>(n); }

// The Huffman records are sized once for the largest block; every level fits.
constexpr std::int32_t kMaxSymbols = 900100;
constexpr std::size_t kReadPiece = std::size_t{1} << 20;

}  // namespace

// ---- blocks ---------------------------------------------------------------------------------

Bz2BlockSplitter::Bz2BlockSplitter(int level) : limit_(Bz2BlockLimit(level)) { Reset(); }

void Bz2BlockSplitter::Reset() {
    CheckStatus(zyrsEncodeRLEInit_BZ2_8u(rle_state_.data()), "run-length init");
    block_ = Bz2RawBlock{};
    block_.coded.resize(limit_);
    used_ = original_ = 0;
    full_ = false;
}

std::size_t Bz2BlockSplitter::Feed(std::span<const std::uint8_t> bytes) {
    std::size_t taken = 0;
    while (taken < bytes.size() && !full_) {
        // One byte stays free for the count byte that the flush may still write.
        const std::int32_t room = Len(limit_ - 1 - used_);
        if (room < 1) {
            full_ = true;
            break;
        }
        const std::size_t piece = std::min<std::size_t>(bytes.size() - taken, std::size_t{1} << 30);
        const std::uint8_t* src = bytes.data() + taken;
        std::int32_t left = Len(piece), written = room;
        const ZyrStatus st =
            zyrsEncodeRLE_BZ2_8u(&src, &left, block_.coded.data() + used_, &written, rle_state_.data());
        if (st != StatusOk && st != StatusDstFull) CheckStatus(st, "run-length coding");
        const std::size_t used = piece - static_cast<std::size_t>(left);
        if (used > 0) CheckStatus(zyrsCRC32_BZ2_8u(bytes.data() + taken, Len(used), &block_.crc), "block CRC");
        original_ += static_cast<std::uint32_t>(used);
        used_ += static_cast<std::uint32_t>(written);
        taken += used;
        full_ = st == StatusDstFull;
    }
    return taken;
}

Bz2RawBlock Bz2BlockSplitter::Take() {
    std::int32_t one = 1;
    CheckStatus(zyrsEncodeRLEFlush_BZ2_8u(block_.coded.data() + used_, &one, rle_state_.data()),
                "run-length flush");
    used_ += static_cast<std::uint32_t>(one);
    CheckStatus(zyrsRLEGetInUseTable_8u(block_.in_use.data(), rle_state_.data()), "in-use table");
    Bz2RawBlock block = std::move(block_);
    block.coded.resize(used_);
    Reset();
    return block;
}

Bz2CodedBlock EncodeBz2Block(const Bz2RawBlock& block) {
    // Working memory stays with the thread from block to block.
    thread_local std::vector<std::uint8_t> work, reduced, last, indexes, huff;
    thread_local std::vector<std::uint16_t> symbols;
    const std::int32_t n = Len(block.coded.size());
    std::int32_t size = 0, dictionary = 0, index = 0;
    CheckStatus(zyrsBWTFwdGetSize_8u(n, &size), "transform size");
    work.resize(static_cast<std::size_t>(size));
    reduced.assign(block.coded.begin(), block.coded.end());
    last.resize(block.coded.size());
    indexes.resize(block.coded.size());
    CheckStatus(zyrsReduceDictionary_8u_I(block.in_use.data(), reduced.data(), n, &dictionary), "dictionary");
    CheckStatus(zyrsBWTFwd_8u(reduced.data(), last.data(), n, &index, work.data()), "transform");
    std::uint8_t mtf[256];
    CheckStatus(zyrsMTFInit_8u(mtf), "move-to-front init");
    CheckStatus(zyrsMTFFwd_8u(last.data(), indexes.data(), n, mtf), "move-to-front");
    symbols.resize(block.coded.size() + 1);
    std::vector<std::uint32_t> freq(258);
    const std::uint8_t* src = indexes.data();
    std::int32_t left = n, count = n;
    CheckStatus(zyrsEncodeZ1Z2_BZ2_8u16u(&src, &left, symbols.data(), &count, freq.data()), "zero-run coding");
    symbols[static_cast<std::size_t>(count)] = static_cast<std::uint16_t>(dictionary + 1);  // EOB
    ++count;

    CheckStatus(zyrsEncodeHuffGetSize_BZ2_16u8u(kMaxSymbols, &size), "Huffman record size");
    huff.resize(static_cast<std::size_t>(size));
    CheckStatus(zyrsEncodeHuffInit_BZ2_16u8u(count, block.in_use.data(), symbols.data(), count, huff.data()),
                "Huffman analysis");

    Bz2CodedBlock out;
    // The block header through the library's accumulator convention: pending bits
    // right-aligned, fewer than 8 after each field.
    std::uint32_t code = 0, bits = 0;
    const auto put = [&](std::uint32_t value, std::uint32_t width) {
        code = (code << width) | value;
        bits += width;
        while (bits >= 8) {
            bits -= 8;
            out.bytes.push_back(static_cast<std::uint8_t>(code >> bits));
        }
        code &= (1u << bits) - 1;
    };
    put(static_cast<std::uint32_t>(kBz2BlockMarker >> 24), 24);
    put(static_cast<std::uint32_t>(kBz2BlockMarker & 0xFFFFFF), 24);
    put(block.crc >> 16, 16);
    put(block.crc & 0xFFFF, 16);
    put(0, 1);  // not randomised
    put(static_cast<std::uint32_t>(index), 24);

    std::size_t at = out.bytes.size();
    out.bytes.resize(at + 19930 + 4 * static_cast<std::size_t>(count) + 64);
    std::int32_t room = Len(out.bytes.size() - at);
    CheckStatus(zyrsPackHuffContext_BZ2_16u8u(&code, &bits, out.bytes.data() + at, &room, huff.data()),
                "Huffman context");
    at += static_cast<std::size_t>(room);
    const std::uint16_t* sym = symbols.data();
    for (std::int32_t rest = count;;) {
        room = Len(out.bytes.size() - at);
        const ZyrStatus st = zyrsEncodeHuff_BZ2_16u8u(&sym, &rest, &code, &bits, out.bytes.data() + at,
                                                      &room, huff.data());
        at += static_cast<std::size_t>(room);
        if (st == StatusOk) break;
        if (st != StatusDstFull) CheckStatus(st, "Huffman coding");
        out.bytes.resize(out.bytes.size() * 2);
    }
    out.bits = 8 * static_cast<std::uint64_t>(at) + bits;
    if (bits > 0) out.bytes[at++] = static_cast<std::uint8_t>(code << (8 - bits));
    out.bytes.resize(at);
    return out;
}

void Bz2BitWriter::Put(std::uint32_t value, int count) {
    acc_ = (acc_ << count) | value;
    count_ += count;
    while (count_ >= 8) {
        count_ -= 8;
        bytes_.push_back(static_cast<std::uint8_t>(acc_ >> count_));
    }
    acc_ &= (1u << count_) - 1;
}

void Bz2BitWriter::Append(const Bz2CodedBlock& block) {
    const std::size_t whole = static_cast<std::size_t>(block.bits / 8);
    const int rest = static_cast<int>(block.bits % 8);
    if (count_ == 0) {
        bytes_.insert(bytes_.end(), block.bytes.begin(), block.bytes.begin() + static_cast<std::ptrdiff_t>(whole));
    } else {
        // Every byte straddles two output bytes.
        const int shift = count_;
        std::uint32_t acc = acc_;
        const std::size_t base = bytes_.size();
        bytes_.resize(base + whole);
        for (std::size_t i = 0; i < whole; ++i) {
            const std::uint8_t b = block.bytes[i];
            bytes_[base + i] = static_cast<std::uint8_t>((acc << (8 - shift)) | (b >> shift));
            acc = b & ((1u << shift) - 1);
        }
        acc_ = acc;
    }
    if (rest > 0) Put(static_cast<std::uint32_t>(block.bytes[whole] >> (8 - rest)), rest);
}

void Bz2BitWriter::Align() {
    if (count_ > 0) Put(0, 8 - count_);
}

Bz2Bytes DecodeBz2Block(const Bz2SymbolBlock& block, std::unique_ptr<std::uint8_t[]> memory) {
    const std::string where = "block " + std::to_string(block.number) + ": ";
    if (block.symbols.empty()) throw Failure(where + "corrupt data (no symbols)");
    thread_local std::vector<std::uint8_t> buffer;
    std::int32_t size = 0;
    CheckStatus(zyrsDecodeBlockGetSize_BZ2_8u(block.block_size, &size), "block buffer size");
    buffer.resize(static_cast<std::size_t>(size));
    const std::size_t room = Bz2DecodeRoom(block.block_size);
    if (!memory) memory.reset(new std::uint8_t[room]);
    Bz2Bytes out{std::move(memory), 0};
    std::int32_t src_len = Len(block.symbols.size());
    for (;;) {
        std::int32_t len = Len(std::min<std::size_t>(room - out.size, 0x7FFFFFFF));
        const ZyrStatus st = zyrsDecodeBlock_BZ2_16u8u(block.symbols.data(), src_len, block.in_use.data(),
                                                       block.orig_ptr, block.block_size, out.data.get() + out.size,
                                                       &len, buffer.data());
        if (st < 0) throw Failure(where + "corrupt data (" + StatusName(st) + ")");
        out.size += static_cast<std::size_t>(len);
        if (st == StatusOk) break;
        if (out.size == room) throw Failure(where + "corrupt data (longer than the block size allows)");
        src_len = 0;
    }
    std::uint32_t crc = 0;
    for (std::size_t at = 0; at < out.size;) {
        const std::size_t piece = std::min<std::size_t>(out.size - at, std::size_t{1} << 30);
        CheckStatus(zyrsCRC32_BZ2_8u(out.data.get() + at, Len(piece), &crc), "block CRC");
        at += piece;
    }
    if (crc != block.crc) throw Failure(where + "CRC " + Hex32(crc) + ", expected " + Hex32(block.crc));
    return out;
}

// ---- reading streams ------------------------------------------------------------------------

Bz2Reader::Bz2Reader(ReadFn read) : read_(std::move(read)) {
    std::int32_t size = 0;
    CheckStatus(zyrsDecodeHuffGetSize_BZ2_8u16u(kMaxSymbols, &size), "Huffman record size");
    huff_state_.resize(static_cast<std::size_t>(size));
}

void Bz2Reader::Fail(const std::string& what) const {
    throw Failure("block " + std::to_string(blocks_ + (in_stream_ ? 0 : 1)) + ": " + what);
}

bool Bz2Reader::Refill() {
    if (eof_) return false;
    if (pos_ > 0) {
        std::memmove(buf_.data(), buf_.data() + pos_, end_ - pos_);
        end_ -= pos_;
        pos_ = 0;
    }
    if (buf_.size() < end_ + kReadPiece) buf_.resize(end_ + kReadPiece);
    const std::size_t got = read_(std::span(buf_.data() + end_, kReadPiece));
    if (got == 0) eof_ = true;
    end_ += got;
    return got > 0;
}

bool Bz2Reader::AtEnd() { return held_ == 0 && pos_ == end_ && !Refill(); }

std::uint32_t Bz2Reader::Bits(int count) {
    while (held_ < count) {
        if (pos_ == end_ && !Refill()) Fail("the file ends inside the block");
        acc_ = (acc_ << 8) | buf_[pos_++];
        held_ += 8;
    }
    held_ -= count;
    const auto value = static_cast<std::uint32_t>(acc_ >> held_) & static_cast<std::uint32_t>((1ull << count) - 1);
    acc_ &= (1ull << held_) - 1;
    return value;
}

bool Bz2Reader::Next(Bz2SymbolBlock& block) {
    for (;;) {
        if (!in_stream_) {
            // Between streams: the next one, or the end of a file that held at least one.
            if (AtEnd()) {
                if (level_ == 0) throw Failure("not a bzip2 file (empty)");
                return false;
            }
            const std::uint32_t magic = Bits(24), digit = Bits(8);
            if (magic != 0x425A68 || digit < '1' || digit > '9') {
                throw Failure(level_ == 0 ? std::string("not a bzip2 file")
                                          : "data after the end of stream " + std::to_string(blocks_) +
                                                "'s last block is not a bzip2 stream");
            }
            level_ = static_cast<int>(digit - '0');
            CheckStatus(zyrsDecodeHuffInit_BZ2_8u16u(100000 * level_ + 100, huff_state_.data()), "Huffman init");
            combined_ = 0;
            in_stream_ = true;
        }
        const std::uint64_t marker = static_cast<std::uint64_t>(Bits(24)) << 24 | Bits(24);
        if (marker == kBz2EndMarker) {
            stored_combined_ = Bits(32);
            if (stored_combined_ != combined_) {
                throw Failure("stream CRC " + Hex32(stored_combined_) + " after block " + std::to_string(blocks_) +
                              ", expected " + Hex32(combined_));
            }
            acc_ = 0;  // the zero bits to the byte boundary
            held_ = 0;
            in_stream_ = false;
            continue;
        }
        ++blocks_;
        if (marker != kBz2BlockMarker) Fail("no block marker (corrupt data)");
        block.number = blocks_;
        block.crc = Bits(32);
        if (Bits(1) != 0) Fail("randomised blocks (from bzip2 0.9.0 or older) are not supported");
        block.orig_ptr = static_cast<std::int32_t>(Bits(24));
        block.block_size = 100000 * level_;
        combined_ = ((combined_ << 1) | (combined_ >> 31)) ^ block.crc;

        // The library continues the accumulator: at most 7 held bits, then whole bytes.
        std::uint32_t code = static_cast<std::uint32_t>(acc_), bits = static_cast<std::uint32_t>(held_);
        const auto run = [&](auto&& call) {
            for (;;) {
                const std::uint8_t* p = buf_.data() + pos_;
                std::int32_t len = Len(std::min<std::size_t>(end_ - pos_, 0x7FFFFFFF));
                const ZyrStatus st = call(&p, &len);
                pos_ = static_cast<std::size_t>(p - buf_.data());
                if (st != StatusSrcExhausted) return st;
                if (!Refill()) Fail("the file ends inside the block");
            }
        };
        ZyrStatus st = run([&](const std::uint8_t** p, std::int32_t* len) {
            return zyrsUnpackHuffContext_BZ2_8u16u(p, len, &code, &bits, block.in_use.data(), huff_state_.data());
        });
        if (st != StatusOk) Fail("corrupt Huffman tables (" + StatusName(st) + ")");
        block.symbols.resize(static_cast<std::size_t>(100000 * level_ + 100));
        std::size_t count = 0;
        st = run([&](const std::uint8_t** p, std::int32_t* len) {
            std::int32_t room = Len(block.symbols.size() - count);
            const ZyrStatus s = zyrsDecodeHuff_BZ2_8u16u(p, len, &code, &bits, block.symbols.data() + count, &room,
                                                         huff_state_.data());
            if (s >= 0) count += static_cast<std::size_t>(room);
            return s;
        });
        if (st != StatusOk) Fail(st == StatusDstFull ? "more symbols than the block size allows" :
                                 "corrupt Huffman codes (" + StatusName(st) + ")");
        block.symbols.resize(count);
        acc_ = code;
        held_ = static_cast<int>(bits);
        return true;
    }
}

}  // namespace zyrdc::tool
