// bench_lz4.cpp - LZ4 blocks against liblz4, side by side in one binary: decoding, the
// greedy encoder and the accelerated encoder (acceleration 4), each over the files of the
// benchmark corpus (when present) and over the built-in sample of `zyrdc bench`. Every
// input is one block, as the block functions of both libraries take it.
//
// Names read family/implementation/input:
//   lz4_decode/zyrdc/alice29.txt    zyrsDecodeLZ4_8u on the block of LZ4_compress_default
//   lz4_decode/liblz4/alice29.txt   LZ4_decompress_safe on the same block
//   lz4_encode/zyrdc/...            zyrsEncodeLZ4_8u
//   lz4_encode/liblz4/...           LZ4_compress_default
//   lz4_fast4/zyrdc/...             zyrsEncodeLZ4Fast_8u, acceleration 4
//   lz4_fast4/liblz4/...            LZ4_compress_fast, acceleration 4
//   lz4_prefix/zyrdc/...            zyrsDecodeLZ4Dict_8u over linked 64 KiB blocks, each block's
//                                   history the output before it (the prefix core)
//   lz4_prefix/liblz4/...           LZ4_decompress_safe_usingDict on the same blocks, in place
//   lz4_extdict/zyrdc/...           the same blocks, each with the 64 KiB before it as a
//                                   dictionary elsewhere (the separate-dictionary core)
//   lz4_extdict/liblz4/...          LZ4_decompress_safe_usingDict with that dictionary
// The linked blocks come from LZ4_compress_fast_continue; without liblz4 those rows are left out.
// Speeds count uncompressed bytes; the "compressed" counter is the block size.
// The corpus folder is ZYRDC_CORPUS in the environment, else ../shared/corpus beside the
// source tree; missing files are skipped. bench/lz4_ratios.py makes the docs tables.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "bench/sample.hpp"  // the built-in sample of the zyrdc program
#include "zyrdc.h"

#if defined(ZYRDC_HAVE_LIBLZ4)
#include <lz4.h>
#endif

