// support.hpp - test helpers: guard-page buffers and deterministic data.
#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <algorithm>
#include <random>
#include <vector>

namespace zyrdc::test {

// A buffer of `size` bytes whose last byte sits just before an inaccessible page (or whose
// first byte sits just after one, with at_end false): a read or write past that edge faults
// at once instead of passing unnoticed.
class GuardedBuffer {
public:
    explicit GuardedBuffer(size_t size, bool at_end = true) : size_(size) {
        const size_t page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
        const size_t data_pages = (size + page - 1) / page;
        map_len_ = (data_pages + 2) * page;
        void* m = mmap(nullptr, map_len_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        base_ = static_cast<uint8_t*>(m);
        mprotect(base_, page, PROT_NONE);
        mprotect(base_ + (data_pages + 1) * page, page, PROT_NONE);
        data_ = at_end ? base_ + (data_pages + 1) * page - size : base_ + page;
    }
    ~GuardedBuffer() { munmap(base_, map_len_); }
    GuardedBuffer(const GuardedBuffer&) = delete;
    GuardedBuffer& operator=(const GuardedBuffer&) = delete;

    uint8_t* data() { return data_; }
    size_t size() const { return size_; }
    void fill(const std::vector<uint8_t>& v) { std::memcpy(data_, v.data(), v.size() < size_ ? v.size() : size_); }

private:
    uint8_t* base_ = nullptr;
    uint8_t* data_ = nullptr;
    size_t size_ = 0;
    size_t map_len_ = 0;
};

inline std::vector<uint8_t> RandomBytes(size_t n, uint32_t seed) {
    std::mt19937 rng(seed);
    std::vector<uint8_t> v(n);
    for (auto& b : v) {
        b = static_cast<uint8_t>(rng());
    }
    return v;
}

// Random cut points of [0, n) into at most `pieces` pieces, in ascending order, ending at n.
inline std::vector<size_t> RandomCuts(size_t n, int pieces, std::mt19937& rng) {
    std::vector<size_t> cuts;
    for (int i = 1; i < pieces && n > 0; ++i) {
        cuts.push_back(rng() % (n + 1));
    }
    cuts.push_back(n);
    std::sort(cuts.begin(), cuts.end());
    return cuts;
}

}  // namespace zyrdc::test
