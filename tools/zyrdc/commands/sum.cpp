// sum.cpp - `zyrdc sum`: checksums of files of any size, read in fixed pieces; the
// library's running values make the result independent of the piece size.
#include <vector>

#include "cli/args.hpp"
#include "cli/errors.hpp"
#include "cli/files.hpp"
#include "commands/commands.hpp"
#include "formats/checksums.hpp"

namespace zyrdc::tool {

namespace {

constexpr std::size_t kPieceSize = 64 * 1024;

constexpr OptionDef kOptions[] = {{'a', "algorithm", true}};

}  // namespace

int RunSum(const Command& self, std::span<char* const> args) {
    const ParsedArgs parsed = ParseArgs(args, kOptions);
    if (parsed.help) {
        PrintCommandHelp(self);
        return kExitOk;
    }
    const ChecksumKind* kind = FindChecksum("crc32");
    for (const std::string& name : parsed.Values("algorithm")) {
        kind = FindChecksum(name);
        if (kind == nullptr) {
            throw UsageError("unknown algorithm '" + name + "' (choose " + ChecksumNames() + ")");
        }
    }
    std::vector<std::string> files = parsed.operands;
    if (files.empty()) {
        files.emplace_back("-");
    }

    // Like other checksum programs, a file that cannot be read is reported and the rest are
    // still summed; the exit code tells that something failed.
    std::vector<std::uint8_t> piece(kPieceSize);
    int code = kExitOk;
    for (const std::string& file : files) {
        try {
            InputFile in(file);
            RunningChecksum sum(*kind);
            while (const std::size_t got = in.Read(piece)) {
                sum.Update(std::span(piece).first(got));
            }
            std::printf("%s  %s\n", Hex32(sum.Value()).c_str(), file.c_str());
        } catch (const Failure& e) {
            ReportError(self.name, e.what());
            code = kExitFailure;
        }
    }
    return code;
}

}  // namespace zyrdc::tool
