// progress.hpp - how far a long job has got, on one rewritten line of standard error: only
// when that is a terminal and the input is large.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace zyrdc::tool {

// Inputs up to this size finish too soon to need a display.
constexpr std::uint64_t kProgressFrom = std::uint64_t{64} << 20;

class Progress {
public:
    // `label` starts the line ("zyrdc lz4"); `total` is the input's size when known.
    Progress(std::string label, std::optional<std::uint64_t> total);
    ~Progress();
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;
    // `n` more bytes of input were consumed.
    void Add(std::size_t n);

private:
    std::string label_;
    std::optional<std::uint64_t> total_;
    std::uint64_t done_ = 0;
    bool on_;
    bool shown_ = false;
};

}  // namespace zyrdc::tool
