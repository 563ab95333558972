// lzss.cpp - `zyrdc lzss`: files in the library's LZSS format (formats/lzss_file.hpp). The
// coder has one setting, so -1..-9 are accepted for scripts' sake and change nothing.
#include <memory>
#include <string>

#include "cli/codec.hpp"
#include "cli/errors.hpp"
#include "commands/commands.hpp"
#include "formats/lzss_file.hpp"

namespace zyrdc::tool {

namespace {

constexpr OptionDef kOptions[] = {{'p', "piece", true}, {'\0', "raw", false}};
constexpr CodecTraits kTraits = {".lzs", true, LevelDigits::Single};

std::size_t ParsePiece(const std::string& text) {
    const auto value = ToInteger(text, 1, static_cast<long long>(kLzssMaxPiece));
    if (!value) {
        throw UsageError("invalid piece size '" + text + "' (1 to " + std::to_string(kLzssMaxPiece) + " bytes)");
    }
    return static_cast<std::size_t>(*value);
}

class LzssCodec : public Codec {
public:
    LzssCodec(std::size_t piece, bool raw) : piece_(piece), raw_(raw) {}
    void Compress(const ReadFn& read, const WriteFn& write, const CodecFile&) override {
        LzssCompress(read, write, piece_, raw_);
    }
    void Decompress(const ReadFn& read, const WriteFn& write, const CodecFile& file) override {
        LzssDecompress(read, write ? write : WriteFn([](std::span<const std::uint8_t>) {}), piece_, raw_, file.name);
    }

private:
    std::size_t piece_;
    bool raw_;
};

}  // namespace

int RunLzss(const Command& self, std::span<char* const> args) {
    return RunCodec(self, args, kTraits, kOptions, [](const ParsedArgs& parsed, const CodecOptions&) {
        std::size_t piece = kLzssDefaultPiece;
        for (const std::string& value : parsed.Values("piece")) piece = ParsePiece(value);
        return std::make_unique<LzssCodec>(piece, parsed.Has("raw"));
    });
}

}  // namespace zyrdc::tool
