// bench_lzss.cpp - LZSS coding per corpus file: the encoder in one call plus the flush, the
// decoder in one call, through one state record.
//
// Names: lzss_encode/zyrdc/FILE and lzss_decode/zyrdc/FILE. Bytes per second count the
// file's (decoded) bytes; the ratio counter is file size / coded size.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "corpus.hpp"
#include "zyrdc.h"

namespace {

struct Record {
    std::vector<uint64_t> mem = std::vector<uint64_t>((sizeof(LzssState) + 7) / 8);
    LzssState* get() { return reinterpret_cast<LzssState*>(mem.data()); }
};

size_t Encode(LzssState* st, const std::vector<uint8_t>& in, std::vector<uint8_t>& out) {
    zyrsEncodeLZSSInit_8u(st);
    const uint8_t* s = in.data();
    auto sl = static_cast<int32_t>(in.size());
    uint8_t* d = out.data();
    auto dl = static_cast<int32_t>(out.size());
    zyrsEncodeLZSS_8u(&s, &sl, &d, &dl, st);
    zyrsEncodeLZSSFlush_8u(&d, &dl, st);
    return static_cast<size_t>(d - out.data());
}

void BM_Lzss(benchmark::State& state, std::string file, bool decode) {
    const std::vector<uint8_t> data = zyrdc::bench::ReadCorpusFile(file);
    if (data.empty()) {
        state.SkipWithError("corpus file missing");
        return;
    }
    Record rec;
    const size_t bound = data.size() + data.size() / 8 + 16;  // 9 bits per byte at worst
    std::vector<uint8_t> coded(bound), scratch(bound), out(data.size());
    coded.resize(Encode(rec.get(), data, coded));
    for (auto _ : state) {
        if (decode) {
            zyrsDecodeLZSSInit_8u(rec.get());
            const uint8_t* s = coded.data();
            auto sl = static_cast<int32_t>(coded.size());
            uint8_t* d = out.data();
            auto dl = static_cast<int32_t>(out.size());
            benchmark::DoNotOptimize(zyrsDecodeLZSS_8u(&s, &sl, &d, &dl, rec.get()));
        } else {
            benchmark::DoNotOptimize(Encode(rec.get(), data, scratch));
        }
        benchmark::ClobberMemory();
    }
    if (decode && std::memcmp(out.data(), data.data(), data.size()) != 0) {
        state.SkipWithError("decoded bytes differ from the file");
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(data.size()));
    state.counters["ratio"] = static_cast<double>(data.size()) / static_cast<double>(coded.size());
}

bool RegisterAll() {
    for (bool decode : {false, true}) {
        for (const char* file : zyrdc::bench::kCorpusFiles) {
            const std::string id = std::string(decode ? "lzss_decode/zyrdc/" : "lzss_encode/zyrdc/") + file;
            benchmark::RegisterBenchmark(id.c_str(), BM_Lzss, std::string(file), decode);
        }
    }
    return true;
}

[[maybe_unused]] const bool kRegistered = RegisterAll();

}  // namespace
