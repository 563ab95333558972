// bench_bzip2_pipeline.cpp - whole bzip2 streams at level 9 (blocks of 900000), one thread,
// the library's stages against libbz2 in one binary:
//   bz2_comp/zyrdc/FILE    run-length stage and block CRC, dictionary, transform,
//                          move-to-front, zero runs and the Huffman stage, into a .bz2 stream
//   bz2_comp/bzip2_9/FILE  BZ2_bzBuffToBuffCompress at level 9
//   bz2_dec/zyrdc/FILE     libbz2's stream of the file read with the Huffman decoder, the
//                          block decoder and the block CRC
//   bz2_dec/bzip2/FILE     BZ2_bzBuffToBuffDecompress of the same stream
// Bytes per second count the file's bytes; bz2_comp reports the stream's size (bytes_out).
// Times are this thread's processor time. The corpus is read from $ZYRDC_CORPUS or
// shared/corpus beside the source tree; missing files are skipped.
#include <benchmark/benchmark.h>

#if defined(ZYRDC_HAVE_BZIP2)
#include <bzlib.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "zyrdc.h"

namespace {

using Bytes = std::vector<uint8_t>;
constexpr int32_t kBlock = 900000;
constexpr int32_t kMaxSymbols = 900100;

const char* const kFiles[] = {"alice29.txt", "lcet10.txt", "plrabn12.txt", "kennedy.xls", "ptt5", "bible.txt",
                              "world192.txt", "elf_x86_64.tar", "elf_i386.tar", "cxx_bits.tar", "xml.tar",
                              "images.rgb"};

std::filesystem::path CorpusDir() {
    if (const char* env = std::getenv("ZYRDC_CORPUS")) return env;
    return std::filesystem::path(__FILE__).parent_path() / ".." / ".." / "shared" / "corpus";
}

// MSB-first writer in the library's accumulator convention (fewer than 8 bits pending).
struct BitOut {
    Bytes bytes;
    uint32_t code = 0, bits = 0;
    void Put(uint32_t v, uint32_t n) {
        code = (code << n) | v;
        bits += n;
        while (bits >= 8) bytes.push_back(static_cast<uint8_t>(code >> (bits -= 8)));
        code &= (1u << bits) - 1;
    }
};

// Buffers of the largest block, allocated once.
struct Work {
    Bytes rle = Bytes(kBlock), last = Bytes(kBlock), idx = Bytes(kBlock), bwt, huff, block_buffer, out;
    std::vector<uint16_t> symbols = std::vector<uint16_t>(kMaxSymbols);
    Work() {
        int32_t size = 0;
        zyrsBWTFwdGetSize_8u(kBlock, &size);
        bwt.resize(static_cast<size_t>(size));
        zyrsEncodeHuffGetSize_BZ2_16u8u(kMaxSymbols, &size);
        huff.resize(std::max<size_t>(static_cast<size_t>(size), 0));
        int32_t dsize = 0;
        zyrsDecodeHuffGetSize_BZ2_8u16u(kMaxSymbols, &dsize);
        huff.resize(std::max(huff.size(), static_cast<size_t>(dsize)));
        zyrsDecodeBlockGetSize_BZ2_8u(kBlock, &size);
        block_buffer.resize(static_cast<size_t>(size));
        out.resize(52 * static_cast<size_t>(kBlock) + 256);
    }
};

// One .bz2 stream of the file; returns its size.
size_t Compress(const Bytes& file, Work& w, BitOut& bo) {
    bo = BitOut{};
    bo.bytes.reserve(file.size() / 2 + 1024);
    bo.Put(0x425A68, 24);
    bo.Put('9', 8);
    uint32_t combined = 0;
    const uint8_t* src = file.data();
    auto left = static_cast<int32_t>(file.size());
    while (left > 0) {
        uint8_t rle_state[264], in_use[256], mtf[256];
        zyrsEncodeRLEInit_BZ2_8u(rle_state);
        const uint8_t* start = src;
        int32_t n = kBlock - 20;
        zyrsEncodeRLE_BZ2_8u(&src, &left, w.rle.data(), &n, rle_state);
        int32_t one = 1;
        zyrsEncodeRLEFlush_BZ2_8u(w.rle.data() + n, &one, rle_state);
        n += one;
        uint32_t crc = 0;
        zyrsCRC32_BZ2_8u(start, static_cast<int32_t>(src - start), &crc);
        combined = ((combined << 1) | (combined >> 31)) ^ crc;
        zyrsRLEGetInUseTable_8u(in_use, rle_state);
        int32_t dict = 0, index = 0;
        zyrsReduceDictionary_8u_I(in_use, w.rle.data(), n, &dict);
        zyrsBWTFwd_8u(w.rle.data(), w.last.data(), n, &index, w.bwt.data());
        zyrsMTFInit_8u(mtf);
        zyrsMTFFwd_8u(w.last.data(), w.idx.data(), n, mtf);
        uint32_t freq[258] = {};
        const uint8_t* ip = w.idx.data();
        int32_t count = kMaxSymbols - 1;
        zyrsEncodeZ1Z2_BZ2_8u16u(&ip, &n, w.symbols.data(), &count, freq);
        w.symbols[static_cast<size_t>(count++)] = static_cast<uint16_t>(dict + 1);
        zyrsEncodeHuffInit_BZ2_16u8u(count, in_use, w.symbols.data(), count, w.huff.data());
        bo.Put(0x314159, 24);
        bo.Put(0x265359, 24);
        bo.Put(crc >> 16, 16);
        bo.Put(crc & 0xFFFF, 16);
        bo.Put(0, 1);
        bo.Put(static_cast<uint32_t>(index), 24);
        size_t at = bo.bytes.size();
        bo.bytes.resize(at + 20000 + 3 * static_cast<size_t>(count));
        int32_t room = static_cast<int32_t>(bo.bytes.size() - at);
        zyrsPackHuffContext_BZ2_16u8u(&bo.code, &bo.bits, bo.bytes.data() + at, &room, w.huff.data());
        at += static_cast<size_t>(room);
        const uint16_t* sp = w.symbols.data();
        room = static_cast<int32_t>(bo.bytes.size() - at);
        zyrsEncodeHuff_BZ2_16u8u(&sp, &count, &bo.code, &bo.bits, bo.bytes.data() + at, &room, w.huff.data());
        bo.bytes.resize(at + static_cast<size_t>(room));
    }
    bo.Put(0x177245, 24);
    bo.Put(0x385090, 24);
    bo.Put(combined >> 16, 16);
    bo.Put(combined & 0xFFFF, 16);
    if (bo.bits > 0) bo.Put(0, 8 - bo.bits);
    return bo.bytes.size();
}

// Decodes a one-stream .bz2 file; returns the bytes out (0 on any failure).
size_t Decompress(const Bytes& bz, Work& w) {
    const uint8_t* p = bz.data() + 4;
    auto left = static_cast<int32_t>(bz.size()) - 4;
    uint32_t code = 0, bits = 0;
    const auto get = [&](uint32_t n) {  // n <= 24
        uint64_t v = code;
        uint32_t have = bits;
        while (have < n) {
            v = (v << 8) | *p++;
            --left;
            have += 8;
        }
        have -= n;
        code = static_cast<uint32_t>(v & ((1u << have) - 1));
        bits = have;
        return static_cast<uint32_t>(v >> have);
    };
    zyrsDecodeHuffInit_BZ2_8u16u(kMaxSymbols, w.huff.data());
    size_t total = 0;
    for (;;) {
        const uint32_t m1 = get(24), m2 = get(24);
        if (m1 != 0x314159 || m2 != 0x265359) return m1 == 0x177245 ? total : 0;
        const uint32_t crc = get(16) << 16 | get(16);
        get(1);
        const auto orig = static_cast<int32_t>(get(24));
        uint8_t in_use[256];
        if (zyrsUnpackHuffContext_BZ2_8u16u(&p, &left, &code, &bits, in_use, w.huff.data()) != StatusOk) return 0;
        int32_t count = kMaxSymbols;
        if (zyrsDecodeHuff_BZ2_8u16u(&p, &left, &code, &bits, w.symbols.data(), &count, w.huff.data()) != StatusOk) {
            return 0;
        }
        auto len = static_cast<int32_t>(w.out.size());
        if (zyrsDecodeBlock_BZ2_16u8u(w.symbols.data(), count, in_use, orig, kBlock, w.out.data(), &len,
                                      w.block_buffer.data()) != StatusOk) {
            return 0;
        }
        uint32_t got = 0;
        zyrsCRC32_BZ2_8u(w.out.data(), len, &got);
        if (got != crc) return 0;
        total += static_cast<size_t>(len);
    }
}

struct Input {
    std::string name;
    Bytes file, bz;
};

void Report(benchmark::State& state, const Input& in, size_t out) {
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(in.file.size()));
    state.counters["bytes_out"] = static_cast<double>(out);
}

