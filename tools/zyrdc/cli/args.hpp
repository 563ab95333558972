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

// How a command takes the level options -1, -2, ...: not at all, one digit each ("-19" is
// -1 then -9, as gzip reads it), or a number ("-12" is level 12, as lz4 reads it).
enum class LevelDigits { None, Single, Number };

// Options and operands in command-line order. "-h"/"--help" and "-V"/"--version" are
// understood by every subcommand; "--" ends the options; "-" alone is an operand (standard
// input). Short flags combine ("-dkc"); a short option that takes a value takes the rest of
// its argument ("-oFILE", "-B4") or the next one.
struct ParsedArgs {
    bool help = false;
    bool version = false;
    std::vector<std::pair<std::string_view, std::string>> options;  // long name, value
    std::vector<std::string> operands;

    // Every value given for an option, in order (an empty string for each bare flag). Level
    // digits are given under the name "level-digits".
    std::vector<std::string> Values(std::string_view long_name) const;
    bool Has(std::string_view long_name) const { return !Values(long_name).empty(); }
};

// Throws UsageError for an unknown option, a missing value or a value given to a flag. Where
// two definitions share a name the first one counts, so a command's own options may stand in
// for common ones. A long option whose definition has `takes_value` may also be given bare
// when `optional_value` names it ("--fast" and "--fast=3").
ParsedArgs ParseArgs(std::span<char* const> args, std::span<const OptionDef> known,
                     LevelDigits digits = LevelDigits::None, std::span<const std::string_view> optional_value = {});

// A whole decimal number in [low, high], or nothing (empty text, a sign where low is 0,
// trailing characters, out of range).
std::optional<long long> ToInteger(std::string_view text, long long low, long long high);
// A finite or infinite real number written in full, or nothing.
std::optional<double> ToReal(std::string_view text);

}  // namespace zyrdc::tool
