// bench_bzip2.cpp - the bzip2 block stages over the corpus, cut into blocks of 100000 and
// 900000 bytes, side by side with the peers in one binary:
//   bwt_fwd/zyrdc/FILE/BLOCK      zyrsBWTFwd_8u over every block of the file
//   bwt_fwd/divbwt/FILE/BLOCK     libdivsufsort's divbwt over the same blocks
//   bwt_chain/zyrdc/FILE/BLOCK    run-length stage, dictionary, transform, move-to-front and
//                                 zero-run coding, as a bzip2 compressor runs them
//   bwt_chain/bzip2_9/FILE/BLOCK  libbz2's BZ2_bzBuffToBuffCompress at level 9 on each block
//   bwt_inv, mtf_fwd, mtf_inv, zrun_enc, zrun_dec /zyrdc/FILE/BLOCK   the other stages alone
//   bwt_inv/divsufsort/FILE/BLOCK inverse_bw_transform of divbwt's output of the same blocks
// Bytes per second count the file's bytes. bwt_fwd/zyrdc also reports the spread of its
// blocks: block_min_MBps and block_median_MBps (each block's fastest pass, in processor
// time), so that data on which the sort turns slow shows even when the whole file's rate
// looks fine.
//
// The corpus is read from $ZYRDC_CORPUS, or from shared/corpus beside the source tree;
// missing files are skipped. After the files come built-in blocks of 900000 bytes that are
// hard for a comparison sort of rotations (names starting "hard_"): one byte value, period 2,
// period 1000, 4-byte records with a counter, two equal halves, a Fibonacci word, and random
// bytes and text for comparison.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <ctime>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "zyrdc.h"

#if defined(ZYRDC_HAVE_DIVSUFSORT)
#include <divsufsort.h>
#endif
#if defined(ZYRDC_HAVE_BZIP2)
#include <bzlib.h>
#endif

