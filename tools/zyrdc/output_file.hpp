// output_file.hpp - an output file that appears only when it is complete: bytes go to a
// temporary file in the same directory, renamed over the name on Commit; a failure before
// that (an exception unwinding past it) removes the temporary file. "-" writes to standard
// output instead, directly.
#pragma once

#include <cstdint>
#include <cstdio>
#include <span>
#include <string>

namespace zyrdc::tool {

class OutputFile {
public:
    // Throws Failure if `name` exists and `force` is false, or the temporary file cannot be
    // created.
    OutputFile(const std::string& name, bool force);
    ~OutputFile();
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    void Write(std::span<const std::uint8_t> bytes);
    // Flushes, closes and renames the temporary file over the name.
    void Commit();

private:
    std::string name_;
    std::string temp_;  // empty for standard output
    std::FILE* file_ = nullptr;
};

}  // namespace zyrdc::tool
