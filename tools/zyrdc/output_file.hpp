// output_file.hpp - an output file that appears only when complete: bytes go to a temporary
// file in the same directory, renamed over the name on Commit; on failure nothing is left.
#pragma once

#include <cstdint>
#include <span>
#include <string>

namespace zyrdc::tool {

class OutputFile {
public:
    // "-" writes to standard output. An existing file is refused (Failure) unless overwrite.
    OutputFile(const std::string& name, bool overwrite);
    ~OutputFile();  // removes the temporary file unless committed
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    void Write(std::span<const std::uint8_t> bytes);
    void Commit();

private:
    std::string name_, temp_;
    int fd_ = -1;
    bool committed_ = false;
};

}  // namespace zyrdc::tool