void BM_CompZyrdc(benchmark::State& state, const Input* in) {
    Work w;
    BitOut bo;
    size_t out = 0;
    for (auto _ : state) out = Compress(in->file, w, bo);
    Report(state, *in, out);
}
void BM_CompBzip2(benchmark::State& state, const Input* in) {
    Bytes out(in->file.size() + in->file.size() / 100 + 1000);
    unsigned len = 0;
    for (auto _ : state) {
        len = static_cast<unsigned>(out.size());
        BZ2_bzBuffToBuffCompress(reinterpret_cast<char*>(out.data()), &len,
                                 const_cast<char*>(reinterpret_cast<const char*>(in->file.data())),
                                 static_cast<unsigned>(in->file.size()), 9, 0, 0);
    }
    Report(state, *in, len);
}
void BM_DecZyrdc(benchmark::State& state, const Input* in) {
    Work w;
    size_t out = 0;
    for (auto _ : state) out = Decompress(in->bz, w);
    if (out != in->file.size()) state.SkipWithError("decoded size differs");
    Report(state, *in, out);
}
void BM_DecBzip2(benchmark::State& state, const Input* in) {
    Bytes out(in->file.size() + 1);
    unsigned len = 0;
    for (auto _ : state) {
        len = static_cast<unsigned>(out.size());
        BZ2_bzBuffToBuffDecompress(reinterpret_cast<char*>(out.data()), &len,
                                   const_cast<char*>(reinterpret_cast<const char*>(in->bz.data())),
                                   static_cast<unsigned>(in->bz.size()), 0, 0);
    }
    Report(state, *in, len);
}

