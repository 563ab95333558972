// gzip.cpp - `zyrdc gzip`: .gz files written with the library's Deflate primitives and
// read with its Inflate decoder, streamed in pieces so that any size works.
#include <optional>

#include "cli/args.hpp"
#include "cli/errors.hpp"
#include "cli/files.hpp"
#include "commands/commands.hpp"
#include "formats/deflate_writer.hpp"
#include "formats/gzip_member.hpp"

namespace zyrdc::tool {

namespace {

constexpr OptionDef kOptions[] = {
    {'l', "level", true}, {'d', "decompress", false}, {'t', "test", false}, {'c', "stdout", false},
    {'k', "keep", false}, {'f', "force", false},      {'1', "1", false},    {'2', "2", false},
    {'3', "3", false},    {'4', "4", false},          {'5', "5", false},    {'6', "6", false},
    {'7', "7", false},    {'8', "8", false},          {'9', "9", false}};

uint32_t ParseLevel(const std::string& text) {
    const auto value = ToInteger(text, 0, kDeflateLevels - 1);
    if (!value) {
        throw UsageError("invalid level '" + text + "' (0 to 29)");
    }
    return static_cast<uint32_t>(*value);
}

}  // namespace

int RunGzip(const Command& self, std::span<char* const> args) {
    const ParsedArgs parsed = ParseArgs(args, kOptions);
    if (parsed.help) {
        PrintCommandHelp(self);
        return kExitOk;
    }
    uint32_t level = kDefaultDeflateLevel;
    bool decompress = false, test = false, toStdout = false, force = false;
    for (const auto& [name, value] : parsed.options) {
        if (name == "level") level = ParseLevel(value);
        else if (name.size() == 1) level = static_cast<uint32_t>(name[0] - '0');
        else if (name == "decompress") decompress = true;
        else if (name == "test") test = true;
        else if (name == "stdout") toStdout = true;
        else if (name == "force") force = true;
        // --keep: the input is never removed
    }
    const std::size_t operands = toStdout || test ? 1 : 2;
    if (parsed.operands.size() != operands) {
        throw UsageError(operands == 1 ? "needs one input file with -c or -t" : "needs an input and an output file");
    }
    // The input opens first, so that a bad name leaves no output behind.
    InputFile in(parsed.operands[0]);
    std::optional<OutputFile> out;
    if (!test) out.emplace(toStdout ? std::string("-") : parsed.operands[1], force);
    if (decompress || test) {
        Gunzip(in.Reader(), test ? WriteFn() : out->Writer());
    } else {
        Gzip(in.Reader(), out->Writer(), level);
    }
    if (out) out->Commit();
    return kExitOk;
}

}  // namespace zyrdc::tool
