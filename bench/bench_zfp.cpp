// bench_zfp.cpp - ZFP compression of a 128^3 float field, side by side with libzfp's serial
// 3-D float compressor where this build found it, in four modes: fixed rate 8 and 16 bits
// per value, fixed precision 16 and fixed accuracy 1e-3.
//
// Names read family/implementation/mode:
//   zfp_encode/zyrdc/r8          zyrsEncodeZfp444_32f over every block, then the flush
//   zfp_encode/zyrdc_scalar/r8   the encoder's plain twin (internal), for context
//   zfp_encode/libzfp/r8         zfp_compress, serial, no header
//   zfp_decode/...               the same for decoding (zyrsDecodeZfp444_32f, zfp_decompress)
// MB/s counts the float data (4 bytes per value, 8 MiB per pass) in both directions. The
// counters give the compression ratio and the largest absolute error of a round trip; each
// implementation decodes its own stream.
#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "zfp/zfp.hpp"
#include "zyrdc.h"

#if defined(ZYRDC_HAVE_ZFP)
#include <zfp.h>
#endif

namespace {

constexpr int kN = 128;
constexpr size_t kValues = size_t{kN} * kN * kN;

// A smooth field: a few long waves and a gentle ramp, like a simulation variable on a grid.
const std::vector<float>& Field() {
    static const std::vector<float> field = [] {
        std::vector<float> f(kValues);
        for (int z = 0; z < kN; ++z) {
            for (int y = 0; y < kN; ++y) {
                for (int x = 0; x < kN; ++x) {
                    const double v = std::sin(x / 9.0) * std::cos(y / 13.0) +
                                     0.5 * std::sin(z / 7.0 + x / 17.0) + 0.01 * (x + y - z);
                    f[static_cast<size_t>(x + kN * (y + kN * z))] = static_cast<float>(v);
                }
            }
        }
        return f;
    }();
    return field;
}

struct Mode {
    const char* name;
    int32_t minBits, maxBits, maxPrec, minExp;  // the record's parameters
    double rate;       // libzfp: fixed rate if above 0
    unsigned planes;   // libzfp: fixed precision if above 0
    double tolerance;  // libzfp: fixed accuracy otherwise
};

const Mode kModes[] = {
    {"r8", 512, 512, 64, -10740, 8, 0, 0},
    {"r16", 1024, 1024, 64, -10740, 16, 0, 0},
    {"p16", 0, 4171, 16, -10740, 0, 16, 0},
    {"a1e-3", 0, 4171, 64, -10, 0, 0, 1e-3},  // floor(log2(1e-3)) = -10
};

using BlockEncoder = ZyrStatus (*)(ZfpState&, const float*, int32_t, int32_t);
using BlockDecoder = ZyrStatus (*)(ZfpState&, float*, int32_t, int32_t);

ZyrStatus ExportedEncode(ZfpState& s, const float* p, int32_t row, int32_t plane) {
    return zyrsEncodeZfp444_32f(p, row, plane, &s);
}
ZyrStatus ExportedDecode(ZfpState& s, float* p, int32_t row, int32_t plane) {
    return zyrsDecodeZfp444_32f(&s, p, row, plane);
}

constexpr int32_t kRow = 4 * kN, kPlane = 4 * kN * kN;

size_t Encode(const Mode& m, BlockEncoder enc, const float* in, std::vector<uint8_t>& out) {
    ZfpState s;
    zyrsEncodeZfpInit_32f(out.data(), static_cast<int32_t>(out.size()), &s);
    zyrsEncodeZfpSet_32f(m.minBits, m.maxBits, m.maxPrec, m.minExp, &s);
    for (int z = 0; z < kN; z += 4) {
        for (int y = 0; y < kN; y += 4) {
            for (int x = 0; x < kN; x += 4) {
                if (enc(s, in + x + kN * (y + kN * z), kRow, kPlane) != StatusOk) std::abort();
            }
        }
    }
    if (zyrsEncodeZfpFlush_32f(&s) != StatusOk) std::abort();
    return static_cast<size_t>(s.pCur - s.pBegin);
}

void Decode(const Mode& m, BlockDecoder dec, const std::vector<uint8_t>& in, size_t size, float* out) {
    ZfpState s;
    zyrsDecodeZfpInit_32f(in.data(), static_cast<int32_t>(size), &s);
    zyrsDecodeZfpSet_32f(m.minBits, m.maxBits, m.maxPrec, m.minExp, &s);
    for (int z = 0; z < kN; z += 4) {
        for (int y = 0; y < kN; y += 4) {
            for (int x = 0; x < kN; x += 4) {
                if (dec(s, out + x + kN * (y + kN * z), kRow, kPlane) != StatusOk) std::abort();
            }
        }
    }
}

double MaxError(const std::vector<float>& a, const std::vector<float>& b) {
    double e = 0.0;
    for (size_t i = 0; i < a.size(); ++i) e = std::fmax(e, std::fabs(static_cast<double>(a[i]) - b[i]));
    return e;
}

void Report(benchmark::State& state, size_t compressed, double maxError) {
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kValues * sizeof(float)));
    state.counters["ratio"] = static_cast<double>(kValues * sizeof(float)) / static_cast<double>(compressed);
    state.counters["max_error"] = maxError;
}

