// bench_lzo.cpp - LZO1X decoding per corpus file, side by side in one binary: our checked
// and trusted decoders against liblzo2's lzo1x_decompress_safe and lzo1x_decompress, on
// streams from lzo1x_1_compress and from lzo1x_999_compress (each file one stream).
//
// Names read family/implementation/file:
//   lzo1x_1/zyrdc_safe/alice29.txt     zyrsDecodeLZOSafe_8u on the lzo1x_1 stream
//   lzo1x_1/lzo2_safe/alice29.txt      lzo1x_decompress_safe on the same stream
//   lzo1x_1/zyrdc/alice29.txt          zyrsDecodeLZO_8u (no checks)
//   lzo1x_1/lzo2/alice29.txt           lzo1x_decompress
//   lzo1x_999/...                      the same on the lzo1x_999 stream
// Bytes per second count decoded bytes; the ratio counter is file size / stream size.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "corpus.hpp"
#include "zyrdc.h"

#if defined(ZYRDC_HAVE_LZO2)
#include <lzo/lzo1x.h>

namespace {

struct Prepared {
    std::vector<uint8_t> data, stream;
};

// Files coded on first use and kept: 999 takes seconds on the larger files.
const Prepared& Get(const std::string& file, bool best) {
    static std::map<std::pair<std::string, bool>, Prepared> cache;
    Prepared& p = cache[{file, best}];
    if (p.data.empty()) {
        p.data = zyrdc::bench::ReadCorpusFile(file);
        std::vector<uint8_t> work(LZO1X_999_MEM_COMPRESS);
        p.stream.resize(p.data.size() + p.data.size() / 16 + 67);
        lzo_uint len = p.stream.size();
        if (best) {
            lzo1x_999_compress(p.data.data(), p.data.size(), p.stream.data(), &len, work.data());
        } else {
            lzo1x_1_compress(p.data.data(), p.data.size(), p.stream.data(), &len, work.data());
        }
        p.stream.resize(len);
    }
    return p;
}

enum class Impl { ZyrdcSafe, Lzo2Safe, Zyrdc, Lzo2 };

void BM_Decode(benchmark::State& state, std::string file, bool best, Impl impl) {
    const Prepared& p = Get(file, best);
    if (p.data.empty()) {
        state.SkipWithError("corpus file missing");
        return;
    }
    std::vector<uint8_t> out(p.data.size());
    const auto n = static_cast<uint32_t>(p.stream.size());
    for (auto _ : state) {
        uint32_t len = static_cast<uint32_t>(out.size());
        lzo_uint olen = out.size();
        int r = 0;
        switch (impl) {
            case Impl::ZyrdcSafe: r = zyrsDecodeLZOSafe_8u(p.stream.data(), n, out.data(), &len); break;
            case Impl::Zyrdc: r = zyrsDecodeLZO_8u(p.stream.data(), n, out.data(), &len); break;
            case Impl::Lzo2Safe: r = lzo1x_decompress_safe(p.stream.data(), n, out.data(), &olen, nullptr); break;
            case Impl::Lzo2: r = lzo1x_decompress(p.stream.data(), n, out.data(), &olen, nullptr); break;
        }
        benchmark::DoNotOptimize(r);
        benchmark::ClobberMemory();
    }
    if (std::memcmp(out.data(), p.data.data(), out.size()) != 0) {
        state.SkipWithError("decoded bytes differ from the file");
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(p.data.size()));
    state.counters["ratio"] = static_cast<double>(p.data.size()) / static_cast<double>(p.stream.size());
}

bool RegisterAll() {
    if (lzo_init() != LZO_E_OK) return false;
    benchmark::AddCustomContext("lzo2", LZO_VERSION_STRING);
    const std::pair<const char*, Impl> impls[] = {{"zyrdc_safe", Impl::ZyrdcSafe}, {"lzo2_safe", Impl::Lzo2Safe},
                                                  {"zyrdc", Impl::Zyrdc}, {"lzo2", Impl::Lzo2}};
    for (bool best : {false, true}) {
        for (const char* file : zyrdc::bench::kCorpusFiles) {
            for (const auto& [name, impl] : impls) {
                const std::string id = std::string(best ? "lzo1x_999/" : "lzo1x_1/") + name + "/" + file;
                benchmark::RegisterBenchmark(id.c_str(), BM_Decode, std::string(file), best, impl);
            }
        }
    }
    return true;
}

[[maybe_unused]] const bool kRegistered = RegisterAll();

}  // namespace
#endif
