// bench_lzo_encode.cpp - LZO1X encoding per corpus file, side by side in one binary: our
// three methods against liblzo2's lzo1x_1_compress and lzo1x_999_compress, and the segmented
// container decoded by its caller segment by segment on 1 and 2 threads.
//
// Names read family/implementation/file:
//   lzo_encode/zyrdc_fast/alice29.txt       zyrsEncodeLZO_8u, LzoMethodFast
//   lzo_encode/lzo2_1/alice29.txt           lzo1x_1_compress
//   lzo_encode/zyrdc_segmented8/...         LzoMethodSegmented (one segment per 64 KiB)
//   lzo_encode/zyrdc_high/...               LzoMethodHigh
//   lzo_encode/lzo2_999/...                 lzo1x_999_compress
//   lzo_segments/threads1|threads2/...      a container of the first 512 KiB (8 segments)
//                                           decoded by the caller, segment by segment with
//                                           zyrsDecodeLZOSafe_8u, on 1 or 2 threads
// Bytes per second count the file's bytes; the ratio counter is file size / coded size.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "core/bits.hpp"
#include "corpus.hpp"
#include "lzo/encode.hpp"
#include "zyrdc.h"

#if defined(ZYRDC_HAVE_LZO2)
#include <lzo/lzo1x.h>

namespace {

enum class Impl { Fast, Segmented, High, Lzo2_1, Lzo2_999 };

size_t EncodeOnce(Impl impl, const std::vector<uint8_t>& data, std::vector<uint8_t>& out,
                  std::vector<uint8_t>& work) {
    const auto n = static_cast<uint32_t>(data.size());
    if (impl == Impl::Lzo2_1 || impl == Impl::Lzo2_999) {
        lzo_uint len = out.size();
        if (impl == Impl::Lzo2_1) {
            lzo1x_1_compress(data.data(), n, out.data(), &len, work.data());
        } else {
            lzo1x_999_compress(data.data(), n, out.data(), &len, work.data());
        }
        return len;
    }
    uint32_t len = static_cast<uint32_t>(out.size());
    zyrsEncodeLZO_8u(data.data(), n, out.data(), &len, work.data());
    return len;
}

void BM_Encode(benchmark::State& state, std::string file, Impl impl) {
    const std::vector<uint8_t> data = zyrdc::bench::ReadCorpusFile(file);
    if (data.empty()) {
        state.SkipWithError("corpus file missing");
        return;
    }
    const auto n = static_cast<uint32_t>(data.size());
    std::vector<uint8_t> out(ZYRDC_LZO_SEGMENTED_BOUND(size_t{n}));
    std::vector<uint8_t> work(LZO1X_999_MEM_COMPRESS + 300000);
    const int32_t method = impl == Impl::Fast ? LzoMethodFast : impl == Impl::Segmented ? LzoMethodSegmented : LzoMethodHigh;
    zyrsEncodeLZOInit_8u(method, n, work.data());
    size_t len = 0;
    for (auto _ : state) {
        len = EncodeOnce(impl, data, out, work);
        benchmark::DoNotOptimize(out.data());
        benchmark::ClobberMemory();
    }
    // Every coded file must come back (checked once, outside the timing).
    std::vector<uint8_t> back(n + 16);
    lzo_uint blen = back.size();
    const bool ok = impl == Impl::Segmented
                        ? [&] { uint32_t l = static_cast<uint32_t>(back.size());
                                return zyrsDecodeLZOSafe_8u(out.data(), static_cast<uint32_t>(len), back.data(), &l) == StatusOk && l == n; }()
                        : lzo1x_decompress_safe(out.data(), len, back.data(), &blen, nullptr) == LZO_E_OK && blen == n;
    if (!ok || std::memcmp(back.data(), data.data(), n) != 0) state.SkipWithError("round trip failed");
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * n);
    state.counters["ratio"] = static_cast<double>(n) / static_cast<double>(len);
}

// The caller's side of the container: the file's first 512 KiB (8 segments of 64 KiB; fewer
// for shorter files) as one container, whose segments the caller decodes, each alone into
// its slice, on 1 or 2 threads.
void BM_Segments(benchmark::State& state, std::string file, int threads) {
    std::vector<uint8_t> data = zyrdc::bench::ReadCorpusFile(file);
    if (data.empty()) {
        state.SkipWithError("corpus file missing");
        return;
    }
    data.resize(std::min<size_t>(data.size(), 8 << 16));
    const auto n = static_cast<uint32_t>(data.size());
    std::vector<uint8_t> coded(ZYRDC_LZO_SEGMENTED_BOUND(size_t{n})), work(65600);
    zyrsEncodeLZOInit_8u(LzoMethodSegmented, n, work.data());
    uint32_t codedLen = static_cast<uint32_t>(coded.size());
    zyrsEncodeLZO_8u(data.data(), n, coded.data(), &codedLen, work.data());
    // Header: tag, count, count ^ tag, total, the sizes of all segments but the last.
    const uint32_t segments = coded[1];
    const size_t share = n / segments;
    std::vector<size_t> at(segments + 1, 3 + 4 * size_t{segments});
    for (uint32_t i = 0; i < segments; ++i) {
        at[i + 1] = i + 1 < segments ? at[i] + zyrdc::load_u32le(coded.data() + 7 + 4 * i) : codedLen;
    }
    std::vector<uint8_t> out(n);
    auto decode = [&](uint32_t first, uint32_t step) {
        for (uint32_t i = first; i < segments; i += step) {
            uint32_t room = static_cast<uint32_t>(i + 1 < segments ? share : n - i * share);
            zyrsDecodeLZOSafe_8u(coded.data() + at[i], static_cast<uint32_t>(at[i + 1] - at[i]),
                                 out.data() + i * share, &room);
        }
    };
    for (auto _ : state) {
        if (threads == 1) {
            decode(0, 1);
        } else {
            std::thread other(decode, 1, 2);
            decode(0, 2);
            other.join();
        }
        benchmark::ClobberMemory();
    }
    if (out != data) state.SkipWithError("decoded bytes differ from the file");
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(n));
    state.counters["segments"] = segments;
}

bool RegisterAll() {
    if (lzo_init() != LZO_E_OK) return false;
    const std::pair<const char*, Impl> impls[] = {{"zyrdc_fast", Impl::Fast},       {"lzo2_1", Impl::Lzo2_1},
                                                  {"zyrdc_segmented", Impl::Segmented}, {"zyrdc_high", Impl::High},
                                                  {"lzo2_999", Impl::Lzo2_999}};
    for (const char* file : zyrdc::bench::kCorpusFiles) {
        for (const auto& [name, impl] : impls) {
            const std::string id = std::string("lzo_encode/") + name + "/" + file;
            benchmark::RegisterBenchmark(id.c_str(), BM_Encode, std::string(file), impl);
        }
        for (int threads : {1, 2}) {
            const std::string id = "lzo_segments/threads" + std::to_string(threads) + "/" + file;
            benchmark::RegisterBenchmark(id.c_str(), BM_Segments, std::string(file), threads)->UseRealTime();
        }
    }
    return true;
}

[[maybe_unused]] const bool kRegistered = RegisterAll();

}  // namespace
#endif
