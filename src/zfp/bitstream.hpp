// bitstream.hpp - the stream record's bit buffer held in registers for one block: a writer
// for the encoder and a reader for the decoder, least significant bit first in 64-bit
// little-endian words.
#pragma once

#include <bit>
#include <cstdint>

#include "core/bits.hpp"
#include "zyrdc.h"

namespace zyrdc::zfp {

// Room between two stream pointers in bytes, signed, without subtracting unrelated pointers.
inline intptr_t RoomBytes(const uint8_t* cur, const uint8_t* end) {
    return static_cast<intptr_t>(reinterpret_cast<uintptr_t>(end) - reinterpret_cast<uintptr_t>(cur));
}

// The low `width` bits of v, width 0..64.
inline uint64_t LowBits(uint64_t v, int width) {
    return width >= 64 ? v : v & ((uint64_t{1} << width) - 1);
}
// The same for width 0..63.
inline uint64_t ShortLowBits(uint64_t v, int width) { return v & ((uint64_t{1} << width) - 1); }

// Encoder side. Bits accumulate above `count` in `buffer`; each full word is stored at `cur`
// after checking that 8 bytes fit before `end`. On a failed store the word stays in the
// buffer with count 64 and cur stays put, so the record shows what was not stored.
class BitWriter {
public:
    explicit BitWriter(const ZfpState& s)
        : buffer_(s.bitBuffer), count_(s.bitCount), cur_(s.pCur), end_(s.pEnd) {}

    void Save(ZfpState& s) const {
        s.bitBuffer = buffer_;
        s.bitCount = count_;
        s.pCur = cur_;
    }

    // Called before a block: a record left by a failed store still holds its full word,
    // which goes out first. A count outside 0..64 can only come from a caller's own writes
    // to the record and is brought into range.
    [[nodiscard]] bool Resume() {
        if (count_ < 0) count_ = 0;
        if (count_ < 64) return true;
        if (!StoreWord()) return false;
        buffer_ = 0;
        count_ = 0;
        return true;
    }

    // Appends `width` bits (0..64) of v. Bits of v at or above `width` are not masked: they
    // land on the positions that follow, where the next values are ORed in. Only the block
    // header can carry such a bit (the tenth bit of an infinite or NaN block's exponent).
    [[nodiscard]] bool Put(uint64_t v, int width) {
        buffer_ |= v << count_;
        count_ += width;
        if (count_ < 64) {
            return true;
        }
        if (!StoreWord()) {
            return false;
        }
        count_ -= 64;
        // The bits of v that did not fit start the next word.
        const int stored = width - count_;
        buffer_ = stored < 64 ? v >> stored : 0;
        return true;
    }

    // Appends n zero bits, storing whole words as they fill.
    [[nodiscard]] bool PutZeros(int64_t n) {
        int64_t total = count_ + n;
        while (total >= 64) {
            if (!StoreWord()) {
                return false;
            }
            buffer_ = 0;
            total -= 64;
        }
        count_ = static_cast<int32_t>(total);
        return true;
    }

private:
    bool StoreWord() {
        if (RoomBytes(cur_, end_) < 8) {
            count_ = 64;
            return false;
        }
        store_u64le(cur_, buffer_);
        cur_ += 8;
        return true;
    }

    uint64_t buffer_;
    int32_t count_;  // 0..63 between calls
    uint8_t* cur_;
    uint8_t* end_;
};

// The run behind a group test's 1 bit, for either reader below: zeros, one per coefficient
// passed, up to and including the next 1 bit, read at most up to coefficient 63 (whose 1 bit
// is implied) and the budget's end. `n` moves to the coefficient the run reached; the budget
// loses the bits read. A reader supplies Fill (some bits buffered, or false at the stream's
// end), Bits, Count and Drop.
template <class Reader>
[[nodiscard]] bool ReadGroupRun(Reader& in, int& n, int64_t& bits) {
    const int limit = 63 - n < bits ? 63 - n : static_cast<int>(bits);
    int zeros = 0;
    while (zeros < limit) {
        if (!in.Fill()) return false;
        const int avail = limit - zeros < in.Count() ? limit - zeros : in.Count();
        const uint64_t window = LowBits(in.Bits(), avail);
        if (window != 0) {
            const int t = std::countr_zero(window);
            in.Drop(t + 1);
            bits -= zeros + t + 1;
            n += zeros + t;
            return true;
        }
        in.Drop(avail);
        zeros += avail;
    }
    bits -= zeros;
    n += zeros;
    return true;
}

// Decoder side. `buffer` holds `count` unread bits at its low end. When it is empty and a
// bit is needed, a whole word is loaded if 8 bytes remain, else a single byte, else the
// stream is exhausted; bits are never loaded ahead of need, so the record's position after
// a block depends only on the bits the block consumed.
class BitReader {
public:
    // A count outside 0..64 can only come from a caller's own writes to the record.
    explicit BitReader(const ZfpState& s)
        : buffer_(s.bitBuffer),
          count_(s.bitCount < 0 ? 0 : s.bitCount > 64 ? 64 : s.bitCount),
          cur_(s.pCur),
          end_(s.pEnd) {}

