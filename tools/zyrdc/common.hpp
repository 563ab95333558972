// common.hpp - what every subcommand of the zyrdc program shares: exit codes and the two
// kinds of failure, argument parsing, file input, a portable generator and the built-in
// sample. Only the public header of the library is used.
#pragma once

#include <cstdint>
#include <cstdio>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "zyrdc.h"

namespace zyrdc::tool {

// ---- exit codes and failures ----------------------------------------------------------

constexpr int kExitOk = 0;
constexpr int kExitFailure = 1;  // I/O errors, bad data, a library call that failed
constexpr int kExitUsage = 2;    // the command line itself is wrong

// The command line is wrong; main reports it with a pointer to the help and exits 2.
class UsageError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// The work could not be done (a file, the data, the library); main reports it and exits 1.
class Failure : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// Writes "zyrdc: COMMAND: MESSAGE" (or "zyrdc: MESSAGE" without a command) as exactly one
// line on stderr, whatever characters the message carries (file names may hold newlines).
void ReportError(std::string_view command, std::string_view message);

// The library's name for a status code, e.g. "StatusBadSize", or "status N" if unknown.
std::string StatusName(ZyrStatus status);

// Throws Failure naming `what` unless the call succeeded.
void CheckStatus(ZyrStatus status, std::string_view what);

// "zyrDC SSE2 (q4) 2021.11.0 (r0x...), built ...", from the library's own record.
std::string VersionLine();

// Eight lowercase hex digits.
std::string Hex32(std::uint32_t value);

// ---- command-line arguments -------------------------------------------------------------

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
};

// Throws UsageError for an unknown option, a missing value or a value given to a flag.
ParsedArgs ParseArgs(std::span<char* const> args, std::span<const OptionDef> known);

// ---- input ------------------------------------------------------------------------------

// A file opened for reading in binary, or standard input for the name "-". Failures carry
// the name and the system's reason.
class InputFile {
public:
    explicit InputFile(const std::string& name);
    ~InputFile();
    InputFile(const InputFile&) = delete;
    InputFile& operator=(const InputFile&) = delete;

    // Fills as much of `buffer` as the file still holds; returns 0 only at its end.
    std::size_t Read(std::span<std::uint8_t> buffer);
    const std::string& Name() const { return name_; }

private:
    std::string name_;
    std::FILE* file_;
    bool owned_;
};

// The whole content of a file ("-" for standard input).
std::vector<std::uint8_t> ReadAll(const std::string& name);

// ---- deterministic data -----------------------------------------------------------------

// SplitMix64: the same sequence on every compiler and word size, unlike the standard
// library's distributions, so the built-in sample is identical in every build.
class Rng {
public:
    explicit Rng(std::uint64_t seed) : state_(seed) {}
    std::uint64_t Next();
    // Uniform enough in [0, n) for test data; n must be positive.
    std::uint32_t Below(std::uint32_t n) {
        return static_cast<std::uint32_t>((Next() >> 32) * n >> 32);
    }

private:
    std::uint64_t state_;
};

// The input of `zyrdc bench` when no file is given: about 1 MiB of English-like text, byte
// runs and random bytes, always the same bytes.
struct Sample {
    std::vector<std::uint8_t> bytes;
    std::string description;  // what the bytes are made of, for the report header
};
Sample MakeSample();

}  // namespace zyrdc::tool
