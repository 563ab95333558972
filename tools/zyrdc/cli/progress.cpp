// progress.cpp - "NN% of N MiB", or the MiB so far, rewritten in place on a terminal.
#include "cli/progress.hpp"

#include <unistd.h>

#include <cstdio>

namespace zyrdc::tool {

Progress::Progress(std::string label, std::optional<std::uint64_t> total)
    : label_(std::move(label)), total_(total), on_(isatty(STDERR_FILENO) != 0) {}

Progress::~Progress() {
    if (shown_) std::fputs("\r                                        \r", stderr);
}

void Progress::Add(std::size_t n) {
    done_ += n;
    if (!on_ || (total_ ? *total_ : done_) <= kProgressFrom) return;
    shown_ = true;
    if (total_ && *total_ != 0) {
        std::fprintf(stderr, "\r%s: %3d%% of %llu MiB", label_.c_str(), static_cast<int>(done_ * 100 / *total_),
                     static_cast<unsigned long long>(*total_ >> 20));
    } else {
        std::fprintf(stderr, "\r%s: %llu MiB", label_.c_str(), static_cast<unsigned long long>(done_ >> 20));
    }
    std::fflush(stderr);
}

}  // namespace zyrdc::tool
