// bench_inflate.cpp - Inflate and the single-pass Deflate writer per corpus file, side by
// side with the peers in one binary.
//
// Names read family/implementation/stream/file:
//   inflate/zyrdc/zlib6/bible.txt        zyrsInflate_8u, one call over zlib level 6's stream
//   inflate/zyrdc_stream64k/zlib6/...    the same through a 64 KiB output buffer with a
//                                        sliding 32 KiB history, the source given whole
//   inflate/zlib/zlib6/...               zlib's inflate (raw), one call
//   inflate/libdeflate/zlib6/...         libdeflate_deflate_decompress
// with streams zlib1, zlib6, zlib9 (zlib's raw deflate) and ld12 (libdeflate level 12).
//   fastest/zyrdc/bible.txt              the single-pass writer: per 256 KiB block GetStat on
//                                        its first 16 KiB, codes for every symbol, header,
//                                        zyrsDeflateLZ77Fastest_8u
//   fastest/zlib_L1/..., fastest/libdeflate_L1/...   the peers' fastest levels
// bytes_per_second counts decoded bytes (the file's size) in both families; "ratio" is the
// compressed size over the file's size. bench/inflate_table.py turns a JSON run into tables.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstring>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "corpus.hpp"
#include "zyrdc.h"

#if defined(ZYRDC_HAVE_ZLIB)
#include <zlib.h>
#endif
#if defined(ZYRDC_HAVE_LIBDEFLATE)
#include <libdeflate.h>
#endif

namespace {

using Bytes = std::vector<uint8_t>;

void Rate(benchmark::State& state, size_t bytes, size_t coded) {
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(bytes));
    state.counters["ratio"] = static_cast<double>(coded) / static_cast<double>(bytes);
}

void BM_InflateOnce(benchmark::State& state, const Bytes* stream, const Bytes* data) {
    Bytes out(data->size() + 1);
    auto table = std::make_unique<InflateHuffTable>();
    for (auto _ : state) {
        const uint8_t* src = stream->data();
        int32_t len = static_cast<int32_t>(stream->size()), idx = 0, mode = 0;
        uint32_t code = 0, bits = 0;
        if (zyrsInflate_8u(&src, &len, &code, &bits, out.data(), static_cast<int32_t>(out.size()), &idx, 0, &mode,
                           table.get()) != StatusOk ||
            static_cast<size_t>(idx) != data->size()) {
            state.SkipWithError("decode failed");
            break;
        }
        benchmark::DoNotOptimize(out.data());
    }
    Rate(state, data->size(), stream->size());
}

void BM_InflateStream(benchmark::State& state, const Bytes* stream, const Bytes* data) {
    constexpr int32_t kHistory = 32768, kRoom = 65536;
    Bytes buf(kHistory + kRoom);
    auto table = std::make_unique<InflateHuffTable>();
    for (auto _ : state) {
        const uint8_t* src = stream->data();
        int32_t len = static_cast<int32_t>(stream->size()), idx = 0, mode = 0;
        uint32_t code = 0, bits = 0;
        size_t total = 0;
        ZyrStatus s;
        do {
            // Each call gets 64 KiB of room after the history.
            const int32_t start = idx;
            s = zyrsInflate_8u(&src, &len, &code, &bits, buf.data(), idx + kRoom, &idx, 0, &mode, table.get());
            total += static_cast<size_t>(idx - start);
            benchmark::DoNotOptimize(buf.data());
            if (idx > kHistory) {
                std::memmove(buf.data(), buf.data() + idx - kHistory, kHistory);
                idx = kHistory;
            }
        } while (s == StatusDstFull);
        if (s != StatusOk || total != data->size()) {
            state.SkipWithError("decode failed");
            break;
        }
    }
    Rate(state, data->size(), stream->size());
}

// The single-pass writer over a whole file in memory (history contiguous with the source).
size_t FastestWrite(const Bytes& data, Bytes& out, std::vector<int32_t>& head, std::vector<int32_t>& scratch) {
    constexpr size_t kBlock = 256 * 1024;
    constexpr int32_t kSample = 16384;
    const uint32_t hashSize = static_cast<uint32_t>(head.size());
    std::fill(head.begin(), head.end(), -32768);
    uint16_t code = 0;
    uint32_t bits = 0, idx = 0;
    int32_t srcIdx = 0;
    for (size_t at = 0; at < data.size(); at += kBlock) {
        const size_t n = std::min(kBlock, data.size() - at);
        uint32_t lit[286] = {}, dist[30] = {};
        zyrsDeflateLZ77FastestGetStat_8u(data.data() + at, static_cast<int32_t>(std::min<size_t>(n, kSample)),
                                         scratch.data(), hashSize, lit, dist);
        HuffCodeEntry lc[286], dc[30];
        zyrsDeflateLZ77FastestGenHuffTable_8u(lit, dist, DeflateCodesAll, lc, dc);
        DeflateBlockHeader h;
        zyrsDeflateLZ77FastestPrecompHeader_8u(DeflateBlockDynamic, lc, dc, &h);
        const bool last = at + n == data.size();
        zyrsDeflateLZ77FastestGenHeader_8u(&h, last, 0, &code, &bits, out.data(), static_cast<uint32_t>(out.size()), &idx);
        const uint8_t* src = data.data() + at;
        int32_t len = static_cast<int32_t>(n);
        zyrsDeflateLZ77Fastest_8u(&src, &len, &srcIdx, src, 32768, head.data(), hashSize, lc, dc, &code, &bits,
                                  out.data(), static_cast<uint32_t>(out.size()), &idx,
                                  last ? FastestFlushFinish : FastestFlushEndBlock);
    }
    return idx;
}

