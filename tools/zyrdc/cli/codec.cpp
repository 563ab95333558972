// codec.cpp - the shared loop of the codec commands: one file at a time, with the names,
// checks and habits of the standard compressors.
#include "cli/codec.hpp"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <vector>

#include "cli/errors.hpp"
#include "cli/files.hpp"
#include "cli/progress.hpp"
#include "commands/commands.hpp"

namespace zyrdc::tool {

namespace {

// Options of every codec command. A command's own options come first and win.
constexpr OptionDef kCommon[] = {
    {'c', "stdout", false},  {'\0', "to-stdout", false}, {'d', "decompress", false},
    {'\0', "uncompress", false}, {'z', "compress", false}, {'k', "keep", false},
    {'f', "force", false},   {'t', "test", false},       {'l', "list", false},
    {'q', "quiet", false},   {'v', "verbose", false},    {'o', "output", true},
    {'S', "suffix", true},   {'\0', "rm", false},
};

// A file left alone for its name or kind: reported, the others go on, the exit code is 2.
class Skipped : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

CodecOptions CommonOptions(const ParsedArgs& parsed, const CodecTraits& traits) {
    CodecOptions o;
    o.keep = traits.keeps_input;
    o.suffix = traits.suffix;
    bool decompress = false, test = false, list = false;
    for (const auto& [name, value] : parsed.options) {
        if (name == "stdout" || name == "to-stdout") o.to_stdout = true;
        else if (name == "decompress" || name == "uncompress") decompress = true;
        else if (name == "compress") decompress = false;
        else if (name == "keep") o.keep = true;
        else if (name == "rm" || name == "unlink" || name == "delete") o.keep = false;
        else if (name == "force") o.force = true;
        else if (name == "test") test = true;
        else if (name == "list") list = true;
        else if (name == "quiet") o.quiet = true, o.verbose = false;
        else if (name == "verbose") o.verbose = true, o.quiet = false;
        else if (name == "output") o.output = value;
        else if (name == "suffix") o.suffix = value;
    }
    if (o.suffix.empty()) throw UsageError("the suffix may not be empty");
    if (test && list) throw UsageError("give at most one of -t and -l");
    using Mode = CodecOptions::Mode;
    o.mode = list ? Mode::List : test ? Mode::Test : decompress ? Mode::Decompress : Mode::Compress;
    if (o.output == "-") {
        o.output.clear();
        o.to_stdout = true;
    }
    return o;
}

bool HasSuffix(const std::string& name, std::string_view suffix) {
    const std::size_t slash = name.rfind('/');
    const std::size_t base = slash == std::string::npos ? 0 : slash + 1;
    return name.size() > base + suffix.size() && name.ends_with(suffix);
}

// The decompressed name of `name`, or Skipped when its suffix is not known.
std::string Decompressed(const std::string& name, const CodecOptions& o, const CodecTraits& traits) {
    if (HasSuffix(name, o.suffix)) return name.substr(0, name.size() - o.suffix.size());
    for (const auto& [suffix, replacement] : traits.more_suffixes) {
        if (HasSuffix(name, suffix)) return name.substr(0, name.size() - suffix.size()).append(replacement);
    }
    throw Skipped(name + ": unknown suffix -- ignored (give -S SUFFIX, -o FILE or -c)");
}

std::string Percent(std::uint64_t coded, std::uint64_t decoded) {
    // Space saved, as gzip shows it.
    const double saved = decoded == 0 ? 0.0 : 100.0 * (1.0 - static_cast<double>(coded) / static_cast<double>(decoded));
    char text[32];
    std::snprintf(text, sizeof text, "%5.1f%%", saved);
    return text;
}

void PrintListHeader(bool method) {
    if (method) {
        std::printf("method      compressed  uncompr. ratio uncompressed_name\n");
    } else {
        std::printf("         compressed        uncompressed  ratio uncompressed_name\n");
    }
}

void PrintListRow(bool method, const ListRow& row, const std::string& name) {
    if (method) {
        const double ratio =
            row.decoded == 0 ? 0.0 : 100.0 * static_cast<double>(row.coded) / static_cast<double>(row.decoded);
        std::printf("%-11s%10" PRIu64 "%10" PRIu64 "%6.1f%% %s\n", row.method.c_str(), row.coded, row.decoded, ratio,
                    name.c_str());
    } else {
        std::printf("%19" PRIu64 " %19" PRIu64 " %s %s\n", row.coded, row.decoded, Percent(row.coded, row.decoded).c_str(),
                    name.c_str());
    }
}

class Runner {
public:
    Runner(const Command& self, const CodecTraits& traits, const CodecOptions& o, Codec& codec)
        : self_(self), traits_(traits), o_(o), codec_(codec) {}

