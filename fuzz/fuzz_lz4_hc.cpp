// fuzz_lz4_hc.cpp - the high-compression and dictionary LZ4 encoders on arbitrary data: every
// block, at a random level and capacity, gives back exactly the prefix it reports through our
// decoder and through liblz4 (where this build has it), never reaching before the permitted
// history; a linked block coded from a continued record equals one from a fresh record; the
// dictionary encoders run over a table with some entries scrambled. The destination ends at a
// page that faults on any write past the capacity.
//   byte 0: function (HC, HCDictLimit, Dict, DictSafe) and level; byte 1: capacity;
//   bytes 2-3: history length; byte 4: dictLimit / split; the rest: history, then the source.
// Independent blocks are also compared with the walk that takes runs one candidate at a time.
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

#include "harness.hpp"
#include "lz4/hc.hpp"
#include "zyrdc.h"

#if defined(ZYRDC_HAVE_LIBLZ4)
#include <lz4.h>
#endif

namespace {

// `size` writable bytes ending right before an inaccessible page.
class GuardedDst {
public:
    explicit GuardedDst(size_t size) {
        const size_t page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
        const size_t pages = (size + page - 1) / page + 1;
        len_ = pages * page;
        base_ = static_cast<uint8_t*>(mmap(nullptr, len_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
        mprotect(base_ + (pages - 1) * page, page, PROT_NONE);
        data_ = base_ + (pages - 1) * page - size;
    }
    ~GuardedDst() { munmap(base_, len_); }
    GuardedDst(const GuardedDst&) = delete;
    GuardedDst& operator=(const GuardedDst&) = delete;
    uint8_t* data() { return data_; }

private:
    uint8_t* base_;
    uint8_t* data_;
    size_t len_;
};

// The block decodes to want[0, n) with `hist` bytes of history before it (in place).
void CheckDecodes(const uint8_t* block, int32_t len, const uint8_t* hist, int32_t histLen, const uint8_t* want,
                  int32_t n) {
    std::vector<uint8_t> out(static_cast<size_t>(histLen) + static_cast<size_t>(n) + 16);
    std::copy(hist, hist + histLen, out.begin());
    const std::vector<uint8_t> exact(block, block + len);
#if defined(ZYRDC_HAVE_LIBLZ4)
    char* const o = reinterpret_cast<char*>(out.data() + histLen);
    const int got = histLen == 0
        ? LZ4_decompress_safe(reinterpret_cast<const char*>(exact.data()), o, len, n)
        : LZ4_decompress_safe_usingDict(reinterpret_cast<const char*>(exact.data()), o, len, n,
                                        reinterpret_cast<const char*>(out.data()), histLen);
    FuzzCheck(got == n && std::equal(want, want + n, out.begin() + histLen));
#endif
    if (n == 0) {
        FuzzCheck(len == 1 && exact[0] == 0);
        return;
    }
    std::fill(out.begin() + histLen, out.end(), 0);
    int32_t srcLen = len, dstLen = n + 16;
    const ZyrStatus s = zyrsDecodeLZ4Dict_8u(exact.data(), &srcLen, out.data(), histLen, &dstLen,
                                             histLen != 0 ? out.data() : nullptr, histLen);
    FuzzCheck((s == StatusOk || s == StatusDstFull) && dstLen == n && std::equal(want, want + n, out.begin() + histLen));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 6) return 0;
    static std::vector<uint8_t> record(zyrdc::lz4::kHcRecordBytes), fresh(zyrdc::lz4::kHcRecordBytes);
    const int fn = data[0] % 4, level = 1 + data[0] / 4 % 12;
    const uint8_t capKnob = data[1], split = data[4];
    const uint8_t* const buf = data + 5;
    const auto total = static_cast<int32_t>(size - 5);
    const int32_t h = (data[2] | data[3] << 8) % total;  // at least one source byte
    const int32_t n = total - h;
    const int32_t worst = n + n / 255 + 16;
    const int32_t cap = capKnob >= 240 ? worst : 1 + static_cast<int32_t>(int64_t{capKnob} * worst / 240);
    GuardedDst dst(static_cast<size_t>(fn == 2 ? worst : cap));
    int32_t consumed = n, written = fn == 2 ? worst : cap;

    if (fn == 0 || fn == 1) {
        FuzzCheck(zyrsEncodeLZ4HCHashTableInit_8u(record.data()) == StatusOk);
        const int32_t dictLimit = fn == 0 ? 0 : split % (h + 1);
        ZyrStatus s;
        if (fn == 1 && h > dictLimit) {
            // Code a first linked block up to h, so that this block continues the record.
            int32_t first = h - dictLimit, firstCap = first + first / 255 + 16;
            std::vector<uint8_t> tmp(static_cast<size_t>(firstCap));
            FuzzCheck(zyrsEncodeLZ4HCDictLimit_8u(buf, dictLimit, &first, tmp.data(), &firstCap, record.data(), level,
                                                  dictLimit) == StatusOk);
            s = zyrsEncodeLZ4HCDictLimit_8u(buf, h, &consumed, dst.data(), &written, record.data(), level, dictLimit);
        } else {
            s = zyrsEncodeLZ4HC_8u(buf + h, &consumed, dst.data(), &written, record.data(), level);
        }
        FuzzCheck(s == (consumed < n ? StatusDstFull : StatusOk) && written <= cap && consumed >= 0);
        CheckDecodes(dst.data(), written, buf + dictLimit, fn == 0 ? 0 : h - dictLimit, buf + h, consumed);
        if (fn == 0) {
            // Runs judged a stretch at a time give the blocks of the walk candidate by candidate.
            FuzzCheck(zyrsEncodeLZ4HCHashTableInit_8u(fresh.data()) == StatusOk);
            std::vector<uint8_t> again(static_cast<size_t>(cap));
            const auto r = zyrdc::lz4::EncodeHc(fresh.data(), buf + h, 0, n, 0, false, again.data(), cap, level, true);
            FuzzCheck(r.consumed == consumed && r.written == written &&
                      std::equal(again.begin(), again.begin() + written, dst.data()));
        }
        if (fn == 1) {
            // The same block from a fresh record.
            FuzzCheck(zyrsEncodeLZ4HCHashTableInit_8u(fresh.data()) == StatusOk);
            std::vector<uint8_t> again(static_cast<size_t>(cap));
            int32_t c2 = n, w2 = cap;
            FuzzCheck(zyrsEncodeLZ4HCDictLimit_8u(buf, h, &c2, again.data(), &w2, fresh.data(), level, dictLimit) == s);
            FuzzCheck(c2 == consumed && w2 == written && std::equal(again.begin(), again.begin() + w2, dst.data()));
        }
        return 0;
    }

    // Dictionary encoders: the history is the dictionary (its last 64 KiB count).
    uint8_t table[16384];
    if (h > 0) {
        FuzzCheck(zyrsEncodeLZ4LoadDict_8u(buf, h, table) == StatusOk);
    } else {
        FuzzCheck(zyrsEncodeLZ4DictHashTableInit_8u(table) == StatusOk);
    }
    for (int i = 0; i < split % 8; ++i) {  // scramble some entries: any content must be safe
        const uint32_t x = static_cast<uint32_t>(data[(5 + 7 * i) % size]);
        const uint32_t v = i % 5 == 4 ? 0u - x : x << (8 * (i % 4));
        std::memcpy(table + 4 * ((split * 131 + i * 977) % 4096), &v, 4);
    }
    const int32_t reach = std::min(h, zyrdc::lz4::kDictWindow);
    if (fn == 2) {
        FuzzCheck(zyrsEncodeLZ4Dict_8u(buf + h, n, dst.data(), &written, table, h ? buf : nullptr, h) == StatusOk);
        FuzzCheck(written <= worst);
    } else {
        const ZyrStatus s = zyrsEncodeLZ4DictSafe_8u(buf + h, &consumed, dst.data(), &written, table, buf, h);
        FuzzCheck(s == (consumed < n ? StatusDstFull : StatusOk) && written <= cap && consumed >= 0);
    }
    CheckDecodes(dst.data(), written, buf + h - reach, reach, buf + h, consumed);
    return 0;
}
