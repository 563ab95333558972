// huff_limit.hpp - optimal prefix-code lengths under a length limit (package-merge), shared
// by the Deflate code builders and the bzip2 Huffman stage.
#pragma once

#include <cstdint>

namespace zyrdc {

inline constexpr uint32_t kLimitedMaxSymbols = 288;  // the largest alphabet (Deflate's 288)
inline constexpr uint32_t kLimitedMaxBits = 24;      // the longest limit

// Lengths minimising the sum of weight x length with no length above `limit`, for the
// symbols of non-zero weight; symbols of weight 0 get length 0. Ties are broken one fixed
// way (symbols ordered by weight, then number; a leaf before a package of equal weight), so
// the lengths are the same on every build. Requires n <= kLimitedMaxSymbols, limit <=
// kLimitedMaxBits, at least two weighted symbols and 2^limit at least their number.
void LimitedCodeLengths(const uint32_t* weights, uint32_t n, uint32_t limit, uint8_t* lengths);

}  // namespace zyrdc
