// lzop.cpp - `zyrdc lzop`: files of the standard lzop tool (formats/lzop_file.hpp), with its
// command line: -1..-9, -U to remove the input (kept by default), --crc32, -F, -C, -n/-N.
#include <cstdio>
#include <ctime>
#include <memory>
#include <string>

#include "cli/codec.hpp"
#include "cli/errors.hpp"
#include "commands/commands.hpp"
#include "formats/lzop_file.hpp"

namespace zyrdc::tool {

namespace {

constexpr OptionDef kOptions[] = {
    {'U', "unlink", false},  {'\0', "delete", false}, {'\0', "crc32", false},
    {'F', "no-checksum", false}, {'C', "checksum-compressed", false}, {'\0', "fast", false},
    {'\0', "best", false},   {'n', "no-name", false}, {'N', "name", false},
};
constexpr std::pair<std::string_view, std::string_view> kMoreSuffixes[] = {{".tzo", ".tar"}};
constexpr CodecTraits kTraits = {".lzo", true, LevelDigits::Single, false, kMoreSuffixes};

// The name, mode and time the member's header records for the input.
LzopSource Source(const CodecFile& file) {
    LzopSource source;
    source.from_stdin = file.name == "-";
    source.to_stdout = file.output == "-";
    source.mtime = static_cast<std::uint64_t>(std::time(nullptr));
    if (file.status) {
        source.mode = file.status->st_mode;
        source.mtime = static_cast<std::uint64_t>(file.status->st_mtime);
    }
    if (!source.from_stdin) source.name = file.name.substr(file.name.find_last_of('/') + 1);
    return source;
}

class LzopCodec : public Codec {
public:
    explicit LzopCodec(const LzopWriteOptions& opt) : opt_(opt) {}
    void Compress(const ReadFn& read, const WriteFn& write, const CodecFile& file) override {
        LzopCompress(read, write, opt_, Source(file));
    }
    void Decompress(const ReadFn& read, const WriteFn& write, const CodecFile& file) override {
        LzopDecompress(read, write, file.name);
    }
    ListRow List(const ReadFn& read, const CodecFile& file) override {
        const LzopTotals t = LzopDecompress(read, WriteFn(), file.name, true);
        return {t.coded, t.decoded, LzopMethodName(t)};
    }
    bool ListsMethod() const override { return true; }
    // As lzop does, -t names every file it tested, on standard error.
    void Tested(const CodecFile& file, bool, bool quiet) override {
        if (!quiet) std::fprintf(stderr, "testing %s OK\n", file.name == "-" ? "<stdin>" : file.name.c_str());
    }

private:
    LzopWriteOptions opt_;
};

}  // namespace

int RunLzop(const Command& self, std::span<char* const> args) {
    return RunCodec(self, args, kTraits, kOptions, [](const ParsedArgs& parsed, const CodecOptions&) {
        LzopWriteOptions opt;
        const long long level = LastLevel(parsed, 1, 9).value_or(3);
        if (level < 1 || level > 9) throw UsageError("invalid level " + std::to_string(level) + " (1 to 9)");
        opt.level = static_cast<int>(level);
        opt.crc32 = parsed.Has("crc32");
        opt.checksum = !parsed.Has("no-checksum");
        opt.checksum_coded = parsed.Has("checksum-compressed");
        return std::make_unique<LzopCodec>(opt);
    });
}

}  // namespace zyrdc::tool
