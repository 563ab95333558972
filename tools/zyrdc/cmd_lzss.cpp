// cmd_lzss.cpp - `zyrdc lzss`: files in the library's own LZSS bit format (no header), coded
// and decoded in a stream of fixed-size pieces through one state record.
#include <cstdlib>
#include <string>
#include <vector>

#include "commands.hpp"
#include "common.hpp"
#include "output_file.hpp"

namespace zyrdc::tool {

namespace {

constexpr OptionDef kOptions[] = {{'d', "decompress", false}, {'f', "force", false}, {'p', "piece", true}};
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

// Feeds every piece of the input to `code` (encoder or decoder), emptying the output buffer
// into the file whenever the call stops on a full destination.
template <class Code>
void Stream(InputFile& in, OutputFile& out, std::size_t piece, Code code) {
    std::vector<std::uint8_t> src(piece), dst(piece);
    while (const std::size_t got = in.Read(src)) {
        const std::uint8_t* s = src.data();
        auto left = static_cast<std::int32_t>(got);
        for (;;) {
            std::uint8_t* d = dst.data();
            auto room = static_cast<std::int32_t>(dst.size());
            const ZyrStatus status = code(&s, &left, &d, &room);
            out.Write(std::span(dst.data(), d));
            if (status == StatusOk) break;
            if (status != StatusDstFull) CheckStatus(status, "LZSS");
        }
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
    LzssState* st = state.get();
    if (!parsed.Values("decompress").empty()) {
        CheckStatus(zyrsDecodeLZSSInit_8u(st), "LZSS decoder init");
        Stream(in, out, piece, [st](const std::uint8_t** s, std::int32_t* sl, std::uint8_t** d, std::int32_t* dl) {
            return zyrsDecodeLZSS_8u(s, sl, d, dl, st);
        });
    } else {
        CheckStatus(zyrsEncodeLZSSInit_8u(st), "LZSS encoder init");
        Stream(in, out, piece, [st](const std::uint8_t** s, std::int32_t* sl, std::uint8_t** d, std::int32_t* dl) {
            return zyrsEncodeLZSS_8u(s, sl, d, dl, st);
        });
        std::uint8_t tail[16];
        for (ZyrStatus status = StatusDstFull; status == StatusDstFull;) {
            std::uint8_t* d = tail;
            std::int32_t room = sizeof tail;
            status = zyrsEncodeLZSSFlush_8u(&d, &room, st);
            if (status != StatusDstFull) CheckStatus(status, "LZSS flush");
            out.Write(std::span(tail, d));
        }
    }
    out.Commit();
    return kExitOk;
}

}  // namespace zyrdc::tool
