// fuzz_lz4_dict.cpp - the LZ4 block decoder's separate-dictionary core on arbitrary blocks; the checks
// are in lz4_decode.hpp.
#include "harness.hpp"
#include "lz4_decode.hpp"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    return lz4_fuzz::DecodeOneCore(zyrdc::lz4::Core::Separate, data, size);
}
