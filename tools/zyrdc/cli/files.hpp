// files.hpp - the files of the zyrdc program: an input read in pieces, and an output that
// appears only when it is complete (bytes go to a temporary file in the same directory,
// renamed over the name on Commit; a failure before that removes the temporary file). "-"
// names standard input or output.
#pragma once

#include <sys/stat.h>

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

// Where an output goes. A regular file (or a new name) is written to a temporary file in the
// same directory, renamed over the name only by Commit, after its data reached the disk;
// until then SIGINT, SIGTERM and SIGHUP remove the temporary file before the program ends,
// and so does an exception unwinding past the object. A device, FIFO or socket that already
// exists is opened and written to as it is, never replaced. "-" is standard output.
class OutputFile {
public:
    // Throws Failure if `name` is an existing regular file and `force` is false, or the
    // output cannot be created.
    OutputFile(const std::string& name, bool force);
    ~OutputFile();
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    void Write(std::span<const std::uint8_t> bytes);
    // This file as a writer callback for the formats.
    WriteFn Writer() {
        return [this](std::span<const std::uint8_t> bytes) { Write(bytes); };
    }
    // The mode, owner (as far as permitted) and times that Commit gives a new file.
    void CopyAttributes(const struct stat& from);
    // Flushes and syncs the data; a new file is renamed over the name, and the directory
    // synced, so that once this returns the output survives a crash.
    void Commit();

private:
    std::string name_;
    std::string temp_;  // empty unless writing through a temporary file
    std::FILE* file_ = nullptr;
    bool owned_ = false;  // file_ is closed here (not standard output)
    bool has_attributes_ = false;
    struct Attributes {
        unsigned mode;
        unsigned uid, gid;
        long long atime_s, atime_ns, mtime_s, mtime_ns;
    } attributes_{};
};

// Whether two names (or a name and an open descriptor) are the same file: the same device
// and inode. Names that do not exist are never the same.
bool SameFile(const std::string& a, const std::string& b);
bool SameFile(const std::string& name, int fd);

}  // namespace zyrdc::tool
