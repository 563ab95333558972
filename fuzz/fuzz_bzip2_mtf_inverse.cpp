// fuzz_bzip2_mtf_inverse.cpp - the inverse move-to-front of any indexes from any table state
// (the first 256 bytes, made a permutation), against its scalar twin, split at a point the
// input picks; forward again must give back the indexes.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <numeric>
#include <vector>

#include "bzip2/bzip2.hpp"
#include "harness.hpp"
#include "zyrdc.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 2) return 0;
    // A permutation: the identity, reordered by a stable sort on the input's first bytes.
    uint8_t table[256];
    std::iota(table, table + 256, 0);
    const size_t keyed = std::min<size_t>(size - 1, 256);
    std::stable_sort(table, table + 256, [&](uint8_t a, uint8_t b) {
        const uint8_t ka = a < keyed ? data[1 + a] : 0, kb = b < keyed ? data[1 + b] : 0;
        return ka < kb;
    });
    const uint8_t* src = data + 1;
    const auto n = static_cast<int32_t>(size - 1);
    const int32_t cut = static_cast<int32_t>(data[0] * 131u % static_cast<uint32_t>(n));
    uint8_t t_api[256], t_scalar[256], t_fwd[256];
    std::memcpy(t_api, table, 256);
    std::memcpy(t_scalar, table, 256);
    std::memcpy(t_fwd, table, 256);
    std::vector<uint8_t> out(static_cast<size_t>(n)), want(static_cast<size_t>(n)), back(static_cast<size_t>(n));
    if (cut > 0) FuzzCheck(zyrsMTFInv_8u(src, out.data(), cut, t_api) == StatusOk);
    FuzzCheck(zyrsMTFInv_8u(src + cut, out.data() + cut, n - cut, t_api) == StatusOk);
    zyrdc::bzip2::MtfInverseScalar(src, want.data(), n, t_scalar);
    FuzzCheck(out == want && std::memcmp(t_api, t_scalar, 256) == 0);
    FuzzCheck(zyrsMTFFwd_8u(out.data(), back.data(), n, t_fwd) == StatusOk);
    FuzzCheck(std::equal(back.begin(), back.end(), src) && std::memcmp(t_fwd, t_api, 256) == 0);
    return 0;
}
