// progress.hpp - how far a long job has got, on one rewritten line of standard error: the
// bytes done, the percentage when the size is known, and the speed. Shown only when standard
// error is a terminal and the input is large; erased when the job ends.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

namespace zyrdc::tool {

// Inputs up to this size finish too soon to need a display.
constexpr std::uint64_t kProgressFrom = std::uint64_t{64} << 20;

class Progress {
public:
    // `label` starts the line ("zyrdc lz4: big.bin"); `total` is the input's size when
    // known; `enabled` false (-q) shows nothing.
    Progress(std::string label, std::optional<std::uint64_t> total, bool enabled = true);
    ~Progress();
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;
    // `n` more bytes of input were consumed.
    void Add(std::size_t n);

private:
    using Clock = std::chrono::steady_clock;
    std::string label_;
    std::optional<std::uint64_t> total_;
    std::uint64_t done_ = 0;
    bool on_;
    std::size_t shown_ = 0;  // characters on the line
    Clock::time_point start_, last_;
};

}  // namespace zyrdc::tool
