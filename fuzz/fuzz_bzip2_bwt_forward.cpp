// fuzz_bzip2_bwt_forward.cpp - the forward transform on blocks built to be repetitive: the
// input after a two-byte header is a pattern, written out repeatedly (with a few bytes
// changed) up to a length the header picks, so that the bucket sort's budget often runs out and the
// induced sort takes over. Strategy 2, strategy 3, the budgeted strategy when it completes,
// and the default entry point must give the same last column, equal to that of a plain sort
// of the rotations (small blocks) or of the suffix array of the block written twice (where
// libdivsufsort is linked); every index must lead the inverse back to the block. Working
// buffers are exactly the reported size.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <numeric>
#include <vector>

#include "harness.hpp"
#include "zyrdc.h"

#if defined(ZYRDC_HAVE_DIVSUFSORT)
#include <divsufsort.h>
#endif

namespace {

using Bytes = std::vector<uint8_t>;

Bytes Oracle(const Bytes& s) {
    const size_t n = s.size();
    Bytes twice(s);
    twice.insert(twice.end(), s.begin(), s.end());
    std::vector<int32_t> rows;
#if defined(ZYRDC_HAVE_DIVSUFSORT)
    std::vector<int32_t> sa(2 * n);
    FuzzCheck(divsufsort(twice.data(), sa.data(), static_cast<int32_t>(2 * n)) == 0);
    for (int32_t r : sa) {
        if (static_cast<size_t>(r) < n) rows.push_back(r);
    }
#else
    if (n > 3000) return {};
    rows.resize(n);
    std::iota(rows.begin(), rows.end(), 0);
    std::sort(rows.begin(), rows.end(), [&](int32_t a, int32_t b) { return std::memcmp(&twice[a], &twice[b], n) < 0; });
#endif
    Bytes last(n);
    for (size_t j = 0; j < n; ++j) last[j] = twice[static_cast<size_t>(rows[j]) + n - 1];
    return last;
}

void CheckInverse(const Bytes& s, const Bytes& last, int32_t index) {
    const auto n = static_cast<int32_t>(s.size());
    FuzzCheck(index >= 0 && index < n);
    Bytes buffer(4 * s.size() + 1024), out(s.size());
    FuzzCheck(zyrsBWTInv_8u(last.data(), out.data(), n, index, buffer.data()) == StatusOk);
    FuzzCheck(out == s);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 3) return 0;
    // Length 100 to about 8 kB (the bucket sort's path, not the short-block one), or nine times
    // that when bit 2 of the second byte is set: from 32 kB the default strategy first probes the
    // block for repeats to pick its sort, and that probe must see blocks of its own size.
    const size_t n = (100 + (static_cast<size_t>(data[0]) << 5 | static_cast<size_t>(data[1]) >> 3)) *
                     ((data[1] & 4) != 0 ? 9 : 1);
    const uint8_t* pattern = data + 2;
    const size_t period = size - 2;
    Bytes s(n);
    for (size_t i = 0; i < n; ++i) s[i] = pattern[i % period];
    // A few changes break exact periodicity at places the pattern's last bytes pick.
    for (size_t k = 0; k + 1 < std::min<size_t>(period, 8); k += 2) s[pattern[k] * 7919u % n] = pattern[k + 1];

    const Bytes want = Oracle(s);
    Bytes first;
    for (int strategy : {2, 3, 0, -1}) {
        uint32_t bytes = 0;
        if (strategy < 0) {
            FuzzCheck(zyrsBWTFwdGetSize_8u(static_cast<int32_t>(n), reinterpret_cast<int32_t*>(&bytes)) == StatusOk);
        } else {
            FuzzCheck(zyrsBWTFwdGetBufSize_SelectSort_8u(static_cast<uint32_t>(n), &bytes,
                                                         static_cast<uint32_t>(strategy)) == StatusOk);
        }
        Bytes buffer(bytes), last(n);
        int32_t index = -1;
        const ZyrStatus st =
            strategy < 0 ? zyrsBWTFwd_8u(s.data(), last.data(), static_cast<int32_t>(n), &index, buffer.data())
                         : zyrsBWTFwd_SelectSort_8u(s.data(), last.data(), static_cast<uint32_t>(n), &index,
                                                    buffer.data(), strategy);
        if (strategy == 0 && st == StatusBwtSortAbandoned) continue;
        FuzzCheck(st == StatusOk);
        if (first.empty()) first = last;
        FuzzCheck(last == first && (want.empty() || last == want));
        CheckInverse(s, last, index);
    }
    return 0;
}
