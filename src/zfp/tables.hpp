// tables.hpp - the sequency order of a 4x4x4 block and its inverse.
//
// The coder sends coefficients from low to high sequency: position j of the coded order takes
// the coefficient at index kSequency[j] (index x + 4y + 16z). Indices come in order of
// increasing x + y + z, so the coarse coefficients, which carry most of a smooth block's
// energy, are the first to turn significant. Ties are broken in the order that streams of
// the published format use; that order follows no formula, so the table is literal, and the
// tests check that it is a permutation sorted by x + y + z. The inverse is computed from it.
#pragma once

#include <array>
#include <cstdint>

namespace zyrdc::zfp {

using Permutation = std::array<uint8_t, 64>;

inline constexpr Permutation kSequency = {
    0,  1,  4,  16, 20, 17, 5,  2,  8,  32, 21, 6,  18, 24, 9,  33,
    36, 3,  12, 48, 22, 25, 37, 40, 34, 10, 7,  19, 28, 13, 49, 52,
    41, 38, 26, 23, 29, 53, 11, 35, 44, 14, 50, 56, 42, 27, 39, 45,
    30, 54, 57, 60, 51, 15, 43, 46, 58, 61, 55, 31, 62, 59, 47, 63};

constexpr Permutation Inverse(const Permutation& p) {
    Permutation q{};
    for (unsigned j = 0; j < p.size(); ++j) {
        q[p[j]] = static_cast<uint8_t>(j);
    }
    return q;
}

// Coefficient i is coded at position kInverseSequency[i].
inline constexpr Permutation kInverseSequency = Inverse(kSequency);

static_assert(kInverseSequency[0] == 0 && kInverseSequency[2] == 7 &&
              kInverseSequency[3] == 17 && kInverseSequency[16] == 3 &&
              kInverseSequency[42] == 44 && kInverseSequency[63] == 63);

}  // namespace zyrdc::zfp
