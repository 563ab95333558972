// zfp.cpp - `zyrdc zfp`: raw little-endian float32 volumes to and from files that the
// standard zfp tool reads and writes with -h.
#include <cmath>
#include <memory>
#include <optional>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "cli/codec.hpp"
#include "cli/errors.hpp"
#include "commands/commands.hpp"
#include "formats/zfp_file.hpp"

namespace zyrdc::tool {

namespace {

constexpr OptionDef kOptions[] = {
    {'r', "rate", true}, {'p', "precision", true}, {'a', "accuracy", true}, {'\0', "stats", false},
};
constexpr CodecTraits kTraits = {".zfp", true, LevelDigits::None};

double ParseNumber(const std::string& text, const char* what, double low, double high) {
    const auto v = ToReal(text);
    if (!v || !(*v > low) || !(*v <= high)) {
        throw UsageError("invalid " + std::string(what) + " '" + text + "'");
    }
    return *v;
}

std::uint32_t ParseDim(const std::string& text) {
    const auto v = ToInteger(text, 1, kZfpMaxDim);
    if (!v) {
        throw UsageError("invalid dimension '" + text + "' (1 to " + std::to_string(kZfpMaxDim) + ")");
    }
    return static_cast<std::uint32_t>(*v);
}

// "--dims NX NY NZ" takes three arguments, which the option parser does not do: they are
// taken out here, and the rest goes to the parser.
std::vector<char*> TakeDims(std::span<char* const> args, std::vector<std::string>& dims) {
    std::vector<char*> rest;
    for (std::size_t i = 0; i < args.size(); ++i) {
        if (std::strcmp(args[i], "--") == 0) {
            rest.insert(rest.end(), args.begin() + static_cast<std::ptrdiff_t>(i), args.end());
            break;
        }
        if (std::strcmp(args[i], "--dims") != 0) {
            rest.push_back(args[i]);
            continue;
        }
        if (i + 3 >= args.size()) {
            throw UsageError("option '--dims' needs three values, NX NY NZ");
        }
        dims.assign(args.begin() + static_cast<std::ptrdiff_t>(i) + 1,
                    args.begin() + static_cast<std::ptrdiff_t>(i) + 4);
        i += 3;
    }
    return rest;
}

double MaxError(std::span<const float> a, std::span<const float> b) {
    double e = 0.0;
    for (std::size_t i = 0; i < a.size(); ++i) {
        const double d = std::fabs(static_cast<double>(a[i]) - static_cast<double>(b[i]));
        if (!(d <= e)) e = d;  // a NaN difference sticks
    }
    return e;
}

void PrintStats(std::size_t raw, std::size_t packed, const double* maxError) {
    std::string line = "ratio " + std::to_string(static_cast<double>(raw) / static_cast<double>(packed)) +
                       " (" + std::to_string(raw) + " -> " + std::to_string(packed) + " bytes)";
    if (maxError != nullptr) {
        char text[48];
        std::snprintf(text, sizeof text, ", max error %.9g", *maxError);
        line += text;
    }
    // On stderr, so that the data can go to standard output.
    std::fprintf(stderr, "%s\n", line.c_str());
}

std::vector<float> AsFloats(const std::vector<std::uint8_t>& bytes) {
    std::vector<float> values(bytes.size() / sizeof(float));
    std::memcpy(values.data(), bytes.data(), values.size() * sizeof(float));
    return values;
}

// Reads everything `read` holds.
std::vector<std::uint8_t> ReadRest(const ReadFn& read) {
    std::vector<std::uint8_t> bytes;
    std::size_t used = 0;
    for (;;) {
        bytes.resize(used + (std::size_t{1} << 20));
        const std::size_t got = ReadFull(read, std::span(bytes).subspan(used));
        used += got;
        if (used < bytes.size()) break;
    }
    bytes.resize(used);
    return bytes;
}

class ZfpCodec : public Codec {
public:
    ZfpCodec(std::optional<ZfpDims> dims, ZfpParams params, bool stats) : dims_(dims), params_(params), stats_(stats) {}

