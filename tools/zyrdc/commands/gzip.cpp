// gzip.cpp - `zyrdc gzip`: .gz files written with the library's Deflate primitives and read
// with its Inflate decoder, streamed in pieces so that any size works.
#include <memory>

#include "cli/codec.hpp"
#include "cli/errors.hpp"
#include "commands/commands.hpp"
#include "formats/deflate_writer.hpp"
#include "formats/gzip_member.hpp"

namespace zyrdc::tool {

namespace {

constexpr OptionDef kOptions[] = {
    {'\0', "level", true}, {'\0', "fast", false}, {'\0', "best", false},
    {'n', "no-name", false}, {'N', "name", false},
};
constexpr std::pair<std::string_view, std::string_view> kMoreSuffixes[] = {{".tgz", ".tar"}, {".z", ""}};
constexpr CodecTraits kTraits = {".gz", false, LevelDigits::Single, false, kMoreSuffixes};

class GzipCodec : public Codec {
public:
    explicit GzipCodec(std::uint32_t level) : level_(level) {}
    void Compress(const ReadFn& read, const WriteFn& write, const CodecFile&) override { Gzip(read, write, level_); }
    void Decompress(const ReadFn& read, const WriteFn& write, const CodecFile& file) override {
        Gunzip(read, write, file.name);
    }

private:
    std::uint32_t level_;
};

}  // namespace

int RunGzip(const Command& self, std::span<char* const> args) {
    return RunCodec(self, args, kTraits, kOptions, [](const ParsedArgs& parsed, const CodecOptions&) {
        // -1 .. -9 and --level=N are one scale: the single-pass mode at 1, the matcher's
        // levels elsewhere (0..29).
        const long long level = LastLevel(parsed, 1, 9).value_or(kDefaultDeflateLevel);
        if (level < 0 || level >= static_cast<long long>(kDeflateLevels)) {
            throw UsageError("invalid level " + std::to_string(level) + " (0 to 29)");
        }
        return std::make_unique<GzipCodec>(static_cast<std::uint32_t>(level));
    });
}

}  // namespace zyrdc::tool
