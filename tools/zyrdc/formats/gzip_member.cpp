// gzip_member.cpp - gzip members over zyrsInflate_8u, streaming: the input in pieces, the
// output through a buffer that keeps the last 32 KiB as the decoder's history.
#include "formats/gzip_member.hpp"

#include <algorithm>
#include <cstring>
#include <memory>
#include <string>

#include "cli/errors.hpp"
#include "formats/deflate_writer.hpp"
#include "zyrdc.h"

namespace zyrdc::tool {

namespace {

constexpr std::size_t kInputPiece = std::size_t{1} << 18;
constexpr int32_t kHistory = 32768;
constexpr int32_t kOutputRoom = 1 << 18;
// Header flags.
constexpr uint8_t kFlagHcrc = 2, kFlagExtra = 4, kFlagName = 8, kFlagComment = 16, kFlagsReserved = 0xE0;

// Damaged or foreign data, told apart from a failing reader or writer so that only its
// message gets the file's name.
class Corruption : public Failure {
public:
    using Failure::Failure;
};

[[noreturn]] void Corrupt(const std::string& why) { throw Corruption(why); }

// The input with a window of unconsumed bytes; a CRC-32 over header bytes when asked.
class Input {
public:
    explicit Input(const ReadFn& read) : read_(read), buf_(kInputPiece + 512) {}
    // At least n bytes unconsumed (n <= 512), or false at the end of the input.
    bool Have(std::size_t n) {
        while (end_ - pos_ < n) {
            if (eof_) return false;
            Fill();
        }
        return true;
    }
    // Reads more, keeping what is unconsumed; false when nothing more came.
    bool Fill() {
        if (eof_) return false;
        std::memmove(buf_.data(), buf_.data() + pos_, end_ - pos_);
        end_ -= pos_;
        pos_ = 0;
        const std::size_t got = read_(std::span(buf_).subspan(end_, buf_.size() - end_));
        eof_ = got == 0;
        end_ += got;
        return got != 0;
    }
    uint8_t Byte() {
        if (!Have(1)) Corrupt("unexpected end of file");
        if (crcOn_) Crc(&buf_[pos_], 1);
        return buf_[pos_++];
    }
    uint32_t Le(int bytes) {
        uint32_t v = 0;
        for (int i = 0; i < bytes; ++i) v |= uint32_t{Byte()} << (8 * i);
        return v;
    }
    void HeaderCrc(bool on) {
        crcOn_ = on;
        crc_ = 0;
    }
    uint32_t HeaderCrcValue() const { return crc_; }
    const uint8_t* Data() const { return buf_.data() + pos_; }
    std::size_t Size() const { return end_ - pos_; }
    void Consume(std::size_t n) { pos_ += n; }
    bool AtEnd() { return !Have(1); }

private:
    void Crc(const uint8_t* p, int32_t n) { zyrsCRC32_8u(p, n, &crc_); }
    const ReadFn& read_;
    std::vector<uint8_t> buf_;
    std::size_t pos_ = 0, end_ = 0;
    bool eof_ = false, crcOn_ = false;
    uint32_t crc_ = 0;
};

void Member(Input& in, const WriteFn& write, std::vector<uint8_t>& out, InflateHuffTable& table) {
    in.HeaderCrc(true);
    if (in.Byte() != 0x1F || in.Byte() != 0x8B) Corrupt("not in gzip format");
    if (in.Byte() != 8) Corrupt("unknown compression method");
    const uint8_t flags = in.Byte();
    if (flags & kFlagsReserved) Corrupt("unknown header flags");
    in.Le(4);  // time stamp
    in.Le(2);  // extra flags, operating system
    if (flags & kFlagExtra) {
        for (uint32_t n = in.Le(2); n > 0; --n) in.Byte();
    }
    if (flags & kFlagName) {
        while (in.Byte() != 0) {}
    }
    if (flags & kFlagComment) {
        while (in.Byte() != 0) {}
    }
    const uint32_t headerCrc = in.HeaderCrcValue() & 0xFFFF;
    in.HeaderCrc(false);
    if ((flags & kFlagHcrc) && in.Le(2) != headerCrc) Corrupt("header CRC mismatch");

    uint32_t crc = 0, size = 0, code = 0, bits = 0;
    int32_t mode = InflateModeBlockStart, dstIdx = 0;
    for (;;) {
        static const uint8_t kNone = 0;
        const uint8_t* src = in.Size() ? in.Data() : &kNone;
        int32_t srcLen = static_cast<int32_t>(in.Size());
        const int32_t start = dstIdx;
        const ZyrStatus s = zyrsInflate_8u(&src, &srcLen, &code, &bits, out.data(), static_cast<int32_t>(out.size()),
                                           &dstIdx, 0, &mode, &table);
        if (s < 0) Corrupt("invalid compressed data (status " + std::to_string(s) + ")");
        in.Consume(in.Size() - static_cast<std::size_t>(srcLen));
        if (dstIdx > start) {
            zyrsCRC32_8u(out.data() + start, dstIdx - start, &crc);
            size += static_cast<uint32_t>(dstIdx - start);
            if (write) write(std::span<const uint8_t>(out.data() + start, static_cast<std::size_t>(dstIdx - start)));
        }
        if (s == StatusOk) break;
        if (s == StatusSrcExhausted && !in.Fill()) Corrupt("unexpected end of file");
        if (dstIdx > kHistory) {  // keep the history at the front
            std::memmove(out.data(), out.data() + dstIdx - kHistory, kHistory);
            dstIdx = kHistory;
        }
    }
    if (in.Le(4) != crc) Corrupt("CRC-32 mismatch");
    if (in.Le(4) != size) Corrupt("length mismatch");
}

}  // namespace

void Gunzip(const ReadFn& read, const WriteFn& write, const std::string& name) {
    Input in(read);
    std::vector<uint8_t> out(static_cast<std::size_t>(kHistory + kOutputRoom));
    const auto table = std::make_unique<InflateHuffTable>();
    try {
        if (in.AtEnd()) Corrupt("unexpected end of file");
        do {
            Member(in, write, out, *table);
        } while (!in.AtEnd());
    } catch (const Corruption& e) {
        if (name.empty()) throw;
        throw Failure(name + ": " + e.what());
    }
}

std::vector<uint8_t> Gunzip(std::span<const uint8_t> file) {
    std::vector<uint8_t> result;
    Gunzip(
        [&](std::span<uint8_t> buf) {
            const std::size_t n = std::min(buf.size(), file.size());
            if (n != 0) std::memcpy(buf.data(), file.data(), n);
            file = file.subspan(n);
            return n;
        },
        [&](std::span<const uint8_t> bytes) { result.insert(result.end(), bytes.begin(), bytes.end()); });
    return result;
}

void Gzip(const ReadFn& read, const WriteFn& write, std::uint32_t level) {
    constexpr std::size_t kPieceSize = std::size_t{1} << 20;
    GzipWriter gz(level);
    std::vector<std::uint8_t> piece(kPieceSize);
    while (const std::size_t got = read(piece)) {
        gz.Write(std::span(piece).first(got));
        write(gz.Output().Bytes());
        gz.Output().Clear();
    }
    gz.Finish();
    write(gz.Output().Bytes());
}

}  // namespace zyrdc::tool
