// lzss.cpp - `zyrdc lzss`: files in the library's LZSS format (formats/lzss_file.hpp).
#include <string>

#include "cli/args.hpp"
#include "cli/errors.hpp"
#include "cli/files.hpp"
#include "commands/commands.hpp"
#include "formats/lzss_file.hpp"

namespace zyrdc::tool {

namespace {

constexpr OptionDef kOptions[] = {
    {'d', "decompress", false}, {'f', "force", false}, {'p', "piece", true}, {'\0', "raw", false}};

std::size_t ParsePiece(const std::string& text) {
    const auto value = ToInteger(text, 1, static_cast<long long>(kLzssMaxPiece));
    if (!value) {
        throw UsageError("invalid piece size '" + text + "' (1 to " + std::to_string(kLzssMaxPiece) + " bytes)");
    }
    return static_cast<std::size_t>(*value);
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
    std::size_t piece = kLzssDefaultPiece;
    for (const std::string& value : parsed.Values("piece")) piece = ParsePiece(value);
    InputFile in(parsed.operands[0]);
    OutputFile out(parsed.operands[1], parsed.Has("force"));
    const bool raw = parsed.Has("raw");
    if (parsed.Has("decompress")) {
        LzssDecompress(in.Reader(), out.Writer(), piece, raw, in.Name());
    } else {
        LzssCompress(in.Reader(), out.Writer(), piece, raw);
    }
    out.Commit();
    return kExitOk;
}

}  // namespace zyrdc::tool
