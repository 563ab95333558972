// files.hpp - the files of the zyrdc program: an input read in pieces, and an output that
// appears only when it is complete (bytes go to a temporary file in the same directory,
// renamed over the name on Commit; a failure before that removes the temporary file). "-"
// names standard input or output.
#pragma once

#include <cstdint>
#include <cstdio>
#include <span>
#include <string>
#include <vector>

#include "cli/bytes.hpp"

namespace zyrdc::tool {

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
    // This file as a reader callback for the formats.
    ReadFn Reader() {
        return [this](std::span<std::uint8_t> buffer) { return Read(buffer); };
    }

private:
    std::string name_;
    std::FILE* file_;
    bool owned_;
};

// The whole content of a file ("-" for standard input).
std::vector<std::uint8_t> ReadAll(const std::string& name);

class OutputFile {
public:
    // Throws Failure if `name` exists and `force` is false, or the temporary file cannot be
    // created.
    OutputFile(const std::string& name, bool force);
    ~OutputFile();
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    void Write(std::span<const std::uint8_t> bytes);
    // This file as a writer callback for the formats.
    WriteFn Writer() {
        return [this](std::span<const std::uint8_t> bytes) { Write(bytes); };
    }
    // Flushes, syncs, closes and renames the temporary file over the name.
    void Commit();

private:
    std::string name_;
    std::string temp_;  // empty for standard output
    std::FILE* file_ = nullptr;
};

}  // namespace zyrdc::tool
