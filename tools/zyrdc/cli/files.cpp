// files.cpp - input files, and outputs written beside the target and renamed when complete.
#include "cli/files.hpp"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "cli/errors.hpp"

namespace zyrdc::tool {

namespace {

std::string Reason(const std::string& name, int error) { return name + ": " + std::strerror(error); }

}  // namespace

// ---- input ------------------------------------------------------------------------------

InputFile::InputFile(const std::string& name) : name_(name), file_(stdin), owned_(false) {
    if (name == "-") {
        return;
    }
    file_ = std::fopen(name.c_str(), "rb");
    if (file_ == nullptr) {
        throw Failure(Reason(name, errno));
    }
    owned_ = true;
}

InputFile::~InputFile() {
    if (owned_) {
        std::fclose(file_);
    }
}

std::size_t InputFile::Read(std::span<std::uint8_t> buffer) {
    errno = 0;
    const std::size_t got = std::fread(buffer.data(), 1, buffer.size(), file_);
    if (got < buffer.size() && std::ferror(file_)) {
        // A directory opens fine and fails here, with EISDIR.
        throw Failure(Reason(name_, errno != 0 ? errno : EIO));
    }
    return got;
}

std::vector<std::uint8_t> ReadAll(const std::string& name) {
    constexpr std::size_t kStep = std::size_t{1} << 20;
    InputFile in(name);
    std::vector<std::uint8_t> bytes;
    for (;;) {
        const std::size_t used = bytes.size();
        bytes.resize(used + kStep);
        const std::size_t got = in.Read(std::span(bytes).subspan(used));
        bytes.resize(used + got);
        if (got < kStep) {
            break;
        }
    }
    bytes.shrink_to_fit();
    return bytes;
}

// ---- output -----------------------------------------------------------------------------

OutputFile::OutputFile(const std::string& name, bool force) : name_(name) {
    if (name == "-") {
        file_ = stdout;
        return;
    }
    struct stat st;
    if (!force && lstat(name.c_str(), &st) == 0) {
        throw Failure(name + ": already exists (use -f to overwrite)");
    }
    const std::size_t slash = name.rfind('/');
    const std::string dir = slash == std::string::npos ? "" : name.substr(0, slash + 1);
    const std::string base = slash == std::string::npos ? name : name.substr(slash + 1);
    std::string pattern = dir + "." + base + ".XXXXXX";
    const int fd = mkstemp(pattern.data());
    if (fd < 0) {
        throw Failure(Reason(name, errno));
    }
    temp_ = pattern;
    // mkstemp makes the file private; give it the mode a newly created file would have.
    const mode_t mask = umask(0);
    umask(mask);
    fchmod(fd, 0666 & ~mask);
    file_ = fdopen(fd, "wb");
    if (file_ == nullptr) {
        const int error = errno;
        close(fd);
        unlink(temp_.c_str());
        throw Failure(Reason(name, error));
    }
}

OutputFile::~OutputFile() {
    if (!temp_.empty()) {  // not committed: leave nothing behind
        if (file_ != nullptr) std::fclose(file_);
        unlink(temp_.c_str());
    }
}

void OutputFile::Write(std::span<const std::uint8_t> bytes) {
    if (!bytes.empty() && std::fwrite(bytes.data(), 1, bytes.size(), file_) != bytes.size()) {
        throw Failure(Reason(name_, errno != 0 ? errno : EIO));
    }
}

void OutputFile::Commit() {
    if (temp_.empty()) {
        if (std::fflush(file_) != 0) throw Failure(Reason(name_, errno));
        return;
    }
    std::FILE* f = file_;
    file_ = nullptr;
    if (std::fflush(f) != 0 || std::ferror(f) || fsync(fileno(f)) != 0) {
        const int error = errno;
        std::fclose(f);
        throw Failure(Reason(name_, error != 0 ? error : EIO));
    }
    if (std::fclose(f) != 0 || std::rename(temp_.c_str(), name_.c_str()) != 0) {
        throw Failure(Reason(name_, errno));
    }
    temp_.clear();
}

}  // namespace zyrdc::tool
