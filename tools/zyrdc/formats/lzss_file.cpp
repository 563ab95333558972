// lzss_file.cpp - LZSS files streamed in pieces, with the header and trailer that make a
// damaged file detectable.
#include "formats/lzss_file.hpp"

#include <array>
#include <cstdint>
#include <cstring>
#include <vector>

#include "cli/errors.hpp"
#include "zyrdc.h"

namespace zyrdc::tool {

namespace {

constexpr std::array<std::uint8_t, 5> kHeader = {'z', 'L', 'Z', 'S', 1};
constexpr std::size_t kTrailerBytes = 12;

class State {
public:
    State() {
        std::int32_t size = 0;
        CheckStatus(zyrsLZSSGetSize_8u(&size), "LZSS state size");
        memory_.resize((static_cast<std::size_t>(size) + 7) / 8);  // aligned for its pointers
    }
    LzssState* get() { return reinterpret_cast<LzssState*>(memory_.data()); }

private:
    std::vector<std::uint64_t> memory_;
};

// The CRC-32 and length of the original, as the trailer records them.
class Summary {
public:
    void Add(std::span<const std::uint8_t> bytes) {
        if (bytes.empty()) return;  // the CRC refuses an empty buffer
        CheckStatus(zyrsCRC32_8u(bytes.data(), static_cast<std::int32_t>(bytes.size()), &crc_), "CRC-32");
        length_ += bytes.size();
    }
    std::array<std::uint8_t, kTrailerBytes> Trailer() const {
        std::array<std::uint8_t, kTrailerBytes> t{};
        StoreLe(t.data(), crc_, 4);
        StoreLe(t.data() + 4, length_, 8);
        return t;
    }

private:
    std::uint32_t crc_ = 0;
    std::uint64_t length_ = 0;
};

// Runs `code` (encoder or decoder) over one piece of input, emptying the output buffer into
// `sink` whenever the call stops on a full destination.
template <class Code, class Sink>
void CodePiece(std::span<const std::uint8_t> piece, std::vector<std::uint8_t>& dst, Code code, Sink sink) {
    const std::uint8_t* s = piece.data();
    auto left = static_cast<std::int32_t>(piece.size());
    for (;;) {
        std::uint8_t* d = dst.data();
        auto room = static_cast<std::int32_t>(dst.size());
        const ZyrStatus status = code(&s, &left, &d, &room);
        sink(std::span<const std::uint8_t>(dst.data(), d));
        if (status == StatusOk) return;
        if (status != StatusDstFull) CheckStatus(status, "LZSS");
    }
}

void Encode(const ReadFn& read, const WriteFn& write, std::size_t piece, LzssState* st, bool raw) {
    CheckStatus(zyrsEncodeLZSSInit_8u(st), "LZSS encoder init");
    const auto code = [st](const std::uint8_t** s, std::int32_t* sl, std::uint8_t** d, std::int32_t* dl) {
        return zyrsEncodeLZSS_8u(s, sl, d, dl, st);
    };
    const auto& sink = write;
    if (!raw) write(kHeader);
    Summary summary;
    std::vector<std::uint8_t> src(piece), dst(piece);
    while (const std::size_t got = read(src)) {
        summary.Add({src.data(), got});
        CodePiece({src.data(), got}, dst, code, sink);
    }
    std::uint8_t tail[16];
    for (ZyrStatus status = StatusDstFull; status == StatusDstFull;) {
        std::uint8_t* d = tail;
        std::int32_t room = sizeof tail;
        status = zyrsEncodeLZSSFlush_8u(&d, &room, st);
        if (status != StatusDstFull) CheckStatus(status, "LZSS flush");
        write(std::span(tail, d));
    }
    if (!raw) write(summary.Trailer());
}

// Decodes all but the trailer: the last 12 bytes read are held back until the input ends.
void Decode(const ReadFn& read, const WriteFn& write, std::size_t piece, LzssState* st, bool raw,
            const std::string& name) {
    CheckStatus(zyrsDecodeLZSSInit_8u(st), "LZSS decoder init");
    const auto code = [st](const std::uint8_t** s, std::int32_t* sl, std::uint8_t** d, std::int32_t* dl) {
        return zyrsDecodeLZSS_8u(s, sl, d, dl, st);
    };
    Summary summary;
    const auto sink = [&](std::span<const std::uint8_t> bytes) {
        summary.Add(bytes);
        write(bytes);
    };
    const std::size_t keep = raw ? 0 : kTrailerBytes;
    std::vector<std::uint8_t> src(keep + piece), dst(piece);
    std::size_t held = 0;
    if (!raw) {
        std::array<std::uint8_t, kHeader.size()> header{};
        std::size_t got = 0;
        while (got < header.size()) {
            const std::size_t n = read(std::span(header).subspan(got));
            if (n == 0) break;
            got += n;
        }
        if (got < header.size() || std::memcmp(header.data(), kHeader.data(), 4) != 0) {
            throw Failure(name + ": not a zyrdc lzss file (--raw reads a bare stream)");
        }
        if (header[4] != kHeader[4]) {
            throw Failure(name + ": zyrdc lzss format version " + std::to_string(header[4]) +
                          " is not supported");
        }
    }
    while (const std::size_t got = read({src.data() + held, piece})) {
        const std::size_t have = held + got;
        const std::size_t ready = have > keep ? have - keep : 0;
        if (ready != 0) CodePiece({src.data(), ready}, dst, code, sink);
        std::memmove(src.data(), src.data() + ready, have - ready);
        held = have - ready;
    }
    if (raw) return;
    if (held < kTrailerBytes) {
        throw Failure(name + ": truncated file: it ends before its trailer");
    }
    const auto want = summary.Trailer();
    if (std::memcmp(src.data(), want.data(), kTrailerBytes) != 0) {
        throw Failure(name + ": damaged file: the decoded bytes do not match its CRC-32 and length");
    }
}

}  // namespace

void LzssCompress(const ReadFn& read, const WriteFn& write, std::size_t piece, bool raw) {
    State state;
    Encode(read, write, piece, state.get(), raw);
}

void LzssDecompress(const ReadFn& read, const WriteFn& write, std::size_t piece, bool raw, const std::string& name) {
    State state;
    Decode(read, write, piece, state.get(), raw, name);
}

}  // namespace zyrdc::tool
