// deflate_support.hpp - helpers of the Deflate and Inflate tests, two fuzz harnesses and the zyrdc
// program's Deflate tests: data, codes, a bit writer, and decoding here and by the peer.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <optional>
#include <random>
#include <vector>

#include "zyrdc.h"

#if defined(ZYRDC_HAVE_ZLIB)
#include <zlib.h>
#elif defined(ZYRDC_HAVE_LIBDEFLATE)
#include <libdeflate.h>
#endif

namespace zyrdc::test {

// Text from a small vocabulary, runs of one byte, random bytes and fixed-size records with a
// few changing fields, in segments: long and short matches, overlapping ones, and stretches
// with none. rng() % n only, so that every build draws the same bytes.
inline std::vector<uint8_t> VariedData(size_t n, uint32_t seed) {
    static const char* const kWords[] = {"the ", "deflate ", "window ", "match ", "of ", "and ",
                                         "hash ", "chain ", "length ", "distance ", "\r\n", ", "};
    std::mt19937 rng(seed);
    std::vector<uint8_t> v;
    while (v.size() < n) {
        const uint32_t kind = rng() % 4, len = 64 + rng() % 3000;
        for (size_t start = v.size(); v.size() < start + len;) {
            switch (kind) {
            case 0: {
                const char* w = kWords[rng() % 12];
                v.insert(v.end(), w, w + std::strlen(w));
                break;
            }
            case 1: v.insert(v.end(), 3 + rng() % 400, static_cast<uint8_t>(rng())); break;
            case 2: v.push_back(static_cast<uint8_t>(rng())); break;
            default: {
                const uint8_t rec[12] = {1, 0, 0, 0, static_cast<uint8_t>(rng() % 4), 0x7F, 0, 0,
                                         static_cast<uint8_t>(rng()), 0xFF, 0xFF, 0};
                v.insert(v.end(), rec, rec + 12);
            }
            }
        }
    }
    v.resize(n);
    return v;
}

// RFC 1951's tables as published: the first length of each length symbol 257..285 and the
// first distance of each distance symbol.
inline constexpr uint16_t kLengthBase[29] = {3,  4,  5,  6,  7,  8,  9,  10, 11,  13,  15,  17,  19,  23, 27,
                                             31, 35, 43, 51, 59, 67, 83, 99, 115, 131, 163, 195, 227, 258};
inline constexpr uint16_t kDistBase[30] = {1,    2,    3,    4,    5,    7,    9,    13,    17,    25,
                                           33,   49,   65,   97,   129,  193,  257,  385,   513,   769,
                                           1025, 1537, 2049, 3073, 4097, 6145, 8193, 12289, 16385, 24577};
inline int LengthCode(uint32_t length) {  // 0..28, for symbol 257 + code
    int c = 28;
    while (kLengthBase[c] > length) --c;
    return c;
}
inline int DistanceCode(uint32_t distance) {
    int d = 29;
    while (kDistBase[d] > distance) --d;
    return d;
}

// Appends the bytes that matcher entries stand for to `out` (which holds the history).
// Returns false at a distance reaching before the start of out.
inline bool Expand(const uint8_t* lit, const uint16_t* dist, size_t n, std::vector<uint8_t>& out) {
    for (size_t i = 0; i < n; ++i) {
        if (dist[i] == 0) {
            out.push_back(lit[i]);
            continue;
        }
        if (dist[i] > out.size()) return false;
        for (int k = 0; k < lit[i] + 3; ++k) out.push_back(out[out.size() - dist[i]]);
    }
    return true;
}

// Canonical codes in transmission order (bit-reversed), computed here bit by bit.
inline std::vector<HuffCodeEntry> CanonicalCodes(const std::vector<uint8_t>& lens) {
    uint32_t count[16] = {}, next[16] = {};
    for (uint8_t l : lens) ++count[l];
    count[0] = 0;
    for (int b = 1, code = 0; b < 16; ++b)
        next[b] = static_cast<uint32_t>(code = (code + static_cast<int>(count[b - 1])) << 1);
    std::vector<HuffCodeEntry> codes(lens.size());
    for (size_t s = 0; s < lens.size(); ++s) {
        uint32_t c = lens[s] ? next[lens[s]]++ : 0, r = 0;
        for (int i = 0; i < lens[s]; ++i, c >>= 1) r = (r << 1) | (c & 1);
        codes[s] = {static_cast<uint16_t>(r), lens[s]};
    }
    return codes;
}

// The fixed literal/length code of 288 symbols (the last two never valid in a stream).
inline std::vector<HuffCodeEntry> FixedLitCodes() {
    std::vector<uint8_t> lens(288);
    for (int s = 0; s < 288; ++s) lens[s] = static_cast<uint8_t>(s < 144 ? 8 : s < 256 ? 9 : s < 280 ? 7 : 8);
    return CanonicalCodes(lens);
}

inline bool HavePeerInflate() {
#if defined(ZYRDC_HAVE_ZLIB) || defined(ZYRDC_HAVE_LIBDEFLATE)
    return true;
#else
    return false;
#endif
}

// Decodes a raw Deflate stream with the peer into at most `size` bytes; nothing on any error
// (or without a peer). zlib where this build has it: it refuses what it must refuse, where
// libdeflate lets a few invalid streams pass (the i686 zlib package is sometimes missing).
inline std::optional<std::vector<uint8_t>> PeerInflate(const std::vector<uint8_t>& stream, size_t size) {
    std::vector<uint8_t> out(size + 1);
#if defined(ZYRDC_HAVE_ZLIB)
    z_stream z{};
    if (inflateInit2(&z, -15) != Z_OK) return {};
    z.next_in = const_cast<Bytef*>(stream.data());
    z.avail_in = static_cast<uInt>(stream.size());
    z.next_out = out.data();
    z.avail_out = static_cast<uInt>(out.size());
    const int rc = inflate(&z, Z_FINISH);
    out.resize(z.total_out);
    inflateEnd(&z);
    if (rc != Z_STREAM_END) return {};
#elif defined(ZYRDC_HAVE_LIBDEFLATE)
    libdeflate_decompressor* d = libdeflate_alloc_decompressor();
    size_t got = 0;
    const auto rc =
        libdeflate_deflate_decompress(d, stream.data(), stream.size(), out.data(), out.size(), &got);
    libdeflate_free_decompressor(d);
    if (rc != LIBDEFLATE_SUCCESS) return {};
    out.resize(got);
#else
    (void)stream;
    return {};
#endif
    return out;
}

struct Inflated {
    ZyrStatus status;
    std::vector<uint8_t> out;
    size_t consumed;    // source bytes
    uint32_t heldBits;  // held bit count at the end
};

// Decodes by zyrsInflate_8u as a streaming caller does, sliding 32 KiB of history to the front
// of its buffer: the source in pieces of 1 to maxPiece bytes and the room in 1 to maxRoom bytes
// a call, at random; kWhole gives all of either at once (both: a single call).
constexpr size_t kWhole = size_t{1} << 20;
inline Inflated Decode(const std::vector<uint8_t>& stream, size_t maxPiece = kWhole, size_t maxRoom = kWhole,
                       uint32_t seed = 1) {
    constexpr int32_t kHistory = 32768;
    std::mt19937 rng(seed);
    auto upTo = [&](size_t max) { return max == kWhole ? kWhole : 1 + rng() % max; };
    std::vector<uint8_t> buf(kHistory + maxRoom + 1), out;
    InflateHuffTable table;
    int32_t dstIdx = 0, mode = 0;
    uint32_t code = 0, bits = 0;
    for (size_t off = 0, fed = std::min(stream.size(), upTo(maxPiece));;) {
        static const uint8_t kEmpty = 0;
        const uint8_t* src = fed > off ? stream.data() + off : &kEmpty;
        int32_t srcLen = static_cast<int32_t>(fed - off);
        const int32_t start = dstIdx, room = static_cast<int32_t>(upTo(maxRoom));
        const ZyrStatus s =
            zyrsInflate_8u(&src, &srcLen, &code, &bits, buf.data(), dstIdx + room, &dstIdx, 0, &mode, &table);
        out.insert(out.end(), buf.begin() + start, buf.begin() + dstIdx);
        if (s < 0) return {s, out, off, bits};
        off = fed - static_cast<size_t>(srcLen);
        if (s == StatusOk || (s == StatusSrcExhausted && fed == stream.size())) return {s, out, off, bits};
        if (s == StatusSrcExhausted) fed = std::min(stream.size(), fed + upTo(maxPiece));
        if (dstIdx > kHistory) {  // keep 32 KiB of history at the front
            std::copy(buf.begin() + dstIdx - kHistory, buf.begin() + dstIdx, buf.begin());
            dstIdx = kHistory;
        }
    }
}

// Bits least significant first, as Deflate sends them.
struct BitWriter {
    std::vector<uint8_t> bytes;
    uint32_t n = 0;
    void Put(uint32_t v, uint32_t len) {
        for (uint32_t i = 0; i < len; ++i, ++n) {
            if (n % 8 == 0) bytes.push_back(0);
            bytes.back() |= static_cast<uint8_t>(((v >> i) & 1) << (n % 8));
        }
    }
    void Code(const HuffCodeEntry& e) { Put(e.code, e.len); }
};

}  // namespace zyrdc::test
