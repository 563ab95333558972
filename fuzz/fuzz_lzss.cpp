// fuzz_lzss.cpp - the LZSS decoder on arbitrary streams fed in random pieces into random
// rooms (no crash, no access outside the buffers, the same bytes as one call with ample
// room), and the encoder's output of the input decoding back to it across random splits.
// The first input byte seeds the splits.
#include <cstddef>
#include <cstdint>
#include <algorithm>
#include <cstring>
#include <random>
#include <vector>

#include "harness.hpp"
#include "zyrdc.h"

namespace {

void Check(bool ok) {
    if (!ok) __builtin_trap();
}

// State records come from a small pool cleared on each use: a fresh 320 KiB allocation per
// record would cost the fuzzer most of its time in the allocator.
class Record {
public:
    explicit Record(int slot) : st_(reinterpret_cast<LzssState*>(Pool()[slot].data())) {
        std::memset(static_cast<void*>(st_), 0, sizeof(LzssState));
    }
    LzssState* get() { return st_; }

private:
    static std::vector<uint64_t>* Pool() {
        static std::vector<uint64_t> pool[2] = {std::vector<uint64_t>((sizeof(LzssState) + 7) / 8),
                                                std::vector<uint64_t>((sizeof(LzssState) + 7) / 8)};
        return pool;
    }
    LzssState* st_;
};

// Decodes z in pieces of at most maxSrc bytes into rooms of at most maxRoom bytes (0: the
// whole source at once, rooms of up to 64 KiB), until `limit` bytes of output are passed.
std::vector<uint8_t> Decode(const std::vector<uint8_t>& z, size_t limit, std::mt19937& rng, uint32_t maxSrc,
                            uint32_t maxRoom) {
    Record rec(0);
    Check(zyrsDecodeLZSSInit_8u(rec.get()) == StatusOk);
    std::vector<uint8_t> out;
    static const uint8_t kNothing = 0;
    const uint8_t* s = z.empty() ? &kNothing : z.data();  // an empty source is still a pointer
    int32_t left = static_cast<int32_t>(z.size());
    for (;;) {
        int32_t sl = maxSrc == 0 ? left : (left == 0 ? 0 : 1 + static_cast<int32_t>(rng() % maxSrc) % left);
        const int32_t room = maxRoom == 0 ? static_cast<int32_t>(std::min<size_t>(limit + 1, 1 << 16))
                                          : 1 + static_cast<int32_t>(rng() % maxRoom);
        std::vector<uint8_t> piece(static_cast<size_t>(room));  // ends at its allocation
        uint8_t* d = piece.data();
        int32_t dl = room;
        const int32_t gave = sl;
        const ZyrStatus r = zyrsDecodeLZSS_8u(&s, &sl, &d, &dl, rec.get());
        Check(r == StatusOk || (r == StatusDstFull && dl == 0));
        out.insert(out.end(), piece.data(), d);
        left -= gave - sl;
        if ((r == StatusOk && left == 0) || out.size() > limit) break;
    }
    return out;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 1) return 0;
    std::mt19937 rng(data[0]);
    const std::vector<uint8_t> in(data + 1, data + size);
    // The input as a stream: any split decodes to what one call decodes.
    const std::vector<uint8_t> whole = Decode(in, 1 << 16, rng, 0, 0);
    const std::vector<uint8_t> split = Decode(in, 1 << 16, rng, 1 + data[0] % 16, 1 + data[0] % 300);
    // Both stop once past the limit, perhaps at different points.
    const size_t common = std::min(whole.size(), split.size());
    Check(common == 0 || std::memcmp(whole.data(), split.data(), common) == 0);
    Check(whole.size() == split.size() || common > (1 << 16));
    // The input as data: coded in random pieces into random rooms, it decodes back.
    Record rec(1);
    Check(zyrsEncodeLZSSInit_8u(rec.get()) == StatusOk);
    std::vector<uint8_t> z(in.size() * 2 + 16);
    uint8_t* d = z.data();
    const uint8_t* s = in.data();
    for (int32_t left = static_cast<int32_t>(in.size()); left > 0;) {
        int32_t sl = 1 + static_cast<int32_t>(rng() % 5000) % left;
        const int32_t gave = sl;
        ZyrStatus r;
        do {
            int32_t dl = 1 + static_cast<int32_t>(rng() % 64);
            dl = std::min<int32_t>(dl, static_cast<int32_t>(z.data() + z.size() - d));
            r = zyrsEncodeLZSS_8u(&s, &sl, &d, &dl, rec.get());
        } while (r == StatusDstFull);
        Check(r == StatusOk && sl == 0);
        left -= gave;
    }
    for (ZyrStatus r = StatusDstFull; r == StatusDstFull;) {
        int32_t dl = 1;
        r = zyrsEncodeLZSSFlush_8u(&d, &dl, rec.get());
    }
    z.resize(static_cast<size_t>(d - z.data()));
    Check(Decode(z, in.size(), rng, 0, 0) == in);
    return 0;
}
