// bench_copy.cpp - the shared copy and zero-fill routines against the C library's memcpy and
// memset, at the lengths where the copy kernel decides between cached and streaming stores:
//   copy/zyrdc/N   CopyBytes_8u      copy/libc/N   memcpy
//   fill/zyrdc/N   ZeroFill_32u      fill/libc/N   memset
// "bytes" counts the bytes written once. Source and destination are 64-byte aligned and do
// not overlap; every pass writes the same destination, as a codec's output buffer is reused.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "core/copy.hpp"

namespace {

constexpr int64_t kLargest = int64_t{64} << 20;

struct Buffers {
    uint8_t* src;
    uint8_t* dst;
};

const Buffers& GetBuffers() {
    static const Buffers buffers = [] {
        auto* src = static_cast<uint8_t*>(std::aligned_alloc(64, kLargest));
        auto* dst = static_cast<uint8_t*>(std::aligned_alloc(64, kLargest));
        for (int64_t i = 0; i < kLargest; ++i) {
            src[i] = static_cast<uint8_t>(i * 131 + (i >> 9));
        }
        std::memset(dst, 1, kLargest);
        return Buffers{src, dst};
    }();
    return buffers;
}

template <bool kOurs>
void BM_Copy(benchmark::State& state) {
    const Buffers& b = GetBuffers();
    const auto n = static_cast<int32_t>(state.range(0));
    for (auto _ : state) {
        if constexpr (kOurs) {
            benchmark::DoNotOptimize(zyrdc::CopyBytes_8u(b.src, b.dst, n));
        } else {
            std::memcpy(b.dst, b.src, static_cast<size_t>(n));
        }
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * state.range(0));
}

template <bool kOurs>
void BM_Fill(benchmark::State& state) {
    const Buffers& b = GetBuffers();
    const auto n = static_cast<int32_t>(state.range(0));
    for (auto _ : state) {
        if constexpr (kOurs) {
            benchmark::DoNotOptimize(zyrdc::ZeroFill_32u(reinterpret_cast<uint32_t*>(b.dst), n / 4));
        } else {
            std::memset(b.dst, 0, static_cast<size_t>(n));
        }
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * state.range(0));
}

void Sizes(benchmark::internal::Benchmark* b) {
    for (int64_t n = int64_t{128} << 10; n <= kLargest; n *= 8) {
        b->Arg(n);
    }
}

BENCHMARK_TEMPLATE(BM_Copy, true)->Name("copy/zyrdc")->Apply(Sizes);
BENCHMARK_TEMPLATE(BM_Copy, false)->Name("copy/libc")->Apply(Sizes);
BENCHMARK_TEMPLATE(BM_Fill, true)->Name("fill/zyrdc")->Apply(Sizes);
BENCHMARK_TEMPLATE(BM_Fill, false)->Name("fill/libc")->Apply(Sizes);

}  // namespace
