// output_file.hpp - an output file that appears only when complete: bytes go to a temporary
// file in the same directory, renamed over the name on Commit; a failure before that removes
// the temporary file. "-" writes to standard output directly.
#pragma once

#include <cstdint>
#include <span>
#include <string>

namespace zyrdc::tool {

class OutputFile {
public:
    // Throws Failure if `name` exists and `force` is false, or no temporary file can be made.
    OutputFile(const std::string& name, bool force);
    ~OutputFile();
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    void Write(std::span<const std::uint8_t> bytes);
    // Closes the temporary file and renames it over the name.
    void Commit();

private:
    std::string name_;
    std::string temp_;  // empty for standard output and once committed
    int fd_ = -1;
};

}  // namespace zyrdc::tool
