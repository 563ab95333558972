// sequences.hpp - what the high-compression and dictionary encoders share: the format's end
// rules and a sequence writer that keeps 9 bytes of capacity free after every sequence, so
// that a block can always be closed with a token and enough literals to end validly.
#pragma once

#include <emmintrin.h>

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "core/bits.hpp"

namespace zyrdc::lz4 {

inline constexpr uint32_t kMinMatchLength = 4;
// A match starts at or before n - 12 and ends at or before n - 5 for a block of n bytes;
// blocks shorter than 13 bytes are one literal run.
inline constexpr uint32_t kMatchStartTail = 12;
inline constexpr uint32_t kMatchEndTail = 5;
inline constexpr uint32_t kShortestMatchedBlock = 13;
inline constexpr uint32_t kFarthestOffset = 65535;
inline constexpr int32_t kLargestSource = 0x7E000000;
// A closing token and up to 8 literals: after any match, enough to end the block validly.
inline constexpr size_t kClosingReserve = 9;

// Continuation bytes of a literal count or match code whose nibble is 15.
constexpr uint32_t RunLength(uint32_t count) { return count < 15 ? 0 : (count - 15) / 255 + 1; }

// Bytes of one sequence of `lit` literals and a match of `len` bytes.
constexpr size_t SequenceBytes(uint32_t lit, uint32_t len) {
    return size_t{3} + RunLength(lit) + lit + RunLength(len - kMinMatchLength);
}

class SequenceWriter {
public:
    // `srcEnd` is the end of the readable source: literal copies may read up to 15 bytes
    // past a run while they stay before it.
    SequenceWriter(uint8_t* dst, size_t capacity, const uint8_t* srcEnd)
        : d_(dst), cap_(capacity), srcEnd_(srcEnd) {}

    size_t pos() const { return pos_; }
    // The sequence leaves the closing reserve free.
    bool Fits(uint32_t lit, uint32_t len) const {
        return pos_ + SequenceBytes(lit, len) + kClosingReserve <= cap_;
    }

    void Sequence(const uint8_t* lits, uint32_t lit, uint32_t offset, uint32_t len) {
        const uint32_t code = len - kMinMatchLength;
        d_[pos_++] = static_cast<uint8_t>((lit < 15 ? lit : 15) << 4 | (code < 15 ? code : 15));
        Run(lit);
        Literals(lits, lit);
        store_u16le(d_ + pos_, static_cast<uint16_t>(offset));
        pos_ += 2;
        Run(code);
    }

    // The literal-only sequence that ends the block: all `pending` literals, or when
    // `bounded`, as many as fit with their token and run. Returns the literals written.
    uint32_t Close(const uint8_t* lits, uint32_t pending, bool bounded) {
        uint32_t n = pending;
        if (bounded) {
            const size_t room = cap_ - pos_;
            if (1 + RunLength(n) + size_t{n} > room) {
                n = static_cast<uint32_t>(room - 1);
                while (1 + RunLength(n) + size_t{n} > room) --n;
            }
        }
        d_[pos_++] = static_cast<uint8_t>((n < 15 ? n : 15) << 4);
        Run(n);
        if (n != 0) std::memcpy(d_ + pos_, lits, n);
        pos_ += n;
        return n;
    }

private:
    void Run(uint32_t count) {
        if (count < 15) return;
        uint32_t rest = count - 15;
        if (rest >= 255) {
            std::memset(d_ + pos_, 255, rest / 255);
            pos_ += rest / 255;
            rest %= 255;
        }
        d_[pos_++] = static_cast<uint8_t>(rest);
    }
    void Literals(const uint8_t* s, uint32_t n) {
        if (pos_ + n + 16 <= cap_ && s + n + 16 <= srcEnd_) {
            for (uint32_t i = 0; i < n; i += 16) {
                _mm_storeu_si128(reinterpret_cast<__m128i*>(d_ + pos_ + i),
                                 _mm_loadu_si128(reinterpret_cast<const __m128i*>(s + i)));
            }
        } else if (n != 0) {
            std::memcpy(d_ + pos_, s, n);
        }
        pos_ += n;
    }

    uint8_t* d_;
    size_t cap_;
    const uint8_t* srcEnd_;
    size_t pos_ = 0;
};

// Bytes equal at a and b, at most `limit`, compared 16 at a time while the limit allows.
inline uint32_t CommonLength(const uint8_t* a, const uint8_t* b, uint32_t limit) {
    uint32_t len = 0;
    for (; len + 16 <= limit; len += 16) {
        const __m128i eq = _mm_cmpeq_epi8(_mm_loadu_si128(reinterpret_cast<const __m128i*>(a + len)),
                                          _mm_loadu_si128(reinterpret_cast<const __m128i*>(b + len)));
        const uint32_t differ = static_cast<uint32_t>(_mm_movemask_epi8(eq)) ^ 0xFFFF;
        if (differ != 0) return len + static_cast<uint32_t>(__builtin_ctz(differ));
    }
    for (; len + 4 <= limit; len += 4) {
        const uint32_t x = load_u32le(a + len) ^ load_u32le(b + len);
        if (x != 0) return len + static_cast<uint32_t>(__builtin_ctz(x)) / 8;
    }
    while (len < limit && a[len] == b[len]) ++len;
    return len;
}

}  // namespace zyrdc::lz4
