// commands.hpp - the subcommands of the zyrdc program. Adding one takes a commands/NAME.cpp
// defining its Run function (options and the loop; the format itself goes in formats/), a
// declaration here and a row in the table of main.cpp.
#pragma once

#include <span>
#include <string_view>

namespace zyrdc::tool {

struct Command {
    std::string_view name;
    std::string_view synopsis;  // the arguments, as shown after "zyrdc NAME"
    std::string_view summary;   // one line for the command list
    std::string_view details;   // the options and what is printed, for "zyrdc NAME --help"
    // Runs with the arguments after the command name; returns the exit code or throws
    // UsageError / Failure.
    int (*run)(const Command& self, std::span<char* const> args);
    bool codec = false;  // takes the common codec options of cli/codec.hpp (shown in its help)
};

// Prints "usage: zyrdc NAME SYNOPSIS", the summary and the details to stdout.
void PrintCommandHelp(const Command& command);

int RunVersion(const Command& self, std::span<char* const> args);
int RunSum(const Command& self, std::span<char* const> args);
int RunBench(const Command& self, std::span<char* const> args);
int RunLz4(const Command& self, std::span<char* const> args);
int RunBwt(const Command& self, std::span<char* const> args);
int RunZfp(const Command& self, std::span<char* const> args);
int RunGzip(const Command& self, std::span<char* const> args);
int RunLzop(const Command& self, std::span<char* const> args);
int RunLzo(const Command& self, std::span<char* const> args);
int RunLzss(const Command& self, std::span<char* const> args);
int RunBzip2(const Command& self, std::span<char* const> args);

}  // namespace zyrdc::tool
