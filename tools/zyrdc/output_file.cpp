// output_file.cpp - write beside the target under a temporary name, rename when complete.
#include "output_file.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "common.hpp"

namespace zyrdc::tool {

namespace {

std::string Reason(const std::string& name, int error) { return name + ": " + std::strerror(error); }

}  // namespace

OutputFile::OutputFile(const std::string& name, bool force) : name_(name) {
    if (name == "-") {
        fd_ = STDOUT_FILENO;
        return;
    }
    struct stat st;
    if (!force && lstat(name.c_str(), &st) == 0) {
        throw Failure(name + ": exists (use -f to overwrite)");
    }
    // A name of our own beside the target keeps the rename on one file system; O_EXCL makes
    // sure it is ours, and the mode is the umask's as for any new file.
    for (int attempt = 0; fd_ < 0; ++attempt) {
        temp_ = name + ".zyrdc-tmp-" + std::to_string(getpid()) + "-" + std::to_string(attempt);
        fd_ = open(temp_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
        if (fd_ < 0 && (errno != EEXIST || attempt >= 100)) {
            const int error = errno;
            temp_.clear();
            throw Failure(Reason(name, error));
        }
    }
}

OutputFile::~OutputFile() {
    if (!temp_.empty()) {
        close(fd_);
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
        bytes = bytes.subspan(static_cast<std::size_t>(n));
    }
}

void OutputFile::Commit() {
    if (temp_.empty()) return;
    const int fd = fd_;
    fd_ = -1;
    if (close(fd) != 0 || rename(temp_.c_str(), name_.c_str()) != 0) {
        const int error = errno;
        unlink(temp_.c_str());
        temp_.clear();
        throw Failure(Reason(name_, error));
    }
    temp_.clear();
}

}  // namespace zyrdc::tool
