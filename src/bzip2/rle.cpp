// rle.cpp - the first run-length stage of a bzip2 block in both directions, resumable through
// the caller's state record, with the in-use table and the dictionary maps.
#include <emmintrin.h>

#include <cstring>

#include "bzip2/bzip2.hpp"
#include "core/bits.hpp"

namespace zyrdc::bzip2 {

namespace {

// The record's two words are native 32-bit integers at fixed offsets of a byte buffer that
// carries no alignment promise.
int32_t LoadWord(const uint8_t* state, int32_t offset) {
    return static_cast<int32_t>(load_u32le(state + offset));
}
void StoreWord(uint8_t* state, int32_t offset, int32_t v) {
    store_u32le(state + offset, static_cast<uint32_t>(v));
}

// Run fill: byte stores below 16 bytes; otherwise one unaligned 16-byte store for the head,
// aligned 16-byte stores from the destination's next boundary, and one overlapping unaligned
// store that ends exactly at the last byte.
void FillByte(uint8_t* dst, uint8_t value, int32_t count) {
    if (count < 16) {
        for (int32_t i = 0; i < count; ++i) dst[i] = value;
        return;
    }
    const __m128i v = _mm_set1_epi8(static_cast<char>(value));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(dst), v);
    auto i = static_cast<int32_t>(bytes_to_boundary(dst, 16));
    for (; i + 16 <= count; i += 16) _mm_store_si128(reinterpret_cast<__m128i*>(dst + i), v);
    if (i < count) _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + count - 16), v);
}

}  // namespace

void RleEncodeInit(uint8_t* state) {
    std::memset(state, 0, 256);
    StoreWord(state, kRleLastOffset, -1);
    StoreWord(state, kRleRunOffset, 0);
}

Progress RleEncode(const uint8_t* src, int32_t src_len, uint8_t* dst, int32_t dst_cap,
                   uint8_t* state) {
    uint8_t* in_use = state;
    int32_t last = LoadWord(state, kRleLastOffset);
    int32_t run = LoadWord(state, kRleRunOffset);
    int32_t si = 0, di = 0;
    for (;;) {
        // Literals until four equal ones have been written.
        while (run < kRleRunOpen && si < src_len && di < dst_cap) {
            const uint8_t b = src[si++];
            dst[di++] = b;
            in_use[b] = 1;
            run = b == last ? run + 1 : 1;
            last = b;
        }
        if (run < kRleRunOpen) break;  // source used up or destination full
        // Further repetitions go into the count byte, up to a run of kRleMaxRun bytes.
        while (run < kRleMaxRun && si < src_len && src[si] == last) {
            ++si;
            ++run;
        }
        // At the end of the source the run may go on in the next call; the count waits.
        if (si == src_len || di == dst_cap) break;
        const auto count = static_cast<uint8_t>(run - kRleRunOpen);
        dst[di++] = count;
        in_use[count] = 1;
        run = 0;  // the next byte opens a fresh run even if it repeats `last`
    }
    StoreWord(state, kRleLastOffset, last);
    StoreWord(state, kRleRunOffset, run);
    return {si < src_len ? StatusDstFull : StatusOk, si, di};
}

int32_t RleEncodeFlush(uint8_t* dst, uint8_t* state) {
    const int32_t run = LoadWord(state, kRleRunOffset);
    if (run < kRleRunOpen) return 0;
    const auto count = static_cast<uint8_t>(run - kRleRunOpen);
    dst[0] = count;
    state[count] = 1;
    StoreWord(state, kRleRunOffset, 0);
    return 1;
}

void RleDecodeInit(uint8_t* state) {
    StoreWord(state, kRleLastOffset, -1);
    StoreWord(state, kRleRunOffset, 0);
}

