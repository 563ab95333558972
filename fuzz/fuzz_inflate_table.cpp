// fuzz_inflate_table.cpp - zyrsInflateBuildHuffTable over arbitrary length sets. Acceptance must
// agree with a Kraft-sum reference, the record is an exact allocation (nothing may be written
// outside it, nor to the header words the builder does not own), and every symbol of an
// accepted set must walk back to itself through the tables.
//
// Input: byte 0 and the low bit of byte 1 pick nLitLen (0..288), the rest of byte 1 nDistLen
// (0..30); the following bytes are lengths, one a
// byte, taken modulo 17 (16 stands for a length the builder must refuse) or, for a byte with
// the top bit set, repeated for its low bits as a run, so that complete codes come up often.
#include <cstddef>
#include <cstdint>
#include <algorithm>
#include <cstring>
#include <utility>
#include <memory>
#include <vector>

#include "../tests/deflate_support.hpp"
#include "harness.hpp"
#include "zyrdc.h"

namespace {

// The 16-bit word at a byte offset of the decoding record.
uint16_t U16(const InflateHuffTable& t, size_t byteOffset) {
    uint16_t v;
    std::memcpy(&v, reinterpret_cast<const uint8_t*>(&t) + byteOffset, 2);
    return v;
}

void Check(bool ok) {
    if (!ok) __builtin_trap();
}

// 0: refused; 1: accepted. Kraft sum in units of 2^-15: complete, or a single 1-bit code.
bool KraftAccepts(const uint16_t* lens, uint32_t n, bool emptyOk, int* longest) {
    uint32_t sum = 0, used = 0;
    *longest = 0;
    for (uint32_t i = 0; i < n; ++i) {
        if (lens[i] == 0) continue;
        if (lens[i] > 15) return false;
        sum += 1u << (15 - lens[i]);
        ++used;
        *longest = lens[i] > *longest ? lens[i] : *longest;
    }
    if (used == 0) return emptyOk;
    return sum == 1u << 15 || (used == 1 && *longest == 1);
}

// A table walker written from the documented layouts: the symbol and code length that the
// tables give for the next stream bits (next bit in bit 0, at least 15 of them).
std::pair<int, int> Walk(const InflateHuffTable& t, uint32_t bits, bool distance) {
    uint32_t e;
    if (t.header[2] == 1) {
        e = U16(t, 40 + 2 * ((distance ? 1024 : 0) + (bits & 1023)));
        if ((e & 15) == 0) {
            const uint32_t w = (e >> 4) & 7;
            e = U16(t, 40 + 2 * (2048 + 4 * (e >> 7) + ((bits >> 10) & ((1u << w) - 1))));
        }
        if (distance) return {static_cast<int>(e >> 8), static_cast<int>(e & 15)};
    } else if (distance) {
        const size_t start = 40 + (2u << t.header[8]), index = bits & ((1u << t.header[9]) - 1);
        const uint16_t base = U16(t, start + 1024 + 2 * index);
        return {static_cast<int>(std::find(zyrdc::test::kDistBase, zyrdc::test::kDistBase + 30, base) -
                                 zyrdc::test::kDistBase),
                reinterpret_cast<const uint8_t*>(&t)[start + index] & 15};
    } else {
        e = U16(t, 40 + 2 * (bits & ((1u << t.header[8]) - 1)));
    }
    const int n = static_cast<int>(e & 15), kind = static_cast<int>((e >> 4) & 15);
    if (kind == 0) return {static_cast<int>(e >> 8), n};
    if (kind == 15) return {256, n};
    const int length = static_cast<int>(e >> 8) + 3;
    return {
        257 + static_cast<int>(std::find(zyrdc::test::kLengthBase, zyrdc::test::kLengthBase + 29, length) -
                               zyrdc::test::kLengthBase),
        n};
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 2) return 0;
    const uint32_t nLit = (data[0] | (data[1] & 1u) << 8) % 289, nDist = (data[1] >> 1) % 31;
    std::vector<uint16_t> lens;
    for (size_t i = 2; i < size && lens.size() < nLit + nDist; ++i) {
        const uint16_t len = static_cast<uint16_t>((data[i] & 0x7F) % 17);
        lens.insert(lens.end(), data[i] & 0x80 ? 1 + (data[i] & 7) : 1, len);
    }
    lens.resize(nLit + nDist, 0);
    lens.push_back(0);  // never a null pointer

    constexpr uint32_t kSentinel = 0xA5A5A5A5u;
    const auto record = std::make_unique<InflateHuffTable>();
    std::fill(std::begin(record->header), std::end(record->header), kSentinel);
    const ZyrStatus status = zyrsInflateBuildHuffTable(lens.data(), nLit, nDist, record.get());

    int litMax = 0, distMax = 0;
    const bool litOk = KraftAccepts(lens.data(), nLit, false, &litMax);
    const bool distOk = KraftAccepts(lens.data() + nLit, nDist, true, &distMax);
    const bool single = litMax <= 11 && distMax <= 10;
    const bool eob = nLit > 256 && lens[256] != 0;
    Check((status == StatusOk) == (litOk && distOk && (!single || eob)));
    Check(status == StatusOk || status == StatusBadHuffmanCode);
    for (int w : {0, 1, 3, 4, 5, 6, 7}) Check(record->header[w] == kSentinel);
    if (status != StatusOk) return 0;
    Check(record->header[2] == (single ? 2u : 1u));

    for (const bool distance : {false, true}) {
        const std::vector<uint8_t> part(lens.begin() + (distance ? nLit : 0),
                                        lens.begin() + (distance ? nLit + nDist : nLit));
        const auto codes = zyrdc::test::CanonicalCodes(part);
        for (size_t s = 0; s < part.size(); ++s) {
            if (part[s] == 0) continue;
            const auto [symbol, bits] =
                Walk(*record, codes[s].code | (0x5555u << part[s] & 0x7FFF), distance);
            // Literal/length symbols 286 and 287 read as literal 0 by design.
            Check(bits == part[s] &&
                  (symbol == static_cast<int>(s) || (!distance && s >= 286 && symbol == 0)));
        }
    }
    return 0;
}
