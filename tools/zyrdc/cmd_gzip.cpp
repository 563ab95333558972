// cmd_gzip.cpp - `zyrdc gzip`: a .gz file from the library's LZ77 matcher and Huffman coder,
// read and written in pieces so that any size works.
#include <cstdlib>
#include <vector>

#include "commands.hpp"
#include "common.hpp"
#include "deflate_writer.hpp"
#include "output_file.hpp"

namespace zyrdc::tool {

namespace {

constexpr OptionDef kOptions[] = {{'l', "level", true}, {'f', "force", false}};
constexpr std::size_t kPieceSize = std::size_t{1} << 20;

uint32_t ParseLevel(const std::string& text) {
    char* end = nullptr;
    const long value = std::strtol(text.c_str(), &end, 10);
    if (text.empty() || *end != '\0' || value < 0 || value >= static_cast<long>(kDeflateLevels)) {
        throw UsageError("invalid level '" + text + "' (0 to 29)");
    }
    return static_cast<uint32_t>(value);
}

}  // namespace

int RunGzip(const Command& self, std::span<char* const> args) {
    const ParsedArgs parsed = ParseArgs(args, kOptions);
    if (parsed.help) {
        PrintCommandHelp(self);
        return kExitOk;
    }
    uint32_t level = kDefaultDeflateLevel;
    for (const std::string& value : parsed.Values("level")) level = ParseLevel(value);
    if (parsed.operands.size() != 2) {
        throw UsageError("needs an input and an output file");
    }
    // The input opens first, so that a bad name leaves no output behind.
    InputFile in(parsed.operands[0]);
    OutputFile out(parsed.operands[1], !parsed.Values("force").empty());
    GzipWriter gz(level);
    std::vector<std::uint8_t> piece(kPieceSize);
    while (const std::size_t got = in.Read(piece)) {
        gz.Write(std::span(piece).first(got));
        out.Write(gz.Output().Bytes());
        gz.Output().Clear();
    }
    gz.Finish();
    out.Write(gz.Output().Bytes());
    out.Commit();
    return kExitOk;
}

}  // namespace zyrdc::tool