    void Save(ZfpState& s) const {
        s.bitBuffer = buffer_;
        s.bitCount = count_;
        s.pCur = const_cast<uint8_t*>(cur_);
    }

    // Reads `width` bits (0..64) into v, first bit lowest.
    [[nodiscard]] bool Get(int width, uint64_t& v) {
        if (width <= count_) {
            v = LowBits(buffer_, width);
            Drop(width);
            return true;
        }
        v = LowBits(buffer_, count_);
        int got = count_;
        Drop(count_);
        while (got < width) {
            if (!Load()) {
                return false;
            }
            const int take = width - got < count_ ? width - got : count_;
            v |= LowBits(buffer_, take) << got;
            Drop(take);
            got += take;
        }
        return true;
    }

    [[nodiscard]] bool GetBit(uint64_t& bit) {
        if (count_ == 0 && !Load()) {
            return false;
        }
        bit = buffer_ & 1;
        buffer_ >>= 1;
        --count_;
        return true;
    }

    // One group test of the embedded code, with its budget: reads the test bit, and when it
    // is 1 the run of zeros behind it with its closing 1 bit (see ReadGroupRun).
    [[nodiscard]] bool GetGroup(int& n, int64_t& bits, bool& found) {
        uint64_t bit;
        --bits;
        if (!GetBit(bit)) return false;
        found = bit != 0;
        return !found || ReadGroupRun(*this, n, bits);
    }

    // The group tests of one plane, after its verbatim bits: each new significant
    // coefficient n sets bit n of the plane x, until a 0 test, coefficient 64 or the budget.
    [[nodiscard]] bool GetGroups(int& n, int64_t& bits, uint64_t& x) {
        while (n < 64 && bits > 0) {
            bool found;
            if (!GetGroup(n, bits, found)) return false;
            if (!found) break;
            x |= uint64_t{1} << n;
            ++n;
        }
        return true;
    }

    // What ReadGroupRun works with: some bits buffered, or false at the stream's end.
    [[nodiscard]] bool Fill() { return count_ != 0 || Load(); }
    uint64_t Bits() const { return buffer_; }
    int Count() const { return count_; }

    // Drops n bits (any count), skipping whole words without loading them where it can.
    [[nodiscard]] bool Skip(int64_t n) {
        while (n > 0) {
            if (count_ == 0) {
                if (n >= 64 && RoomBytes(cur_, end_) >= 8) {
                    cur_ += 8;
                    n -= 64;
                    continue;
                }
                if (!Load()) {
                    return false;
                }
            }
            const int take = n < count_ ? static_cast<int>(n) : count_;
            Drop(take);
            n -= take;
        }
        return true;
    }

    void Drop(int n) {
        buffer_ = n >= 64 ? 0 : buffer_ >> n;
        count_ -= n;
    }

private:
    bool Load() {
        const intptr_t room = RoomBytes(cur_, end_);
        if (room >= 8) {
            buffer_ = load_u64le(cur_);
            cur_ += 8;
            count_ = 64;
        } else if (room >= 1) {
            buffer_ = *cur_;
            cur_ += 1;
            count_ = 8;
        } else {
            return false;
        }
        return true;
    }

    uint64_t buffer_;
    int32_t count_;
    const uint8_t* cur_;
    const uint8_t* end_;
};

// Decoder side, far from the end of the stream: the bits held in a 64-bit window refilled
// by unaligned 8-byte loads, with no bound checks. The caller guarantees that the block reads
// at most `WindowReader::kSlackBytes` bytes short of pEnd (see WindowFits). Save leaves the
// record exactly as BitReader would after the same number of bits, since that depends only on
// the count: whole words loaded as needed, the last one's unread bits in the buffer.
class WindowReader {
public:
    // A load at the furthest byte a block can reach still needs its 8 bytes.
    static constexpr intptr_t kSlackBytes = 16;

    // True when a block of at most maxBlockBits bits can be read with this reader. A full
    // buffer (64 bits, which only a caller's own writes to the record leave) is left to
    // BitReader, so that the window always has room for a refill.
    static bool Fits(const ZfpState& s, int64_t maxBlockBits) {
        return s.bitCount < 64 && RoomBytes(s.pCur, s.pEnd) >= (maxBlockBits + 7) / 8 + kSlackBytes;
    }

    explicit WindowReader(const ZfpState& s)
        : first_(s.bitBuffer),
          firstCount_(s.bitCount < 0 ? 0 : s.bitCount),
          start_(s.pCur),
          next_(s.pCur),
          window_(ShortLowBits(first_, firstCount_)),
          avail_(firstCount_) {}

