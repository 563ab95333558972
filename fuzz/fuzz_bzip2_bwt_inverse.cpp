// fuzz_bzip2_bwt_inverse.cpp - the inverse Burrows-Wheeler transform of any block with any
// index below its length, in a working buffer of exactly the reported size.
#include <cstddef>
#include <cstdint>
#include <vector>

#include "harness.hpp"
#include "zyrdc.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 3) return 0;
    const auto n = static_cast<int32_t>(size - 2);
    const int32_t index = (data[0] << 8 | data[1]) % n;
    int32_t bytes = 0;
    FuzzCheck(zyrsBWTInvGetSize_8u(n, &bytes) == StatusOk);
    std::vector<uint8_t> buffer(static_cast<size_t>(bytes));
    std::vector<uint8_t> out(static_cast<size_t>(n));
    FuzzCheck(zyrsBWTInv_8u(data + 2, out.data(), n, index, buffer.data()) == StatusOk);
    FuzzCheck(zyrsBWTInv_8u(data + 2, out.data(), n, n, buffer.data()) == StatusBadSize);
    return 0;
}
