// lz4.cpp - `zyrdc lz4`: files in the LZ4 frame format (formats/lz4_frame.hpp).
#include <sys/stat.h>

#include <algorithm>
#include <optional>
#include <string>
#include <vector>

#include "cli/args.hpp"
#include "cli/errors.hpp"
#include "cli/files.hpp"
#include "cli/progress.hpp"
#include "commands/commands.hpp"
#include "formats/lz4_frame.hpp"

namespace zyrdc::tool {

namespace {

constexpr OptionDef kOptions[] = {{'d', "decompress", false}, {'f', "force", false},
                                  {'\0', "fast", true},       {'c', "stdout", false},
                                  {'k', "keep", false},        {'t', "test", false},
                                  {'D', "dict", true}};

int ParseAcceleration(const std::string& text) {
    const auto value = ToInteger(text, 1, 65537);
    if (!value) {
        throw UsageError("invalid acceleration '" + text + "' (a whole number from 1 to 65537)");
    }
    return static_cast<int>(*value);
}

int ParseLevel(std::string_view digits) {
    int level = 0;
    for (const char c : digits) level = level * 10 + (c - '0');
    return level;
}

bool AllDigits(std::string_view s) {
    return !s.empty() && s.size() <= 2 && std::all_of(s.begin(), s.end(), [](char c) { return c >= '0' && c <= '9'; });
}

// The size of a regular file, which the frame header then carries.
std::optional<std::uint64_t> KnownSize(const std::string& name) {
    struct stat st;
    if (name == "-" || stat(name.c_str(), &st) != 0 || !S_ISREG(st.st_mode)) return std::nullopt;
    return static_cast<std::uint64_t>(st.st_size);
}

// The input as a reader whose bytes count towards the progress display.
ReadFn Counted(InputFile& in, Progress& progress) {
    return [&in, &progress](std::span<std::uint8_t> buffer) {
        const std::size_t got = in.Read(buffer);
        progress.Add(got);
        return got;
    };
}

}  // namespace

int RunLz4(const Command& self, std::span<char* const> args) {
    if (!Lz4FramesAvailable()) {
        throw Failure("this zyrdc was built without libxxhash, which LZ4 frames need");
    }
    // The level (-1 .. -12) and block options (-BD, -B4 .. -B7) are taken out first; the
    // rest goes through the common parser.
    Lz4FrameSettings settings;
    std::vector<char*> rest;
    bool levelGiven = false, ended = false;
    for (char* const arg : args) {
        const std::string_view a = arg;
        if (!ended && a == "--") ended = true;
        if (!ended && a.size() >= 2 && a[0] == '-' && AllDigits(a.substr(1))) {
            settings.level = ParseLevel(a.substr(1));
            if (settings.level < 1 || settings.level > kLz4LastLevel) {
                throw UsageError("invalid level '" + std::string(a) + "' (-1 to -12)");
            }
            levelGiven = true;
        } else if (!ended && a == "-BD") {
            settings.linked = true;
        } else if (!ended && a.size() == 3 && a.starts_with("-B") && a[2] >= '4' && a[2] <= '7') {
            settings.blockId = a[2] - '0';
        } else {
            rest.push_back(arg);
        }
    }
    const ParsedArgs parsed = ParseArgs(rest, kOptions);
    if (parsed.help) {
        PrintCommandHelp(self);
        return kExitOk;
    }
    const bool test = !parsed.Values("test").empty();
    const bool decompress = test || !parsed.Values("decompress").empty();
    const bool toStdout = !parsed.Values("stdout").empty();
    for (const std::string& value : parsed.Values("fast")) {
        if (decompress) throw UsageError("--fast applies to compression only");
        settings.acceleration = ParseAcceleration(value);
        if (!levelGiven) settings.level = 1;
    }
    if (settings.acceleration != 1 && settings.level >= kLz4FirstHcLevel) {
        throw UsageError("--fast and the levels -3 to -12 exclude each other");
    }
    for (const std::string& name : parsed.Values("dict")) {
        settings.dict = ReadAll(name);
        if (settings.dict.empty()) throw UsageError("the dictionary '" + name + "' is empty");
    }
    if (parsed.operands.empty() || parsed.operands.size() > 2) {
        throw UsageError("expected an input file and at most one output file");
    }
    const std::string& inName = parsed.operands[0];
    InputFile in(inName);
    Progress progress("zyrdc lz4", KnownSize(inName));
    if (test) {
        if (parsed.operands.size() != 1) throw UsageError("-t takes no output file");
        Lz4FrameDecompress(Counted(in, progress), WriteFn(), settings.dict, inName);
        return kExitOk;
    }
    // Without an output name: standard output for -c or standard input, else IN.lz4, or IN
    // without its .lz4 when decompressing.
    std::string outName;
    if (parsed.operands.size() == 2) {
        if (toStdout) throw UsageError("-c writes to standard output: give no output file");
        outName = parsed.operands[1];
    } else if (toStdout || inName == "-") {
        outName = "-";
    } else if (!decompress) {
        outName = inName + ".lz4";
    } else if (inName.size() > 4 && inName.ends_with(".lz4")) {
        outName = inName.substr(0, inName.size() - 4);
    } else {
        throw UsageError("cannot name the output of '" + inName + "' (no .lz4 suffix): give OUT or -c");
    }
    OutputFile out(outName, !parsed.Values("force").empty());
    if (decompress) {
        Lz4FrameDecompress(Counted(in, progress), out.Writer(), settings.dict, inName);
    } else {
        Lz4FrameCompress(Counted(in, progress), out.Writer(), settings, KnownSize(inName));
    }
    out.Commit();
    return kExitOk;
}

}  // namespace zyrdc::tool
