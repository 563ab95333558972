// fuzz_bzip2_roundtrip.cpp - a block through every forward stage (run-length coding split in
// two calls, dictionary reduction, the transform with the strategy the first byte picks,
// move-to-front, zero-run coding) and back through every inverse stage must come out as it
// went in. The one allowed exception is a short block whose quicksort budget ran out: that
// path emits the rows as the budget left them.
#include <cstddef>
#include <cstdint>
#include <numeric>
#include <vector>

#include "bzip2/bzip2.hpp"
#include "harness.hpp"
#include "zyrdc.h"

namespace {

using Bytes = std::vector<uint8_t>;

bool ShortBudgetRanOut(const Bytes& block) {
    const auto n = static_cast<uint32_t>(block.size());
    Bytes text(block);
    while (text.size() < 2 * n + 17) text.push_back(text[text.size() - n]);
    std::vector<uint32_t> rows(n);
    std::iota(rows.begin(), rows.end(), 0u);
    return zyrdc::bzip2::MultikeyQuicksort(text.data(), n, rows.data(), 0, n - 1, 0,
                                           zyrdc::bzip2::kShortBudgetSelect * n) < 0;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 2) return 0;
    const uint8_t knob = data[0];
    const Bytes block(data + 1, data + size);
    const auto n = static_cast<int32_t>(block.size());

    // Run-length stage in two calls, then the flush.
    uint8_t rle_state[264], in_use[256];
    FuzzCheck(zyrsEncodeRLEInit_BZ2_8u(rle_state) == StatusOk);
    Bytes rle(block.size() * 5 / 4 + 8);
    int32_t rle_len = 0;
    const int32_t cut = 1 + static_cast<int32_t>(knob * 977u % static_cast<uint32_t>(n));
    const uint8_t* p = block.data();
    for (int32_t piece : {cut, n - cut}) {
        if (piece == 0) continue;
        int32_t left = piece, room = static_cast<int32_t>(rle.size()) - rle_len;
        FuzzCheck(zyrsEncodeRLE_BZ2_8u(&p, &left, rle.data() + rle_len, &room, rle_state) == StatusOk);
        rle_len += room;
    }
    int32_t one = 1;
    FuzzCheck(zyrsEncodeRLEFlush_BZ2_8u(rle.data() + rle_len, &one, rle_state) == StatusOk);
    rle.resize(static_cast<size_t>(rle_len + one));
    FuzzCheck(zyrsRLEGetInUseTable_8u(in_use, rle_state) == StatusOk);
    const auto m = static_cast<int32_t>(rle.size());
    int32_t dictionary = 0;
    FuzzCheck(zyrsReduceDictionary_8u_I(in_use, rle.data(), m, &dictionary) == StatusOk);

    // Transform with the chosen strategy (an abandoned sort is redone with the fallback).
    const auto strategy = static_cast<int32_t>(knob % 4);
    uint32_t bytes = 0;
    FuzzCheck(zyrsBWTFwdGetBufSize_SelectSort_8u(static_cast<uint32_t>(m), &bytes, 3) == StatusOk);
    Bytes buffer(bytes), last(rle.size());
    int32_t index = 0;
    ZyrStatus st = zyrsBWTFwd_SelectSort_8u(rle.data(), last.data(), static_cast<uint32_t>(m), &index,
                                            buffer.data(), strategy);
    if (st == StatusBwtSortAbandoned) {
        FuzzCheck(strategy == 0);
        st = zyrsBWTFwd_SelectSort_8u(rle.data(), last.data(), static_cast<uint32_t>(m), &index,
                                      buffer.data(), 3);
    }
    FuzzCheck(st == StatusOk && index >= 0 && index < m);

    // Move-to-front and zero runs.
    uint8_t mtf_state[256];
    FuzzCheck(zyrsMTFInit_8u(mtf_state) == StatusOk);
    Bytes mtf(rle.size());
    FuzzCheck(zyrsMTFFwd_8u(last.data(), mtf.data(), m, mtf_state) == StatusOk);
    std::vector<uint16_t> symbols(rle.size());
    std::vector<uint32_t> freq(258, 0);
    const uint8_t* q = mtf.data();
    int32_t left = m, count = m;
    FuzzCheck(zyrsEncodeZ1Z2_BZ2_8u16u(&q, &left, symbols.data(), &count, freq.data()) == StatusOk);

    // And back.
    Bytes indexes(rle.size()), column(rle.size()), reduced(rle.size());
    const uint16_t* s = symbols.data();
    int32_t decoded = m;
    FuzzCheck(zyrsDecodeZ1Z2_BZ2_16u8u(&s, &count, indexes.data(), &decoded) == StatusOk && decoded == m);
    FuzzCheck(indexes == mtf);
    FuzzCheck(zyrsMTFInit_8u(mtf_state) == StatusOk);
    FuzzCheck(zyrsMTFInv_8u(indexes.data(), column.data(), m, mtf_state) == StatusOk);
    FuzzCheck(column == last);
    int32_t inv_bytes = 0;
    FuzzCheck(zyrsBWTInvGetSize_8u(m, &inv_bytes) == StatusOk);
    Bytes inv_buffer(static_cast<size_t>(inv_bytes));
    FuzzCheck(zyrsBWTInv_8u(column.data(), reduced.data(), m, index, inv_buffer.data()) == StatusOk);
    if (reduced != rle) {
        FuzzCheck(m < static_cast<int32_t>(zyrdc::bzip2::kShortBlock) && ShortBudgetRanOut(rle));
        return 0;
    }
    FuzzCheck(zyrsExpandDictionary_8u_I(in_use, reduced.data(), m, dictionary) == StatusOk);
    uint8_t dec_state[264];
    FuzzCheck(zyrsDecodeRLEStateInit_BZ2_8u(dec_state) == StatusOk);
    Bytes out(block.size());
    const uint8_t* r = reduced.data();
    uint8_t* d = out.data();
    int32_t rleft = m, room = n;
    FuzzCheck(zyrsDecodeRLEState_BZ2_8u(&r, &rleft, &d, &room, dec_state) == StatusOk);
    FuzzCheck(zyrsDecodeRLEStateFlush_BZ2_8u(dec_state, &d, &room) == StatusOk && room == 0);
    FuzzCheck(out == block);
    return 0;
}
