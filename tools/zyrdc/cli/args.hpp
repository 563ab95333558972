// args.hpp - the command line of every subcommand: one option parser and the number parsers
// behind option values.
#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace zyrdc::tool {

// One option of a subcommand. Every option has a long name, which is how its values are
// looked up; a short name is optional ('\0' for none).
struct OptionDef {
    char short_name;
    std::string_view long_name;
    bool takes_value;
};

// Options and operands in command-line order. "-h" and "--help" are understood by every
// subcommand; "--" ends the options; "-" alone is an operand (standard input).
struct ParsedArgs {
    bool help = false;
    std::vector<std::pair<std::string_view, std::string>> options;  // long name, value
    std::vector<std::string> operands;

    // Every value given for an option, in order (an empty string for each bare flag).
    std::vector<std::string> Values(std::string_view long_name) const;
    bool Has(std::string_view long_name) const { return !Values(long_name).empty(); }
};

// Throws UsageError for an unknown option, a missing value or a value given to a flag.
ParsedArgs ParseArgs(std::span<char* const> args, std::span<const OptionDef> known);

// A whole decimal number in [low, high], or nothing (empty text, a sign where low is 0,
// trailing characters, out of range).
std::optional<long long> ToInteger(std::string_view text, long long low, long long high);
// A finite or infinite real number written in full, or nothing.
std::optional<double> ToReal(std::string_view text);

}  // namespace zyrdc::tool
