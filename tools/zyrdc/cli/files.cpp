// files.cpp - input files, and outputs written beside the target and renamed when complete.
#include "cli/files.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
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

namespace {

// The temporary file being written, for the signal handler: a fixed buffer set while the
// signals are blocked, so that the handler sees either no path or a whole one. One output
// is open at a time.
char pending_temp[4096];
volatile std::sig_atomic_t pending = 0;

extern "C" void RemovePendingTemp(int signal_number) {
    if (pending != 0) unlink(pending_temp);
    // Then end as the signal would have ended the program.
    std::signal(signal_number, SIG_DFL);
    std::raise(signal_number);
}

constexpr int kCleanupSignals[] = {SIGINT, SIGTERM, SIGHUP};

// Blocks the cleanup signals for as long as it lives.
class SignalBlock {
public:
    SignalBlock() {
        sigset_t set;
        sigemptyset(&set);
        for (const int s : kCleanupSignals) sigaddset(&set, s);
        sigprocmask(SIG_BLOCK, &set, &old_);
    }
    ~SignalBlock() { sigprocmask(SIG_SETMASK, &old_, nullptr); }
    SignalBlock(const SignalBlock&) = delete;
    SignalBlock& operator=(const SignalBlock&) = delete;

private:
    sigset_t old_;
};

void InstallCleanup() {
    static bool installed = false;
    if (installed) return;
    installed = true;
    for (const int s : kCleanupSignals) {
        struct sigaction current {};
        sigaction(s, nullptr, &current);
        if (current.sa_handler == SIG_IGN) continue;  // run under nohup: stay ignored
        struct sigaction action {};
        action.sa_handler = RemovePendingTemp;
        sigemptyset(&action.sa_mask);
        sigaction(s, &action, nullptr);
    }
}

void SyncDirectory(const std::string& name) {
    const std::size_t slash = name.rfind('/');
    const std::string dir = slash == std::string::npos ? "." : slash == 0 ? "/" : name.substr(0, slash);
    const int fd = open(dir.c_str(), O_RDONLY | O_DIRECTORY);
    if (fd >= 0) {
        fsync(fd);  // not every file system syncs a directory; the data itself is synced
        close(fd);
    }
}

}  // namespace

OutputFile::OutputFile(const std::string& name, bool force) : name_(name) {
    if (name == "-") {
        file_ = stdout;
        return;
    }
    struct stat st;
    const bool exists = stat(name.c_str(), &st) == 0;
    if (exists && !S_ISREG(st.st_mode) && !S_ISDIR(st.st_mode)) {
        // A device or FIFO: written to, never replaced.
        const int fd = open(name.c_str(), O_WRONLY | O_NOCTTY);
        if (fd < 0 || (file_ = fdopen(fd, "wb")) == nullptr) {
            const int error = errno;
            if (fd >= 0) close(fd);
            throw Failure(Reason(name, error));
        }
        owned_ = true;
        return;
    }
    struct stat link;
    if (!force && lstat(name.c_str(), &link) == 0) {
        throw Failure(name + ": already exists (use -f to overwrite)");
    }
    if (exists && S_ISDIR(st.st_mode)) throw Failure(Reason(name, EISDIR));
    const std::size_t slash = name.rfind('/');
    const std::string dir = slash == std::string::npos ? "" : name.substr(0, slash + 1);
    const std::string base = slash == std::string::npos ? name : name.substr(slash + 1);
    const std::string pattern = dir + "." + base + ".XXXXXX";
    if (pattern.size() >= sizeof pending_temp) throw Failure(Reason(name, ENAMETOOLONG));
    InstallCleanup();
    int fd;
    {
        const SignalBlock block;
        std::memcpy(pending_temp, pattern.c_str(), pattern.size() + 1);
        fd = mkstemp(pending_temp);
        if (fd >= 0) {
            temp_ = pending_temp;
            pending = 1;
        }
    }
    if (fd < 0) {
        throw Failure(Reason(name, errno));
    }
    // mkstemp makes the file private; give it the mode a newly created file would have.
    const mode_t mask = umask(0);
    umask(mask);
    fchmod(fd, 0666 & ~mask);
    file_ = fdopen(fd, "wb");
    if (file_ == nullptr) {
        const int error = errno;
        close(fd);
        const SignalBlock block;
        unlink(temp_.c_str());
        pending = 0;
        throw Failure(Reason(name, error));
    }
    owned_ = true;
}

