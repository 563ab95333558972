// replay_main.cpp - runs a fuzz harness over every file of the corpus folders or files
// given on the command line, without libFuzzer; a harness failure aborts.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

#include "harness.hpp"

namespace {

int RunOne(const std::filesystem::path& file) {
    std::ifstream in(file, std::ios::binary);
    std::vector<char> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    // An exact-size heap copy, so that sanitizers see any read past the input.
    std::vector<uint8_t> exact(bytes.begin(), bytes.end());
    LLVMFuzzerTestOneInput(exact.empty() ? nullptr : exact.data(), exact.size());
    return 1;
}

}  // namespace

int main(int argc, char** argv) {
    int runs = 0;
    for (int i = 1; i < argc; ++i) {
        const std::filesystem::path arg(argv[i]);
        if (std::filesystem::is_directory(arg)) {
            for (const auto& entry : std::filesystem::directory_iterator(arg)) {
                if (entry.is_regular_file()) runs += RunOne(entry.path());
            }
        } else {
            runs += RunOne(arg);
        }
    }
    LLVMFuzzerTestOneInput(nullptr, 0);  // the empty input, always
    std::printf("replayed %d inputs\n", runs + 1);
    return 0;
}