    // Codes one operand; throws Failure or Skipped.
    void Run(const std::string& name) {
        using Mode = CodecOptions::Mode;
        CodecFile file;
        file.name = name;
        const bool reads_coded = o_.mode != Mode::Compress;
        if (name == "-") {
            if (reads_coded && !o_.force && isatty(STDIN_FILENO) != 0) {
                throw Failure("compressed data not read from a terminal (use -f to force)");
            }
        } else {
            struct stat st;
            if (stat(name.c_str(), &st) != 0) throw Failure(name + ": " + std::strerror(errno));
            if (S_ISDIR(st.st_mode)) throw Skipped(name + ": is a directory -- ignored");
            if (!S_ISREG(st.st_mode) && !o_.force) {
                throw Skipped(name + ": is not a regular file -- ignored (use -f to read it)");
            }
            if (S_ISREG(st.st_mode)) file.size = static_cast<std::uint64_t>(st.st_size);
            file.status = st;
        }
        if (o_.mode == Mode::Compress || o_.mode == Mode::Decompress) file.output = OutputName(file.name);

        // Refusals before anything is opened for writing.
        if (file.output == "-") {
            if (o_.mode == Mode::Compress && !o_.force && isatty(STDOUT_FILENO) != 0) {
                throw Failure("compressed data not written to a terminal (use -f to force)");
            }
            if (name != "-" && file.status && S_ISREG(file.status->st_mode) && SameFile(name, STDOUT_FILENO)) {
                throw Failure(name + ": input and output are the same file");
            }
        } else if (!file.output.empty()) {
            if (name != "-" && SameFile(name, file.output)) throw Failure(name + ": input and output are the same file");
            struct stat existing;
            if (!o_.force && lstat(file.output.c_str(), &existing) == 0 &&
                (S_ISREG(existing.st_mode) || S_ISLNK(existing.st_mode))) {
                throw Skipped(file.output + ": already exists; not overwritten (use -f to overwrite)");
            }
        }

        InputFile in(name);
        Progress progress("zyrdc " + std::string(self_.name) + ": " + name, file.size, !o_.quiet);
        std::uint64_t consumed = 0;
        const ReadFn read = [&](std::span<std::uint8_t> buffer) {
            const std::size_t got = in.Read(buffer);
            consumed += got;
            progress.Add(got);
            return got;
        };

        if (o_.mode == Mode::List) {
            const ListRow row = codec_.List(read, file);
            totals_.coded += row.coded;
            totals_.decoded += row.decoded;
            ++listed_;
            PrintListRow(codec_.ListsMethod(), row, name == "-" ? std::string() : ListedName(name, o_, traits_));
            return;
        }
        if (o_.mode == Mode::Test) {
            codec_.Decompress(read, WriteFn(), file);
            codec_.Tested(file, o_.verbose, o_.quiet);
            return;
        }
        OutputFile out(file.output, o_.force);
        std::uint64_t produced = 0;
        const WriteFn write = [&](std::span<const std::uint8_t> bytes) {
            produced += bytes.size();
            out.Write(bytes);
        };
        if (o_.mode == Mode::Compress) {
            codec_.Compress(read, write, file);
        } else {
            codec_.Decompress(read, write, file);
        }
        if (file.status && S_ISREG(file.status->st_mode)) out.CopyAttributes(*file.status);
        out.Commit();
        // The input goes only now that its output is complete and on disk.
        const bool remove = !o_.keep && name != "-" && file.output != "-" && file.status &&
                            S_ISREG(file.status->st_mode);
        if (remove && unlink(name.c_str()) != 0) throw Failure(name + ": " + std::strerror(errno));
        if (o_.verbose) {
            const std::uint64_t coded = o_.mode == Mode::Compress ? produced : consumed;
            const std::uint64_t decoded = o_.mode == Mode::Compress ? consumed : produced;
            std::fprintf(stderr, "%s:\t%s -- %s %s\n", name == "-" ? "stdin" : name.c_str(),
                         Percent(coded, decoded).c_str(), remove ? "replaced with" : "created",
                         file.output == "-" ? "stdout" : file.output.c_str());
        }
    }

