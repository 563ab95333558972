// lzop.cpp - `zyrdc lzop`: files of the standard lzop tool (formats/lzop_file.hpp);
// `zyrdc lzo` writes and reads the library's segmented container as a raw file.
#include <sys/stat.h>

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <ctime>
#include <memory>
#include <string>
#include <vector>

#include "cli/args.hpp"
#include "cli/errors.hpp"
#include "cli/files.hpp"
#include "commands/commands.hpp"
#include "formats/lzop_file.hpp"

namespace zyrdc::tool {

namespace {

constexpr OptionDef kOptions[] = {
    {'d', "decompress", false}, {'f', "force", false},  {'c', "stdout", false},
    {'k', "keep", false},       {'t', "test", false},   {'l', "list", false},
    {'F', "no-checksum", false}, {'C', "checksum-compressed", false}, {'\0', "crc32", false},
    {'1', "fast", false},       {'2', "level2", false}, {'3', "level3", false},
    {'4', "level4", false},     {'5', "level5", false}, {'6', "level6", false},
    {'7', "level7", false},     {'8', "level8", false}, {'9', "best", false},
};

bool HasSuffix(const std::string& name) { return name.size() > 4 && name.ends_with(".lzo"); }

// The name, mode and time the member's header records for the input `name`.
LzopSource Source(const std::string& name, bool to_stdout) {
    LzopSource source;
    source.from_stdin = name == "-";
    source.to_stdout = to_stdout;
    source.mtime = static_cast<std::uint64_t>(std::time(nullptr));
    if (!source.from_stdin) {
        struct stat st {};
        if (::stat(name.c_str(), &st) == 0) {
            source.mode = st.st_mode;
            source.mtime = static_cast<std::uint64_t>(st.st_mtime);
        }
        source.name = name.substr(name.find_last_of('/') + 1);
    }
    return source;
}

}  // namespace

int RunLzop(const Command& self, std::span<char* const> args) {
    const ParsedArgs parsed = ParseArgs(args, kOptions);
    if (parsed.help) {
        PrintCommandHelp(self);
        return kExitOk;
    }
    LzopWriteOptions opt;
    for (const auto& [option, value] : parsed.options) {
        for (int level = 1; level <= 9; ++level) {
            if (option == kOptions[8 + level].long_name) opt.level = level;
        }
    }
    opt.crc32 = !parsed.Values("crc32").empty();
    opt.checksum = parsed.Values("no-checksum").empty();
    opt.checksum_coded = !parsed.Values("checksum-compressed").empty();
    const bool decompress = !parsed.Values("decompress").empty();
    const bool to_stdout = !parsed.Values("stdout").empty();
    const bool force = !parsed.Values("force").empty();
    const bool test = !parsed.Values("test").empty(), list = !parsed.Values("list").empty();
    if (test && list) throw UsageError("give at most one of -t and -l");
    std::vector<std::string> inputs = parsed.operands;
    if (inputs.empty()) inputs.push_back("-");

    if (list) {
        std::printf("method      compressed  uncompr. ratio uncompressed_name\n");
        auto row = [](const std::string& method, std::uint64_t coded, std::uint64_t decoded, const std::string& name) {
            const double ratio = decoded == 0 ? 0.0 : 100.0 * static_cast<double>(coded) / static_cast<double>(decoded);
            std::printf("%-11s%10" PRIu64 "%10" PRIu64 "%6.1f%% %s\n", method.c_str(), coded, decoded, ratio, name.c_str());
        };
        LzopTotals all;
        for (const std::string& name : inputs) {
            InputFile in(name);
            const LzopTotals t = LzopDecompress(in.Reader(), WriteFn(), name, true);
            row(LzopMethodName(t), t.coded, t.decoded, HasSuffix(name) ? name.substr(0, name.size() - 4) : name);
            all.coded += t.coded;
            all.decoded += t.decoded;
        }
        if (inputs.size() > 1) {
            row("", all.coded, all.decoded, "(totals -- " + std::to_string(inputs.size()) + " files)");
        }
        return kExitOk;
    }
    if (test) {
        for (const std::string& name : inputs) {
            InputFile in(name);
            LzopDecompress(in.Reader(), WriteFn(), name);
            std::printf("testing %s OK\n", name.c_str());
        }
        return kExitOk;
    }
    // IN OUT as before; one file with -c, or a single IN, or standard input, writes to the
    // standard output or beside IN (with .lzo added, or removed with -d), keeping IN.
    std::vector<std::pair<std::string, std::string>> jobs;
    if (to_stdout) {
        for (const std::string& name : inputs) jobs.emplace_back(name, "-");
    } else if (inputs.size() == 2) {
        jobs.emplace_back(inputs[0], inputs[1]);
    } else if (inputs.size() == 1) {
        const std::string& name = inputs[0];
        if (name == "-") {
            jobs.emplace_back(name, "-");
        } else if (!decompress) {
            jobs.emplace_back(name, name + ".lzo");
        } else if (HasSuffix(name)) {
            jobs.emplace_back(name, name.substr(0, name.size() - 4));
        } else {
            throw UsageError(name + ": unknown suffix, expected .lzo (or give OUT or -c)");
        }
    } else {
        throw UsageError("expected IN and OUT, one IN, or -c with any number of files");
    }
    // With -c several members (or decoded files) follow one another on the standard output.
    std::unique_ptr<OutputFile> shared = to_stdout ? std::make_unique<OutputFile>("-", true) : nullptr;
    for (const auto& [from, to] : jobs) {
        InputFile in(from);
        std::unique_ptr<OutputFile> own = shared ? nullptr : std::make_unique<OutputFile>(to, force);
        OutputFile& out = shared ? *shared : *own;
        if (decompress) {
            LzopDecompress(in.Reader(), out.Writer(), from);
        } else {
            LzopCompress(in.Reader(), out.Writer(), opt, Source(from, to == "-"));
        }
        if (own) own->Commit();
    }
    if (shared) shared->Commit();
    return kExitOk;
}

// `zyrdc lzo`: the segmented container as a raw file, for callers that decode its segments
// themselves (in parallel). The library chooses one segment per 64 KiB (2 to 32); --segments
// asks for a count, and the container is then put together here from single-probe streams
// of equal slices, in the same layout.
int RunLzo(const Command& self, std::span<char* const> args) {
    constexpr OptionDef kLzoOptions[] = {{'d', "decompress", false}, {'f', "force", false}, {'s', "segments", true}};
    const ParsedArgs parsed = ParseArgs(args, kLzoOptions);
    if (parsed.help) {
        PrintCommandHelp(self);
        return kExitOk;
    }
    if (parsed.operands.size() != 2) throw UsageError("expected IN and OUT");
    std::uint32_t segments = 0;
    for (const std::string& v : parsed.Values("segments")) {
        const auto n = ToInteger(v, 2, 32);
        if (!n) throw UsageError("--segments takes 2 to 32");
        segments = static_cast<std::uint32_t>(*n);
    }
    const std::vector<std::uint8_t> in = ReadAll(parsed.operands[0]);
    if (in.size() > 0x7FFFFFFFu) throw Failure(parsed.operands[0] + ": larger than 2 GiB - 1 bytes");
    OutputFile out(parsed.operands[1], !parsed.Values("force").empty());
    if (!parsed.Values("decompress").empty()) {
        if (segments != 0) throw UsageError("--segments is for compression");
        // The header's total T sizes the output; a file too short for its header, or with
        // a total far beyond what its bytes can hold (LZO1X expands at most 255 times per
        // byte of run header), is refused before allocating.
        if (in.size() < 11 || in[0] != 0x55 || in[1] < 1 || in[1] > 32 || in[2] != (in[1] ^ 0x55)) {
            throw Failure(parsed.operands[0] + ": not a segmented LZO container");
        }
        const std::uint32_t total = LoadLe32(&in[3]);
        if (total > 0x7FFFFFFFu || total / 256 > in.size()) throw Failure(parsed.operands[0] + ": implausible length");
        std::vector<std::uint8_t> decoded(std::max<std::uint32_t>(total, 1));
        std::uint32_t len = total;
        const ZyrStatus s = zyrsDecodeLZOSafe_8u(in.data(), static_cast<std::uint32_t>(in.size()), decoded.data(), &len);
        if (s != StatusOk || len != total) throw Failure(parsed.operands[0] + ": corrupt LZO data");
        decoded.resize(total);
        out.Write(decoded);
    } else {
        const auto n = static_cast<std::uint32_t>(in.size());
        if (segments == 0) {
            LzoEncoder encoder(LzoMethodSegmented, std::max<std::uint32_t>(n, 1));
            out.Write(encoder.Encode(in));
        } else {
            std::vector<std::uint8_t> h = {0x55, static_cast<std::uint8_t>(segments), static_cast<std::uint8_t>(segments ^ 0x55)};
            AppendLe(h, n, 4);
            std::vector<std::uint8_t> body;
            const std::uint32_t share = n / segments;
            LzoEncoder encoder(LzoMethodFast, std::max<std::uint32_t>(n, 1));
            for (std::uint32_t i = 0; i < segments; ++i) {
                const std::uint32_t from = i * share, len = i + 1 < segments ? share : n - from;
                const std::span<const std::uint8_t> coded = encoder.Encode(std::span(in.data() + from, len));
                if (i + 1 < segments) {
                    AppendLe(h, coded.size(), 4);
                }
                body.insert(body.end(), coded.begin(), coded.end());
            }
            out.Write(h);
            out.Write(body);
        }
    }
    out.Commit();
    return kExitOk;
}

}  // namespace zyrdc::tool
