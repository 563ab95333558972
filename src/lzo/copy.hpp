// copy.hpp - the literal and match copies of the LZO1X decoders, in three flavours that
// store the same bytes: wide (whole 16-byte units, overshooting into room the caller has
// proven), exact (wide units that never store past the copy) and bytewise (the reference),
// all from the shared copy engine.
#pragma once

#include <cstddef>
#include <cstdint>

#include "core/bits.hpp"
#include "core/match_copy.hpp"
#include "lzo/lzo.hpp"

namespace zyrdc::lzo::detail {

// ---- the flavours behind one interface ---------------------------------------------------

// Copies anywhere in the stream; the wide flavour overshoots only where inRoom / outRoom
// (bytes addressable from the source and the destination onwards) allow it.
template <Copies kCopies>
struct Copier;

template <>
struct Copier<Copies::Wide> {
    static void Literals(uint8_t* d, const uint8_t* s, size_t n, size_t inRoom, size_t outRoom) {
        CopyLiterals(d, s, n, inRoom, outRoom);
    }
    static void Match(uint8_t* op, size_t dist, size_t n, size_t outRoom) { MatchCopy(op, dist, n, outRoom); }
};

template <>
struct Copier<Copies::Exact> {
    static void Literals(uint8_t* d, const uint8_t* s, size_t n, size_t, size_t) { CopyExact(d, s, n); }
    static void Match(uint8_t* op, size_t dist, size_t n, size_t) { MatchCopyExact(op, dist, n); }
};

template <>
struct Copier<Copies::Bytewise> {
    static void Literals(uint8_t* d, const uint8_t* s, size_t n, size_t, size_t) { CopyBytewise(d, s, n); }
    static void Match(uint8_t* op, size_t dist, size_t n, size_t) { MatchCopyBytewise(op, dist, n); }
};

// Copies of the decoder's fast region, where the source holds at least kFastInputMargin more
// bytes and (for the wide flavour) the destination kFastOutputMargin more: the short forms
// need no room tests at all. Matches here are at most 33 bytes, literal runs at most 18.
inline constexpr size_t kFastInputMargin = 64;
inline constexpr size_t kFastOutputMargin = 128;
inline constexpr size_t kFastMaxMatch = 33;
inline constexpr size_t kFastMaxRun = 18;
// A match and a literal run, each with its wide overshoot, then a 4-byte copy: the most a
// stretch between two region tests writes. Its reads (2 distance bytes, a 32-byte literal
// read, 3 instruction bytes) stay as far inside the input margin.
static_assert(kFastMaxMatch + kWideCopySlack + kFastMaxRun + kWideCopySlack + 4 <= kFastOutputMargin);
static_assert(2 + 1 + 2 * 16 + 2 <= kFastInputMargin);

template <Copies kCopies>
struct FastCopier;

template <>
struct FastCopier<Copies::Wide> {
    static void Match(uint8_t* op, size_t dist, size_t n) { MatchCopyWide(op, dist, n); }
    static void Trailing(uint8_t* op, const uint8_t* ip, size_t) { Copy4(op, ip); }
    static void Run(uint8_t* op, const uint8_t* ip, size_t n) {
        Copy16(op, ip);
        if (n > 16) {
            Copy16(op + 16, ip + 16);
        }
    }
    static void Far3(uint8_t* op, size_t dist) { Copy4(op, op - dist); }
};

// Exact stores only, for a destination whose end is unknown; reads may run ahead inside the
// input margin.
template <>
struct FastCopier<Copies::Exact> {
    static void Match(uint8_t* op, size_t dist, size_t n) { MatchCopyExact(op, dist, n); }
    // 1..3 bytes: the first, the middle and the last, from one load, with no loop and no
    // branch on k. (Wider stores reaching back over op[-1] would be cheaper to issue, but a
    // later match load spanning them and the match before could not be served from the
    // store buffer.)
    static void Trailing(uint8_t* op, const uint8_t* ip, size_t k) {
        const uint32_t v = load_u32le(ip);
        op[0] = static_cast<uint8_t>(v);
        op[k >> 1] = static_cast<uint8_t>(v >> (8 * (k >> 1)));
        op[k - 1] = static_cast<uint8_t>(v >> (8 * (k - 1)));
    }
    static void Run(uint8_t* op, const uint8_t* ip, size_t n) { CopyExact(op, ip, n); }
    static void Far3(uint8_t* op, size_t dist) {
        const uint32_t v = load_u32le(op - dist);
        store_u16le(op, static_cast<uint16_t>(v));
        op[2] = static_cast<uint8_t>(v >> 16);
    }
};

}  // namespace zyrdc::lzo::detail
