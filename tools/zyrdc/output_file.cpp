// output_file.cpp - temporary file, then rename: a failed run leaves no partial output.
#include "output_file.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "common.hpp"

namespace zyrdc::tool {

namespace {

std::string Reason(const std::string& name, int error) { return name + ": " + std::strerror(error); }

}  // namespace

OutputFile::OutputFile(const std::string& name, bool overwrite) : name_(name) {
    if (name == "-") {
        fd_ = STDOUT_FILENO;
        return;
    }
    struct stat st;
    if (!overwrite && lstat(name.c_str(), &st) == 0) {
        throw Failure(name + ": already exists (use -f to overwrite)");
    }
    // O_EXCL on a name of our own in the same directory, so that the rename stays on one
    // file system; the mode is left to the umask like any new file.
    for (int attempt = 0; fd_ < 0; ++attempt) {
        temp_ = name + ".zyrdc-" + std::to_string(getpid()) + "-" + std::to_string(attempt);
        fd_ = open(temp_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
        if (fd_ < 0 && (errno != EEXIST || attempt > 100)) {
            const int error = errno;
            temp_.clear();
            throw Failure(Reason(name, error));
        }
    }
}

OutputFile::~OutputFile() {
    if (!temp_.empty() && !committed_) {
        if (fd_ >= 0) close(fd_);
        unlink(temp_.c_str());
    }
}

void OutputFile::Write(std::span<const std::uint8_t> bytes) {
    while (!bytes.empty()) {
        const ssize_t n = write(fd_, bytes.data(), bytes.size());
        if (n < 0) {
            if (errno == EINTR) continue;
            throw Failure(Reason(name_, errno));
        }
        bytes = bytes.subspan(static_cast<size_t>(n));
    }
}

void OutputFile::Commit() {
    if (temp_.empty()) {
        committed_ = true;
        return;
    }
    const int fd = fd_;
    fd_ = -1;
    if (close(fd) != 0) throw Failure(Reason(name_, errno));
    if (rename(temp_.c_str(), name_.c_str()) != 0) throw Failure(Reason(name_, errno));
    committed_ = true;
}

}  // namespace zyrdc::tool
