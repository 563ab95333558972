// harness.hpp - the entry point every fuzz harness defines and replay_main.cpp calls.
#pragma once

#include <cstddef>
#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

// A failed expectation: stop at once, so that libFuzzer (or the replay) reports the input.
inline void FuzzCheck(bool ok) {
    if (!ok) __builtin_trap();
}