namespace {

using Bytes = std::vector<uint8_t>;

struct Input {
    std::string label;
    Bytes data;
    Bytes block;  // the input coded by LZ4_compress_default, or by us without liblz4
    std::vector<Bytes> linked;  // 64 KiB blocks, each coded with the ones before as history
};

constexpr int kLinkedBlock = 65536;

int32_t Worst(size_t n) { return static_cast<int32_t>(n + n / 255 + 16); }

Bytes ReferenceBlock(const Bytes& in) {
    Bytes block(static_cast<size_t>(Worst(in.size())));
    int32_t len = 0;
#if defined(ZYRDC_HAVE_LIBLZ4)
    len = LZ4_compress_default(reinterpret_cast<const char*>(in.data()), reinterpret_cast<char*>(block.data()),
                               static_cast<int>(in.size()), static_cast<int>(block.size()));
#else
    Bytes table(16384);
    zyrsEncodeLZ4_8u(in.data(), static_cast<int32_t>(in.size()), block.data(), &len, table.data());
#endif
    block.resize(static_cast<size_t>(len));
    return block;
}

std::vector<std::unique_ptr<Input>> LoadInputs() {
    std::vector<std::unique_ptr<Input>> inputs;
    zyrdc::tool::Sample sample = zyrdc::tool::MakeSample();
    inputs.push_back(std::make_unique<Input>(Input{"sample", std::move(sample.bytes), {}, {}}));
    const char* env = std::getenv("ZYRDC_CORPUS");
    const std::filesystem::path dir = env != nullptr ? env : ZYRDC_CORPUS_DIR;
    std::vector<std::filesystem::path> files;
    std::error_code ec;
    for (const auto& entry : std::filesystem::directory_iterator(dir, ec)) {
        if (entry.is_regular_file() && entry.path().extension() != ".md") files.push_back(entry.path());
    }
    std::sort(files.begin(), files.end());
    for (const auto& file : files) {
        std::ifstream in(file, std::ios::binary);
        Bytes data((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
        inputs.push_back(std::make_unique<Input>(Input{file.filename().string(), std::move(data), {}, {}}));
    }
    for (auto& in : inputs) {
        in->block = ReferenceBlock(in->data);
#if defined(ZYRDC_HAVE_LIBLZ4)
        LZ4_stream_t* stream = LZ4_createStream();
        for (size_t pos = 0; pos < in->data.size(); pos += kLinkedBlock) {
            const int len = static_cast<int>(std::min<size_t>(kLinkedBlock, in->data.size() - pos));
            Bytes b(static_cast<size_t>(LZ4_compressBound(len)));
            b.resize(static_cast<size_t>(LZ4_compress_fast_continue(
                stream, reinterpret_cast<const char*>(in->data.data() + pos), reinterpret_cast<char*>(b.data()), len,
                static_cast<int>(b.size()), 1)));
            in->linked.push_back(std::move(b));
        }
        LZ4_freeStream(stream);
#endif
    }
    return inputs;
}

using Coder = int32_t (*)(const Input& in, uint8_t* out, uint8_t* table);

// Times one coder over one input; out and the table are allocated and touched beforehand.
void BM_Coder(benchmark::State& state, const Input* in, Coder coder) {
    Bytes out(static_cast<size_t>(Worst(in->data.size())), 0), table(16384, 0);
    int32_t size = 0;
    for (auto _ : state) {
        size = coder(*in, out.data(), table.data());
        benchmark::DoNotOptimize(size);
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(in->data.size()));
    state.counters["compressed"] = static_cast<double>(size);
}

int32_t ZyrDecode(const Input& in, uint8_t* out, uint8_t*) {
    int32_t len = static_cast<int32_t>(in.data.size());
    zyrsDecodeLZ4_8u(in.block.data(), static_cast<int32_t>(in.block.size()), out, &len);
    return static_cast<int32_t>(in.block.size());
}
int32_t ZyrEncode(const Input& in, uint8_t* out, uint8_t* table) {
    int32_t len = 0;
    zyrsEncodeLZ4_8u(in.data.data(), static_cast<int32_t>(in.data.size()), out, &len, table);
    return len;
}
int32_t ZyrFast4(const Input& in, uint8_t* out, uint8_t* table) {
    int32_t len = 0;
    zyrsEncodeLZ4Fast_8u(in.data.data(), static_cast<int32_t>(in.data.size()), out, &len, table, 4);
    return len;
}

#if defined(ZYRDC_HAVE_LIBLZ4)
// History of the linked block that starts at pos: the output before it, at most 64 KiB.
int32_t History(size_t pos) { return static_cast<int32_t>(std::min<size_t>(pos, kLinkedBlock)); }

int32_t ZyrPrefix(const Input& in, uint8_t* out, uint8_t*) {
    size_t pos = 0;
    for (const Bytes& b : in.linked) {
        const int32_t h = History(pos);
        int32_t srcLen = static_cast<int32_t>(b.size());
        int32_t cap = static_cast<int32_t>(in.data.size() - pos);
        zyrsDecodeLZ4Dict_8u(b.data(), &srcLen, out, static_cast<int32_t>(pos), &cap, out + pos - h, h);
        pos += static_cast<size_t>(cap);
    }
    return static_cast<int32_t>(pos);
}
// The dictionary is the input itself, apart from the output; 12 bytes of spare capacity, as
// the separate-dictionary core asks.
int32_t ZyrExtDict(const Input& in, uint8_t* out, uint8_t*) {
    size_t pos = 0;
    for (const Bytes& b : in.linked) {
        const int32_t h = History(pos);
        int32_t srcLen = static_cast<int32_t>(b.size());
        int32_t cap = static_cast<int32_t>(std::min<size_t>(kLinkedBlock, in.data.size() - pos)) + 12;
        zyrsDecodeLZ4Dict_8u(b.data(), &srcLen, out + pos - h, h, &cap, in.data.data() + pos - h, h);
        pos += static_cast<size_t>(cap);
    }
    return static_cast<int32_t>(pos);
}

int32_t PeerPrefix(const Input& in, uint8_t* out, uint8_t*) {
    size_t pos = 0;
    for (const Bytes& b : in.linked) {
        const int32_t h = History(pos);
        pos += static_cast<size_t>(LZ4_decompress_safe_usingDict(
            reinterpret_cast<const char*>(b.data()), reinterpret_cast<char*>(out + pos), static_cast<int>(b.size()),
            static_cast<int>(in.data.size() - pos), reinterpret_cast<const char*>(out + pos - h), h));
    }
    return static_cast<int32_t>(pos);
}
int32_t PeerExtDict(const Input& in, uint8_t* out, uint8_t*) {
    size_t pos = 0;
    for (const Bytes& b : in.linked) {
        const int32_t h = History(pos);
        const int cap = static_cast<int>(std::min<size_t>(kLinkedBlock, in.data.size() - pos)) + 12;
        pos += static_cast<size_t>(LZ4_decompress_safe_usingDict(
            reinterpret_cast<const char*>(b.data()), reinterpret_cast<char*>(out + pos), static_cast<int>(b.size()), cap,
            reinterpret_cast<const char*>(in.data.data() + pos - h), h));
    }
    return static_cast<int32_t>(pos);
}
int32_t PeerDecode(const Input& in, uint8_t* out, uint8_t*) {
    LZ4_decompress_safe(reinterpret_cast<const char*>(in.block.data()), reinterpret_cast<char*>(out),
                        static_cast<int>(in.block.size()), static_cast<int>(in.data.size()));
    return static_cast<int32_t>(in.block.size());
}
int32_t PeerEncode(const Input& in, uint8_t* out, uint8_t*) {
    return LZ4_compress_default(reinterpret_cast<const char*>(in.data.data()), reinterpret_cast<char*>(out),
                                static_cast<int>(in.data.size()), Worst(in.data.size()));
}
int32_t PeerFast4(const Input& in, uint8_t* out, uint8_t*) {
    return LZ4_compress_fast(reinterpret_cast<const char*>(in.data.data()), reinterpret_cast<char*>(out),
                             static_cast<int>(in.data.size()), Worst(in.data.size()), 4);
}
#endif

struct Entry {
    const char* name;
    Coder coder;
};

const Entry kEntries[] = {
    {"lz4_decode/zyrdc", ZyrDecode},
#if defined(ZYRDC_HAVE_LIBLZ4)
    {"lz4_decode/liblz4", PeerDecode},
#endif
    {"lz4_encode/zyrdc", ZyrEncode},
#if defined(ZYRDC_HAVE_LIBLZ4)
    {"lz4_encode/liblz4", PeerEncode},
#endif
    {"lz4_fast4/zyrdc", ZyrFast4},
#if defined(ZYRDC_HAVE_LIBLZ4)
    {"lz4_fast4/liblz4", PeerFast4},
    {"lz4_prefix/zyrdc", ZyrPrefix},
    {"lz4_prefix/liblz4", PeerPrefix},
    {"lz4_extdict/zyrdc", ZyrExtDict},
    {"lz4_extdict/liblz4", PeerExtDict},
#endif
};

bool RegisterAll() {
#if defined(ZYRDC_HAVE_LIBLZ4)
    benchmark::AddCustomContext("liblz4", LZ4_versionString());
#else
    benchmark::AddCustomContext("liblz4", "not found for this build");
#endif
    // Inputs live as long as the program: the benchmarks hold pointers to them.
    static const std::vector<std::unique_ptr<Input>> inputs = LoadInputs();
    // Input by input, so that a filter on the input lines both libraries up.
    for (const auto& in : inputs) {
        for (const Entry& e : kEntries) {
            benchmark::RegisterBenchmark((std::string(e.name) + "/" + in->label).c_str(), BM_Coder, in.get(), e.coder);
        }
    }
    return true;
}

[[maybe_unused]] const bool kRegistered = RegisterAll();

}  // namespace
