// bench_checksum.cpp - throughput of the checksums, side by side in one binary: the four
// exported entry points, the internal scalar twins for context, zlib and libdeflate where
// this build found them, and memcpy as the memory-bandwidth ceiling.
//
// Names read family/implementation/bytes, so that one family lines up in the output:
//   adler32/zyrdc/65536         zyrsAdler32_8u (SSE2 kernel behind the C entry point)
//   adler32/zyrdc_scalar/65536  Adler32Scalar, the scalar twin
//   adler32/zlib/65536          zlib adler32()
//   adler32/libdeflate/65536    libdeflate_adler32()
//   crc32/zyrdc, crc32c/zyrdc, crc32_bzip2/zyrdc   the exported CRCs (interleaved lanes)
//   .../zyrdc_sliced, .../zyrdc_bytewise           CrcSliced (one lane), CrcBytewise
//   crc32/zlib, crc32/libdeflate                   the peers' CRC-32 (they have no CRC-32C
//                                                  or bzip2 CRC; those compare against it)
//   memcpy/libc/65536           copies the bytes; "bytes" counts the bytes copied once
// See bench/README.md for how to run with a filter and turn the output into ratios.
#include <benchmark/benchmark.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <random>

#include "checksum/checksum.hpp"
#include "zyrdc.h"

#if defined(ZYRDC_HAVE_ZLIB)
#include <zlib.h>
#endif
#if defined(ZYRDC_HAVE_LIBDEFLATE)
#include <libdeflate.h>
#endif

