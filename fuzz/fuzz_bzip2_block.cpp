// fuzz_bzip2_block.cpp - the bzip2 block decoder on any symbols, in-use table, primary index
// and block size: symbols and table read-only before a guard page, the block buffer and every
// destination ending at one. The output in pieces of a chosen size must equal one call's
// (same status, same bytes); a finished or failed block cannot be continued.
//
// Input: block size (2 bytes), origPtr (2 bytes, signed), piece size, in-use bitmap (32
// bytes), a byte that may spoil one in-use entry, a mode byte, then the payload. Mode odd:
// one byte per symbol (mostly valid: RUNA, RUNB and indexes; the top values give symbols
// beyond the list). Mode even: the payload, repeated mode / 2 + 1 times, is a block of
// bytes that the forward stages turn into symbols, and the output must give it back (the
// tables of real blocks form one cycle, which hostile symbols rarely do).
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

#include "guarded.hpp"
#include "harness.hpp"
#include "zyrdc.h"

namespace {

constexpr int32_t kMaxBlock = 65536;
constexpr size_t kHead = 39;

// Decodes with destinations of `piece` bytes until the block ends or fails.
ZyrStatus DecodeInPieces(const uint16_t* src, int32_t src_len, const uint8_t* in_use,
                         int32_t orig_ptr, int32_t block_size, int32_t piece, uint8_t* buffer,
                         GuardedRegion& dst_region, std::vector<uint8_t>* out) {
    for (;;) {
        uint8_t* dst = dst_region.End(static_cast<size_t>(piece));
        int32_t len = piece;
        const ZyrStatus st = zyrsDecodeBlock_BZ2_16u8u(src, src_len, in_use, orig_ptr, block_size,
                                                       dst, &len, buffer);
        if (st < 0) {
            FuzzCheck(len == piece);  // counts are not written back on an error
            return st;
        }
        FuzzCheck(st == StatusOk || st == StatusDstFull);
        FuzzCheck(len >= 0 && len <= piece && (st == StatusOk || len > 0));
        out->insert(out->end(), dst, dst + len);
        if (st == StatusOk) return st;
        src_len = 0;
    }
}

// The forward stages over `block` (run-length, transform, dictionary, move-to-front, zero
// runs); returns the transform's length.
int32_t Forward(const std::vector<uint8_t>& block, std::vector<uint16_t>& symbols,
                uint8_t* in_use, int32_t& orig_ptr) {
    // Kept from input to input: clearing megabytes each time would dominate the run.
    static std::vector<uint8_t> rle, work, last, idx;
    rle.resize(block.size() * 5 / 4 + 8);
    uint8_t state[264], mtf[256];
    const uint8_t* p = block.data();
    auto left = static_cast<int32_t>(block.size());
    int32_t n = static_cast<int32_t>(rle.size()), flush = 8, size = 0, dict = 0;
    FuzzCheck(zyrsEncodeRLEInit_BZ2_8u(state) == StatusOk);
    FuzzCheck(zyrsEncodeRLE_BZ2_8u(&p, &left, rle.data(), &n, state) == StatusOk);
    FuzzCheck(zyrsEncodeRLEFlush_BZ2_8u(rle.data() + n, &flush, state) == StatusOk);
    n += flush;
    FuzzCheck(zyrsRLEGetInUseTable_8u(in_use, state) == StatusOk);
    FuzzCheck(zyrsBWTFwdGetSize_8u(n, &size) == StatusOk);
    work.resize(static_cast<size_t>(size));
    last.resize(static_cast<size_t>(n));
    idx.resize(last.size());
    FuzzCheck(zyrsBWTFwd_8u(rle.data(), last.data(), n, &orig_ptr, work.data()) == StatusOk);
    FuzzCheck(zyrsReduceDictionary_8u_I(in_use, last.data(), n, &dict) == StatusOk);
    FuzzCheck(zyrsMTFInit_8u(mtf) == StatusOk && zyrsMTFFwd_8u(last.data(), idx.data(), n, mtf) == StatusOk);
    symbols.resize(static_cast<size_t>(n) + 1);
    std::vector<uint32_t> freq(258);
    const uint8_t* q = idx.data();
    auto cap = static_cast<int32_t>(symbols.size()), len = n;
    FuzzCheck(zyrsEncodeZ1Z2_BZ2_8u16u(&q, &len, symbols.data(), &cap, freq.data()) == StatusOk);
    symbols.resize(static_cast<size_t>(cap));
    return n;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < kHead + 1) return 0;
    static GuardedRegion src_region(2 * 65536), table_region(256), buffer_region(4 * kMaxBlock + 1152),
        dst_region(52 * kMaxBlock + 64);
    int32_t block_size = 1 + (data[0] | data[1] << 8) % kMaxBlock;
    int32_t orig_ptr = static_cast<int16_t>(data[2] | data[3] << 8);
    const int32_t piece = 1 + data[4] * 3;
    uint8_t in_use[256];
    int32_t n_in_use = 0;
    for (int v = 0; v < 256; ++v) {
        in_use[v] = (data[5 + v / 8] >> (v % 8)) & 1;
        n_in_use += in_use[v];
    }
    std::vector<uint16_t> symbols;
    std::vector<uint8_t> block;
    const bool valid = (data[38] & 1) == 0;
    if (valid) {
        for (int k = 0; k <= data[38] / 2 && block.size() < 20000; ++k) {
            block.insert(block.end(), data + kHead, data + size);
        }
        block_size = static_cast<int32_t>(Forward(block, symbols, in_use, orig_ptr));
        n_in_use = 1;
    } else {
        for (size_t i = kHead; i < size; ++i) {
            const uint8_t v = data[i];
            symbols.push_back(static_cast<uint16_t>(v < 0xF8 ? v % (n_in_use + 1) : n_in_use + (v - 0xF7)));
        }
        if (data[37] & 1) in_use[data[37] >> 1] = 2;
    }
    if (symbols.size() > 65536) return 0;
    const auto src_len = static_cast<int32_t>(symbols.size());

