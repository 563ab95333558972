// bench_bzip2_huff.cpp - the bzip2 Huffman stage over the blocks of each corpus file as
// libbz2 compresses it at level 9 (the bytes of `bzip2 -9`):
//   bzip2_huff_enc/zyrdc/FILE     Init, Pack and EncodeHuff of every block's symbols (the
//                                 symbols and in-use tables that Unpack and DecodeHuff read
//                                 from the file); counters: bits_vs_bzip2, the file's total
//                                 from bitmap to EOB against the file's own, and worst_block,
//                                 the largest such ratio of one block
//   bzip2_huff_dec/zyrdc/FILE     Unpack and DecodeHuff of every block of the file
//   bzip2_huff_dec/libbz2_all/FILE  BZ2_bzBuffToBuffDecompress of the whole file, every
//                                 stage: the scale the decoder's share is read against
// Items per second count symbols (EOB included); bytes per second count 2 bytes a symbol.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdint>
#include <map>
#include <utility>
#include <string>
#include <vector>

#include "corpus.hpp"
#include "zyrdc.h"

#if defined(ZYRDC_HAVE_BZIP2)
#include <bzlib.h>

namespace {

using Bytes = std::vector<uint8_t>;
using Symbols = std::vector<uint16_t>;
constexpr int32_t kMaxSymbols = 900100;

struct HuffBlock {
    size_t at;          // the byte holding the context's first bit
    uint32_t skip;      // bits of that byte before it
    Bytes in_use;
    Symbols symbols;    // EOB included
    uint64_t tool_bits;
};

struct CorpusFile {
    std::string name;
    Bytes data, bz2;
    std::vector<HuffBlock> blocks;
    int64_t symbols = 0;
    double ratio = 0, worst = 0;
};

// Reads the caller's fields of a stream most significant bit first, in the accumulator
// form the decoder shares.
struct Reader {
    const uint8_t* p;
    int32_t left;
    uint32_t code = 0, bits = 0;
    uint64_t Get(int n) {
        uint64_t v = 0;
        while (n-- > 0) {
            if (bits == 0) code = *p++, --left, bits = 8;
            v = v << 1 | (code >> --bits & 1);
        }
        code &= (1u << bits) - 1;
        return v;
    }
};

// Bits of a block's context and symbols as Init, Pack and EncodeHuff write them.
uint64_t Recode(const HuffBlock& b, uint8_t* state, Bytes& dst) {
    zyrsEncodeHuffInit_BZ2_16u8u(kMaxSymbols, b.in_use.data(), b.symbols.data(),
                                 static_cast<int32_t>(b.symbols.size()), state);
    uint32_t code = 0, bits = 0;
    int32_t packed = static_cast<int32_t>(dst.size());
    zyrsPackHuffContext_BZ2_16u8u(&code, &bits, dst.data(), &packed, state);
    const uint16_t* src = b.symbols.data();
    int32_t left = static_cast<int32_t>(b.symbols.size()), coded = static_cast<int32_t>(dst.size()) - packed;
    zyrsEncodeHuff_BZ2_16u8u(&src, &left, &code, &bits, dst.data() + packed, &coded, state);
    return 8 * static_cast<uint64_t>(packed + coded) + bits;
}

CorpusFile Load(const char* name) {
    CorpusFile f{name, zyrdc::bench::ReadCorpusFile(name), {}, {}};
    if (f.data.empty()) return f;
    f.bz2.resize(f.data.size() + f.data.size() / 50 + 1000);
    auto n = static_cast<unsigned>(f.bz2.size());
    BZ2_bzBuffToBuffCompress(reinterpret_cast<char*>(f.bz2.data()), &n, reinterpret_cast<char*>(f.data.data()),
                             static_cast<unsigned>(f.data.size()), 9, 0, 0);
    f.bz2.resize(n);
    Reader in{f.bz2.data() + 4, static_cast<int32_t>(n) - 4};
    int32_t size = 0;
    zyrsDecodeHuffGetSize_BZ2_8u16u(kMaxSymbols, &size);
    Bytes state(static_cast<size_t>(size));
    zyrsDecodeHuffInit_BZ2_8u16u(kMaxSymbols, state.data());
    while (in.Get(48) == 0x314159265359) {
        in.Get(32 + 1 + 24);
        HuffBlock b{static_cast<size_t>(in.p - f.bz2.data()), 0, Bytes(256), Symbols(kMaxSymbols), 0};
        b.at -= in.bits != 0, b.skip = (8 - in.bits) % 8;
        const uint64_t start = 8 * static_cast<uint64_t>(in.p - f.bz2.data()) - in.bits;
        int32_t count = kMaxSymbols;
        zyrsUnpackHuffContext_BZ2_8u16u(&in.p, &in.left, &in.code, &in.bits, b.in_use.data(), state.data());
        zyrsDecodeHuff_BZ2_8u16u(&in.p, &in.left, &in.code, &in.bits, b.symbols.data(), &count, state.data());
        b.symbols.resize(static_cast<size_t>(count));
        b.symbols.push_back(static_cast<uint16_t>(std::count(b.in_use.begin(), b.in_use.end(), 1) + 1));
        b.tool_bits = 8 * static_cast<uint64_t>(in.p - f.bz2.data()) - in.bits - start;
        f.symbols += static_cast<int64_t>(b.symbols.size());
        f.blocks.push_back(std::move(b));
    }
    // The size goal, measured once.
    zyrsEncodeHuffGetSize_BZ2_16u8u(kMaxSymbols, &size);
    Bytes enc(static_cast<size_t>(size)), dst(2 * kMaxSymbols + 20000);
    uint64_t ours = 0, tool = 0;
    for (const HuffBlock& b : f.blocks) {
        const uint64_t bits = Recode(b, enc.data(), dst);
        ours += bits, tool += b.tool_bits;
        f.worst = std::max(f.worst, static_cast<double>(bits) / static_cast<double>(b.tool_bits));
    }
    f.ratio = static_cast<double>(ours) / static_cast<double>(tool);
    return f;
}

void Encode(benchmark::State& st, const CorpusFile* f) {
    int32_t size = 0;
    zyrsEncodeHuffGetSize_BZ2_16u8u(kMaxSymbols, &size);
    Bytes enc(static_cast<size_t>(size)), dst(2 * kMaxSymbols + 20000);
    for (auto _ : st) {
        for (const HuffBlock& b : f->blocks) benchmark::DoNotOptimize(Recode(b, enc.data(), dst));
    }
    st.SetItemsProcessed(st.iterations() * f->symbols);
    st.SetBytesProcessed(st.iterations() * f->symbols * 2);
    st.counters["bits_vs_bzip2"] = f->ratio;
    st.counters["worst_block"] = f->worst;
}

void Decode(benchmark::State& st, const CorpusFile* f) {
    int32_t size = 0;
    zyrsDecodeHuffGetSize_BZ2_8u16u(kMaxSymbols, &size);
    Bytes state(static_cast<size_t>(size)), in_use(256);
    Symbols out(kMaxSymbols);
    zyrsDecodeHuffInit_BZ2_8u16u(kMaxSymbols, state.data());
    for (auto _ : st) {
        for (const HuffBlock& b : f->blocks) {
            const uint8_t* p = f->bz2.data() + b.at + (b.skip != 0);
            int32_t left = static_cast<int32_t>(f->bz2.size() - b.at) - (b.skip != 0), n = kMaxSymbols;
            uint32_t bits = (8 - b.skip) % 8, code = b.skip != 0 ? f->bz2[b.at] & ((1u << bits) - 1) : 0;
            zyrsUnpackHuffContext_BZ2_8u16u(&p, &left, &code, &bits, in_use.data(), state.data());
            zyrsDecodeHuff_BZ2_8u16u(&p, &left, &code, &bits, out.data(), &n, state.data());
            benchmark::DoNotOptimize(out.data());
        }
    }
    st.SetItemsProcessed(st.iterations() * f->symbols);
    st.SetBytesProcessed(st.iterations() * f->symbols * 2);
}

void Libbz2(benchmark::State& st, const CorpusFile* f) {
    Bytes out(f->data.size());
    for (auto _ : st) {
        auto n = static_cast<unsigned>(out.size());
        BZ2_bzBuffToBuffDecompress(reinterpret_cast<char*>(out.data()), &n,
                                   reinterpret_cast<char*>(const_cast<uint8_t*>(f->bz2.data())),
                                   static_cast<unsigned>(f->bz2.size()), 0, 0);
    }
    st.SetItemsProcessed(st.iterations() * f->symbols);
    st.SetBytesProcessed(st.iterations() * f->symbols * 2);
}

// Files are loaded when their first benchmark runs, not when the program starts.
const CorpusFile& Cached(const std::string& name) {
    static std::map<std::string, CorpusFile> files;
    auto it = files.find(name);
    if (it == files.end()) it = files.emplace(name, Load(name.c_str())).first;
    return it->second;
}

bool RegisterAll() {
    const std::pair<const char*, void (*)(benchmark::State&, const CorpusFile*)> kinds[] = {
        {"bzip2_huff_enc/zyrdc/", Encode}, {"bzip2_huff_dec/zyrdc/", Decode}, {"bzip2_huff_dec/libbz2_all/", Libbz2}};
    for (const char* name : zyrdc::bench::kCorpusFiles) {
        for (const auto& [family, fn] : kinds) {
            benchmark::RegisterBenchmark((family + std::string(name)).c_str(), [name, fn = fn](benchmark::State& st) {
                const CorpusFile& f = Cached(name);
                if (f.blocks.empty()) return st.SkipWithError("not in the corpus");
                fn(st, &f);
            })->Unit(benchmark::kMillisecond);
        }
    }
    return true;
}

[[maybe_unused]] const bool kRegistered = RegisterAll();

}  // namespace

#endif  // ZYRDC_HAVE_BZIP2
