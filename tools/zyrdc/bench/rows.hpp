// rows.hpp - what `zyrdc bench` measures: one row per primitive. Adding a primitive
// takes one more entry in BenchRows() (rows.cpp); the runner, the timing and the
// report need no change.
#pragma once

#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <vector>

namespace zyrdc::tool {

struct BenchRow {
    std::string name;
    // One complete pass over the input, as timed. Returns the size of the output stream for
    // a primitive that produces one (the report shows input size / output size as the
    // ratio), 0 for one that does not, such as a checksum. Throws Failure if the library
    // refuses the call.
    std::function<std::size_t(std::span<const std::uint8_t> input)> run;
    // Optional check, run once before the timing, that the primitive computed the right
    // thing over this input by some independent route. Returns an empty string when it
    // holds, otherwise one line saying what differed.
    std::function<std::string(std::span<const std::uint8_t> input)> verify;
    // Optional: the data the row runs and is checked on, made from the input, for a primitive
    // whose input is not a byte stream (ZFP codes float volumes). MB/s and the ratio then
    // count these bytes.
    std::function<std::vector<std::uint8_t>(std::span<const std::uint8_t> input)> input = nullptr;
};

std::vector<BenchRow> BenchRows();

}  // namespace zyrdc::tool