    src_region.ReadOnly(false);
    table_region.ReadOnly(false);
    const auto* src = reinterpret_cast<const uint16_t*>(
        src_region.Place(reinterpret_cast<const uint8_t*>(symbols.data()), symbols.size() * 2));
    const uint8_t* table = table_region.Place(in_use, 256);
    src_region.ReadOnly(true);
    table_region.ReadOnly(true);
    int32_t bytes = 0;
    FuzzCheck(zyrsDecodeBlockGetSize_BZ2_8u(block_size, &bytes) == StatusOk);
    // The buffer starts wherever its exact size puts it before the guard page.
    uint8_t* buffer = buffer_region.End(static_cast<size_t>(bytes));

    std::vector<uint8_t> whole, pieces;
    const int32_t cap = 52 * block_size + 8;  // every 5 bytes of the transform give at most 259
    const ZyrStatus one = DecodeInPieces(src, src_len, table, orig_ptr, block_size, cap, buffer,
                                         dst_region, &whole);
    const ZyrStatus split = DecodeInPieces(src, src_len, table, orig_ptr, block_size, piece,
                                           buffer, dst_region, &pieces);
    FuzzCheck(one == split && whole == pieces);
    if (valid) FuzzCheck(one == StatusOk && whole == block);
    else FuzzCheck((one == StatusError) == (n_in_use == 0 || (data[37] & 1) != 0));
    // Nothing is left to continue, whether the block ended or failed.
    uint8_t* dst = dst_region.End(1);
    int32_t len = 1;
    FuzzCheck(zyrsDecodeBlock_BZ2_16u8u(src, 0, table, orig_ptr, block_size, dst, &len, buffer) ==
              StatusBadContext);
    return 0;
}