namespace {

using zyrdc::checksum::CrcKind;

// 4 KiB sits in L1, 64 KiB in L2, 1 MiB in L2/L3, 64 MiB only in memory.
constexpr int64_t kSizes[] = {int64_t{4} << 10, int64_t{64} << 10, int64_t{1} << 20,
                              int64_t{64} << 20};
constexpr size_t kMaxBytes = size_t{64} << 20;
constexpr size_t kAlign = 64;
constexpr uint32_t kSeed = 0x2D1B7C05u;

// One source and one destination of the largest size; every size reads a prefix of them.
//
// Both start on a 64-byte (cache-line) boundary so that every implementation, every size and
// every run sees the same start. The kernels and the peers each walk a misaligned head a byte
// or a word at a time before their main loop, and a start that straddles cache lines touches
// one more line; with whatever address malloc happened to return, the small sizes would time
// a varying mix of head code and main loop, and two runs (or two builds) would not compare.
// Aligned, the numbers are those of the main loops. Misaligned starts are the tests' concern.
struct Buffers {
    uint8_t* src = nullptr;
    uint8_t* dst = nullptr;
};

const Buffers& GetBuffers() {
    static const Buffers buffers = [] {
        Buffers b;
        b.src = static_cast<uint8_t*>(std::aligned_alloc(kAlign, kMaxBytes));
        b.dst = static_cast<uint8_t*>(std::aligned_alloc(kAlign, kMaxBytes));
        if (b.src == nullptr || b.dst == nullptr) {
            std::abort();
        }
        // Random bytes from a fixed seed: the same content on every run and in both builds.
        std::mt19937 rng(kSeed);
        for (size_t i = 0; i < kMaxBytes; i += 4) {
            const uint32_t v = static_cast<uint32_t>(rng());
            std::memcpy(b.src + i, &v, sizeof v);
        }
        // Touch every destination page now rather than inside a timed loop.
        std::memset(b.dst, 0, kMaxBytes);
        return b;
    }();
    return buffers;
}

// Every checksum is called from its start value over the whole buffer, once per iteration.
using Kernel = uint32_t (*)(const uint8_t* p, size_t n);

void BM_Checksum(benchmark::State& state, Kernel kernel) {
    const size_t n = static_cast<size_t>(state.range(0));
    const uint8_t* p = GetBuffers().src;
    for (auto _ : state) {
        uint32_t v = kernel(p, n);
        benchmark::DoNotOptimize(v);
    }
    state.SetBytesProcessed(state.iterations() * state.range(0));
}

void BM_Memcpy(benchmark::State& state) {
    const size_t n = static_cast<size_t>(state.range(0));
    const Buffers& b = GetBuffers();
    for (auto _ : state) {
        std::memcpy(b.dst, b.src, n);
        benchmark::DoNotOptimize(b.dst);
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * state.range(0));
}

// ---- our exported entry points -----------------------------------------------------------
// The status is ignored: every call here has valid arguments.

uint32_t ZyrAdler32(const uint8_t* p, size_t n) {
    uint32_t v = 1;
    zyrsAdler32_8u(p, static_cast<int32_t>(n), &v);
    return v;
}
uint32_t ZyrCrc32(const uint8_t* p, size_t n) {
    uint32_t v = 0;
    zyrsCRC32_8u(p, static_cast<int32_t>(n), &v);
    return v;
}
uint32_t ZyrCrc32C(const uint8_t* p, size_t n) {
    uint32_t v = 0xFFFFFFFFu;
    zyrsCRC32C_8u(p, static_cast<int32_t>(n), &v);
    return v;
}
uint32_t ZyrBzip2(const uint8_t* p, size_t n) {
    uint32_t v = 0;
    zyrsCRC32_BZ2_8u(p, static_cast<int32_t>(n), &v);
    return v;
}

// ---- our internal scalar twins (raw register updates) ------------------------------------

uint32_t ScalarAdler32(const uint8_t* p, size_t n) {
    return zyrdc::checksum::Adler32Scalar(1, p, n);
}
template <CrcKind kKind>
uint32_t SlicedCrc(const uint8_t* p, size_t n) {
    return zyrdc::checksum::CrcSliced(kKind, 0xFFFFFFFFu, p, n);
}
template <CrcKind kKind>
uint32_t BytewiseCrc(const uint8_t* p, size_t n) {
    return zyrdc::checksum::CrcBytewise(kKind, 0xFFFFFFFFu, p, n);
}

// ---- peers ---------------------------------------------------------------------------------

#if defined(ZYRDC_HAVE_ZLIB)
uint32_t ZlibAdler32(const uint8_t* p, size_t n) {
    return static_cast<uint32_t>(adler32(1, p, static_cast<uInt>(n)));
}
uint32_t ZlibCrc32(const uint8_t* p, size_t n) {
    return static_cast<uint32_t>(crc32(0, p, static_cast<uInt>(n)));
}
#endif
#if defined(ZYRDC_HAVE_LIBDEFLATE)
uint32_t LibdeflateAdler32(const uint8_t* p, size_t n) { return libdeflate_adler32(1, p, n); }
uint32_t LibdeflateCrc32(const uint8_t* p, size_t n) { return libdeflate_crc32(0, p, n); }
#endif

struct Entry {
    const char* name;
    Kernel kernel;
};

// Registration order is output order: each family together, ours first.
const Entry kEntries[] = {
    {"adler32/zyrdc", ZyrAdler32},
    {"adler32/zyrdc_scalar", ScalarAdler32},
#if defined(ZYRDC_HAVE_ZLIB)
    {"adler32/zlib", ZlibAdler32},
#endif
#if defined(ZYRDC_HAVE_LIBDEFLATE)
    {"adler32/libdeflate", LibdeflateAdler32},
#endif
    {"crc32/zyrdc", ZyrCrc32},
    {"crc32/zyrdc_sliced", SlicedCrc<CrcKind::Crc32>},
    {"crc32/zyrdc_bytewise", BytewiseCrc<CrcKind::Crc32>},
#if defined(ZYRDC_HAVE_ZLIB)
    {"crc32/zlib", ZlibCrc32},
#endif
#if defined(ZYRDC_HAVE_LIBDEFLATE)
    {"crc32/libdeflate", LibdeflateCrc32},
#endif
    {"crc32c/zyrdc", ZyrCrc32C},
    {"crc32c/zyrdc_sliced", SlicedCrc<CrcKind::Crc32C>},
    {"crc32c/zyrdc_bytewise", BytewiseCrc<CrcKind::Crc32C>},
    {"crc32_bzip2/zyrdc", ZyrBzip2},
    {"crc32_bzip2/zyrdc_sliced", SlicedCrc<CrcKind::Bzip2>},
    {"crc32_bzip2/zyrdc_bytewise", BytewiseCrc<CrcKind::Bzip2>},
};

bool RegisterAll() {
    benchmark::AddCustomContext("zyrdc_build", sizeof(void*) == 8 ? "x86-64" : "i686");
#if defined(ZYRDC_HAVE_ZLIB)
    benchmark::AddCustomContext("zlib", ZLIB_VERSION);
#else
    benchmark::AddCustomContext("zlib", "not found for this build");
#endif
#if defined(ZYRDC_HAVE_LIBDEFLATE)
    benchmark::AddCustomContext("libdeflate", LIBDEFLATE_VERSION_STRING);
#else
    benchmark::AddCustomContext("libdeflate", "not found for this build");
#endif
    for (const Entry& e : kEntries) {
        benchmark::internal::Benchmark* b = benchmark::RegisterBenchmark(e.name, BM_Checksum, e.kernel);
        for (const int64_t size : kSizes) {
            b->Arg(size);
        }
    }
    benchmark::internal::Benchmark* m = benchmark::RegisterBenchmark("memcpy/libc", BM_Memcpy);
    for (const int64_t size : kSizes) {
        m->Arg(size);
    }
    return true;
}

[[maybe_unused]] const bool kRegistered = RegisterAll();

}  // namespace
