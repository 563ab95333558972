// bench_deflate.cpp - Deflate compression per corpus file, side by side in one binary: the whole
// writer pipeline of the zyrdc program (matcher, code building, block headers, Huffman coder)
// at our levels 1, 6, 9, 19 and 29 (and 0 and 5, the candidates next to zlib's 1 and 6), zlib's
// deflate (raw) at 1, 6 and 9, libdeflate at 1, 6, 9 and 12, and our matcher and Huffman coder
// alone.
//
// Names read family/implementation/file:
//   deflate/zyrdc_L6/bible.txt       DeflateWriter at level 6 (raw stream, no gzip framing)
//   deflate/zlib_L6/bible.txt        deflateInit2(level 6, windowBits -15), one deflate call
//   deflate/libdeflate_L12/...       libdeflate_deflate_compress at level 12
//   lz77/zyrdc_L6/bible.txt          zyrsDeflateLZ77_8u alone over the file
//   huff/zyrdc/bible.txt             zyrsDeflateHuff_8u alone, over the level-6 matcher output
//                                    in calls of 65536 entries (the vector path)
//   huff/zyrdc_entrywise/bible.txt   the same in calls of 2047 entries (entry by entry)
// Rates are per CPU second (the default), which a shared machine disturbs least.
// bytes_per_second counts input bytes, except for huff, where it counts the 3 bytes of each
// entry (literal/length byte and 16-bit distance); items_per_second is entries there. The
// counter "ratio" is compressed size / input size.
//
// The corpus is read from $ZYRDC_CORPUS, else the shared corpus folder beside the source tree; missing files are skipped.
// bench/deflate_table.py turns a JSON run into the tables of docs/benchmarks.md.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <map>
#include <string>
#include <vector>

#include "formats/deflate_writer.hpp"
#include "zyrdc.h"

#if defined(ZYRDC_HAVE_ZLIB)
#include <zlib.h>
#endif
#if defined(ZYRDC_HAVE_LIBDEFLATE)
#include <libdeflate.h>
#endif

namespace {

const char* const kFiles[] = {"alice29.txt", "lcet10.txt", "plrabn12.txt", "bible.txt", "world192.txt",
                              "kennedy.xls", "ptt5", "cxx_bits.tar", "xml.tar", "elf_i386.tar",
                              "elf_x86_64.tar", "images.rgb"};

std::string CorpusDir() {
    const char* dir = std::getenv("ZYRDC_CORPUS");
    return dir ? dir : ZYRDC_CORPUS_DIR;
}

std::vector<uint8_t> ReadFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

void Finish(benchmark::State& state, size_t inputSize, size_t outputSize) {
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(inputSize));
    state.counters["ratio"] = static_cast<double>(outputSize) / static_cast<double>(inputSize);
}

void BM_Writer(benchmark::State& state, const std::vector<uint8_t>* data, uint32_t level) {
    size_t out = 0;
    for (auto _ : state) {
        zyrdc::tool::DeflateWriter w(level);
        w.Write(*data);
        w.Finish();
        out = w.Output().Size();
        benchmark::DoNotOptimize(out);
    }
    Finish(state, data->size(), out);
}

#if defined(ZYRDC_HAVE_ZLIB)
void BM_Zlib(benchmark::State& state, const std::vector<uint8_t>* data, int level) {
    std::vector<uint8_t> out(data->size() + data->size() / 8 + 1024);
    size_t size = 0;
    for (auto _ : state) {
        z_stream z{};
        deflateInit2(&z, level, Z_DEFLATED, -15, 8, Z_DEFAULT_STRATEGY);
        z.next_in = const_cast<Bytef*>(data->data());
        z.avail_in = static_cast<uInt>(data->size());
        z.next_out = out.data();
        z.avail_out = static_cast<uInt>(out.size());
        deflate(&z, Z_FINISH);
        size = z.total_out;
        deflateEnd(&z);
    }
    Finish(state, data->size(), size);
}
#endif

#if defined(ZYRDC_HAVE_LIBDEFLATE)
void BM_Libdeflate(benchmark::State& state, const std::vector<uint8_t>* data, int level) {
    std::vector<uint8_t> out(data->size() + data->size() / 8 + 1024);
    libdeflate_compressor* c = libdeflate_alloc_compressor(level);
    size_t size = 0;
    for (auto _ : state) {
        size = libdeflate_deflate_compress(c, data->data(), data->size(), out.data(), out.size());
        benchmark::DoNotOptimize(size);
    }
    libdeflate_free_compressor(c);
    Finish(state, data->size(), size);
}
#endif

// The matcher's streams of a whole file at one level, with the caller's tables as the writer
// keeps them (32 KiB window and hash), and the symbol counts (gathered a call of at most
// 65535 entries at a time, so that the 16-bit counts cannot wrap).
struct Streams {
    std::vector<uint8_t> lit;
    std::vector<uint16_t> dist;
    uint32_t litCount[286] = {}, distCount[30] = {};
};