// Worst case of a float block is far below maxBits (see the tests); 2 bytes per value covers
// every mode here with room to spare.
constexpr size_t kStreamBytes = kValues * 2 + 64;

void BM_Ours(benchmark::State& state, const Mode& m, bool decode, BlockEncoder enc, BlockDecoder dec) {
    std::vector<uint8_t> stream(kStreamBytes);
    std::vector<float> back(kValues);
    const size_t size = Encode(m, enc, Field().data(), stream);
    Decode(m, dec, stream, size, back.data());
    for (auto _ : state) {
        if (decode) {
            Decode(m, dec, stream, size, back.data());
        } else {
            benchmark::DoNotOptimize(Encode(m, enc, Field().data(), stream));
        }
        benchmark::ClobberMemory();
    }
    Report(state, size, MaxError(Field(), back));
}

#if defined(ZYRDC_HAVE_ZFP)
struct Libzfp {
    explicit Libzfp(const Mode& m, std::vector<uint8_t>& buffer) {
        bits = stream_open(buffer.data(), buffer.size());
        z = zfp_stream_open(bits);
        if (m.rate > 0) {
            zfp_stream_set_rate(z, m.rate, zfp_type_float, 3, zfp_false);
        } else if (m.planes > 0) {
            zfp_stream_set_precision(z, m.planes);
        } else {
            zfp_stream_set_accuracy(z, m.tolerance);
        }
        zfp_stream_set_execution(z, zfp_exec_serial);
    }
    ~Libzfp() {
        zfp_stream_close(z);
        stream_close(bits);
    }
    Libzfp(const Libzfp&) = delete;
    Libzfp& operator=(const Libzfp&) = delete;

    size_t Compress(const float* in) {
        zfp_field* f = zfp_field_3d(const_cast<float*>(in), zfp_type_float, kN, kN, kN);
        zfp_stream_rewind(z);
        const size_t size = zfp_compress(z, f);
        zfp_field_free(f);
        return size;
    }
    void Decompress(float* out) {
        zfp_field* f = zfp_field_3d(out, zfp_type_float, kN, kN, kN);
        zfp_stream_rewind(z);
        if (zfp_decompress(z, f) == 0) std::abort();
        zfp_field_free(f);
    }

    bitstream* bits;
    zfp_stream* z;
};

void BM_Libzfp(benchmark::State& state, const Mode& m, bool decode) {
    std::vector<uint8_t> stream(kStreamBytes);
    std::vector<float> back(kValues);
    Libzfp codec(m, stream);
    const size_t size = codec.Compress(Field().data());
    codec.Decompress(back.data());
    for (auto _ : state) {
        if (decode) {
            codec.Decompress(back.data());
        } else {
            benchmark::DoNotOptimize(codec.Compress(Field().data()));
        }
        benchmark::ClobberMemory();
    }
    Report(state, size, MaxError(Field(), back));
}
#endif

bool RegisterAll() {
#if defined(ZYRDC_HAVE_ZFP)
    benchmark::AddCustomContext("libzfp", ZFP_VERSION_STRING);
#else
    benchmark::AddCustomContext("libzfp", "not found for this build");
#endif
    for (const bool decode : {false, true}) {
        const std::string family = decode ? "zfp_decode/" : "zfp_encode/";
        for (const Mode& m : kModes) {
            benchmark::RegisterBenchmark((family + "zyrdc/" + m.name).c_str(), BM_Ours, m, decode,
                                         ExportedEncode, ExportedDecode)
                ->Unit(benchmark::kMillisecond);
            benchmark::RegisterBenchmark((family + "zyrdc_scalar/" + m.name).c_str(), BM_Ours, m,
                                         decode, zyrdc::zfp::EncodeBlockScalar,
                                         zyrdc::zfp::DecodeBlockScalar)
                ->Unit(benchmark::kMillisecond);
#if defined(ZYRDC_HAVE_ZFP)
            benchmark::RegisterBenchmark((family + "libzfp/" + m.name).c_str(), BM_Libzfp, m, decode)
                ->Unit(benchmark::kMillisecond);
#endif
        }
    }
    return true;
}

const bool kRegistered = RegisterAll();

}  // namespace