Progress RleDecode(const uint8_t* src, int32_t src_len, uint8_t* dst, int32_t dst_room,
                   uint8_t* state) {
    int32_t last = LoadWord(state, kRleLastOffset);
    int32_t pending = LoadWord(state, kRleRunOffset);
    int32_t si = 0, di = 0;
    const auto finish = [&](ZyrStatus status) {
        StoreWord(state, kRleLastOffset, last);
        StoreWord(state, kRleRunOffset, pending);
        return Progress{status, si, di};
    };
    // Writes the pending run, or the part of it that fits.
    const auto write_run = [&]() {
        const int32_t n = pending <= dst_room - di ? pending : dst_room - di;
        FillByte(dst + di, static_cast<uint8_t>(last), n);
        di += n;
        pending -= n;
        if (pending == 0) last = -1;  // the next run needs four fresh equal bytes
        return pending == 0;
    };
    if (pending > 0 && !write_run()) return finish(StatusDstFull);

    // Run detection needs the three bytes that complete four and the count byte in this call.
    while (src_len - si >= 4) {
        const uint8_t b = src[si];
        if (static_cast<int32_t>(b) != last || src[si + 1] != b || src[si + 2] != b) {
            if (di == dst_room) return finish(StatusDstFull);
            dst[di++] = b;
            last = b;
            ++si;
            continue;
        }
        pending = src[si + 3] + 3;
        si += 4;
        // Whole groups of the same byte right behind join the run. The cap keeps the count a
        // positive 32-bit value whatever the source holds.
        constexpr int32_t kMergeCap = 0x7FFFFFFF - kRleMaxRun;
        while (src_len - si >= 5 && pending <= kMergeCap && src[si] == b && src[si + 1] == b &&
               src[si + 2] == b && src[si + 3] == b) {
            pending += src[si + 4] + kRleRunOpen;
            si += 5;
        }
        if (!write_run()) return finish(StatusDstFull);
    }
    // Fewer than four bytes left: literals, without run detection.
    while (si < src_len) {
        if (di == dst_room) return finish(StatusDstFull);
        last = src[si];
        dst[di++] = src[si++];
    }
    return finish(StatusOk);
}

Progress RleDecodeFlush(uint8_t* dst, int32_t dst_room, uint8_t* state) {
    int32_t pending = LoadWord(state, kRleRunOffset);
    const int32_t last = LoadWord(state, kRleLastOffset);
    // The room is not checked by the entry point: none, or less, writes nothing.
    int32_t n = pending <= dst_room ? pending : dst_room;
    if (n < 0) n = 0;
    FillByte(dst, static_cast<uint8_t>(last), n);
    pending -= n;
    StoreWord(state, kRleRunOffset, pending);
    if (pending > 0) return {StatusDstFull, 0, n};
    StoreWord(state, kRleLastOffset, -1);
    return {StatusOk, 0, n};
}

void CopyInUseTable(uint8_t* in_use, const uint8_t* state) {
    const auto a = reinterpret_cast<uintptr_t>(in_use);
    const auto b = reinterpret_cast<uintptr_t>(state);
    if ((a > b ? a - b : b - a) < 256) {
        // Overlapping areas: one byte at a time, upwards.
        for (int i = 0; i < 256; ++i) in_use[i] = state[i];
        return;
    }
    for (int i = 0; i < 256; i += 16) {
        _mm_storeu_si128(reinterpret_cast<__m128i*>(in_use + i),
                         _mm_loadu_si128(reinterpret_cast<const __m128i*>(state + i)));
    }
}

namespace {

// Replaces every byte by map[byte], four bytes a step.
void ApplyMap(const uint8_t* map, uint8_t* data, int32_t len) {
    int32_t i = 0;
    for (; i + 4 <= len; i += 4) {
        const uint32_t w = load_u32le(data + i);
        store_u32le(data + i, static_cast<uint32_t>(map[w & 0xFF]) |
                                  static_cast<uint32_t>(map[(w >> 8) & 0xFF]) << 8 |
                                  static_cast<uint32_t>(map[(w >> 16) & 0xFF]) << 16 |
                                  static_cast<uint32_t>(map[w >> 24]) << 24);
    }
    for (; i < len; ++i) data[i] = map[data[i]];
}

}  // namespace

int32_t ReduceDictionary(const uint8_t* in_use, uint8_t* data, int32_t len) {
    uint8_t map[256];
    int32_t total = 0;
    for (int c = 0; c < 256; ++c) {
        map[c] = static_cast<uint8_t>(total);  // flags add as numbers; the map keeps 8 bits
        total += in_use[c];
    }
    ApplyMap(map, data, len);
    return total;
}

bool ExpandDictionary(const uint8_t* in_use, uint8_t* data, int32_t len, int32_t size) {
    uint8_t inv[256] = {};
    int32_t k = 0;
    for (int c = 0; c < 256; ++c) {
        if (k < 256) inv[k] = static_cast<uint8_t>(c);  // flags above 1 run past the table
        k += in_use[c];
    }
    if (k != size) return false;
    ApplyMap(inv, data, len);
    return true;
}

}  // namespace zyrdc::bzip2
