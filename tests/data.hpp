// data.hpp - the test data of every family: kinds of input that reach different paths of a
// compressor or decoder. rng() % n only, so that both builds draw the same bytes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

namespace zyrdc::test {

enum class DataKind {
    Random,     // incompressible: literal paths, worst-case sizes
    Zeros,      // one long run: the longest matches and length extensions
    Text,       // words from a small vocabulary: short and medium matches
    Runs,       // runs of one byte of random lengths
    Periodic,   // runs of a short pattern: overlapping matches of offset 1..15
    Sparse,     // mostly zeros with random bytes: matches broken every few bytes
    Records,    // 12-byte records with a few changing fields, as in tables and logs
    FarRepeat,  // the same 2000 bytes at distances around 64 KiB: the window's edge
    Mixed,      // pieces of all the kinds above
};
inline constexpr DataKind kDataKinds[] = {DataKind::Random,  DataKind::Zeros,    DataKind::Text,
                                          DataKind::Runs,    DataKind::Periodic, DataKind::Sparse,
                                          DataKind::Records, DataKind::FarRepeat, DataKind::Mixed};

inline const char* DataKindName(DataKind kind) {
    static const char* const kNames[] = {"random", "zeros",   "text",      "runs", "periodic",
                                         "sparse", "records", "far_repeat", "mixed"};
    return kNames[static_cast<int>(kind)];
}

inline std::vector<uint8_t> MakeData(DataKind kind, size_t n, uint32_t seed) {
    static const char* const kWords[] = {"the ", "block ", "match ", "of ", "literal ", "and ",
                                         "offset ", "stream\n", "a ", "decoder ", "\r\n", ", "};
    std::mt19937 rng(seed);
    std::vector<uint8_t> v;
    v.reserve(n + 65536);
    while (v.size() < n) {
        switch (kind) {
            case DataKind::Random: v.push_back(static_cast<uint8_t>(rng())); break;
            case DataKind::Zeros: v.resize(n, 0); break;
            case DataKind::Text:
                for (const char* w = kWords[rng() % 12]; *w; ++w) v.push_back(static_cast<uint8_t>(*w));
                break;
            case DataKind::Runs: v.insert(v.end(), 1 + rng() % 400, static_cast<uint8_t>(rng())); break;
            case DataKind::Periodic: {
                const size_t period = 1 + rng() % 15, len = rng() % 300;
                for (size_t i = 0; i < len; ++i) v.push_back(static_cast<uint8_t>('a' + i % period));
                break;
            }
            case DataKind::Sparse: v.push_back(rng() % 16 == 0 ? static_cast<uint8_t>(rng()) : 0); break;
            case DataKind::Records: {
                const uint8_t rec[12] = {1, 0, 0, 0, static_cast<uint8_t>(rng() % 4), 0x7F, 0, 0,
                                         static_cast<uint8_t>(rng()), 0xFF, 0xFF, 0};
                v.insert(v.end(), rec, rec + 12);
                break;
            }
            case DataKind::FarRepeat: {
                std::vector<uint8_t> chunk(2000);
                std::mt19937 chunk_rng(seed);
                for (auto& b : chunk) b = static_cast<uint8_t>(chunk_rng());
                v.insert(v.end(), chunk.begin(), chunk.end());
                const size_t gap = 65535 - 2000 + rng() % 4;
                for (size_t i = 0; i < gap; ++i) v.push_back(static_cast<uint8_t>(rng()));
                break;
            }
            case DataKind::Mixed: {
                const auto part = MakeData(static_cast<DataKind>(rng() % 7), 1 + rng() % 3000, rng());
                v.insert(v.end(), part.begin(), part.end());
                break;
            }
        }
    }
    v.resize(n);
    return v;
}

}  // namespace zyrdc::test
