// bwt_container.cpp - the stage chain of `zyrdc bwt`, block by block, in both directions.
#include "formats/bwt_container.hpp"

#include <algorithm>
#include <cstring>
#include <string>

#include "cli/errors.hpp"
#include "zyrdc.h"

namespace zyrdc::tool {

namespace {

std::int32_t Len(std::size_t n) { return static_cast<std::int32_t>(n); }

[[noreturn]] void Corrupt(const std::string& what) { throw Failure("corrupt block: " + what); }

}  // namespace

BwtBlockEncoder::BwtBlockEncoder(std::uint32_t limit) : limit_(std::min(limit, kBwtBlockLimit)), coded_(limit_) {
    Reset();
}

void BwtBlockEncoder::Reset() {
    CheckStatus(zyrsEncodeRLEInit_BZ2_8u(rle_state_.data()), "run-length init");
    block_ = BwtBlock{};
    full_ = false;
}

std::size_t BwtBlockEncoder::Feed(std::span<const std::uint8_t> bytes) {
    std::size_t taken = 0;
    while (taken < bytes.size() && !full_) {
        // One byte of room is kept for the count byte that the flush may still write.
        const std::int32_t room = Len(limit_ - 1 - block_.coded_size);
        if (room < 1) {
            full_ = true;
            break;
        }
        const std::size_t piece = std::min<std::size_t>(bytes.size() - taken, 1 << 30);
        const std::uint8_t* src = bytes.data() + taken;
        std::int32_t left = Len(piece), written = room;
        const ZyrStatus st = zyrsEncodeRLE_BZ2_8u(&src, &left, coded_.data() + block_.coded_size,
                                                  &written, rle_state_.data());
        if (st != StatusOk && st != StatusDstFull) CheckStatus(st, "run-length coding");
        const std::size_t used = piece - static_cast<std::size_t>(left);
        if (used > 0) {
            CheckStatus(zyrsCRC32_BZ2_8u(bytes.data() + taken, Len(used), &block_.crc), "block CRC");
        }
        block_.original_size += static_cast<std::uint32_t>(used);
        block_.coded_size += static_cast<std::uint32_t>(written);
        taken += used;
        full_ = st == StatusDstFull;
    }
    return taken;
}

BwtBlock BwtBlockEncoder::Finish() {
    BwtBlock block = block_;
    std::int32_t one = 1;
    CheckStatus(zyrsEncodeRLEFlush_BZ2_8u(coded_.data() + block.coded_size, &one, rle_state_.data()),
                "run-length flush");
    block.coded_size += static_cast<std::uint32_t>(one);
    CheckStatus(zyrsRLEGetInUseTable_8u(block.in_use.data(), rle_state_.data()), "in-use table");
    const std::int32_t n = Len(block.coded_size);
    std::int32_t dictionary = 0;
    CheckStatus(zyrsReduceDictionary_8u_I(block.in_use.data(), coded_.data(), n, &dictionary),
                "dictionary");

    std::int32_t work = 0;
    CheckStatus(zyrsBWTFwdGetSize_8u(n, &work), "transform size");
    std::vector<std::uint8_t> buffer(static_cast<std::size_t>(work)), last(block.coded_size);
    std::int32_t index = 0;
    CheckStatus(zyrsBWTFwd_8u(coded_.data(), last.data(), n, &index, buffer.data()), "transform");
    block.index = static_cast<std::uint32_t>(index);

    std::uint8_t mtf[256];
    CheckStatus(zyrsMTFInit_8u(mtf), "move-to-front init");
    std::vector<std::uint8_t> indexes(block.coded_size);
    CheckStatus(zyrsMTFFwd_8u(last.data(), indexes.data(), n, mtf), "move-to-front");
    // Every index becomes at most one symbol, so n symbols always suffice.
    block.symbols.resize(block.coded_size);
    std::vector<std::uint32_t> freq(258);
    const std::uint8_t* src = indexes.data();
    std::int32_t left = n, count = n;
    CheckStatus(zyrsEncodeZ1Z2_BZ2_8u16u(&src, &left, block.symbols.data(), &count, freq.data()),
                "zero-run coding");
    block.symbols.resize(static_cast<std::size_t>(count));
    Reset();
    return block;
}

std::vector<std::uint8_t> DecodeBwtBlock(const BwtBlock& block) {
    const std::uint32_t n = block.coded_size;
    if (n == 0 || n > kBwtBlockLimit) Corrupt("transform length " + std::to_string(n));
    if (block.index >= n) Corrupt("primary index past the block");
    // Four literals and a count byte stand for at most 259 bytes.
    if (block.original_size == 0 || block.original_size / 52 > n) Corrupt("original size");
    if (block.symbols.empty() || block.symbols.size() > n) Corrupt("symbol count");
    for (std::uint16_t s : block.symbols) {
        if (s > 256) Corrupt("symbol " + std::to_string(s));
    }
    std::vector<std::uint8_t> indexes(n);
    const std::uint16_t* sym = block.symbols.data();
    std::int32_t left = Len(block.symbols.size()), count = Len(n);
    if (zyrsDecodeZ1Z2_BZ2_16u8u(&sym, &left, indexes.data(), &count) != StatusOk ||
        count != Len(n)) {
        Corrupt("symbols do not make " + std::to_string(n) + " indexes");
    }
    std::uint8_t mtf[256];
    CheckStatus(zyrsMTFInit_8u(mtf), "move-to-front init");
    std::vector<std::uint8_t> last(n), coded(n);
    CheckStatus(zyrsMTFInv_8u(indexes.data(), last.data(), Len(n), mtf), "move-to-front");
    std::int32_t work = 0;
    CheckStatus(zyrsBWTInvGetSize_8u(Len(n), &work), "transform size");
    std::vector<std::uint8_t> buffer(static_cast<std::size_t>(work));
    CheckStatus(zyrsBWTInv_8u(last.data(), coded.data(), Len(n), Len(block.index), buffer.data()),
                "inverse transform");
    std::int32_t dictionary = 0;
    for (std::uint8_t f : block.in_use) dictionary += f;
    if (dictionary == 0 ||
        zyrsExpandDictionary_8u_I(block.in_use.data(), coded.data(), Len(n), dictionary) != StatusOk) {
        Corrupt("in-use table");
    }

    std::vector<std::uint8_t> out(block.original_size);
    std::uint8_t state[264];
    CheckStatus(zyrsDecodeRLEStateInit_BZ2_8u(state), "run-length init");
    const std::uint8_t* src = coded.data();
    std::uint8_t* dst = out.data();
    std::int32_t src_left = Len(n), room = Len(out.size());
    if (zyrsDecodeRLEState_BZ2_8u(&src, &src_left, &dst, &room, state) != StatusOk ||
        zyrsDecodeRLEStateFlush_BZ2_8u(state, &dst, &room) != StatusOk || room != 0) {
        Corrupt("run-length data does not make " + std::to_string(out.size()) + " bytes");
    }
    std::uint32_t crc = 0;
    CheckStatus(zyrsCRC32_BZ2_8u(out.data(), Len(out.size()), &crc), "block CRC");
    if (crc != block.crc) Corrupt("CRC " + Hex32(crc) + ", expected " + Hex32(block.crc));
    return out;
}

namespace {

constexpr std::uint8_t kMagic[5] = {'Z', 'B', 'W', 'T', 1};
constexpr std::size_t kReadPiece = 1 << 20;

void WriteBlock(const WriteFn& write, const BwtBlock& b) {
    std::vector<std::uint8_t> out;
    out.reserve(56 + 2 * b.symbols.size());
    AppendLe(out, b.original_size, 4);
    AppendLe(out, b.coded_size, 4);
    AppendLe(out, b.index, 4);
    AppendLe(out, b.crc, 4);
    std::uint8_t bitmap[32] = {};
    for (int v = 0; v < 256; ++v) {
        if (b.in_use[static_cast<std::size_t>(v)] != 0) bitmap[v / 8] |= static_cast<std::uint8_t>(1 << (v % 8));
    }
    out.insert(out.end(), bitmap, bitmap + sizeof bitmap);
    AppendLe(out, b.symbols.size(), 4);
    for (const std::uint16_t symbol : b.symbols) AppendLe(out, symbol, 2);
    write(out);
}

// Reads exactly n bytes or fails naming what was cut short.
void ReadExact(const ReadFn& read, std::uint8_t* p, std::size_t n, const std::string& name, const char* what) {
    if (ReadFull(read, std::span(p, n)) != n) throw Failure(name + ": truncated (" + what + ")");
}
std::uint32_t ReadU32(const ReadFn& read, const std::string& name, const char* what) {
    std::uint8_t b[4];
    ReadExact(read, b, 4, name, what);
    return LoadLe32(b);
}

}  // namespace

void BwtCompress(const ReadFn& read, const WriteFn& write, std::uint32_t block) {
    write(kMagic);
    BwtBlockEncoder encoder(block);
    std::vector<std::uint8_t> piece(kReadPiece);
    while (const std::size_t got = read(piece)) {
        std::span<const std::uint8_t> rest(piece.data(), got);
        while (!rest.empty()) {
            rest = rest.subspan(encoder.Feed(rest));
            if (encoder.Full()) WriteBlock(write, encoder.Finish());
        }
    }
    if (!encoder.Empty()) WriteBlock(write, encoder.Finish());
    const std::uint8_t end[4] = {};
    write(end);
}

void BwtDecompress(const ReadFn& read, const WriteFn& write, const std::string& name) {
    std::uint8_t magic[sizeof kMagic];
    if (ReadFull(read, magic) != sizeof magic || std::memcmp(magic, kMagic, sizeof magic) != 0) {
        throw Failure(name + ": not a zyrdc bwt file");
    }
    for (std::size_t number = 1;; ++number) {
        BwtBlock b;
        b.original_size = ReadU32(read, name, "block header");
        if (b.original_size == 0) break;
        b.coded_size = ReadU32(read, name, "block header");
        b.index = ReadU32(read, name, "block header");
        b.crc = ReadU32(read, name, "block header");
        std::uint8_t bitmap[32];
        ReadExact(read, bitmap, sizeof bitmap, name, "in-use table");
        for (int v = 0; v < 256; ++v) b.in_use[static_cast<std::size_t>(v)] = (bitmap[v / 8] >> (v % 8)) & 1;
        const std::uint32_t count = ReadU32(read, name, "symbol count");
        if (count == 0 || count > b.coded_size || count > kBwtBlockLimit) {
            throw Failure(name + ": block " + std::to_string(number) + ": bad symbol count");
        }
        std::vector<std::uint8_t> bytes(2 * static_cast<std::size_t>(count));
        ReadExact(read, bytes.data(), bytes.size(), name, "symbols");
        b.symbols.resize(count);
        for (std::size_t i = 0; i < count; ++i) {
            b.symbols[i] = static_cast<std::uint16_t>(LoadLe(&bytes[2 * i], 2));
        }
        try {
            write(DecodeBwtBlock(b));
        } catch (const Failure& e) {
            throw Failure(name + ": block " + std::to_string(number) + ": " + e.what());
        }
    }
    std::uint8_t extra;
    if (read(std::span(&extra, 1)) != 0) throw Failure(name + ": data after the last block");
}

}  // namespace zyrdc::tool
