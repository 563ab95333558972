// cmd_lzss.cpp - `zyrdc lzss`: files in the library's own LZSS bit format, coded and decoded
// in a stream of fixed-size pieces through one state record.
//
// The bit format carries no check, so any bytes decode to something. A file therefore wraps
// the stream like a gzip member: a 5-byte header (the magic "zLZS" and version 1) and a
// 12-byte trailer (CRC-32 of the original, then its length, both little-endian), so that a
// wrong or damaged file is refused. The trailer comes last so that a pipe can be coded in one
// pass. --raw reads and writes the bare stream.
#include <array>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "commands.hpp"
#include "common.hpp"
#include "output_file.hpp"

namespace zyrdc::tool {

namespace {

constexpr OptionDef kOptions[] = {
    {'d', "decompress", false}, {'f', "force", false}, {'p', "piece", true}, {'\0', "raw", false}};
constexpr std::array<std::uint8_t, 5> kHeader = {'z', 'L', 'Z', 'S', 1};
constexpr std::size_t kTrailerBytes = 12;
constexpr std::size_t kDefaultPiece = 64 * 1024;
constexpr std::size_t kMaxPiece = std::size_t{1} << 30;

std::size_t ParsePiece(const std::string& text) {
    char* end = nullptr;
    const unsigned long long value = std::strtoull(text.c_str(), &end, 10);
    if (text.empty() || *end != '\0' || text[0] == '-' || value < 1 || value > kMaxPiece) {
        throw UsageError("invalid piece size '" + text + "' (1 to " + std::to_string(kMaxPiece) + " bytes)");
    }
    return static_cast<std::size_t>(value);
}

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
        for (int i = 0; i < 4; ++i) t[i] = static_cast<std::uint8_t>(crc_ >> (8 * i));
        for (int i = 0; i < 8; ++i) t[4 + i] = static_cast<std::uint8_t>(length_ >> (8 * i));
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

void Encode(InputFile& in, OutputFile& out, std::size_t piece, LzssState* st, bool raw) {
    CheckStatus(zyrsEncodeLZSSInit_8u(st), "LZSS encoder init");
    const auto code = [st](const std::uint8_t** s, std::int32_t* sl, std::uint8_t** d, std::int32_t* dl) {
        return zyrsEncodeLZSS_8u(s, sl, d, dl, st);
    };
    const auto sink = [&out](std::span<const std::uint8_t> bytes) { out.Write(bytes); };
    if (!raw) out.Write(kHeader);
    Summary summary;
    std::vector<std::uint8_t> src(piece), dst(piece);
    while (const std::size_t got = in.Read(src)) {
        summary.Add({src.data(), got});
        CodePiece({src.data(), got}, dst, code, sink);
    }
    std::uint8_t tail[16];
    for (ZyrStatus status = StatusDstFull; status == StatusDstFull;) {
        std::uint8_t* d = tail;
        std::int32_t room = sizeof tail;
        status = zyrsEncodeLZSSFlush_8u(&d, &room, st);
        if (status != StatusDstFull) CheckStatus(status, "LZSS flush");
        out.Write(std::span(tail, d));
    }
    if (!raw) out.Write(summary.Trailer());
}

// Decodes all but the trailer: the last 12 bytes read are held back until the input ends.
void Decode(InputFile& in, OutputFile& out, std::size_t piece, LzssState* st, bool raw) {
    CheckStatus(zyrsDecodeLZSSInit_8u(st), "LZSS decoder init");
    const auto code = [st](const std::uint8_t** s, std::int32_t* sl, std::uint8_t** d, std::int32_t* dl) {
        return zyrsDecodeLZSS_8u(s, sl, d, dl, st);
    };
    Summary summary;
    const auto sink = [&](std::span<const std::uint8_t> bytes) {
        summary.Add(bytes);
        out.Write(bytes);
    };
    const std::size_t keep = raw ? 0 : kTrailerBytes;
    std::vector<std::uint8_t> src(keep + piece), dst(piece);
    std::size_t held = 0;
    if (!raw) {
        std::array<std::uint8_t, kHeader.size()> header{};
        std::size_t got = 0;
        while (got < header.size()) {
            const std::size_t n = in.Read(std::span(header).subspan(got));
            if (n == 0) break;
            got += n;
        }
        if (got < header.size() || std::memcmp(header.data(), kHeader.data(), 4) != 0) {
            throw Failure(in.Name() + ": not a zyrdc lzss file (--raw reads a bare stream)");
        }
        if (header[4] != kHeader[4]) {
            throw Failure(in.Name() + ": zyrdc lzss format version " + std::to_string(header[4]) +
                          " is not supported");
        }
    }
    while (const std::size_t got = in.Read({src.data() + held, piece})) {
        const std::size_t have = held + got;
        const std::size_t ready = have > keep ? have - keep : 0;
        if (ready != 0) CodePiece({src.data(), ready}, dst, code, sink);
        std::memmove(src.data(), src.data() + ready, have - ready);
        held = have - ready;
    }
    if (raw) return;
    if (held < kTrailerBytes) {
        throw Failure(in.Name() + ": truncated file: it ends before its trailer");
    }
    const auto want = summary.Trailer();
    if (std::memcmp(src.data(), want.data(), kTrailerBytes) != 0) {
        throw Failure(in.Name() + ": damaged file: the decoded bytes do not match its CRC-32 and length");
    }
}

}  // namespace

int RunLzss(const Command& self, std::span<char* const> args) {
    const ParsedArgs parsed = ParseArgs(args, kOptions);
    if (parsed.help) {
        PrintCommandHelp(self);
        return kExitOk;
    }
    if (parsed.operands.size() != 2) {
        throw UsageError("expected IN and OUT");
    }
    std::size_t piece = kDefaultPiece;
    for (const std::string& value : parsed.Values("piece")) piece = ParsePiece(value);
    InputFile in(parsed.operands[0]);
    OutputFile out(parsed.operands[1], !parsed.Values("force").empty());
    State state;
    const bool raw = !parsed.Values("raw").empty();
    if (!parsed.Values("decompress").empty()) {
        Decode(in, out, piece, state.get(), raw);
    } else {
        Encode(in, out, piece, state.get(), raw);
    }
    out.Commit();
    return kExitOk;
}

}  // namespace zyrdc::tool