Streams Match(const std::vector<uint8_t>& data, uint32_t level) {
    Streams s;
    s.lit.resize(data.size() + 1);
    s.dist.resize(data.size() + 1);
    std::vector<int32_t> head(32768, -32768), prev(32768, -32768);
    const uint8_t* src = data.data();
    int32_t len = static_cast<int32_t>(data.size()), idx = 0;
    size_t n = 0;
    do {
        HuffCodeEntry lf[286] = {}, df[30] = {};
        int32_t room = 65535;
        zyrsDeflateLZ77_8u(&src, &len, &idx, data.data() + idx, 32768, head.data(), prev.data(), 32768, lf,
                           df, s.lit.data() + n, s.dist.data() + n, &room, level, 2);
        n += static_cast<size_t>(65535 - room);
        for (int i = 0; i < 286; ++i) s.litCount[i] += lf[i].code;
        for (int i = 0; i < 30; ++i) s.distCount[i] += df[i].code;
    } while (len > 0);
    s.lit.resize(n);
    s.dist.resize(n);
    return s;
}

void BM_Matcher(benchmark::State& state, const std::vector<uint8_t>* data, uint32_t level) {
    size_t entries = 0;
    for (auto _ : state) {
        entries = Match(*data, level).lit.size();
        benchmark::DoNotOptimize(entries);
    }
    Finish(state, data->size(), entries);
    state.counters["ratio"] = static_cast<double>(entries) / static_cast<double>(data->size());
}

// Codes from the whole file's counts, limited to 15 bits, as a block of it would have.
void BM_Huff(benchmark::State& state, const std::vector<uint8_t>* data, uint32_t callEntries) {
    Streams s = Match(*data, 6);
    for (auto& c : s.litCount) ++c;  // every symbol gets a code
    for (auto& c : s.distCount) ++c;
    HuffCodeEntry litCodes[286], distCodes[30];
    zyrsDeflateLZ77FastestGenHuffTable_8u(s.litCount, s.distCount, DeflateCodesUsed, litCodes, distCodes);
    std::vector<uint8_t> out(6 * s.lit.size() + 16);
    uint32_t index = 0;
    for (auto _ : state) {
        uint16_t code = 0;
        uint32_t bits = 0;
        index = 0;
        for (size_t at = 0; at < s.lit.size(); at += callEntries) {
            const uint32_t n = static_cast<uint32_t>(std::min<size_t>(callEntries, s.lit.size() - at));
            zyrsDeflateHuff_8u(s.lit.data() + at, s.dist.data() + at, n, &code, &bits, litCodes, distCodes,
                               out.data(), &index);
        }
        benchmark::DoNotOptimize(index);
    }
    const auto entries = static_cast<int64_t>(s.lit.size());
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * entries);
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * entries * 3);
    state.counters["input_bytes_per_second"] =
        benchmark::Counter(static_cast<double>(data->size()), benchmark::Counter::kIsIterationInvariantRate);
    state.counters["ratio"] = static_cast<double>(index) / static_cast<double>(data->size());
}

bool RegisterAll() {
    // The build and peer versions are in the run's context already (bench_checksum.cpp adds
    // them; adding a key twice only draws a warning).
    // The files stay loaded for the whole run; each registration points at one of them.
    static std::map<std::string, std::vector<uint8_t>> files;
    for (const char* name : kFiles) {
        std::vector<uint8_t> data = ReadFile(CorpusDir() + "/" + name);
        if (data.empty()) continue;
        const std::vector<uint8_t>* d = &(files[name] = std::move(data));
        const std::string file = std::string("/") + name;
        auto reg = [](const std::string& n, auto fn, auto... args) {
            benchmark::RegisterBenchmark(n.c_str(), fn, args...)->Unit(benchmark::kMillisecond);
        };
        for (uint32_t level : {0u, 1u, 5u, 6u, 9u, 19u, 29u})
            reg("deflate/zyrdc_L" + std::to_string(level) + file, BM_Writer, d, level);
#if defined(ZYRDC_HAVE_ZLIB)
        for (int level : {1, 6, 9}) reg("deflate/zlib_L" + std::to_string(level) + file, BM_Zlib, d, level);
#endif
#if defined(ZYRDC_HAVE_LIBDEFLATE)
        for (int level : {1, 6, 9, 12})
            reg("deflate/libdeflate_L" + std::to_string(level) + file, BM_Libdeflate, d, level);
#endif
        for (uint32_t level : {1u, 6u, 9u})
            reg("lz77/zyrdc_L" + std::to_string(level) + file, BM_Matcher, d, level);
        reg("huff/zyrdc" + file, BM_Huff, d, 65536u);
        reg("huff/zyrdc_entrywise" + file, BM_Huff, d, 2047u);
    }
    return true;
}

[[maybe_unused]] const bool kRegistered = RegisterAll();

}  // namespace