bool RegisterAll() {
    static std::vector<std::unique_ptr<Input>> inputs;
    for (const char* name : kFiles) {
        std::ifstream f(CorpusDir() / name, std::ios::binary);
        if (!f) continue;
        auto in = std::make_unique<Input>();
        in->name = name;
        in->file.assign(std::istreambuf_iterator<char>(f), std::istreambuf_iterator<char>());
        if (in->file.empty()) continue;
        in->bz.resize(in->file.size() + in->file.size() / 100 + 1000);
        auto len = static_cast<unsigned>(in->bz.size());
        BZ2_bzBuffToBuffCompress(reinterpret_cast<char*>(in->bz.data()), &len,
                                 reinterpret_cast<char*>(in->file.data()), static_cast<unsigned>(in->file.size()),
                                 9, 0, 0);
        in->bz.resize(len);
        inputs.push_back(std::move(in));
    }
    for (const auto& in : inputs) {
        const Input* p = in.get();
        const struct {
            const char* family;
            void (*fn)(benchmark::State&, const Input*);
        } rows[] = {{"bz2_comp/zyrdc/", BM_CompZyrdc},
                    {"bz2_comp/bzip2_9/", BM_CompBzip2},
                    {"bz2_dec/zyrdc/", BM_DecZyrdc},
                    {"bz2_dec/bzip2/", BM_DecBzip2}};
        for (const auto& r : rows) {
            benchmark::RegisterBenchmark((std::string(r.family) + in->name).c_str(), r.fn, p)
                ->Unit(benchmark::kMillisecond)
                ->MeasureProcessCPUTime();
        }
    }
    return true;
}

[[maybe_unused]] const bool kRegistered = RegisterAll();

}  // namespace

#endif  // ZYRDC_HAVE_BZIP2