namespace {

using Bytes = std::vector<uint8_t>;

const char* const kFiles[] = {"alice29.txt", "lcet10.txt",     "plrabn12.txt", "kennedy.xls",
                              "ptt5",        "bible.txt",      "world192.txt", "elf_x86_64.tar",
                              "elf_i386.tar", "cxx_bits.tar",  "xml.tar",      "images.rgb"};
constexpr int64_t kBlockSizes[] = {100000, 900000};

std::filesystem::path CorpusDir() {
    if (const char* env = std::getenv("ZYRDC_CORPUS")) return env;
    return std::filesystem::path(__FILE__).parent_path() / ".." / ".." / "shared" / "corpus";
}

Bytes ReadFile(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    return Bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
}

struct Block {
    const uint8_t* data;
    int32_t size;
};

std::vector<Block> Cut(const Bytes& file, int64_t block) {
    std::vector<Block> out;
    for (size_t at = 0; at < file.size(); at += static_cast<size_t>(block)) {
        out.push_back({file.data() + at, static_cast<int32_t>(std::min<size_t>(block, file.size() - at))});
    }
    return out;
}

// Working memory of the largest block, allocated once so that no timed loop allocates. The
// run-length stage may lengthen a block by a quarter (four equal bytes and a count of 0).
struct Work {
    Bytes bwt_buffer, inv_buffer, a, b, c;
    std::vector<uint16_t> symbols;
    std::vector<int32_t> divsufsort_work;
    std::vector<uint32_t> freq;
    explicit Work(int32_t block) {
        const int32_t n = block + block / 4 + 1;
        int32_t size = 0;
        zyrsBWTFwdGetSize_8u(n, &size);
        bwt_buffer.resize(static_cast<size_t>(size));
        zyrsBWTInvGetSize_8u(n, &size);
        inv_buffer.resize(static_cast<size_t>(size));
        a.resize(static_cast<size_t>(n) * 2 + 16);
        b.resize(a.size());
        c.resize(a.size());
        symbols.resize(static_cast<size_t>(n) * 2 + 16);
        divsufsort_work.resize(static_cast<size_t>(n));
        freq.resize(258);
    }
};

// ---- one block through one stage ----------------------------------------------------------

void Fwd(const Block& blk, Work& w) {
    int32_t index = 0;
    zyrsBWTFwd_8u(blk.data, w.a.data(), blk.size, &index, w.bwt_buffer.data());
    benchmark::DoNotOptimize(index);
}

#if defined(ZYRDC_HAVE_DIVSUFSORT)
void Divbwt(const Block& blk, Work& w) {
    const saidx_t index = divbwt(blk.data, w.a.data(), w.divsufsort_work.data(), blk.size);
    benchmark::DoNotOptimize(index);
}
#endif

// The forward chain as a bzip2 block compressor runs it; returns the symbol count.
int32_t Chain(const Block& blk, Work& w) {
    uint8_t rle[264], in_use[256], mtf[256];
    zyrsEncodeRLEInit_BZ2_8u(rle);
    const uint8_t* src = blk.data;
    int32_t left = blk.size, n = static_cast<int32_t>(w.a.size()) - 1;
    zyrsEncodeRLE_BZ2_8u(&src, &left, w.a.data(), &n, rle);
    int32_t one = 1;
    zyrsEncodeRLEFlush_BZ2_8u(w.a.data() + n, &one, rle);
    n += one;
    zyrsRLEGetInUseTable_8u(in_use, rle);
    int32_t dictionary = 0, index = 0;
    zyrsReduceDictionary_8u_I(in_use, w.a.data(), n, &dictionary);
    zyrsBWTFwd_8u(w.a.data(), w.b.data(), n, &index, w.bwt_buffer.data());
    zyrsMTFInit_8u(mtf);
    zyrsMTFFwd_8u(w.b.data(), w.c.data(), n, mtf);
    const uint8_t* idx = w.c.data();
    int32_t count = static_cast<int32_t>(w.symbols.size());
    zyrsEncodeZ1Z2_BZ2_8u16u(&idx, &n, w.symbols.data(), &count, w.freq.data());
    return count;
}

#if defined(ZYRDC_HAVE_BZIP2)
void Bzip2(const Block& blk, Work& w) {
    auto out_len = static_cast<unsigned>(w.symbols.size() * 2);
    BZ2_bzBuffToBuffCompress(reinterpret_cast<char*>(w.symbols.data()), &out_len,
                             const_cast<char*>(reinterpret_cast<const char*>(blk.data)),
                             static_cast<unsigned>(blk.size), 9, 0, 0);
    benchmark::DoNotOptimize(out_len);
}
#endif

// ---- per-file benchmarks ----------------------------------------------------------------------

struct Input {
    std::string name;
    Bytes file;
    int64_t block;
};

using Stage = void (*)(const Block&, Work&);

// This thread's processor time, like the library's own CPU-time figures: on a shared machine
// the wall clock also counts the time other programs held the processor.
double ThreadSeconds() {
    timespec t{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
    return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_nsec) * 1e-9;
}

// Times the stage over every block of the file; each iteration is the whole file.
void BM_Blocks(benchmark::State& state, const Input* in, Stage stage, bool spread) {
    const std::vector<Block> blocks = Cut(in->file, in->block);
    Work work(static_cast<int32_t>(in->block));
    std::vector<double> best(blocks.size(), 1e30);
    for (auto _ : state) {
        for (size_t i = 0; i < blocks.size(); ++i) {
            const double t0 = ThreadSeconds();
            stage(blocks[i], work);
            best[i] = std::min(best[i], ThreadSeconds() - t0);
        }
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(in->file.size()));
    if (spread) {
        std::vector<double> rate(blocks.size());
        for (size_t i = 0; i < blocks.size(); ++i) rate[i] = blocks[i].size / best[i] / 1e6;
        std::sort(rate.begin(), rate.end());
        state.counters["block_min_MBps"] = rate.front();
        state.counters["block_median_MBps"] = rate[rate.size() / 2];
    }
}

// Stages after the transform take its output; they are prepared once per file, untimed.
struct Prepared {
    std::vector<Bytes> last, indexes, divbwt_last;
    std::vector<std::vector<uint16_t>> symbols;
    std::vector<int32_t> primary, divbwt_primary;
};

Prepared Prepare(const Input& in) {
    Prepared p;
    Work w(static_cast<int32_t>(in.block));
    for (const Block& blk : Cut(in.file, in.block)) {
        Bytes last(static_cast<size_t>(blk.size)), idx(last.size());
        int32_t index = 0;
        zyrsBWTFwd_8u(blk.data, last.data(), blk.size, &index, w.bwt_buffer.data());
        uint8_t mtf[256];
        zyrsMTFInit_8u(mtf);
        zyrsMTFFwd_8u(last.data(), idx.data(), blk.size, mtf);
        std::vector<uint16_t> sym(last.size() + 64);
        const uint8_t* src = idx.data();
        int32_t left = blk.size, count = static_cast<int32_t>(sym.size());
        zyrsEncodeZ1Z2_BZ2_8u16u(&src, &left, sym.data(), &count, w.freq.data());
        sym.resize(static_cast<size_t>(count));
        p.last.push_back(std::move(last));
        p.indexes.push_back(std::move(idx));
        p.symbols.push_back(std::move(sym));
        p.primary.push_back(index);
#if defined(ZYRDC_HAVE_DIVSUFSORT)
        // divbwt's own output and index, for its inverse (its convention differs from ours).
        Bytes d(static_cast<size_t>(blk.size));
        p.divbwt_primary.push_back(divbwt(blk.data, d.data(), w.divsufsort_work.data(), blk.size));
        p.divbwt_last.push_back(std::move(d));
#endif
    }
    return p;
}

enum class Later { kBwtInv, kDivsufsortInv, kMtfFwd, kMtfInv, kZrunEnc, kZrunDec };

void BM_Later(benchmark::State& state, const Input* in, Later which) {
    const Prepared p = Prepare(*in);
    Work w(static_cast<int32_t>(in->block));
    for (auto _ : state) {
        for (size_t i = 0; i < p.last.size(); ++i) {
            const auto n = static_cast<int32_t>(p.last[i].size());
            uint8_t mtf[256];
            switch (which) {
                case Later::kBwtInv:
                    zyrsBWTInv_8u(p.last[i].data(), w.a.data(), n, p.primary[i], w.inv_buffer.data());
                    break;
                case Later::kDivsufsortInv:
#if defined(ZYRDC_HAVE_DIVSUFSORT)
                    inverse_bw_transform(p.divbwt_last[i].data(), w.a.data(), w.divsufsort_work.data(), n,
                                         p.divbwt_primary[i]);
#endif
                    break;
                case Later::kMtfFwd:
                    zyrsMTFInit_8u(mtf);
                    zyrsMTFFwd_8u(p.last[i].data(), w.a.data(), n, mtf);
                    break;
                case Later::kMtfInv:
                    zyrsMTFInit_8u(mtf);
                    zyrsMTFInv_8u(p.indexes[i].data(), w.a.data(), n, mtf);
                    break;
                case Later::kZrunEnc: {
                    const uint8_t* src = p.indexes[i].data();
                    int32_t left = n, count = static_cast<int32_t>(w.symbols.size());
                    zyrsEncodeZ1Z2_BZ2_8u16u(&src, &left, w.symbols.data(), &count, w.freq.data());
                    break;
                }
                case Later::kZrunDec: {
                    const uint16_t* src = p.symbols[i].data();
                    int32_t left = static_cast<int32_t>(p.symbols[i].size()), len = n;
                    zyrsDecodeZ1Z2_BZ2_16u8u(&src, &left, w.a.data(), &len);
                    break;
                }
            }
            benchmark::ClobberMemory();
        }
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(in->file.size()));
}

// The built-in hard blocks, as the tests build them.
Bytes HardBlock(const std::string& kind, size_t n) {
    static const char* const kWords[] = {"rotation ", "of ", "the ", "block ", "sorted\n"};
    std::mt19937 rng(static_cast<uint32_t>(n));
    Bytes b(n, 'x');
    std::string words, fib = "a", fib_prev = "b";
    while (kind == "fibonacci" && fib.size() < n) fib_prev = std::exchange(fib, fib + fib_prev);
    for (size_t i = 0; i < n; ++i) {
        if (kind == "period2") b[i] = i % 2 ? 'd' : 'a';
        if (kind == "period1000") b[i] = static_cast<uint8_t>(i % 1000 * 7919 % 251);
        if (kind == "records") b[i] = static_cast<uint8_t>(i % 4 == 3 ? 0x80 : (i / 4) >> (8 * (i % 4)));
        if (kind == "halves") b[i] = static_cast<uint8_t>((i % (n / 2) + 1) * 2654435761u >> 29);
        if (kind == "fibonacci") b[i] = static_cast<uint8_t>(fib[i]);
        if (kind == "random") b[i] = static_cast<uint8_t>(rng());
        if (kind == "text") {
            while (words.size() <= i) words += kWords[rng() % 5];
            b[i] = static_cast<uint8_t>(words[i]);
        }
    }
    return b;
}

std::vector<Input>& Inputs() {
    static std::vector<Input> inputs;
    return inputs;
}

bool RegisterAll() {
    benchmark::AddCustomContext("corpus", CorpusDir().string());
    std::vector<Input>& inputs = Inputs();
    inputs.reserve((std::size(kFiles) + 8) * std::size(kBlockSizes));
    for (const char* name : kFiles) {
        const Bytes file = ReadFile(CorpusDir() / name);
        if (file.empty()) continue;
        for (const int64_t block : kBlockSizes) inputs.push_back({name, file, block});
    }
    for (const char* kind : {"one_value", "period2", "period1000", "records", "halves", "fibonacci", "random", "text"}) {
        const Bytes block = HardBlock(kind, 900000);
        for (const int64_t size : kBlockSizes) inputs.push_back({std::string("hard_") + kind, block, size});
    }
    const auto add = [](const std::string& family, const Input& in, auto fn, auto... args) {
        benchmark::RegisterBenchmark((family + "/" + in.name + "/" + std::to_string(in.block)).c_str(),
                                     fn, &in, args...)
            ->Unit(benchmark::kMillisecond);
    };
    for (const Input& in : inputs) {
        add("bwt_fwd/zyrdc", in, BM_Blocks, Stage{Fwd}, true);
#if defined(ZYRDC_HAVE_DIVSUFSORT)
        add("bwt_fwd/divbwt", in, BM_Blocks, Stage{Divbwt}, false);
#endif
        add("bwt_chain/zyrdc", in, BM_Blocks, Stage{[](const Block& b, Work& w) {
                benchmark::DoNotOptimize(Chain(b, w));
            }}, false);
#if defined(ZYRDC_HAVE_BZIP2)
        add("bwt_chain/bzip2_9", in, BM_Blocks, Stage{Bzip2}, false);
#endif
    }
    const std::pair<const char*, Later> later[] = {
        {"bwt_inv/zyrdc", Later::kBwtInv},
#if defined(ZYRDC_HAVE_DIVSUFSORT)
        {"bwt_inv/divsufsort", Later::kDivsufsortInv},
#endif
        {"mtf_fwd/zyrdc", Later::kMtfFwd},
        {"mtf_inv/zyrdc", Later::kMtfInv},   {"zrun_enc/zyrdc", Later::kZrunEnc},
        {"zrun_dec/zyrdc", Later::kZrunDec},
    };
    for (const auto& [family, which] : later) {
        for (const Input& in : inputs) add(family, in, BM_Later, which);
    }
    return true;
}

[[maybe_unused]] const bool kRegistered = RegisterAll();

}  // namespace