void BM_Fastest(benchmark::State& state, const Bytes* data) {
    Bytes out(2 * data->size() + 4096);
    std::vector<int32_t> head(16384), scratch(16384);
    size_t size = 0;
    for (auto _ : state) {
        size = FastestWrite(*data, out, head, scratch);
        benchmark::DoNotOptimize(out.data());
    }
    Rate(state, data->size(), size);
}

#if defined(ZYRDC_HAVE_ZLIB)
Bytes ZlibDeflate(const Bytes& data, int level) {
    Bytes out(compressBound(static_cast<uLong>(data.size())) + 1024);
    z_stream z{};
    deflateInit2(&z, level, Z_DEFLATED, -15, 8, Z_DEFAULT_STRATEGY);
    z.next_in = const_cast<Bytef*>(data.data());
    z.avail_in = static_cast<uInt>(data.size());
    z.next_out = out.data();
    z.avail_out = static_cast<uInt>(out.size());
    deflate(&z, Z_FINISH);
    out.resize(z.total_out);
    deflateEnd(&z);
    return out;
}

void BM_ZlibInflate(benchmark::State& state, const Bytes* stream, const Bytes* data) {
    Bytes out(data->size() + 1);
    z_stream z{};
    inflateInit2(&z, -15);
    for (auto _ : state) {
        inflateReset(&z);
        z.next_in = const_cast<Bytef*>(stream->data());
        z.avail_in = static_cast<uInt>(stream->size());
        z.next_out = out.data();
        z.avail_out = static_cast<uInt>(out.size());
        if (inflate(&z, Z_FINISH) != Z_STREAM_END) {
            state.SkipWithError("zlib failed");
            break;
        }
    }
    inflateEnd(&z);
    Rate(state, data->size(), stream->size());
}

void BM_ZlibDeflate(benchmark::State& state, const Bytes* data, int level) {
    size_t size = 0;
    for (auto _ : state) size = ZlibDeflate(*data, level).size();
    Rate(state, data->size(), size);
}
#endif

#if defined(ZYRDC_HAVE_LIBDEFLATE)
Bytes LibdeflateDeflate(const Bytes& data, int level) {
    libdeflate_compressor* c = libdeflate_alloc_compressor(level);
    Bytes out(libdeflate_deflate_compress_bound(c, data.size()));
    out.resize(libdeflate_deflate_compress(c, data.data(), data.size(), out.data(), out.size()));
    libdeflate_free_compressor(c);
    return out;
}

void BM_LibdeflateInflate(benchmark::State& state, const Bytes* stream, const Bytes* data) {
    Bytes out(data->size());
    libdeflate_decompressor* d = libdeflate_alloc_decompressor();
    for (auto _ : state) {
        size_t got = 0;
        if (libdeflate_deflate_decompress(d, stream->data(), stream->size(), out.data(), out.size(), &got) !=
            LIBDEFLATE_SUCCESS) {
            state.SkipWithError("libdeflate failed");
            break;
        }
        benchmark::DoNotOptimize(out.data());
    }
    libdeflate_free_decompressor(d);
    Rate(state, data->size(), stream->size());
}

void BM_LibdeflateDeflate(benchmark::State& state, const Bytes* data, int level) {
    libdeflate_compressor* c = libdeflate_alloc_compressor(level);
    Bytes out(libdeflate_deflate_compress_bound(c, data->size()));
    size_t size = 0;
    for (auto _ : state) {
        size = libdeflate_deflate_compress(c, data->data(), data->size(), out.data(), out.size());
        benchmark::DoNotOptimize(size);
    }
    libdeflate_free_compressor(c);
    Rate(state, data->size(), size);
}
#endif

bool RegisterAll() {
    static std::map<std::string, Bytes> store;  // files and streams stay loaded for the run
    for (const char* name : zyrdc::bench::kCorpusFiles) {
        Bytes data = zyrdc::bench::ReadCorpusFile(name);
        if (data.empty()) continue;
        const Bytes* d = &(store[name] = std::move(data));
        const std::string file = std::string("/") + name;
        auto reg = [](const std::string& n, auto fn, auto... args) {
            benchmark::RegisterBenchmark(n.c_str(), fn, args...)->Unit(benchmark::kMillisecond);
        };
        std::vector<std::pair<std::string, const Bytes*>> streams;
#if defined(ZYRDC_HAVE_ZLIB)
        for (int level : {1, 6, 9}) {
            const std::string key = "zlib" + std::to_string(level);
            streams.push_back({key, &(store[key + file] = ZlibDeflate(*d, level))});
        }
#endif
#if defined(ZYRDC_HAVE_LIBDEFLATE)
        streams.push_back({"ld12", &(store["ld12" + file] = LibdeflateDeflate(*d, 12))});
#endif
        for (const auto& [key, s] : streams) {
            reg("inflate/zyrdc/" + key + file, BM_InflateOnce, s, d);
            reg("inflate/zyrdc_stream64k/" + key + file, BM_InflateStream, s, d);
#if defined(ZYRDC_HAVE_ZLIB)
            reg("inflate/zlib/" + key + file, BM_ZlibInflate, s, d);
#endif
#if defined(ZYRDC_HAVE_LIBDEFLATE)
            reg("inflate/libdeflate/" + key + file, BM_LibdeflateInflate, s, d);
#endif
        }
        reg("fastest/zyrdc" + file, BM_Fastest, d);
#if defined(ZYRDC_HAVE_ZLIB)
        reg("fastest/zlib_L1" + file, BM_ZlibDeflate, d, 1);
#endif
#if defined(ZYRDC_HAVE_LIBDEFLATE)
        reg("fastest/libdeflate_L1" + file, BM_LibdeflateDeflate, d, 1);
#endif
    }
    return true;
}

[[maybe_unused]] const bool kRegistered = RegisterAll();

}  // namespace
