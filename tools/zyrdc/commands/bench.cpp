// bench.cpp - `zyrdc bench`: its options; bench/runner.cpp does the work.
#include <string>

#include "bench/runner.hpp"
#include "cli/args.hpp"
#include "cli/errors.hpp"
#include "commands/commands.hpp"

namespace zyrdc::tool {

namespace {

constexpr OptionDef kOptions[] = {{'t', "time", true}, {'p', "primitive", true}};
constexpr double kDefaultSeconds = 0.2;

double ParseSeconds(const std::string& text) {
    const auto value = ToReal(text);
    if (!value || !(*value > 0.0) || *value > 3600.0) {
        throw UsageError("invalid time '" + text + "' (seconds, above 0 and at most 3600)");
    }
    return *value;
}

}  // namespace

int RunBench(const Command& self, std::span<char* const> args) {
    const ParsedArgs parsed = ParseArgs(args, kOptions);
    if (parsed.help) {
        PrintCommandHelp(self);
        return kExitOk;
    }
    double min_seconds = kDefaultSeconds;
    for (const std::string& value : parsed.Values("time")) {
        min_seconds = ParseSeconds(value);
    }
    RunBenchmarks(parsed.Values("primitive"), parsed.operands, min_seconds);
    return kExitOk;
}

}  // namespace zyrdc::tool
