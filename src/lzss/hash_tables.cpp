// hash_tables.cpp - the three tables of the LZSS tabulation hash. The first four entries of
// each are the format's own; the rest are drawn from SplitMix64 with a fixed seed, so every
// build holds the same tables and codes the same bytes.
#include <cstdint>

#include "lzss/lzss.hpp"

namespace zyrdc::lzss {

namespace {

constexpr uint16_t kFirstEntries[3][4] = {
    {18845, 15810, 11527, 28763},
    {23403, 25964, 7330, 5756},
    {23616, 7640, 29028, 30668},
};

constexpr uint64_t SplitMix64(uint64_t& state) {
    uint64_t z = (state += 0x9E3779B97F4A7C15u);
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9u;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBu;
    return z ^ (z >> 31);
}

constexpr HashTables MakeHashTables() {
    HashTables tables{};
    uint64_t state = 0x4C5A5353u;  // "LZSS"
    for (int t = 0; t < 3; ++t) {
        for (int i = 0; i < 256; ++i) {
            const uint64_t drawn = SplitMix64(state) >> 49;  // 15 bits
            tables[static_cast<size_t>(256 * t + i)] =
                static_cast<uint16_t>(i < 4 ? kFirstEntries[t][i] : drawn);
        }
    }
    return tables;
}

}  // namespace

// Declared extern in lzss.hpp, so this constant has external linkage.
constexpr HashTables kHashTables = MakeHashTables();
static_assert(kHashTables[0] == 18845 && kHashTables[3] == 28763);
static_assert(kHashTables[256] == 23403 && kHashTables[259] == 5756);
static_assert(kHashTables[512] == 23616 && kHashTables[515] == 30668);

}  // namespace zyrdc::lzss
