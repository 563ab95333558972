// fuzz_lz4_prefix.cpp - the LZ4 block decoder's prefix core on arbitrary blocks; the checks
// are in lz4_decode.hpp.
#include "harness.hpp"
#include "lz4_decode.hpp"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    return lz4_fuzz::DecodeOneCore(zyrdc::lz4::Core::Prefix, data, size);
}
