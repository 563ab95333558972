// bwt.cpp - `zyrdc bwt`: a file through the bzip2 block stages into the container of
// formats/bwt_container.hpp, and back with every block's CRC checked.
#include "cli/args.hpp"
#include "cli/errors.hpp"
#include "cli/files.hpp"
#include "commands/commands.hpp"
#include "formats/bwt_container.hpp"

namespace zyrdc::tool {

namespace {

constexpr OptionDef kOptions[] = {{'d', "decompress", false}, {'f', "force", false}};

}  // namespace

int RunBwt(const Command& self, std::span<char* const> args) {
    const ParsedArgs parsed = ParseArgs(args, kOptions);
    if (parsed.help) {
        PrintCommandHelp(self);
        return kExitOk;
    }
    if (parsed.operands.size() != 2) throw UsageError("needs an input and an output file");
    const std::string& output = parsed.operands[1];
    if (output == "-") throw UsageError("the output must be a file");
    InputFile in(parsed.operands[0]);
    OutputFile out(output, parsed.Has("force"));
    if (parsed.Has("decompress")) {
        BwtDecompress(in.Reader(), out.Writer(), in.Name());
    } else {
        BwtCompress(in.Reader(), out.Writer());
    }
    out.Commit();
    return kExitOk;
}

}  // namespace zyrdc::tool
