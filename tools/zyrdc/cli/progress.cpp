// progress.cpp - "zyrdc gzip: big.bin: 45% 123 of 270 MiB, 210 MB/s", rewritten in place at
// most a few times a second.
#include "cli/progress.hpp"

#include <unistd.h>

#include <cstdio>

namespace zyrdc::tool {

Progress::Progress(std::string label, std::optional<std::uint64_t> total, bool enabled)
    : label_(std::move(label)), total_(total), on_(enabled && isatty(STDERR_FILENO) != 0),
      start_(Clock::now()), last_(start_) {}

Progress::~Progress() {
    if (shown_ != 0) std::fprintf(stderr, "\r%*s\r", static_cast<int>(shown_), "");
}

void Progress::Add(std::size_t n) {
    done_ += n;
    if (!on_ || (total_ ? *total_ : done_) <= kProgressFrom) return;
    const Clock::time_point now = Clock::now();
    if (shown_ != 0 && now - last_ < std::chrono::milliseconds(250)) return;
    last_ = now;
    const double seconds = std::chrono::duration<double>(now - start_).count();
    const double speed = seconds > 0 ? static_cast<double>(done_) / seconds / 1e6 : 0.0;
    char line[160];
    int length;
    if (total_ && *total_ != 0) {
        length = std::snprintf(line, sizeof line, "%3d%% %llu of %llu MiB, %.0f MB/s",
                               static_cast<int>(done_ * 100 / *total_), static_cast<unsigned long long>(done_ >> 20),
                               static_cast<unsigned long long>(*total_ >> 20), speed);
    } else {
        length = std::snprintf(line, sizeof line, "%llu MiB, %.0f MB/s", static_cast<unsigned long long>(done_ >> 20),
                               speed);
    }
    const std::string text = label_ + ": " + std::string(line, static_cast<std::size_t>(length));
    // Pad over a longer previous line.
    std::fprintf(stderr, "\r%s%*s", text.c_str(), shown_ > text.size() ? static_cast<int>(shown_ - text.size()) : 0, "");
    std::fflush(stderr);
    if (text.size() > shown_) shown_ = text.size();
}

}  // namespace zyrdc::tool
