// version.cpp - `zyrdc version`: which library build is behind the program.
#include "commands/commands.hpp"
#include "cli/args.hpp"
#include "cli/errors.hpp"

namespace zyrdc::tool {

int RunVersion(const Command& self, std::span<char* const> args) {
    const ParsedArgs parsed = ParseArgs(args, {});
    if (parsed.help) {
        PrintCommandHelp(self);
        return kExitOk;
    }
    if (!parsed.operands.empty()) {
        throw UsageError("unexpected argument '" + parsed.operands.front() + "'");
    }
    std::printf("%s\n", VersionLine().c_str());
    return kExitOk;
}

}  // namespace zyrdc::tool