    void Totals() const {
        if (o_.mode == CodecOptions::Mode::List && listed_ > 1) {
            ListRow all = totals_;
            all.method.clear();
            PrintListRow(codec_.ListsMethod(), all, "(totals)");
        }
    }

private:
    std::string OutputName(const std::string& name) const {
        if (o_.to_stdout || (name == "-" && o_.output.empty())) return "-";
        if (!o_.output.empty()) return o_.output;
        if (o_.mode == CodecOptions::Mode::Compress) {
            if (HasSuffix(name, o_.suffix) && !o_.force) {
                throw Skipped(name + ": already has " + o_.suffix + " suffix -- unchanged");
            }
            return name + o_.suffix;
        }
        return Decompressed(name, o_, traits_);
    }

    // The name a listing shows: the decompressed name, or the name itself.
    static std::string ListedName(const std::string& name, const CodecOptions& o, const CodecTraits& traits) {
        try {
            return Decompressed(name, o, traits);
        } catch (const Skipped&) {
            return name;
        }
    }

    const Command& self_;
    const CodecTraits& traits_;
    const CodecOptions& o_;
    Codec& codec_;
    ListRow totals_;
    int listed_ = 0;
};

}  // namespace

ListRow Codec::List(const ReadFn& read, const CodecFile& file) {
    ListRow row;
    Decompress(
        [&](std::span<std::uint8_t> buffer) {
            const std::size_t got = read(buffer);
            row.coded += got;
            return got;
        },
        [&](std::span<const std::uint8_t> bytes) { row.decoded += bytes.size(); }, file);
    return row;
}

void Codec::Tested(const CodecFile& file, bool verbose, bool) {
    if (verbose) std::fprintf(stderr, "%s:\t OK\n", file.name == "-" ? "stdin" : file.name.c_str());
}

std::optional<long long> LastLevel(const ParsedArgs& parsed, long long fast, long long best) {
    std::optional<long long> level;
    for (const auto& [name, value] : parsed.options) {
        if (name == "level-digits" || name == "level") {
            const auto v = ToInteger(value, 0, 1000);
            if (!v) throw UsageError("invalid level '" + value + "'");
            level = *v;
        } else if (name == "fast") {
            level = fast;
        } else if (name == "best") {
            level = best;
        }
    }
    return level;
}

int RunCodec(const Command& self, std::span<char* const> args, const CodecTraits& traits,
             std::span<const OptionDef> own, const CodecFactory& make, std::span<const std::string_view> optional_value) {
    std::vector<OptionDef> known(own.begin(), own.end());
    known.insert(known.end(), std::begin(kCommon), std::end(kCommon));
    const ParsedArgs parsed = ParseArgs(args, known, traits.digits, optional_value);
    if (parsed.help) {
        PrintCommandHelp(self);
        return kExitOk;
    }
    if (parsed.version) {
        std::printf("%s\n", VersionLine().c_str());
        return kExitOk;
    }
    CodecOptions o = CommonOptions(parsed, traits);
    std::vector<std::string> names = parsed.operands;
    if (traits.in_out_pair && names.size() == 2 && !parsed.Has("multiple") && o.output.empty() && !o.to_stdout &&
        (o.mode == CodecOptions::Mode::Compress || o.mode == CodecOptions::Mode::Decompress)) {
        o.output = names[1];
        names.pop_back();
        if (o.output == "-") {
            o.output.clear();
            o.to_stdout = true;
        }
    }
    if (names.empty()) names.emplace_back("-");
    if (!o.output.empty() && names.size() > 1) throw UsageError("-o names the output of one input file");
    const std::unique_ptr<Codec> codec = make(parsed, o);

    Runner runner(self, traits, o, *codec);
    if (o.mode == CodecOptions::Mode::List) PrintListHeader(codec->ListsMethod());
    int code = kExitOk;
    for (const std::string& name : names) {
        try {
            runner.Run(name);
        } catch (const Skipped& e) {
            if (!o.quiet) ReportError(self.name, e.what());
            if (code == kExitOk) code = kExitUsage;
        } catch (const Failure& e) {
            ReportError(self.name, e.what());
            code = kExitFailure;
        }
    }
    runner.Totals();
    return code;
}

}  // namespace zyrdc::tool