OutputFile::~OutputFile() {
    if (owned_ && file_ != nullptr) std::fclose(file_);
    if (!temp_.empty()) {  // not committed: leave nothing behind
        const SignalBlock block;
        unlink(temp_.c_str());
        pending = 0;
    }
}

void OutputFile::Write(std::span<const std::uint8_t> bytes) {
    if (!bytes.empty() && std::fwrite(bytes.data(), 1, bytes.size(), file_) != bytes.size()) {
        throw Failure(Reason(name_, errno != 0 ? errno : EIO));
    }
}

void OutputFile::CopyAttributes(const struct stat& from) {
    has_attributes_ = true;
    attributes_ = {static_cast<unsigned>(from.st_mode & 07777),
                   static_cast<unsigned>(from.st_uid),
                   static_cast<unsigned>(from.st_gid),
                   static_cast<long long>(from.st_atim.tv_sec),
                   static_cast<long long>(from.st_atim.tv_nsec),
                   static_cast<long long>(from.st_mtim.tv_sec),
                   static_cast<long long>(from.st_mtim.tv_nsec)};
}

void OutputFile::Commit() {
    if (!owned_) {
        if (std::fflush(file_) != 0) throw Failure(Reason(name_, errno));
        return;
    }
    std::FILE* f = file_;
    file_ = nullptr;
    const int fd = fileno(f);
    const bool regular = !temp_.empty();
    if (std::fflush(f) != 0 || std::ferror(f) || (regular && fsync(fd) != 0)) {
        const int error = errno;
        std::fclose(f);
        throw Failure(Reason(name_, error != 0 ? error : EIO));
    }
    if (regular && has_attributes_) {
        // The owner first: changing it may clear the set-user-ID bits that the mode restores.
        // Without the right to give the file away, keep at least the group where allowed.
        const auto& a = attributes_;
        if (fchown(fd, static_cast<uid_t>(a.uid), static_cast<gid_t>(a.gid)) != 0) {
            (void)!fchown(fd, static_cast<uid_t>(-1), static_cast<gid_t>(a.gid));
        }
        fchmod(fd, static_cast<mode_t>(a.mode));
        const struct timespec times[2] = {{static_cast<time_t>(a.atime_s), static_cast<long>(a.atime_ns)},
                                          {static_cast<time_t>(a.mtime_s), static_cast<long>(a.mtime_ns)}};
        futimens(fd, times);
    }
    if (std::fclose(f) != 0) throw Failure(Reason(name_, errno));
    if (!regular) return;
    {
        const SignalBlock block;
        if (std::rename(temp_.c_str(), name_.c_str()) != 0) {
            throw Failure(Reason(name_, errno));  // the destructor removes the temporary file
        }
        temp_.clear();
        pending = 0;
    }
    SyncDirectory(name_);
}

bool SameFile(const std::string& a, const std::string& b) {
    struct stat sa, sb;
    return stat(a.c_str(), &sa) == 0 && stat(b.c_str(), &sb) == 0 && sa.st_dev == sb.st_dev && sa.st_ino == sb.st_ino;
}

bool SameFile(const std::string& name, int fd) {
    struct stat sa, sb;
    return stat(name.c_str(), &sa) == 0 && fstat(fd, &sb) == 0 && sa.st_dev == sb.st_dev && sa.st_ino == sb.st_ino;
}

}  // namespace zyrdc::tool
