// bench_lz4hc.cpp - the high-compression and dictionary LZ4 encoders against liblz4, one
// corpus file at a time:
//   lz4hc3/zyrdc/FILE, lz4hc3/liblz4/FILE    zyrsEncodeLZ4HC_8u / LZ4_compress_HC, level 3
//   lz4hc9/..., lz4hc12/...                   the same at levels 9 and 12
//   lz4dict/zyrdc/FILE, lz4dict/liblz4/FILE   4 KiB records after a 64 KiB dictionary
//     (the file's first 64 KiB; records from the following bytes, at most 1 MiB of them):
//     ours copies a pristine table loaded by zyrsEncodeLZ4LoadDict_8u and calls
//     zyrsEncodeLZ4Dict_8u; liblz4 copies a pristine stream loaded by LZ4_loadDict and calls
//     LZ4_compress_fast_continue (acceleration 1): the same work on both sides.
// Every file is one block for the HC rows, as LZ4_compress_HC takes it; the HC rows run once
// (one iteration). Speeds count uncompressed bytes; "compressed" is the total size.
// bench/lz4_ratios.py-style tables: bench/lz4hc_table.py.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "corpus.hpp"
#include "zyrdc.h"

#if defined(ZYRDC_HAVE_LIBLZ4)
#include <lz4.h>
#include <lz4hc.h>
#endif

namespace {

using Bytes = std::vector<uint8_t>;

constexpr size_t kDictBytes = 65536, kRecord = 4096, kRecordsMax = size_t{1} << 20;

size_t Worst(size_t n) { return n + n / 255 + 16; }

void BM_HcZyrdc(benchmark::State& state, const Bytes* data, int level) {
    int32_t recSize = 0;
    zyrsEncodeLZ4HCHashTableGetSize_8u(&recSize);
    Bytes rec(static_cast<size_t>(recSize)), out(Worst(data->size()), 0);
    int32_t size = 0;
    for (auto _ : state) {
        zyrsEncodeLZ4HCHashTableInit_8u(rec.data());
        int32_t n = static_cast<int32_t>(data->size());
        size = static_cast<int32_t>(out.size());
        zyrsEncodeLZ4HC_8u(data->data(), &n, out.data(), &size, rec.data(), level);
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(data->size()));
    state.counters["compressed"] = size;
}

void BM_DictZyrdc(benchmark::State& state, const Bytes* data) {
    uint8_t pristine[16384], table[16384];
    zyrsEncodeLZ4LoadDict_8u(data->data(), kDictBytes, pristine);
    Bytes out(Worst(kRecord));
    const size_t end = std::min(data->size(), kDictBytes + kRecordsMax);
    int64_t total = 0;
    for (auto _ : state) {
        total = 0;
        for (size_t at = kDictBytes; at < end; at += kRecord) {
            const auto n = static_cast<int32_t>(std::min(kRecord, end - at));
            std::memcpy(table, pristine, sizeof table);
            int32_t len = 0;
            zyrsEncodeLZ4Dict_8u(data->data() + at, n, out.data(), &len, table, data->data(), kDictBytes);
            total += len;
        }
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(end - kDictBytes));
    state.counters["compressed"] = static_cast<double>(total);
}

#if defined(ZYRDC_HAVE_LIBLZ4)
void BM_HcPeer(benchmark::State& state, const Bytes* data, int level) {
    Bytes out(Worst(data->size()), 0);
    int size = 0;
    for (auto _ : state) {
        size = LZ4_compress_HC(reinterpret_cast<const char*>(data->data()), reinterpret_cast<char*>(out.data()),
                               static_cast<int>(data->size()), static_cast<int>(out.size()), level);
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(data->size()));
    state.counters["compressed"] = size;
}

void BM_DictPeer(benchmark::State& state, const Bytes* data) {
    LZ4_stream_t pristine, stream;
    LZ4_initStream(&pristine, sizeof pristine);
    LZ4_loadDict(&pristine, reinterpret_cast<const char*>(data->data()), kDictBytes);
    Bytes out(Worst(kRecord));
    const size_t end = std::min(data->size(), kDictBytes + kRecordsMax);
    int64_t total = 0;
    for (auto _ : state) {
        total = 0;
        for (size_t at = kDictBytes; at < end; at += kRecord) {
            const auto n = static_cast<int>(std::min(kRecord, end - at));
            std::memcpy(&stream, &pristine, sizeof stream);
            total += LZ4_compress_fast_continue(&stream, reinterpret_cast<const char*>(data->data() + at),
                                                reinterpret_cast<char*>(out.data()), n,
                                                static_cast<int>(out.size()), 1);
        }
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(end - kDictBytes));
    state.counters["compressed"] = static_cast<double>(total);
}
#endif

bool RegisterAll() {
    static std::vector<std::pair<std::string, Bytes>> files;
    for (const char* name : zyrdc::bench::kCorpusFiles) {
        Bytes data = zyrdc::bench::ReadCorpusFile(name);
        if (!data.empty()) files.emplace_back(name, std::move(data));
    }
    for (const auto& [name, data] : files) {
        for (int level : {3, 9, 12}) {
            const std::string family = "lz4hc" + std::to_string(level);
            benchmark::RegisterBenchmark((family + "/zyrdc/" + name).c_str(), BM_HcZyrdc, &data, level)->Iterations(1);
#if defined(ZYRDC_HAVE_LIBLZ4)
            benchmark::RegisterBenchmark((family + "/liblz4/" + name).c_str(), BM_HcPeer, &data, level)->Iterations(1);
#endif
        }
        if (data.size() > kDictBytes + kRecord) {
            benchmark::RegisterBenchmark(("lz4dict/zyrdc/" + name).c_str(), BM_DictZyrdc, &data);
#if defined(ZYRDC_HAVE_LIBLZ4)
            benchmark::RegisterBenchmark(("lz4dict/liblz4/" + name).c_str(), BM_DictPeer, &data);
#endif
        }
    }
    return true;
}

[[maybe_unused]] const bool kRegistered = RegisterAll();

}  // namespace
