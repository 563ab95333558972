// errors.hpp - how the zyrdc program fails: exit codes, the two kinds of failure and the one
// line on stderr that reports them. Only the public header of the library is used.
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>

#include "zyrdc.h"

namespace zyrdc::tool {

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

}  // namespace zyrdc::tool
