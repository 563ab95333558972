// tables.hpp - Deflate constants shared by the matchers, the Huffman coder and the Inflate
// table builder: length and distance codes of RFC 1951 section 3.2.5, bit reversal, and the
// tabulation-hash tables. Everything is generated at compile time from its rule.
#pragma once

#include <array>
#include <cstdint>

namespace zyrdc::deflate {

inline constexpr int kMinMatch = 3;           // shortest length the format can code
inline constexpr int kMaxMatch = 258;         // longest
inline constexpr int kNumLitLen = 286;        // literal/length symbols a code table holds
inline constexpr int kNumDist = 30;           // distance symbols
inline constexpr int kNumLengthCodes = 29;    // symbols 257..285
inline constexpr int kEndOfBlock = 256;
inline constexpr int kMaxCodeBits = 15;

// ---- length codes: symbol 257 + c codes lengths base + 3 .. base + 3 + 2^extra - 1 ----------

struct CodeRange {
    uint16_t base;   // length minus 3, or distance minus 1, of the code's first value
    uint8_t extra;   // extra bits after the code
};

// Codes 0..7 stand for one length each; from 8 on every four codes double their extra bits;
// code 28 is the single length 258, which 27 (five extra bits) could also reach.
constexpr std::array<CodeRange, kNumLengthCodes> MakeLengthCodes() {
    std::array<CodeRange, kNumLengthCodes> t{};
    for (int c = 0; c < kNumLengthCodes - 1; ++c) {
        const int extra = c < 8 ? 0 : c / 4 - 1;
        const int base = c < 8 ? c : (c % 4 + 4) << extra;
        t[c] = {static_cast<uint16_t>(base), static_cast<uint8_t>(extra)};
    }
    t[kNumLengthCodes - 1] = {kMaxMatch - kMinMatch, 0};
    return t;
}
inline constexpr auto kLengthCodes = MakeLengthCodes();
static_assert(kLengthCodes[8].base == 8 && kLengthCodes[8].extra == 1);      // symbol 265: 11..12
static_assert(kLengthCodes[27].base == 224 && kLengthCodes[27].extra == 5);  // symbol 284: 227..
static_assert(kLengthCodes[28].base == 255 && kLengthCodes[28].extra == 0);  // symbol 285: 258

// Distance codes 0..3 stand for one distance each; from 4 on every two codes double.
constexpr std::array<CodeRange, kNumDist> MakeDistanceCodes() {
    std::array<CodeRange, kNumDist> t{};
    for (int d = 0; d < kNumDist; ++d) {
        const int extra = d < 2 ? 0 : d / 2 - 1;
        const int base = d < 2 ? d : (d % 2 + 2) << extra;
        t[d] = {static_cast<uint16_t>(base), static_cast<uint8_t>(extra)};
    }
    return t;
}
inline constexpr auto kDistanceCodes = MakeDistanceCodes();
static_assert(kDistanceCodes[4].base == 4 && kDistanceCodes[4].extra == 1);          // 5..6
static_assert(kDistanceCodes[29].base == 24576 && kDistanceCodes[29].extra == 13);   // 24577..

// Length code by length minus 3 (0..255).
constexpr std::array<uint8_t, 256> MakeLengthCodeOf() {
    std::array<uint8_t, 256> t{};
    for (int c = 0; c < kNumLengthCodes; ++c) {
        for (int v = kLengthCodes[c].base; v < 256 && v < kLengthCodes[c].base + (1 << kLengthCodes[c].extra);
             ++v) {
            t[v] = static_cast<uint8_t>(c);
        }
    }
    return t;
}
inline constexpr auto kLengthCodeOf = MakeLengthCodeOf();
static_assert(kLengthCodeOf[0] == 0 && kLengthCodeOf[8] == 8 && kLengthCodeOf[254] == 27 &&
              kLengthCodeOf[255] == 28);

// Distance code by distance minus 1: entries 0..255 directly, 256..511 by 256 + ((d-1) >> 7).
// Every code from 16 on spans whole multiples of 128, so the coarse half is exact.
constexpr std::array<uint8_t, 512> MakeDistanceCodeOf() {
    std::array<uint8_t, 512> t{};
    for (int d = 0; d < kNumDist; ++d) {
        const int first = kDistanceCodes[d].base, count = 1 << kDistanceCodes[d].extra;
        for (int v = first; v < first + count; ++v) {
            if (v < 256) {
                t[v] = static_cast<uint8_t>(d);
            } else {
                t[256 + (v >> 7)] = static_cast<uint8_t>(d);
            }
        }
    }
    return t;
}
inline constexpr auto kDistanceCodeOf = MakeDistanceCodeOf();
static_assert(kDistanceCodeOf[0] == 0 && kDistanceCodeOf[255] == 15 &&
              kDistanceCodeOf[256 + 2] == 16 && kDistanceCodeOf[511] == 29);

inline uint32_t DistanceCode(uint32_t distMinus1) {
    return kDistanceCodeOf[distMinus1 < 256 ? distMinus1 : 256 + (distMinus1 >> 7)];
}

// ---- bit reversal ----------------------------------------------------------------------

constexpr std::array<uint8_t, 256> MakeReverse8() {
    std::array<uint8_t, 256> t{};
    for (int v = 0; v < 256; ++v) {
        int r = 0;
        for (int b = 0; b < 8; ++b) r |= ((v >> b) & 1) << (7 - b);
        t[v] = static_cast<uint8_t>(r);
    }
    return t;
}
inline constexpr auto kReverse8 = MakeReverse8();
static_assert(kReverse8[1] == 0x80 && kReverse8[0x0F] == 0xF0);

// The low n bits of v (n <= 16) in reverse order.
inline uint32_t ReverseBits(uint32_t v, int n) {
    const uint32_t r16 = (uint32_t{kReverse8[v & 0xFF]} << 8) | kReverse8[(v >> 8) & 0xFF];
    return r16 >> (16 - n);
}

// ---- tabulation hash -------------------------------------------------------------------

// Four tables of 256 well-mixed 15-bit values: the hash of the 4 bytes b0..b3 at a position
// is T0[b0] ^ T1[b1] ^ T2[b2] ^ T3[b3]. Any fixed values serve, as long as every function of
// the matcher family uses the same ones (their chains must agree); they come from SplitMix64
// with a fixed seed so that they need no literal table.
constexpr std::array<std::array<uint16_t, 256>, 4> MakeHashTables() {
    std::array<std::array<uint16_t, 256>, 4> t{};
    uint64_t state = 0x5A17ED0C0FFEE123u;
    for (auto& table : t) {
        for (auto& v : table) {
            uint64_t z = (state += 0x9E3779B97F4A7C15u);
            z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9u;
            z = (z ^ (z >> 27)) * 0x94D049BB133111EBu;
            z ^= z >> 31;
            v = static_cast<uint16_t>(z >> 49);  // the top 15 bits, the best mixed
        }
    }
    return t;
}
inline constexpr auto kHashTables = MakeHashTables();

}  // namespace zyrdc::deflate
