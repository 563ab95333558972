// bzip2_support.hpp - a block through the forward stages of the bzip2 family, and back
// through the block decoder into destinations that end at a guard page.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <vector>

#include "support.hpp"
#include "zyrdc.h"

namespace zyrdc::test {

struct Bz2Block {
    std::vector<uint16_t> symbols;  // without EOB
    std::vector<uint8_t> in_use = std::vector<uint8_t>(256);
    int32_t orig_ptr = 0;
    int32_t n = 0;  // bytes of the transform
};

// The forward stages over bytes already in run-length form (`rle` true runs that stage too).
inline Bz2Block Bz2Forward(const std::vector<uint8_t>& data, bool rle) {
    Bz2Block b;
    // table: the run-length record, then the move-to-front table
    std::vector<uint8_t> coded(data.size() * 5 / 4 + 8), table(264);
    int32_t n = static_cast<int32_t>(data.size()), len = static_cast<int32_t>(coded.size()), flush = 8;
    const uint8_t* p = data.data();
    if (rle) {
        EXPECT_TRUE(zyrsEncodeRLEInit_BZ2_8u(table.data()) == StatusOk &&
                    zyrsEncodeRLE_BZ2_8u(&p, &n, coded.data(), &len, table.data()) == StatusOk &&
                    zyrsEncodeRLEFlush_BZ2_8u(coded.data() + len, &flush, table.data()) == StatusOk &&
                    zyrsRLEGetInUseTable_8u(b.in_use.data(), table.data()) == StatusOk);
        n = len + flush;
    } else {
        std::copy(data.begin(), data.end(), coded.begin());
        for (uint8_t v : data) b.in_use[v] = 1;
    }
    int32_t size = 0, dict = 0, cap = n + 1;
    b.n = n;
    EXPECT_EQ(zyrsBWTFwdGetSize_8u(n, &size), StatusOk);
    std::vector<uint8_t> work(static_cast<size_t>(size)), bwt(static_cast<size_t>(n)), mtf(bwt.size());
    std::vector<uint32_t> freq(258);
    b.symbols.resize(static_cast<size_t>(cap));
    p = mtf.data();
    EXPECT_TRUE(zyrsBWTFwd_8u(coded.data(), bwt.data(), n, &b.orig_ptr, work.data()) == StatusOk &&
                zyrsReduceDictionary_8u_I(b.in_use.data(), bwt.data(), n, &dict) == StatusOk &&
                zyrsMTFInit_8u(table.data()) == StatusOk &&
                zyrsMTFFwd_8u(bwt.data(), mtf.data(), n, table.data()) == StatusOk &&
                zyrsEncodeZ1Z2_BZ2_8u16u(&p, &n, b.symbols.data(), &cap, freq.data()) == StatusOk);
    b.symbols.resize(static_cast<size_t>(cap));
    return b;
}

// Decodes the block with destinations of `piece` bytes, each ending at a guard page, until
// StatusOk; the first error status ends it.
inline ZyrStatus Bz2Decode(const Bz2Block& b, int32_t block_size, int32_t piece, std::vector<uint8_t>* out) {
    int32_t size = 0, len = piece;
    EXPECT_EQ(zyrsDecodeBlockGetSize_BZ2_8u(block_size, &size), StatusOk);
    GuardedBuffer buffer(static_cast<size_t>(size)), dst(static_cast<size_t>(piece));
    out->clear();
    ZyrStatus st = StatusDstFull;
    for (auto n = static_cast<int32_t>(b.symbols.size()); st == StatusDstFull; n = 0, len = piece) {
        st = zyrsDecodeBlock_BZ2_16u8u(b.symbols.data(), n, b.in_use.data(), b.orig_ptr, block_size,
                                       dst.data(), &len, buffer.data());
        if (st >= 0) out->insert(out->end(), dst.data(), dst.data() + len);
    }
    return st;
}

}  // namespace zyrdc::test
