// block_decode.cpp - one bzip2 block from its zero-run symbols back to its bytes.
//
// The starting call turns the symbols into the transform's last column: zero runs become
// copies of the front of the move-to-front list, other symbols index the list, which starts
// as the in-use byte values in increasing order (so the dictionary is expanded as the bytes
// are written). Each byte lands in the low byte of its 32-bit entry and is counted. The
// counts then give every row its link, ORed into the entry above the byte, and the output
// walks the links from origPtr, undoing the run-length stage on the way. The walk is a
// chain of dependent loads through the whole table, so it runs alone in a tight loop that
// collects a chunk of raw bytes; the run-length rule is applied to the chunk afterwards.
#include "bzip2/block_decode.hpp"

#include <emmintrin.h>

#include <cstddef>
#include <cstring>

#include "core/bits.hpp"

namespace zyrdc::bzip2 {

namespace {

// The header at the aligned start of the buffer: 32-bit words, then reserved to 64 bytes.
struct BlockHeader {
    uint32_t magic;
    uint32_t stage;
    uint32_t n;           // bytes of the transform
    uint32_t block_size;  // the block size the block was started with
    uint32_t walked;      // bytes of the transform taken by the walk
    uint32_t position;    // the row the next walk step reads
    int32_t last;         // the last byte written, -1 before the first
    uint32_t equal;       // how many equal bytes end the output so far (0 to 4)
    uint32_t copies;      // copies of `last` still to write
    uint32_t reserved[7];
};
static_assert(sizeof(BlockHeader) == 64);

struct BlockArea {
    BlockHeader* header;
    uint32_t* counts;  // 256
    uint32_t* t;       // block_size entries: link << 8 | byte
};

BlockArea Area(uint8_t* buffer) {
    uint8_t* base = buffer + bytes_to_boundary(buffer, 64);
    return {reinterpret_cast<BlockHeader*>(base), reinterpret_cast<uint32_t*>(base + 64),
            reinterpret_cast<uint32_t*>(base + 64 + 1024)};
}

// ---- move-to-front over the values in use ----------------------------------------------------

struct alignas(16) MtfList {
    uint8_t b[256];
};

__m128i LoadBlock(const MtfList& l, int k) {
    return _mm_load_si128(reinterpret_cast<const __m128i*>(l.b + 16 * k));
}
void StoreBlock(MtfList& l, int k, __m128i v) {
    _mm_store_si128(reinterpret_cast<__m128i*>(l.b + 16 * k), v);
}

// Moves the entry at `index` (1 to 255) to the front: the 16-byte blocks below its own
// shift up one place whole, its own block up to the entry's lane.
inline void MoveToFront(MtfList& l, uint32_t index, uint8_t value) {
    const int kb = static_cast<int>(index >> 4);
    const int lane = static_cast<int>(index & 15);
    __m128i carry = _mm_cvtsi32_si128(value);
    for (int k = 0; k < kb; ++k) {
        const __m128i x = LoadBlock(l, k);
        StoreBlock(l, k, _mm_or_si128(_mm_slli_si128(x, 1), carry));
        carry = _mm_srli_si128(x, 15);
    }
    const __m128i x = LoadBlock(l, kb);
    const __m128i lanes = _mm_setr_epi8(0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15);
    const __m128i moved = _mm_cmplt_epi8(lanes, _mm_set1_epi8(static_cast<char>(lane + 1)));
    const __m128i shifted = _mm_or_si128(_mm_slli_si128(x, 1), carry);
    StoreBlock(l, kb, _mm_or_si128(_mm_and_si128(moved, shifted), _mm_andnot_si128(moved, x)));
}

// count entries of `value` from t (4-byte aligned) on.
void FillEntries(uint32_t* t, uint32_t count, uint32_t value) {
    uint32_t i = 0;
    if (count >= 8) {
        const __m128i v = _mm_set1_epi32(static_cast<int>(value));
        for (; i + 4 <= count; i += 4) _mm_storeu_si128(reinterpret_cast<__m128i*>(t + i), v);
    }
    for (; i < count; ++i) t[i] = value;
}

// Step one: symbols to the bytes of the last column in t, counted. Returns the byte count,
// or -1 for a symbol outside the list or a block longer than block_size.
int64_t SymbolsToColumn(const uint16_t* src, int32_t src_len, const MtfList& initial,
                        uint32_t n_in_use, uint32_t block_size, uint32_t* t, uint32_t* counts) {
    MtfList list = initial;
    uint32_t n = 0;
    uint32_t run = 0, weight = 1;
    // A pending run is copies of the list's front byte; false when it would not fit.
    const auto put_run = [&] {
        if (run > block_size - n) return false;
        const uint8_t front = list.b[0];
        FillEntries(t + n, run, front);
        counts[front] += run;
        n += run;
        run = 0;
        return true;
    };
    for (int32_t i = 0; i < src_len; ++i) {
        const uint32_t s = src[i];
        if (s < 2) {
            // A digit of the run's bijective base-2 length; every digit adds at least its
            // weight, so the check stops the sum long before it could overflow.
            run += (s + 1) * weight;
            weight <<= 1;
            if (run > block_size) return -1;
            continue;
        }
        if (run != 0 && !put_run()) return -1;
        weight = 1;
        const uint32_t index = s - 1;
        if (index >= n_in_use || n == block_size) return -1;
        const uint8_t b = list.b[index];
        MoveToFront(list, index, b);
        t[n++] = b;
        ++counts[b];
    }
    if (run != 0 && !put_run()) return -1;
    return n;
}

// Step two: the counts become the first row of each byte value, and every row of the last
// column links to the row whose first-column byte is that same occurrence.
void LinkRows(uint32_t* t, uint32_t n, const uint32_t* counts) {
    uint32_t start[256];
    for (uint32_t v = 0, sum = 0; v < 256; ++v) {
        start[v] = sum;
        sum += counts[v];
    }
    uint32_t i = 0;
    for (; i + 2 <= n; i += 2) {
        const uint32_t b0 = t[i] & 0xFF;
        t[start[b0]++] |= i << 8;
        const uint32_t b1 = t[i + 1] & 0xFF;
        t[start[b1]++] |= (i + 1) << 8;
    }
    if (i < n) {
        const uint32_t b = t[i] & 0xFF;
        t[start[b]++] |= i << 8;
    }
}

// ---- the walk in many chains at once ----------------------------------------------------------
//
// One chain of dependent loads waits for memory at every step. With room for all n bytes of
// the transform in the destination, the walk instead starts chains at many rows at once, each
// marked in the table (bit 31, above the 20-bit link and the byte), so that every chain stops
// where another begins. A first pass learns each chain's length and which chain follows it,
// and so the text offset where each chain starts; a second pass writes every chain's bytes at
// their offsets in the destination's tail. The run-length rule then runs forward from the
// tail to the destination's start. All chains load independently, so the processor keeps
// many loads in flight instead of one.

constexpr uint32_t kChains = 256;
constexpr uint32_t kMark = 1u << 31;
constexpr uint32_t kLinkBits = 0xFFFFFu;  // links are below 900000 < 2^20
// Below this many bytes one chain is fast enough (the table is in the nearer caches).
constexpr uint32_t kParallelMin = 4096;

inline uint32_t Link(uint32_t e) { return (e >> 8) & kLinkBits; }

struct Chains {
    uint32_t start[kChains];   // the row each chain starts at; chain 0 at text offset 0
    uint32_t length[kChains];  // rows it walks before the next chain's start
    uint32_t offset[kChains];  // text offset of its first byte
    uint32_t count;
};

// The row the walk is at after `offset` steps from text offset 0.
uint32_t RowAtOffset(const uint32_t* t, const Chains& c, uint32_t offset) {
    uint32_t best = 0;
    for (uint32_t k = 1; k < c.count; ++k) {
        if (c.offset[k] <= offset && c.offset[k] > c.offset[best]) best = k;
    }
    uint32_t row = c.start[best];
    for (uint32_t k = c.offset[best]; k < offset; ++k) row = Link(t[row]);
    return row;
}

// Both passes. false (nothing written, table as it was) when the rows do not form the one
// cycle of a valid transform: then only the single walk gives the defined output.
bool ParallelWalk(uint32_t* t, uint32_t n, uint32_t first_row, uint8_t* raw, Chains& c) {
    const uint32_t step = n / kChains;
    c.count = 0;
    c.start[c.count++] = first_row;
    for (uint32_t k = 1; k < kChains; ++k) {
        if (k * step != first_row) c.start[c.count++] = k * step;
    }
    for (uint32_t k = 0; k < c.count; ++k) t[c.start[k]] |= kMark;
    const auto chain_at = [&](uint32_t row) -> uint32_t {
        if (row == first_row) return 0;
        const uint32_t k = row / step;  // row is k * step, k >= 1
        return k <= c.count - 1 && c.start[k] == row ? k : k - 1;
    };

    // First pass: lengths and successors.
    uint32_t pos[kChains], next[kChains], active[kChains];
    uint32_t live = c.count;
    for (uint32_t k = 0; k < c.count; ++k) {
        pos[k] = Link(t[c.start[k]]);
        c.length[k] = 1;
        active[k] = k;
    }
    while (live > 0) {
        for (uint32_t a = 0; a < live;) {
            const uint32_t k = active[a];
            const uint32_t e = t[pos[k]];
            if (e & kMark) {
                next[k] = chain_at(pos[k]);
                active[a] = active[--live];
                continue;
            }
            ++c.length[k];
            pos[k] = Link(e);
            ++a;
        }
    }
    // Offsets along the cycle from chain 0; it must pass every row exactly once.
    uint32_t offset = 0, k = 0, seen = 0;
    do {
        c.offset[k] = offset;
        offset += c.length[k];
        k = next[k];
    } while (k != 0 && ++seen < c.count && offset < n);
    const bool one_cycle = k == 0 && offset == n;

    if (one_cycle) {
        // Second pass: every chain's bytes at its offset.
        uint32_t left[kChains];
        live = c.count;
        for (uint32_t j = 0; j < c.count; ++j) {
            pos[j] = c.start[j];
            next[j] = c.offset[j];  // now the write offset
            left[j] = c.length[j];
            active[j] = j;
        }
        while (live > 0) {
            for (uint32_t a = 0; a < live;) {
                const uint32_t j = active[a];
                const uint32_t e = t[pos[j]];
                raw[next[j]++] = static_cast<uint8_t>(e);
                pos[j] = Link(e);
                if (--left[j] == 0) {
                    active[a] = active[--live];
                    continue;
                }
                ++a;
            }
        }
    }
    for (uint32_t j = 0; j < c.count; ++j) t[c.start[j]] &= ~kMark;
    return one_cycle;
}

// Raw bytes a walk step collects at a time: enough to keep the loop busy, few enough that
// re-walking the unused end of a chunk (when the destination fills) costs little.
constexpr uint32_t kWalkChunk = 512;

}  // namespace

bool BlockInProgress(const uint8_t* buffer, int32_t block_size) {
    const BlockArea a = Area(const_cast<uint8_t*>(buffer));
    const BlockHeader& h = *a.header;
    return h.magic == kBlockMagic && h.stage == kBlockStageOutput &&
           h.block_size == static_cast<uint32_t>(block_size) && h.n >= 1 &&
           h.n <= h.block_size && h.walked <= h.n && h.position < h.n && h.last >= -1 &&
           h.last <= 255 && h.equal <= 4 && h.copies <= 255;
}

Progress DecodeBlockStart(const uint16_t* src, int32_t src_len, const uint8_t* in_use,
                          int32_t orig_ptr, int32_t block_size, uint8_t* dst, int32_t dst_cap,
                          uint8_t* buffer) {
    const BlockArea a = Area(buffer);
    BlockHeader& h = *a.header;
    // Whatever the buffer held is dropped; until this block is built nothing continues.
    std::memset(&h, 0, sizeof h);

    MtfList list;
    std::memset(list.b, 0, sizeof list.b);
    uint32_t n_in_use = 0;
    for (int v = 0; v < 256; ++v) {
        if (in_use[v] > 1) return {StatusError, 0, 0};
        if (in_use[v] != 0) list.b[n_in_use++] = static_cast<uint8_t>(v);
    }
    if (n_in_use == 0) return {StatusError, 0, 0};

    std::memset(a.counts, 0, 256 * sizeof(uint32_t));
    const int64_t n = SymbolsToColumn(src, src_len, list, n_in_use,
                                      static_cast<uint32_t>(block_size), a.t, a.counts);
    if (n < 0 || orig_ptr < 0 || orig_ptr >= n) return {StatusCorruptStream, 0, 0};
    const auto rows = static_cast<uint32_t>(n);
    LinkRows(a.t, rows, a.counts);

    h.magic = kBlockMagic;
    h.stage = kBlockStageOutput;
    h.n = rows;
    h.block_size = static_cast<uint32_t>(block_size);
    h.walked = 0;
    h.position = a.t[orig_ptr] >> 8;
    h.last = -1;
    h.equal = 0;
    h.copies = 0;
    return BlockOutput(dst, dst_cap, buffer);
}

Progress BlockOutput(uint8_t* dst, int32_t dst_cap, uint8_t* buffer) {
    const BlockArea a = Area(buffer);
    BlockHeader& h = *a.header;
    const uint32_t* t = a.t;
    const uint32_t n = h.n;
    uint32_t walked = h.walked, position = h.position, equal = h.equal, copies = h.copies;
    int32_t last = h.last;
    uint8_t* out = dst;
    uint8_t* const end = dst + dst_cap;
    ZyrStatus status = StatusOk;

    if (walked == 0 && copies == 0 && n >= kParallelMin &&
        static_cast<uint32_t>(dst_cap) >= n + 256) {
        // The whole transform fits in the destination's tail: walk it in many chains, then
        // undo the run-length stage forward from there. The output never overtakes the raw
        // bytes it has not read; where it would, the single walk takes over from that byte.
        Chains chains;
        uint8_t* raw = end - n;
        if (ParallelWalk(a.t, n, position, raw, chains)) {
            const uint8_t* in = raw;
            const uint8_t* const in_end = end;
            while (in != in_end) {
                const uint8_t b = *in;
                if (equal == 4) {
                    if (b > in + 1 - out) break;  // the copies would reach unread bytes
                    if (in - out >= 255) {
                        // 16-byte stores past the copies land on bytes already read.
                        const __m128i v = _mm_set1_epi8(static_cast<char>(last));
                        for (uint32_t k = 0; k < b; k += 16) {
                            _mm_storeu_si128(reinterpret_cast<__m128i*>(out + k), v);
                        }
                    } else {
                        std::memset(out, last, b);
                    }
                    out += b;
                    equal = 0;
                    ++in;
                    continue;
                }
                *out++ = b;
                ++in;
                equal = static_cast<int32_t>(b) == last ? equal + 1 : 1;
                last = b;
            }
            walked = static_cast<uint32_t>(in - raw);
            position = walked == n ? position : RowAtOffset(a.t, chains, walked);
        }
    }

    for (;;) {
        if (copies != 0) {
            const auto room = static_cast<uint32_t>(end - out);
            const uint32_t k = copies < room ? copies : room;
            std::memset(out, last, k);
            out += k;
            copies -= k;
            if (copies != 0) {
                status = StatusDstFull;
                break;
            }
        }
        if (walked == n) {
            h.stage = kBlockStageDone;
            break;
        }
        if (out == end) {
            status = StatusDstFull;
            break;
        }
        // Collect a chunk of raw bytes: nothing but the dependent loads in this loop.
        uint8_t raw[kWalkChunk];
        // Each raw byte but a count writes a byte, so a chunk no longer than the room is
        // rarely walked in vain.
        uint32_t chunk = n - walked < kWalkChunk ? n - walked : kWalkChunk;
        if (static_cast<uint32_t>(end - out) < chunk) chunk = static_cast<uint32_t>(end - out);
        const uint32_t chunk_start = position;
        for (uint32_t k = 0; k < chunk; ++k) {
            const uint32_t e = t[position];
            raw[k] = static_cast<uint8_t>(e);
            position = e >> 8;
        }
        // The run-length rule over the chunk: after four equal bytes, a count of copies.
        uint32_t used = 0;
        if (end - out >= static_cast<ptrdiff_t>(chunk) * 256) {
            // Room for the worst case: every step fits, no checks.
            for (; used < chunk; ++used) {
                const uint8_t b = raw[used];
                if (equal == 4) {
                    std::memset(out, last, b);
                    out += b;
                    equal = 0;
                    continue;
                }
                *out++ = b;
                equal = static_cast<int32_t>(b) == last ? equal + 1 : 1;
                last = b;
            }
        } else {
            for (; used < chunk; ++used) {
                if (out == end) break;
                const uint8_t b = raw[used];
                if (equal == 4) {
                    // A count: copies that do not fit wait for the next call.
                    copies = b;
                    equal = 0;
                    const auto room = static_cast<uint32_t>(end - out);
                    const uint32_t k = copies < room ? copies : room;
                    std::memset(out, last, k);
                    out += k;
                    copies -= k;
                    if (copies != 0) {
                        ++used;
                        break;
                    }
                    continue;
                }
                *out++ = b;
                equal = static_cast<int32_t>(b) == last ? equal + 1 : 1;
                last = b;
            }
        }
        if (used < chunk) {
            // The destination filled inside the chunk: walk again to the first unused byte.
            position = chunk_start;
            for (uint32_t k = 0; k < used; ++k) position = t[position] >> 8;
        }
        walked += used;
    }
    h.walked = walked;
    h.position = position;
    h.last = last;
    h.equal = equal;
    h.copies = copies;
    return {status, 0, static_cast<int32_t>(out - dst)};
}

}  // namespace zyrdc::bzip2