    void Compress(const ReadFn& read, const WriteFn& write, const CodecFile& file) override {
        if (!stats_) {
            // Slab by slab: memory holds one layer of blocks, whatever the depth of the volume.
            ZfpCompressStream(read, write, *dims_, params_, file.name);
            return;
        }
        // The error needs the original beside the round trip: --stats holds the volume in memory.
        const std::vector<std::uint8_t> raw = ReadRest(read);
        const std::uint64_t want = dims_->Values() * sizeof(float);
        if (raw.size() != want) {
            throw Failure(file.name + ": holds " + std::to_string(raw.size()) + " bytes; " +
                          std::to_string(dims_->nx) + " x " + std::to_string(dims_->ny) + " x " +
                          std::to_string(dims_->nz) + " floats need " + std::to_string(want));
        }
        const std::vector<float> values = AsFloats(raw);
        const std::vector<std::uint8_t> packed = ZfpCompress(values, *dims_, params_);
        write(packed);
        const ZfpVolume back = ZfpDecompress(packed);
        const double error = MaxError(values, back.values);
        PrintStats(raw.size(), packed.size(), &error);
    }

    void Decompress(const ReadFn& read, const WriteFn& write, const CodecFile&) override {
        std::uint64_t packed = 0, raw = 0;
        ZfpDecompressStream(
            [&](std::span<std::uint8_t> buf) {
                const std::size_t n = read(buf);
                packed += n;
                return n;
            },
            [&](std::span<const std::uint8_t> bytes) {
                if (write) write(bytes);
                raw += bytes.size();
            });
        if (stats_) PrintStats(raw, packed, nullptr);
    }

private:
    std::optional<ZfpDims> dims_;
    ZfpParams params_;
    bool stats_;
};

}  // namespace

int RunZfp(const Command& self, std::span<char* const> args) {
    std::vector<std::string> dimArgs;
    const std::vector<char*> rest = TakeDims(args, dimArgs);
    return RunCodec(self, rest, kTraits, kOptions, [&](const ParsedArgs& parsed, const CodecOptions& options) {
        const bool stats = parsed.Has("stats");
        const auto rates = parsed.Values("rate"), precisions = parsed.Values("precision"),
                   tolerances = parsed.Values("accuracy");
        const std::size_t modes = rates.size() + precisions.size() + tolerances.size();
        if (options.mode != CodecOptions::Mode::Compress) {
            if (modes != 0 || !dimArgs.empty()) {
                throw UsageError("-d reads the mode and dimensions from the stream's header");
            }
            return std::make_unique<ZfpCodec>(std::nullopt, ZfpParams{}, stats);
        }
        if (modes != 1) {
            throw UsageError("choose one of -r RATE, -p PRECISION, -a TOLERANCE");
        }
        if (dimArgs.empty()) {
            throw UsageError("--dims NX NY NZ is needed to compress");
        }
        const ZfpDims dims{ParseDim(dimArgs[0]), ParseDim(dimArgs[1]), ParseDim(dimArgs[2])};
        ZfpParams params;
        if (!rates.empty()) {
            params = ZfpRateParams(ParseNumber(rates[0], "rate (bits per value, above 0, at most 64)", 0, 64));
        } else if (!precisions.empty()) {
            const double planes = ParseNumber(precisions[0], "precision (bit planes, 1 to 64)", 0, 64);
            if (planes != std::floor(planes)) throw UsageError("invalid precision '" + precisions[0] + "'");
            params = ZfpPrecisionParams(static_cast<int>(planes));
        } else {
            params = ZfpAccuracyParams(ParseNumber(tolerances[0], "tolerance (above 0)", 0, HUGE_VAL));
        }
        return std::make_unique<ZfpCodec>(dims, params, stats);
    });
}

}  // namespace zyrdc::tool