    void Save(ZfpState& s) const {
        const int64_t consumed = firstCount_ + 8 * (next_ - start_) - avail_;
        if (consumed <= firstCount_) {
            s.bitBuffer = consumed >= 64 ? 0 : first_ >> consumed;
            s.bitCount = static_cast<int32_t>(firstCount_ - consumed);
            return;
        }
        const int64_t fromStream = consumed - firstCount_;
        const int64_t words = (fromStream + 63) / 64;
        const uint8_t* cur = start_ + 8 * words;
        const auto left = static_cast<int32_t>(64 * words - fromStream);
        s.pCur = const_cast<uint8_t*>(cur);
        s.bitCount = left;
        s.bitBuffer = left == 0 ? 0 : load_u64le(cur - 8) >> (64 - left);
    }

    [[nodiscard]] bool Get(int width, uint64_t& v) {
        if (width > kMaxRead) {
            uint64_t high;
            Take(32, v);
            Take(width - 32, high);
            v |= high << 32;
        } else {
            Take(width, v);
        }
        return true;
    }

    [[nodiscard]] bool GetBit(uint64_t& bit) {
        Take(1, bit);
        return true;
    }

    // As BitReader::GetGroup. With at least 57 bits in the window, the test bit and a run of
    // up to 55 zeros with its 1 bit resolve in one step; longer runs take the general path.
    [[nodiscard]] bool GetGroup(int& n, int64_t& bits, bool& found) {
        Refill();
        --bits;
        found = (window_ & 1) != 0;
        if (!found) {
            Drop(1);
            return true;
        }
        const int limit = 63 - n < bits ? 63 - n : static_cast<int>(bits);
        // A sentinel at bit 55 of the run caps the count where the window's bits end; a
        // count of 55 may be the sentinel and is left to the general path.
        constexpr int kSpan = kMaxRead - 1;
        const int t = std::countr_zero((window_ >> 1) | uint64_t{1} << kSpan);
        if (t < limit && t < kSpan) {
            Drop(t + 2);
            bits -= t + 1;
            n += t;
            return true;
        }
        Drop(1);
        return ReadGroupRun(*this, n, bits);
    }

    // As BitReader::GetGroups. A plane that turns no coefficient or one significant, the
    // common case, resolves without a branch on the data: its test bit, the run behind it
    // and the next test bit come from one window, and only a second new coefficient, a long
    // run or the budget's end loop or leave for the general path.
    [[nodiscard]] bool GetGroups(int& n, int64_t& bits, uint64_t& x) {
        // Two test bits, a run and its 1 bit fit in the 56 bits a refill guarantees.
        constexpr int kFastRun = kMaxRead - 3;
        while (n < 64 && bits > 0) {
            Refill();
            const uint64_t w = window_;
            const uint64_t g1 = w & 1;
            const int t = std::countr_zero((w >> 1) | uint64_t{1} << kFastRun);
            const int limit = 63 - n < bits - 1 ? 63 - n : static_cast<int>(bits - 1);
            if (g1 != 0 && !(t < limit && t < kFastRun && t + 2 < bits)) {
                bool found;
                if (!GetGroup(n, bits, found)) return false;
                if (!found) return true;
                x |= uint64_t{1} << n;
                ++n;
                continue;
            }
            // g1 = 0: the plane ends after its 1 bit. g1 = 1: coefficient n + t turns
            // significant after t + 2 bits, and a 0 as the next test bit g2 ends the plane.
            const uint64_t g2 = (w >> (t + 2)) & 1;
            const int consumed = g1 != 0 ? t + 2 + static_cast<int>(g2 ^ 1) : 1;
            x |= g1 << ((n + t) & 63);
            n += static_cast<int>(g1) * (t + 1);
            bits -= consumed;
            Drop(consumed);
            if ((g1 & g2) == 0) return true;
        }
        return true;
    }

    [[nodiscard]] bool Fill() {
        if (avail_ < kMaxRead) Refill();
        return true;
    }
    uint64_t Bits() const { return window_; }
    int Count() const { return avail_; }

    // The window never holds 64 bits, so n < 64.
    void Drop(int n) {
        window_ >>= n;
        avail_ -= n;
    }

    [[nodiscard]] bool Skip(int64_t n) {
        if (n <= avail_) {
            Drop(static_cast<int>(n));
            return true;
        }
        // Bits past the window: move to the byte that holds the target bit.
        const int64_t fromStream = 8 * (next_ - start_) - avail_ + n;
        next_ = start_ + fromStream / 8;
        window_ = 0;
        avail_ = 0;
        Refill();
        Drop(static_cast<int>(fromStream % 8));
        return true;
    }

private:
    // A refill tops the window up to at least 56 bits.
    static constexpr int kMaxRead = 56;

    // Loads the next bytes above the valid bits (fewer than 64); bits beyond whole bytes are
    // loaded too and are the right ones, so the next refill's OR leaves them as they are.
    // Cheap enough to run before every read, which spares a branch.
    void Refill() {
        window_ |= load_u64le(next_) << avail_;
        next_ += (63 - avail_) >> 3;
        avail_ |= 56;
    }

    void Take(int width, uint64_t& v) {
        Refill();
        v = ShortLowBits(window_, width);
        Drop(width);
    }

    uint64_t first_;
    int32_t firstCount_;
    const uint8_t* start_;
    const uint8_t* next_;
    uint64_t window_;
    int avail_;
};

}  // namespace zyrdc::zfp
