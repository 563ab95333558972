// runner.hpp - `zyrdc bench`: checks, then times, every primitive of the library over the
// given files or the built-in sample, and prints one table.
#pragma once

#include <string>
#include <vector>

namespace zyrdc::tool {

// Runs the rows named in `primitives` (all when empty) over `files` (the built-in sample when
// empty), each for at least `min_seconds`, printing the table on stdout. Throws UsageError for
// an unknown primitive and Failure when a file cannot be read or a check fails.
void RunBenchmarks(const std::vector<std::string>& primitives, const std::vector<std::string>& files,
                   double min_seconds);

}  // namespace zyrdc::tool
