// guarded.hpp - a buffer whose last byte sits just before an inaccessible page, so that a
// read or write one byte past it faults; it can be made read-only while a call runs.
#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstring>

class GuardedRegion {
public:
    explicit GuardedRegion(size_t capacity) {
        page_ = static_cast<size_t>(sysconf(_SC_PAGESIZE));
        dataPages_ = (capacity + page_ - 1) / page_;
        len_ = (dataPages_ + 1) * page_;
        base_ = static_cast<uint8_t*>(mmap(nullptr, len_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
        mprotect(base_ + dataPages_ * page_, page_, PROT_NONE);
    }
    ~GuardedRegion() { munmap(base_, len_); }
    GuardedRegion(const GuardedRegion&) = delete;
    GuardedRegion& operator=(const GuardedRegion&) = delete;
    // Room for n bytes ending at the guard page.
    uint8_t* End(size_t n) { return base_ + dataPages_ * page_ - n; }
    // Copies bytes so that they end at the guard page; returns where they start.
    const uint8_t* Place(const uint8_t* p, size_t n) {
        if (n) std::memcpy(End(n), p, n);
        return End(n);
    }
    void ReadOnly(bool on) { mprotect(base_, dataPages_ * page_, on ? PROT_READ : PROT_READ | PROT_WRITE); }

private:
    size_t page_, dataPages_, len_;
    uint8_t* base_;
};
