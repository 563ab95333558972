// sample.hpp - the input of `zyrdc bench` when no file is given, and the generator behind it.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace zyrdc::tool {

// SplitMix64: the same sequence on every compiler and word size, unlike the standard
// library's distributions, so the built-in sample is identical in every build.
class Rng {
public:
    explicit Rng(std::uint64_t seed) : state_(seed) {}
    std::uint64_t Next() {
        std::uint64_t z = (state_ += 0x9E3779B97F4A7C15u);
        z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9u;
        z = (z ^ (z >> 27)) * 0x94D049BB133111EBu;
        return z ^ (z >> 31);
    }
    // Uniform enough in [0, n) for test data; n must be positive.
    std::uint32_t Below(std::uint32_t n) {
        return static_cast<std::uint32_t>((Next() >> 32) * n >> 32);
    }

private:
    std::uint64_t state_;
};

// About 1 MiB of English-like text, byte runs and random bytes, always the same bytes.
struct Sample {
    std::vector<std::uint8_t> bytes;
    std::string description;  // what the bytes are made of, for the report header
};
Sample MakeSample();

}  // namespace zyrdc::tool
