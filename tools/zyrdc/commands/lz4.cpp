// lz4.cpp - `zyrdc lz4`: files in the LZ4 frame format (formats/lz4_frame.hpp), with the
// command line of the lz4 tool: -1..-12, --fast[=N], --best, -B4..-B7, -BD, -D DICT, -l
// (legacy format), -m, --rm; two names without -m are IN and OUT.
#include <memory>
#include <string>

#include "cli/codec.hpp"
#include "cli/errors.hpp"
#include "cli/files.hpp"
#include "commands/commands.hpp"
#include "formats/lz4_frame.hpp"

namespace zyrdc::tool {

namespace {

constexpr OptionDef kOptions[] = {
    {'B', "block", true},      {'D', "dict", true},  {'\0', "fast", true}, {'\0', "best", false},
    {'m', "multiple", false},  {'l', "legacy", false},
};
constexpr std::string_view kOptionalValue[] = {"fast"};
constexpr CodecTraits kTraits = {".lz4", true, LevelDigits::Number, true};

class Lz4Codec : public Codec {
public:
    explicit Lz4Codec(Lz4FrameSettings settings) : settings_(std::move(settings)) {}
    void Compress(const ReadFn& read, const WriteFn& write, const CodecFile& file) override {
        Lz4FrameCompress(read, write, settings_, file.size);
    }
    void Decompress(const ReadFn& read, const WriteFn& write, const CodecFile& file) override {
        Lz4FrameDecompress(read, write, settings_.dict, file.name);
    }

private:
    Lz4FrameSettings settings_;
};

std::unique_ptr<Codec> Make(const ParsedArgs& parsed, const CodecOptions& options) {
    Lz4FrameSettings s;
    bool fast = false;
    for (const auto& [name, value] : parsed.options) {
        if (name == "level-digits") {
            const auto level = ToInteger(value, 0, kLz4LastLevel);
            if (!level) throw UsageError("invalid level '-" + value + "' (-1 to -12)");
            s.level = std::max<int>(1, static_cast<int>(*level));
            s.acceleration = 1;
            fast = false;
        } else if (name == "best") {
            s.level = kLz4LastLevel;
            s.acceleration = 1;
            fast = false;
        } else if (name == "fast") {
            const auto n = value.empty() ? std::optional<long long>(1) : ToInteger(value, 1, 65537);
            if (!n) throw UsageError("invalid acceleration '" + value + "' (a whole number from 1 to 65537)");
            s.level = 1;
            s.acceleration = static_cast<int>(*n);
            fast = true;
        } else if (name == "block") {
            if (value == "D") {
                s.linked = true;
            } else if (value.size() == 1 && value[0] >= '0' + kLz4MinBlockId && value[0] <= '0' + kLz4MaxBlockId) {
                s.blockId = value[0] - '0';
            } else {
                throw UsageError("invalid block option '-B" + value + "' (-B4 .. -B7 or -BD)");
            }
        } else if (name == "legacy") {
            s.legacy = true;
        } else if (name == "dict") {
            s.dict = ReadAll(value);
            if (s.dict.empty()) throw UsageError("the dictionary '" + value + "' is empty");
        }
    }
    const bool compressing = options.mode == CodecOptions::Mode::Compress;
    if (fast && !compressing) throw UsageError("--fast applies to compression only");
    if (s.legacy && !s.dict.empty()) throw UsageError("the legacy format takes no dictionary");
    return std::make_unique<Lz4Codec>(std::move(s));
}

}  // namespace

int RunLz4(const Command& self, std::span<char* const> args) {
    if (!Lz4FramesAvailable()) {
        throw Failure("this zyrdc was built without libxxhash, which LZ4 frames need");
    }
    return RunCodec(self, args, kTraits, kOptions, Make, kOptionalValue);
}

}  // namespace zyrdc::tool
